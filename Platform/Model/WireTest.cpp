#include "Platform/Model/Wire.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

using Wire::CpuIntfId;
using Wire::EthIntfId;
using Wire::IntfId;
using Wire::PortChannelIntfId;
using Wire::SubIntfId;
using Wire::VlanIntfId;
using Kind = IntfId::Kind;

TEST( IntfId, testsItsKind ) {
   struct Row {
      IntfId id;
      bool eth, lag, vlan, sub, cpu;
   };
   const Row rows[] = {
      { IntfId(), false, false, false, false, false },
      { EthIntfId( "et1" ), true, false, false, false, false },
      { PortChannelIntfId( "pc1" ), false, true, false, false, false },
      { VlanIntfId( "vlan10", 10 ), false, false, true, false, false },
      { SubIntfId( "et1.5" ), true, false, false, true, false },
      { SubIntfId( "pc1.5", Kind::portChannel ), false, true, false, true, false },
      { SubIntfId( "vlan10.5", Kind::vlan ), false, false, true, true, false },
      { CpuIntfId( "br0" ), false, false, false, false, true },
      { IntfId::other( "lo" ), false, false, false, false, false },
   };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( stringValue( row.id ) );
      EXPECT_EQ( row.eth, EthIntfId::isEthIntfId( row.id ) );
      EXPECT_EQ( row.lag, PortChannelIntfId::isPortChannelIntfId( row.id ) );
      EXPECT_EQ( row.vlan, VlanIntfId::isVlanIntfId( row.id ) );
      EXPECT_EQ( row.sub, SubIntfId::isSubIntfId( row.id ) );
      EXPECT_EQ( row.cpu, CpuIntfId::isCpuIntfId( row.id ) );
   }
}

TEST( IntfId, ofAVlanInterfaceKnowsAnyVlanId ) {
   for ( const Vel::U16 id : { 0, 1, 10, 4094, 4095, 65535 } )
      EXPECT_EQ( id, VlanIntfId::vlanId( VlanIntfId( "v", id ) ) );
}

TEST( IntfId, ofAnotherKindHasVlanIdZero ) { EXPECT_EQ( 0, VlanIntfId::vlanId( EthIntfId( "et10" ) ) ); }

TEST( IntfId, hasItsNameAsText ) {
   EXPECT_EQ( "et1/2", stringValue( EthIntfId( "et1/2" ) ) );
   EXPECT_EQ( "", stringValue( IntfId() ) );
   EXPECT_EQ( "intf et1", Vel::text( "intf ", EthIntfId( "et1" ) ) );
}

TEST( IntfId, holdsNamesOfUpTo27Bytes ) {
   const std::string longest( 27, 'x' );
   EXPECT_EQ( longest, stringValue( EthIntfId( longest ) ) );
}

Vel::String refusal( std::string_view name ) {
   try {
      EthIntfId id( name );
   } catch ( const Vel::RangeError & e ) {
      return e.what();
   }
   return "accepted";
}

TEST( IntfId, refusesALongerNameAndSaysWhich ) {
   EXPECT_EQ(
      "interface name \"aaaaaaaaaaaaaaaaaaaaaaaaaaaa\" has more than 27 bytes",
      refusal( Vel::String( 28, 'a' ) ) );
}

TEST( IntfId, refusesALongNameWhoseLengthWouldWrap ) {
   EXPECT_NE( "accepted", refusal( Vel::String( 256 + 3, 'a' ) ) );
}

TEST( IntfId, refusesAnEmptyName ) { EXPECT_EQ( "interface name is empty", refusal( "" ) ); }

TEST( IntfId, refusesAZeroByteInTheName ) {
   EXPECT_NE( "accepted", refusal( std::string_view( "a\0b", 3 ) ) );
}

TEST( IntfId, ofASubInterfaceNeedsAParentOfAnotherKind ) {
   EXPECT_THROW( SubIntfId( "x.1", Kind::none ), Vel::RangeError );
   EXPECT_THROW( SubIntfId( "x.1", Kind::subIntf ), Vel::RangeError );
   EXPECT_EQ( Kind::other, SubIntfId( "lo.1", Kind::other ).parent() );
}

TEST( IntfId, differsInKindNameVlanIdAndParent ) {
   const IntfId et1 = EthIntfId( "et1" );
   EXPECT_EQ( et1, EthIntfId( "et1" ) );
   EXPECT_NE( et1, EthIntfId( "et2" ) );
   EXPECT_NE( et1, PortChannelIntfId( "et1" ) );
   EXPECT_NE( et1, SubIntfId( "et1" ) );
   EXPECT_NE( VlanIntfId( "v", 1 ), VlanIntfId( "v", 2 ) );
   EXPECT_NE( SubIntfId( "x.1" ), SubIntfId( "x.1", Kind::portChannel ) );
}

