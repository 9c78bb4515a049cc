#include "Config/ErrorRowsTest.h"

namespace {

std::string all( const Config::Result & result ) {
   std::string text;
   for ( const std::string & error : textsOf( result ) )
      text.append( error ).append( 1, '\n' );
   return text;
}

TEST( Parse, readsEveryKey ) {
   const Config::Result result = Config::parse(
      "version: 1\n"
      "switch: simulated\n"
      "listen: {web: \"[::1]:8080\", names: [leaf1, maint.example.net]}\n"
      "settle: 1m\n"
      "profiles:\n"
      "  fast:  {threshold: 100kbps, load-interval: 10s, shutdown: true, shutdown-max-delay: 5m}\n"
      "  watch: {threshold: 1Mbps, load-interval: 30s}\n"
      "default-profile: fast\n"
      "groups:\n"
      "  uplinks: {interfaces: [et1, et2, bond0]}\n"
      "  tenants: {vlans: [10, 20-29], profile: watch}\n"
      "units:\n"
      "  spine-a: {groups: [uplinks, tenants]}\n"
      "simulated:\n"
      "  clock: virtual\n"
      "  ports:\n"
      "    et1: {traffic: [{for: 20s, in: 400Mbps, out: 380Mbps}, {ramp: 30s, to: 0bps}]}\n"
      "    et3: {}\n"
      "    et4: {}\n"
      "  port-channels: {pc1: [et3, et4]}\n"
      "  vlans: {10: {name: vlan10, members: [et1, pc1]}}\n",
      "f" );
   ASSERT_EQ( "", all( result ) );
   const Config::Configuration & c = *result.configuration;
   EXPECT_EQ( Config::SwitchKind::simulated, c.switchKind );
   ASSERT_TRUE( c.web );
   EXPECT_EQ( "[::1]:8080", c.web->text() );
   EXPECT_EQ( ( std::set< std::string >{ "leaf1", "maint.example.net" } ), c.webNames );
   EXPECT_EQ( 60u, c.settle.seconds() );
   EXPECT_EQ( Config::StageList{ "drainwatch" }, c.enter );
   ASSERT_EQ( 2u, c.profiles.size() );
   const Config::Profile & fast = c.profiles.at( "fast" );
   EXPECT_EQ( 100'000u, fast.threshold.bps() );
   EXPECT_EQ( 10u, fast.loadInterval.seconds() );
   EXPECT_TRUE( fast.shutdown );
   EXPECT_EQ( Config::Duration::fromSeconds( 300 ), fast.shutdownMaxDelay );
   EXPECT_FALSE( c.profiles.at( "watch" ).shutdown );
   EXPECT_FALSE( c.profiles.at( "watch" ).shutdownMaxDelay );
   EXPECT_EQ( "fast", c.defaultProfile );
   EXPECT_EQ( ( std::set< std::string >{ "bond0", "et1", "et2" } ), c.groups.at( "uplinks" ).interfaces );
   EXPECT_FALSE( c.groups.at( "uplinks" ).profile );
   EXPECT_EQ( ( Config::VlanSet{ { 10, 10 }, { 20, 29 } } ), c.groups.at( "tenants" ).vlans );
   EXPECT_EQ( "watch", c.groups.at( "tenants" ).profile );
   EXPECT_EQ( ( std::set< std::string >{ "tenants", "uplinks" } ), c.units.at( "spine-a" ).groups );
   EXPECT_EQ( Config::Simulated::Clock::virtualTime, c.simulated.clock );
   ASSERT_EQ( 3u, c.simulated.ports.size() );
   ASSERT_EQ( 2u, c.simulated.ports.at( "et1" ).traffic.size() );
   EXPECT_EQ( 380'000'000u, c.simulated.ports.at( "et1" ).traffic[0].out.bps() );
   EXPECT_EQ( Config::TrafficSegment::Kind::ramp, c.simulated.ports.at( "et1" ).traffic[1].kind );
   EXPECT_EQ( ( std::set< std::string >{ "et3", "et4" } ), c.simulated.portChannels.at( "pc1" ) );
   EXPECT_EQ( "vlan10", c.simulated.vlans.at( 10 ).name );
   EXPECT_EQ( ( std::set< std::string >{ "et1", "pc1" } ), c.simulated.vlans.at( 10 ).members );
}

TEST( Parse, fillsInDefaults ) {
   const Config::Result result = Config::parse(
      good + "units: {u: {}}\ngroups: {g: {}}\nsimulated: {ports: {et1: {}}, vlans: {7: {}}}\n", "f" );
   ASSERT_EQ( "", all( result ) );
   Config::Configuration expected;
   expected.switchKind = Config::SwitchKind::linuxKernel;
   expected.web = std::nullopt;
   expected.settle = Config::Duration::fromSeconds( 10 );
   expected.enter = { "drainwatch" };
   expected.exit = { "drainwatch" };
   Config::Profile & profile = expected.profiles["p"];
   profile.threshold = Config::Rate::fromBps( 1000 );
   profile.loadInterval = Config::Duration::fromSeconds( 1 );
   profile.shutdown = false;
   profile.shutdownMaxDelay = std::nullopt;
   expected.defaultProfile = "p";
   expected.groups["g"] = {};
   expected.units["u"].enter = { "drainwatch" };
   expected.units["u"].exit = { "drainwatch" };
   expected.simulated.clock = Config::Simulated::Clock::real;
   expected.simulated.ports["et1"] = {};
   expected.simulated.vlans[7] = { "vlan7", {} };
   EXPECT_EQ( expected, *result.configuration );
}

TEST( Parse, takesAMaximumDelayOfNothingForAtOnceAndNoneForNever ) {
   const Config::Result result = Config::parse(
      "version: 1\ndefault-profile: a\nprofiles:\n"
      "  a: {threshold: 1bps, load-interval: 0s, shutdown-max-delay: 0s}\n"
      "  b: {threshold: 1bps, load-interval: 0s}\n",
      "f" );
   ASSERT_EQ( "", all( result ) );
   EXPECT_EQ( Config::Duration(), result.configuration->profiles.at( "a" ).shutdownMaxDelay );
   EXPECT_EQ( std::nullopt, result.configuration->profiles.at( "b" ).shutdownMaxDelay );
}

TEST( Parse, readsOtherLineEndsAByteOrderMarkAndQuotes ) {
   EXPECT_EQ(
      Config::parse( good, "f" ).configuration,
      Config::parse(
         "\xef\xbb\xbfversion: 1\r\n"
         "'profiles': {\"p\": {threshold: '1kbps', load-interval: \"1s\"}} # \u00e4\r\n"
         "default-profile: \"p\"\r\n",
         "f" )
         .configuration );
}

TEST( Parse, readsWhatIsWrittenOnLinesOfItsOwn ) {
   EXPECT_EQ(
      Config::parse( good + "groups: {g: {interfaces: [et1, et2], vlans: [1, 3-5]}}\n", "f" ).configuration,
      Config::parse(
         good + "groups:\n"
                "  g:\n"
                "    interfaces:\n"
                "      - et2\n"
                "      - et1\n"
                "    vlans:\n"
                "    - 3-5\n"
                "    - 1\n",
         "f" )
         .configuration );
}

TEST( Parse, givesUnitsTheGeneralStagesWhereverTheyStand ) {
   const Config::Result result = Config::parse(
      good + "units: {u: {enter: [drainwatch]}}\nenter: [drainwatch]\nexit: [drainwatch]\n", "f" );
   ASSERT_EQ( "", all( result ) );
   EXPECT_EQ( Config::StageList{ "drainwatch" }, result.configuration->units.at( "u" ).enter );
   EXPECT_EQ( Config::StageList{ "drainwatch" }, result.configuration->units.at( "u" ).exit );
}

TEST( Parse, keepsTheRatesThatATrafficSegmentLeavesOut ) {
   const Config::Result result = Config::parse(
      good + "simulated: {ports: {et1: {traffic: ["
             "{for: 1s, out: 5bps}, {ramp: 2s, in: 7bps}, {for: 3s}, {ramp: 4s, to: 1bps}, {for: 5s, in: "
             "2bps}]}}}\n",
      "f" );
   ASSERT_EQ( "", all( result ) );
   std::string text;
   for ( const Config::TrafficSegment & segment : result.configuration->simulated.ports.at( "et1" ).traffic )
      text.append( segment.kind == Config::TrafficSegment::Kind::ramp ? "ramp " : "hold " )
         .append( segment.length.text() + " " + segment.in.text() + " " + segment.out.text() + "\n" );
   EXPECT_EQ(
      "hold 1s 0bps 5bps\n"
      "ramp 2s 7bps 5bps\n"
      "hold 3s 7bps 5bps\n"
      "ramp 4s 1bps 1bps\n"
      "hold 5s 2bps 1bps\n",
      text );
}

TEST( Parse, acceptsASimulatedSwitchThatIsNotUsedAndOneThatIsNotDescribed ) {
   EXPECT_TRUE( Config::parse( good + "switch: linux\nsimulated: {ports: {et1: {}}}\n", "f" ) );
   EXPECT_TRUE( Config::parse( good + "switch: simulated\n", "f" ) );
}

TEST( Parse, reportsAllErrorsOfAFileInTheOrderOfTheirPlaces ) {
   const Config::Result result = Config::parse(
      "version: 3\n"
      "units:\n"
      "  spine-a: {groups: [uplink, \u00e4, tenants], enter: [drian]}\n"
      "  spine a: {}\n"
      "settle: 10\n"
      "profiles:\n"
      "  fast:  {threshold: 100kbit, load-interval: 10s, shutdown: yes}\n"
      "  watch: {treshold: 1Mbps, load-interval: &x 30s}\n"
      "  fast:  {}\n"
      "default-profile: fats\n"
      "groups:\n"
      "  uplinks: {interfaces: [et1, et1], profile: wtach}\n"
      "  tenants: {vlans: [29-20, 4095, 1-5, 5]}\n"
      "listen: {web: \"8080\"}\n"
      "simulated: {ports: {et1: {}}, port-channels: {pc1: [et1], pc2: [et1]}}\n",
      "maintd.yaml" );
   EXPECT_FALSE( result );
   EXPECT_EQ(
      "maintd.yaml:1:10: error: unknown version \"3\"; this program reads version 1\n"
      "maintd.yaml:3:22: error: unknown group \"uplink\"; did you mean \"uplinks\"?\n"
      "maintd.yaml:3:30: error: unknown group \"\u00e4\"\n"
      "maintd.yaml:3:51: error: unknown stage \"drian\"\n"
      "maintd.yaml:4:3: error: \"spine a\" is not a valid name; a name has 1 to 63 letters, digits, \".\", "
      "\"_\" or "
      "\"-\" and begins with a letter or digit\n"
      "maintd.yaml:5:9: error: \"10\" has no unit; write 10s, 10m or 10h\n"
      "maintd.yaml:7:22: error: \"100kbit\" has an unknown unit \"kbit\"; use bps, kbps, Mbps or Gbps; did "
      "you mean "
      "\"100kbps\"?\n"
      "maintd.yaml:7:61: error: \"shutdown\" must be true or false, not \"yes\"\n"
      "maintd.yaml:8:3: error: profile \"watch\" needs \"threshold\"\n"
      "maintd.yaml:8:11: error: unknown key \"treshold\" in a profile; did you mean \"threshold\"?\n"
      "maintd.yaml:8:43: error: anchors are not allowed\n"
      "maintd.yaml:9:3: error: duplicate key \"fast\"; it is already at maintd.yaml:7:3\n"
      "maintd.yaml:10:18: error: unknown profile \"fats\"; did you mean \"fast\"?\n"
      "maintd.yaml:12:31: error: \"et1\" is listed twice; it is already at maintd.yaml:12:26\n"
      "maintd.yaml:12:46: error: unknown profile \"wtach\"; did you mean \"watch\"?\n"
      "maintd.yaml:13:21: error: VLAN range \"29-20\" is reversed; write 20-29\n"
      "maintd.yaml:13:28: error: VLAN \"4095\" is out of range 1-4094\n"
      "maintd.yaml:13:39: error: VLAN \"5\" overlaps \"1-5\" at maintd.yaml:13:34\n"
      "maintd.yaml:14:15: error: \"8080\" has no port; examples: localhost:8080, [::1]:8080\n"
      "maintd.yaml:15:65: error: \"et1\" is already a member of a port-channel at maintd.yaml:15:53\n",
      all( result ) );
}

TEST( Parse, takesOneMistakeForOneError ) {
   // What is defined wrongly is defined all the same.
   const Config::Result result = Config::parse(
      "version: 1\n"
      "default-profile: a b\n"
      "profiles: {a b: 7}\n"
      "groups: [g]\n"
      "units: {u: {groups: [g]}}\n"
      "simulated:\n"
      "  ports: []\n"
      "  port-channels: {pc1: [et1]}\n"
      "  vlans: {10: {members: [et1]}}\n",
      "f" );
   EXPECT_EQ(
      "f:3:12: error: \"a b\" is not a valid name; a name has 1 to 63 letters, digits, \".\", \"_\" or \"-\" "
      "and begins "
      "with a letter or digit\n"
      "f:3:17: error: \"a b\" must be a map, not a single value\n"
      "f:4:9: error: \"groups\" must be a map of groups, not a list\n"
      "f:7:10: error: \"ports\" must be a map of ports, not a list\n",
      all( result ) );
}

TEST( Parse, readsAConfigurationOfAnySize ) {
   std::string text = good + "groups:\n";
   for ( int i = 0; text.size() <= 1 << 20; ++i )
      text.append(
         "  g" + std::to_string( i ) + ": {interfaces: [et" + std::to_string( i ) + "], vlans: [1-4094]}\n" );
   EXPECT_EQ( "", all( Config::parse( text, "f" ) ) );
}

} // namespace
