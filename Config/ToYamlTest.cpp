#include "Config/ToYaml.h"
#include "Config/Accepted.h"
#include "Config/ErrorRowsTest.h"
#include "Config/GeneratorsTest.h"

#include <rapidcheck/gtest.h>

namespace {

TEST( ToYaml, writesEverythingOut ) {
   const Config::Result result = Config::parse(
      good + "listen: {web: \"[0::1]:80\", names: [leaf1, a.b]}\n"
             "stages: {steer: {enter: /bin/a \"b \\\"c\", timeout: 90s, on-failure: continue, steers: true}, "
             "tell: {exit: /bin/b}}\n"
             "groups: {\"null\": {interfaces: [et2, \"#1\"], vlans: [20-22, 23], profile: p}, g: {}}\n"
             "units: {u: {groups: [g, \"null\"]}}\n"
             "redundancy-groups: {r: {units: [u], max-out: 2}}\n"
             "control-plane-floor: 4000bps\n"
             "hooks:\n"
             "  a: {at: [overrun, enter], command: [/bin/a, \"b \\\"c\"], units: [u]}\n"
             "  b: {at: [exit], url: \"http://[::1]/?a\", time-limit: 90s}\n"
             "simulated:\n"
             "  ports: {et1: {traffic: [{for: 60s, in: 1500bps}, {ramp: 1m, to: 0bps}], speed: 1Gbps}, et2: "
             "{speed: 1Mbps}}\n"
             "  port-channels: {pc1: [et2]}\n"
             "  vlans: {10: {members: [et1, pc1]}}\n"
             "  routes: [{to: 0::/0, via: [et1]}, {to: 10.0.0.0/8, via: [vlan10, pc1], metric: 5}]\n",
      "f" );
   ASSERT_EQ( std::vector< std::string >(), textsOf( result ) );
   EXPECT_EQ(
      "version: 1\n"
      "switch: linux\n"
      "listen: {web: \"[::1]:80\", names: [a.b, leaf1]}\n"
      "settle: 10s\n"
      "stages:\n"
      "  steer: {enter: \"/bin/a 'b \\\"c'\", timeout: 1m30s, on-failure: continue, steers: true}\n"
      "  tell: {exit: \"/bin/b\", timeout: 1m, on-failure: abort}\n"
      "enter: [drainwatch]\n"
      "exit: [drainwatch]\n"
      "profiles:\n"
      "  p: {threshold: 1kbps, load-interval: 1s, shutdown: false}\n"
      "default-profile: p\n"
      "groups:\n"
      "  g: {interfaces: [], vlans: []}\n"
      "  \"null\": {interfaces: [\"#1\", et2], vlans: [20-23], profile: p}\n"
      "units:\n"
      "  u: {groups: [g, \"null\"], enter: [drainwatch], exit: [drainwatch]}\n"
      "redundancy-groups:\n"
      "  r: {units: [u], max-out: 2}\n"
      "control-plane-floor: 4kbps\n"
      "hooks:\n"
      "  a: {at: [enter, overrun], units: [u], command: \"/bin/a 'b \\\"c'\", time-limit: 10s}\n"
      "  b: {at: [exit], url: \"http://[::1]/?a\", time-limit: 1m30s}\n"
      "simulated:\n"
      "  clock: real\n"
      "  ports:\n"
      "    et1: {traffic: [{for: 1m, in: 1.5kbps, out: 0bps}, {ramp: 1m, in: 0bps, out: 0bps}], speed: "
      "1Gbps}\n"
      "    et2: {speed: 1Mbps}\n"
      "  port-channels:\n"
      "    pc1: [et2]\n"
      "  vlans:\n"
      "    10: {name: vlan10, members: [et1, pc1]}\n"
      "  routes: [{to: \"::/0\", via: [et1], metric: 0}, {to: \"10.0.0.0/8\", via: [pc1, vlan10], metric: "
      "5}]\n",
      Config::toYaml( *result.configuration ) );
}

RC_GTEST_PROP( ToYaml, isReadBackAsTheSameConfiguration, () ) {
   const Config::Configuration configuration = Generators::configuration();
   const Config::Result result = Config::parse( Config::toYaml( configuration ), "f" );
   RC_LOG() << Config::toYaml( configuration );
   for ( const std::string & text : textsOf( result ) )
      RC_LOG() << text << "\n";
   RC_ASSERT( result.configuration.has_value() );
   RC_ASSERT( *result.configuration == configuration );
   RC_ASSERT( Config::toYaml( *result.configuration ) == Config::toYaml( configuration ) );
}

TEST( ToYaml, whatAnEarlierVersionAcceptedIsReadAgain ) {
   const std::string accepted = good + "listen: {web: \"mgmt.example.net:8080\"}\n"
                                       "stages: {steer: {enter: /bin/a, exit: \"/bin/b '\u0085'\"}}\n"
                                       "enter: [steer, drainwatch]\n"
                                       "groups: {g: {interfaces: [\"a\u0085b\", \"c\x85\"]}}\n";
   EXPECT_FALSE( Config::parse( accepted, "f" ) );
   const Config::Result result = Config::parseAccepted( accepted, "f" );
   ASSERT_EQ( std::vector< std::string >(), textsOf( result ) );
   EXPECT_EQ( "mgmt.example.net", result.configuration->web->host );
   EXPECT_EQ( ( Config::StageList{ "steer", "drainwatch" } ), result.configuration->enter );
   EXPECT_EQ(
      ( std::set< std::string >{ "a\u0085b", "c\x85" } ), result.configuration->groups.at( "g" ).interfaces );
   EXPECT_EQ(
      result.configuration,
      Config::parseAccepted( Config::toYaml( *result.configuration ), "f" ).configuration );
}

TEST( ToYaml, whatNoVersionAcceptedIsRefusedAsAnythingElse ) {
   EXPECT_FALSE( Config::parseAccepted( good + "groups: {g: {interfaces: [\"a/b\"]}}\n", "f" ) );
   EXPECT_FALSE( Config::parseAccepted( good + "groups: {g: {interfaces: [\"a\x01\"]}}\n", "f" ) );
   EXPECT_FALSE( Config::parseAccepted( good + "exit: [steer]\n", "f" ) );
}

} // namespace
