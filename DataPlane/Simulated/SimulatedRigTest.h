#pragma once

#include "DataPlane/RecordingListenerTest.h"
#include "DataPlane/Simulated/Factory.h"
#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>

/// Purpose: a simulated switch in virtual time for tests: four ports, a port-channel of two, a VLAN.
namespace DataPlane::Simulated {

class SimulatedRig : public testing::Test {
 protected:
   static Description description() {
      Description result;
      result.ports = {
         { "et1", { { false, 20, 400e6, 80e6 }, { true, 30, 0, 0 } } },
         { "et2", {} },
         { "et3", {} },
         { "et4", {} } };
      result.portChannels = { { "pc1", { "et3", "et4" } } };
      result.vlans = { { 10, "vlan10", { "et1", "et3", "pc1" } } };
      return result;
   }
   void SetUp() override { ASSERT_TRUE( made.outcome.ok() ) << made.outcome.text(); }
   void TearDown() override { EXPECT_EQ( std::vector< Vel::String >{}, listener.broken ); }

   void started() {
      ASSERT_TRUE( sw().start( listener ).ok() );
      listener.take();
   }
   Switch & sw() { return *made.made; }
   Simulation & simulation() { return *made.simulation; }
   static Wire::EthIntfId eth( std::string_view name ) { return Wire::EthIntfId( name ); }

   void carrierIs( std::string_view name, bool up ) { EXPECT_TRUE( simulation().linkIs( name, up ).ok() ); }
   void remove( std::string_view name ) { EXPECT_TRUE( simulation().linkDel( name ).ok() ); }
   void makeAgain( std::string_view name ) { EXPECT_TRUE( simulation().linkNew( name ).ok() ); }
   void traffic( std::string_view name, double inBps, double outBps, double rampSeconds ) {
      EXPECT_TRUE( simulation().trafficIs( name, inBps, outBps, rampSeconds ).ok() );
   }
   void addresses( std::string_view name, const Vel::String & text ) {
      EXPECT_TRUE( simulation().addressesIs( name, text ).ok() );
   }

   void refresh() { ASSERT_TRUE( sw().countersRefresh( *pool ).ok() ); }
   Vel::U64 in( std::string_view port ) { return counter( port ).inOctets; }
   Vel::U64 out( std::string_view port ) { return counter( port ).outOctets.value(); }
   Interface::IntfCounterMasquerade::EthIntfStatistics counter( std::string_view port ) {
      refresh();
      const auto * dir = pool->intfCounterDir( eth( port ) );
      EXPECT_TRUE( dir ) << port;
      return dir ? dir->counter( "current" )->statistics()
                 : Interface::IntfCounterMasquerade::EthIntfStatistics();
   }

   const Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   const Vel::Ptr< VelPool::EntityManager > pool = Vel::make< VelPool::EntityManager >();
   RecordingListener listener;
   SimulatedSwitchMade made = switchNewSimulated( clock, description() );
};

} // namespace DataPlane::Simulated
