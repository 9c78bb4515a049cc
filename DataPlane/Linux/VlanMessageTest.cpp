#include "DataPlane/Linux/MessagesTest.h"
#include "DataPlane/Linux/VlanTable.h"
#include "Platform/Vel/Text.h"

#include <gtest/gtest.h>

namespace DataPlane::Linux {
namespace {

std::optional< VlanEvent > parsed( const Bytes & bytes ) { return parseVlan( messageIn( bytes ) ); }

/// For example "1,10-20"; runs of one range are one.
Vel::String textOf( const VlanSet & vlans ) {
   Vel::String result;
   for ( unsigned id = 0; id < vlans.size(); ++id ) {
      if ( !vlans.test( id ) )
         continue;
      unsigned last = id;
      while ( last + 1 < vlans.size() && vlans.test( last + 1 ) )
         ++last;
      result += Vel::text( result.empty() ? "" : ",", id );
      if ( last != id )
         result += Vel::text( "-", last );
      id = last;
   }
   return result;
}

TEST( VlanMessage, tellsTheVlansOfALink ) {
   const auto event = parsed( vlanBytes( 7, { { 1, 1 }, { 10, 20 }, { 4094, 4094 } } ) );
   ASSERT_TRUE( event );
   EXPECT_FALSE( event->removed );
   EXPECT_EQ( 7u, event->ifIndex );
   EXPECT_EQ( "1,10-20,4094", textOf( event->vlans ) );
}

TEST( VlanMessage, tellsWhetherTheDefaultIsAmongThem ) {
   const auto byDefault = []( Vel::U16 flags ) {
      return parsed( vlanBytes( 7, { { 1, 1 } }, RTM_NEWVLAN, flags ) )->byDefault;
   };
   EXPECT_FALSE( byDefault( 0 ) );
   EXPECT_FALSE( byDefault( BRIDGE_VLAN_INFO_UNTAGGED ) );
   EXPECT_TRUE( byDefault( BRIDGE_VLAN_INFO_UNTAGGED | BRIDGE_VLAN_INFO_PVID ) );
}

TEST( VlanMessage, tellsWhichVlansALinkHasLeft ) {
   const auto event = parsed( vlanBytes( 7, { { 15, 17 } }, RTM_DELVLAN ) );
   ASSERT_TRUE( event );
   EXPECT_TRUE( event->removed );
   EXPECT_EQ( "15-17", textOf( event->vlans ) );
}

TEST( VlanMessage, idsThatAreNoVlanAreLeftOut ) {
   const auto event = parsed( vlanBytes(
      7, { { 0, 0 }, { 0, 5 }, { 4090, 4095 }, { 4095, 4095 }, { 0xffff, 0xffff }, { 30, 20 }, { 9, 9 } } ) );
   ASSERT_TRUE( event );
   EXPECT_EQ( "9", textOf( event->vlans ) );
}

TEST( VlanMessage, othersAreNoNewsOfVlans ) {
   EXPECT_FALSE( parsed( vlanBytes( 7, { { 1, 1 } }, RTM_GETVLAN ) ) );
   EXPECT_FALSE( parsed( vlanBytes( 0, { { 1, 1 } } ) ) );
   EXPECT_FALSE( parsed( linkBytes( { .ifIndex = 7, .name = "et1" } ) ) );
   EXPECT_FALSE( parsed( MessageBuilder( RTM_NEWVLAN, 0 ).take() ) );
   br_vlan_msg header{};
   header.ifindex = 7; // of no family
   EXPECT_FALSE( parsed( MessageBuilder( RTM_NEWVLAN, 0 ).header( header ).take() ) );
}

TEST( VlanMessage, optionsOfTheBridgeAreNoVlansOfALink ) {
   br_vlan_msg header{};
   header.family = AF_BRIDGE;
   header.ifindex = 7;
   MessageBuilder message( RTM_NEWVLAN, 0 );
   message.header( header );
   message.nested( BRIDGE_VLANDB_GLOBAL_OPTIONS, [&] {
      message.attribute( BRIDGE_VLANDB_GOPTS_ID, Vel::U16( 10 ) );
      message.attribute( BRIDGE_VLANDB_GOPTS_RANGE, Vel::U16( 20 ) );
   } );
   message.nested(
      BRIDGE_VLANDB_ENTRY, [&] { message.attribute( BRIDGE_VLANDB_ENTRY_STATE, Vel::U8( 3 ) ); } );
   message.nested( BRIDGE_VLANDB_ENTRY, [&] {
      message.attribute( BRIDGE_VLANDB_ENTRY_INFO, Vel::U16( 10 ) ); // cut short
   } );
   const Bytes bytes = message.take();
   const auto event = parsed( bytes );
   ASSERT_TRUE( event );
   EXPECT_TRUE( event->vlans.none() );
}

class VlanTable : public testing::Test {
 protected:
   void event( const Bytes & bytes ) { table.eventIs( parsed( bytes ).value() ); }
   Vel::String vlans( Vel::U32 ifIndex ) const { return textOf( table.vlans( ifIndex ) ); }

