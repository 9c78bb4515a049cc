#include "Maintctl/Waiting.h"
#include "Maintctl/RigTest.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Maintctl {

namespace {

/// A unit that can be moved along, and what the agent says of it.
class WaitingTest : public testing::Test {
 protected:
   void SetUp() override {
      accepted( "enter", "entering" );
      accepted( "exit", "exiting" );
   }

   void accepted( const std::string & operation, const std::string & state ) {
      rig.client.answers(
         "POST /api/v1/units/a/" + operation, R"({"unit":"a","generation":3,"state":")" + state + "\"}",
         202 );
   }

   static std::string unit( const std::string & state, unsigned drained, const std::string & more = "" ) {
      return R"({"name":"a","state":")" + state + R"(","generation":3,"interfaces":{"total":5,"drained":)" +
             std::to_string( drained ) + "}" + more + "}";
   }

   /// The unit is so from this time on.
   void from( double time, const std::string & body ) {
      const auto begin = [this, body] { rig.client.replaces( "GET /api/v1/units/a", body ); };
      if ( time == 0 )
         begin();
      else
         rig.pace.at( time, begin );
   }
   void explains( const std::string & waiting, const std::string & more = "" ) {
      rig.client.replaces(
         "GET /api/v1/units/a/explain",
         R"({"unit":"a","state":"entering","stuck":false,"skipped":[],"waiting":[)" + waiting + "]" + more +
            "}" );
   }

   Rig rig;
};

constexpr char busy[] =
   R"({"interface":"et1","in-bps":12300000,"out-bps":11000000,"threshold-bps":100000,"load-interval-seconds":10,"quiet-seconds":0})";
constexpr char lessBusy[] =
   R"({"interface":"et2","in-bps":0,"out-bps":500000,"threshold-bps":100000,"load-interval-seconds":10,"quiet-seconds":0})";
constexpr char quiet[] =
   R"({"interface":"et3","in-bps":0,"out-bps":500,"threshold-bps":100000,"load-interval-seconds":10,"quiet-seconds":5})";
constexpr char failedStage[] =
   R"(,"stages":[{"name":"drainwatch","state":"complete","text":"is complete"},{"name":"steer","state":"failed","failure":"ended with 1: no daemon","text":"failed: ended with 1: no daemon; the next stage began all the same"}])";
constexpr char unknown[] = R"({"interface":"et4"})";

TEST_F( WaitingTest, enterEndsWhenTheUnitIsUnderMaintenance ) {
   from( 0, unit( "entering", 3 ) );
   from( 20, unit( "maintenance", 5 ) );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "a is under maintenance after 20s\n" );
   EXPECT_EQ( rig.client.requests.front(), "POST /api/v1/units/a/enter {}" );
   EXPECT_EQ( rig.pace.now(), 20 );
}

TEST_F( WaitingTest, namesLinksThatCouldNotBeShutInTheLastLine ) {
   from( 0, unit( "entering", 3 ) );
   from(
      7,
      unit( "maintenance", 5, R"(,"not-shut":[{"interface":"et1","problem":"Operation not permitted"}])" ) );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "a is under maintenance after 7s; et1 could not be shut: Operation not permitted\n" );
}

