#include "Agent/Control/AnswersJson.h"

#include "Agent/Control/Shapes.h"
#include "Platform/Vel/Entity.h"

#include <nlohmann/json.hpp>

namespace Agent {

using Maintenance::Unit::UnitState;
using nlohmann::json;

json Answers::Json::unit( const Maintenance::Unit::Status & status ) const {
   const std::string name = status.unitName();
   const auto * run = model.unitRunDir->unitRun( name );
   const auto progress = commands.progress( name );
   std::set< std::string > violating, groups;
   for ( const auto & [intf, value] : status.intfsViolatingTrafficThresholdRange() )
      violating.emplace( intf.name() );
   if ( const auto * of = model.groupToUnitDir->unitToGroup( name ) )
      for ( const auto & [group, none] : of->groupKeyRange() )
         groups.insert( group.name );
   const double deadline = run ? run->deadline() : 0;
   const UnitFacts facts = this->facts( status, progress );
   return {
      { "name", name },
      { "state", unitStateText( status.state() ) },
      { "stage", textOrNull( progress.stage ) },
      { "stages", stages( status, progress ) },
      { "generation", status.genId() },
      { "since", run ? time( run->since() ) : json( nullptr ) },
      { "reason", run ? textOrNull( run->reason() ) : json( nullptr ) },
      { "by", run ? textOrNull( run->by() ) : json( nullptr ) },
      { "operation", run && run->operation() ? json( run->operation() ) : json( nullptr ) },
      { "with", pairsOf( run ? run->with() : "" ) },
      { "deadline", time( deadline ) },
      { "overdue", deadline > 0 && commands.now() > deadline },
      { "times", times( name ) },
      { "interfaces", { { "total", progress.total }, { "drained", progress.drained } } },
      { "rates",
        { { "in-bps", status.aggTrafficRate().inRate }, { "out-bps", status.aggTrafficRate().outRate } } },
      { "violating", violating },
      { "total-violations", status.totalIntfTrafficViolations() },
      { "settling-since", progress.settlingSince ? time( *progress.settlingSince ) : json( nullptr ) },
      { "not-shut", notShut( facts ) },
      { "groups", groups },
      { "sentence", sentence( facts, commands ) },
      { "eta-seconds", ahead( unitEta( facts ) ) } };
}

UnitFacts Answers::Json::facts(
   const Maintenance::Unit::Status & status, const ControlCommands::Progress & progress ) const {
   const std::string name = status.unitName();
   UnitFacts result;
   result.state = status.state();
   result.progress = progress;
   if ( const auto * run = model.unitRunDir->unitRun( name ) )
      result.since = run->since();
   result.times = model.unitTimesDir->unit( name );
   result.stuck = stuckReason( status, progress );
   if ( result.state != UnitState::enterInProgress && result.state != UnitState::maintenance )
      return result;
   for ( const auto & [text, intf] : interfacesOfUnit( model, name ) )
      if ( auto facts = reasonFacts( intf ) )
         result.interfaces.push_back( std::move( *facts ) );
      else if ( result.state == UnitState::enterInProgress && !commands.uncounted( intf ).empty() )
         result.uncounted.push_back( text );
   return result;
}

json Answers::Json::notShut( const UnitFacts & facts ) {
   json result = json::array();
   for ( const ReasonFacts & intf : facts.interfaces )
      if ( !intf.shutProblem.empty() )
         result.push_back( { { "interface", intf.name }, { "problem", intf.shutProblem } } );
   return result;
}

json Answers::Json::stages(
   const Maintenance::Unit::Status & status, const ControlCommands::Progress & progress ) const {
   json result = json::array();
   for ( const auto & stage : progress.stages ) {
      const bool limited = stage.limit > 0;
      const bool runs = stage.state == "running" && !stage.waits && stage.waitsFor.empty();
      result.push_back(
         { { "name", stage.name },
           { "state", stage.state },
           { "since", time( stage.since ) },
           { "command", textOrNull( stage.command ) },
           { "limit-seconds", limited ? json( stage.limit ) : json( nullptr ) },
           { "deadline", limited && runs ? time( stage.since + stage.limit ) : json( nullptr ) },
           { "failure", textOrNull( stage.failure ) },
           { "text", stageText( stage, status.state() ) } } );
   }
   return result;
}

} // namespace Agent
