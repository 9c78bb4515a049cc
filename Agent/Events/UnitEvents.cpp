#include "Agent/Events/UnitEvents.h"

#include "Agent/Events/InterfaceWords.h"
#include "Agent/Events/Watching.h"
#include "Agent/Model/Operation.h"
#include "Agent/Model/StateText.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace Agent {

using Maintenance::Unit::Status;
using Maintenance::Unit::UnitState;
using nlohmann::json;

namespace {

std::string askedText( const UnitRun * run ) {
   if ( !run || run->by().empty() )
      return "";
   return ", as " + run->by() + " has asked" + ( run->reason().empty() ? "" : ": " + run->reason() );
}

/// What has been overridden is a line each.
std::string forcedText( const UnitRun * run ) {
   if ( !run || run->overridden().empty() )
      return "";
   std::string all = run->overridden();
   for ( std::size_t end; ( end = all.find( '\n' ) ) != std::string::npos; )
      all.replace( end, 1, "; " );
   return "; forced, although " + all;
}

bool isViolated( const Status & status ) { return status.intfsViolatingTrafficThresholds() > 0; }

bool isEnter( const Status & status ) { return status.state() == UnitState::enterInProgress; }

std::string sentence( const Status & status, const UnitRun * run ) {
   const std::string & unit = status.unitName();
   switch ( status.state() ) {
   case UnitState::enterInProgress:
      return unit + " goes into maintenance" + askedText( run ) + forcedText( run );
   case UnitState::maintenance:
      return unit + " is under maintenance";
   case UnitState::exitInProgress:
      return unit + " goes back to normal" + askedText( run );
   default:
      return unit + " is normal";
   }
}

EventWriter::About
about( const std::string & unit, const char * what, std::string text, bool wrong = false ) {
   return { EventType::unit, unit, what, { unit }, std::move( text ), wrong };
}

json orNull( const std::string & text ) { return text.empty() ? json( nullptr ) : json( text ); }

/// A list; null if there are none.
json linesOrNull( const std::string & text ) {
   json result = nullptr;
   for ( std::size_t begin = 0; begin < text.size(); ) {
      const std::size_t end = std::min( text.find( '\n', begin ), text.size() );
      result.push_back( text.substr( begin, end - begin ) );
      begin = end + 1;
   }
   return result;
}

} // namespace

UnitEvents::UnitEvents( EventWriter & writer, Vel::Ptr< Cog::TimerWheel > wheel, Model model, Hooks hooks )
   : writer_( writer ),
     model_( std::move( model ) ),
     hooks_( std::move( hooks ) ),
     pace_( std::move( wheel ) ) {
   unitsReactor_.is( model_.unitStatusDir, this ).hasNotificationActiveIs( true );
   runsReactor_.is( model_.unitRunDir, this ).hasNotificationActiveIs( true );
   commandsDirReactor_.is( model_.unitCommandsDir, this ).hasNotificationActiveIs( true );
   for ( const auto & [unit, status] : model_.unitStatusDir->statusRange() )
      watchUnit( unit );
   for ( const auto & [unit, run] : model_.unitRunDir->unitRunRange() )
      watchRun( unit );
   for ( const auto & [unit, commands] : model_.unitCommandsDir->unitRange() )
      watchCommands( unit );
}

// ---- what has changed

void UnitEvents::watchUnit( const Vel::String & unit ) {
   changed_.insert( unit );
   watch( unitReactors_, unit, model_.unitStatusDir->status( unit ), this );
}

void UnitEvents::watchRun( const Vel::String & unit ) {
   changed_.insert( unit );
   watch( runReactors_, unit, model_.unitRunDir->unitRun( unit ), this );
}

void UnitEvents::watchCommands( const Vel::String & unit ) {
   changed_.insert( unit );
   const UnitCommands * const commands = model_.unitCommandsDir->unit( unit );
   watch( commandsReactors_, unit, commands, this );
   std::erase_if( commandReactors_, [&]( const auto & entry ) { return entry.first.first == unit; } );
   if ( commands )
      for ( const auto & [stage, command] : commands->stageRange() )
         watchCommand( unit, stage );
}

void UnitEvents::watchCommand( const Vel::String & unit, const Vel::String & stage ) {
   changed_.insert( unit );
   const UnitCommands * const commands = model_.unitCommandsDir->unit( unit );
   if (
      VelCommand * const reactor =
         watch( commandReactors_, { unit, stage }, commands ? commands->stage( stage ) : nullptr, this ) )
      reactor->unit = unit;
}

void UnitEvents::violationChanged( const Status & status ) {
   const Vel::String & unit = status.unitName();
   changed_.insert( unit );
   if ( const ToldUnit * const told = model_.told->unit( unit ) )
      violated_[unit].valueIs( isViolated( status ), told->violated() );
}

void UnitEvents::allChanged() {
   for ( const auto & [unit, status] : model_.unitStatusDir->statusRange() )
      changed_.insert( unit );
   for ( const auto & [unit, told] : model_.told->unitRange() )
      changed_.insert( unit );
}

// ---- what is told

