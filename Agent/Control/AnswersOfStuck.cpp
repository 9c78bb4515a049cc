#include "Agent/Control/AnswersJson.h"

#include "Agent/Control/Shapes.h"
#include "Config/Stages.h"

#include <nlohmann/json.hpp>

#include <algorithm>

/// Why a unit does not get on.
namespace Agent {

using Maintenance::Unit::UnitState;

namespace {

/// Seconds for which a unit may stand where it could go on.
constexpr double stuckAfter = 15;

using Progress = ControlCommands::Progress;
using Stage = ControlCommands::Stage;

const Stage * presentStage( const Progress & progress ) {
   for ( const Stage & stage : progress.stages )
      if ( stage.name == progress.stage )
         return &stage;
   return nullptr;
}

bool allComplete( const Progress & progress ) {
   return !progress.stages.empty() &&
          std::all_of( progress.stages.begin(), progress.stages.end(), []( const Stage & stage ) {
             return stage.state != "pending" && stage.state != "running";
          } );
}

/// Why the command of a stage does not begin, or does not end; empty: it runs as it should.
std::string stuckCommand( const Stage & stage, double beganToWait, double now, const std::string & blocked ) {
   if ( stage.waits || !stage.waitsFor.empty() ) {
      if ( now - beganToWait < stuckAfter )
         return "";
      const std::string what = stage.waits ? "what is left of its earlier run to end" : stage.waitsFor;
      return "the command of stage " + stage.name + " waits for " + what +
             ( blocked.empty() ? "" : "; " + blocked );
   }
   // Until it is told to end, at its limit at the latest, a command takes the time that it takes.
   return "";
}

} // namespace

std::string Answers::Json::stuckReason(
   const Maintenance::Unit::Status & status, const ControlCommands::Progress & progress ) const {
   const bool entering = status.state() == UnitState::enterInProgress;
   if ( !entering && status.state() != UnitState::exitInProgress )
      return "";
   const std::string & unit = status.unitName();
   const auto * run = model.unitRunDir->unitRun( unit );
   const Stage * const present = presentStage( progress );
   const double began = std::max(
      commands.agent().started, present ? present->since
                                : run   ? run->since()
                                        : 0 );
   if ( progress.stage.empty() )
      return progress.busy && commands.now() - began >= stuckAfter
                ? "a command of an earlier stage has been told to end and has not"
                : "";
   if ( present && present->state == "running" && !present->command.empty() )
      return stuckCommand( *present, began, commands.now(), progress.blocked );
   if ( entering && ( progress.stage == Config::drainwatchStage || allComplete( progress ) ) )
      return stuckWatching( unit, progress, present ? present->since : 0 );
   return "";
}

std::string Answers::Json::stuckWatching(
   const std::string & unit, const ControlCommands::Progress & progress, double stageSince ) const {
   if (
      progress.total != progress.drained || progress.settlingSince ||
      commands.now() - std::max( unchangedSince( model, unit ), stageSince ) < stuckAfter )
      return "";
   if ( !progress.blocked.empty() )
      return progress.blocked;
   for ( const auto & [name, intf] : interfacesOfUnit( model, unit ) )
      if ( const std::string why = commands.uncounted( intf ); !why.empty() )
         return name + " " + uncountedText( why );
   if ( progress.stage != Config::drainwatchStage )
      return "all stages are complete, but the unit does not settle";
   return ( progress.total ? "all interfaces have drained" : "there is no interface to wait for" ) +
          std::string( ", but stage " ) + progress.stage + " has not been reported complete";
}

} // namespace Agent
