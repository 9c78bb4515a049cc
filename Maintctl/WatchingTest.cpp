#include "Maintctl/Watching.h"

#include "Maintctl/Remote.h"
#include "Maintctl/RigTest.h"

#include <gtest/gtest.h>

namespace Maintctl {

namespace {

class WatchingTest : public testing::Test {
 protected:
   void SetUp() override {
      clockIs( "2023-11-14T22:13:20.400Z" );
      unitIs( "entering", 3 );
      interfaceIs( "et1", "above-threshold", "812 kbit/s, about 40 s" );
      rig.client.answers( "GET /api/v1/profiles", "[]" );
      rig.pace.interruptAt( 5 );
   }

   void clockIs( const std::string & time ) {
      rig.client.replaces( "GET /api/v1/agent", R"({"clock":")" + time + "\"}" );
   }
   void
   unitIs( const std::string & state, unsigned drained, const std::string & sentence = "3 of 5 drained" ) {
      const std::string unit = R"({"name":"a","state":")" + state +
                               R"(","interfaces":{"total":5,"drained":)" + std::to_string( drained ) +
                               R"(},"sentence":")" + sentence + "\"}";
      rig.client.replaces( "GET /api/v1/units/a", unit );
      rig.client.replaces( "GET /api/v1/units", "[" + unit + "]" );
   }
   void interfaceIs( const std::string & name, const std::string & code, const std::string & text ) {
      const std::string intf = R"({"name":")" + name +
                               R"(","units":["a"],"state":"enter-maint","link-state":"up",
         "in-bps":812000,"out-bps":5,"reason":{"code":")" +
                               code + R"(","threshold-bps":100000,"text":")" + text + "\"}}";
      rig.client.replaces( "GET /api/v1/interfaces", "[" + intf + "]" );
      rig.client.replaces( "GET /api/v1/interfaces?unit=a", "[" + intf + "]" );
      rig.client.replaces( "GET /api/v1/interfaces/" + name, intf );
   }
   /// In the second, what a drawing terminal shows.
   std::string shownAt( double time, const std::vector< std::string > & words ) {
      std::string shown;
      rig.data.able.draws = true;
      rig.pace.at( time, [&] { shown = rig.data.shown(); } );
      EXPECT_EQ( rig.run( words ), ExitStatus::interrupted );
      return shown;
   }

   Rig rig;
};

TEST_F( WatchingTest, drawsOnAScreenOfItsOwnUntilInterrupted ) {
   EXPECT_EQ( "\n" + shownAt( 4, { "show", "--watch" } ), R"(
1 unit                                                             22:13:20 UTC

a  entering     ███████████▍░░░░░░░  3/5
  3 of 5 drained
  et1    812 kbps > 100 kbps        -             █  812 kbit/s, about 40 s

Curves: 5s a column, the newest right; logarithmic, ▁▂ below the threshold.
)" );
   EXPECT_EQ( rig.data.shown(), "" );
   EXPECT_FALSE( rig.data.alone );
   EXPECT_TRUE( rig.data.cursorShown );
   EXPECT_EQ( rig.out, "" );
   EXPECT_EQ( rig.err, "" );
   EXPECT_EQ( rig.pace.now(), 5 );
}

TEST_F( WatchingTest, drawsWhatHasChanged ) {
   rig.pace.at( 2, [this] { unitIs( "maintenance", 5, "all is quiet" ); } );
   const std::string shown = shownAt( 4, { "show", "unit", "a", "--watch" } );
   EXPECT_NE( shown.find( "a  maintenance" ), std::string::npos ) << shown;
   EXPECT_NE( shown.find( "\n  all is quiet\n" ), std::string::npos ) << shown;
}

TEST_F( WatchingTest, looksAsOftenAsItIsTold ) {
   for ( const auto & [interval, looks] : { std::pair{ "1s", 5 }, { "3s", 2 } } ) {
      Rig other;
      other.client.answers( "GET /api/v1/units", "[]" );
      other.pace.interruptAt( 5 );
      other.severalDocuments = true;
      EXPECT_EQ(
         other.run( { "show", "units", "-j", "--watch", "--interval", interval } ), ExitStatus::interrupted );
      EXPECT_EQ(
         other.client.requests, std::vector< std::string >( std::size_t( looks ), "GET /api/v1/units" ) );
   }
}

