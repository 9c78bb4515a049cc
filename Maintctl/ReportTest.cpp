#include "Maintctl/Csv.h"
#include "Maintctl/RigTest.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Maintctl {

namespace {

const std::string list =
   R"([{"id":12,"unit":"spine-a","generation":3,"outcome":"open","began":"2023-11-14T22:13:20.000Z",
        "counts":{"interfaces":7,"drained":5,"forced":0,"spikes":0}},
       {"id":9,"unit":"spine-b","generation":1,"outcome":"completed","began":"2023-11-14T20:00:00.000Z",
        "in-maintenance":"2023-11-14T20:01:05.000Z","ended":"2023-11-14T21:30:00.000Z","by":"ann","reason":"upgrade",
        "counts":{"interfaces":2,"drained":1,"forced":1,"spikes":3}}])";

const std::string record =
   R"({"id":9,"unit":"spine-b","generation":1,"outcome":"completed","began":"2023-11-14T20:00:00.000Z",
       "in-maintenance":"2023-11-14T20:01:05.000Z","exit-began":"2023-11-14T21:29:00.000Z",
       "ended":"2023-11-14T21:30:00.000Z","by":"ann","reason":"upgrade, \"part 2\"","exit-by":"bob","exit-reason":null,
       "counts":{"interfaces":2,"drained":1,"forced":1,"spikes":1},
       "stages":[
        {"way":"enter","name":"steer","state":"complete","began":"2023-11-14T20:00:00.000Z",
         "ended":"2023-11-14T20:00:04.000Z","failure":null},
        {"way":"exit","name":"steer","state":"failed","began":"2023-11-14T21:29:00.000Z",
         "ended":"2023-11-14T21:29:30.000Z","failure":"no such peer"}],
       "interfaces":[
        {"name":"et1","profile":{"name":"fast","threshold-bps":100000,"load-interval-seconds":10,"shutdown":true,
          "shutdown-max-delay-seconds":300},"began":"2023-11-14T20:00:04.000Z","first-in-bps":812000,"first-out-bps":4000,
         "drained":"2023-11-14T20:00:44.000Z","shutdown":"natural","shut":"2023-11-14T20:00:44.000Z",
         "raised":"2023-11-14T21:29:30.000Z","released":"2023-11-14T21:29:30.000Z","total-spikes":0,
         "reasons":[{"time":"2023-11-14T20:00:09.000Z","code":"above-threshold","rate-bps":812000},
          {"time":"2023-11-14T20:00:44.000Z","code":"shut","rate-bps":0}],
         "curve":{"start":"2023-11-14T19:59:00.000Z","step-seconds":5,"in-bps":[1000000,1000,null],"out-bps":[0,0,0]}},
        {"name":"et2","profile":null,"began":"2023-11-14T20:00:04.000Z","shutdown":"forced",
         "shut":"2023-11-14T20:05:04.000Z","peak-in-bps":5000,"peak-out-bps":9000,"peak-time":"2023-11-14T20:50:00.000Z",
         "total-spikes":1,"spikes":[{"began":"2023-11-14T20:50:00.000Z","ended":"2023-11-14T20:50:20.000Z","peak-bps":9000}],
         "drift":[{"time":"2023-11-14T20:55:00.000Z","what":"raised"}],"curve":null}],
       "interfaces-left-out":0})";

class ReportTest : public testing::Test {
 protected:
   ReportTest() {
      rig.client.replaces( "GET /api/v1/history?limit=20", list );
      rig.client.replaces( "GET /api/v1/history/9", record );
   }
   bool shows( const std::string & text ) const { return rig.out.find( text ) != std::string::npos; }
   Rig rig;
};

TEST_F( ReportTest, historyListsMaintenancesAsATable ) {
   EXPECT_EQ( rig.run( { "history" } ), ExitStatus::done );
   EXPECT_EQ(
      "ID  UNIT     OUTCOME    BEGAN (UTC)          DRAIN  WHOLE  DRAINED  FORCED  SPIKES  BY   REASON\n"
      "12  spine-a  open       2023-11-14 22:13:20      -      -      5/7       0       0  -    -\n"
      " 9  spine-b  completed  2023-11-14 20:00:00  1m05s  1h30m      1/2       1       3  ann  upgrade\n",
      rig.out );
}

TEST_F( ReportTest, historyIsAskedForWithItsUnitAndLimit ) {
   rig.client.replaces( "GET /api/v1/history?limit=3&unit=spine-a", "[]" );
   EXPECT_EQ( rig.run( { "history", "spine-a", "--limit", "3" } ), ExitStatus::done );
   EXPECT_EQ( "There are no maintenances.\n", rig.out );
}

TEST_F( ReportTest, historyIsGivenAsItCameUnderJson ) {
   EXPECT_EQ( rig.run( { "history", "-j" } ), ExitStatus::done );
   EXPECT_EQ( "12", at( rig.out, "/0/id" ) );
}

