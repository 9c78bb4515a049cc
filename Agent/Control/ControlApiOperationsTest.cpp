#include "Agent/Control/ControlApiRigTest.h"
#include "Platform/Vel/Trace.h"

#include <nlohmann/json.hpp>

namespace Agent {

namespace {

using Maintenance::Unit::UnitState;
using nlohmann::json;

const Vel::TraceFacility testTrace( "ControlApiTest" );
const Vel::TraceFacility testTraceTwin( "ControlApiTest" );

class ControlApiOperations : public ControlApiRig {
 protected:
   json body() const { return json::parse( reply.body ); }
};

// ---- operations

TEST_F( ControlApiOperations, answersAnEnterWhenItIsCommitted ) {
   rig.unit( "u1" ).genIdIs( 4 );
   rig.unit( "u1" ).stateIs( UnitState::enterInProgress );
   EXPECT_EQ( 202, post( "units/u1/enter", R"({"reason":"new \"card\"","timeout":"5m"})" ) );
   EXPECT_FALSE( answeredAtOnce );
   EXPECT_EQ(
      json::parse(
         R"({"unit":"u1","generation":4,"state":"entering","operation":5,"changed":true,"repeated":false})" ),
      body() );
   EXPECT_EQ( std::vector< std::string >{ "enter u1 [new \"card\"] ann 300s" }, asked );
}

TEST_F( ControlApiOperations, takesATimeoutAsTimeOrSecondsOrNot ) {
   for ( const auto & [body, expected] :
         { std::pair( "", "exit u1 [] ann" ), std::pair( "{}", "exit u1 [] ann" ),
           std::pair( R"({"timeout":null,"reason":null})", "exit u1 [] ann" ),
           std::pair( R"({"timeout":90})", "exit u1 [] ann 90s" ),
           std::pair( R"({"timeout":"1h30m"})", "exit u1 [] ann 5400s" ) } ) {
      SCOPED_TRACE( body );
      asked.clear();
      EXPECT_EQ( 202, post( "units/u1/exit", body ) );
      EXPECT_EQ( std::vector< std::string >{ expected }, asked );
   }
}

TEST_F( ControlApiOperations, passesOnHowTheAgentRefuses ) {
   const std::tuple< Api::ErrorCode, int, const char * > rows[] = {
      { Api::ErrorCode::badRequest, 400, "bad-request" },
      { Api::ErrorCode::notFound, 404, "not-found" },
      { Api::ErrorCode::conflict, 409, "conflict" },
      { Api::ErrorCode::unavailable, 503, "unavailable" },
      { Api::ErrorCode::internal, 500, "internal" } };
   for ( const auto & [code, status, text] : rows )
      for ( const auto & [path, body] :
            { std::pair( "units/u1/enter", "{}" ), std::pair( "units/u1/exit", "{}" ),
              std::pair( "interfaces/et1/release", R"({"force":true})" ),
              std::pair( "simulated/advance", R"({"seconds":1})" ) } ) {
         SCOPED_TRACE( path );
         refusal = Api::Error{ code, "why", "here" };
         EXPECT_EQ( status, post( path, body ) );
         EXPECT_EQ( path != std::string( "units/u1/enter" ), answeredAtOnce ) << "an enter is judged first";
         EXPECT_EQ( std::string( text ) + " \"here\"", refused() );
         EXPECT_EQ( "why", this->body().at( "error" ).at( "message" ) );
      }
}

TEST_F( ControlApiOperations, releasesALinkOnlyWithForce ) {
   for ( const char * body : { "", "{}", R"({"force":false})" } ) {
      EXPECT_EQ( 428, post( "interfaces/et1/release", body ) );
      EXPECT_EQ( "needs-force \"et1\"", refused() );
   }
   EXPECT_TRUE( asked.empty() );
   EXPECT_EQ( 202, post( "interfaces/et1/release", R"({"force":true})" ) );
   EXPECT_FALSE( answeredAtOnce );
   EXPECT_EQ( json::parse( R"({"interface":"et1","operation":9,"changed":true,"repeated":false})" ), body() );
   EXPECT_EQ( std::vector< std::string >{ "release et1 by ann" }, asked );
}

TEST_F( ControlApiOperations, setsTraceLevels ) {
   const auto level = [&]( const json & list ) {
      json result;
      for ( const json & entry : list )
         if ( entry.at( "name" ) == "ControlApiTest" ) {
            EXPECT_EQ( nullptr, result ) << "a name is listed twice";
            result = entry.at( "level" );
         }
      return result;
   };
   EXPECT_EQ( -1, level( json::parse( got( "trace" ) ) ) );
   EXPECT_EQ( 200, post( "trace", R"({"name":"ControlApiTest","level":7})" ) );
   EXPECT_EQ( 7, level( body() ) );
   EXPECT_EQ( 7, testTrace.level() );
   EXPECT_EQ( 7, testTraceTwin.level() );
   EXPECT_EQ( 200, post( "trace", R"({"name":"*","level":-1})" ) );
   EXPECT_EQ( -1, testTrace.level() );
   EXPECT_EQ( 404, post( "trace", R"({"name":"Nobody","level":3})" ) );
   EXPECT_EQ( "not-found \"Nobody\"", refused() );
}

TEST_F( ControlApiOperations, saysWhatAReloadChanges ) {
   reloaded.changes = { "profile fast: threshold", "unit u3 added" };
   EXPECT_EQ( 200, post( "reload" ) );
   EXPECT_FALSE( answeredAtOnce );
   EXPECT_EQ( json( reloaded.changes ), body().at( "changes" ) );
   EXPECT_EQ( json(), body().at( "operation" ) );
}

TEST_F( ControlApiOperations, keepsWhyOfAReleaseAndAReload ) {
   post( "interfaces/et1/release", R"({"force":true,"reason":"swap","request-key":"k","with":{"a":"b"}})" );
   reloaded.taken = { std::nullopt, 7, true };
   post( "reload", R"({"reason":"new","request-key":"k2"})" );
   EXPECT_EQ( 7, body().at( "operation" ) );
   EXPECT_EQ( true, body().at( "changed" ) );
   EXPECT_EQ(
      ( std::vector< std::string >{ "release et1 by ann: swap k a=b\n", "reload by ann: new k2" } ), asked );
   reloaded = {};
   reloaded.error = Api::Error{ Api::ErrorCode::conflict, "the request key k was used before", "k" };
   reloaded.taken.operation = 7;
   EXPECT_EQ( 409, post( "reload", R"({"request-key":"k"})" ) );
   EXPECT_EQ( 7, body().at( "error" ).at( "operation" ) );
}

TEST_F( ControlApiOperations, listsTheErrorsOfAReload ) {
   reloaded.error = Api::Error{ Api::ErrorCode::badRequest, "the configuration has errors", "x.yaml" };
   reloaded.errors = { { "x.yaml", 3, 7, "unknown key" }, { "x.yaml", 0, 0, "gone" } };
   EXPECT_EQ( 400, post( "reload" ) );
   EXPECT_EQ( "bad-request \"x.yaml\"", refused() );
   EXPECT_EQ(
      json::parse( R"([{"file":"x.yaml","line":3,"column":7,"message":"unknown key"},
         {"file":"x.yaml","line":0,"column":0,"message":"gone"}])" ),
      body().at( "errors" ) );
   reloaded = {};
   reloaded.error = Api::Error{ Api::ErrorCode::conflict, "unit u1 is not normal", "x.yaml" };
   EXPECT_EQ( 409, post( "reload" ) );
   EXPECT_EQ( json::array(), body().at( "errors" ) );
}

TEST_F( ControlApiOperations, drivesTheSimulatedSwitch ) {
   EXPECT_EQ(
      200, post( "simulated/traffic", R"({"interface":"et1","in-bps":1e6,"out-bps":0,"ramp-seconds":5})" ) );
   EXPECT_EQ( 200, post( "simulated/traffic", R"({"interface":"et1","in-bps":1,"out-bps":2})" ) );
   EXPECT_EQ( 200, post( "simulated/link", R"({"interface":"et2","up":true})" ) );
   EXPECT_EQ( 200, post( "simulated/advance", R"({"seconds":60})" ) );
   EXPECT_FALSE( answeredAtOnce );
   EXPECT_EQ( json::parse( R"({"time":"2023-11-14T23:13:20.000Z"})" ), body() );
   EXPECT_EQ(
      ( std::vector< std::string >{
         "traffic et1 1000000 0 5 down", "traffic et1 1 2 0 down", "link et2 0 0 0 up",
         "advance  0 0 60 down" } ),
      asked );
}

// ---- refusals

TEST_F( ControlApiOperations, namesWhatIsWrongWithABody ) {
   const std::tuple< const char *, const char *, const char * > rows[] = {
      { "units/u1/enter", "{", "body" },
      { "units/u1/enter", "[]", "body" },
      { "units/u1/enter", "null", "body" },
      { "units/u1/enter", "{} {}", "body" },
      { "units/u1/enter", "{\"reason\":\"\xff\"}", "body" },
      { "units/u1/enter", R"({"reason":5})", "reason" },
      { "units/u1/enter", R"({"timeout":true})", "timeout" },
      { "units/u1/enter", R"({"timeout":"5"})", "timeout" },
      { "units/u1/enter", R"({"timeout":"soon"})", "timeout" },
      { "units/u1/enter", R"({"timeout":-1})", "timeout" },
      { "units/u1/enter", R"({"timeout":1e30})", "timeout" },
      { "units/u1/exit", R"({"Reason":"x"})", "Reason" },
      { "interfaces/et1/release", R"({"force":"true"})", "force" },
      { "interfaces/et1/release", R"({"force":1})", "force" },
      { "interfaces/et1/release", R"({"force":true,"now":1})", "now" },
      { "units/u1/enter", R"({"force":false,"force":true})", "force" },
      { "units/u1/enter", R"({"with":{"a":"1","b":"2","a":"3"}})", "a" },
      { "trace", "{}", "name" },
      { "trace", R"({"name":"ControlApiTest"})", "level" },
      { "trace", R"({"name":"ControlApiTest","level":"3"})", "level" },
      { "trace", R"({"name":"ControlApiTest","level":10})", "level" },
      { "trace", R"({"name":"ControlApiTest","level":-2})", "level" },
      { "trace", R"({"name":"ControlApiTest","level":1.5})", "level" },
      { "trace", R"({"name":["ControlApiTest"],"level":1})", "name" },
      { "reload", R"({"file":"x"})", "file" },
      { "simulated/traffic", R"({"in-bps":1,"out-bps":1})", "interface" },
      { "simulated/traffic", R"({"interface":"et1","out-bps":1})", "in-bps" },
      { "simulated/traffic", R"({"interface":"et1","in-bps":-1,"out-bps":1})", "in-bps" },
      { "simulated/traffic", R"({"interface":"et1","in-bps":1,"out-bps":1e16})", "out-bps" },
      { "simulated/traffic", R"({"interface":"et1","in-bps":1,"out-bps":1,"ramp-seconds":86401})",
        "ramp-seconds" },
      { "simulated/link", R"({"interface":"et1"})", "up" },
      { "simulated/link", R"({"interface":"et1","up":"yes"})", "up" },
      { "simulated/advance", "{}", "seconds" },
      { "simulated/advance", R"({"seconds":-1})", "seconds" },
      { "simulated/advance", R"({"seconds":1,"interface":"et1"})", "interface" },
   };
   for ( const auto & [path, text, where] : rows ) {
      SCOPED_TRACE( std::string( path ) + " " + text );
      EXPECT_EQ( 400, post( path, text ) );
      EXPECT_TRUE( answeredAtOnce );
      EXPECT_EQ( "bad-request \"" + std::string( where ) + "\"", refused() );
   }
   EXPECT_TRUE( asked.empty() );
   EXPECT_EQ( -1, testTrace.level() );
}

TEST_F( ControlApiOperations, knowsNothingElse ) {
   for ( const char * path :
         { "", "/api", "/api/v1", "/api/v1/", "/api/v2/units", "/units", "/api/v1/nothing",
           "/api/v1/units/u1/explain/more", "/api/v1/units/u1/nothing", "/api/v1/interfaces/et1/enter",
           "/api/v1/simulated", "/api/v1/simulated/nothing", "/healthz/x" } ) {
      SCOPED_TRACE( path );
      EXPECT_EQ( 404, ask( "GET", path ) );
      EXPECT_EQ( "not-found", body().at( "error" ).at( "code" ) );
      EXPECT_EQ( 404, ask( "POST", path, "{}" ) );
   }
   for ( const char * path :
         { "/api/v1/units/nobody", "/api/v1/units/nobody/explain", "/api/v1/interfaces/nobody" } ) {
      SCOPED_TRACE( path );
      EXPECT_EQ( 404, ask( "GET", path ) );
      EXPECT_EQ( "not-found \"nobody\"", refused() );
   }
   EXPECT_TRUE( asked.empty() );
}

TEST_F( ControlApiOperations, takesOneNameInSeveralObjects ) {
   EXPECT_EQ( 202, post( "units/u1/enter", R"({"with":{"reason":"x"},"reason":"y"})" ) );
   EXPECT_EQ( 400, post( "units/u1/enter", R"({"with":{"a":"1"},"with":{"a":"1"}})" ) );
   EXPECT_EQ( "bad-request \"with\"", refused() );
}

TEST_F( ControlApiOperations, saysWhichMethodsAPathTakes ) {
   const std::tuple< const char *, const char *, const char * > rows[] = {
      { "DELETE", "/api/v1/units", "GET, HEAD" }, { "POST", "/api/v1/units/u1", "GET, HEAD" },
      { "PUT", "/healthz", "GET, HEAD" },         { "GET", "/api/v1/units/u1/enter", "POST" },
      { "HEAD", "/api/v1/reload", "POST" },       { "PATCH", "/api/v1/trace", "GET, HEAD, POST" } };
   for ( const auto & [method, path, allowed] : rows ) {
      SCOPED_TRACE( std::string( method ) + " " + path );
      EXPECT_EQ( 405, ask( method, path, "{}" ) );
      EXPECT_EQ( "method-not-allowed \"" + std::string( path ) + "\"", refused() );
      EXPECT_EQ( allowed, reply.allow );
   }
   EXPECT_TRUE( asked.empty() );
}

TEST_F( ControlApiOperations, changesNothingOverTheWeb ) {
   local = false;
   EXPECT_EQ( 200, ask( "GET", "/api/v1/units" ) );
   EXPECT_EQ( 200, ask( "HEAD", "/api/v1/units/u1" ) );
   for ( const char * path :
         { "units/u1/enter", "units/u1/exit", "interfaces/et1/release", "trace", "reload",
           "simulated/traffic", "simulated/link", "simulated/advance" } ) {
      SCOPED_TRACE( path );
      EXPECT_EQ( 405, post( path ) );
      EXPECT_EQ( "method-not-allowed", body().at( "error" ).at( "code" ) );
      EXPECT_EQ( path == std::string( "trace" ) ? "GET, HEAD" : "", reply.allow );
   }
   EXPECT_TRUE( asked.empty() );
}

} // namespace

} // namespace Agent