TEST_F( WaitingTest, exitEndsWhenTheUnitIsNormal ) {
   from( 0, unit( "exiting", 3 ) );
   from( 2, unit( "normal", 0 ) );
   EXPECT_EQ( rig.run( { "exit", "a", "--wait", "--reason", "done" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "a is normal after 2s\n" );
   EXPECT_EQ( rig.client.requests.front(), R"(POST /api/v1/units/a/exit {"reason":"done"})" );
}

TEST_F( WaitingTest, tellsOfAStageThatFailsOnTheWayBackWhichIsNoFailureOfTheExit ) {
   from( 0, unit( "exiting", 3, R"(,"stage":"drainwatch")" ) );
   from( 2, unit( "exiting", 0, R"(,"stage":"last")" + std::string( failedStage ) ) );
   from( 4, unit( "normal", 0, failedStage ) );
   EXPECT_EQ( rig.run( { "exit", "a", "--wait" } ), ExitStatus::done );
   EXPECT_EQ(
      rig.err, "a exiting: 3 of 5 drained, stage drainwatch\n"
               "a: stage steer failed: ended with 1: no daemon; the next stage began all the same\n"
               "a exiting: 0 of 5 drained, stage last\n" );
   EXPECT_EQ( rig.out, "a is normal after 4s; stage steer failed: ended with 1: no daemon\n" );
}

TEST_F( WaitingTest, tellsOfAStageThatHasFailedLastAndOfEachRunsOwn ) {
   from( 0, unit( "entering", 3, failedStage ) );
   explains( "" );
   from(
      2, R"({"name":"a","state":"normal","generation":4,"interfaces":{"total":0,"drained":0})" +
            std::string( failedStage ) + "}" );
   EXPECT_EQ( rig.run( { "wait", "a", "--for=normal" } ), ExitStatus::done );
   const auto lines = linesOf( rig.err );
   EXPECT_EQ( std::count( lines.begin(), lines.end(), lines.front() ), 2 );
   EXPECT_EQ(
      lines.front(), "a: stage steer failed: ended with 1: no daemon; the next stage began all the same" );
}

TEST_F( WaitingTest, leavesAFailedStageToTheDocumentIfJsonIsAskedFor ) {
   from( 0, unit( "normal", 0, failedStage ) );
   EXPECT_EQ( rig.run( { "exit", "a", "--wait", "-j" } ), ExitStatus::done );
   EXPECT_EQ( rig.err, "" );
   EXPECT_EQ( at( rig.out, "/stages/1/state" ), "\"failed\"" );
}

TEST_F( WaitingTest, looksTwiceASecond ) {
   from( 0, unit( "entering", 3 ) );
   from( 10, unit( "maintenance", 5 ) );
   EXPECT_EQ( rig.run( { "-j", "wait", "a", "--for=maintenance" } ), ExitStatus::done );
   EXPECT_EQ( rig.client.requests, std::vector< std::string >( 21, "GET /api/v1/units/a" ) );
}

TEST_F( WaitingTest, givesTheUnitAsJson ) {
   from( 0, unit( "maintenance", 5 ) );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait", "-j" } ), ExitStatus::done );
   EXPECT_EQ( at( rig.out, "/state" ), "\"maintenance\"" );
   EXPECT_EQ( at( rig.out, "/interfaces/drained" ), "5" );
}

TEST_F( WaitingTest, saysALineWhenSomethingChanges ) {
   from( 0, unit( "entering", 3 ) );
   explains( busy + std::string( "," ) + quiet );
   rig.pace.at( 5, [this] { explains( quiet ); } );
   from( 5, unit( "entering", 4 ) );
   rig.pace.at( 10, [this] { explains( "", R"(,"settle-remaining-seconds":9.5)" ); } );
   from( 10, unit( "entering", 5, R"(,"settling-since":"2023-11-14T22:13:20.000Z")" ) );
   from( 20, unit( "maintenance", 5 ) );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::done );
   EXPECT_EQ(
      rig.err, "a entering: 3 of 5 drained; slowest: et1 12.3 Mbps, et3 quiet 5s of 10s\n"
               "a entering: 4 of 5 drained; slowest: et3 quiet 5s of 10s\n"
               "a entering: 5 of 5 drained; settling, 10s to go\n" );
}

TEST_F( WaitingTest, drawsAPictureOnATerminalThatStays ) {
   rig.messages.able.draws = true;
   from( 0, unit( "exiting", 3, R"(,"stage":"drainwatch")" ) );
   rig.client.answers( "GET /api/v1/interfaces?unit=a", "[]" );
   from( 1, unit( "normal", 0 ) );
   EXPECT_EQ( rig.run( { "exit", "a", "--wait" } ), ExitStatus::done );
   EXPECT_EQ( rig.err, "" );
   EXPECT_EQ( rig.messages.shown(), "a  normal       ░░░░░░░░░░░░░░░░░░░  0/5\n" );
   EXPECT_TRUE( rig.messages.cursorShown );
}

TEST_F( WaitingTest, drawsTheSlowestInterfacesOnly ) {
   rig.messages.able.draws = true;
   from( 0, unit( "entering", 3, R"(,"stage":"drainwatch","sentence":"3 of 5 drained; et2 about 40 s")" ) );
   rig.client.answers( "GET /api/v1/interfaces?unit=a", R"([
      {"name":"et1","state":"under-maint","reason":{"code":"drained","text":"drained"}},
      {"name":"et2","state":"enter-maint","in-bps":812000,"out-bps":0,
       "reason":{"code":"above-threshold","threshold-bps":100000,"eta-seconds":39.5,"text":"812 kbit/s, about 40 s"}}])" );
   rig.pace.interruptAt( 2 );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::interrupted );
   EXPECT_EQ( "\n" + rig.messages.shown(), R"(
a  entering     ███████████▍░░░░░░░  3/5  stage drainwatch
  3 of 5 drained; et2 about 40 s
  et2    812 kbps > 100 kbps      40s                812 kbit/s, about 40 s
)" );
   EXPECT_EQ( rig.err, "maintctl: a: interrupted; the operation itself goes on\n" );
}

