#include "Maintctl/CommandLine.h"
#include "Maintctl/RigTest.h"

#include <gtest/gtest.h>

namespace Maintctl {
namespace {

using Args = std::vector< std::string >;

class TimesTest : public testing::Test {
 protected:
   TimesTest() {
      rig.client.answers(
         "POST /api/v1/units/a/enter", R"({"unit":"a","generation":3,"state":"entering"})", 202 );
   }
   /// The body that such an enter sends.
   std::string sent( Args options ) {
      rig.client.requests.clear();
      options.insert( options.begin(), { "enter", "a" } );
      EXPECT_EQ( ExitStatus::done, rig.run( options ) ) << rig.err;
      const std::string request = rig.client.requests.empty() ? "" : rig.client.requests[0];
      const std::string path = "POST /api/v1/units/a/enter ";
      return request.starts_with( path ) ? request.substr( path.size() ) : request;
   }
   /// What a command line that makes no sense is told.
   static std::string refused( Args options ) {
      options.insert( options.begin(), { "enter", "a" } );
      const Parsed parsed = parse( options, "1.2.3" );
      const auto * const error = std::get_if< UsageError >( &parsed );
      return error ? error->failure.message : "taken";
   }
   static std::string
   unit( const std::string & state, const std::string & times, const std::string & more = "" ) {
      return R"({"name":"a","state":")" + state +
             R"(","generation":3,"interfaces":{"total":5,"drained":2},"times":{)" + times + "}" + more + "}";
   }

   Rig rig;
};

constexpr char late[] =
   R"("deadline":"2023-11-14T22:13:20.000Z","deadline-left-seconds":null,"on-overrun":"restore",)"
   R"("overrun":"2023-11-14T22:13:20.000Z","revert-at":null,"revert-left-seconds":null,"doubt":null)";

TEST_F( TimesTest, enterSendsThemAsTheyAreWritten ) {
   EXPECT_EQ( "{}", sent( {} ) );
   EXPECT_EQ( R"({"deadline":"10m"})", sent( { "--deadline", "10m" } ) );
   EXPECT_EQ(
      R"({"deadline":"1h30m","on-overrun":"restore","revert-after":"720h"})",
      sent( { "--revert-after", "720h", "--on-overrun", "restore", "--deadline=1h30m" } ) );
   EXPECT_EQ(
      R"({"deadline":"never","revert-after":"never"})",
      sent( { "--deadline", "never", "--revert-after", "never" } ) );
}

TEST_F( TimesTest, whatMakesNoSenseIsRefusedBeforeItIsSent ) {
   for ( const auto & [options, expected] :
         { std::pair( Args{ "--deadline", "0s" }, "--deadline: must be at least 1s, or \"never\"" ),
           std::pair( Args{ "--revert-after", "0h" }, "--revert-after: must be at least 1s, or \"never\"" ),
           std::pair( Args{ "--deadline", "5" }, "--deadline: \"5\" has no unit; write 5s, 5m or 5h" ),
           std::pair(
              Args{ "--revert-after", "721h" },
              "--revert-after: \"721h\" is out of range; a time is at most 720h" ),
           std::pair( Args{ "--on-overrun", "restore" }, "--on-overrun requires --deadline" ),
           std::pair(
              Args{ "--deadline", "1m", "--on-overrun", "go" },
              "--on-overrun: go not in {keep,restore}" ) } ) {
      SCOPED_TRACE( expected );
      const std::string said = refused( options );
      EXPECT_NE( std::string::npos, said.find( expected ) ) << said;
   }
}

TEST_F( TimesTest, exitKnowsNone ) {
   const Parsed parsed = parse( { "exit", "a", "--revert-after", "1m" }, "1.2.3" );
   EXPECT_TRUE( std::holds_alternative< UsageError >( parsed ) );
}

TEST_F( TimesTest, showUnitTellsThem ) {
   rig.client.answers(
      "GET /api/v1/units/a",
      unit(
         "entering",
         R"("deadline":"2023-11-14T22:13:20.000Z","deadline-left-seconds":89.2,"on-overrun":"restore",)"
         R"("overrun":null,"revert-at":"2023-11-15T00:13:20.000Z","revert-left-seconds":7200,"doubt":null)" ) );
   EXPECT_EQ( ExitStatus::done, rig.run( { "show", "unit", "a" } ) );
   EXPECT_NE(
      std::string::npos,
      rig.out.find( "Deadline:        2023-11-14T22:13:20.000Z, 1m30s left, or restore\n" ) )
      << rig.out;
   EXPECT_NE( std::string::npos, rig.out.find( "Goes back:       2023-11-15T00:13:20.000Z, in 2h00m\n" ) )
      << rig.out;
}

TEST_F( TimesTest, showUnitSaysNothingOfWhatComesOfAUnitThatGoesOn ) {
   rig.client.answers(
      "GET /api/v1/units/a",
      unit(
         "entering",
         R"("deadline":"2023-11-14T22:13:20.000Z","deadline-left-seconds":89.2,"on-overrun":"keep")" ) );
   EXPECT_EQ( ExitStatus::done, rig.run( { "show", "unit", "a" } ) );
   EXPECT_NE( std::string::npos, rig.out.find( "Deadline:        2023-11-14T22:13:20.000Z, 1m30s left\n" ) )
      << rig.out;
}

