#include "DataPlane/Simulated/SimulatedRigTest.h"

namespace DataPlane::Simulated {

namespace {

struct SimulatedRoutes : SimulatedRig {
   void SetUp() override {
      Description described = description();
      described.ports[0].speedBps = 1e9;
      described.routes = { { "0.0.0.0/0", { "et1", "pc1" }, 5 }, { "10.0.0.0/8", { "et2" } },
                           { "10.1.0.0/16", { "vlan10" } },      { "10.2.0.0/16", { "et2" } },
                           { "0.0.0.0/0", { "et2" }, 7 },        { "2001:db8::/32", { "et2" } } };
      made = switchNewSimulated( clock, described );
      SimulatedRig::SetUp();
      started();
   }
   RouteAnswer asked( const std::string & address = "" ) {
      RouteAnswer result;
      int answers = 0;
      sw().routesAsk( { address }, [&]( const RouteAnswer & answer ) {
         ++answers;
         result = answer;
      } );
      EXPECT_EQ( 0, answers );
      clock->runTurn();
      clock->runTurn();
      EXPECT_EQ( 1, answers );
      return result;
   }
   const RoutedLink & link( const RouteAnswer & answer, const std::string & name ) {
      for ( const RoutedLink & each : answer.table->links )
         if ( each.name == name )
            return each;
      throw std::runtime_error( "no link " + name );
   }
};

} // namespace

TEST_F( SimulatedRoutes, areClassesOfWhatIsReachedAlike ) {
   const std::vector< RouteClass > expected = {
      { { { { "et2" } } }, 3, { "10.0.0.0/8", "10.2.0.0/16", "2001:db8::/32" } },
      { { { { "vlan10" } } }, 1, { "10.1.0.0/16" } },
      { { { { "et1" }, { "pc1" } }, { { "et2" } } }, 1, { "0.0.0.0/0" } } };
   EXPECT_EQ( expected, asked().table->classes );
   EXPECT_EQ( "", asked().table->problem );
}

TEST_F( SimulatedRoutes, areOverPortsThatSayHowFastTheyAre ) {
   EXPECT_EQ( 1e9, sw().portSpeed( "et1" ) );
   for ( const char * other : { "et2", "vlan10", "nonesuch" } )
      EXPECT_EQ( std::nullopt, sw().portSpeed( other ) ) << other;
   carrierIs( "et1", false );
   clock->runTurn();
   EXPECT_EQ( std::nullopt, sw().portSpeed( "et1" ) );
}

TEST_F( SimulatedRoutes, tellWhatLinksStandOn ) {
   carrierIs( "et3", false );
   remove( "et4" );
   clock->runTurn();
   const RouteAnswer answer = asked();
   EXPECT_EQ( ( RoutedLink{ "et1", true, false, {} } ), link( answer, "et1" ) );
   EXPECT_EQ( ( RoutedLink{ "et3", false, false, {} } ), link( answer, "et3" ) );
   EXPECT_EQ( ( RoutedLink{ "pc1", false, true, { { "et3" } } } ), link( answer, "pc1" ) );
   EXPECT_EQ(
      ( RoutedLink{ "vlan10", true, false, { { "et1", "et3", "pc1" } } } ), link( answer, "vlan10" ) );
   EXPECT_THROW( link( answer, "et4" ), std::runtime_error );
}

TEST_F( SimulatedRoutes, giveTheWayToAnAddress ) {
   for ( const auto & [address, destination] : std::vector< std::pair< std::string, std::string > >{
            { "10.1.2.3", "10.1.0.0/16" },
            { "10.3.0.1", "10.0.0.0/8" },
            { "192.0.2.1", "0.0.0.0/0" },
            { "2001:db8:1::1", "2001:db8::/32" } } ) {
      const auto way = asked( address ).way;
      ASSERT_TRUE( way ) << address;
      EXPECT_EQ( "", way->problem );
      EXPECT_EQ( destination, way->destination );
   }
   EXPECT_EQ( 2u, asked( "192.0.2.1" ).way->choices.size() );
   const AddressWay way = asked( "10.1.2.3" ).way.value();
   EXPECT_EQ(
      ( Choices{ { { "vlan10" } }, { { "et2" } }, { { "et1" }, { "pc1" } }, { { "et2" } } } ), way.choices );
   const std::vector< LessSpecificRoute > less = { { "10.0.0.0/8", 1 }, { "0.0.0.0/0", 2 } };
   EXPECT_EQ( less, way.lessSpecific );
   EXPECT_EQ( "there is no route to 2001:db9::1", asked( "2001:db9::1" ).way->problem );
   EXPECT_FALSE( asked().way );
}

TEST_F( SimulatedRoutes, canFail ) {
   simulation().routesFaultIs( "out of order" );
   EXPECT_EQ( "out of order", asked( "10.1.2.3" ).table->problem );
   EXPECT_EQ( "out of order", asked( "10.1.2.3" ).way->problem );
   EXPECT_TRUE( asked().table->classes.empty() );
}

TEST_F( SimulatedRoutes, answerNobodyAfterTheEnd ) {
   sw().routesAsk( {}, []( const RouteAnswer & ) { ADD_FAILURE() << "somebody is answered"; } );
   sw().stop();
   clock->runTurn();
}

TEST( SimulatedDescription, errorNamesTheRouteThatIsWrong ) {
   const auto error = []( const Route & route ) {
      Description description;
      description.ports = { { "et1", {} } };
      description.routes = { route };
      return switchNewSimulated( Vel::make< Cog::ManualClock >(), description ).outcome.text();
   };
   EXPECT_EQ( "", error( { "10.0.0.0/8", { "et1" } } ) );
   EXPECT_EQ(
      "simulated switch: \"10.0.0.0\" is no destination of a route", error( { "10.0.0.0", { "et1" } } ) );
   EXPECT_EQ( "simulated switch: the route to ::/0 leads nowhere", error( { "::/0", {} } ) );
   EXPECT_EQ(
      "simulated switch: \"et2\", over which the route to ::/0 leads, is no link",
      error( { "::/0", { "et2" } } ) );
}

} // namespace DataPlane::Simulated
