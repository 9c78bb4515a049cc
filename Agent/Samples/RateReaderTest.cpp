#include "Agent/Samples/SamplesRig.h"

#include <gtest/gtest.h>

namespace {

const Wire::EthIntfId et1( "et1" ), et2( "et2" ), et3( "et3" );
const Wire::PortChannelIntfId pc1( "pc1" );
const Wire::VlanIntfId vlan10( "vlan10", 10 );
const Wire::CpuIntfId bridge( "br0" );

struct RateReader : testing::Test, Agent::SamplesRig {
   Agent::RateReader rates{ model() };
   double now = 1.7e9;

   void read( double after = 5 ) { rates.read( now += after ); }
   /// "et1 8000/4000 pc1 ..." of the last reading.
   std::string all() const {
      std::string result;
      for ( const auto & [intf, of] : rates.all() ) {
         EXPECT_EQ( now, of.sampleTime );
         EXPECT_EQ( &of, rates.rate( intf ) );
         result += Vel::text( result.empty() ? "" : " ", intf, " ", of.inBitsRate, "/", of.outBitsRate );
      }
      return result;
   }
};

TEST_F( RateReader, ofAPortAreOctetsBetweenTwoReadingsOverTheTimeBetween ) {
   intfIs( et1 );
   countsAre( et1, 1000, 5000 );
   read();
   EXPECT_EQ( "", all() ) << "what it has carried before says nothing";
   carried( et1, 5000, 2500 );
   read();
   EXPECT_EQ( "et1 8000/4000", all() );
   carried( et1, 8000, 0 );
   read( 8 );
   EXPECT_EQ( "et1 8000/0", all() );
   read();
   EXPECT_EQ( "et1 0/0", all() );
}

TEST_F( RateReader, areOfInterfacesThatAreConfiguredAndThere ) {
   intfIs( et1 );
   countsAre( et1, 0, 0 );
   countsAre( et2, 0, 0 );
   countsAre( et3, 0, 0 );
   intfToGroupDir->intfToGroupIs( et2 );
   statusDir->intfStatusIs( et3 );
   read();
   read();
   EXPECT_EQ( "et1 0/0", all() );
   EXPECT_EQ( nullptr, rates.rate( et2 ) );
}

TEST_F( RateReader, ofAPortChannelAreTheSumOfItsMembers ) {
   intfIs( pc1 );
   for ( const auto & port : { et1, et2 } ) {
      memberIs( port, pc1 );
      countsAre( port, 77, 88 );
   }
   read();
   carried( et1, 5000, 0 );
   carried( et2, 2500, 5000 );
   read();
   EXPECT_EQ( "pc1 12000/8000", all() );
}

TEST_F( RateReader, ofAVlanInterfaceAreThoseOfItsBusiestMemberInEachDirection ) {
   intfIs( vlan10 );
   for ( const auto & port : { et1, et2, et3 } )
      countsAre( port, 0, 0 );
   memberIs( et1, pc1 );
   memberIs( et2, pc1 );
   for ( const Wire::IntfId & member : { Wire::IntfId( pc1 ), Wire::IntfId( et3 ), Wire::IntfId( bridge ) } )
      vlanMemberIs( 10, member );
   read();
   carried( et1, 5000, 100 );
   carried( et2, 5000, 100 );
   carried( et3, 6000, 5000 );
   read();
   EXPECT_EQ( "vlan10 16000/8000", all() );
}

TEST_F( RateReader, ofAVlanInterfaceFollowItsMembers ) {
   intfIs( vlan10 );
   for ( const auto & port : { et1, et2 } )
      countsAre( port, 0, 0 );
   vlanMemberIs( 10, et1 );
   const auto next = [this] {
      carried( et1, 5000, 0 );
      carried( et2, 10000, 0 );
      read();
      return all();
   };
   next();
   EXPECT_EQ( "vlan10 8000/0", next() );
   vlanMemberIs( 10, et2 );
   EXPECT_EQ( "", next() ) << "nobody knows yet what the new one carries";
   EXPECT_EQ( "vlan10 16000/0", next() );
   vlanStatusDir->vlanStatus( Bridging::VlanId( 10 ) )->vlanPortStatusDel( et2 );
   EXPECT_EQ( "vlan10 8000/0", next() );
   // Another VLAN of the same id.
   vlanStatusDir->vlanStatusDel( Bridging::VlanId( 10 ) );
   vlanMemberIs( 10, et2 );
   EXPECT_EQ( "", next() );
   EXPECT_EQ( "vlan10 16000/0", next() );
   // It is away for a while, and its members with it.
   statusDir->intfStatusDel( vlan10 );
   EXPECT_EQ( "", next() );
   intfIs( vlan10 );
   EXPECT_EQ( "", next() );
   EXPECT_EQ( "vlan10 16000/0", next() );
   vlanMemberIs( 10, Wire::IntfId::other( "tunnel" ) );
   EXPECT_EQ( "", next() ) << "what nobody can count may be the busiest";
}

TEST_F( RateReader, aPortIsReadOnceHoweverManyAreMadeOfIt ) {
   for ( const auto & intf : { Wire::IntfId( et1 ), Wire::IntfId( pc1 ), Wire::IntfId( vlan10 ) } )
      intfIs( intf );
   memberIs( et1, pc1 );
   vlanMemberIs( 10, pc1 );
   vlanMemberIs( 10, et1 );
   countsAre( et1, 0, 0 );
   read();
   carried( et1, 5000, 2500 );
   read();
   EXPECT_EQ( "et1 8000/4000 pc1 8000/4000 vlan10 8000/4000", all() );
}

TEST_F( RateReader, aMemberThatJoinsOrLeavesMovesTheSumByWhatItCarries ) {
   for ( const auto & intf : { Wire::IntfId( pc1 ), Wire::IntfId( et2 ) } )
      intfIs( intf );
   countsAre( et1, 0, 0 );
   countsAre( et2, 1'000'000'000, 0 );
   memberIs( et1, pc1 );
   read();
   carried( et1, 5000, 0 );
   carried( et2, 5000, 0 );
   read();
   EXPECT_EQ( "pc1 8000/0 et2 8000/0", all() );
   memberIs( et2, pc1 );
   carried( et1, 5000, 0 );
   carried( et2, 5000, 0 );
   read();
   EXPECT_EQ( "pc1 16000/0 et2 8000/0", all() );
   memberIs( et2, Wire::IntfId() );
   carried( et1, 5000, 0 );
   carried( et2, 5000, 0 );
   read();
   EXPECT_EQ( "pc1 8000/0 et2 8000/0", all() );
}

TEST_F( RateReader, aSumWithAMemberThatHasNoneYetIsAGap ) {
   intfIs( pc1 );
   countsAre( et1, 0, 0 );
   countsAre( et2, 1'000'000'000, 0 );
   memberIs( et1, pc1 );
   read();
   memberIs( et2, pc1 );
   carried( et1, 5000, 0 );
   read();
   EXPECT_EQ( "", all() );
   carried( et1, 5000, 0 );
   carried( et2, 5000, 0 );
   read();
   EXPECT_EQ( "pc1 16000/0", all() );
}

TEST_F( RateReader, withoutMembersAreZeroWhileTheInterfaceCounts ) {
   intfIs( pc1 );
   intfIs( vlan10 );
   read();
   EXPECT_EQ( "pc1 0/0 vlan10 0/0", all() );
}

TEST_F( RateReader, countsThatGoBackAreAGapAndANewBeginning ) {
   intfIs( et1 );
   countsAre( et1, 1000000, 1000000 );
   read();
   countsAre( et1, 1000, 1000 );
   read();
   EXPECT_EQ( "", all() );
   carried( et1, 5000, 5000 );
   read();
   EXPECT_EQ( "et1 8000/8000", all() );
   countsAre( et1, 11000, 0 );
   read();
   EXPECT_EQ( "", all() ) << "one direction is enough";
}

TEST_F( RateReader, countsNearTheEndOfTheirRangeGiveNothingAbsurd ) {
   intfIs( et1 );
   countsAre( et1, ~Vel::U64( 0 ) - 4, ( Vel::U64( 1 ) << 63 ) - 5 );
   read();
   countsAre( et1, 5000, 5000 );
   read();
   EXPECT_EQ( "", all() );
   pool->intfCountersIs( et1, 10000, Cog::MaybeU63::none() );
   read();
   EXPECT_EQ( "", all() );
}

TEST_F( RateReader, moreThanAnyPortCarriesIsAGap ) {
   intfIs( et1 );
   countsAre( et1, 0, 0 );
   read();
   carried( et1, 0, 1'300'000'000'000 );
   read();
   EXPECT_EQ( "", all() );
   carried( et1, 1'000'000'000'000, 0 );
   read();
   EXPECT_EQ( "et1 1.6e+12/0", all() );
}

TEST_F( RateReader, aPortThatWasAwayBeginsAnew ) {
   intfIs( et1 );
   countsAre( et1, 0, 0 );
   read();
   pool->intfDel( et1 );
   read();
   EXPECT_EQ( "", all() );
   countsAre( et1, 1'000'000'000, 0 );
   read();
   EXPECT_EQ( "", all() );
   carried( et1, 5000, 0 );
   read();
   EXPECT_EQ( "et1 8000/0", all() );
}

TEST_F( RateReader, readingsThatAreFarApartAreAGap ) {
   intfIs( et1 );
   countsAre( et1, 0, 0 );
   read();
   carried( et1, 15000, 0 );
   read( 15 );
   EXPECT_EQ( "et1 8000/0", all() );
   carried( et1, 15000, 0 );
   read( 16 );
   EXPECT_EQ( "", all() );
   carried( et1, 5000, 0 );
   read();
   EXPECT_EQ( "et1 8000/0", all() );
}

TEST_F( RateReader, ofOtherKindsThereAreNone ) {
   for ( const auto & intf :
         { Wire::IntfId::other( "lo" ), Wire::IntfId( Wire::SubIntfId( "et1.5" ) ), Wire::IntfId( bridge ),
           Wire::IntfId( Wire::VlanIntfId( "vlan0", 0 ) ) } )
      intfIs( intf );
   read();
   read();
   EXPECT_EQ( "", all() );
}

} // namespace