TEST_F( ReportTest, reportTellsWhoAndWhyAndWhen ) {
   EXPECT_EQ( rig.run( { "report", "9" } ), ExitStatus::done );
   const auto lines = linesOf( rig.out );
   EXPECT_TRUE( shows( "2023-11-14 20:00:00 by ann: upgrade, \"part 2\"\n" ) ) << rig.out;
   EXPECT_TRUE( shows( "2023-11-14 20:01:05 (after 1m05s)\n" ) ) << rig.out;
   EXPECT_TRUE( shows( "2023-11-14 21:29:00 (after 1h29m) by bob\n" ) ) << rig.out;
   EXPECT_TRUE( shows( "2: 1 drained, 1 shut before they had, 1 spike\n" ) ) << rig.out;
   EXPECT_EQ( "All times are UTC.", lines.back() );
}

TEST_F( ReportTest, reportListsStagesAndInterfaces ) {
   rig.run( { "report", "9" } );
   EXPECT_TRUE( shows( "  exit   steer  failed    2023-11-14 21:29:00   30s  no such peer\n" ) ) << rig.out;
   EXPECT_TRUE( shows( "after 40s, natural" ) ) << rig.out;
   EXPECT_TRUE( shows( "after 5m00s, forced" ) ) << rig.out;
   EXPECT_TRUE( shows( "9.00 kbps       1\n" ) ) << rig.out;
}

TEST_F( ReportTest, reportTellsWhatHappenedInOrder ) {
   rig.run( { "report", "9" } );
   const auto lines = linesOf( rig.out );
   const auto first = std::find( lines.begin(), lines.end(), "What happened:" );
   const auto last = std::find( first, lines.end(), "" );
   EXPECT_EQ(
      ( std::vector< std::string >{
         "What happened:",
         "  2023-11-14 20:00:00  enter",
         "  2023-11-14 20:00:00  enter stage steer begins",
         "  2023-11-14 20:00:04  enter stage steer is complete",
         "  2023-11-14 20:00:09  et1: above the threshold, 812 kbps",
         "  2023-11-14 20:00:44  et1: to be shut",
         "  2023-11-14 20:01:05  under maintenance",
         "  2023-11-14 20:05:04  et2: to be shut before it has drained",
         "  2023-11-14 20:50:00  et2: traffic is back",
         "  2023-11-14 20:50:20  et2: traffic is gone again, at most 9.00 kbps",
         "  2023-11-14 20:55:00  et2: raised by somebody else",
         "  2023-11-14 21:29:00  exit",
         "  2023-11-14 21:29:00  exit stage steer begins",
         "  2023-11-14 21:29:30  exit stage steer has failed: no such peer",
         "  2023-11-14 21:29:30  et1: not held down any more",
         "  2023-11-14 21:30:00  normal, completed",
      } ),
      std::vector< std::string >( first, last ) );
}

TEST_F( ReportTest, reportSaysNotThatAnInterfaceWithoutARateIsAboveTheThreshold ) {
   rig.client.replaces(
      "GET /api/v1/history/1",
      R"({"id":1,"unit":"a","outcome":"open","interfaces":[{"name":"et1","reasons":[)"
      R"({"time":"2023-11-14T20:00:00.000Z","code":"above-threshold","rate-bps":null},)"
      R"({"time":"2023-11-14T20:00:05.000Z","code":"above-threshold","rate-bps":200000}]}]})" );
   rig.run( { "report", "1" } );
   EXPECT_TRUE( shows( "  2023-11-14 20:00:00  et1: waits for a rate\n"
                       "  2023-11-14 20:00:05  et1: above the threshold, 200 kbps\n" ) )
      << rig.out;
}

TEST_F( ReportTest, reportLeavesOutTheMiddleOfALongStoryAndSaysSo ) {
   std::string reasons;
   for ( int i = 0; i < 300; ++i )
      reasons += std::string( i ? "," : "" ) + R"({"time":"2023-11-14T20:00:00.000Z","code":"timing"})";
   rig.client.replaces(
      "GET /api/v1/history/1",
      R"({"id":1,"unit":"a","outcome":"open","interfaces":[{"name":"et1","reasons":[)" + reasons + "]}]}" );
   rig.run( { "report", "1" } );
   EXPECT_TRUE( shows( "  ... 100 more\n" ) );
   const auto lines = linesOf( rig.out );
   EXPECT_EQ( 200, std::count( lines.begin(), lines.end(), "  2023-11-14 20:00:00  et1: timing" ) );
}

TEST_F( ReportTest, reportDrawsWhatAnInterfaceCarriedInCharactersThatTheTerminalKnows ) {
   rig.run( { "report", "9" } );
   EXPECT_TRUE( shows( "█" ) ) << rig.out;
   EXPECT_TRUE( shows( "  et1        19:59:00    5s  1.00 Mbps  " ) ) << rig.out;
   rig.data.able.utf8 = false;
   rig.run( { "report", "9" } );
   EXPECT_TRUE( std::all_of( rig.out.begin(), rig.out.end(), []( char c ) { return c > 0; } ) ) << rig.out;
   EXPECT_TRUE( shows( "1.00 Mbps  @" ) ) << rig.out;
}

