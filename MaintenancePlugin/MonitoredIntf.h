#pragma once

#include "MaintenancePlugin/IntfCounterInfo.h"
#include "Platform/Model/Maintenance.h"

namespace MaintenanceMode {

class DrainWatchSm;

/// Whether the traffic of an interface can be sampled: Ethernet ports, port-channels and VLAN interfaces,
/// never a sub-interface.
bool isSupportedIntf( const Wire::IntfId & intf );

/// Purpose: the sampler of one interface. Turns the change of octet counters between two samples into bits
/// per second and publishes them in the interface's record. Owner: MonitoredIntfDir and the interface's
/// monitor, which shares it; the record is deleted when the last of them lets go, not when the directory
/// does.
class MonitoredIntf final : public Vel::Entity {
   VEL_ENTITY( MonitoredIntf );
   /// Takes the baseline sample and creates or adopts the record. Publishes no rates.
   MonitoredIntf( const Wire::IntfId & intfId, DrainWatchSm * drainWatchSm, const Vel::String & profileName );
   ~MonitoredIntf() override;

   VEL_PARAM( Wire::IntfId, intfId );
   VEL_PARAM( DrainWatchSm *, drainWatchSm );
   VEL_STATE( Vel::String, profileName, onProfileName );
   VEL_ATTR( Vel::Ptr< Maintenance::MonIntfStatus >, monIntfStatus, onMonIntfStatus );
   VEL_MAP( Vel::String, bool, dependentUnit, onDependentUnit ); ///< units that hold the interface
   VEL_CHILDREN( Wire::IntfId, IntfCounterInfo, memberTrafficCounters, onMemberTrafficCounters );
   VEL_ATTR( bool, initialized, onInitialized ); ///< the baseline sample has been taken

   void profileNameIs( const Vel::String & profileName );

   /// Takes one sample and publishes it.
   void updateTrafficRates();

   /// Rates of this entity's own interface or, in the recursive calls, of one of its members. Each asserts
   /// the kind. Only the own interface's rates are published.
   Interface::IntfRates getEthPhyIntfTrafficCounters( const Wire::IntfId & argIntfId );
   Interface::IntfRates getLagIntfTrafficCounters( const Wire::IntfId & argIntfId );
   /// Throws Vel::RangeError for a VLAN id outside 1..4094.
   Interface::IntfRates getVlanIntfTrafficCounters( const Wire::IntfId & argIntfId );

   /// Publishes one sample: the previous rates, the new ones, the time.
   void setCurRates(
      const Vel::Ptr< Maintenance::MonIntfStatus > & monIntfStatus, const Interface::IntfRates & rates );

   /// Run by the constructor, once.
   void handleInitialized();
   void handleProfileName();
   /// Takes back what this has published. Run by the destructor, or by a constructor that cannot go on.
   void prepareToDie();
   void dump( int fd, unsigned indent ) const;

 private:
   using EthIntfCounter = Interface::IntfCounterMasquerade::EthIntfCounter;

   /// The port's live counter; null if it has none. `info` is the port's snapshot or null.
   const EthIntfCounter * currentCounter( const Wire::IntfId & port, IntfCounterInfo * info );
   /// Publishes what was summed up for the own interface. The baseline sample has nothing to publish.
   void publish( const Wire::IntfId & argIntfId, const Interface::IntfRates & rates );

   /// The snapshot of the own port, which is wanted at every sample; memberTrafficCounters has it too.
   Vel::Ptr< IntfCounterInfo > ownCounters_;
};

/// The samplers of all monitored interfaces. Owner: the root.
class MonitoredIntfDir final : public Vel::Entity {
   using AllEthIntfCounterPtrDir = Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir;

   VEL_ENTITY( MonitoredIntfDir );
   /// monitoredIntfIs( intfId, drainWatchSm, profileName ) returns the entry that is there or makes one.
   VEL_CHILDREN( Wire::IntfId, MonitoredIntf, monitoredIntf, onMonitoredIntf );

   struct VelPhyCounterDir final : Vel::ReactorTo< MonitoredIntfDir, AllEthIntfCounterPtrDir > {
      using ReactorTo::ReactorTo;
      void onIntfCounterDir( const Wire::IntfId & ) override { ++sm()->portChanges_; }
   };
   /// How often a port has come into this directory or gone, counted from the first call. What a sampler has found
   /// there is good as long as this stays the same, so that most samples need not look it up.
   Vel::U64 portChanges( const Vel::Ptr< const AllEthIntfCounterPtrDir > & phyCounterDir ) {
      if ( !phyCounterDirReactor_ || phyCounterDirReactor_->entity() != phyCounterDir.get() ) [[unlikely]]
         watch( phyCounterDir );
      return portChanges_;
   }

 private:
   void watch( const Vel::Ptr< const AllEthIntfCounterPtrDir > & phyCounterDir );

   Vel::U64 portChanges_ = 0;
   Vel::Watch< VelPhyCounterDir > phyCounterDirReactor_;
};

} // namespace MaintenanceMode
