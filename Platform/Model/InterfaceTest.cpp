#include "Platform/Model/Interface.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using Cog::MaybeU63;
using namespace Interface;
using namespace Interface::IntfCounterMasquerade;

const Wire::EthIntfId et1( "et1" );
const Wire::EthIntfId et2( "et2" );

TEST( IntfRates, areFiveDoublesInTheirOrder ) {
   const IntfRates rates{ 1, 2, 3, 4, 5 };
   EXPECT_EQ( 3, rates.outBitsRate );
   EXPECT_EQ( 4, rates.inBitsRate );
   EXPECT_EQ( 5, rates.sampleTime );
   EXPECT_EQ( 5 * sizeof( double ), sizeof( IntfRates ) );
}

TEST( IntfRates, areEqualOnlyInAllFive ) {
   const IntfRates rates{ 1, 2, 3, 4, 5 };
   EXPECT_EQ( rates, ( IntfRates{ 1, 2, 3, 4, 5 } ) );
   EXPECT_NE( rates, ( IntfRates{ 0, 2, 3, 4, 5 } ) );
   EXPECT_NE( rates, ( IntfRates{ 1, 0, 3, 4, 5 } ) );
   EXPECT_NE( rates, ( IntfRates{ 1, 2, 0, 4, 5 } ) );
   EXPECT_NE( rates, ( IntfRates{ 1, 2, 3, 0, 5 } ) );
   EXPECT_NE( rates, ( IntfRates{ 1, 2, 3, 4, 0 } ) );
}

TEST( IntfRates, differFromThemselvesWithNaN ) {
   IntfRates rates;
   rates.inBitsRate = std::numeric_limits< double >::quiet_NaN();
   EXPECT_FALSE( rates == rates );
}

TEST( IntfRates, haveAText ) {
   EXPECT_EQ( "in 2000 bps, out 1500 bps at 7.5", stringValue( IntfRates{ 0, 0, 1500, 2000, 7.5 } ) );
}

TEST( IntfOperStatus, hasFixedOrdinalsAndTexts ) {
   EXPECT_EQ( 1u, operUp );
   EXPECT_EQ( "operUnknown", stringValue( IntfOperStatus( 0 ) ) );
   EXPECT_EQ( "operUp", stringValue( IntfOperStatus( 1 ) ) );
   EXPECT_EQ( "operDown", stringValue( IntfOperStatus( 2 ) ) );
   EXPECT_EQ( "IntfOperStatus(9)", stringValue( IntfOperStatus( 9 ) ) );
}

struct Observer {
   struct VelAllIntfStatusDir final : Vel::ReactorTo< Observer, AllIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const Wire::IntfId & intf ) override {
         sm()->log += Vel::text( entity()->intfStatus( intf ) ? "+" : "-", intf, " " );
      }
   };
   struct VelIntfStatus final : Vel::ReactorTo< Observer, IntfStatus > {
      using ReactorTo::ReactorTo;
      void onOperStatus() override {
         sm()->log += Vel::text( entity()->intfId(), "=", entity()->operStatus(), " " );
      }
   };
   Vel::Watch< VelAllIntfStatusDir > dir;
   Vel::Watch< VelIntfStatus > status;
   Vel::String log;
};

TEST( AllIntfStatusDir, tellsOfStatusesThatComeAndGo ) {
   const auto dir = Vel::make< AllIntfStatusDir >();
   Observer observer;
   observer.dir.is( dir, &observer ).hasNotificationActiveIs( true );
   dir->intfStatusIs( et1 );
   dir->intfStatusIs( et2 );
   dir->intfStatusIs( et1 );
   dir->intfStatusDel( et1 );
   dir->intfStatusDel( et1 );
   EXPECT_EQ( "+et1 +et2 -et1 ", observer.log );
}

TEST( IntfStatus, tellsOfItsOperStatus ) {
   const auto dir = Vel::make< AllIntfStatusDir >();
   IntfStatus * const status = dir->intfStatusIs( et1 );
   EXPECT_EQ( operUnknown, status->operStatus() );
   Observer observer;
   observer.status.is( status, &observer ).hasNotificationActiveIs( true );
   status->operStatusIs( operUp );
   status->operStatusIs( operUp );
   status->operStatusIs( operDown );
   EXPECT_EQ( "et1=operUp et1=operDown ", observer.log );
}

TEST( AllIntfStatusDir, deletesBeforeItAddsWhenAnEntityIsReplaced ) {
   const auto dir = Vel::make< AllIntfStatusDir >();
   dir->intfStatusIs( et1 );
   Observer observer;
   observer.dir.is( dir, &observer ).hasNotificationActiveIs( true );
   dir->intfStatusPut( et1, Vel::make< IntfStatus >( et1 ) );
   EXPECT_EQ( "-et1 +et1 ", observer.log );
}

