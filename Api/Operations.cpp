#include "Api/Operations.h"

#include "Api/Reader.h"

#include <nlohmann/json.hpp>

namespace Api {

namespace {

Operation operationOf( const Reader & in ) {
   Operation operation;
   operation.id = in.counter( "id" );
   operation.kind = in.name( "kind" );
   operation.unit = in.text( "unit" );
   operation.interface = in.maybeText( "interface" );
   operation.state = in.name( "state" );
   operation.by = in.maybeText( "by" );
   operation.reason = in.maybeText( "reason" );
   operation.requestKey = in.maybeText( "request-key" );
   operation.with = in.pairs( "with" );
   operation.begun = in.time( "begun" );
   operation.ended = in.time( "ended" );
   operation.endedBy = in.maybeCounter( "ended-by" );
   operation.text = in.text( "text" );
   return operation;
}

} // namespace

Accepted readAccepted( std::string_view text ) {
   const auto answer = Reader::parsed( text );
   const Reader in( answer );
   // An agent of an earlier version says of no change whether it was one.
   return {
      in.name( "unit" ),
      in.counter( "generation" ),
      in.name( "state" ),
      in.maybeCounter( "operation" ),
      !in.find( "changed" ) || in.flag( "changed" ),
      in.flag( "repeated" ) };
}

Released readReleased( std::string_view text ) {
   const auto answer = Reader::parsed( text );
   const Reader in( answer );
   return { in.name( "interface" ), in.maybeCounter( "operation" ) };
}

std::vector< Operation > readOperations( std::string_view text ) {
   return Reader::listOf( Reader::parsed( text ), operationOf );
}

Operation readOperation( std::string_view text ) {
   const auto answer = Reader::parsed( text );
   return operationOf( Reader( answer ) );
}

} // namespace Api
