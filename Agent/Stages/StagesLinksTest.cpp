#include "Agent/Stages/StagesRigTest.h"

#include <set>

/// A way back waits for the links that it has let go of.
namespace {

using Agent::Stages;
using Maintenance::Unit::UnitState;

class LinksStory : public Agent::StagesStory {
 protected:
   LinksStory() {
      for ( const char * link : { "et1", "et2" } )
         member( link )->stateIs( Maintenance::monIntfStateUnderMaint );
      asks();
      clock->commitHookIs( [this] {
         if ( stages )
            stages->turnEnds();
         return true;
      } );
   }
   /// A restart makes another one that has to be told whom to ask.
   void asks() {
      stages->comesBackIs( [this]( const Wire::IntfId & intf ) { return comeBack.count( intf ) > 0; } );
      stages->goesOnWithoutIs( [this]( const Vel::String & unitName, const Stages::Links & links ) {
         for ( const Wire::IntfId & intf : links )
            wentOnWithout.push_back( Vel::text( unitName, ": ", intf.name() ) );
      } );
   }
   /// The plug-in has let go of both.
   void letGo() {
      comeBack = { et1, et2 };
      complete();
      clock->runUntilIdle();
   }
   void backIs( const Wire::IntfId & intf ) {
      comeBack.erase( intf );
      clock->post( [] {} );
      clock->runUntilIdle();
   }
   std::vector< Vel::String > awaited() const {
      std::vector< Vel::String > result;
      for ( const Wire::IntfId & intf : stages->linksAwaited( "u1" ) )
         result.emplace_back( intf.name() );
      return result;
   }

