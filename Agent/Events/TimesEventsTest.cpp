#include "Agent/Events/TimesEvents.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Agent {
namespace {

using Maintenance::Unit::UnitState;
using nlohmann::json;

class TimesEventsTest : public testing::Test {
 protected:
   TimesEventsTest() {
      units->statusIs( "u1" )->stateIs( UnitState::enterInProgress );
      units->status( "u1" )->genIdIs( 7 );
      told->unitIs( "u1" );
   }
   UnitTimes & times() { return *dir->unitIs( "u1" ); }
   /// What has been told since the last time, looked at twice: nothing is told twice.
   std::vector< json > look() {
      events.look();
      events.look();
      std::vector< json > result;
      for ( ; seen < log->last(); ++seen )
         result.push_back( json::parse( log->event( seen + 1 )->json ) );
      return result;
   }

   static constexpr double now = 1.7e9;
   Vel::Ptr< Maintenance::Unit::StatusDir > units = Vel::make< Maintenance::Unit::StatusDir >();
   Vel::Ptr< UnitTimesDir > dir = Vel::make< UnitTimesDir >();
   Vel::Ptr< EventLog > log = Vel::make< EventLog >();
   Vel::Ptr< EventsTold > told = Vel::make< EventsTold >();
   std::vector< std::string > wrong; ///< what somebody should look at
   EventWriter writer{
      log, [] { return now + 3600; },
      [this]( const EventWriter::About & about ) {
         if ( about.wrong )
            wrong.push_back( about.what );
      } };
   TimesEvents events{ writer, { units, dir, told }, { [] { return now; }, [] { return now + 3600; } } };
   Vel::U64 seen = 0;
};

TEST_F( TimesEventsTest, timesAreToldWhenTheyAreSet ) {
   times().deadlineAfterIs( 60 );
   times().deadlineIs( now + 60 );
   times().restoreIs( true );
   times().revertAfterIs( 7200 );
   times().revertAtIs( now + 7200 );
   const auto events = look();
   ASSERT_EQ( 1u, events.size() );
   EXPECT_EQ( "times", events[0].at( "what" ) );
   EXPECT_EQ( "unit", events[0].at( "type" ) );
   EXPECT_EQ( "2023-11-14T23:14:20.000Z", events[0].at( "deadline" ) );
   EXPECT_EQ( "restore", events[0].at( "on-overrun" ) );
   EXPECT_EQ( "2023-11-15T01:13:20.000Z", events[0].at( "revert-at" ) );
   EXPECT_TRUE( events[0].at( "doubt" ).is_null() );
   EXPECT_EQ(
      "u1 is to be under maintenance by 2023-11-14T23:14:20.000Z or else goes back, and goes back at "
      "2023-11-15T01:13:20.000Z",
      events[0].at( "text" ) );
}

TEST_F( TimesEventsTest, anotherBootIsNoChangeUnlessItIsInDoubt ) {
   times().revertAfterIs( 7200 );
   times().revertAtIs( now + 7200 );
   look();
   times().revertAtIs( now + 3000 );
   EXPECT_EQ( 0u, look().size() );
   times().doubtIs( "behind" );
   const auto events = look();
   ASSERT_EQ( 1u, events.size() );
   EXPECT_EQ( "behind", events[0].at( "doubt" ) );
}

TEST_F( TimesEventsTest, timeThatIsTakenAwayIsTold ) {
   times().revertAfterIs( 7200 );
   times().revertAtIs( now + 7200 );
   look();
   dir->unitDel( "u1" );
   const auto events = look();
   ASSERT_EQ( 1u, events.size() );
   EXPECT_EQ( "u1 has no times set any more", events[0].at( "text" ) );
   EXPECT_TRUE( events[0].at( "revert-at" ).is_null() );
}

TEST_F( TimesEventsTest, deadlineThatIsMetSaysNothing ) {
   times().deadlineAfterIs( 60 );
   times().deadlineIs( now + 60 );
   look();
   units->status( "u1" )->stateIs( UnitState::maintenance );
   dir->unitDel( "u1" );
   EXPECT_EQ( 0u, look().size() );
}

TEST_F( TimesEventsTest, timesThatEndWithTheMaintenanceSayNothing ) {
   times().revertAfterIs( 60 );
   times().revertAtIs( now + 60 );
   look();
   units->status( "u1" )->stateIs( UnitState::exitInProgress );
   dir->unitDel( "u1" );
   EXPECT_EQ( 0u, look().size() );
}

TEST_F( TimesEventsTest, overrunIsToldOnceForEachDeadline ) {
   times().deadlineAfterIs( 60 );
   times().deadlineIs( now );
   look();
   times().overrunIs( now );
   auto events = look();
   ASSERT_EQ( 1u, events.size() );
   EXPECT_EQ( "overrun", events[0].at( "what" ) );
   EXPECT_EQ( "2023-11-14T23:13:20.000Z", events[0].at( "deadline" ) );
   EXPECT_EQ( "keep", events[0].at( "on-overrun" ) );
   EXPECT_EQ( 7, events[0].at( "generation" ) );
   EXPECT_EQ( "u1 is not under maintenance within 1m00s, and goes on", events[0].at( "text" ) );
   times().overrunIs( now + 1000 );
   EXPECT_EQ( 0u, look().size() ) << "the same in the time of another boot";
   times().overrunIs( 0 );
   times().deadlineAfterIs( 90 );
   EXPECT_EQ( 1u, look().size() );
   times().overrunIs( now + 2000 );
   events = look();
   ASSERT_EQ( 1u, events.size() );
   EXPECT_EQ( "overrun", events[0].at( "what" ) );
   EXPECT_EQ( ( std::vector< std::string >{ "overrun", "overrun" } ), wrong );
}

} // namespace
} // namespace Agent
