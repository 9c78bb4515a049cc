#include "Api/Shapes.h"

#include <gtest/gtest.h>

namespace {

/// What the reading of a text complains of; empty if it does not.
template < class Read >
std::string complaintOf( Read read, const char * text ) {
   try {
      read( text );
   } catch ( const Api::Error & error ) {
      EXPECT_EQ( error.code, Api::ErrorCode::internal );
      return error.message;
   }
   return "";
}

TEST( Shapes, takeAUnitInFull ) {
   const Api::Unit unit =
      Api::readUnit( R"({"name":"a","state":"entering","stage":"drainwatch","generation":3,
      "since":"2023-11-14T22:13:20.000Z","reason":"r","by":"b","deadline":"2023-11-14T22:18:20.000Z",
      "overdue":true,"interfaces":{"total":5,"drained":3},
      "rates":{"in-bps":1.5,"out-bps":2},"violating":["et1","et2"],"total-violations":7,
      "settling-since":"2023-11-14T22:13:21.000Z","groups":["g"]})" );
   EXPECT_EQ( unit.name, "a" );
   EXPECT_EQ( unit.state, "entering" );
   EXPECT_EQ( unit.stage, "drainwatch" );
   EXPECT_EQ( unit.generation, 3 );
   EXPECT_EQ( unit.since, 1700000000 );
   EXPECT_EQ( unit.reason, "r" );
   EXPECT_EQ( unit.by, "b" );
   EXPECT_EQ( unit.deadline, 1700000300 );
   EXPECT_TRUE( unit.overdue );
   EXPECT_EQ( unit.total, 5 );
   EXPECT_EQ( unit.drained, 3 );
   EXPECT_EQ( unit.inBps, 1.5 );
   EXPECT_EQ( unit.outBps, 2 );
   EXPECT_EQ( unit.violating, ( std::vector< std::string >{ "et1", "et2" } ) );
   EXPECT_EQ( unit.totalViolations, 7 );
   EXPECT_EQ( unit.settlingSince, 1700000001 );
   EXPECT_EQ( unit.groups, std::vector< std::string >{ "g" } );
}

TEST( Shapes, takeWhatTheAgentSaysOfAUnit ) {
   const Api::Unit unit =
      Api::readUnit( R"({"name":"a","state":"entering","sentence":"1 of 2 drained","eta-seconds":40.5})" );
   EXPECT_EQ( unit.sentence, "1 of 2 drained" );
   EXPECT_EQ( unit.etaSeconds, 40.5 );
   EXPECT_FALSE( Api::readUnit( R"({"name":"a","state":"entering","eta-seconds":null})" ).etaSeconds );
}

TEST( Shapes, takeWhyAnInterfaceIsNotDone ) {
   const char * const text =
      R"({"code":"stalled","since":"2023-11-14T22:13:20.000Z","rate-bps":3e5,"threshold-bps":1e5,"quiet-seconds":5,
      "load-interval-seconds":10,"eta-seconds":7,"shutdown-at":"2023-11-14T22:14:20.000Z",
      "unwatched-since":"2023-11-14T22:15:20.000Z","trend":"flat","text":"t"})";
   const auto interface = Api::readInterface( std::string( R"({"name":"et1","reason":)" ) + text + "}" );
   const auto explanation = Api::readExplanation(
      std::string( R"({"unit":"u","state":"entering","waiting":[{"interface":"et1","insight":)" ) + text +
      "}]}" );
   for ( const auto & reason : { interface.reason, explanation.waiting.at( 0 ).insight } ) {
      ASSERT_TRUE( reason );
      EXPECT_EQ( reason->code, "stalled" );
      EXPECT_EQ( reason->since, 1700000000 );
      EXPECT_EQ( reason->rateBps, 3e5 );
      EXPECT_EQ( reason->thresholdBps, 1e5 );
      EXPECT_EQ( reason->quietSeconds, 5 );
      EXPECT_EQ( reason->loadIntervalSeconds, 10 );
      EXPECT_EQ( reason->etaSeconds, 7 );
      EXPECT_EQ( reason->shutdownAt, 1700000060 );
      EXPECT_EQ( reason->unwatchedSince, 1700000120 );
      EXPECT_EQ( reason->trend, "flat" );
      EXPECT_EQ( reason->text, "t" );
   }
   EXPECT_FALSE( Api::readInterface( R"({"name":"et1","reason":null})" ).reason );
}

