#include "Maintctl/CommandLine.h"
#include "Maintctl/RigTest.h"
#include "Maintctl/SessionAddress.h"
#include "Platform/FastLog/ChildTest.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

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

TEST( PlanCommand, breaksNoWordsOnATerminal ) {
   Rig rig;
   rig.data.able.terminal = true;
   rig.client.answers( "GET /api/v1/units/u1/plan", blocked );
   EXPECT_EQ( ExitStatus::done, rig.run( { "plan", "u1" } ) );
   EXPECT_TRUE( ( "\n" + rig.out ).starts_with( R"(
u1 is normal; an enter goes through steer, drainwatch; this session comes from
192.0.2.7

INTERFACE        IN        OUT    95% IN  95% OUT  THRESHOLD
    PROFILE                 WILL BE
et1        812 kbps  40.0 kbps  900 kbps        -   100 kbps
    fast: named by group a  shut when drained, after 5m00s at the latest
et2               -          -         -        -          -
    -                       not watched: does not exist

SEVERITY  CODE         FINDING
)" ) ) << rig.out;
}

TEST( PlanCommand, saysOfHowMuchTimeRatesAreOfWhichLittleIsKnown ) {
   Rig rig;
   std::string brief = blocked;
   const std::string high = R"("high": {"in-bps": 900000, "out-bps": null)";
   brief.insert( brief.find( high ) + high.size(), R"(, "known-seconds": 65)" );
   rig.client.answers( "GET /api/v1/units/u1/plan", brief );
   EXPECT_EQ( ExitStatus::done, rig.run( { "plan", "u1" } ) );
   EXPECT_NE(
      std::string::npos, rig.out.find( "INTERFACE        IN        OUT    95% IN  95% OUT  95% OF  THRESHOLD "
                                       " PROFILE                 WILL BE\n"
                                       "et1        812 kbps  40.0 kbps  900 kbps        -   1m05s   100 kbps "
                                       " fast: named by group a  shut" ) )
      << rig.out;
}

TEST( PlanCommand, doesNotSaySoOfRatesOfWhichEnoughOrNothingIsKnown ) {
   Rig rig;
   std::string whole = blocked;
   for ( const auto & [high, known] :
         { std::pair( R"("high": {"in-bps": 900000, "out-bps": null)", R"(, "known-seconds": 545)" ),
           std::pair( R"("high": {"in-bps": null, "out-bps": null)", R"(, "known-seconds": 0)" ) } )
      whole.insert( whole.find( high ) + std::string( high ).size(), known );
   rig.client.answers( "GET /api/v1/units/u1/plan", whole );
   EXPECT_EQ( ExitStatus::done, rig.run( { "plan", "u1" } ) );
   EXPECT_EQ( std::string::npos, rig.out.find( "95% OF" ) ) << rig.out;
}

TEST( PlanCommand, saysOfAUnitUnderWayThatNothingWouldBegin ) {
   Rig rig;
   rig.client.answers(
      "GET /api/v1/units/u1/plan",
      R"({"unit": "u1", "state": "entering", "stages": ["drainwatch"], "needs-force": false, "interfaces": [],
          "findings": []})" );
   EXPECT_EQ( ExitStatus::done, rig.run( { "plan", "u1" } ) );
   EXPECT_NE( std::string::npos, rig.out.find( "\n\nan enter would begin nothing now\n\n" ) ) << rig.out;
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

TEST( PlanCommand, notesWhyTheOperatorShouldSayFromWhereHeComes ) {
   Rig rig;
   rig.sessionNote = "hidden";
   for ( const char * path : { "GET /api/v1/units/u1/plan", "GET /api/v1/units/u1/plan?session=192.0.2.9" } )
      rig.client.answers( path, blocked );
   for ( const char * unit : { "u1", "u2" } )
      for ( const char * operation : { "enter", "exit" } )
         rig.client.answers(
            "POST /api/v1/units/" + std::string( unit ) + "/" + operation,
            R"({"unit": "u1", "state": "entering", "generation": 1})", 202 );
   const std::pair< Words, const char * > rows[] = {
      { { "plan", "u1" }, "note: hidden\n" },
      { { "plan", "u1", "--session", "192.0.2.9" }, "" },
      { { "enter", "u1", "u2" }, "note: hidden\n" },
      { { "enter", "u1", "--session", "192.0.2.9" }, "" },
      { { "enter", "u1", "-j" }, "" },
      { { "exit", "u1" }, "" },
   };
   for ( const auto & [words, note] : rows ) {
      SCOPED_TRACE( testing::PrintToString( words ) );
      EXPECT_EQ( ExitStatus::done, rig.run( words ) );
      EXPECT_EQ( note, rig.err );
   }
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
           Words{ "plan" }, Words{ "plan", "u1", "--session", "" },
           Words{ "plan", "u1", "--session", "nobody" }, Words{ "enter", "u1", "--session", "192.0.2.7%et1" },
           Words{ "enter", "u1", "--session", "192.0.2.7,nobody" } } ) {
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
   EXPECT_EQ( "192.0.2.7,192.0.2.1", sessionAddress( "192.0.2.7 40000 192.0.2.1 22", nullptr ) );
   EXPECT_EQ( "192.0.2.7", sessionAddress( "192.0.2.7 40000", nullptr ) );
   EXPECT_EQ( "2001:db8::7", sessionAddress( nullptr, "2001:db8::7 40000 22" ) );
   EXPECT_EQ(
      "fe80::7%et1,fe80::1%et1", sessionAddress( "fe80::7%et1 40000 fe80::1%et1 22", "192.0.2.7 1 2" ) );
   EXPECT_EQ( "192.0.2.7", sessionAddress( "UNKNOWN 65535 UNKNOWN 65535", "192.0.2.7 1 2" ) );
   EXPECT_EQ( "", sessionAddress( "UNKNOWN 65535 UNKNOWN 65535", "" ) );
   EXPECT_EQ( "", sessionAddress( nullptr, nullptr ) );
}

