#include "Maintctl/Remote.h"

#include "Api/Names.h"
#include "Api/Shapes.h"
#include "Maintctl/Failure.h"

#include <utility>

namespace Maintctl {

namespace {

Failure failureOf( const Reply & reply, const Request & request ) {
   const bool force = reply.status == Api::httpStatus( Api::ErrorCode::needsForce );
   Failure failure;
   failure.status = force ? ExitStatus::needsForce : ExitStatus::failed;
   if ( auto refusal = Api::readRefusal( reply.body ) ) {
      failure.code = refusal->code.empty() ? FailureCode::failed : std::move( refusal->code );
      failure.message = std::move( refusal->message );
      failure.where = std::move( refusal->where );
      failure.operation = refusal->operation;
      failure.fileErrors = std::move( refusal->fileErrors );
      failure.findings = Api::readRefusedFindings( reply.body );
      return failure;
   }
   failure.code = stringValue( Api::ErrorCode::internal );
   failure.message =
      "the agent answers with status " + std::to_string( reply.status ) + " and gives no reason";
   failure.where = request.path;
   return failure;
}

} // namespace

void Remote::watchedIs( std::function< void() > meanwhile ) {
   seconds_ = soon;
   meanwhile_ = std::move( meanwhile );
}

std::string Remote::get( const std::string & path ) { return ask( { Request::Method::get, path, "" } ); }

std::string Remote::post( const std::string & path, const std::string & body ) {
   return ask( { Request::Method::post, path, body } );
}

void Remote::stream(
   const std::string & path, const std::function< void( std::string_view bytes ) > & take ) {
   const Reply reply = client_.stream( path, take );
   if ( reply.status < 200 || reply.status > 299 )
      throw failureOf( reply, { Request::Method::get, path, "" } );
}

std::optional< double > Remote::clock() try {
   return Api::readAgent( get( Api::Path::agent ) ).clock;
} catch ( const Failure & failure ) {
   const bool away = failure.status == ExitStatus::notReachable && seconds_ == soon;
   if ( away || failure.status == ExitStatus::interrupted )
      throw;
   return std::nullopt;
} catch ( const Api::Error & ) {
   return std::nullopt;
}

std::string Remote::ask( Request request ) {
   request.seconds = seconds_;
   request.meanwhile = meanwhile_;
   Reply reply = client_.send( request );
   if ( reply.status < 200 || reply.status > 299 )
      throw failureOf( reply, request );
   return std::move( reply.body );
}

} // namespace Maintctl
