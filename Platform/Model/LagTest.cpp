#include "Platform/Model/Lag.h"

#include <gtest/gtest.h>

namespace {

using Lag::Config;
using Lag::EthPhyIntfLagConfig;

const Wire::EthIntfId et1( "et1" ), et2( "et2" ), et3( "et3" ), et4( "et4" );
const Wire::PortChannelIntfId pc1( "pc1" ), pc2( "pc2" );

Vel::String members( const Config & config, const Wire::IntfId & portChannel ) {
   Vel::String result;
   for ( const Wire::IntfId & member : config.memberRange( portChannel ) )
      result += Vel::text( member, " " );
   return result;
}

/// et1 to et4 in this order; et1, et2 and et3 in pc1.
struct LagConfig : testing::Test {
   LagConfig() {
      for ( const Wire::IntfId & intf : { et1, et2, et3, et4 } )
         config->phyIntfIs( intf );
      for ( const Wire::IntfId & intf : { et3, et1, et2 } )
         config->phyIntf( intf )->portChannelIs( pc1 );
   }
   const Vel::Ptr< Config > config = Vel::make< Config >();
};

TEST_F( LagConfig, holdsPortsThatNameTheirPortChannel ) {
   EXPECT_EQ( pc1, config->phyIntf( et1 )->portChannel() );
   EXPECT_TRUE( config->phyIntf( et4 )->portChannel().empty() );
   EXPECT_EQ( et1, config->phyIntf( et1 )->intf() );
   EXPECT_EQ( nullptr, config->phyIntf( Wire::EthIntfId( "et9" ) ) );
}

TEST_F( LagConfig, listsMembersInTheOrderOfThePorts ) {
   EXPECT_EQ( "et1 et2 et3 ", members( *config, pc1 ) );
}

TEST_F( LagConfig, listsNobodyForAPortChannelThatNoPortNames ) {
   EXPECT_EQ( "", members( *config, pc2 ) );
   EXPECT_EQ( "", members( *config, Wire::IntfId() ) );
}

TEST_F( LagConfig, keepsTheExistingPort ) {
   EXPECT_EQ( config->phyIntf( et1 ), config->phyIntfIs( et1 ) );
   EXPECT_EQ( 4u, config->phyIntfs() );
   EXPECT_EQ( "et1 et2 et3 ", members( *config, pc1 ) );
}

TEST_F( LagConfig, putsAPortThatMovesAwayAndBackInItsOldPlace ) {
   config->phyIntf( et2 )->portChannelIs( pc2 );
   EXPECT_EQ( "et1 et3 ", members( *config, pc1 ) );
   EXPECT_EQ( "et2 ", members( *config, pc2 ) );
   config->phyIntf( et2 )->portChannelIs( pc1 );
   EXPECT_EQ( "et1 et2 et3 ", members( *config, pc1 ) );
   EXPECT_EQ( "", members( *config, pc2 ) );
}

TEST_F( LagConfig, dropsAPortThatLeavesItsPortChannel ) {
   config->phyIntf( et1 )->portChannelIs( Wire::IntfId() );
   EXPECT_EQ( "et2 et3 ", members( *config, pc1 ) );
   EXPECT_EQ( "", members( *config, Wire::IntfId() ) );
}

TEST_F( LagConfig, dropsAPortThatIsRemovedWhileConfigured ) {
   EXPECT_TRUE( config->phyIntfDel( et2 ) );
   EXPECT_FALSE( config->phyIntfDel( et2 ) );
   EXPECT_EQ( "et1 et3 ", members( *config, pc1 ) );
}

TEST_F( LagConfig, doesNotFollowAPortThatWasRemovedAndIsStillWritten ) {
   const Vel::Ptr< EthPhyIntfLagConfig > held( config->phyIntf( et2 ) );
   config->phyIntfDel( et2 );
   held->portChannelIs( pc2 );
   held->portChannelIs( pc1 );
   EXPECT_EQ( pc1, held->portChannel() );
   EXPECT_EQ( "et1 et3 ", members( *config, pc1 ) );
   EXPECT_EQ( "", members( *config, pc2 ) );
}

TEST_F( LagConfig, putsAPortThatIsAddedAgainAtTheEnd ) {
   const Vel::Ptr< EthPhyIntfLagConfig > held( config->phyIntf( et1 ) );
   config->phyIntfDel( et1 );
   config->phyIntfIs( et1 )->portChannelIs( pc1 );
   held->portChannelIs( pc2 );
   EXPECT_EQ( "et2 et3 et1 ", members( *config, pc1 ) );
}

TEST_F( LagConfig, forgetsEverythingAtOnce ) {
   config->phyIntfDelAll();
   EXPECT_EQ( 0u, config->phyIntfs() );
   EXPECT_EQ( "", members( *config, pc1 ) );
}

TEST( LagPort, outlivesItsConfig ) {
   Vel::Ptr< EthPhyIntfLagConfig > held;
   {
      const auto config = Vel::make< Config >();
      held = config->phyIntfIs( et1 );
      held->portChannelIs( pc1 );
   }
   held->portChannelIs( pc2 );
   EXPECT_EQ( pc2, held->portChannel() );
}

TEST_F( LagConfig, isWalkedWhileMembersLeaveAndJoin ) {
   config->phyIntf( et4 )->portChannelIs( pc1 );
   Vel::String walked;
   for ( const Wire::IntfId & member : config->memberRange( pc1 ) ) {
      walked += Vel::text( member, " " );
      if ( member == et1 ) {
         config->phyIntf( et1 )->portChannelIs( pc2 ); // the current one
         config->phyIntfDel( et2 );                    // one ahead
         config->phyIntfIs( et2 )->portChannelIs( pc1 );
      }
   }
   EXPECT_EQ( "et1 et3 et4 et2 ", walked );
}

TEST_F( LagConfig, endsTheWalkOfAPortChannelThatLosesAllMembers ) {
   Vel::String walked;
   for ( const Wire::IntfId & member : config->memberRange( pc1 ) ) {
      walked += Vel::text( member, " " );
      config->phyIntfDelAll();
      EXPECT_EQ( et1, member );
   }
   EXPECT_EQ( "et1 ", walked );
}

struct Watcher {
   struct VelPort final : Vel::ReactorTo< Watcher, EthPhyIntfLagConfig > {
      using ReactorTo::ReactorTo;
      void onPortChannel() override { sm()->note( entity()->portChannel() ); }
   };
   struct VelConfig final : Vel::ReactorTo< Watcher, Config > {
      using ReactorTo::ReactorTo;
      void onPhyIntf( const Wire::IntfId & intf ) override { sm()->note( intf ); }
   };
   void note( const Wire::IntfId & of ) {
      log += Vel::text( of, ": ", members( *config, pc1 ), "| ", members( *config, pc2 ), "\n" );
   }
   const Config * config;
   Vel::Watch< VelPort > port;
   Vel::Watch< VelConfig > all;
   Vel::String log;
};

TEST_F( LagConfig, showsReactorsToAPortWhatItHasBecome ) {
   Watcher watcher{ config.get(), {}, {}, {} };
   watcher.port.is( config->phyIntf( et2 ), &watcher ).hasNotificationActiveIs( true );
   config->phyIntf( et2 )->portChannelIs( pc2 );
   config->phyIntf( et2 )->portChannelIs( pc2 );
   config->phyIntf( et2 )->portChannelIs( Wire::IntfId() );
   EXPECT_EQ( "pc2: et1 et3 | et2 \n: et1 et3 | \n", watcher.log );
}

TEST_F( LagConfig, showsReactorsToThePortsTheMembersThatAreLeft ) {
   Watcher watcher{ config.get(), {}, {}, {} };
   watcher.all.is( config, &watcher ).hasNotificationActiveIs( true );
   config->phyIntfDel( et1 );
   config->phyIntfIs( et1 );
   EXPECT_EQ( "et1: et2 et3 | \net1: et2 et3 | \n", watcher.log );
}

TEST_F( LagConfig, takesAnArgumentThatIsPartOfWhatItChanges ) {
   config->phyIntf( et4 )->portChannelIs( config->phyIntf( et1 )->portChannel() );
   config->phyIntf( et4 )->portChannelIs( config->phyIntf( et4 )->portChannel() );
   EXPECT_EQ( "et1 et2 et3 et4 ", members( *config, pc1 ) );
   config->phyIntfDel( *config->phyIntfFirst() );
   EXPECT_EQ( "et2 et3 et4 ", members( *config, pc1 ) );
}

} // namespace