TEST( EthIntfCounterDir, findsCountersByName ) {
   const auto all = Vel::make< AllEthIntfCounterPtrDir >();
   EthIntfCounterDir * const dir = all->intfCounterDirIs( et1 );
   EXPECT_EQ( nullptr, dir->counter( "current" ) );
   EthIntfCounter * const current = dir->counterIs( "current" );
   EthIntfCounter * const cleared = dir->counterIs( "cleared" );
   EXPECT_EQ( current, dir->counter( "current" ) );
   EXPECT_EQ( cleared, dir->counter( "cleared" ) );
   EXPECT_EQ( current, dir->counterIs( "current" ) );
   EXPECT_EQ( "current", current->name() );
   EXPECT_EQ( et1, dir->intfId() );
   EXPECT_EQ( nullptr, all->intfCounterDir( et2 ) );
}

TEST( EthIntfCounterDir, forgetsADeletedCounterButNotItsReaders ) {
   const auto dir = Vel::make< EthIntfCounterDir >( et1 );
   const Vel::Ptr< EthIntfCounter > held( dir->counterIs( "current" ) );
   EXPECT_TRUE( dir->counterDel( "current" ) );
   EXPECT_FALSE( dir->counterDel( "current" ) );
   EXPECT_EQ( nullptr, dir->counter( "current" ) );
   EXPECT_EQ( 0u, held->statistics().inOctets );
}

TEST( EthIntfCounter, beginsWithZeroesThatAreValues ) {
   const EthIntfStatistics statistics;
   EXPECT_EQ( 0u, statistics.inOctets );
   EXPECT_TRUE( statistics.outOctets.hasValue() );
   EXPECT_EQ( 0u, statistics.outOctets.value() );
}

TEST( EthIntfCounter, keepsBothOctetCounts ) {
   const auto counter = Vel::make< EthIntfCounter >( "current" );
   counter->statisticsIs( { ~0ull, MaybeU63( 5 ) } );
   EXPECT_EQ( ~0ull, counter->statistics().inOctets );
   EXPECT_EQ( 5u, counter->statistics().outOctets.value() );
   EXPECT_EQ( "in 18446744073709551615 out 5", stringValue( counter->statistics() ) );
}

TEST( EthIntfCounter, staysSmall ) {
   EXPECT_LE( sizeof( EthIntfStatistics ), 16u );
   EXPECT_LE( sizeof( EthIntfCounter ) + sizeof( EthIntfCounterDir ), 240u );
}

TEST( MaybeU63, hasNoValueExactlyWhenTheTopBitIsSet ) {
   EXPECT_TRUE( MaybeU63::fromWord( 0x7fffffffffffffff ).hasValue() );
   EXPECT_EQ( 0x7fffffffffffffffu, MaybeU63::fromWord( 0x7fffffffffffffff ).value() );
   EXPECT_FALSE( MaybeU63::fromWord( 0x8000000000000000 ).hasValue() );
   EXPECT_FALSE( MaybeU63::fromWord( 0x8000000000000005 ).hasValue() );
   EXPECT_EQ( 0x8000000000000000u, MaybeU63::none().word() );
   EXPECT_EQ( 8u, sizeof( MaybeU63 ) );
}

TEST( MaybeU63, readsAsZeroWithoutAValue ) {
   EXPECT_EQ( 0u, MaybeU63::none().value() );
   EXPECT_EQ( 0u, MaybeU63::fromWord( 0x8000000000000005 ).value() );
}

TEST( MaybeU63, dropsTheTopBitOfACount ) { EXPECT_EQ( MaybeU63( 5 ), MaybeU63( 0x8000000000000005 ) ); }

TEST( MaybeU63, differsFromAValueWithoutOne ) {
   EXPECT_NE( MaybeU63::none(), MaybeU63( 0 ) );
   EXPECT_EQ( MaybeU63::none(), MaybeU63::fromWord( ~0ull ) );
}

TEST( MaybeU63, subtractsModulo63Bits ) {
   EXPECT_EQ( MaybeU63( 7 ), MaybeU63( 10 ) - MaybeU63( 3 ) );
   EXPECT_EQ( MaybeU63( 0x7fffffffffffffff ), MaybeU63( 2 ) - MaybeU63( 3 ) );
   EXPECT_EQ( MaybeU63( 4 ), MaybeU63( 2 ) - MaybeU63( 0x7ffffffffffffffe ) );
}

TEST( MaybeU63, hasNoDifferenceWithoutBothValues ) {
   EXPECT_EQ( MaybeU63::none(), MaybeU63::none() - MaybeU63( 3 ) );
   EXPECT_EQ( MaybeU63::none(), MaybeU63( 3 ) - MaybeU63::none() );
   EXPECT_EQ( MaybeU63::none(), MaybeU63::none() - MaybeU63::none() );
}

TEST( MaybeU63, hasAText ) {
   EXPECT_EQ( "42", stringValue( MaybeU63( 42 ) ) );
   EXPECT_EQ( "none", stringValue( MaybeU63::none() ) );
}

} // namespace