void UnitEvents::look() {
   for ( const Vel::String & unit : pace_.begin( hooks_.now() ) )
      changed_.insert( unit );
   for ( const Vel::String & unit : entering_ )
      if ( const ToldUnit * const told = model_.told->unit( unit ) ) {
         const bool settling = hooks_.settling( unit );
         if ( told->settling() != settling )
            changed_.insert( unit );
         else if ( const auto it = settled_.find( unit ); it != settled_.end() )
            it->second.valueIs( settling, settling );
      }
   if ( changed_.empty() )
      return;
   for ( const Vel::String & unit : std::exchange( changed_, {} ) )
      lookAt( unit );
   pace_.end();
}

void UnitEvents::lookAt( const Vel::String & unit ) {
   const Status * const status = model_.unitStatusDir->status( unit );
   if ( !status || status->state() == UnitState::none ) {
      entering_.erase( unit );
      settled_.erase( unit );
      violated_.erase( unit );
      if ( model_.told->unitDel( unit ) )
         writer_.write( about( unit, "removed", unit + " is not configured any more" ) );
      return;
   }
   ToldUnit * told = model_.told->unit( unit );
   if ( !told ) {
      told = model_.told->unitIs( unit );
      writer_.write( about( unit, "added", unit + " is configured now" ) );
      told->stateIs( unitStateText( UnitState::normal ) );
   }
   // The run that ends is told of before the one that begins.
   if ( told->generation() == status->genId() )
      lookAtStages( unit, *told );
   lookAtCommands( unit, *told );
   lookAtState( *status, *told );
   lookAtStages( unit, *told );
   lookAtViolations( *status, *told );
   if ( status->state() == UnitState::enterInProgress )
      entering_.insert( unit );
   else
      entering_.erase( unit );
}

void UnitEvents::lookAtState( const Status & status, ToldUnit & told ) {
   const Vel::String state = unitStateText( status.state() );
   const Vel::String from = told.state();
   if ( state == from && status.genId() == told.generation() )
      return;
   told.stateIs( state );
   told.generationIs( status.genId() );
   const UnitRun * const run = model_.unitRunDir->unitRun( status.unitName() );
   writer_.write(
      about( status.unitName(), "state", sentence( status, run ) ),
      { { "state", state },
        { "from", from },
        { "generation", status.genId() },
        { "by", orNull( run ? run->by() : "" ) },
        { "reason", orNull( run ? run->reason() : "" ) },
        { "operation", run && run->operation() ? json( run->operation() ) : json( nullptr ) },
        { "with", pairsOf( run ? run->with() : "" ) },
        { "overridden", linesOrNull( run && isEnter( status ) ? run->overridden() : "" ) } } );
}

void UnitEvents::lookAtStages( const Vel::String & unit, ToldUnit & told ) {
   const Vel::String stage = hooks_.stage( unit );
   if ( stage != told.stage() ) {
      told.stageIs( stage );
      if ( !stage.empty() )
         writer_.write( about( unit, "stage", unit + " is in stage " + stage ), { { "stage", stage } } );
   }
   const bool settling = hooks_.settling( unit );
   if ( settling == told.settling() )
      return;
   const Status * const status = model_.unitStatusDir->status( unit );
   const bool enters = status && status->state() == UnitState::enterInProgress;
   Damped< bool > & damper = settled_[unit];
   if ( !settling && !enters ) {
      told.settlingIs( false );
      return damper.valueDel();
   }
   damper.valueIs( settling, told.settling() );
   const Vel::U32 changes = pace_.mayTell( unit, damper );
   if ( changes == 0 )
      return;
   told.settlingIs( settling );
   const std::string text = unit + ( settling ? " settles: all that it waited for is done"
                                              : " does not settle any more: it has to wait again" );
   writer_.write(
      about( unit, settling ? "settling" : "settling-ended", text + InterfaceWords::afterChanges( changes ) ),
      { { "changes", changes } } );
}

void UnitEvents::lookAtCommands( const Vel::String & unit, ToldUnit & told ) {
   const UnitCommands * const commands = model_.unitCommandsDir->unit( unit );
   if ( !commands )
      return told.failedDelAll();
   for ( const auto & [stage, command] : commands->stageRange() ) {
      if ( command->state() != CommandState::failed ) {
         told.failedDel( stage );
         continue;
      }
      const double * const before = told.failed( stage );
      if ( before && *before == command->since() )
         continue;
      told.failedIs( stage, command->since() );
      writer_.write(
         about(
            unit, "stage-failed", "stage " + stage + " of " + unit + " has failed: " + command->failure(),
            true ),
         { { "stage", stage }, { "error", command->failure() } } );
   }
}

void UnitEvents::lookAtViolations( const Status & status, ToldUnit & told ) {
   const std::string & unit = status.unitName();
   const bool violated = isViolated( status );
   if ( violated == told.violated() )
      return;
   Damped< bool > & damper = violated_[unit];
   damper.valueIs( violated, told.violated() );
   const Vel::U32 changes = pace_.mayTell( unit, damper );
   if ( changes == 0 )
      return;
   told.violatedIs( violated );
   std::set< std::string > names;
   for ( const auto & [intf, is] : status.intfsViolatingTrafficThresholdRange() )
      names.insert( std::string( intf.name() ) );
   const std::string text =
      violated ? unit + " carries traffic although it is under maintenance, on " + *names.begin()
               : unit + " carries no traffic above a threshold any more";
   writer_.write(
      about(
         unit, violated ? "violations-begin" : "violations-end",
         text + InterfaceWords::afterChanges( changes ), violated ),
      { { "interfaces", names },
        { "total-violations", status.totalIntfTrafficViolations() },
        { "changes", changes } } );
}

} // namespace Agent
