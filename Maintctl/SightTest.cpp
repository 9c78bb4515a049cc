#include "Maintctl/Sight.h"

#include "Api/Error.h"
#include "Maintctl/Failure.h"
#include "Maintctl/RigTest.h"

#include <gtest/gtest.h>

namespace Maintctl {

namespace {

using What = Show::What;

class SightTest : public testing::Test {
 protected:
   void SetUp() override {
      clockIs( "2023-11-14T22:13:20.000Z" );
      client.answers( "GET /api/v1/units", "[" + unit() + "]" );
      client.answers( "GET /api/v1/units/a", unit() );
      client.answers( "GET /api/v1/profiles", R"([{"name":"fast","threshold-bps":100000}])" );
   }

   void clockIs( const std::string & time ) {
      client.replaces( "GET /api/v1/agent", R"({"clock":")" + time + "\"}" );
   }
   static std::string unit() {
      return R"({"name":"a","state":"entering","stage":"drainwatch","since":"2023-11-14T22:12:20.000Z","by":"uid 0",
         "reason":"fan","interfaces":{"total":5,"drained":3},"sentence":"3 of 5 drained; et1 5 Mbit/s",
         "eta-seconds":42.5})";
   }
   static std::string intf( const std::string & name, const std::string & more ) {
      return R"({"name":")" + name + R"(","units":["a"],"profile":"fast",)" + more + "}";
   }
   static std::string reason( const std::string & code, const std::string & more = "" ) {
      return R"("state":"enter-maint","reason":{"code":")" + code + R"(","text":"because of )" + code + "\"" +
             more + "}";
   }
   void interfaces( const std::vector< std::string > & all ) {
      std::string list;
      for ( const std::string & one : all )
         list += ( list.empty() ? "" : "," ) + one;
      for ( const char * path : { "GET /api/v1/interfaces", "GET /api/v1/interfaces?unit=a" } )
         client.replaces( path, "[" + list + "]" );
   }
   Picture seen( Sight::Subject subject ) {
      Sight sight( std::move( subject ), remote );
      sight.look();
      return sight.picture();
   }
   static std::vector< std::string > namesOf( const std::vector< IntfPicture > & interfaces ) {
      std::vector< std::string > names;
      for ( const IntfPicture & intf : interfaces )
         names.push_back( intf.name );
      return names;
   }
   using Names = std::vector< std::string >;

   FakeClient client;
   Remote remote{ client };
};

TEST_F( SightTest, showsAUnitInTheWordsOfTheAgent ) {
   interfaces( { intf(
      "et1", reason( "above-threshold", R"(,"eta-seconds":40,"threshold-bps":90000)" ) +
                R"(,"in-bps":5e6,"out-bps":1)" ) } );
   const Picture picture = seen( { What::units, "" } );
   EXPECT_EQ( picture.title, "1 unit" );
   EXPECT_EQ( picture.clock, 1700000000 );
   ASSERT_EQ( picture.units.size(), 1 );
   const UnitPicture & unit = picture.units[0];
   EXPECT_EQ( unit.name, "a" );
   EXPECT_EQ( unit.state, "entering" );
   EXPECT_EQ( unit.stage, "drainwatch" );
   EXPECT_EQ( unit.sentence, "3 of 5 drained; et1 5 Mbit/s" );
   EXPECT_EQ( unit.who, "uid 0: fan" );
   EXPECT_EQ( unit.forSeconds, 60 );
   EXPECT_EQ( unit.etaSeconds, 42.5 );
   EXPECT_EQ( unit.urgency, Urgency::busy );
   EXPECT_TRUE( unit.moving );
   ASSERT_EQ( unit.interfaces.size(), 1 );
   EXPECT_EQ( unit.interfaces[0].text, "because of above-threshold" );
   EXPECT_EQ( unit.interfaces[0].etaSeconds, 40 );
   EXPECT_EQ( unit.interfaces[0].thresholdBps, 90000 );
   EXPECT_EQ( unit.interfaces[0].rates.busiest(), 5e6 );
}