class SessionOfAncestors : public testing::Test {
 protected:
   /// A process of whatever name, with its parent; without an environment it may not be read.
   void process(
      int number, const std::string & name, int parent,
      const std::optional< std::string > & environment = std::string() ) {
      const std::string own = folder.file( std::to_string( number ) );
      std::filesystem::create_directory( own );
      std::ofstream( own + "/stat" ) << number << " (" << name << ") S " << parent << " 1 1 0";
      if ( environment )
         std::ofstream( own + "/environ", std::ios::binary ) << *environment;
   }
   OperatorSession of( int number ) const { return operatorSession( folder.file( "" ), number ); }

   FastLog::TempDir folder;
};

TEST_F( SessionOfAncestors, isThatOfTheNearestThatWasToldOne ) {
   using namespace std::string_literals;
   process( 1, "init", 0 );
   process( 10, "sshd", 1, "HOME=/" );
   process(
      20, "bash", 10, "HOME=/\0XSSH_CONNECTION=no\0SSH_CONNECTION=192.0.2.7 40000 192.0.2.1 22\0A=b\0"s );
   process( 30, "su do) R 1", 20, "SSH_CONNECTION=\0SUDO_USER=ann\0"s );
   process( 40, "maintctl", 30, "SSH_CLIENT=UNKNOWN\0"s );
   process( 41, "maintctl", 20, "SSH_CLIENT=192.0.2.8 1 2\0"s );
   EXPECT_EQ( "192.0.2.7,192.0.2.1", of( 40 ).address );
   EXPECT_EQ( "", of( 40 ).note );
   EXPECT_EQ( "192.0.2.8", of( 41 ).address );
   EXPECT_EQ( "", of( 10 ).address );
   EXPECT_EQ( "", of( 99 ).address );
}

TEST_F( SessionOfAncestors, isNoneWhereTheyGoInACircle ) {
   process( 5, "a", 6 );
   process( 6, "b", 5 );
   EXPECT_EQ( "", of( 5 ).address );
}

TEST_F( SessionOfAncestors, isToBeSaidWhereSudoHidesIt ) {
   process( 20, "bash", 1, std::nullopt );
   process( 40, "maintctl", 20, "SUDO_USER=ann" );
   process( 41, "maintctl", 20, "USER=ann" );
   EXPECT_EQ(
      "from where you come cannot be seen behind sudo; --session ADDRESS says it, so that a plan can tell "
      "whether you would cut yourself off",
      of( 40 ).note );
   EXPECT_EQ( "", of( 41 ).note );
}

TEST_F( SessionOfAncestors, isToBeSaidInATerminalMultiplexer ) {
   using namespace std::string_literals;
   process( 20, "bash", 1, "TMUX=x\0SSH_CONNECTION=192.0.2.7 40000 192.0.2.1 22"s );
   process( 21, "bash", 1, "STY=x" );
   EXPECT_EQ( "192.0.2.7,192.0.2.1", of( 20 ).address );
   EXPECT_EQ(
      0u,
      of( 20 ).note.find( "nobody knows from where you look into a terminal multiplexer: 192.0.2.7 is from "
                          "where its window was opened; --session ADDRESS says it" ) )
      << of( 20 ).note;
   EXPECT_EQ( 0u, of( 21 ).note.find( "nobody knows from where you look into a terminal multiplexer; " ) )
      << of( 21 ).note;
}

} // namespace Maintctl
