#include "Maintctl/CommandLine.h"
#include "Maintctl/RigTest.h"
#include "Maintctl/SessionAddress.h"

#include <gtest/gtest.h>

namespace Maintctl {

namespace {

constexpr char blocked[] = R"({
   "unit": "u1", "state": "normal", "time": "2026-03-01T12:00:00.000Z", "session": "192.0.2.7",
   "stages": ["steer", "drainwatch"], "needs-force": true,
   "interfaces": [
      {"name": "et1", "kind": "ethernet", "current": {"in-bps": 812000, "out-bps": 40000},
       "high": {"in-bps": 900000, "out-bps": null}, "profile": "fast", "profile-why": "named by group a",
       "threshold-bps": 100000, "load-interval-seconds": 10, "action": "shut-at-latest",
       "shutdown-max-delay-seconds": 300, "not-watched": null},
      {"name": "et2", "kind": null, "current": {"in-bps": null, "out-bps": null},
       "high": {"in-bps": null, "out-bps": null}, "profile": null, "profile-why": null,
       "threshold-bps": null, "load-interval-seconds": null, "action": "not-watched",
       "shutdown-max-delay-seconds": null, "not-watched": "does not exist"}],
   "findings": [
      {"code": "last-path", "severity": "blocking", "interfaces": ["et1"], "text": "10.0.0.0/8 has no other way than et1",
       "numbers": {"destinations": 1}},
      {"code": "no-steering", "severity": "warning", "interfaces": null, "text": "nobody", "numbers": {}}]})";

constexpr char refusal[] =
   R"({"error": {"code": "needs-force", "message": "no way", "where": "u1", "findings": [
   {"code": "last-path", "severity": "blocking", "interfaces": ["et1"], "text": "no way", "numbers": {"destinations": 3}},
   {"code": "no-steering", "severity": "warning", "interfaces": null, "text": "nobody", "numbers": {}}]}})";

using Words = std::vector< std::string >;

} // namespace

TEST( PlanCommand, drawsATableWithWhatWasFoundBelow ) {
   Rig rig;
   rig.client.answers( "GET /api/v1/units/u1/plan", blocked );
   EXPECT_EQ( ExitStatus::done, rig.run( { "plan", "u1" } ) );
   EXPECT_EQ(
      "u1 is normal; an enter goes through steer, drainwatch; this session comes from 192.0.2.7\n"
      "\n"
      "INTERFACE        IN        OUT    95% IN  95% OUT  THRESHOLD  PROFILE                 WILL BE\n"
      "et1        812 kbps  40.0 kbps  900 kbps        -   100 kbps  fast: named by group a  shut when "
      "drained, "
      "after 5m00s at the latest\n"
      "et2               -          -         -        -          -  -                       not watched: "
      "does "
      "not exist\n"
      "\n"
      "SEVERITY  CODE         FINDING\n"
      "blocking  last-path    10.0.0.0/8 has no other way than et1\n"
      "warning   no-steering  nobody\n"
      "\n"
      "an enter takes --force and --reason\n",
      rig.out );
}

TEST( PlanCommand, saysWhenNothingSpeaksAgainstIt ) {
   Rig rig;
   rig.client.answers(
      "GET /api/v1/units/u1/plan",
      R"({"unit": "u1", "state": "normal", "stages": ["drainwatch"], "needs-force": false, "interfaces": [],
          "findings": []})" );
   EXPECT_EQ( ExitStatus::done, rig.run( { "plan", "u1" } ) );
   EXPECT_EQ(
      "u1 is normal; an enter goes through drainwatch\n\nno interfaces\n\nnothing speaks against it\n",
      rig.out );
}

TEST( PlanCommand, givesTheAgentsAnswerAsJson ) {
   Rig rig;
   rig.client.answers( "GET /api/v1/units/u1/plan", blocked );
   EXPECT_EQ( ExitStatus::done, rig.run( { "-j", "plan", "u1" } ) );
   EXPECT_EQ( "\"last-path\"", at( rig.out, "/findings/0/code" ) );
}

