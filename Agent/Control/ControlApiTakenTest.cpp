#include "Agent/Control/ControlApiRigTest.h"
#include "Agent/Model/Operation.h"

#include <nlohmann/json.hpp>

namespace Agent {

namespace {

using nlohmann::json;

/// What is taken of requests for operations, and what is told of it.
class ControlApiTaken : public ControlApiRig {
 protected:
   json body() const { return json::parse( reply.body ); }
   std::uint64_t fingerprintOf( const std::string & body ) {
      requests.clear();
      EXPECT_EQ( 202, post( "units/u1/exit", body ) ) << body;
      return requests.empty() ? 0 : requests.back().fingerprint;
   }
};

TEST_F( ControlApiTaken, passesOnKeysAndPairs ) {
   for ( const char * path : { "units/u1/enter", "units/u1/exit" } ) {
      EXPECT_EQ( 202, post( path, R"({"request-key":"job/7!","with":{"b.c":"","a":"x = \"y\" ä"}})" ) );
      EXPECT_EQ( "job/7!", requests.back().key );
      EXPECT_EQ( "a=x = \"y\" \xc3\xa4\nb.c=\n", requests.back().with );
      EXPECT_EQ( 202, post( path, R"({"request-key":null,"with":null})" ) );
      EXPECT_EQ( "", requests.back().key );
      EXPECT_EQ( "", requests.back().with );
   }
}

TEST_F( ControlApiTaken, keepsTheBeginningOfALongReason ) {
   const std::string most( Operation::longestReason, 'x' );
   EXPECT_EQ( 202, post( "units/u1/exit", json{ { "reason", most } }.dump() ) );
   EXPECT_EQ( most, requests.back().reason );
   EXPECT_EQ( 202, post( "units/u1/exit", json{ { "reason", most.substr( 1 ) + "\xc3\xa4\n" } }.dump() ) );
   EXPECT_EQ( most.substr( 1 ), requests.back().reason ) << "no half of a character";
}

TEST_F( ControlApiTaken, refusesABodyThatIsVeryDeep ) {
   for ( const std::string open : { "[", "{\"a\":" } ) {
      std::string deep = "{\"reason\":";
      while ( deep.size() < 60000 )
         deep += open;
      EXPECT_EQ( 400, post( "units/u1/exit", deep ) );
      EXPECT_NE( std::string::npos, reply.body.find( "values within values" ) ) << reply.body;
   }
   EXPECT_EQ( 400, post( "units/u1/exit", R"({"other":[[[[[[[[[1]]]]]]]]]})" ) );
   EXPECT_NE( std::string::npos, reply.body.find( "is not known here" ) ) << reply.body;
}

TEST_F( ControlApiTaken, knowsTheSameRequestByWhatItAsksFor ) {
   const auto same = fingerprintOf( R"({"reason":"x","timeout":5,"with":{"a":"1","b":"2"}})" );
   EXPECT_EQ( 0x08f44b07b5901a25u, fingerprintOf( "{}" ) ) << "it is kept in stores: it must not change";
   EXPECT_EQ( fingerprintOf( "" ), fingerprintOf( R"({"reason":null,"request-key":"k"})" ) );
   EXPECT_EQ(
      same, fingerprintOf( R"({"with":{"b":"2","a":"1"},"timeout":5,"request-key":"k","reason":"x"})" ) );
   for ( const char * other :
         { R"({"reason":"x","timeout":6,"with":{"a":"1","b":"2"}})", R"({"reason":"y"})", "{}",
           R"({"reason":"x","timeout":5,"with":{"a":"1","b":"3"}})", R"({"reason":"x","timeout":5})" } )
      EXPECT_NE( same, fingerprintOf( other ) ) << other;
   post( "units/u1/enter", R"({"reason":"x","session":"192.0.2.1"})" );
   const auto from = requests.back().fingerprint;
   post( "units/u1/enter", R"({"reason":"x"})" );
   EXPECT_EQ( from, requests.back().fingerprint ) << "where somebody comes from is no part of it";
}

TEST_F( ControlApiTaken, tellsWhetherARequestHasChangedAnything ) {
   taken = { {}, 9, false };
   EXPECT_EQ( 202, post( "units/u1/exit" ) );
   EXPECT_EQ( 9, body().at( "operation" ) );
   EXPECT_EQ( false, body().at( "changed" ) );
   EXPECT_EQ( false, body().at( "repeated" ) );
   taken = { {}, 0, false };
   EXPECT_EQ( 202, post( "units/u1/exit" ) );
   EXPECT_EQ( nullptr, body().at( "operation" ) );
}

TEST_F( ControlApiTaken, judgesNoEnterAgainThatWasAskedForBefore ) {
   repeated = ControlCommands::Taken{ {}, 3, false, true };
   EXPECT_EQ( 202, post( "units/u1/enter", R"({"request-key":"k"})" ) );
   EXPECT_EQ( 3, body().at( "operation" ) );
   EXPECT_EQ( true, body().at( "repeated" ) );
   EXPECT_TRUE( asked.empty() );
   repeated = ControlCommands::Taken{ Api::Error{ Api::ErrorCode::conflict, "used", "k" }, 3 };
   EXPECT_EQ( 409, post( "units/u1/enter", R"({"request-key":"k"})" ) );
   EXPECT_EQ( 3, body().at( "error" ).at( "operation" ) );
   EXPECT_TRUE( asked.empty() );
   repeated = ControlCommands::Taken{ {}, 3, false, true };
   EXPECT_EQ( 404, post( "units/gone/enter", R"({"request-key":"k"})" ) )
      << "the unit is not configured any more";
}

TEST_F( ControlApiTaken, namesTheOperationThatIsInTheWay ) {
   taken = { Api::Error{ Api::ErrorCode::conflict, "on its way back", "u1" }, 4 };
   EXPECT_EQ( 409, post( "units/u1/enter" ) );
   EXPECT_EQ( 4, body().at( "error" ).at( "operation" ) );
   taken.operation = 0;
   EXPECT_EQ( 409, post( "units/u1/enter" ) );
   EXPECT_FALSE( body().at( "error" ).contains( "operation" ) );
}

TEST_F( ControlApiTaken, namesWhatIsWrongWithKeysAndPairs ) {
   const std::string longKey( 129, 'k' ), longValue( 257, 'v' );
   json many;
   for ( unsigned i = 0; i < 17; ++i )
      many["with"]["k" + std::to_string( i )] = "v";
   const std::pair< std::string, const char * > rows[] = {
      { R"({"request-key":""})", "request-key" },
      { R"({"request-key":"a b"})", "request-key" },
      { R"({"request-key":"ä"})", "request-key" },
      { R"({"request-key":5})", "request-key" },
      { R"({"request-key":")" + longKey + R"("})", "request-key" },
      { R"({"with":[]})", "with" },
      { R"({"with":"a=b"})", "with" },
      { R"({"with":{"a":1}})", "with.a" },
      { R"({"with":{"a":null}})", "with.a" },
      { R"({"with":{"":"x"}})", "with" },
      { R"({"with":{"a b":"x"}})", "with" },
      { R"({"with":{"a=b":"x"}})", "with" },
      { R"({"with":{"a":"x\ny"}})", "with" },
      { R"({"with":{"a":")" + longValue + R"("}})", "with" },
      { many.dump(), "with" } };
   for ( const auto & [text, where] : rows )
      for ( const char * path : { "units/u1/enter", "units/u1/exit" } ) {
         SCOPED_TRACE( text );
         EXPECT_EQ( 400, post( path, text ) );
         EXPECT_EQ( "bad-request \"" + std::string( where ) + "\"", refused() );
      }
   EXPECT_TRUE( asked.empty() );
}

TEST_F( ControlApiTaken, showsAnOperation ) {
   auto & operation = *rig.operations->operationIs( 7, "u1" );
   operation.kindIs( OperationKind::enter );
   operation.byIs( "ann" );
   operation.withIs( "a=b\n" );
   operation.begunIs( 1700000000.25 );
   EXPECT_EQ(
      json::parse(
         R"({"id":7,"kind":"enter","unit":"u1","interface":null,"state":"running","by":"ann","reason":null,
         "with":{"a":"b"},"request-key":null,"begun":"2023-11-14T22:13:20.250Z","ended":null,"ended-by":null,
         "text":"u1 goes into maintenance"})" ),
      json::parse( got( "operations/7" ) ) );
   operation.stateIs( OperationState::cancelled );
   operation.endedByIs( 8 );
   operation.textIs( "it is over" );
   operation.requestKeyIs( "k" );
   operation.reasonIs( "\xff" );
   const json ended = json::parse( got( "operations" ) ).at( 0 );
   EXPECT_EQ( 8, ended.at( "ended-by" ) );
   EXPECT_EQ( "it is over", ended.at( "text" ) );
   EXPECT_EQ( "k", ended.at( "request-key" ) );
   EXPECT_EQ( "\xEF\xBF\xBD", ended.at( "reason" ) );
}

} // namespace

} // namespace Agent
