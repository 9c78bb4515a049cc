#include "Platform/Counters/EthIntfCounterReaderSm.h"

#include <gtest/gtest.h>

namespace {

using Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir;

const Wire::EthIntfId et1( "et1" );
const Wire::EthIntfId et2( "et2" );

struct EthIntfCounterReaderSm : testing::Test {
   Vel::Ptr< VelPool::EntityManager > pool = Vel::make< VelPool::EntityManager >();
   Vel::Ptr< Interface::EthIntfCounterReaderSm > reader =
      Interface::EthIntfCounterReaderSm::EthIntfCounterReaderSmIs( pool, nullptr );

   void count( const Wire::IntfId & intf, Vel::U64 in ) { pool->intfCountersIs( intf, in, Cog::MaybeU63() ); }
   const AllEthIntfCounterPtrDir & dir() const { return *reader->allEthIntfCounterPtrDir(); }
   Vel::String ports() const { return portsOf( dir() ); }
   static Vel::String portsOf( const AllEthIntfCounterPtrDir & dir ) {
      Vel::String result;
      for ( const auto & [intf, counters] : dir.intfCounterDirRange() )
         result += Vel::text( intf, " ", counters->counter( "current" )->statistics().inOctets, ";" );
      return result;
   }
};

TEST_F( EthIntfCounterReaderSm, showsNothingBeforeItIsInitialized ) {
   count( et1, 5 );
   EXPECT_EQ( "", ports() );
}

TEST_F( EthIntfCounterReaderSm, showsThePortsThatWereThereAndThoseThatComeAndGo ) {
   count( et1, 5 );
   reader->handleInitialized();
   EXPECT_EQ( "et1 5;", ports() );
   count( et2, 7 );
   EXPECT_EQ( "et1 5;et2 7;", ports() );
   pool->intfDel( et1 );
   EXPECT_EQ( "et2 7;", ports() );
}

TEST_F( EthIntfCounterReaderSm, showsWhatThePoolHoldsNow ) {
   count( et1, 5 );
   reader->handleInitialized();
   count( et1, 6 );
   EXPECT_EQ( "et1 6;", ports() );
}

TEST_F( EthIntfCounterReaderSm, followsAPortThatComesBack ) {
   reader->handleInitialized();
   count( et1, 5 );
   pool->intfDel( et1 );
   count( et1, 1 );
   EXPECT_EQ( "et1 1;", ports() );
}

TEST_F( EthIntfCounterReaderSm, mayBeInitializedAgain ) {
   count( et1, 5 );
   reader->handleInitialized();
   const auto * counters = dir().intfCounterDir( et1 );
   reader->handleInitialized();
   EXPECT_EQ( "et1 5;", ports() );
   EXPECT_EQ( counters, dir().intfCounterDir( et1 ) );
   EXPECT_EQ( 1u, pool->velReactors() );
}

TEST_F( EthIntfCounterReaderSm, acceptsTheOlderLayoutAtAnyTime ) {
   reader->enableLegacyShmemManSupport();
   reader->handleInitialized();
   reader->enableLegacyShmemManSupport();
   count( et1, 5 );
   EXPECT_EQ( "et1 5;", ports() );
}

TEST_F( EthIntfCounterReaderSm, givesTheSameDirectoryForItsWholeLife ) {
   const AllEthIntfCounterPtrDir * before = &dir();
   reader->handleInitialized();
   EXPECT_EQ( before, &dir() );
}

TEST_F( EthIntfCounterReaderSm, itsDirectoryOutlivesIt ) {
   count( et1, 5 );
   reader->handleInitialized();
   const Vel::Ptr< const AllEthIntfCounterPtrDir > kept = reader->allEthIntfCounterPtrDir();
   reader = nullptr;
   EXPECT_EQ( 0u, pool->velReactors() );
   count( et1, 6 );
   count( et2, 7 );
   EXPECT_EQ( "et1 6;", portsOf( *kept ) );
   pool = nullptr;
   EXPECT_EQ( "et1 6;", portsOf( *kept ) );
}

TEST_F( EthIntfCounterReaderSm, readersOfOnePoolDoNotDisturbEachOther ) {
   const auto other = Interface::EthIntfCounterReaderSm::EthIntfCounterReaderSmIs( pool, nullptr );
   other->handleInitialized();
   count( et1, 5 );
   EXPECT_EQ( "", ports() );
   EXPECT_EQ( "et1 5;", portsOf( *other->allEthIntfCounterPtrDir() ) );
}

TEST_F( EthIntfCounterReaderSm, needsAPoolAndNoDirectoryOfWriters ) {
   EXPECT_THROW(
      Interface::EthIntfCounterReaderSm::EthIntfCounterReaderSmIs( nullptr, nullptr ), Vel::RangeError );
   const auto writers = Vel::make< Vel::Dir >();
   const auto second = Interface::EthIntfCounterReaderSm::EthIntfCounterReaderSmIs( pool, writers );
   EXPECT_EQ( writers.get(), second->writerStatusDir().get() );
}

} // namespace
