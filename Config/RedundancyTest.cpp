#include "Config/ErrorRowsTest.h"
#include "Config/Prefix.h"

namespace {

const std::string units = good + "units: {u: {}, v: {}}\n";
const std::string ports = good + "simulated:\n"
                                 "  ports: {et1: {speed: 10Gbps}, et2: {}}\n";

TEST( RedundancyGroups, sayWhoStandsInForWhom ) {
   const auto result =
      Config::parse( units + "redundancy-groups: {g: {units: [u, v], max-out: 2}, h: {units: [u]}}\n", "f" );
   ASSERT_TRUE( result ) << textsOf( result ).front();
   const auto & groups = result.configuration->redundancyGroups;
   EXPECT_EQ( ( std::set< std::string >{ "u", "v" } ), groups.at( "g" ).units );
   EXPECT_EQ( 2u, groups.at( "g" ).maxOut );
   EXPECT_EQ( 1u, groups.at( "h" ).maxOut );
}

TEST( RedundancyGroups, areReportedWhereTheyAreWrong ) {
   expectErrors(
      { { units + "redundancy-groups: {g: {units: [u, vw]}}\n", { "f:5:36: error: unknown unit \"vw\"" } },
        { good + "units: {spine-a: {}}\nredundancy-groups: {g: {units: [spine-b]}}\n",
          { "f:5:33: error: unknown unit \"spine-b\"; did you mean \"spine-a\"?" } },
        { units + "redundancy-groups: {g: {units: [u, u]}}\n",
          { "f:5:36: error: \"u\" is listed twice; it is already at f:5:33" } },
        { units + "redundancy-groups: {g: {unit: [u]}}\n",
          { "f:5:21: error: redundancy group \"g\" needs \"units\"",
            "f:5:25: error: unknown key \"unit\" in a redundancy group; did you mean \"units\"?" } },
        { units + "redundancy-groups: {g: {units: [u], max-out: 0}}\n",
          { "f:5:46: error: \"0\" is not a whole number from 1 to 1000" } },
        { units + "redundancy-groups: {g: {units: [u], max-out: \"1\"}}\n",
          { "f:5:46: error: \"1\" is not a whole number from 1 to 1000" } },
        { units + "redundancy-groups: {g: {units: [u], max-out: 1.5}}\n",
          { "f:5:46: error: \"1.5\" is not a whole number from 1 to 1000" } },
        { units + "redundancy-groups: [g]\n",
          { "f:5:20: error: \"redundancy-groups\" must be a map of redundancy groups, not a list" } },
        { units + "redundancy-group: {}\n",
          { "f:5:1: error: unknown key \"redundancy-group\" in the configuration; did you mean "
            "\"redundancy-groups\"?" } } } );
}

TEST( ControlPlaneFloor, isTenKilobitsUnlessSomebodySaysOtherwise ) {
   EXPECT_EQ( 10'000u, Config::parse( good, "f" ).configuration->controlPlaneFloor.bps() );
   const auto result = Config::parse( good + "control-plane-floor: 4kbps\n", "f" );
   ASSERT_TRUE( result );
   EXPECT_EQ( 4'000u, result.configuration->controlPlaneFloor.bps() );
   expectErrors(
      { { good + "control-plane-floor: 4000\n",
          { "f:4:22: error: \"4000\" has no unit; write 4000bps, 4000kbps, 4000Mbps or 4000Gbps" } } } );
}

TEST( SimulatedRoutes, leadOverInterfacesOfTheSwitch ) {
   const auto result = Config::parse(
      ports + "  vlans: {10: {members: [et2]}}\n"
              "  routes:\n"
              "    - {to: 0.0.0.0/0, via: [et1, vlan10]}\n"
              "    - {to: 2001:DB8::/32, via: [et2], metric: 20}\n",
      "f" );
   ASSERT_TRUE( result ) << textsOf( result ).front();
   const auto & simulated = result.configuration->simulated;
   EXPECT_EQ( 10'000'000'000u, simulated.ports.at( "et1" ).speed->bps() );
   EXPECT_FALSE( simulated.ports.at( "et2" ).speed );
   const std::vector< Config::SimulatedRoute > expected = {
      { "0.0.0.0/0", { "et1", "vlan10" }, 0 }, { "2001:db8::/32", { "et2" }, 20 } };
   EXPECT_EQ( expected, simulated.routes );
}

TEST( SimulatedRoutes, areReportedWhereTheyAreWrong ) {
   expectErrors(
      { { ports + "  routes: [{to: 10.0.0.0/8, via: [et3]}]\n",
          { "f:6:35: error: unknown simulated interface \"et3\"" } },
        { ports + "  routes: [{to: 10.0.0.1/8, via: [et1]}]\n",
          { "f:6:17: error: \"10.0.0.1/8\" has bits behind its length of 8" } },
        { ports + "  routes: [{to: 10.0.0.0, via: [et1]}]\n",
          { "f:6:17: error: \"10.0.0.0\" is no destination; examples: 10.0.0.0/8, 2001:db8::/32" } },
        { ports + "  routes: [{to: 10.0.0.0/8, via: []}]\n",
          { "f:6:34: error: a route needs at least one interface in \"via\"" } },
        { ports + "  routes: [{to: 10.0.0.0/8}]\n", { "f:6:12: error: a route needs \"via\"" } },
        { ports + "  routes: [{to: ::/0, via: [et1]}, {to: 0::0/0, via: [et2], metric: 0}]\n",
          { "f:6:36: error: there is a route to \"::/0\" with the metric 0 at f:6:12 already" } },
        { good + "simulated: {ports: {et1: {speed: 0bps}}}\n",
          { "f:4:34: error: \"0bps\" is out of range; a speed is above 0" } } } );
}

TEST( Prefix, isReadIntoItsOneForm ) {
   for ( const auto & [text, expected] : std::vector< std::pair< std::string, std::string > >{
            { "0.0.0.0/0", "0.0.0.0/0" },
            { "10.0.0.0/8", "10.0.0.0/8" },
            { "192.0.2.1/32", "192.0.2.1/32" },
            { "2001:0DB8:0:0::/48", "2001:db8::/48" },
            { "::/0", "::/0" } } )
      EXPECT_EQ( expected, Config::parsePrefix( text ).value.value_or( "none" ) ) << text;
   for ( const char * text :
         { "", "/", "10.0.0.0", "10.0.0.0/", "10.0.0.0/33", "10.0.0.0/08", "10.0.0.0/-1", "10.0.0/8", "x/8",
           "::/129", "2001:db8::1/64", "10.0.0.0/8/8", "10.0.0.0/8 " } )
      EXPECT_FALSE( Config::parsePrefix( text ) ) << text;
}

} // namespace