   Linux::VlanTable table;
};

TEST_F( VlanTable, rangesChangeInTheMiddle ) {
   event( vlanBytes( 7, { { 1, 1 }, { 10, 20 } } ) );
   event( vlanBytes( 7, { { 14, 15 } }, RTM_DELVLAN ) );
   EXPECT_EQ( "1,10-13,16-20", vlans( 7 ) );
   event( vlanBytes( 7, { { 15, 22 }, { 1, 1 } } ) );
   EXPECT_EQ( "1,10-13,15-22", vlans( 7 ) );
   event( vlanBytes( 7, { { 1, 4094 } }, RTM_DELVLAN ) );
   EXPECT_EQ( "", vlans( 7 ) );
   EXPECT_EQ( 0u, table.size() );
}

TEST_F( VlanTable, linksAreApart ) {
   event( vlanBytes( 7, { { 1, 4094 } } ) );
   event( vlanBytes( 8, { { 5, 5 } } ) );
   event( vlanBytes( 8, { { 1, 10 } }, RTM_DELVLAN ) );
   event( vlanBytes( 9, { { 1, 10 } }, RTM_DELVLAN ) );
   EXPECT_EQ( "1-4094", vlans( 7 ) );
   EXPECT_EQ( 1u, table.size() );
   table.linkDel( 7 );
   EXPECT_EQ( 0u, table.size() );
}

TEST_F( VlanTable, dumpReplacesAllAndMayTellALinkInParts ) {
   event( vlanBytes( 7, { { 1, 9 } } ) );
   event( vlanBytes( 8, { { 1, 9 } } ) );
   table.dumpIs(
      { parsed( vlanBytes( 8, { { 2, 3 } } ) ).value(), parsed( vlanBytes( 8, { { 7, 7 } } ) ).value() } );
   EXPECT_EQ( "", vlans( 7 ) );
   EXPECT_EQ( "2-3,7", vlans( 8 ) );
}

TEST_F( VlanTable, isKnownFromADumpOrTheFirstEvent ) {
   EXPECT_FALSE( table.known() );
   table.dumpIs( {} );
   EXPECT_TRUE( table.known() );
   table.clear();
   EXPECT_FALSE( table.known() );
   event( vlanBytes( 7, { { 1, 1 } } ) );
   EXPECT_TRUE( table.known() );
}

TEST_F( VlanTable, revisionChangesWithTheVlans ) {
   Vel::U64 before = table.revision();
   const auto changed = [&] { return std::exchange( before, table.revision() ) != table.revision(); };
   event( vlanBytes( 7, { { 1, 1 } } ) );
   EXPECT_TRUE( changed() );
   table.linkDel( 8 );
   EXPECT_FALSE( changed() );
   table.linkDel( 7 );
   EXPECT_TRUE( changed() );
   table.dumpIs( {} );
   EXPECT_TRUE( changed() );
   table.clear();
   EXPECT_TRUE( changed() );
}

} // namespace
} // namespace DataPlane::Linux
