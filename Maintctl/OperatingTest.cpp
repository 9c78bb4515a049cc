#include "Maintctl/Operating.h"
#include "Maintctl/RigTest.h"

#include <gtest/gtest.h>

namespace Maintctl {

namespace {

class OperatingTest : public testing::Test {
 protected:
   void accepts( const std::string & unit, unsigned operation, const std::string & more = "" ) {
      rig.client.answers(
         "POST /api/v1/units/" + unit + "/enter",
         R"({"unit":")" + unit + R"(","generation":3,"state":"entering","operation":)" +
            std::to_string( operation ) + R"(,"changed":true,"repeated":false)" + more + "}",
         202 );
   }
   void refuses( const std::string & unit, int status, const std::string & code ) {
      rig.client.refuses( "POST /api/v1/units/" + unit + "/enter", status, code, "no " + unit, unit );
   }
   void isSo( const std::string & unit, const std::string & state ) {
      rig.client.replaces(
         "GET /api/v1/units/" + unit, R"({"name":")" + unit + R"(","state":")" + state +
                                         R"(","generation":3,"interfaces":{"total":1,"drained":0}})" );
   }
   std::vector< std::string > posts() const {
      std::vector< std::string > result;
      for ( const std::string & request : rig.client.requests )
         if ( request.starts_with( "POST" ) )
            result.push_back( request );
      return result;
   }

   Rig rig;
};

