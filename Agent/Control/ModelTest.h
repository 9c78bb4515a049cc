#pragma once

#include "Agent/Control/ControlModel.h"

#include <string>

/// Purpose: a small model to be shown: a unit "u1" with the groups "uplinks" (et1, et2) and "tenants" (vlan10, profile
/// "watch"), a unit "u2" with "shared" (et2), and an interface et9 that is in no group.
namespace Agent {

struct ModelRig {
   ModelRig();

   Maintenance::Unit::Status & unit( const std::string & name ) { return *units->status( name ); }
   /// The record of an interface, made if it is missing.
   Maintenance::MonIntfStatus & record( const Wire::IntfId & intf, Maintenance::MonIntfState state );
   void sample( Maintenance::MonIntfStatus & record, double inBps, double outBps, unsigned quiet );
   /// Why an interface with a record is not done yet, for 30 seconds; made if it is missing.
   IntfInsight & insight( const Wire::IntfId & intf, Reason reason );
   ControlModel model() const;

   static constexpr double now = 1700000000;
   const Wire::IntfId et1 = Wire::EthIntfId( "et1" ), et2 = Wire::EthIntfId( "et2" ),
                      et9 = Wire::EthIntfId( "et9" ), vlan10 = Wire::VlanIntfId( "vlan10", 10 );
   Vel::Ptr< Maintenance::Unit::StatusDir > units = Vel::make< Maintenance::Unit::StatusDir >();
   Vel::Ptr< UnitRunDir > runs = Vel::make< UnitRunDir >();
   Vel::Ptr< Maintenance::MonIntfStatusDir > records = Vel::make< Maintenance::MonIntfStatusDir >();
   Vel::Ptr< Interface::AllIntfStatusDir > interfaces = Vel::make< Interface::AllIntfStatusDir >();
   Vel::Ptr< IntfMaintenanceProfile::StatusDir > profiles = Vel::make< IntfMaintenanceProfile::StatusDir >();
   Vel::Ptr< Maintenance::Profile::DefaultProfile > defaultProfile =
      Vel::make< Maintenance::Profile::DefaultProfile >();
   Vel::Ptr< IntfMaintenance::IntfToGroupDir > intfToGroup = Vel::make< IntfMaintenance::IntfToGroupDir >();
   Vel::Ptr< IntfGroup::StatusDir > groups = Vel::make< IntfGroup::StatusDir >();
   Vel::Ptr< Maintenance::GroupToUnitDir > groupToUnit = Vel::make< Maintenance::GroupToUnitDir >();
   Vel::Ptr< Errdisable::CauseStatus > cause = Vel::make< Errdisable::CauseStatus >( "maintenance-shutdown" );
   Vel::Ptr< LinkJournal > journal = Vel::make< LinkJournal >();
   Vel::Ptr< EventLog > eventLog = Vel::make< EventLog >();
   Vel::Ptr< InsightDir > insights = Vel::make< InsightDir >();
   Vel::Ptr< OperationDir > operations = Vel::make< OperationDir >();
   Vel::Ptr< UnitTimesDir > times = Vel::make< UnitTimesDir >();

 private:
   void member( const Wire::IntfId & intf, const std::string & group, const std::string & profile );
};

} // namespace Agent
