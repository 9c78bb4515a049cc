#include "DataPlane/Linux/LinkTable.h"
#include "DataPlane/Linux/MessagesTest.h"
#include "DataPlane/RecordingListenerTest.h"

#include <gtest/gtest.h>

#include <random>

namespace DataPlane::Linux {
namespace {

class LinkTable : public testing::Test {
 protected:
   void SetUp() override { table.listenerIs( &listener ); }
   void TearDown() override { EXPECT_EQ( std::vector< Vel::String >{}, listener.broken ); }
   void add( const TestLink & link ) { table.linkIs( linkMessage( link ) ); }
   void dump( const std::vector< TestLink > & links ) {
      std::vector< LinkMessage > messages;
      for ( const TestLink & link : links )
         messages.push_back( linkMessage( link ) );
      table.dumpIs( messages );
   }
   const Wire::IntfId & told( const Vel::String & name ) {
      EXPECT_TRUE( listener.link( name ) ) << name;
      static const Wire::IntfId none;
      return listener.link( name ) ? listener.link( name )->intf : none;
   }

   RecordingListener listener;
   Linux::LinkTable table;
};

TestLink port( Vel::U32 ifIndex, const char * name, unsigned flags = upAndRunning ) {
   return { .ifIndex = ifIndex, .name = name, .flags = flags };
}
TestLink bridge( Vel::U32 ifIndex, const char * name ) {
   return { .ifIndex = ifIndex, .name = name, .kind = "bridge" };
}
TestLink vlan( Vel::U32 ifIndex, const char * name, Vel::U32 lower, Vel::U16 id ) {
   return { .ifIndex = ifIndex, .name = name, .kind = "vlan", .lower = lower, .vlanId = id };
}

TEST_F( LinkTable, knowsTheBridgeBelowAVlanInterface ) {
   add( vlan( 4, "v10", 1, 10 ) );
   EXPECT_EQ( Wire::IntfId(), table.below( Wire::VlanIntfId( "v10", 10 ) ) );
   add( bridge( 1, "br0" ) );
   EXPECT_EQ( Wire::CpuIntfId( "br0" ), table.below( Wire::VlanIntfId( "v10", 10 ) ) );
   EXPECT_EQ( Wire::IntfId(), table.below( Wire::CpuIntfId( "br0" ) ) );
   EXPECT_EQ( Wire::IntfId(), table.below( Wire::VlanIntfId( "v11", 11 ) ) );
}

/// Whoever is told of a VLAN interface that has come up knows by then that its bridge has bounced.
TEST_F( LinkTable, tellsCarrierChangesOfABridgeBeforeTheInterfacesOnIt ) {
   add( bridge( 1, "br0" ) );
   add( vlan( 4, "v10", 1, 10 ) );
   const Vel::U64 revision = table.revision();
   struct Order final : DataPlane::LinkListener {
      void linkIs( const Link & link ) override { told.push_back( link ); }
      void linkDel( const Wire::IntfId & ) override {}
      std::vector< Link > told;
   } order;
   table.listenerIs( &order );
   TestLink down = vlan( 4, "v10", 1, 10 ), bounced = bridge( 1, "br0" );
   down.flags = 0;
   bounced.carrierChanges = 2;
   dump( { down, bounced } );
   ASSERT_EQ( 2u, order.told.size() );
   EXPECT_EQ( Wire::CpuIntfId( "br0" ), order.told[0].intf );
   EXPECT_EQ( 2u, order.told[0].carrierChanges );
   EXPECT_EQ( revision, table.revision() ) << "members are as they were";
   table.listenerIs( &listener );
}

TEST_F( LinkTable, kindFollowsTheDevice ) {
   struct Row {
      TestLink link;
      Wire::IntfId intf;
   };
   add( bridge( 1, "br0" ) );
   add( port( 2, "et1" ) );
   add( { .ifIndex = 3, .name = "bond0", .kind = "bond" } );
   add( vlan( 4, "v1", 1, 1 ) );
   const Row rows[] = {
      { { .ifIndex = 10, .name = "lo0", .flags = IFF_LOOPBACK | upAndRunning },
        Wire::IntfId::other( "lo0" ) },
      { { .ifIndex = 10, .name = "team0", .kind = "team" }, Wire::PortChannelIntfId( "team0" ) },
      { { .ifIndex = 10, .name = "br1", .kind = "bridge" }, Wire::CpuIntfId( "br1" ) },
      { vlan( 10, "v", 1, 10 ), Wire::VlanIntfId( "v", 10 ) },
      { vlan( 10, "v", 1, 4094 ), Wire::VlanIntfId( "v", 4094 ) },
      { vlan( 10, "v", 1, 0 ), Wire::SubIntfId( "v", Wire::IntfId::Kind::cpu ) },
      { vlan( 10, "v", 1, 4095 ), Wire::SubIntfId( "v", Wire::IntfId::Kind::cpu ) },
      { vlan( 10, "v", 2, 10 ), Wire::SubIntfId( "v" ) },
      { vlan( 10, "v", 3, 10 ), Wire::SubIntfId( "v", Wire::IntfId::Kind::portChannel ) },
      { vlan( 10, "v", 4, 10 ), Wire::SubIntfId( "v" ) },
      { vlan( 10, "v", 99, 10 ), Wire::SubIntfId( "v" ) },
      { vlan( 10, "v", 0, 10 ), Wire::SubIntfId( "v" ) },
      { { .ifIndex = 10, .name = "veth0", .kind = "veth" }, Wire::EthIntfId( "veth0" ) },
      { { .ifIndex = 10, .name = "mac0", .kind = "macvlan", .lower = 2 }, Wire::EthIntfId( "mac0" ) },
      { { .ifIndex = 10, .name = "et2", .kind = "" }, Wire::EthIntfId( "et2" ) },
   };
   for ( const Row & row : rows ) {
      SCOPED_TRACE(
         Vel::text( row.link.name, " ", row.link.kind, " on ", row.link.lower, " id ", row.link.vlanId ) );
      add( row.link );
      EXPECT_EQ( row.intf, told( row.link.name ) );
      EXPECT_EQ( 10u, table.ifIndex( row.intf ) );
      EXPECT_EQ( row.intf, table.intf( 10 ) );
   }
   EXPECT_EQ( 5u, listener.links.size() );
}

TEST_F( LinkTable, upTakesBothTheWillAndTheCarrier ) {
   add( port( 1, "et1", IFF_UP ) );
   EXPECT_EQ( "et1 down", listener.take() );
   add( port( 1, "et1", IFF_UP | lowerUp ) );
   EXPECT_EQ( "et1 up", listener.take() );
   add( port( 1, "et1", lowerUp ) );
   EXPECT_EQ( "et1 admin-down", listener.take() );
}

TEST_F( LinkTable, equalNewsAreNotTold ) {
   add( port( 1, "et1" ) );
   listener.take();
   add( port( 1, "et1" ) );
   add( { .ifIndex = 1, .name = "et1", .master = 5 } );
   EXPECT_EQ( "", listener.take() );
}

TEST_F( LinkTable, removalOfAnUnknownLinkIsNoNews ) {
   table.linkDel( 5 );
   EXPECT_EQ( "", listener.take() );
}

TEST_F( LinkTable, renamedLinkIsRemovedAndAdded ) {
   add( port( 1, "et1" ) );
   add( port( 1, "et2" ) );
   EXPECT_EQ( "et1 up, -et1, et2 up", listener.take() );
   EXPECT_EQ( 0u, table.ifIndexOfName( "et1" ) );
   EXPECT_EQ( 1u, table.ifIndexOfName( "et2" ) );
}

TEST_F( LinkTable, anotherKindUnderANameIsRemovedAndAdded ) {
   add( port( 1, "et1" ) );
   table.linkDel( 1 );
   add( { .ifIndex = 2, .name = "et1", .kind = "bond" } );
   EXPECT_EQ( "et1 up, -et1, et1 up", listener.take() );
   EXPECT_EQ( Wire::IntfId( Wire::PortChannelIntfId( "et1" ) ), told( "et1" ) );
}

TEST_F( LinkTable, newsThatGiveALinkTheNameOfAnotherAreInDoubtUntilADump ) {
   add( port( 1, "et1" ) );
   add( port( 3, "et3" ) );
   listener.take();
   for ( const Vel::U32 ifIndex : { 2u, 3u } ) {
      add( port( ifIndex, "et1" ) );
      EXPECT_TRUE( table.inDoubt() );
      EXPECT_EQ( "", listener.take() );
      dump( { port( 1, "et1" ), port( 3, "et3" ) } );
      EXPECT_FALSE( table.inDoubt() );
      EXPECT_EQ( "", listener.take() );
   }
   add( port( 2, "et1" ) );
   dump( { port( 2, "et1" ), port( 3, "et3" ) } );
   EXPECT_EQ( "-et1, et1 up", listener.take() );
   EXPECT_EQ( 2u, table.ifIndexOfName( "et1" ) );
}

TEST_F( LinkTable, secondInterfaceOfAVlanIsRefusedUntilTheFirstHasGone ) {
   add( bridge( 1, "br0" ) );
   add( bridge( 2, "br1" ) );
   add( vlan( 3, "v10", 1, 10 ) );
   listener.take();
   add( vlan( 4, "w10", 2, 10 ) );
   EXPECT_EQ( "", listener.take() );
   EXPECT_EQ( 0u, table.ifIndex( Wire::VlanIntfId( "w10", 10 ) ) );
   EXPECT_EQ(
      "link \"w10\" is refused: VLAN 10 has an interface on another bridge already, \"v10\"",
      table.refusals() );
   table.linkDel( 3 );
   EXPECT_EQ( "-v10, w10 up", listener.take() );
   EXPECT_EQ( "", table.refusals() );
}

TEST_F( LinkTable, refusedInterfaceThatGoesIsForgotten ) {
   add( bridge( 1, "br0" ) );
   add( bridge( 2, "br1" ) );
   add( vlan( 3, "v10", 1, 10 ) );
   add( vlan( 4, "w10", 2, 10 ) );
   table.linkDel( 4 );
   EXPECT_EQ( "", table.refusals() );
   table.linkDel( 3 );
   EXPECT_EQ( "br0 up, br1 up, v10 up, -v10", listener.take() );
}

TEST_F( LinkTable, ofSeveralRefusedOnesTheOldestFollows ) {
   add( bridge( 1, "br0" ) );
   for ( const auto & [ifIndex, name] : { std::pair( 3u, "a" ), std::pair( 4u, "b" ), std::pair( 5u, "c" ) } )
      add( vlan( ifIndex, name, 1, 10 ) );
   listener.take();
   table.linkDel( 3 );
   EXPECT_EQ( "-a, b up", listener.take() );
   EXPECT_NE( Vel::String::npos, table.refusals().find( "\"c\"" ) );
   add( vlan( 4, "b", 1, 20 ) );
   EXPECT_EQ( "-b, b up, c up", listener.take() );
}

TEST_F( LinkTable, manyRefusedOnesAreNotAllNamed ) {
   add( bridge( 1, "br0" ) );
   add( bridge( 2, "br1" ) );
   for ( Vel::U16 id = 1; id <= 40; ++id ) {
      add( vlan( 100u + id, Vel::text( "v", id ).c_str(), 1, id ) );
      add( vlan( 200u + id, Vel::text( "w", id ).c_str(), 2, id ) );
   }
   const Vel::String text = table.refusals();
   EXPECT_NE( Vel::String::npos, text.find( "link \"w4\" is refused: VLAN 4 " ) );
   EXPECT_EQ( Vel::String::npos, text.find( "\"w5\"" ) );
   EXPECT_NE( Vel::String::npos, text.find( "; and 36 more" ) );
}

TEST_F( LinkTable, vlanDeviceFollowsTheKindOfTheLinkBelowIt ) {
   add( vlan( 3, "v10", 1, 10 ) );
   EXPECT_EQ( Wire::IntfId( Wire::SubIntfId( "v10" ) ), told( "v10" ) );
   add( bridge( 1, "br0" ) );
   EXPECT_EQ( Wire::IntfId( Wire::VlanIntfId( "v10", 10 ) ), told( "v10" ) );
   table.linkDel( 1 );
   EXPECT_EQ( Wire::IntfId( Wire::SubIntfId( "v10" ) ), told( "v10" ) );
}

TEST_F( LinkTable, dumpTellsDifferencesOnly ) {
   add( port( 1, "et1" ) );
   add( port( 2, "et2" ) );
   add( port( 3, "et3" ) );
   listener.take();
   dump( { port( 1, "et1" ), port( 3, "et3", 0 ), port( 4, "et4" ) } );
   EXPECT_EQ( "-et2, et3 admin-down, et4 up", listener.take() );
}

TEST_F( LinkTable, dumpMayExchangeNames ) {
   add( port( 1, "et1" ) );
   add( port( 2, "et2" ) );
   listener.take();
   dump( { port( 1, "et2" ), port( 2, "et1" ) } );
   EXPECT_EQ( "-et1, -et2, et2 up, et1 up", listener.take() );
   EXPECT_EQ( 2u, table.ifIndexOfName( "et1" ) );
   EXPECT_EQ( 1u, table.ifIndexOfName( "et2" ) );
}

/// One that is renamed while it is dumped; its news come after the dump.
TEST_F( LinkTable, dumpMayHoldTwoOfOneNameWhichLeavesItInDoubt ) {
   dump( { port( 1, "et1" ), port( 2, "et2" ) } );
   listener.take();
   dump( { port( 1, "et1" ), port( 2, "et1" ) } );
   EXPECT_EQ( "-et1, -et2, et1 up", listener.take() );
   EXPECT_TRUE( table.inDoubt() );
   add( port( 1, "et9" ) );
   EXPECT_EQ( "et9 up", listener.take() );
   dump( { port( 2, "et1" ), port( 1, "et9" ) } );
   EXPECT_EQ( "", listener.take() );
   EXPECT_FALSE( table.inDoubt() );
}

TEST_F( LinkTable, dumpMayTellALinkTwice ) {
   dump( { port( 1, "et1" ), port( 1, "et9" ), port( 2, "et1" ) } );
   EXPECT_EQ( "et9 up, et1 up", listener.take() );
   EXPECT_FALSE( table.inDoubt() );
}

TEST_F( LinkTable, dumpMayBringALinkMadeAgain ) {
   add( port( 1, "et1" ) );
   listener.take();
   dump( { port( 9, "et1" ) } );
   EXPECT_EQ( "-et1, et1 up", listener.take() );
}

TEST_F( LinkTable, dumpInAnyOrderFindsTheLinkBelow ) {
   dump( { vlan( 3, "v10", 7, 10 ), port( 1, "et1" ), bridge( 7, "br0" ) } );
   EXPECT_EQ( Wire::IntfId( Wire::VlanIntfId( "v10", 10 ) ), told( "v10" ) );
   EXPECT_EQ( "et1 up, v10 up, br0 up", listener.take() );
}

TEST_F( LinkTable, dumpKeepsTheHolderOfAVlan ) {
   add( bridge( 1, "br0" ) );
   add( vlan( 9, "a", 1, 10 ) );
   listener.take();
   dump( { bridge( 1, "br0" ), vlan( 3, "b", 1, 10 ), vlan( 9, "a", 1, 10 ) } );
   EXPECT_EQ( "", listener.take() );
   dump( { bridge( 1, "br0" ), vlan( 3, "b", 1, 10 ) } );
   EXPECT_EQ( "-a, b up", listener.take() );
}

TEST_F( LinkTable, anyStoryOfEventsAndDumpsEndsWithWhatThereIs ) {
   std::mt19937 dice( 11 );
   std::map< Vel::U32, TestLink > links;
   const char * const kinds[] = { "", "bridge", "bond", "vlan", "vlan", "vlan" };
   for ( int step = 0; step < 20000; ++step ) {
      const Vel::U32 ifIndex = dice() % 12 + 1;
      TestLink link = port( ifIndex, "", dice() % 2 ? upAndRunning : 0 );
      link.name = Vel::text( "l", dice() % 14 );
      link.kind = kinds[dice() % 6];
      link.lower = dice() % 12 + 1;
      link.vlanId = static_cast< Vel::U16 >( dice() % 3 + 1 );
      const bool taken = std::any_of( links.begin(), links.end(), [&]( const auto & entry ) {
         return entry.first != ifIndex && entry.second.name == link.name;
      } );
      const unsigned what = dice() % 10;
      if ( what == 0 ) {
         links.erase( ifIndex );
         if ( dice() % 4 != 0 )
            table.linkDel( ifIndex );
      } else if ( !taken ) {
         links[ifIndex] = link;
         if ( dice() % 4 != 0 )
            add( link );
      }
      if ( what != 1 )
         continue;
      std::vector< TestLink > all;
      for ( const auto & [index, one] : links )
         all.push_back( one );
      dump( all );
      ASSERT_EQ( std::vector< Vel::String >{}, listener.broken ) << "step " << step;
      std::set< Vel::U16 > vlans;
      unsigned refused = 0;
      for ( const TestLink & one : all ) {
         const Link * const heard = listener.link( one.name );
         refused += !heard;
         if ( heard ) {
            ASSERT_EQ( one.ifIndex, heard->ifIndex );
            ASSERT_EQ( one.flags != 0, heard->operUp );
            ASSERT_TRUE( heard->intf.vlanId() == 0 || vlans.insert( heard->intf.vlanId() ).second );
         }
      }
      ASSERT_EQ( all.size() - refused, listener.links.size() );
      ASSERT_EQ( refused == 0, table.refusals().empty() );
      ASSERT_EQ( all.size(), table.size() );
   }
}

TEST_F( LinkTable, knowsTheVlanDevicesThatGoDownWithALink ) {
   add( port( 1, "et1" ) );
   add( vlan( 5, "et1.100.5", 4, 5 ) );
   add( vlan( 4, "et1.100", 1, 100 ) );
   add( vlan( 3, "et1.200", 1, 200 ) );
   add( vlan( 6, "et2.100", 2, 100 ) );
   add(
      { .ifIndex = 7, .name = "et1.300", .kind = "vlan", .lower = 1, .vlanId = 300, .looseBinding = true } );
   add( vlan( 8, "et1.300.5", 7, 5 ) );
   add( { .ifIndex = 9, .name = "macvlan0", .kind = "macvlan", .lower = 1 } );
   EXPECT_EQ( ( std::vector< Vel::U32 >{ 3, 4, 5 } ), table.followers( 1 ) );
   EXPECT_EQ( ( std::vector< Vel::U32 >{ 5 } ), table.followers( 4 ) );
   EXPECT_EQ( std::vector< Vel::U32 >(), table.followers( 9 ) );
   EXPECT_TRUE( table.follows( 4, 1 ) && table.follows( 5, 1 ) && table.follows( 5, 4 ) );
   EXPECT_FALSE( table.follows( 1, 1 ) || table.follows( 6, 1 ) || table.follows( 7, 1 ) );
   EXPECT_FALSE( table.follows( 8, 1 ) || table.follows( 9, 1 ) || table.follows( 10, 1 ) );
   table.linkDel( 4 );
   EXPECT_EQ( ( std::vector< Vel::U32 >{ 3 } ), table.followers( 1 ) );
   EXPECT_FALSE( table.follows( 5, 1 ) );
}

TEST_F( LinkTable, vlanDevicesThatStandOnThemselvesDoNoHarm ) {
   add( vlan( 4, "a", 5, 1 ) );
   add( vlan( 5, "b", 4, 1 ) );
   EXPECT_FALSE( table.follows( 4, 1 ) );
   EXPECT_FALSE( table.followers( 4 ).empty() );
}

} // namespace
} // namespace DataPlane::Linux
