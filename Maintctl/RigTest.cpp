#include "Maintctl/RigTest.h"

#include "Api/Names.h"
#include "Maintctl/CommandLine.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace Maintctl {

using nlohmann::json;

namespace {

/// What is laid down has all fields; which of them are asked for does not matter.
std::string withoutFields( const std::string & path ) { return path.substr( 0, path.find( "fields=" ) - 1 ); }

} // namespace

Reply FakeClient::send( const Request & request ) {
   patience = request.seconds;
   if ( const auto happens = std::exchange( during_, nullptr ) ) {
      happens();
      if ( request.meanwhile )
         request.meanwhile();
   }
   if ( std::exchange( interrupted_, false ) )
      throw Failure{ ExitStatus::interrupted, FailureCode::interrupted, "interrupted", "", {} };
   if ( !reachable_ )
      throw Failure{
         ExitStatus::notReachable,
         FailureCode::notReachable,
         "the agent cannot be reached: Connection refused",
         "/run/maintd/control.sock",
         {} };
   if ( hangsFrom_ && request.path.find( *hangsFrom_ ) != std::string::npos )
      hangsFrom_ = std::nullopt;
   if ( waits_ && !hangsFrom_ ) {
      waits_( request.seconds );
      throw Failure{
         ExitStatus::notReachable,
         FailureCode::notReachable,
         "the agent cannot be reached: no answer for " + std::to_string( request.seconds ) + " seconds",
         "/run/maintd/control.sock",
         {} };
   }
   const bool get = request.method == Request::Method::get;
   const std::string key = ( get ? "GET " : "POST " ) + request.path;
   if ( request.path != Api::Path::agent )
      requests.push_back( key + ( get ? "" : " " + request.body ) );
   const auto found = answers_.find( withoutFields( key ) );
   if ( found == answers_.end() )
      return { 404, R"({"error":{"code":"not-found","message":"there is nothing here","where":null}})" };
   std::deque< Reply > & replies = found->second;
   Reply reply = replies.front();
   if ( replies.size() > 1 )
      replies.pop_front();
   return reply;
}

Reply FakeClient::stream( const std::string & path, const std::function< void( std::string_view ) > & take ) {
   const auto found = answers_.find( "GET " + path );
   const bool known = found != answers_.end(), last = known && found->second.size() == 1;
   if ( !known && reachable_ )
      interruptNext();
   Reply reply = send( { Request::Method::get, path, "" } );
   if ( last )
      answers_.erase( found );
   if ( reply.status == 200 )
      for ( const char byte : std::exchange( reply.body, "" ) )
         take( { &byte, 1 } );
   return reply;
}

void FakeClient::answers( const std::string & request, std::string body, int status ) {
   answers_[request].push_back( { status, std::move( body ) } );
}

void FakeClient::replaces( const std::string & request, std::string body ) {
   answers_[request] = { { 200, std::move( body ) } };
}

void FakeClient::refuses(
   const std::string & request, int status, const std::string & code, const std::string & message,
   const std::string & where ) {
   answers(
      request, json{ { "error", { { "code", code }, { "message", message }, { "where", where } } } }.dump(),
      status );
}

bool FakePace::sleep( double seconds ) {
   now_ += seconds;
   while ( !actions_.empty() && actions_.begin()->first <= now_ )
      actions_.extract( actions_.begin() ).mapped()();
   return now_ < interrupt_;
}

Config::Parsed< std::string > FakeFiles::read( const std::string & path ) {
   const auto found = content.find( path );
   if ( found == content.end() )
      return Config::Parsed< std::string >::refused( "the file cannot be read: No such file or directory" );
   return Config::Parsed< std::string >::of( found->second );
}

Config::Parsed< std::vector< std::string > > FakeFiles::list( const std::string & directory ) {
   std::vector< std::string > names;
   for ( const auto & [path, text] : content )
      if ( path.starts_with( directory + "/" ) )
         names.push_back( path.substr( directory.size() + 1 ) );
   return Config::Parsed< std::vector< std::string > >::of( names );
}

ExitStatus Rig::run( const std::vector< std::string > & words ) {
   const Parsed parsed = parse( words, "1.2.3" );
   std::ostringstream dataStream, messageStream;
   const auto * invocation = std::get_if< Invocation >( &parsed );
   if ( !invocation ) {
      const auto * error = std::get_if< UsageError >( &parsed );
      ADD_FAILURE() << "the command line was not taken: " << ( error ? error->failure.message : "help" );
      return ExitStatus::usage;
   }
   Output output( dataStream, messageStream, invocation->json );
   World world{ client, pace, files, output, data, messages, { session, sessionNote } };
   const ExitStatus status = Maintctl::run( *invocation, world );
   EXPECT_TRUE( output.flush() );
   out = dataStream.str();
   err = messageStream.str();
   if ( invocation->json ) {
      for ( const std::string & document : severalDocuments ? linesOf( out ) : std::vector{ out } )
         EXPECT_TRUE( isJson( document ) ) << document;
      EXPECT_EQ( err, "" );
   }
   return status;
}

bool isJson( const std::string & text ) { return json::accept( text ); }

std::string at( const std::string & text, const std::string & pointer ) {
   const json document = json::parse( text, nullptr, false );
   const json::json_pointer place( pointer );
   return !document.is_discarded() && document.contains( place ) ? document[place].dump() : "";
}

std::vector< std::string > linesOf( const std::string & text ) {
   std::vector< std::string > result;
   std::istringstream stream( text );
   for ( std::string line; std::getline( stream, line ); )
      result.push_back( line );
   return result;
}

} // namespace Maintctl