TEST_F( WatchingTest, isDrawnAnewAtOnceWhenTheTerminalIsResized ) {
   rig.pace.at( 2.25, [this] { rig.data.resize( 30, 4 ); } );
   EXPECT_EQ( shownAt( 2.5, { "show", "--watch", "--interval", "1m" } ), R"(1 unit           22:13:20 UTC

a  entering     3/5  (1 more)
  3 of 5 drained
)" );
}

TEST_F( WatchingTest, isDrawnAnewWhileAnAnswerIsWaitedFor ) {
   std::string shown;
   rig.pace.at( 3, [&] {
      rig.client.during( [this] { rig.data.resize( 30, 4 ); } );
      // What comes after it.
      rig.client.reachableIs( false );
   } );
   EXPECT_EQ( linesOf( shownAt( 2, { "show", "--watch" } ) ).size(), 7 );
   for ( const std::string & bytes : rig.data.written )
      shown = bytes.find( "1 unit           22:13:20 UTC" ) == std::string::npos ? shown : bytes;
   EXPECT_NE( shown, "" );
}

TEST_F( WatchingTest, givesAnAgentThatHangsLessTimeThanOneThatIsAskedOnce ) {
   rig.run( { "show", "units" } );
   EXPECT_EQ( rig.client.patience, 30 );
   shownAt( 2, { "show", "--watch" } );
   EXPECT_EQ( rig.client.patience, 5 );
}

TEST_F( WatchingTest, saysSinceWhenTheAgentIsAwayAndGoesOn ) {
   rig.pace.at( 1, [this] { rig.client.reachableIs( false ); } );
   rig.pace.interruptAt( 100 );
   std::string back;
   rig.pace.at( 90, [this] { rig.client.reachableIs( true ); } );
   rig.pace.at( 92, [&] { back = rig.data.shown(); } );
   const std::string away = shownAt( 80, { "show", "--watch" } );
   EXPECT_EQ(
      linesOf( away )[0], "stale since 22:13:20 UTC: the agent cannot be reached: Connection refused" );
   EXPECT_TRUE( linesOf( away )[2].starts_with( "a  entering" ) ) << away;
   EXPECT_TRUE( linesOf( back )[0].starts_with( "1 unit" ) ) << back;
}

TEST_F( WatchingTest, saysThatAnAgentHangsWhenItDoesNotGiveTheFirstCurves ) {
   rig.client.hangsFrom( "/samples", [this]( unsigned seconds ) { rig.pace.sleep( seconds ); } );
   rig.pace.interruptAt( 20 );
   const std::string shown = shownAt( Remote::soon + 0.25, { "show", "--watch" } );
   EXPECT_EQ(
      linesOf( shown )[0], "stale since 22:13:20 UTC: the agent cannot be reached: no answer for 5 seconds" );
   EXPECT_NE( shown.find( "et1    812 kbps" ), std::string::npos ) << "what it has said before";
}

TEST( Remote, tellsWhoeverLooksOverAndOverAtOnceThatTheClockCannotBeAskedFor ) {
   FakeClient client;
   client.reachableIs( false );
   Remote remote( client );
   EXPECT_EQ( std::nullopt, remote.clock() );
   remote.watchedIs( [] {} );
   EXPECT_THROW( remote.clock(), Failure );
}

TEST_F( WatchingTest, isStaleTooWhileTheAgentAnswersButMakesNoSense ) {
   rig.pace.at( 1, [this] { rig.client.replaces( "GET /api/v1/units", "?" ); } );
   EXPECT_EQ(
      linesOf( shownAt( 4, { "show", "--watch" } ) )[0],
      "stale since 22:13:20 UTC: the agent's answer makes no sense: it is no JSON" );
}

TEST_F( WatchingTest, doesNotWaitForAnAgentThatWasNeverThere ) {
   rig.client.reachableIs( false );
   rig.data.able.draws = true;
   EXPECT_EQ( rig.run( { "show", "--watch" } ), ExitStatus::notReachable );
   EXPECT_TRUE( rig.data.written.empty() );
}

TEST_F( WatchingTest, endsWhenWhatItWatchesIsGone ) {
   rig.data.able.draws = true;
   rig.pace.at( 2, [this] {
      rig.client.refuses( "GET /api/v1/units/b", 404, "not-found", "there is no unit b", "b" );
   } );
   rig.client.answers( "GET /api/v1/units/b", R"({"name":"b","state":"normal"})" );
   rig.client.answers( "GET /api/v1/interfaces?unit=b", "[]" );
   EXPECT_EQ( rig.run( { "show", "unit", "b", "--watch" } ), ExitStatus::failed );
   EXPECT_EQ( rig.err, "maintctl: there is no unit b\n" );
   EXPECT_TRUE( rig.data.cursorShown );
}