   using Names = std::vector< Vel::String >;
   const Wire::IntfId et1 = Wire::EthIntfId( "et1" ), et2 = Wire::EthIntfId( "et2" );
   std::set< Wire::IntfId > comeBack;
   Names wentOnWithout;
};

TEST_F( LinksStory, isNotNormalBeforeTheLastLinkIsBack ) {
   toMaintenance();
   ASSERT_FALSE( exit() );
   letGo();
   EXPECT_EQ( UnitState::exitInProgress, unit().state() );
   EXPECT_EQ( "drainwatch", stages->stage( "u1" ) );
   EXPECT_EQ( ( Names{ "et1", "et2" } ), awaited() );
   clock->advance( 2 );
   backIs( et1 );
   EXPECT_EQ( UnitState::exitInProgress, unit().state() );
   EXPECT_EQ( Names{ "et2" }, awaited() );
   backIs( et2 );
   EXPECT_EQ( UnitState::normal, unit().state() );
   EXPECT_EQ( Names(), awaited() );
   EXPECT_EQ( Names(), wentOnWithout );
}

TEST_F( LinksStory, isNormalAtOnceIfNoLinkComesBack ) {
   toMaintenance();
   ASSERT_FALSE( exit() );
   complete();
   clock->runUntilIdle();
   EXPECT_EQ( UnitState::normal, unit().state() );
}

TEST_F( LinksStory, beginsTheStageBehindWhenAllLinksAreBackAndEndsTheWatchingThen ) {
   stages->unitIs( "u1", { { "drainwatch" }, { "drainwatch", "steer" } } );
   toMaintenance();
   ASSERT_FALSE( exit() );
   letGo();
   clock->advance( 3 );
   EXPECT_EQ( "drainwatch", stages->stage( "u1" ) );
   EXPECT_EQ( nullptr, run().stageEnd( "drainwatch" ) );
   comeBack.clear();
   backIs( et1 );
   EXPECT_EQ( "steer", stages->stage( "u1" ) );
   ASSERT_NE( nullptr, run().stageEnd( "drainwatch" ) );
   EXPECT_EQ( clock->currentTime(), *run().stageEnd( "drainwatch" ) );
   EXPECT_EQ( clock->currentTime(), *run().stageStart( "steer" ) );
}

/// What a stage behind does to links is its own business.
TEST_F( LinksStory, waitsOnceOnly ) {
   stages->unitIs( "u1", { { "drainwatch" }, { "drainwatch", "steer" } } );
   toMaintenance();
   ASSERT_FALSE( exit() );
   complete();
   clock->runUntilIdle();
   ASSERT_EQ( "steer", stages->stage( "u1" ) );
   comeBack = { et1 };
   complete( "steer" );
   clock->runUntilIdle();
   EXPECT_EQ( UnitState::normal, unit().state() );
}

TEST_F( LinksStory, goesOnWithoutLinksThatAreNotBackInTimeAndSaysSo ) {
   toMaintenance();
   ASSERT_FALSE( exit() );
   letGo();
   backIs( et1 );
   clock->advance( Stages::linksPatience - 1 );
   EXPECT_EQ( UnitState::exitInProgress, unit().state() );
   EXPECT_EQ( Names(), wentOnWithout );
   clock->advance( 2 );
   EXPECT_EQ( UnitState::normal, unit().state() );
   EXPECT_EQ( Names{ "u1: et2" }, wentOnWithout );
   EXPECT_EQ( Names(), awaited() );
   // The next way back has all its time again.
   toMaintenance();
   ASSERT_FALSE( exit() );
   letGo();
   clock->advance( 5 );
   EXPECT_EQ( UnitState::exitInProgress, unit().state() );
}

TEST_F( LinksStory, goesOnInTimeOfItsOwnAccord ) {
   toMaintenance();
   ASSERT_FALSE( exit() );
   letGo();
   const double since = clock->currentTime();
   clock->advance( 5 * Stages::linksPatience );
   EXPECT_EQ( UnitState::normal, unit().state() );
   EXPECT_NEAR( since + Stages::linksPatience, run().since(), 1 );
}

TEST_F( LinksStory, goesOnInTimeAlsoWhileTimersDoNotRun ) {
   toMaintenance();
   ASSERT_FALSE( exit() );
   letGo();
   clock->timersMayRunIs( [] { return false; } );
   clock->advance( Stages::linksPatience + 1 );
   clock->post( [] {} );
   clock->runUntilIdle();
   EXPECT_EQ( UnitState::normal, unit().state() );
}

TEST_F( LinksStory, waitsAfterACancelledEnterToo ) {
   ASSERT_FALSE( enter() );
   ASSERT_FALSE( exit() );
   letGo();
   EXPECT_EQ( UnitState::exitInProgress, unit().state() );
   comeBack.clear();
   backIs( et1 );
   EXPECT_EQ( UnitState::normal, unit().state() );
}

TEST_F( LinksStory, waitsForLinksOfTheUnitOnly ) {
   toMaintenance();
   ASSERT_FALSE( exit() );
   comeBack = { Wire::EthIntfId( "et9" ) };
   complete();
   clock->runUntilIdle();
   EXPECT_EQ( UnitState::normal, unit().state() );
}

TEST_F( LinksStory, doesNotWaitOnTheWayIn ) {
   comeBack = { et1 };
   toMaintenance();
   EXPECT_EQ( Names(), awaited() );
}

TEST_F( LinksStory, refusesAnEnterWhileItWaits ) {
   toMaintenance();
   ASSERT_FALSE( exit() );
   letGo();
   const auto refused = enter();
   ASSERT_TRUE( refused );
   EXPECT_EQ( "unit u1 is on its way back; wait until it is normal", refused->message );
   EXPECT_EQ( UnitState::exitInProgress, unit().state() );
}

TEST_F( LinksStory, waitsOnWithAnAgentThatIsStartedAgain ) {
   toMaintenance();
   ASSERT_FALSE( exit() );
   letGo();
   stages.reset();
   stages = std::make_unique< Stages >( clock, wheel, model );
   stages->unitIs( "u1", { { "drainwatch" }, { "drainwatch" } } );
   asks();
   stages->resume();
   clock->advance( 3 );
   EXPECT_EQ( UnitState::exitInProgress, unit().state() );
   EXPECT_EQ( ( Names{ "et1", "et2" } ), awaited() );
   comeBack.clear();
   backIs( et1 );
   EXPECT_EQ( UnitState::normal, unit().state() );
}

} // namespace