TEST_F( TimesTest, showUnitTellsThatItIsTooLateAndWhatIsInDoubt ) {
   rig.client.answers(
      "GET /api/v1/units/a",
      unit(
         "maintenance",
         R"("deadline":"2023-11-14T22:13:20.000Z","on-overrun":"keep","overrun":"2023-11-14T22:13:20.000Z",)"
         R"("revert-at":"2023-11-15T00:13:20.000Z","revert-left-seconds":5,"doubt":"behind")" ) );
   EXPECT_EQ( ExitStatus::done, rig.run( { "show", "unit", "a" } ) );
   EXPECT_NE( std::string::npos, rig.out.find( ", too late; it goes on" ) ) << rig.out;
   EXPECT_NE(
      std::string::npos,
      rig.out.find(
         ", in 5s; wall time was behind when the machine started, so the time for which it was off is "
         "not counted\n" ) )
      << rig.out;
}

TEST_F( TimesTest, showUnitWithoutTimesSaysNothingOfThem ) {
   rig.client.answers( "GET /api/v1/units/a", R"({"name":"a","state":"normal"})" );
   EXPECT_EQ( ExitStatus::done, rig.run( { "show", "unit", "a" } ) );
   EXPECT_EQ( std::string::npos, rig.out.find( "Deadline" ) );
   EXPECT_EQ( std::string::npos, rig.out.find( "Goes back" ) );
}

TEST_F( TimesTest, waitingSaysOnceThatTheUnitIsTooLateAndEndsWhenItGoesBackForThat ) {
   rig.client.answers( "GET /api/v1/units/a", unit( "entering", "" ) );
   rig.pace.at( 3, [this] { rig.client.replaces( "GET /api/v1/units/a", unit( "entering", late ) ); } );
   rig.pace.at( 6, [this] {
      rig.client.replaces(
         "GET /api/v1/units/a",
         unit( "exiting", "", R"(,"by":"maintd","reason":"not under maintenance within 1m")" ) );
   } );
   EXPECT_EQ(
      ExitStatus::notMet, rig.run( { "enter", "a", "--wait", "--deadline", "1m", "--on-overrun=restore" } ) );
   const std::string said = "a is not under maintenance by its deadline, and goes back\n";
   const std::size_t first = rig.err.find( said );
   ASSERT_NE( std::string::npos, first ) << rig.err;
   EXPECT_EQ( std::string::npos, rig.err.find( said, first + 1 ) ) << rig.err;
   EXPECT_NE(
      std::string::npos,
      rig.err.find( "a is exiting now: the agent has decided so (maintd: not under maintenance within 1m)" ) )
      << rig.err;
}

TEST_F( TimesTest, waitingGoesOnForAUnitThatIsKept ) {
   std::string kept = late;
   kept.replace( kept.find( "restore" ), 7, "keep" );
   rig.client.answers( "GET /api/v1/units/a", unit( "entering", kept ) );
   rig.pace.at(
      6, [this, kept] { rig.client.replaces( "GET /api/v1/units/a", unit( "maintenance", kept ) ); } );
   EXPECT_EQ( ExitStatus::done, rig.run( { "enter", "a", "--wait" } ) );
   EXPECT_NE( std::string::npos, rig.err.find( "a is not under maintenance by its deadline, and goes on\n" ) )
      << rig.err;
}

TEST_F( TimesTest, reportTellsWhatWasSet ) {
   rig.client.answers(
      "GET /api/v1/history/7",
      R"({"id":7,"unit":"a","generation":3,"outcome":"cancelled","began":"2023-11-14T22:12:20.000Z",
          "times":{"deadline":"2023-11-14T22:13:20.000Z","on-overrun":"restore",
             "overrun":"2023-11-14T22:13:20.000Z","revert-at":"2023-11-14T23:12:20.000Z"}})" );
   EXPECT_EQ( ExitStatus::done, rig.run( { "report", "7" } ) ) << rig.err;
   EXPECT_NE(
      std::string::npos,
      rig.out.find( "Deadline:           2023-11-14 22:13:20 (after 1m00s), or restore; it was too late\n" ) )
      << rig.out;
   EXPECT_NE( std::string::npos, rig.out.find( "To go back:         2023-11-14 23:12:20 (after 1h00m)\n" ) )
      << rig.out;
}

TEST_F( TimesTest, reportSaysOfAUnitThatWentOnOnlyThatItWasTooLate ) {
   rig.client.answers(
      "GET /api/v1/history/7",
      R"({"id":7,"unit":"a","generation":3,"outcome":"completed","began":"2023-11-14T22:12:20.000Z",
          "times":{"deadline":"2023-11-14T22:13:20.000Z","on-overrun":"keep",
             "overrun":"2023-11-14T22:13:20.000Z"}})" );
   EXPECT_EQ( ExitStatus::done, rig.run( { "report", "7" } ) ) << rig.err;
   EXPECT_NE(
      std::string::npos,
      rig.out.find( "Deadline:           2023-11-14 22:13:20 (after 1m00s); it was too late\n" ) )
      << rig.out;
}

} // namespace
} // namespace Maintctl
