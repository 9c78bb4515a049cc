#include "Api/Utf8.h"
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

/// Of a reload, briefly.
std::string changesText( const std::vector< std::string > & changes ) {
   if ( changes.empty() )
      return "";
   constexpr std::size_t most = 300;
   const std::string & first = changes.front();
   return std::string( Api::beginning( first, most ) ) + ( first.size() > most ? "..." : "" ) +
          ( changes.size() > 1 ? " and " + std::to_string( changes.size() - 1 ) + " more" : "" );
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
   commands.release = [this]( const std::string & interface, const Request & request ) {
      return release( interface, request );
   };
   commands.reload = [this]( const Request & request ) { return reload( request ); };
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
         return {
            std::nullopt, times_->ask( unit, request.times, request.by ),
            "what was set for " + unit + " has changed" };
      } ) );
}

Taken Maintd::exit( const std::string & unit, const Request & request, const std::string & failure ) {
   return taken( operations_->ask(
      asked( OperationKind::exit, unit, request, failure ), [&]( Vel::U32 id ) -> Agent::Operations::Carried {
         return {
            stages_->exit( unit, { request.reason, request.by, request.timeout, "", id, request.with } ) };
      } ) );
}

Taken Maintd::release( const std::string & interface, const Request & request ) {
   return taken( operations_->ask(
      asked( OperationKind::release, interface, request ), [&]( Vel::U32 ) -> Agent::Operations::Carried {
         auto released = executor_->release( interface );
         return { std::move( released.refused ), released.changed, interface + " is to be raised" };
      } ) );
}

Agent::ControlCommands::Reloaded Maintd::reload( const Request & request ) {
   Agent::ControlCommands::Reloaded result;
   const auto answer = operations_->ask(
      asked( OperationKind::reload, "", request ), [&]( Vel::U32 ) -> Agent::Operations::Carried {
         result = reloadConfiguration();
         return { result.error, !result.changes.empty(), changesText( result.changes ) };
      } );
   result.taken = taken( answer );
   result.error = answer.refused;
   return result;
}

void Maintd::takeBack( const std::string & unit, const std::string & reason, const std::string & failure ) {
   exit( unit, { reason, "maintd", std::nullopt }, failure );
}

} // namespace Apps