TEST_F( SightTest, putsTheSlowestFirst ) {
   interfaces(
      { intf( "quiet", reason( "timing", R"(,"eta-seconds":4)" ) ), intf( "drained", reason( "drained" ) ),
        intf( "soon", reason( "above-threshold", R"(,"eta-seconds":20)" ) ),
        intf( "late", reason( "above-threshold", R"(,"eta-seconds":90)" ) ),
        intf( "unknown", reason( "above-threshold" ) + R"(,"in-bps":2e5,"out-bps":0)" ),
        intf( "worse", reason( "above-threshold" ) + R"(,"in-bps":0,"out-bps":3e9)" ),
        intf( "stalled", reason( "stalled" ) ), intf( "spike", reason( "spike" ) ) } );
   const Names slowest{ "spike", "worse", "unknown", "stalled", "late", "soon", "quiet" };
   EXPECT_EQ( namesOf( seen( { What::units, "" } ).units[0].interfaces ), slowest );
   Names all = slowest;
   all.push_back( "drained" );
   EXPECT_EQ( namesOf( seen( { What::unit, "a" } ).units[0].interfaces ), all );
   EXPECT_EQ( namesOf( seen( { What::unit, "a", true } ).units[0].interfaces ), slowest );
   EXPECT_EQ( namesOf( seen( { What::interfaces, "" } ).interfaces ), all );
}

TEST_F( SightTest, takesNothingForStuckThatIsOverAlready ) {
   const std::string above = R"(,"rate-bps":3e5,"threshold-bps":1e5)",
                     below = R"(,"rate-bps":3e3,"threshold-bps":1e5)";
   interfaces(
      { intf( "et1", reason( "stalled", above ) ),
        intf( "et2", reason( "stalled", above + R"(,"eta-seconds":40)" ) ),
        intf( "et3", reason( "oscillating", below + R"(,"eta-seconds":4)" ) ) } );
   const auto seenInterfaces = seen( { What::unit, "a" } ).units[0].interfaces;
   EXPECT_EQ( seenInterfaces[0].urgency, Urgency::stuck );
   EXPECT_EQ( seenInterfaces[1].urgency, Urgency::busy );
   EXPECT_EQ( seenInterfaces[2].urgency, Urgency::quiet );
}

TEST_F( SightTest, doesNotTakeForDoneWhatNobodyWatches ) {
   interfaces(
      { intf( "et1", reason( "drained" ) ),
        intf( "et2", reason( "drained", R"(,"unwatched-since":"2023-11-14T22:10:00.000Z")" ) ) } );
   const UnitPicture unit = seen( { What::units, "" } ).units[0];
   EXPECT_EQ( namesOf( unit.interfaces ), Names{ "et2" } );
   EXPECT_EQ( unit.urgency, Urgency::stuck );
}

TEST_F( SightTest, takesForTheUrgencyOfAUnitThatOfItsMostPressingInterface ) {
   interfaces(
      { intf(
           "et1",
           reason( "stalled", R"(,"rate-bps":2e5,"threshold-bps":1e5)" ) + R"(,"in-bps":2e5,"out-bps":0)" ),
        intf(
           "et2",
           reason( "above-threshold", R"(,"threshold-bps":1e5)" ) + R"(,"in-bps":9e5,"out-bps":0)" ) } );
   const UnitPicture unit = seen( { What::unit, "a" } ).units[0];
   EXPECT_EQ( namesOf( unit.interfaces ), ( Names{ "et2", "et1" } ) );
   EXPECT_EQ( unit.urgency, Urgency::stuck );
}

TEST_F( SightTest, givesUnitsOnlyTheirMembers ) {
   interfaces(
      { R"({"name":"et1","units":["b"],)" + reason( "stalled" ) + "}", intf( "et2", reason( "stalled" ) ) } );
   EXPECT_EQ( namesOf( seen( { What::units, "" } ).units[0].interfaces ), Names{ "et2" } );
}

TEST_F( SightTest, showsAnAgentThatGivesNoReasons ) {
   client.replaces(
      "GET /api/v1/units/a", R"({"name":"a","state":"entering","interfaces":{"total":5,"drained":3}})" );
   interfaces(
      { intf( "et1", R"("state":"enter-maint","in-bps":5e6,"out-bps":0)" ),
        intf( "et2", R"("state":"enter-maint","in-bps":10,"out-bps":0)" ),
        intf( "et3", R"("state":"under-maint","shut":true)" ),
        intf( "et4", R"("state":"under-maint","spike":true)" ), intf( "et5", R"("state":"stopped")" ),
        intf( "et6", R"("state":null)" ), intf( "et7", R"("state":"enter-maint")" ) } );
   const Picture picture = seen( { What::unit, "a" } );
   EXPECT_EQ( picture.units[0].sentence, "3 of 5 drained" );
   std::vector< std::pair< std::string, std::string > > texts;
   for ( const IntfPicture & one : picture.units[0].interfaces )
      texts.emplace_back( one.name, one.text );
   EXPECT_EQ(
      texts, ( std::vector< std::pair< std::string, std::string > >{
                { "et4", "traffic is back" },
                { "et1", "above the threshold" },
                { "et5", "stopped" },
                { "et7", "above the threshold" },
                { "et2", "below the threshold" },
                { "et3", "drained, shut" },
                { "et6", "not monitored" } } ) );
   EXPECT_EQ( picture.units[0].interfaces[1].thresholdBps, 100e3 ); // of its profile
}

