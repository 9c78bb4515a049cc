#include "Agent/Control/ControlApiRigTest.h"
#include "Agent/Control/EnterTimes.h"

#include <nlohmann/json.hpp>

#include <optional>

namespace Agent {
namespace {

using Maintenance::Unit::UnitState;
using nlohmann::json;

class ControlApiTimes : public ControlApiRig {
 protected:
   ControlApiTimes() {
      commands.enter = [this]( const std::string &, const ControlCommands::Request & request ) {
         times = request.times;
         return ControlCommands::Taken{ refusal };
      };
      api = std::make_unique< ControlApi >( rig.model(), commands );
   }
   /// As the times of a unit that enters.
   UnitTimes & timesOf( const char * unit ) {
      rig.unit( unit ).stateIs( UnitState::enterInProgress );
      return *rig.times->unitIs( unit );
   }
   json shown( const char * unit ) { return json::parse( got( std::string( "units/" ) + unit ) ); }

   std::optional< AskedTimes > times;
};

constexpr double now = ModelRig::now;

TEST_F( ControlApiTimes, enterHandsThemOn ) {
   EXPECT_EQ(
      202, post( "units/u1/enter", R"({"deadline":"10m","on-overrun":"restore","revert-after":7200})" ) );
   ASSERT_TRUE( times );
   EXPECT_EQ( 600, times->deadline );
   EXPECT_TRUE( times->restore );
   EXPECT_EQ( 7200, times->revertAfter );
}

TEST_F( ControlApiTimes, whatIsLeftOutIsNotAskedFor ) {
   for ( const char * body :
         { "{}", R"({"deadline":null,"on-overrun":null,"revert-after":null})", R"({"timeout":"5m"})" } ) {
      SCOPED_TRACE( body );
      times.reset();
      EXPECT_EQ( 202, post( "units/u1/enter", body ) );
      ASSERT_TRUE( times );
      EXPECT_TRUE( times->empty() );
   }
}

TEST_F( ControlApiTimes, unitIsKeptUnlessRestoringIsAskedFor ) {
   for ( const char * body : { R"({"deadline":"1s"})", R"({"deadline":"720h","on-overrun":"keep"})" } ) {
      SCOPED_TRACE( body );
      EXPECT_EQ( 202, post( "units/u1/enter", body ) );
      EXPECT_TRUE( times->deadline );
      EXPECT_FALSE( times->restore );
   }
}

TEST_F( ControlApiTimes, neverTakesATimeAway ) {
   EXPECT_EQ( 202, post( "units/u1/enter", R"({"deadline":"never","revert-after":"never"})" ) );
   EXPECT_EQ( AskedTimes::never, times->deadline );
   EXPECT_EQ( AskedTimes::never, times->revertAfter );
}

TEST_F( ControlApiTimes, whatMakesNoSenseIsRefusedAndNamed ) {
   for ( const auto & [body, where] :
         { std::pair( R"({"deadline":"0s"})", "deadline" ),
           std::pair( R"({"deadline":0})", "deadline" ),
           std::pair( R"({"deadline":-1})", "deadline" ),
           std::pair( R"({"deadline":0.5})", "deadline" ),
           std::pair( R"({"deadline":"721h"})", "deadline" ),
           std::pair( R"({"deadline":1e300})", "deadline" ),
           std::pair( R"({"deadline":2592001})", "deadline" ),
           std::pair( R"({"deadline":"10"})", "deadline" ),
           std::pair( R"({"deadline":"soon"})", "deadline" ),
           std::pair( R"({"deadline":""})", "deadline" ),
           std::pair( R"({"deadline":true})", "deadline" ),
           std::pair( R"({"deadline":[]})", "deadline" ),
           std::pair( R"({"revert-after":"0s"})", "revert-after" ),
           std::pair( R"({"revert-after":0})", "revert-after" ),
           std::pair( R"({"revert-after":"10000h"})", "revert-after" ),
           std::pair( R"({"revert-after":{}})", "revert-after" ),
           std::pair( R"({"on-overrun":"restore"})", "on-overrun" ),
           std::pair( R"({"deadline":"never","on-overrun":"keep"})", "on-overrun" ),
           std::pair( R"({"deadline":"1m","on-overrun":"go"})", "on-overrun" ),
           std::pair( R"({"deadline":"1m","on-overrun":1})", "on-overrun" ),
           std::pair( R"({"revertafter":"1m"})", "revertafter" ) } ) {
      SCOPED_TRACE( body );
      times.reset();
      EXPECT_EQ( 400, post( "units/u1/enter", body ) );
      EXPECT_EQ( "bad-request \"" + std::string( where ) + "\"", refused() );
      EXPECT_FALSE( times );
   }
}

TEST_F( ControlApiTimes, aRefusalSaysWhatThereIs ) {
   for ( const auto & [body, text] :
         { std::pair( R"({"deadline":"1m","on-overrun":"go"})", R"(is neither "keep" nor "restore")" ),
           std::pair( R"({"on-overrun":"restore"})", R"(needs a "deadline")" ),
           std::pair( R"({"deadline":0})", R"(is out of range; it is 1s to 720h, or "never")" ) } ) {
      EXPECT_EQ( 400, post( "units/u1/enter", body ) );
      const std::string message = json::parse( reply.body ).at( "error" ).at( "message" );
      EXPECT_NE( std::string::npos, message.find( text ) ) << message;
   }
}

TEST_F( ControlApiTimes, exitTakesNone ) {
   for ( const char * member : { "deadline", "on-overrun", "revert-after" } ) {
      EXPECT_EQ( 400, post( "units/u1/exit", json{ { member, "10m" } }.dump() ) );
      EXPECT_EQ( "bad-request \"" + std::string( member ) + "\"", refused() );
   }
}

TEST_F( ControlApiTimes, unitWithoutTimesShowsNone ) {
   EXPECT_EQ(
      json::parse(
         R"({"deadline":null,"deadline-left-seconds":null,"on-overrun":null,"overrun":null,"revert-at":null,
             "revert-left-seconds":null,"doubt":null})" ),
      shown( "u1" ).at( "times" ) );
}

TEST_F( ControlApiTimes, unitShowsWhenAndHowLongUntilThen ) {
   UnitTimes & set = timesOf( "u1" );
   set.deadlineIs( now + 90 );
   set.restoreIs( true );
   set.revertAtIs( now + 3600 );
   const json unit = shown( "u1" );
   EXPECT_EQ(
      json::parse(
         R"({"deadline":"2023-11-14T23:14:50.000Z","deadline-left-seconds":90.0,"on-overrun":"restore",
             "overrun":null,"revert-at":"2023-11-15T00:13:20.000Z","revert-left-seconds":3600.0,"doubt":null})" ),
      unit.at( "times" ) );
   EXPECT_NE(
      std::string::npos, unit.at( "sentence" )
                            .get< std::string >()
                            .find( "; goes back if it is not there in 1m30s; goes back in 1h00m" ) )
      << unit.at( "sentence" );
}