TEST_F( WaitingTest, saysFailedStagesAboveThePicture ) {
   rig.messages.able.draws = true;
   rig.client.answers( "GET /api/v1/interfaces?unit=a", "[]" );
   from( 0, unit( "exiting", 3 ) );
   from(
      2,
      unit(
         "exiting", 3, R"(,"stages":[{"name":"steer","state":"failed","text":"has failed: status 1"}])" ) );
   rig.pace.interruptAt( 4 );
   rig.run( { "exit", "a", "--wait" } );
   EXPECT_EQ(
      rig.messages.shown(), "a: stage steer has failed: status 1\na  exiting      ███████████▍░░░░░░░  3/5\n"
                            "  3 of 5 drained\n" );
}

TEST_F( WaitingTest, drawsThatTheAgentIsAway ) {
   rig.messages.able.draws = true;
   rig.client.answers( "GET /api/v1/interfaces?unit=a", "[]" );
   from( 0, unit( "entering", 3 ) );
   rig.pace.at( 5, [this] { rig.client.reachableIs( false ); } );
   std::string away;
   rig.pace.at( 8, [&] { away = rig.messages.shown(); } );
   rig.pace.at( 10, [this] { rig.client.reachableIs( true ); } );
   from( 12, unit( "maintenance", 5 ) );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::done );
   EXPECT_EQ( linesOf( away )[0], "stale: the agent cannot be reached: Connection refused" );
   EXPECT_TRUE( linesOf( away )[1].starts_with( "a  entering" ) ) << away;
   EXPECT_EQ( linesOf( rig.messages.shown() ).size(), 2 ); // nothing is left of what was said meanwhile
   EXPECT_TRUE( rig.messages.shown().starts_with( "a  maintenance" ) ) << rig.messages.shown();
   EXPECT_EQ( rig.err, "" );
}

TEST_F( WaitingTest, drawsThatTheAgentIsAwayAsSoonAsAnyQuestionIsNotAnswered ) {
   rig.messages.able.draws = true;
   rig.client.answers( "GET /api/v1/interfaces?unit=a", "[]" );
   from( 0, unit( "entering", 3, R"(,"sentence":"et1 stalled at 310 kbit/s since 14:02")" ) );
   std::string before, away;
   rig.pace.at( 4.9, [&] { before = rig.messages.shown(); } );
   rig.pace.at( 5, [this] {
      // The unit is told, then comes the question for the clock.
      rig.client.during( [this] { rig.client.during( [this] { rig.client.reachableIs( false ); } ); } );
   } );
   rig.pace.at( 5.25, [&] { away = rig.messages.shown(); } );
   rig.pace.at( 10, [this] { rig.client.reachableIs( true ); } );
   from( 12, unit( "maintenance", 5 ) );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::done );
   EXPECT_NE( std::string::npos, before.find( "et1 stalled at 310 kbit/s since 14:02 (UTC)\n" ) ) << before;
   EXPECT_EQ( linesOf( away )[0], "stale: the agent cannot be reached: Connection refused" );
}

