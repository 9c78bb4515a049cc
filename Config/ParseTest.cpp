#include "Config/Load.h"

#include <gtest/gtest.h>

namespace {

std::string all( const Config::Result & result ) {
   std::string text;
   for ( const Config::Error & error : result.errors )
      text.append( error.text() ).append( 1, '\n' );
   return text;
}

TEST( Parse, readsEveryKey ) {
   const Config::Result result = Config::parse(
      "version: 1\n"
      "switch: simulated\n"
      "listen: {web: \"[::1]:8080\"}\n"
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

} // namespace