TEST( Shapes, takeStages ) {
   const Api::Unit unit = Api::readUnit( R"({"name":"a","state":"entering","stages":[
      {"name":"steer","state":"running","since":"2023-11-14T22:13:20.000Z","command":"/bin/steer","limit-seconds":60,
       "deadline":"2023-11-14T22:14:20.000Z","failure":"f","text":"t"},{"name":"drainwatch"}]})" );
   ASSERT_EQ( unit.stages.size(), 2 );
   const Api::Stage & steer = unit.stages[0];
   EXPECT_EQ( steer.name, "steer" );
   EXPECT_EQ( steer.state, "running" );
   EXPECT_EQ( steer.since, 1700000000 );
   EXPECT_EQ( steer.command, "/bin/steer" );
   EXPECT_EQ( steer.limitSeconds, 60 );
   EXPECT_EQ( steer.deadline, 1700000060 );
   EXPECT_EQ( steer.failure, "f" );
   EXPECT_EQ( steer.text, "t" );
   EXPECT_FALSE( unit.stages[1].command );
   EXPECT_EQ( Api::runningCommand( unit.stages ), &unit.stages[0] );
   EXPECT_EQ( Api::runningCommand( { unit.stages[1] } ), nullptr );
   EXPECT_EQ( Api::waitingCommand( unit.stages ), nullptr );
   std::vector< Api::Stage > waits = unit.stages;
   waits[0].deadline.reset();
   EXPECT_EQ( Api::runningCommand( waits ), nullptr );
   EXPECT_EQ( Api::waitingCommand( waits ), &waits[0] );
}

TEST( Shapes, takeNullAndMissingAsUnknown ) {
   for ( const char * text :
         { R"({"name":"a","state":"normal"})",
           R"({"name":"a","state":"normal","stage":null,"since":null,"rates":null})" } ) {
      SCOPED_TRACE( text );
      const Api::Unit unit = Api::readUnit( text );
      EXPECT_FALSE( unit.stage );
      EXPECT_FALSE( unit.since );
      EXPECT_FALSE( unit.inBps );
      EXPECT_TRUE( unit.violating.empty() );
   }
}

TEST( Shapes, takeCountersAsTextAndAsNumbers ) {
   const Api::Interface interface = Api::readInterface(
      R"({"name":"et1","samples":"18446744073709551615","consecutive-drained-samples":4})" );
   EXPECT_EQ( interface.samples, 18446744073709551615u );
   EXPECT_EQ( interface.consecutiveDrainedSamples, 4 );
}

TEST( Shapes, leaveWhatTheyDoNotKnowAlone ) {
   EXPECT_EQ( Api::readUnit( R"({"name":"a","state":"normal","colour":{"red":1}})" ).name, "a" );
}

TEST( Shapes, sayWhatIsWrong ) {
   EXPECT_EQ( complaintOf( Api::readUnit, "<html>" ), "the agent's answer makes no sense: it is no JSON" );
   EXPECT_EQ( complaintOf( Api::readUnit, "[]" ), "the agent's answer makes no sense: an object is missing" );
   EXPECT_EQ( complaintOf( Api::readUnits, "{}" ), "the agent's answer makes no sense: a list is missing" );
   const struct {
      const char * text;
      const char * what;
   } rows[] = {
      { R"({"state":"normal"})", "\"name\" is missing" },
      { R"({"name":1,"state":"normal"})", "\"name\" is no text" },
      { R"({"name":"a","state":"normal","since":"soon"})", "\"since\" is no time" },
      { R"({"name":"a","state":"normal","generation":-1})", "\"generation\" is no counter" },
      { R"({"name":"a","state":"normal","generation":"x"})", "\"generation\" is no counter" },
      { R"({"name":"a","state":"normal","rates":{"in-bps":"1"}})", "\"in-bps\" is no number" },
      { R"({"name":"a","state":"normal","violating":"et1"})", "\"violating\" is no list" },
      { R"({"name":"a","state":"normal","violating":[1]})", "\"violating\" holds something else than text" },
      { R"({"name":"a","state":"normal","interfaces":[]})", "an object is missing" } };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.text );
      EXPECT_EQ(
         complaintOf( Api::readUnit, row.text ),
         "the agent's answer makes no sense: " + std::string( row.what ) );
   }
   EXPECT_EQ(
      complaintOf( Api::readInterface, R"({"name":"a","spike":1})" ),
      "the agent's answer makes no sense: \"spike\" is neither true nor false" );
}

TEST( Shapes, takeARefusalWithTheErrorsOfAFile ) {
   const auto refusal = Api::readRefusal(
      R"({"error":{"code":"bad-request","message":"m","where":null},"errors":[{"file":"f","line":3,"column":4,"message":"n"}]})" );
   ASSERT_TRUE( refusal );
   EXPECT_EQ( refusal->code, "bad-request" );
   EXPECT_EQ( refusal->message, "m" );
   EXPECT_EQ( refusal->where, "" );
   ASSERT_EQ( refusal->fileErrors.size(), 1 );
   EXPECT_EQ( refusal->fileErrors[0].file, "f" );
   EXPECT_EQ( refusal->fileErrors[0].line, 3 );
   EXPECT_EQ( refusal->fileErrors[0].column, 4 );
   EXPECT_EQ( refusal->fileErrors[0].message, "n" );
}

TEST( Shapes, giveNoRefusalForAnotherText ) {
   for ( const char * text : { "", "<html>", "{}", "[]", R"({"error":"bad"})", R"({"error":{"code":"x"}})" } )
      EXPECT_FALSE( Api::readRefusal( text ) ) << text;
}

} // namespace