TEST_F( WaitingTest, drawsThatAnAgentHangsWhenItDoesNotGiveTheFirstCurves ) {
   rig.messages.able.draws = true;
   rig.client.answers(
      "GET /api/v1/interfaces?unit=a",
      R"([{"name":"et1","units":["a"],"state":"enter-maint","in-bps":8,"out-bps":5,
         "reason":{"code":"stalled","text":"it stalls"}}])" );
   from( 0, unit( "entering", 3 ) );
   rig.client.hangsFrom( "/samples", [this]( unsigned seconds ) { rig.pace.sleep( seconds ); } );
   std::string shown;
   rig.pace.at( Remote::soon + 0.25, [&] { shown = rig.messages.shown(); } );
   rig.pace.interruptAt( 8 );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::interrupted );
   EXPECT_EQ( linesOf( shown )[0], "stale: the agent cannot be reached: no answer for 5 seconds" );
   EXPECT_NE( shown.find( "it stalls" ), std::string::npos ) << shown;
}

TEST_F( WaitingTest, saysLinesWhileAnotherJobHasTheTerminal ) {
   rig.messages.able.draws = true;
   rig.messages.ours = false;
   rig.client.answers( "GET /api/v1/interfaces?unit=a", "[]" );
   from( 0, unit( "exiting", 3, R"(,"stage":"drainwatch")" ) );
   from( 2, unit( "exiting", 0, failedStage ) );
   rig.pace.at( 5, [this] { rig.client.reachableIs( false ); } );
   rig.pace.at( 6, [this] { rig.client.reachableIs( true ); } );
   from( 8, unit( "normal", 0 ) );
   EXPECT_EQ( rig.run( { "exit", "a", "--wait" } ), ExitStatus::done );
   EXPECT_EQ(
      rig.err, "a exiting: 3 of 5 drained, stage drainwatch\n"
               "a: stage steer failed: ended with 1: no daemon; the next stage began all the same\n"
               "a exiting: 0 of 5 drained\n"
               "the agent does not answer; it may be starting again\n"
               "the agent is back\n" );
   EXPECT_TRUE( rig.messages.written.empty() );
}

TEST_F( WaitingTest, drawsAgainWhenItHasTheTerminalBack ) {
   rig.messages.able.draws = true;
   rig.client.answers( "GET /api/v1/interfaces?unit=a", "[]" );
   from( 0, unit( "exiting", 3 ) );
   rig.pace.at( 2, [this] { rig.messages.ours = false; } );
   from( 4, unit( "exiting", 1 ) );
   rig.pace.at( 6, [this] {
      rig.messages.ours = true;
      rig.messages.left = true;
   } );
   from( 8, unit( "normal", 0 ) );
   EXPECT_EQ( rig.run( { "exit", "a", "--wait" } ), ExitStatus::done );
   EXPECT_EQ( rig.err, "a exiting: 3 of 5 drained\na exiting: 1 of 5 drained\n" );
   EXPECT_TRUE( rig.messages.shown().ends_with( "a  normal       ░░░░░░░░░░░░░░░░░░░  0/5\n" ) )
      << rig.messages.shown();
}

TEST_F( WaitingTest, drawsNothingIfJsonIsAskedFor ) {
   rig.messages.able.draws = true;
   from( 0, unit( "entering", 3 ) );
   from( 1, unit( "maintenance", 5 ) );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait", "-j" } ), ExitStatus::done );
   EXPECT_EQ( rig.err, "" );
   EXPECT_TRUE( rig.messages.written.empty() );
}