TEST_F( SightTest, showsAReasonThatItDoesNotKnow ) {
   interfaces( { intf( "et1", reason( "enchanted" ) ) } );
   const auto seenInterfaces = seen( { What::unit, "a", true } ).units[0].interfaces;
   ASSERT_EQ( seenInterfaces.size(), 1 );
   EXPECT_EQ( seenInterfaces[0].text, "because of enchanted" );
}

TEST_F( SightTest, showsThatAUnitThatIsEnteringWaitsForAnInterfaceThatHasStopped ) {
   interfaces(
      { R"({"name":"et1","units":["a"],"state":"stopped","reason":{"code":"stopped","text":"stopped"}})" } );
   const UnitPicture waiting = seen( { What::unit, "a", true } ).units[0];
   EXPECT_EQ( waiting.urgency, Urgency::stuck );
   EXPECT_EQ( namesOf( waiting.interfaces ), Names{ "et1" } );
   client.replaces( "GET /api/v1/units/a", R"({"name":"a","state":"maintenance"})" );
   EXPECT_EQ( seen( { What::unit, "a" } ).units[0].urgency, Urgency::done );
   EXPECT_EQ( seen( { What::interfaces, "" } ).interfaces[0].urgency, Urgency::done );
}

TEST_F( SightTest, asksForNoInterfacesWhereNoneIsShown ) {
   client.replaces( "GET /api/v1/units", R"([{"name":"a","state":"normal"},{"name":"b","state":"normal"}])" );
   EXPECT_EQ( seen( { What::units, "" } ).units.size(), 2 );
   EXPECT_EQ( client.requests, Names{ "GET /api/v1/units" } );
}

TEST_F( SightTest, asksForInterfacesOfBusyUnitsOnly ) {
   client.replaces( "GET /api/v1/units", "[" + unit() + R"(,{"name":"b","state":"normal"}])" );
   interfaces( { intf( "et1", reason( "stalled" ) ) } );
   EXPECT_EQ( namesOf( seen( { What::units, "" } ).units[0].interfaces ), Names{ "et1" } );
   EXPECT_EQ(
      client.requests,
      ( Names{ "GET /api/v1/units", "GET /api/v1/interfaces?unit=a", "GET /api/v1/profiles" } ) );
}

TEST_F( SightTest, asksOnceForInterfacesThatUnitsShareAndForNoneOfAUnitThatHasGone ) {
   const auto entering = []( const std::string & name ) {
      return R"({"name":")" + name + R"(","state":"entering"})";
   };
   client.replaces(
      "GET /api/v1/units", "[" + entering( "a" ) + "," + entering( "b" ) + "," + entering( "c" ) + "]" );
   const std::string shared = R"([{"name":"et1","units":["a","b"],)" + reason( "stalled" ) + "}]";
   client.replaces( "GET /api/v1/interfaces?unit=a", shared );
   client.replaces( "GET /api/v1/interfaces?unit=b", shared );
   client.refuses( "GET /api/v1/interfaces?unit=c", 404, "not-found", "there is no such unit", "c" );
   const Picture picture = seen( { What::units, "" } );
   EXPECT_EQ( namesOf( picture.units[0].interfaces ), Names{ "et1" } );
   EXPECT_EQ( namesOf( picture.units[1].interfaces ), Names{ "et1" } );
   EXPECT_EQ( namesOf( picture.units[2].interfaces ), Names{} );
}

