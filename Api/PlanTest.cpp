#include "Api/Plan.h"
#include "Api/Error.h"

#include <gtest/gtest.h>

namespace Api {

TEST( Plan, isReadWhole ) {
   const Plan plan = readPlan( R"({
      "unit": "u1", "state": "normal", "time": "2026-03-01T12:00:00.000Z", "session": "192.0.2.7",
      "stages": ["steer", "drainwatch"], "needs-force": true,
      "interfaces": [{"name": "et1", "kind": "ethernet", "current": {"in-bps": 1, "out-bps": 2},
         "high": {"in-bps": 3, "out-bps": null, "known-seconds": 60}, "profile": "fast", "profile-why": "named by group a",
         "threshold-bps": 1e5, "load-interval-seconds": 10, "action": "shut-at-latest",
         "shutdown-max-delay-seconds": 300, "not-watched": null}],
      "findings": [{"code": "last-path", "severity": "blocking", "interfaces": ["et1"], "text": "no way",
         "numbers": {"destinations": 1}},
         {"code": "no-steering", "severity": "warning", "interfaces": null, "text": "none", "numbers": {}}]})" );
   EXPECT_EQ( "u1", plan.unit );
   EXPECT_EQ( "192.0.2.7", plan.session );
   EXPECT_EQ( ( std::vector< std::string >{ "steer", "drainwatch" } ), plan.stages );
   EXPECT_TRUE( plan.needsForce );
   ASSERT_EQ( 1u, plan.interfaces.size() );
   const PlannedInterface & et1 = plan.interfaces[0];
   EXPECT_EQ( 1, et1.inBps );
   EXPECT_EQ( 3, et1.highInBps );
   EXPECT_FALSE( et1.highOutBps );
   EXPECT_EQ( 60, et1.highKnownSeconds );
   EXPECT_EQ( "named by group a", et1.profileWhy );
   EXPECT_EQ( "shut-at-latest", et1.action );
   EXPECT_EQ( 300, et1.shutdownMaxDelaySeconds );
   EXPECT_FALSE( et1.notWatched );
   ASSERT_EQ( 2u, plan.findings.size() );
   EXPECT_EQ( std::vector< std::string >{ "et1" }, plan.findings[0].interfaces );
   EXPECT_TRUE( plan.findings[1].interfaces.empty() );
   EXPECT_NE( std::string::npos, plan.findings[0].json.find( "\"destinations\":1" ) );
   EXPECT_THROW( readPlan( "{\"unit\": 5}" ), Error );
}

TEST( Plan, findingsOfARefusalAreReadIfThereAreAny ) {
   const auto findings = readRefusedFindings(
      R"({"error": {"code": "needs-force", "findings": [{"code": "degraded", "severity": "blocking", "text": "x"}]}})" );
   ASSERT_EQ( 1u, findings.size() );
   EXPECT_EQ( "degraded", findings[0].code );
   for ( const char * text :
         { "", "{}", "{\"error\": {}}", "{\"error\": 1}", "{\"error\": {\"findings\": 2}}" } )
      EXPECT_TRUE( readRefusedFindings( text ).empty() ) << text;
}

} // namespace Api