TEST_F( WaitingTest, namesAUnitThatIsStuck ) {
   from( 0, unit( "entering", 5 ) );
   explains( "", R"(,"stuck":true,"stuck-reason":"no completion came")" );
   from( 1, unit( "maintenance", 5 ) );
   rig.run( { "enter", "a", "--wait" } );
   EXPECT_EQ( rig.err, "a entering: 5 of 5 drained; stuck: no completion came\n" );
}

TEST_F( WaitingTest, saysWhatItCanIfNothingIsExplained ) {
   from( 0, unit( "entering", 3 ) );
   rig.client.refuses( "GET /api/v1/units/a/explain", 503, "unavailable", "no plug-in", "a" );
   from( 1, unit( "maintenance", 5 ) );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::done );
   EXPECT_EQ( rig.err, "a entering: 3 of 5 drained\n" );
}

TEST_F( WaitingTest, endsWhenSomebodyElseTakesTheUnitBack ) {
   from( 0, unit( "entering", 3 ) );
   from( 3, unit( "exiting", 3, R"(,"by":"uid 0","reason":"wrong unit")" ) );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::notMet );
   EXPECT_EQ( rig.out, "" );
   EXPECT_EQ(
      linesOf( rig.err ).back(),
      "maintctl: a is exiting now: somebody else has decided so (uid 0: wrong unit)" );
   EXPECT_EQ( rig.pace.now(), 3 );
}

TEST_F( WaitingTest, endsWhenAUnitThatWasOnItsWayTurnsBack ) {
   from( 0, unit( "normal", 0 ) );
   from( 3, unit( "entering", 0 ) );
   from( 6, unit( "normal", 0 ) );
   EXPECT_EQ( rig.run( { "wait", "a", "--for=maintenance", "-j" } ), ExitStatus::notMet );
   EXPECT_EQ( at( rig.out, "/error/code" ), "\"condition-not-met\"" );
   EXPECT_EQ( at( rig.out, "/error/where" ), "\"a\"" );
   EXPECT_EQ( rig.pace.now(), 6 );
}

TEST_F( WaitingTest, endsWhenAnExitIsFollowedByAnEnter ) {
   from( 0, unit( "exiting", 0 ) );
   from( 1, unit( "entering", 0 ) );
   EXPECT_EQ( rig.run( { "exit", "a", "--wait" } ), ExitStatus::notMet );
}

TEST_F( WaitingTest, waitsForSomebodyToStart ) {
   from( 0, unit( "exiting", 0 ) );
   from( 3, unit( "normal", 0 ) );
   from( 6, unit( "entering", 0 ) );
   from( 9, unit( "maintenance", 5 ) );
   EXPECT_EQ( rig.run( { "wait", "a", "--for=maintenance" } ), ExitStatus::done );
   EXPECT_EQ( rig.pace.now(), 9 );
   EXPECT_EQ( linesOf( rig.err )[1], "a normal, not started yet" );
}

TEST_F( WaitingTest, timesOut ) {
   from( 0, unit( "entering", 3 ) );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait", "--timeout", "1m30s" } ), ExitStatus::notMet );
   EXPECT_EQ( rig.pace.now(), 90 );
   EXPECT_EQ( linesOf( rig.err ).back(), "maintctl: timed out after 1m30s: a is entering, 3 of 5 drained" );
   // Nothing was asked for but the enter itself.
   EXPECT_EQ(
      std::count_if(
         rig.client.requests.begin(), rig.client.requests.end(),
         []( const std::string & request ) { return request.starts_with( "POST" ); } ),
      1 );
}

TEST_F( WaitingTest, timesOutAsJson ) {
   from( 0, unit( "normal", 0 ) );
   EXPECT_EQ( rig.run( { "-j", "wait", "a", "--for=maintenance", "--timeout=2s" } ), ExitStatus::notMet );
   EXPECT_EQ( at( rig.out, "/error/code" ), "\"timed-out\"" );
   EXPECT_EQ( at( rig.out, "/error/message" ), "\"timed out after 2s: a is normal\"" );
}

