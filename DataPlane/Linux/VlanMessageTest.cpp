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

TEST( VlanMessage, tellsWhichOfThemIsTheDefault ) {
   const auto defaultId = []( Vel::U16 flags ) {
      return parsed( vlanBytes( 7, { { 3, 3 } }, RTM_NEWVLAN, flags ) )->defaultId;
   };
   EXPECT_EQ( 0, defaultId( 0 ) );
   EXPECT_EQ( 0, defaultId( BRIDGE_VLAN_INFO_UNTAGGED ) );
   EXPECT_EQ( 3, defaultId( BRIDGE_VLAN_INFO_UNTAGGED | BRIDGE_VLAN_INFO_PVID ) );
   EXPECT_EQ( 5, parsed( vlanBytes( 7, { { 1, 4 }, { 5, 5, true }, { 6, 9 } } ) )->defaultId );
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
   static VlansOfLinks dumped( const std::vector< Bytes > & messages ) {
      VlansOfLinks all;
      for ( const Bytes & message : messages )
         take( parsed( message ).value(), all );
      return all;
   }

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
   table.dumpIs( dumped( { vlanBytes( 8, { { 2, 3 } } ), vlanBytes( 8, { { 7, 7 } } ) } ) );
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
   table.clear();
   EXPECT_TRUE( changed() );
   table.dumpIs( {} );
   EXPECT_TRUE( changed() ) << "now they are known";
   table.dumpIs( dumped( { vlanBytes( 7, { { 1, 1 } } ) } ) );
   EXPECT_TRUE( changed() );
}

TEST_F( VlanTable, newsThatSayWhatWasKnownAreNoChange ) {
   event( vlanBytes( 7, { { 1, 4, true } } ) );
   const Vel::U64 before = table.revision();
   event( vlanBytes( 7, { { 2, 3 } } ) );
   event( vlanBytes( 7, { { 9, 9 } }, RTM_DELVLAN ) );
   event( vlanBytes( 8, { { 9, 9 } }, RTM_DELVLAN ) );
   table.dumpIs( dumped( { vlanBytes( 7, { { 1, 2 } } ), vlanBytes( 7, { { 3, 3 }, { 4, 4, true } } ) } ) );
   EXPECT_EQ( before, table.revision() );
   event( vlanBytes( 7, { { 4, 5 } } ) );
   EXPECT_NE( before, table.revision() );
}

TEST_F( VlanTable, isInDoubtOnceTheDefaultOfALinkHasMoved ) {
   struct Row {
      const char * what;
      std::vector< Bytes > events;
      bool inDoubt;
   };
   const Row rows[] = {
      { "the first", { vlanBytes( 7, { { 5, 5, true } } ) }, false },
      { "again", { vlanBytes( 7, { { 1, 1, true } } ), vlanBytes( 7, { { 1, 1, true } } ) }, false },
      { "another", { vlanBytes( 7, { { 1, 1, true } } ), vlanBytes( 7, { { 5, 5, true } } ) }, true },
      { "of another link",
        { vlanBytes( 7, { { 1, 1, true } } ), vlanBytes( 8, { { 5, 5, true } } ) },
        false },
      { "others besides it",
        { vlanBytes( 7, { { 1, 1, true } } ), vlanBytes( 7, { { 2, 9 } } ),
          vlanBytes( 7, { { 2, 9 } }, RTM_DELVLAN ), vlanBytes( 7, { { 5, 5, true } } ) },
        true },
      { "after the first was left",
        { vlanBytes( 7, { { 1, 3 } } ), vlanBytes( 7, { { 1, 1, true } } ),
          vlanBytes( 7, { { 1, 1 } }, RTM_DELVLAN ), vlanBytes( 7, { { 5, 5, true } } ) },
        false },
      { "after the first was one no more",
        { vlanBytes( 7, { { 1, 1, true } } ), vlanBytes( 7, { { 1, 1 } } ),
          vlanBytes( 7, { { 5, 5, true } } ) },
        false },
   };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.what );
      table.dumpIs( {} );
      EXPECT_FALSE( table.inDoubt() );
      for ( const Bytes & bytes : row.events )
         event( bytes );
      EXPECT_EQ( row.inDoubt, table.inDoubt() );
   }
   // Also against what a dump has told.
   table.dumpIs( dumped( { vlanBytes( 7, { { 1, 1, true } } ) } ) );
   event( vlanBytes( 7, { { 5, 5, true } } ) );
   EXPECT_TRUE( table.inDoubt() );
}

} // namespace
} // namespace DataPlane::Linux