TEST_F( OperatingTest, saysWhichOperationDoesItAndWhetherItWasSoAlready ) {
   accepts( "a", 7 );
   EXPECT_EQ( rig.run( { "enter", "a" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "a is entering, generation 3, operation 7\n" );
   rig.client.replaces(
      "POST /api/v1/units/a/enter",
      R"({"unit":"a","generation":3,"state":"entering","operation":7,"changed":false,"repeated":false})" );
   rig.run( { "enter", "a" } );
   EXPECT_EQ( rig.out, "a is entering already, generation 3, operation 7\n" );
   rig.client.replaces(
      "POST /api/v1/units/a/enter",
      R"({"unit":"a","generation":3,"state":"normal","operation":7,"changed":false,"repeated":true})" );
   rig.run( { "enter", "a" } );
   EXPECT_EQ( rig.out, "a is normal already, generation 3, operation 7; this was asked for before\n" );
}

TEST_F( OperatingTest, saysThatOnlyTimesHaveChanged ) {
   accepts( "a", 7 );
   rig.client.replaces(
      "GET /api/v1/operations/7",
      R"({"id":7,"kind":"enter","unit":"a","state":"done","text":"what was set for a has changed"})" );
   EXPECT_EQ( rig.run( { "enter", "a", "--deadline", "never" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "a is entering: what was set for a has changed, generation 3, operation 7\n" );
}

TEST_F( OperatingTest, saysNothingMoreOfAnEnterThatBegins ) {
   accepts( "a", 7 );
   EXPECT_EQ( rig.run( { "enter", "a", "--deadline", "5m" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "a is entering, generation 3, operation 7\n" ) << "whatever the agent does not say";
   rig.client.replaces(
      "GET /api/v1/operations/7",
      R"({"id":7,"kind":"enter","unit":"a","state":"running","text":"a drains"})" );
   EXPECT_EQ( rig.run( { "enter", "a", "--deadline", "5m" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "a is entering, generation 3, operation 7\n" );
}

TEST_F( OperatingTest, sendsKeyAndPairs ) {
   accepts( "a", 7 );
   rig.run(
      { "enter", "a", "--request-key", "k1", "--with", "ticket=17", "--with", "job=x=y", "--with=note=" } );
   EXPECT_EQ(
      posts(),
      std::vector< std::string >{
         R"(POST /api/v1/units/a/enter {"request-key":"k1","with":{"job":"x=y","note":"","ticket":"17"}})" } );
}

TEST_F( OperatingTest, asksForEachOfSeveralUnitsAlsoWhenOneFails ) {
   accepts( "a", 7 );
   refuses( "b", 404, "not-found" );
   accepts( "c", 8 );
   EXPECT_EQ( rig.run( { "enter", "a", "b", "c", "--request-key", "k" } ), ExitStatus::failed );
   EXPECT_EQ(
      posts(), ( std::vector< std::string >{
                  R"(POST /api/v1/units/a/enter {"request-key":"k:a"})",
                  R"(POST /api/v1/units/b/enter {"request-key":"k:b"})",
                  R"(POST /api/v1/units/c/enter {"request-key":"k:c"})" } ) );
   EXPECT_EQ(
      rig.out, "a is entering, generation 3, operation 7\nc is entering, generation 3, operation 8\n" );
   EXPECT_EQ( rig.err, "maintctl: no b\n" );
}

TEST_F( OperatingTest, givesOneListOfSeveralUnitsAsJson ) {
   accepts( "a", 7 );
   refuses( "b", 428, "needs-force" );
   EXPECT_EQ( rig.run( { "-j", "enter", "a", "b" } ), ExitStatus::needsForce );
   EXPECT_EQ( at( rig.out, "/0/operation" ), "7" );
   EXPECT_EQ( at( rig.out, "/1/unit" ), "\"b\"" );
   EXPECT_EQ( at( rig.out, "/1/error/code" ), "\"needs-force\"" );
   EXPECT_EQ( rig.err, "" );
   rig.client.reachableIs( false );
   EXPECT_EQ( rig.run( { "-j", "exit", "a", "b" } ), ExitStatus::notReachable );
   EXPECT_EQ( at( rig.out, "/1/error/code" ), "\"not-reachable\"" );
}

TEST_F( OperatingTest, waitsForSeveralUnitsUnderOneTimeout ) {
   for ( const char * unit : { "a", "b" } ) {
      accepts( unit, 7 );
      isSo( unit, "entering" );
   }
   refuses( "c", 409, "conflict" );
   rig.pace.at( 5, [this] { isSo( "a", "maintenance" ); } );
   EXPECT_EQ( rig.run( { "enter", "a", "b", "c", "--timeout", "20s" } ), ExitStatus::failed );
   EXPECT_EQ( rig.out, "a is under maintenance after 5s\n" );
   EXPECT_NE( std::string::npos, rig.err.find( "maintctl: timed out after 20s: b is entering" ) ) << rig.err;
   EXPECT_EQ( 20, rig.pace.now() );
}

TEST_F( OperatingTest, stopsWaitingWhenItIsInterrupted ) {
   for ( const char * unit : { "a", "b" } ) {
      accepts( unit, 7 );
      isSo( unit, "entering" );
   }
   rig.pace.interruptAt( 3 );
   EXPECT_EQ( rig.run( { "-j", "enter", "a", "b", "--wait" } ), ExitStatus::interrupted );
   EXPECT_EQ( at( rig.out, "/0/error/code" ), "\"interrupted\"" );
   EXPECT_EQ( at( rig.out, "/0/error/operation" ), "7" ) << "it goes on, and whoever wants to can follow it";
   EXPECT_EQ( at( rig.out, "/1/operation" ), "7" )
      << "what is not waited for has been asked for all the same";
}

TEST_F( OperatingTest, tellsWhichOperationItHasWaitedForTooLong ) {
   accepts( "a", 7 );
   isSo( "a", "entering" );
   EXPECT_EQ( rig.run( { "-j", "enter", "a", "--timeout", "5s" } ), ExitStatus::notMet );
   EXPECT_EQ( at( rig.out, "/error/code" ), "\"timed-out\"" );
   EXPECT_EQ( at( rig.out, "/error/operation" ), "7" );
}

TEST_F( OperatingTest, tellsWhatWasAskedForWhenItIsInterrupted ) {
   for ( const char * unit : { "a", "b" } ) {
      accepts( unit, 7 );
      isSo( unit, "entering" );
   }
   rig.pace.interruptAt( 3 );
   EXPECT_EQ( rig.run( { "enter", "a", "b", "--wait" } ), ExitStatus::interrupted );
   EXPECT_EQ( rig.out, "b is entering, generation 3, operation 7\n" );
}

TEST( Operating, knowsTheWorseOfTwoStatuses ) {
   const ExitStatus rising[] = { ExitStatus::done,   ExitStatus::notMet,       ExitStatus::needsForce,
                                 ExitStatus::failed, ExitStatus::notReachable, ExitStatus::interrupted };
   for ( std::size_t i = 0; i < std::size( rising ); ++i )
      for ( std::size_t j = 0; j < std::size( rising ); ++j )
         EXPECT_EQ( rising[std::max( i, j )], worseOf( rising[i], rising[j] ) ) << i << " and " << j;
}

TEST_F( OperatingTest, notesDownWhyALinkIsReleasedAndAFileReadAgain ) {
   rig.client.answers( "POST /api/v1/interfaces/et1/release", R"({"interface":"et1","operation":9})", 202 );
   EXPECT_EQ(
      rig.run( { "release", "et1", "--force", "--reason", "swap", "--with", "a=b", "--request-key", "k" } ),
      ExitStatus::done );
   EXPECT_EQ(
      rig.client.requests.back(),
      R"(POST /api/v1/interfaces/et1/release {"reason":"swap","request-key":"k","with":{"a":"b"},"force":true})" );
   EXPECT_EQ( rig.out, "et1 is released, operation 9\n" );
   rig.client.answers( "POST /api/v1/reload", R"({"changes":[]})" );
   EXPECT_EQ( rig.run( { "reload", "--reason", "swap", "--request-key", "k" } ), ExitStatus::done );
   EXPECT_EQ( rig.client.requests.back(), R"(POST /api/v1/reload {"reason":"swap","request-key":"k"})" );
}

TEST_F( OperatingTest, saysThatAReleaseWasAskedForBefore ) {
   rig.client.answers(
      "POST /api/v1/interfaces/et1/release",
      R"({"interface":"et1","operation":9,"changed":true,"repeated":false})", 202 );
   EXPECT_EQ( rig.run( { "release", "et1", "--force", "--request-key", "k" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "et1 is released, operation 9\n" );
   rig.client.replaces(
      "POST /api/v1/interfaces/et1/release",
      R"({"interface":"et1","operation":9,"changed":false,"repeated":true})" );
   EXPECT_EQ( rig.run( { "release", "et1", "--force", "--request-key", "k" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "et1 is released already, operation 9; this was asked for before\n" );
}

TEST_F( OperatingTest, saysWhichOperationAReloadIsAndThatItWasAskedForBefore ) {
   rig.client.answers(
      "POST /api/v1/reload",
      R"({"changes":["unit b added"],"operation":3,"changed":true,"repeated":false})" );
   EXPECT_EQ( rig.run( { "reload", "--request-key", "k" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "unit b added\nthe file is applied, operation 3\n" );
   rig.client.replaces(
      "POST /api/v1/reload", R"({"changes":[],"operation":3,"changed":false,"repeated":true})" );
   EXPECT_EQ( rig.run( { "reload", "--request-key", "k" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "the file is applied already, operation 3; this was asked for before\n" );
   rig.client.replaces(
      "POST /api/v1/reload", R"({"changes":[],"operation":null,"changed":false,"repeated":false})" );
   EXPECT_EQ( rig.run( { "reload", "--request-key", "k" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "nothing has changed\n" );
}

TEST_F( OperatingTest, listsOperations ) {
   rig.client.answers(
      "GET /api/v1/operations?limit=20",
      R"([{"id":13,"kind":"release","unit":null,"interface":"et1","state":"done","by":"ann","with":{},
           "begun":"2026-03-01T12:02:00.000Z","ended":"2026-03-01T12:02:00.000Z","text":"et1 is released"},
          {"id":12,"kind":"exit","unit":"a","state":"running","by":"bob","reason":null,"with":{},"request-key":null,
           "begun":"2026-03-01T12:01:00.000Z","ended":null,"ended-by":null,"text":"a goes back to normal"},
          {"id":7,"kind":"enter","unit":"a","state":"cancelled","by":"ann","reason":"swap","with":{"x":"y","z":"1"},
           "request-key":"k","begun":"2026-03-01T12:00:00.000Z","ended":"2026-03-01T12:01:00.000Z","ended-by":12,
           "text":"cancelled by operation 12, for bob"}])" );
   EXPECT_EQ( rig.run( { "operations" } ), ExitStatus::done );
   EXPECT_EQ(
      rig.out, "ID  WHAT     OF   STATE      BEGUN (UTC)           TOOK  BY   REASON  WITH\n"
               "13  release  et1  done       2026-03-01 12:02:00     0s  ann  -       -\n"
               "12  exit     a    running    2026-03-01 12:01:00      -  bob  -       -\n"
               " 7  enter    a    cancelled  2026-03-01 12:00:00  1m00s  ann  swap    x=y, z=1\n" );
   rig.client.answers( "GET /api/v1/operations?limit=5&unit=a&state=done", "[]" );
   rig.run( { "operations", "a", "--state=done", "--limit", "5" } );
   EXPECT_EQ( rig.out, "There are no operations.\n" );
}

TEST_F( OperatingTest, tellsAllOfOneOperation ) {
   rig.client.answers(
      "GET /api/v1/operations/7",
      R"({"id":7,"kind":"enter","unit":"a","state":"cancelled","by":"ann","reason":"swap","with":{"x":"y"},
          "request-key":"k","begun":"2026-03-01T12:00:00.000Z","ended":"2026-03-01T12:01:00.000Z","ended-by":12,
          "text":"cancelled by operation 12, for bob"})" );
   EXPECT_EQ( rig.run( { "operation", "7" } ), ExitStatus::done );
   EXPECT_EQ(
      rig.out, "Operation:    7\n"
               "What:         enter\n"
               "Unit:         a\n"
               "State:        cancelled: cancelled by operation 12, for bob\n"
               "By:           ann\n"
               "Reason:       swap\n"
               "With:         x=y\n"
               "Request key:  k\n"
               "Begun:        2026-03-01 12:00:00 UTC\n"
               "Ended:        2026-03-01 12:01:00 UTC\n" );
}

} // namespace

} // namespace Maintctl
