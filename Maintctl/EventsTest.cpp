#include "Maintctl/Following.h"
#include "Maintctl/RigTest.h"

#include <gtest/gtest.h>

namespace Maintctl {

namespace {

using Lines = std::vector< std::string >;

std::string json( unsigned sequence ) {
   return R"({"sequence":)" + std::to_string( sequence ) +
          R"(,"time":"2023-11-14T22:13:20.000Z","type":"unit","subject":"u1","what":"state","units":["u1"],"text":"u1 is normal"})";
}

std::string sent( unsigned sequence ) {
   return "id: " + std::to_string( sequence ) + "\nevent: unit\ndata: " + json( sequence ) + "\n\n";
}

std::string line( unsigned sequence ) {
   return "     " + std::to_string( sequence ) + "  2023-11-14T22:13:20.000Z  unit       u1 is normal\n";
}

class EventsTest : public testing::Test {
 protected:
   void recent( const std::string & query, const std::string & events, unsigned last ) {
      rig.client.answers(
         "GET /api/v1/events/recent?" + query,
         R"({"events":[)" + events + R"(],"last":)" + std::to_string( last ) + "}" );
   }
   void stream( unsigned after, const std::string & bytes ) {
      rig.client.answers( "GET /api/v1/events?after=" + std::to_string( after ), bytes );
   }

   Rig rig;
};

TEST_F( EventsTest, showsTheLastEventsALineEach ) {
   recent( "limit=20", json( 7 ) + "," + json( 8 ), 8 );
   EXPECT_EQ( ExitStatus::done, rig.run( { "events" } ) );
   EXPECT_EQ( line( 7 ) + line( 8 ), rig.out );
   recent( "limit=3", "", 0 );
   EXPECT_EQ( ExitStatus::done, rig.run( { "events", "--last", "3" } ) );
   EXPECT_EQ( "nothing has happened\n", rig.out );
}

TEST_F( EventsTest, breaksNoWordsOnATerminal ) {
   rig.data.able.terminal = true;
   const std::string event =
      R"({"sequence":27,"time":"2023-11-14T22:13:20.000Z","type":"interface","subject":"et2","what":"reason","units":["u1"],
         "text":"et2 is below its threshold and has to stay there: in 0 bps, out 0 bps"})";
   recent( "limit=20", event, 27 );
   const std::string wanted =
      "    27  2023-11-14T22:13:20.000Z  interface  et2 is below its threshold and has\n" +
      std::string( 45, ' ' ) + "to stay there: in 0 bps, out 0 bps\n";
   EXPECT_EQ( ExitStatus::done, rig.run( { "events" } ) );
   EXPECT_EQ( wanted, rig.out );
   std::string compact = event;
   std::erase( compact, '\n' );
   stream( 26, "id: 27\nevent: interface\ndata: " + compact + "\n\n" );
   EXPECT_EQ( ExitStatus::interrupted, rig.run( { "events", "--follow", "--after", "26" } ) );
   EXPECT_EQ( wanted, rig.out );
}

TEST_F( EventsTest, showsAllAfterAnEvent ) {
   recent( "after=6&limit=4096", json( 7 ), 7 );
   EXPECT_EQ( ExitStatus::done, rig.run( { "events", "--after", "6" } ) );
   EXPECT_EQ( line( 7 ), rig.out );
}

TEST_F( EventsTest, givesTheAnswerAsJson ) {
   recent( "limit=20", json( 7 ), 7 );
   EXPECT_EQ( ExitStatus::done, rig.run( { "-j", "events" } ) );
   EXPECT_EQ( "7", at( rig.out, "/last" ) );
   EXPECT_EQ( "\"u1\"", at( rig.out, "/events/0/subject" ) );
}

TEST_F( EventsTest, followsWhatHappensOverAnAgentThatIsStartedAgain ) {
   recent( "limit=20", json( 5 ), 5 );
   stream( 5, "retry: 2000\n\n" + sent( 6 ) + ":\n\n" + sent( 7 ) + "id: 8\nevent: unit\ndata: {\"cut" );
   stream( 7, sent( 8 ) );
   EXPECT_EQ( ExitStatus::interrupted, rig.run( { "events", "--follow" } ) );
   EXPECT_EQ( line( 5 ) + line( 6 ) + line( 7 ) + line( 8 ), rig.out );
   EXPECT_NE( std::string::npos, rig.err.find( "the agent does not answer; it may be starting again\n" ) );
   EXPECT_NE( std::string::npos, rig.err.find( "the agent is back\n" ) );
}

TEST_F( EventsTest, waitsForAnAgentThatWasThereForAsLongAsItTakes ) {
   stream( 3, sent( 4 ) );
   rig.pace.at( 0.4, [&] { rig.client.reachableIs( false ); } );
   rig.pace.at( 3600, [&] {
      rig.client.reachableIs( true );
      stream( 4, sent( 5 ) );
   } );
   EXPECT_EQ( ExitStatus::interrupted, rig.run( { "events", "--follow", "--after", "3" } ) );
   EXPECT_EQ( line( 4 ) + line( 5 ), rig.out );
}

