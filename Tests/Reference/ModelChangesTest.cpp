#include "Tests/Reference/ModelRigTest.h"

namespace Reference {
namespace {

TEST_F( ModelTest, anotherProfileKeepsTheRunOfQuietSamples ) {
   join( u1, et1 );
   enter( u1, 3 );
   go( 6 );
   select( et1, quick );
   EXPECT_EQ( record( et1 ).profile, slow );
   turn();
   EXPECT_EQ( record( et1 ).profile, quick );
   EXPECT_EQ( record( et1 ).consecutiveDrained, 1u );
   EXPECT_EQ( published().intfMonitors.at( et1 ).timer, startTime + 11 );
   EXPECT_EQ( counter( numIntfMonProfileChange ), 1u );
   go( 5 );
   EXPECT_TRUE( complete( u1, 3 ) );
}

TEST_F( ModelTest, deletedProfileIsHeldUntilAnotherOneIsSelected ) {
   join( u1, et1 );
   enter( u1, 3 );
   Event gone = of( EventKind::profileGone );
   gone.profile = slow;
   tell( gone );
   EXPECT_EQ( counter( numIntfMonProfileDelete ), 1u );
   Event made = of( EventKind::profileMade );
   made.profile = slow;
   made.thresholdKbps = 0;
   tell( made );
   EXPECT_EQ( counter( numIntfMonPendingProfileResolved ), 0u );
   go( 15 );
   EXPECT_TRUE( complete( u1, 3 ) ) << "still by the values of the one that has gone";
}

TEST_F( ModelTest, shutdownSwitchedOffUnderMaintenanceReleasesAtOnce ) {
   shutdownIs( slow, true );
   join( u1, et1 );
   enter( u1, 3 );
   go( 17 );
   EXPECT_EQ( published().shut.at( et1 ), startTime + 15 );
   shutdownIs( slow, false );
   EXPECT_TRUE( decided( Decision::Kind::released, et1 ) );
   EXPECT_EQ( published().intfMonitors.at( et1 ).timer, startTime + 27 );
   shutdownIs( slow, true );
   EXPECT_EQ( published().shut.at( et1 ), startTime + 17 );
   EXPECT_FALSE( published().intfMonitors.at( et1 ).timer );
}

TEST_F( ModelTest, portChannelSumsAndVlanTakesTheBusiest ) {
   for ( const Intf port : { et1, et2 } ) {
      Event member = of( EventKind::lagMember );
      member.intf = port;
      member.other = bond1;
      tell( member );
      Event vlanMember = of( EventKind::vlanMember );
      vlanMember.intf = port;
      vlanMember.number = 10;
      if ( port == et1 )
         tellUnit( EventKind::vlanMade, none, 10 );
      tell( vlanMember );
   }
   join( u1, bond1 );
   join( u1, vlan10 );
   enter( u1, 3 );
   EXPECT_EQ( record( bond1 ).lastSampleTime, 0 );
   octets( et2, 2500, std::nullopt );
   carry( et1, 1250, 5 );
   EXPECT_EQ( record( bond1 ).cur, ( Rates{ 6000, 2000, startTime + 5 } ) );
   EXPECT_EQ( record( vlan10 ).cur, ( Rates{ 4000, 2000, startTime + 5 } ) );
   EXPECT_EQ( published().units.at( u1 ).aggregateIn, 10000u );
   EXPECT_EQ( published().units.at( u1 ).aggregateOut, 4000u );
}

TEST_F( ModelTest, interfaceLeavesAtOnceAndJoinsThroughTheBacklog ) {
   join( u1, et1 );
   enter( u1, 3 );
   EXPECT_FALSE( complete( u1, 3 ) );
   leave( u1, et1 );
   EXPECT_TRUE( decided( Decision::Kind::left, et1, u1 ) );
   EXPECT_TRUE( complete( u1, 3 ) );
   EXPECT_TRUE( published().records.empty() );
   Event back = of( EventKind::entryGroup );
   back.intf = et1;
   back.group = u1;
   tell( back );
   EXPECT_EQ( published().backlog, std::set< Intf >{ et1 } );
   EXPECT_TRUE( published().records.empty() );
   turn();
   EXPECT_EQ( published().unitMonitors.at( u1 ).monitored, std::set< Intf >{ et1 } );
   EXPECT_TRUE( published().backlog.empty() );
}

TEST_F( ModelTest, defaultProfileIsFollowedByItsTokenOnly ) {
   defaultNameIs( slow );
   select( et1, defaultProfile );
   join( u1, et1 );
   join( u1, et2 );
   enter( u1, 3 );
   defaultNameIs( quick );
   EXPECT_EQ( record( et1 ).profile, quick );
   EXPECT_EQ( record( et2 ).profile, slow );
   EXPECT_EQ( counter( numIntfMonDefProfileUpdate ), 1u );
}

TEST_F( ModelTest, interfaceWaitsForTheProfileThatItSelects ) {
   join( u1, et1 );
   select( et1, defaultProfile );
   defaultNameIs( slow );
   enter( u1, 3 );
   Event gone = of( EventKind::profileGone );
   gone.profile = quick;
   tell( gone );
   select( et1, quick ); // not there
   Event made = of( EventKind::profileMade );
   made.profile = quick;
   tell( made );
   EXPECT_EQ( record( et1 ).profile, quick );
   EXPECT_EQ( counter( numIntfMonPendingProfileResolved ), 1u );
}

TEST_F( ModelTest, withoutAProfileSamplesAreOnlyCounted ) {
   select( et1, defaultProfile );
   defaultNameIs( slow );
   join( u1, et1 );
   enter( u1, 3 );
   defaultNameIs( none );
   EXPECT_EQ( published().intfMonitors.at( et1 ).profile, none );
   EXPECT_EQ( record( et1 ).profile, slow );
   carry( et1, 125, 20 );
   EXPECT_EQ( record( et1 ).totalSamples, 4u );
   EXPECT_EQ( record( et1 ).prev.in, 0 );
   EXPECT_EQ( record( et1 ).belowPre, 0u );
   EXPECT_EQ( record( et1 ).state, MonState::enterMaint );
   defaultNameIs( slow );
   go( 15 );
   EXPECT_TRUE( complete( u1, 3 ) );
}

TEST_F( ModelTest, interfaceThatIsDownBecauseItIsShutGoesOnBeingWatched ) {
   shutdownIs( slow, true );
   join( u1, et1 );
   enter( u1, 3 );
   go( 15 );
   tellOf( EventKind::linkDown, et1 );
   turn();
   EXPECT_EQ( published().shut.count( et1 ), 1u );
   EXPECT_EQ( published().unitMonitors.at( u1 ).monitored, std::set< Intf >{ et1 } );
   tellOf( EventKind::linkGone, et1 );
   turn();
   EXPECT_TRUE( published().shut.empty() );
   EXPECT_TRUE( published().records.empty() );
}

TEST( ModelBacklogTest, pausesWhenItsSliceIsSpentAndGoesAround ) {
   World world;
   world.intfs.resize( 4 );
   world.backlogQuantum = 0.010;
   world.itemCost = 0.005;
   Model model( world );
   const auto tell = [&model]( EventKind kind, Intf intf = none ) {
      Event event;
      event.kind = kind;
      event.intf = intf;
      model.apply( event );
   };
   tell( EventKind::start );
   for ( const Intf intf : { 3, 1, 2 } )
      tell( EventKind::linkUp, intf );
   tell( EventKind::turn );
   EXPECT_EQ( model.published().backlog, std::set< Intf >{ 3 } );
   EXPECT_EQ( model.published().bookmark, 3 );
   tell( EventKind::linkUp, 0 );
   tell( EventKind::linkDown, 1 );
   tell( EventKind::turn );
   EXPECT_EQ( model.published().backlog, std::set< Intf >{ 1 } ) << "3, then 0";
   EXPECT_EQ( model.published().bookmark, 1 );
   tell( EventKind::turn );
   EXPECT_TRUE( model.published().backlog.empty() );
   EXPECT_EQ( model.published().bookmark, none );
   EXPECT_EQ( model.published().counters[numStopIntfMonInUnits], 5u );
}

} // namespace
} // namespace Reference
