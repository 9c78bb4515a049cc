#include "Agent/Control/ModelTest.h"

#include <limits>

namespace Agent {

using Maintenance::GroupType;
using Maintenance::Profile::ProfileType;
using Maintenance::Unit::UnitState;

ModelRig::ModelRig() {
   for ( const auto & [name, kbps, interval, shutdown] :
         { std::tuple( "fast", 100.0, 10u, true ), std::tuple( "watch", 1000.0, 30u, false ) } ) {
      auto & profile = *profiles->statusIs( name );
      profile.drainWatchThresholdInKbpsIs( kbps );
      profile.drainWatchLoadIntervalIs( interval );
      profile.shutdownIs( shutdown );
      profile.shutdownMaxDelayIs( shutdown ? 300 : std::numeric_limits< double >::infinity() );
   }
   defaultProfile->profileNameIs( "fast" );
   for ( const Wire::IntfId & intf : { et1, et2, et9, vlan10 } )
      interfaces->intfStatusIs( intf )->operStatusIs( Interface::operUp );
   member( et1, "uplinks", Maintenance::Profile::defaultProfileName );
   member( et2, "uplinks", Maintenance::Profile::defaultProfileName );
   member( et2, "shared", Maintenance::Profile::defaultProfileName );
   member( vlan10, "tenants", "watch" );
   for ( const auto & [group, unit] :
         { std::pair( "uplinks", "u1" ), std::pair( "tenants", "u1" ), std::pair( "shared", "u2" ) } )
      groupToUnit->mappingIs( { GroupType::interfaceGroup, group }, unit );
   for ( const char * name : { "u1", "u2" } ) {
      units->statusIs( name )->stateIs( UnitState::normal );
      runs->unitRunIs( name )->sinceIs( now - 100 );
   }
}

void ModelRig::member( const Wire::IntfId & intf, const std::string & group, const std::string & profile ) {
   groups->statusIs( { GroupType::interfaceGroup, group } )->intfIs( intf );
   auto & entry = *intfToGroup->intfToGroupIs( intf );
   entry.groupIs( { GroupType::interfaceGroup, group } );
   entry.selectedProfileIs( ProfileType::interfaceProfile, { ProfileType::interfaceProfile, profile } );
}

Maintenance::MonIntfStatus & ModelRig::record( const Wire::IntfId & intf, Maintenance::MonIntfState state ) {
   auto * record = records->monIntfStatus( intf );
   if ( !record )
      record = records->monIntfStatusIs( intf, "fast", now - 60 );
   record->stateIs( state );
   record->stateTimeIs( now - 50 );
   return *record;
}

void ModelRig::sample( Maintenance::MonIntfStatus & record, double inBps, double outBps, unsigned quiet ) {
   Interface::IntfRates rates;
   rates.inBitsRate = inBps;
   rates.outBitsRate = outBps;
   rates.sampleTime = now - 2;
   record.lastSampleTimeIs( now - 2 );
   record.totalSamplesInc( 1 );
   record.numConsecutiveDrainedSamplesIs( quiet );
   record.curRatesIs( rates );
}

IntfInsight & ModelRig::insight( const Wire::IntfId & intf, Reason reason ) {
   IntfInsight & insight = *insights->intfIs( intf );
   insight.sinceIs( now - 30 );
   insight.reasonIs( reason );
   return insight;
}

ControlModel ModelRig::model() const {
   return { units,       runs,  records, interfaces, profiles, defaultProfile, intfToGroup, groups,
            groupToUnit, cause, journal, eventLog,   insights, operations,     times };
}

} // namespace Agent
