#include "Agent/Control/Shapes.h"

#include "Api/Values.h"
#include "Config/Stages.h"

#include <algorithm>
#include <cctype>
#include <cmath>

namespace Agent {

using Maintenance::MonIntfState;
using Maintenance::Profile::ProfileType;
using Maintenance::Unit::UnitState;

std::map< std::string, Wire::IntfId >
interfacesOfUnit( const ControlModel & model, const std::string & unit ) {
   std::map< std::string, Wire::IntfId > result;
   const auto * groups = model.groupToUnitDir->unitToGroup( unit );
   if ( !groups )
      return result;
   for ( const auto & [group, none] : groups->groupKeyRange() )
      if ( const auto * status = model.intfGroupStatusDir->status( group ) )
         for ( const auto & [intf, none2] : status->intfRange() )
            result.emplace( intf.name(), intf );
   return result;
}

std::set< std::string > unitsOfInterface( const ControlModel & model, const Wire::IntfId & intf ) {
   std::set< std::string > result;
   if ( const auto * entry = model.intfToGroupDir->intfToGroup( intf ) )
      for ( const auto & [group, none] : entry->groupRange() )
         if ( const auto * mapping = model.groupToUnitDir->groupToUnit( group ) )
            for ( const auto & [unit, none2] : mapping->unitNameRange() )
               result.insert( unit );
   return result;
}

std::map< std::string, Wire::IntfId > shownInterfaces( const ControlModel & model ) {
   std::map< std::string, Wire::IntfId > result;
   for ( const auto & [intf, entry] : model.intfToGroupDir->intfToGroupRange() )
      result.emplace( intf.name(), intf );
   for ( const auto & [intf, record] : model.monIntfStatusDir->monIntfStatusRange() )
      result.emplace( intf.name(), intf );
   return result;
}

Wire::IntfId interfaceNamed( const ControlModel & model, const std::string & name ) {
   const auto shown = shownInterfaces( model );
   if ( const auto it = shown.find( name ); it != shown.end() )
      return it->second;
   for ( const auto & [intf, status] : model.allIntfStatusDir->intfStatusRange() )
      if ( intf.name() == name )
         return intf;
   return {};
}

std::string profileOf( const ControlModel & model, const Wire::IntfId & intf ) {
   const auto * entry = model.intfToGroupDir->intfToGroup( intf );
   if ( !entry )
      return "";
   const auto & key = entry->selectedProfileKey( ProfileType::interfaceProfile );
   return key.name == Maintenance::Profile::defaultProfileName ? model.defaultIntfProfile->profileName()
                                                               : key.name;
}

std::optional< Interface::IntfRates >
ratesOf( const ControlModel & model, const ControlCommands & commands, const Wire::IntfId & intf ) {
   const auto * record = model.monIntfStatusDir->monIntfStatus( intf );
   if ( record && !model.cause->intfStatus( intf ) && isFresh( *record, commands ) )
      return record->curRates();
   return commands.samples ? commands.samples->rate( intf ) : std::nullopt;
}

bool isFresh( const Maintenance::MonIntfStatus & record, const ControlCommands & commands ) {
   const double time = record.curRates().sampleTime;
   return time > 0 && commands.now() - time <= SampleSource::freshFor;
}

double unchangedSince( const ControlModel & model, const std::string & unit ) {
   double since = 0;
   if ( const auto * run = model.unitRunDir->unitRun( unit ) )
      since = run->since();
   for ( const auto & [name, intf] : interfacesOfUnit( model, unit ) )
      if ( const auto * record = model.monIntfStatusDir->monIntfStatus( intf ) )
         since = std::max( since, record->stateTime() );
   return since;
}

std::string kebabCase( std::string_view camelCase ) {
   std::string result;
   for ( const char c : camelCase ) {
      const auto letter = static_cast< unsigned char >( c );
      if ( std::isupper( letter ) ) {
         result += '-';
         result += static_cast< char >( std::tolower( letter ) );
      } else
         result += c;
   }
   return result;
}

std::string waitingText(
   const ControlModel & model, const ControlCommands & commands, const Maintenance::MonIntfStatus & record ) {
   const Wire::IntfId & intf = record.intfId();
   if ( record.state() == Maintenance::monIntfStateUnderMaint )
      return model.cause->intfStatus( intf ) ? "has drained and is shut" : "has drained";
   if ( record.state() == Maintenance::monIntfStateStopped )
      return "was released by another unit and is not sampled any more";
   if ( record.totalSamples() == 0 )
      return "waits for its first sample";
   if ( record.curRates().sampleTime > 0 && !isFresh( record, commands ) )
      return "nobody knows what it carries: there are no fresh counters";
   const auto * profile = model.intfProfileStatusDir->status( profileOf( model, intf ) );
   if ( !profile )
      return "has no profile";
   const double in = record.curRates().inBitsRate, out = record.curRates().outBitsRate;
   const double rate = std::isfinite( in ) ? std::max( out, in ) : in;
   const double threshold = profile->drainWatchThresholdInKbps() * 1000;
   if ( !std::isfinite( rate ) )
      return "its rate cannot be told";
   if ( rate >= threshold )
      return Api::rateText( rate ) + ", not below the threshold of " + Api::rateText( threshold );
   return Api::rateText( rate ) + ", quiet for " +
          std::to_string( record.numConsecutiveDrainedSamples() * secondsPerSample ) + "s of " +
          std::to_string( profile->drainWatchLoadInterval() ) + "s";
}

std::string stageText( const ControlCommands::Stage & stage, UnitState stateOfUnit ) {
   const bool enter = stateOfUnit == UnitState::enterInProgress || stateOfUnit == UnitState::maintenance;
   if ( stage.state == "skipped" )
      return "is passed over: the unit had not come to it on the way in";
   if ( stage.state == "pending" )
      return "has yet to begin";
   if ( stage.state == "failed" )
      return "failed: " + stage.failure +
             ( !enter || stage.goesOn ? "; the next stage began all the same" : "; the unit goes back" );
   if ( stage.state == "complete" )
      return "is complete";
   if ( stage.name == Config::drainwatchStage ) {
      if ( enter )
         return "waits until the traffic has left";
      return stage.waitsFor.empty() ? "lets go of the links" : "links come back: " + stage.waitsFor;
   }
   if ( stage.waits )
      return "waits until what is left of its earlier run has ended";
   if ( !stage.waitsFor.empty() )
      return "waits for " + stage.waitsFor;
   const auto limit = Config::Duration::fromSeconds( static_cast< std::uint32_t >( stage.limit ) );
   return "runs " + stage.command + ", for at most " + limit.text() + "; if it fails, " +
          ( !enter         ? "the way back goes on"
            : stage.goesOn ? "the next stage begins all the same"
                           : "the unit goes back" );
}

std::string uncountedText( const std::string & why ) {
   return "is up, and nobody can say what it carries: " + why;
}

std::string skippedText( const ControlModel & model, const Wire::IntfId & intf, UnitState stateOfUnit ) {
   using Kind = Wire::IntfId::Kind;
   if ( intf.kind() != Kind::ethernet && intf.kind() != Kind::portChannel && intf.kind() != Kind::vlan )
      return "is never monitored: " + std::string( kindText( intf.kind() ) );
   const auto * status = model.allIntfStatusDir->intfStatus( intf );
   if ( !status )
      return intf.kind() == Kind::ethernet ? "cannot be monitored: it has no counters"
                                           : "cannot be monitored: it has no members with counters";
   if ( status->operStatus() != Interface::operUp )
      return "cannot be monitored: it is down";
   return stateOfUnit == UnitState::normal || stateOfUnit == UnitState::exitInProgress
             ? "is not monitored: the unit is " + std::string( unitStateText( stateOfUnit ) )
             : "is not monitored yet";
}

} // namespace Agent