TEST_F( EventsTest, waitsForAPlaceAmongTheReadersIfItHadOneBefore ) {
   stream( 3, sent( 4 ) );
   rig.client.refuses(
      "GET /api/v1/events?after=4", 503, "unavailable", "there are 128 streams already", "" );
   stream( 4, sent( 5 ) );
   EXPECT_EQ( ExitStatus::interrupted, rig.run( { "events", "--follow", "--after", "3" } ) );
   EXPECT_EQ( line( 4 ) + line( 5 ), rig.out );
   EXPECT_NE(
      std::string::npos, rig.err.find( "the agent serves nobody else now: there are 128 streams already\n" ) )
      << rig.err;
}

TEST_F( EventsTest, showsNoEventTwice ) {
   stream( 3, sent( 4 ) + sent( 4 ) + sent( 5 ) );
   stream( 5, sent( 5 ) + sent( 6 ) );
   EXPECT_EQ( ExitStatus::interrupted, rig.run( { "events", "--follow", "--after", "3" } ) );
   EXPECT_EQ( line( 4 ) + line( 5 ) + line( 6 ), rig.out );
}

TEST_F( EventsTest, saysWhatIsNotKeptAnyMoreAndGoesOnFromThere ) {
   stream( 3, "id: 8\nevent: dropped\ndata: {\"dropped\":5,\"next\":9}\n\n" + sent( 9 ) );
   EXPECT_EQ( ExitStatus::interrupted, rig.run( { "events", "--follow", "--after", "3" } ) );
   EXPECT_EQ( "5 events not kept any more; it goes on with 9\n" + line( 9 ), rig.out );
   stream( 99, "id: 0\nevent: dropped\ndata: {\"dropped\":0,\"next\":1}\n\n" + sent( 1 ) );
   EXPECT_EQ( ExitStatus::interrupted, rig.run( { "events", "--follow", "--after", "99" } ) );
   EXPECT_EQ( "0 events not kept any more; it goes on with 1\n" + line( 1 ), rig.out );
}

TEST_F( EventsTest, followsAsJsonWithOneObjectALine ) {
   rig.severalDocuments = true;
   stream( 3, sent( 4 ) + "event: dropped\ndata: {\"dropped\":5,\"next\":9}\n\n" + sent( 9 ) );
   EXPECT_EQ( ExitStatus::interrupted, rig.run( { "-j", "events", "--follow", "--after", "3" } ) );
   const Lines lines = linesOf( rig.out );
   ASSERT_EQ( 4u, lines.size() );
   for ( const std::string & each : lines )
      EXPECT_TRUE( isJson( each ) ) << each;
   EXPECT_EQ( "4", at( lines[0], "/sequence" ) );
   EXPECT_EQ( "5", at( lines[1], "/dropped" ) );
   EXPECT_EQ( "9", at( lines[2], "/sequence" ) );
   EXPECT_EQ( "\"interrupted\"", at( lines[3], "/error/code" ) );
   EXPECT_EQ( "", rig.err );
}

TEST_F( EventsTest, endsWithoutAnAgentThatWasNeverThere ) {
   rig.client.reachableIs( false );
   EXPECT_EQ( ExitStatus::notReachable, rig.run( { "events" } ) );
   EXPECT_EQ( ExitStatus::notReachable, rig.run( { "events", "--follow", "--after", "3" } ) );
}

TEST_F( EventsTest, saysWhyTheAgentRefuses ) {
   rig.client.refuses(
      "GET /api/v1/events?after=3", 503, "unavailable", "there are 128 streams already", "" );
   EXPECT_EQ( ExitStatus::failed, rig.run( { "events", "--follow", "--after", "3" } ) );
   EXPECT_NE( std::string::npos, rig.err.find( "there are 128 streams already" ) );
}

TEST_F( EventsTest, namesAnEventThatMakesNoSense ) {
   stream( 3, "event: unit\ndata: nonsense\n\n" );
   EXPECT_EQ( ExitStatus::failed, rig.run( { "events", "--follow", "--after", "3" } ) );
   EXPECT_NE( std::string::npos, rig.err.find( "the agent's answer makes no sense" ) );
}

TEST( EventParser, takesEventsHoweverTheyAreCut ) {
   const std::string bytes = "retry: 5\r\n\r\n:comment\n\nid: 1\nevent: a\ndata: "
                             "one\ndata:two\n\ndata\n\nid: 2\nevent: none\n\ndata: x\r\n\r\n";
   for ( std::size_t size = 1; size <= bytes.size(); ++size ) {
      SCOPED_TRACE( size );
      EventParser parser;
      std::string seen;
      for ( std::size_t at = 0; at < bytes.size(); at += size )
         parser.take( std::string_view( bytes ).substr( at, size ), [&]( const SentEvent & event ) {
            seen += event.id + "/" + event.type + "/" + event.data + ";";
         } );
      EXPECT_EQ( "1/a/one\ntwo;/message/;/message/x;", seen );
   }
}

} // namespace

} // namespace Maintctl
