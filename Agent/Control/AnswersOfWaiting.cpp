#include "Agent/Control/AnswersJson.h"

#include "Agent/Control/Shapes.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace Agent {

using Maintenance::Unit::UnitState;
using nlohmann::json;

json Answers::Json::waiting( const std::string & name, const Maintenance::MonIntfStatus & record ) const {
   const json shown = interface( record.intfId() );
   const auto * profile = model.intfProfileStatusDir->status( profileOf( model, record.intfId() ) );
   const bool shutInAnyCase = profile && profile->shutdown() && std::isfinite( profile->shutdownMaxDelay() );
   const bool sampling = record.state() == Maintenance::monIntfStateEnterMaint;
   return {
      { "interface", name },
      { "state", shown["state"] },
      { "profile", shown["profile"] },
      { "in-bps", shown["in-bps"] },
      { "out-bps", shown["out-bps"] },
      { "threshold-bps", profile ? number( profile->drainWatchThresholdInKbps() * 1000 ) : json( nullptr ) },
      { "load-interval-seconds", profile ? json( profile->drainWatchLoadInterval() ) : json( nullptr ) },
      { "quiet-seconds", static_cast< double >( record.numConsecutiveDrainedSamples() ) * secondsPerSample },
      { "samples", shown["samples"] },
      { "next-sample", sampling
                          ? time( std::max( record.lastSampleTime(), record.startTime() ) + secondsPerSample )
                          : json( nullptr ) },
      { "shutdown-at",
        shutInAnyCase ? time( record.startTime() + profile->shutdownMaxDelay() ) : json( nullptr ) },
      { "reason", waitingText( model, commands, record ) },
      { "insight", reason( record.intfId() ) } };
}

json Answers::Json::waitingUncounted(
   const std::string & name, const Wire::IntfId & intf, const std::string & why ) const {
   json result{ { "interface", name }, { "profile", textOrNull( profileOf( model, intf ) ) } };
   for ( const char * unknown :
         { "state", "in-bps", "out-bps", "threshold-bps", "load-interval-seconds", "quiet-seconds", "samples",
           "next-sample", "shutdown-at", "insight" } )
      result[unknown] = nullptr;
   result["reason"] = uncountedText( why );
   return result;
}

json Answers::Json::explanation( const Maintenance::Unit::Status & status ) const {
   const std::string name = status.unitName();
   const auto progress = commands.progress( name );
   const bool underWay =
      status.state() == UnitState::enterInProgress || status.state() == UnitState::maintenance;
   json waiting = json::array(), skipped = json::array();
   for ( const auto & [text, intf] : interfacesOfUnit( model, name ) ) {
      const auto * record = model.monIntfStatusDir->monIntfStatus( intf );
      const std::string uncounted = record ? "" : commands.uncounted( intf );
      if ( status.state() == UnitState::enterInProgress && !uncounted.empty() )
         waiting.push_back( waitingUncounted( text, intf, uncounted ) );
      else if ( !record )
         skipped.push_back(
            { { "interface", text }, { "reason", skippedText( model, intf, status.state() ) } } );
      else if ( underWay && record->state() != Maintenance::monIntfStateUnderMaint )
         waiting.push_back( this->waiting( text, *record ) );
   }
   for ( const std::string & missing : missingInterfaces( name ) )
      skipped.push_back( { { "interface", missing }, { "reason", "does not exist" } } );
   const std::string stuck = stuckReason( status, progress );
   const auto * run = model.unitRunDir->unitRun( name );
   return {
      { "unit", name },
      { "state", unitStateText( status.state() ) },
      { "stage", textOrNull( progress.stage ) },
      { "reason", run ? textOrNull( run->reason() ) : json( nullptr ) },
      { "stages", stages( status, progress ) },
      { "ending-earlier-command", progress.busy && progress.stage.empty() },
      { "settle-remaining-seconds",
        progress.settlingSince
           ? number( std::max( 0.0, *progress.settlingSince + progress.settleTime - commands.now() ) )
           : json( nullptr ) },
      { "stuck", !stuck.empty() },
      { "stuck-reason", textOrNull( stuck ) },
      { "not-shut", notShut( facts( status, progress ) ) },
      { "waiting", waiting },
      { "skipped", skipped } };
}

std::set< std::string > Answers::Json::missingInterfaces( const std::string & unit ) const {
   std::set< std::string > result;
   const auto * of = model.groupToUnitDir->unitToGroup( unit );
   const auto configured = commands.groups();
   for ( const auto & [name, group] : configured )
      if ( of && of->groupKey( { Maintenance::GroupType::interfaceGroup, name } ) )
         result.insert( group.interfaces.begin(), group.interfaces.end() );
   for ( const auto & [name, intf] : interfacesOfUnit( model, unit ) ) {
      result.erase( name );
      if ( intf.kind() == Wire::IntfId::Kind::vlan )
         result.erase( "vlan " + std::to_string( intf.vlanId() ) );
   }
   return result;
}

} // namespace Agent
