#include "Agent/Control/AnswersJson.h"

#include "Api/Values.h"

#include <nlohmann/json.hpp>

#include <vector>

namespace Agent {

using nlohmann::json;

namespace {

std::string text( const json & value ) {
   // Reasons come from outside; what is not UTF-8 is shown, not refused.
   return value.dump( -1, ' ', false, json::error_handler_t::replace ) + "\n";
}

/// The times of operations are wall time.
json wallTime( double time ) { return time > 0 ? json( Api::timeText( time ) ) : json( nullptr ); }

std::string runningText( const Operation & operation ) {
   return operation.unitName() +
          ( operation.kind() == OperationKind::enter ? " goes into maintenance" : " goes back to normal" );
}

} // namespace

json Answers::Json::operation( const Operation & o ) {
   return {
      { "id", o.id() },
      { "kind", stringValue( o.kind() ) },
      { "unit", isOfUnit( o.kind() ) ? json( o.unitName() ) : json( nullptr ) },
      { "interface", o.kind() == OperationKind::release ? json( o.unitName() ) : json( nullptr ) },
      { "state", stringValue( o.state() ) },
      { "by", textOrNull( o.by() ) },
      { "reason", textOrNull( o.reason() ) },
      { "with", pairsOf( o.with() ) },
      { "request-key", textOrNull( o.requestKey() ) },
      { "begun", wallTime( o.begun() ) },
      { "ended", wallTime( o.ended() ) },
      { "ended-by", o.endedBy() ? json( o.endedBy() ) : json( nullptr ) },
      { "text", o.state() == OperationState::running ? runningText( o ) : o.text() } };
}

std::string Answers::operations( const OperationsAsked & asked ) const {
   bool known = asked.unit.empty() || model_.unitStatusDir->status( asked.unit );
   std::vector< const Operation * > fitting;
   for ( const auto & [id, operation] : model_.operationDir->operationRange() ) {
      if ( !asked.unit.empty() && !( isOfUnit( operation->kind() ) && operation->unitName() == asked.unit ) )
         continue;
      known = true;
      if ( !asked.state || operation->state() == *asked.state )
         fitting.push_back( operation.get() );
   }
   if ( !known )
      throw Api::Error{ Api::ErrorCode::notFound, "there is no unit " + asked.unit, asked.unit };
   json list = json::array();
   for ( auto next = fitting.rbegin(); next != fitting.rend() && list.size() < asked.limit; ++next )
      list.push_back( Json::operation( **next ) );
   return text( list );
}

std::string Answers::operation( Vel::U32 id ) const {
   const Operation * const operation = model_.operationDir->operation( id );
   const std::string name = std::to_string( id );
   if ( !operation )
      throw Api::Error{ Api::ErrorCode::notFound, "there is no operation " + name, name };
   return text( Json::operation( *operation ) );
}

} // namespace Agent