TEST_F( ControlApiTimes, overrunIsShownWithNothingLeft ) {
   UnitTimes & set = timesOf( "u1" );
   set.deadlineIs( now - 60 );
   set.overrunIs( now - 59 );
   set.doubtIs( "behind" );
   const json unit = shown( "u1" );
   EXPECT_EQ(
      json::parse(
         R"({"deadline":"2023-11-14T23:12:20.000Z","deadline-left-seconds":null,"on-overrun":"keep",
             "overrun":"2023-11-14T23:12:21.000Z","revert-at":null,"revert-left-seconds":null,"doubt":"behind"})" ),
      unit.at( "times" ) );
   EXPECT_NE( std::string::npos, unit.at( "sentence" ).get< std::string >().find( "; too late by 1m00s" ) )
      << unit.at( "sentence" );
}

TEST_F( ControlApiTimes, unitUnderMaintenanceSaysWhenItGoesBackAndNotThatItWasLate ) {
   UnitTimes & set = timesOf( "u1" );
   rig.unit( "u1" ).stateIs( UnitState::maintenance );
   set.deadlineIs( now - 60 );
   set.overrunIs( now - 59 );
   set.revertAtIs( now + 30 );
   const std::string sentence = shown( "u1" ).at( "sentence" );
   EXPECT_NE( std::string::npos, sentence.find( "; goes back in 30s" ) ) << sentence;
   EXPECT_EQ( std::string::npos, sentence.find( "late" ) ) << sentence;
}

} // namespace
} // namespace Agent