TEST_F( ReportTest, whatPeopleAndCommandsHaveSaidCannotActOnTheTerminal ) {
   rig.client.replaces(
      "GET /api/v1/history/1",
      R"({"id":1,"unit":"a","outcome":"open","reason":"\u001b[2J","began":"2023-11-14T20:00:00.000Z",
         "stages":[{"way":"enter","name":"s","failure":"\u001b[2J","ended":"2023-11-14T20:00:00.000Z"}]})" );
   rig.run( { "report", "1" } );
   EXPECT_EQ( std::string::npos, rig.out.find( '\033' ) );
}

TEST_F( ReportTest, csvHasARowForEachInterface ) {
   EXPECT_EQ( rig.run( { "report", "9", "--csv" } ), ExitStatus::done );
   EXPECT_EQ(
      "maintenance,unit,outcome,began,in-maintenance,exit-began,ended,by,reason,interface,profile,threshold-"
      "bps,"
      "load-interval-seconds,watched,first-in-bps,first-out-bps,drained,shutdown,shut,raised,released,peak-"
      "in-bps,"
      "peak-out-bps,peak-time,spikes,last-reason\r\n"
      "9,spine-b,completed,2023-11-14T20:00:00.000Z,2023-11-14T20:01:05.000Z,2023-11-14T21:29:00.000Z,"
      "2023-11-14T21:30:00.000Z,ann,\"upgrade, \"\"part "
      "2\"\"\",et1,fast,100000,10,2023-11-14T20:00:04.000Z,812000,4000,"
      "2023-11-14T20:00:44.000Z,natural,2023-11-14T20:00:44.000Z,2023-11-14T21:29:30.000Z,2023-11-14T21:29:"
      "30.000Z,,,,"
      "0,shut\r\n"
      "9,spine-b,completed,2023-11-14T20:00:00.000Z,2023-11-14T20:01:05.000Z,2023-11-14T21:29:00.000Z,"
      "2023-11-14T21:30:00.000Z,ann,\"upgrade, \"\"part 2\"\"\",et2,,,,2023-11-14T20:00:04.000Z,,,,forced,"
      "2023-11-14T20:05:04.000Z,,,5000,9000,2023-11-14T20:50:00.000Z,1,\r\n",
      rig.out );
}

TEST_F( ReportTest, jsonIsTheRecordAsItIs ) {
   EXPECT_EQ( rig.run( { "report", "9", "-j" } ), ExitStatus::done );
   EXPECT_EQ( "\"natural\"", at( rig.out, "/interfaces/0/shutdown" ) );
}

TEST_F( ReportTest, maintenanceThatThereIsNotIsRefusedWithTheAgentsWords ) {
   rig.client.refuses( "GET /api/v1/history/99", 404, "not-found", "there is no maintenance 99", "99" );
   EXPECT_EQ( rig.run( { "report", "99" } ), ExitStatus::failed );
   EXPECT_EQ( "maintctl: there is no maintenance 99\n", rig.err );
}

TEST( Csv, whatWouldBeTakenForAFormulaIsText ) {
   EXPECT_EQ( "'=1+1,'+1,'@a\r\n", csvRow( { "=1+1", "+1", "@a" } ) );
   EXPECT_EQ( "'-1+1,-12.5,a=b\r\n", csvRow( { "-1+1", "-12.5", "a=b" } ) );
   EXPECT_EQ( "' =1\r\n", csvRow( { " =1" } ) );
   EXPECT_EQ( "\"'\n=HYPERLINK(\"\"x\"\")\"\r\n", csvRow( { "\n=HYPERLINK(\"x\")" } ) );
}

TEST( Csv, controlCharactersAreShown ) {
   EXPECT_EQ( "\\x1B[2J\\x09a\r\n", csvRow( { "\033[2J\ta" } ) );
   EXPECT_EQ( "\"a\nb\\x00\"\r\n", csvRow( { std::string( "a\nb\0", 4 ) } ) );
}

TEST( Csv, quotesWhatWouldBeTakenForAnotherFieldOrLine ) {
   EXPECT_EQ( "a,,1\r\n", csvRow( { "a", "", "1" } ) );
   EXPECT_EQ( "\"a,b\"\r\n", csvRow( { "a,b" } ) );
   EXPECT_EQ( "\"say \"\"no\"\"\"\r\n", csvRow( { "say \"no\"" } ) );
   EXPECT_EQ( "\"two\nlines\",\"\r\"\r\n", csvRow( { "two\nlines", "\r" } ) );
   EXPECT_EQ( "\" a\",\"b \",c d\r\n", csvRow( { " a", "b ", "c d" } ) );
}

} // namespace

} // namespace Maintctl