TEST_F( SightTest, asksForAllInterfacesIfManyUnitsAreBusy ) {
   std::string units;
   for ( int i = 0; i < 9; ++i )
      units +=
         ( i ? "," : "" ) + std::string( R"({"name":"u)" ) + std::to_string( i ) + R"(","state":"entering"})";
   client.replaces( "GET /api/v1/units", "[" + units + "]" );
   interfaces( {} );
   EXPECT_EQ( seen( { What::units, "" } ).units.size(), 9 );
   EXPECT_EQ( client.requests, ( Names{ "GET /api/v1/units", "GET /api/v1/interfaces" } ) );
}

TEST_F( SightTest, asksForInterfacesOnceASampleUnlessTheUnitHasChanged ) {
   const auto asked = [this] {
      return std::count( client.requests.begin(), client.requests.end(), "GET /api/v1/interfaces?unit=a" );
   };
   for ( const What what : { What::units, What::unit } ) {
      client.requests.clear();
      SetUp();
      interfaces( { intf( "et1", reason( "stalled" ) ) } );
      Sight sight( { what, what == What::unit ? "a" : "" }, remote );
      sight.look();
      clockIs( "2023-11-14T22:13:24.900Z" );
      sight.look();
      EXPECT_EQ( asked(), 1 );
      EXPECT_EQ( sight.picture().clock, 1700000004.9 );
      clockIs( "2023-11-14T22:13:25.000Z" );
      sight.look();
      EXPECT_EQ( asked(), 2 );
      const std::string further = R"({"name":"a","state":"entering","interfaces":{"total":5,"drained":4}})";
      client.replaces( "GET /api/v1/units", "[" + further + "]" );
      client.replaces( "GET /api/v1/units/a", further );
      sight.look();
      EXPECT_EQ( asked(), 3 );
      client.replaces( "GET /api/v1/units", "[" + unit() + "]" );
      client.replaces( "GET /api/v1/units/a", unit() );
   }
}

TEST_F( SightTest, asksForSamplesOfRowsThatAreShownOnly ) {
   std::vector< std::string > all;
   for ( int i = 0; i < 300; ++i )
      all.push_back( intf( "et" + std::to_string( i ), reason( "timing" ) ) );
   interfaces( all );
   Sight sight( { What::interfaces, "" }, remote );
   sight.look();
   client.requests.clear();
   sight.fill( 2 );
   sight.fill( 3 );
   sight.fill( 3 );
   EXPECT_EQ(
      client.requests, ( Names{
                          "GET /api/v1/samples?last=600&interface=et0&interface=et1",
                          "GET /api/v1/samples?last=600&interface=et2" } ) );
}

TEST_F( SightTest, seesAThresholdThatWasChanged ) {
   interfaces( { intf( "et1", R"("state":"enter-maint","in-bps":5e6,"out-bps":0)" ) } );
   Sight sight( { What::interfaces, "" }, remote );
   sight.look();
   EXPECT_EQ( sight.picture().interfaces[0].urgency, Urgency::busy );
   client.replaces( "GET /api/v1/profiles", R"([{"name":"fast","threshold-bps":9000000}])" );
   clockIs( "2023-11-14T22:13:50.000Z" );
   sight.look();
   EXPECT_EQ( sight.picture().interfaces[0].urgency, Urgency::quiet );
}

TEST_F( SightTest, asksForProfilesOnlyIfOneIsNew ) {
   interfaces( { intf( "et1", R"("state":null)" ) } );
   Sight sight( { What::interfaces, "" }, remote );
   sight.look();
   sight.look();
   interfaces( { R"({"name":"et2","profile":"slow","state":null})" } );
   sight.look();
   sight.look();
   EXPECT_EQ( std::count( client.requests.begin(), client.requests.end(), "GET /api/v1/profiles" ), 2 );
}

TEST_F( SightTest, beginsCurvesWithTheSamplesOfTheAgent ) {
   client.answers(
      "GET /api/v1/samples?last=600&interface=et1",
      R"({"step-seconds":5,"start":"2023-11-14T22:13:00.000Z","interfaces":{"et1":{"in-bps":[1,2,null],"out-bps":[0,9,null]}}})" );
   interfaces( { intf( "et1", reason( "timing" ) + R"(,"in-bps":7,"out-bps":3)" ) } );
   Sight sight( { What::unit, "a" }, remote );
   sight.look();
   EXPECT_EQ( client.requests.size(), 3 ) << "what is shown first waits for no samples";
   EXPECT_TRUE( sight.fill( 24 ) );
   clockIs( "2023-11-14T22:13:26.000Z" );
   sight.look();
   EXPECT_FALSE( sight.fill( 24 ) );
   const Picture picture = sight.picture();
   std::vector< std::optional< double > > points;
   for ( const RatePoint & point : picture.units[0].interfaces[0].curve )
      points.push_back( point.busiest() );
   EXPECT_EQ( points, ( std::vector< std::optional< double > >{ 1, 9, {}, 7, 7 } ) );
   EXPECT_EQ(
      std::count(
         client.requests.begin(), client.requests.end(), "GET /api/v1/samples?last=600&interface=et1" ),
      1 );
}

TEST_F( SightTest, asksAgainForWhatItMissed ) {
   interfaces( { intf( "et1", reason( "timing" ) + R"(,"in-bps":7,"out-bps":3)" ) } );
   Sight sight( { What::unit, "a" }, remote );
   sight.look();
   EXPECT_FALSE( sight.fill( 24 ) );
   client.answers(
      "GET /api/v1/samples?last=600&interface=et1",
      R"({"step-seconds":5,"start":"2023-11-14T22:13:10.000Z","interfaces":{"et1":{"in-bps":[5],"out-bps":[0]}}})" );
   sight.look();
   EXPECT_FALSE( sight.fill( 24 ) );
   EXPECT_EQ( sight.picture().units[0].interfaces[0].curve.size(), 1 );
   sight.missed();
   sight.look();
   EXPECT_TRUE( sight.fill( 24 ) );
   EXPECT_EQ( sight.picture().units[0].interfaces[0].curve.size(), 2 );
}

TEST_F( SightTest, asksNoMoreForCurvesWhenTheAgentDoesNotAnswer ) {
   std::vector< std::string > many;
   for ( int i = 0; i < 120; ++i )
      many.push_back( intf( "et" + std::to_string( i ), reason( "timing" ) ) );
   interfaces( many );
   Sight sight( { What::unit, "a" }, remote );
   sight.look();
   unsigned asked = 0;
   client.hangsFrom( "/samples", [&]( unsigned ) { ++asked; } );
   EXPECT_THROW( sight.fill( 200 ), Failure );
   EXPECT_EQ( asked, 1 );
}

TEST_F( SightTest, keepsWhatItSawIfALookFails ) {
   interfaces( { intf( "et1", reason( "timing" ) ) } );
   Sight sight( { What::units, "" }, remote );
   sight.look();
   client.reachableIs( false );
   EXPECT_THROW( sight.look(), Failure );
   EXPECT_EQ( sight.picture().units.size(), 1 );
   client.reachableIs( true );
   client.replaces( "GET /api/v1/interfaces?unit=a", "{}" );
   clockIs( "2023-11-14T22:13:26.000Z" );
   EXPECT_THROW( sight.look(), Api::Error );
   EXPECT_EQ( namesOf( sight.picture().units[0].interfaces ), Names{ "et1" } );
}

TEST_F( SightTest, showsALinkThatCouldNotBeShutAmongThoseThatNeedAnEye ) {
   const std::string notShut =
      intf( "et1", reason( "shut" ) + R"(,"link-state":"up","shut":true,"shut-problem":"no permission")" );
   interfaces( { notShut } );
   EXPECT_EQ( seen( { What::unit, "a" } ).units.at( 0 ).interfaces.at( 0 ).urgency, Urgency::stuck );
   client.answers( "GET /api/v1/interfaces/et1", notShut );
   EXPECT_EQ( seen( { What::interface, "et1" } ).facts.at( 4 ).second, "up, not shut yet" );
}

TEST_F( SightTest, tellsAllOfOneInterface ) {
   client.answers(
      "GET /api/v1/interfaces/et1", intf(
                                       "et1", reason( "timing", R"(,"eta-seconds":4.4)" ) +
                                                 R"(,"link-state":"down","shut":true,"drift":"raised")" ) );
   const Picture picture = seen( { What::interface, "et1" } );
   EXPECT_EQ( picture.title, "Interface et1" );
   EXPECT_EQ(
      picture.facts, ( std::vector< std::pair< std::string, std::string > >{
                        { "State", "enter-maint" },
                        { "Why", "because of timing" },
                        { "Threshold", "100 kbps, profile fast" },
                        { "Drained in", "4s" },
                        { "Link", "down, shut by us, raised" },
                        { "Units", "a" } } ) );
}

} // namespace
} // namespace Maintctl
