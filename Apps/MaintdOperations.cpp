#include "Apps/Maintd.h"

/// What is asked of units, by operators and by the agent itself. All of it goes through the operations.
namespace Apps {

namespace {

using Agent::OperationKind;
using Request = Agent::ControlCommands::Request;
using Taken = Agent::ControlCommands::Taken;

Agent::Operations::Request asked(
   OperationKind kind, const std::string & unit, const Request & request, const std::string & failure = "" ) {
   return { kind, unit, request.by, request.reason, request.with, request.key, request.fingerprint, failure };
}

Taken taken( const Agent::Operations::Answer & answer ) {
   return { answer.refused, answer.operation, answer.changed, answer.repeated };
}

} // namespace

void Maintd::addOperations( Agent::ControlCommands & commands ) {
   commands.enter = [this]( const std::string & unit, const Request & request ) {
      return enter( unit, request );
   };
   commands.exit = [this]( const std::string & unit, const Request & request ) {
      return exit( unit, request, "" );
   };
   commands.enterRepeated =
      [this]( const std::string & unit, const Request & request ) -> std::optional< Taken > {
      const auto answer = operations_->repeated( asked( OperationKind::enter, unit, request ) );
      return answer ? std::optional( taken( *answer ) ) : std::nullopt;
   };
}

Taken Maintd::enter( const std::string & unit, const Request & request ) {
   return taken( operations_->ask(
      asked( OperationKind::enter, unit, request ), [&]( Vel::U32 id ) -> Agent::Operations::Carried {
         // Monitors begin inside, with what the ports have carried by now.
         executor_->countersFresh();
         auto refused = stages_->enter(
            unit, { request.reason, request.by, request.timeout, request.overridden, id, request.with } );
         if ( refused )
            return { std::move( refused ) };
         return { std::nullopt, times_->ask( unit, request.times, request.by ) };
      } ) );
}

Taken Maintd::exit( const std::string & unit, const Request & request, const std::string & failure ) {
   return taken( operations_->ask(
      asked( OperationKind::exit, unit, request, failure ), [&]( Vel::U32 id ) -> Agent::Operations::Carried {
         return {
            stages_->exit( unit, { request.reason, request.by, request.timeout, "", id, request.with } ) };
      } ) );
}

void Maintd::takeBack( const std::string & unit, const std::string & reason, const std::string & failure ) {
   exit( unit, { reason, "maintd", std::nullopt }, failure );
}

} // namespace Apps
