#include "Maintctl/RigTest.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace Maintctl {

namespace {

using namespace std::string_literals;

/// The unit `a` is where somebody waits for it to be.
class ArrivalTest : public testing::Test {
 protected:
   void is( const std::string & state ) {
      rig.client.replaces(
         "GET /api/v1/units/a",
         R"({"name":"a","state":")" + state + R"(","generation":3,"interfaces":{"total":1,"drained":1}})" );
   }
   void skips( const std::vector< std::string > & interfaces, const std::string & reason ) {
      std::string list;
      for ( const std::string & interface : interfaces )
         list += ( list.empty() ? "" : "," ) + R"({"interface":")"s + interface + R"(","reason":")" + reason +
                 "\"}";
      rig.client.replaces(
         "GET /api/v1/units/a/explain",
         R"({"unit":"a","state":"maintenance","stuck":false,"waiting":[],"skipped":[)" + list + "]}" );
   }
   void shows( const std::string & interfaces ) {
      rig.client.replaces( "GET /api/v1/interfaces?unit=a", "[" + interfaces + "]" );
   }
   static std::string interface( const std::string & name, bool shut, const std::string & units ) {
      return R"({"name":")" + name + R"(","shut":)" + ( shut ? "true" : "false" ) + R"(,"units":[)" + units +
             "]}";
   }
   void others( const std::string & ofB, const std::string & ofC = "normal" ) {
      std::string list;
      for ( const auto & [name, state] : { std::pair( "a", "normal"s ), { "b", ofB }, { "c", ofC } } )
         list += ( list.empty() ? "" : "," ) + R"({"name":")"s + name + R"(","state":")" + state + "\"}";
      rig.client.replaces( "GET /api/v1/units", "[" + list + "]" );
   }
   std::string waitFor( const std::string & state ) {
      EXPECT_EQ( rig.run( { "wait", "a", "--for=" + state } ), ExitStatus::done ) << rig.err;
      return rig.out;
   }

   Rig rig;
};

TEST_F( ArrivalTest, namesAnInterfaceThatDoesNotExist ) {
   is( "maintenance" );
   skips( { "eth99" }, "does not exist" );
   EXPECT_EQ(
      waitFor( "maintenance" ), "a is under maintenance after 0s; not waited for: eth99 does not exist\n" );
}

TEST_F( ArrivalTest, saysItBehindAnEnterToo ) {
   is( "maintenance" );
   skips( { "eth99" }, "does not exist" );
   rig.client.answers(
      "POST /api/v1/units/a/enter", R"({"unit":"a","generation":3,"state":"entering","changed":true})", 202 );
   EXPECT_EQ( rig.run( { "enter", "a", "--wait" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "a is under maintenance after 0s; not waited for: eth99 does not exist\n" );
}

TEST_F( ArrivalTest, saysNothingMoreWhenAllHasBeenWaitedFor ) {
   is( "maintenance" );
   skips( {}, "" );
   EXPECT_EQ( waitFor( "maintenance" ), "a is under maintenance after 0s\n" );
}

TEST_F( ArrivalTest, namesAFewOfMany ) {
   is( "maintenance" );
   skips( { "e1", "e2", "e3", "e4", "e5" }, "does not exist" );
   EXPECT_EQ(
      waitFor( "maintenance" ),
      "a is under maintenance after 0s; not waited for: e1 does not exist, e2 does not exist, e3 does not "
      "exist and 2 more\n" );
}

TEST_F( ArrivalTest, countsTheVlansOfARange ) {
   is( "maintenance" );
   skips( { "e1", "vlan 20", "vlan 21" }, "does not exist" );
   EXPECT_EQ(
      waitFor( "maintenance" ),
      "a is under maintenance after 0s; not waited for: e1 does not exist, 2 VLANs that do not exist\n" );
   skips( { "vlan 20" }, "does not exist" );
   EXPECT_EQ(
      waitFor( "maintenance" ), "a is under maintenance after 0s; not waited for: vlan 20 does not exist\n" );
}

TEST_F( ArrivalTest, namesALinkThatStaysShutForAnotherUnit ) {
   is( "normal" );
   shows( interface( "et1", true, R"("a","b")" ) + "," + interface( "et2", false, R"("a","b")" ) );
   others( "maintenance" );
   EXPECT_EQ( waitFor( "normal" ), "a is normal after 0s; et1 stays shut for b\n" );
}

TEST_F( ArrivalTest, namesAllUnitsForWhichLinksStayShut ) {
   is( "normal" );
   shows( interface( "et1", true, R"("a","b")" ) + "," + interface( "et2", true, R"("a","b","c")" ) );
   others( "maintenance", "entering" );
   EXPECT_EQ( waitFor( "normal" ), "a is normal after 0s; et1, et2 stay shut for b, c\n" );
}

TEST_F( ArrivalTest, namesNoUnitThatIsNormalItself ) {
   is( "normal" );
   shows( interface( "et1", true, R"("a","b","c")" ) );
   others( "normal", "exiting" );
   EXPECT_EQ( waitFor( "normal" ), "a is normal after 0s; et1 stays shut for c\n" );
   others( "normal" );
   EXPECT_EQ( waitFor( "normal" ), "a is normal after 0s\n" );
}

TEST_F( ArrivalTest, namesNoLinkThatCouldNotBeShutAsOneThatStaysSo ) {
   is( "normal" );
   shows( R"({"name":"et1","shut":true,"shut-problem":"refused","units":["a","b"]})" );
   others( "maintenance" );
   EXPECT_EQ( waitFor( "normal" ), "a is normal after 0s\n" );
}

/// Somebody has put it into maintenance again since it was seen to be normal.
TEST_F( ArrivalTest, doesNotSayThatLinksStayShutForTheUnitItself ) {
   is( "normal" );
   shows( interface( "et1", true, R"("a","b")" ) );
   rig.client.replaces(
      "GET /api/v1/units", R"([{"name":"a","state":"entering"},{"name":"b","state":"normal"}])" );
   EXPECT_EQ( waitFor( "normal" ), "a is normal after 0s\n" );
}

TEST_F( ArrivalTest, isNotToldToWhoeverInterruptsWhatIsAskedBehindIt ) {
   is( "maintenance" );
   const auto interrupt = [this] { rig.client.interruptNext(); };
   rig.client.during( [this, interrupt] { rig.client.during( interrupt ); } );
   EXPECT_EQ( rig.run( { "wait", "a", "--for=maintenance" } ), ExitStatus::interrupted );
   EXPECT_EQ( rig.out, "" );
   EXPECT_EQ( rig.client.requests.size(), 1 ) << "the second one was interrupted";
}

TEST_F( ArrivalTest, isToldAlsoWhenTheRestCannotBeHad ) {
   is( "normal" );
   EXPECT_EQ( waitFor( "normal" ), "a is normal after 0s\n" );
}

TEST_F( ArrivalTest, asksNothingMoreForJson ) {
   is( "maintenance" );
   EXPECT_EQ( rig.run( { "-j", "wait", "a", "--for=maintenance" } ), ExitStatus::done );
   EXPECT_EQ( rig.client.requests.size(), 1 );
}

} // namespace

} // namespace Maintctl