/// Every id is below all that follow it.
const std::vector< IntfId > & ascending() {
   static const std::vector< IntfId > ids = {
      IntfId(),
      EthIntfId( "et" ),
      EthIntfId( "et/1" ),
      EthIntfId( "et1" ),
      EthIntfId( "et1/2" ),
      EthIntfId( "et1/10" ),
      EthIntfId( "et1a" ),
      EthIntfId( "et2" ),
      EthIntfId( "et10" ),
      EthIntfId( "et10/1" ),
      EthIntfId( "et11" ),
      EthIntfId( "et010" ),
      EthIntfId( "ethernet1" ),
      EthIntfId( "\xe9t1" ),
      PortChannelIntfId( "bond0" ),
      PortChannelIntfId( "pc9" ),
      PortChannelIntfId( "pc10" ),
      VlanIntfId( "vlan9", 9 ),
      VlanIntfId( "vlan10", 10 ),
      VlanIntfId( "vlan10", 11 ),
      SubIntfId( "et1.5" ),
      SubIntfId( "et1.5", Kind::portChannel ),
      SubIntfId( "et1.10" ),
      CpuIntfId( "br0" ),
      IntfId::other( "lo" ),
   };
   return ids;
}

TEST( IntfId, isTotallyOrdered ) {
   const auto & ids = ascending();
   for ( std::size_t i = 0; i < ids.size(); ++i )
      for ( std::size_t j = 0; j < ids.size(); ++j ) {
         SCOPED_TRACE( Vel::text( ids[i], " and ", ids[j] ) );
         EXPECT_EQ( i < j, ids[i] < ids[j] );
         EXPECT_EQ( i == j, ids[i] == ids[j] );
      }
}

TEST( IntfId, hashesEqualIdsAlikeAndOthersApart ) {
   const std::hash< IntfId > hash;
   EXPECT_EQ( hash( EthIntfId( "et1" ) ), hash( EthIntfId( "et1" ) ) );
   std::vector< std::size_t > hashes;
   for ( int i = 0; i < 10000; ++i )
      hashes.push_back( hash( EthIntfId( Vel::text( "et", i ) ) ) );
   for ( const IntfId & id : ascending() )
      hashes.push_back( hash( id ) );
   std::sort( hashes.begin(), hashes.end() );
   // et1, et2, et10 and et11 are in both lists.
   const auto apart = std::unique( hashes.begin(), hashes.end() ) - hashes.begin();
   EXPECT_EQ( static_cast< std::ptrdiff_t >( 10000 + ascending().size() - 4 ), apart );
}

TEST( IntfId, spreadsOverTheLowBitsOfItsHash ) {
   std::vector< int > buckets( 256 );
   for ( int i = 0; i < 256 * 16; ++i )
      ++buckets[std::hash< IntfId >()( EthIntfId( Vel::text( "et", i ) ) ) % 256];
   EXPECT_LT( *std::max_element( buckets.begin(), buckets.end() ), 48 );
}

TEST( IntfId, comesBackFromItsBytes ) {
   for ( const IntfId & id : ascending() ) {
      SCOPED_TRACE( stringValue( id ) );
      Vel::String bytes;
      Vel::ByteWriter writer( bytes );
      Vel::Codec< IntfId >::write( writer, id );
      EXPECT_EQ( 32u, bytes.size() );
      Vel::ByteReader reader( bytes );
      IntfId back;
      Vel::Codec< IntfId >::read( reader, back );
      EXPECT_EQ( id, back );
      EXPECT_FALSE( reader.failed() );
   }
}

TEST( IntfId, isNotReadFromBytesThatCannotBeOne ) {
   Vel::String good;
   Vel::ByteWriter writer( good );
   Vel::Codec< IntfId >::write( writer, EthIntfId( "et1" ) );
   struct Row {
      const char * what;
      std::size_t at;
      char byte;
   };
   const Row rows[] = {
      { "unknown kind", 0, 7 },
      { "no kind but a name", 0, 0 },
      { "parent of a port", 1, 1 },
      { "VLAN id of a port", 2, 1 },
      { "shorter than its length", 6, 0 },
      { "longer than its length", 7, 'x' },
      { "bytes behind the name", 20, 1 },
      { "no length", 31, 0 },
      { "length of 28", 31, 28 },
   };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.what );
      Vel::String bytes = good;
      bytes[row.at] = row.byte;
      Vel::ByteReader reader( bytes );
      IntfId back = EthIntfId( "before" );
      Vel::Codec< IntfId >::read( reader, back );
      EXPECT_TRUE( reader.failed() );
      EXPECT_EQ( IntfId(), back );
   }
}

} // namespace