TEST( PlanCommand, saysFromWhereTheOperatorComes ) {
   Rig rig;
   rig.session = "2001:db8::7";
   for ( const char * path :
         { "GET /api/v1/units/u1/plan?session=2001%3Adb8%3A%3A7",
           "GET /api/v1/units/u1/plan?session=192.0.2.9" } )
      rig.client.answers( path, blocked );
   rig.client.answers(
      "POST /api/v1/units/u1/enter", R"({"unit": "u1", "state": "entering", "generation": 1})", 202 );
   EXPECT_EQ( ExitStatus::done, rig.run( { "plan", "u1" } ) );
   EXPECT_EQ( ExitStatus::done, rig.run( { "plan", "u1", "--session", "192.0.2.9" } ) );
   EXPECT_EQ( ExitStatus::done, rig.run( { "enter", "u1" } ) );
   EXPECT_EQ( "POST /api/v1/units/u1/enter {\"session\":\"2001:db8::7\"}", rig.client.requests.back() );
}

TEST( EnterCommand, isRefusedWithWhatSpeaksAgainstIt ) {
   Rig rig;
   rig.client.answers( "POST /api/v1/units/u1/enter", refusal, 428 );
   EXPECT_EQ( ExitStatus::needsForce, rig.run( { "enter", "u1", "--wait" } ) );
   EXPECT_EQ( "", rig.out );
   EXPECT_EQ( "blocking: no way\nwarning: nobody\nmaintctl: u1: this takes --force and --reason\n", rig.err );
}

TEST( EnterCommand, givesWhatSpeaksAgainstItAsJson ) {
   Rig rig;
   rig.client.answers( "POST /api/v1/units/u1/enter", refusal, 428 );
   EXPECT_EQ( ExitStatus::needsForce, rig.run( { "enter", "u1", "-j" } ) );
   EXPECT_EQ( "\"needs-force\"", at( rig.out, "/error/code" ) );
   EXPECT_EQ( "3", at( rig.out, "/error/findings/0/numbers/destinations" ) );
   EXPECT_EQ( "\"no-steering\"", at( rig.out, "/error/findings/1/code" ) );
}

TEST( EnterCommand, asksWithForceAndAReasonOnly ) {
   Rig rig;
   rig.client.answers(
      "POST /api/v1/units/u1/enter", R"({"unit": "u1", "state": "entering", "generation": 1})", 202 );
   for ( const Words & words :
         { Words{ "enter", "u1", "--force" }, Words{ "enter", "u1", "--force", "--reason", "" },
           Words{ "exit", "u1", "--force", "--reason", "x" }, Words{ "exit", "u1", "--session", "192.0.2.7" },
           Words{ "plan" }, Words{ "plan", "u1", "--session", "" } } ) {
      const Parsed parsed = parse( words, "1" );
      const auto * error = std::get_if< UsageError >( &parsed );
      ASSERT_TRUE( error ) << words.back();
      EXPECT_EQ( ExitStatus::usage, error->failure.status );
   }
   EXPECT_EQ( ExitStatus::done, rig.run( { "enter", "u1", "--force", "--reason", "fire" } ) );
   EXPECT_EQ(
      Words{ "POST /api/v1/units/u1/enter {\"reason\":\"fire\",\"force\":true}" }, rig.client.requests );
}

TEST( SessionAddress, isWhatARemoteShellIsTold ) {
   EXPECT_EQ( "192.0.2.7", sessionAddress( "192.0.2.7 40000 192.0.2.1 22", nullptr ) );
   EXPECT_EQ( "2001:db8::7", sessionAddress( nullptr, "2001:db8::7 40000 22" ) );
   EXPECT_EQ( "fe80::7%et1", sessionAddress( "fe80::7%et1 40000 fe80::1%et1 22", "192.0.2.7 1 2" ) );
   EXPECT_EQ( "192.0.2.7", sessionAddress( "UNKNOWN 65535 UNKNOWN 65535", "192.0.2.7 1 2" ) );
   EXPECT_EQ( "", sessionAddress( "UNKNOWN 65535 UNKNOWN 65535", "" ) );
   EXPECT_EQ( "", sessionAddress( nullptr, nullptr ) );
}

} // namespace Maintctl
