#pragma once

#include "Agent/Samples/RateReader.h"

#include <string>

/// Purpose: interfaces whose counters a test moves: each port carries what it is told to.
namespace Agent {

struct SamplesRig {
   /// Configured and there.
   void intfIs( const Wire::IntfId & intf ) {
      intfToGroupDir->intfToGroupIs( intf );
      statusDir->intfStatusIs( intf );
   }
   void memberIs( const Wire::IntfId & port, const Wire::IntfId & portChannel ) {
      lagConfig->phyIntfIs( port )->portChannelIs( portChannel );
   }
   void vlanMemberIs( Vel::U16 vlanId, const Wire::IntfId & member ) {
      vlanStatusDir->vlanStatusIs( Bridging::VlanId( vlanId ) )->vlanPortStatusIs( member );
   }
   void countsAre( const Wire::IntfId & port, Vel::U64 in, Vel::U64 out ) {
      pool->intfCountersIs( port, in, Cog::MaybeU63( out ) );
   }
   /// The port, which begins at 0, has carried so many octets more.
   void carried( const Wire::IntfId & port, Vel::U64 in, Vel::U64 out ) {
      Vel::U64 oldIn = 0, oldOut = 0;
      if ( const auto * const dir = pool->intfCounterDir( port ) ) {
         oldIn = dir->counter( "current" )->statistics().inOctets;
         oldOut = dir->counter( "current" )->statistics().outOctets.value();
      }
      countsAre( port, oldIn + in, oldOut + out );
   }
   RateReader::Model model() const { return { intfToGroupDir, statusDir, lagConfig, vlanStatusDir, pool }; }

   Vel::Ptr< IntfMaintenance::IntfToGroupDir > intfToGroupDir =
      Vel::make< IntfMaintenance::IntfToGroupDir >();
   Vel::Ptr< Interface::AllIntfStatusDir > statusDir = Vel::make< Interface::AllIntfStatusDir >();
   Vel::Ptr< Lag::Config > lagConfig = Vel::make< Lag::Config >();
   Vel::Ptr< Bridging::VlanStatusDir > vlanStatusDir = Vel::make< Bridging::VlanStatusDir >();
   Vel::Ptr< VelPool::EntityManager > pool = Vel::make< VelPool::EntityManager >();
};

} // namespace Agent
