#include "Platform/Vel/Clock.h"
#include "Platform/Vel/Log.h"
#include "Platform/Vel/Trace.h"

#include <gtest/gtest.h>

#include <limits>
#include <thread>

namespace {

struct Thing : Vel::PtrInterface {
   explicit Thing( int & alive ) : alive( alive ) { ++alive; }
   ~Thing() override { --alive; }
   int & alive;
};

struct SelfPointing : Vel::PtrInterface {
   explicit SelfPointing( int & deaths ) : deaths( deaths ) { touch(); }
   ~SelfPointing() override {
      touch();
      ++deaths;
   }
   void touch() { const Vel::Ptr< SelfPointing > self( this ); }
   int & deaths;
};

struct Throwing : Vel::PtrInterface {
   Throwing() { throw Vel::InternalException( "no" ); }
};

TEST( Ptr, destroysTheObjectWithItsLastPointer ) {
   int alive = 0;
   {
      auto a = Vel::make< Thing >( alive );
      Vel::Ptr< const Thing > b = a;
      EXPECT_EQ( 2u, a->getRefCount() );
      a = nullptr;
      EXPECT_EQ( 1, alive );
   }
   EXPECT_EQ( 0, alive );
}

TEST( Ptr, mayBeMadeInConstructorAndDestructor ) {
   int deaths = 0;
   Vel::make< SelfPointing >( deaths );
   EXPECT_EQ( 1, deaths );
}

TEST( Ptr, survivesAThrowingConstructor ) { EXPECT_THROW( Vel::make< Throwing >(), Vel::InternalException ); }

TEST( Ptr, movesWithoutCounting ) {
   int alive = 0;
   auto a = Vel::make< Thing >( alive );
   auto b = std::move( a );
   EXPECT_FALSE( a );
   EXPECT_EQ( 1u, b->getRefCount() );
}

TEST( Ptr, isValidOrSaysSo ) {
   EXPECT_THROW(
      {
         try {
            Vel::validPtr( Vel::Ptr< Thing >() );
         } catch ( const Vel::RangeError & e ) {
            EXPECT_STREQ( "null ValidPtr", e.what() );
            throw;
         }
      },
      Vel::RangeError );
}

TEST( Ptr, countsAtomicallyWhenTheProcessHasChosenSo ) {
   Vel::threadSafePointersIs( true );
   int alive = 0;
   {
      const auto a = Vel::make< Thing >( alive );
      std::vector< std::thread > threads;
      for ( int t = 0; t < 4; ++t )
         threads.emplace_back( [&] {
            for ( int i = 0; i < 100000; ++i )
               const Vel::Ptr< Thing > copy = a;
         } );
      for ( std::thread & thread : threads )
         thread.join();
      EXPECT_EQ( 1u, a->getRefCount() );
   }
   EXPECT_EQ( 0, alive );
   Vel::threadSafePointersIs( false );
}

TEST( Text, isTheShortestThatGivesTheValueBack ) {
   EXPECT_EQ(
      "30 12.5 1700000005 0.1 1 0 -3",
      Vel::text( 30.0, " ", 12.5, " ", 1700000005.0, " ", 0.1, " ", true, " ", false, " ", -3 ) );
   EXPECT_EQ(
      "nan inf",
      Vel::text(
         std::numeric_limits< double >::quiet_NaN(), " ", std::numeric_limits< double >::infinity() ) );
   EXPECT_EQ( "18446744073709551615", Vel::text( std::numeric_limits< Vel::U64 >::max() ) );
}

TEST( NameInUse, namesAttributeAndBothValues ) {
   EXPECT_STREQ(
      "Reinstantiating the pointer interface where constructor parameter attribute _rootSm has a different "
      "value of "
      "a than the current value of b not allowed",
      Vel::NameInUse( "_rootSm", "a", "b" ).what() );
}

TEST( Assert, carriesTheTextOfTheCondition ) {
   const Vel::AssertionsThrow hook;
   try {
      VEL_ASSERT( 1 == 2, "1 == 2" );
      FAIL();
   } catch ( const Vel::AssertionFailed & e ) {
      EXPECT_STREQ( "1 == 2", e.what() );
   }
}

TEST( AssertDeathTest, endsTheProcessWithTheText ) {
   GTEST_FLAG_SET( death_test_style, "threadsafe" );
   EXPECT_DEATH( VEL_ASSERT( false, "!unitMon( unitName )" ), "assertion failed: !unitMon\\( unitName \\)" );
}

Vel::TraceFacility facility( "TraceTest" );
Vel::TraceFacility otherFacility( "OtherTest" );

int formatted = 0;
struct Expensive {};
[[maybe_unused]] Vel::String stringValue( const Expensive & ) {
   ++formatted;
   return "costly";
}

TEST( Trace, isFormattedOnlyWhenItsLevelIsOn ) {
   formatted = 0;
   facility.levelIs( 4 );
   std::string out;
   Vel::traceSinkIs(
      []( void * context, const Vel::TraceFacility & f, int level, std::string_view text ) {
         *static_cast< std::string * >( context ) += Vel::text( f.name(), " ", level, " ", text, ";" );
      },
      &out );
   VEL_TRACE( facility, 5, Expensive() );
   EXPECT_EQ( 0, formatted );
   VEL_TRACE( facility, 4, "is ", Expensive() );
   EXPECT_EQ( "TraceTest 4 is costly;", out );
   facility.levelIs( -1 );
   VEL_TRACE( facility, 0, Expensive() );
   EXPECT_EQ( 1, formatted );
   Vel::traceSinkIs( nullptr, nullptr );
}

TEST( Trace, isSwitchedByNameAlsoForFacilitiesToCome ) {
   EXPECT_EQ( 1u, Vel::TraceFacility::levelIs( "TraceTest", 7 ) );
   EXPECT_EQ( 7, facility.level() );
   EXPECT_EQ( -1, otherFacility.level() );
   EXPECT_EQ( 0u, Vel::TraceFacility::levelIs( "LaterTest", 3 ) );
   const Vel::TraceFacility later( "LaterTest" );
   EXPECT_EQ( 3, later.level() );
   Vel::TraceFacility::levelIs( "*", -1 );
   EXPECT_EQ( -1, facility.level() );
}

TEST( TraceCapture, takesEveryLevelUpToItsOwnAndPutsLevelsBack ) {
   facility.levelIs( 2 );
   {
      Vel::TraceCapture capture( 5 );
      VEL_TRACE( facility, 5, "five" );
      VEL_TRACE( facility, 9, "nine" );
      EXPECT_TRUE( capture.has( "five", 5 ) );
      EXPECT_FALSE( capture.has( "five", 4 ) );
      EXPECT_FALSE( capture.has( "nine" ) );
   }
   EXPECT_EQ( 2, facility.level() );
   facility.levelIs( -1 );
}

TEST( LogHandle, putsItsArgumentsInPlace ) {
   const Vel::LogHandle handle(
      "TEST_MSG", Vel::LogSeverity::notice, "For %s, %s (was %s)", "why", Vel::NoActionRequired, 0.0, 1.0,
      0 );
   Vel::LogCapture capture;
   handle.emit( Vel::String( "et1" ), "new", "old" );
   ASSERT_EQ( 1u, capture.lines().size() );
   EXPECT_EQ( "For et1, new (was old)", capture.lines()[0].text );
   EXPECT_EQ( "TEST_MSG", capture.lines()[0].name );
   EXPECT_EQ( 5, static_cast< int >( capture.lines()[0].severity ) );
}

TEST( LogHandle, keepsWhatItsWriterMayGoBy ) {
   const Vel::LogHandle handle( "TEST_MSG", Vel::LogSeverity::notice, "", "", "", 2.5, 0.5, 4 );
   EXPECT_EQ( 2.5, handle.minInterval() );
   EXPECT_EQ( 0.5, handle.share() );
   EXPECT_EQ( 4, handle.flags() );
}

TEST( System, hasNoTimeWithoutAClock ) { EXPECT_EQ( 0, Vel::System::currentTime() ); }

} // namespace