TEST_F( WaitingTest, looksOnceWithATimeoutOfZero ) {
   from( 0, unit( "maintenance", 5 ) );
   EXPECT_EQ( rig.run( { "wait", "a", "--for=maintenance", "--timeout=0s" } ), ExitStatus::done );
   EXPECT_EQ( rig.run( { "wait", "a", "--for=normal", "--timeout=0s" } ), ExitStatus::notMet );
   EXPECT_EQ(
      std::count( rig.client.requests.begin(), rig.client.requests.end(), "GET /api/v1/units/a" ), 2 );
   EXPECT_EQ( rig.pace.now(), 0 );
}

TEST_F( WaitingTest, endsWhenInterruptedAndLeavesTheOperationAlone ) {
   from( 0, unit( "entering", 3 ) );
   rig.pace.interruptAt( 4 );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::interrupted );
   EXPECT_EQ( linesOf( rig.err ).back(), "maintctl: a: interrupted; the operation itself goes on" );
   EXPECT_EQ( rig.client.requests.back().substr( 0, 4 ), "GET " );
}

TEST_F( WaitingTest, givesAnAgentThatGoesAwayTheTimeToStartAgain ) {
   from( 0, unit( "entering", 3 ) );
   rig.pace.at( 5, [this] { rig.client.reachableIs( false ); } );
   rig.pace.at( 15, [this] { rig.client.reachableIs( true ); } );
   from( 17, unit( "maintenance", 5 ) );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::done );
   const auto lines = linesOf( rig.err );
   ASSERT_EQ( lines.size(), 3 );
   EXPECT_EQ( lines[1], "the agent does not answer; it may be starting again" );
   EXPECT_EQ( lines[2], "the agent is back" );
}

TEST_F( WaitingTest, givesUpAnAgentThatStaysAway ) {
   from( 0, unit( "entering", 3 ) );
   rig.pace.at( 5, [this] { rig.client.reachableIs( false ); } );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::notReachable );
   EXPECT_NEAR( rig.pace.now(), 5 + Waiting::patience, 1 );
}

TEST_F( WaitingTest, doesNotWaitForAnAgentThatWasNeverThere ) {
   rig.client.reachableIs( false );
   EXPECT_EQ( rig.run( { "wait", "a", "--for=normal" } ), ExitStatus::notReachable );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::notReachable );
   EXPECT_EQ( rig.pace.now(), 0 );
}

TEST_F( WaitingTest, failsForAUnitThatThereIsNot ) {
   rig.client.refuses( "GET /api/v1/units/b", 404, "not-found", "there is no unit b", "b" );
   EXPECT_EQ( rig.run( { "wait", "b", "--for=normal" } ), ExitStatus::failed );
   EXPECT_EQ( rig.err, "maintctl: there is no unit b\n" );
}

TEST_F( WaitingTest, doesNotWaitIfTheOperationIsRefused ) {
   rig.client.refuses( "POST /api/v1/units/b/enter", 409, "conflict", "b is exiting", "b" );
   EXPECT_EQ( rig.run( { "enter", "b", "--wait" } ), ExitStatus::failed );
   EXPECT_EQ( rig.client.requests.size(), 1 );
   EXPECT_EQ( rig.pace.now(), 0 );
}

TEST( Slowest, areTheBusiestThenThoseThatMustBeQuietLongest ) {
   const auto explanation = Api::readExplanation(
      R"({"unit":"a","state":"entering","waiting":[)" + std::string( unknown ) + "," + quiet + "," +
      lessBusy + "," + busy + "]}" );
   EXPECT_EQ( slowestText( explanation, 4 ), "et1 12.3 Mbps, et2 500 kbps, et3 quiet 5s of 10s, et4" );
   EXPECT_EQ( slowestText( explanation, 2 ), "et1 12.3 Mbps, et2 500 kbps and 2 more" );
   EXPECT_EQ( slowestText( {}, 3 ), "" );
}

} // namespace
} // namespace Maintctl
