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

/// Whether the request has changed something; an agent of an earlier version does not say.
bool hasChanged( const Reader & in ) { return !in.find( "changed" ) || in.flag( "changed" ); }

} // namespace

Accepted readAccepted( std::string_view text ) {
   const auto answer = Reader::parsed( text );
   const Reader in( answer );
   return { in.name( "unit" ), in.counter( "generation" ), in.name( "state" ), in.maybeCounter( "operation" ),
            hasChanged( in ),  in.flag( "repeated" ) };
}

Released readReleased( std::string_view text ) {
   const auto answer = Reader::parsed( text );
   const Reader in( answer );
   return { in.name( "interface" ), in.maybeCounter( "operation" ), hasChanged( in ), in.flag( "repeated" ) };
}

Reloaded readReloaded( std::string_view text ) {
   const auto answer = Reader::parsed( text );
   const Reader in( answer );
   return { in.texts( "changes" ), in.maybeCounter( "operation" ), hasChanged( in ), in.flag( "repeated" ) };
}

std::vector< Operation > readOperations( std::string_view text ) {
   return Reader::listOf( Reader::parsed( text ), operationOf );
}

Operation readOperation( std::string_view text ) {
   const auto answer = Reader::parsed( text );
   return operationOf( Reader( answer ) );
}

} // namespace Api