TEST_F( WatchingTest, saysALineWhenSomethingChangesWithoutATerminal ) {
   rig.pace.at( 1, [this] { unitIs( "entering", 3, "another rate" ); } ); // rates always change
   rig.pace.at( 2, [this] {
      clockIs( "2023-11-14T22:13:22.400Z" );
      unitIs( "entering", 4, "4 of 5 drained" );
   } );
   rig.pace.at( 3, [this] {
      clockIs( "2023-11-14T22:13:25.000Z" ); // the next sample
      interfaceIs( "et1", "stalled", "stalled at 812 kbit/s" );
   } );
   EXPECT_EQ( rig.run( { "show", "--watch" } ), ExitStatus::interrupted );
   EXPECT_EQ(
      rig.out, "2023-11-14T22:13:20Z a entering: 3 of 5 drained\n"
               "2023-11-14T22:13:22Z a entering: 4 of 5 drained\n"
               "2023-11-14T22:13:25Z a entering: 4 of 5 drained\n" ); // because of et1
   EXPECT_EQ( rig.err, "" );
}

TEST_F( WatchingTest, saysALineForEachInterfaceThatChanges ) {
   rig.pace.at( 2, [this] { interfaceIs( "et1", "timing", "quiet 5 of 10 s" ); } );
   EXPECT_EQ( rig.run( { "show", "interfaces", "a", "--watch" } ), ExitStatus::interrupted );
   EXPECT_EQ(
      rig.out, "2023-11-14T22:13:20Z et1 link up, 812 kbps: 812 kbit/s, about 40 s\n"
               "2023-11-14T22:13:20Z et1 link up, 812 kbps: quiet 5 of 10 s\n" );
}

TEST_F( WatchingTest, saysWithoutATerminalThatTheAgentIsAway ) {
   rig.pace.at( 1, [this] { rig.client.reachableIs( false ); } );
   rig.pace.at( 3, [this] { rig.client.reachableIs( true ); } );
   rig.run( { "show", "unit", "a", "--watch" } );
   EXPECT_EQ( rig.out, "2023-11-14T22:13:20Z a entering: 3 of 5 drained\n" );
   EXPECT_EQ(
      rig.err, "maintctl: /run/maintd/control.sock: the agent cannot be reached: Connection refused\n"
               "the agent is back\n" );
}

TEST_F( WatchingTest, givesOneDocumentALineWhenItDiffers ) {
   rig.client.replaces( "GET /api/v1/units", R"([ { "name": "a" } ])" );
   rig.pace.at( 2, [this] { rig.client.replaces( "GET /api/v1/units", R"([{"name":"b"}])" ); } );
   rig.severalDocuments = true;
   EXPECT_EQ( rig.run( { "-j", "show", "--watch" } ), ExitStatus::interrupted );
   EXPECT_EQ( rig.out, "[{\"name\":\"a\"}]\n[{\"name\":\"b\"}]\n" );
}

TEST_F( WatchingTest, givesTheAbsenceOfTheAgentAsADocument ) {
   rig.client.replaces( "GET /api/v1/units", "[]" );
   rig.pace.at( 1, [this] { rig.client.reachableIs( false ); } );
   rig.pace.at( 3, [this] { rig.client.reachableIs( true ); } );
   rig.severalDocuments = true;
   rig.run( { "-j", "show", "--watch" } );
   const auto lines = linesOf( rig.out );
   ASSERT_EQ( lines.size(), 3 );
   EXPECT_EQ( lines[0], "[]" );
   EXPECT_EQ( at( lines[1], "/error/code" ), "\"not-reachable\"" );
   EXPECT_EQ( lines[2], "[]" ); // it is back
   EXPECT_EQ( rig.err, "" );
}

TEST_F( WatchingTest, makesTextOfOthersHarmless ) {
   unitIs( "entering", 3, R"(\u001b[2J)" );
   rig.run( { "show", "--watch" } );
   EXPECT_EQ( rig.out, "2023-11-14T22:13:20Z a entering: \\x1B[2J\n" );
}

} // namespace
} // namespace Maintctl
