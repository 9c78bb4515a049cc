#include "Config/ErrorRowsTest.h"

namespace {

TEST( ParseErrors, areNotSeenInTheGoodLines ) { EXPECT_TRUE( Config::parse( good, "f" ) ); }

TEST( ParseErrors, reportsWhatIsMissing ) {
   expectErrors(
      { { "profiles: {p: {threshold: 1kbps, load-interval: 1s}}\n"
          "default-profile: p\n",
          { "f:1:1: error: the configuration needs \"version\"; write version: 1" } },
        { "version: 1\n"
          "default-profile: p\n",
          { "f:1:1: error: the configuration needs \"profiles\"" } },
        { "version: 1\n"
          "profiles: {}\n"
          "default-profile: p\n",
          { "f:2:11: error: \"profiles\" needs at least one profile" } },
        { "version: 1\n"
          "profiles: {p: {threshold: 1kbps, load-interval: 1s}}\n",
          { "f:1:1: error: the configuration needs \"default-profile\"" } },
        { "version: 1\n"
          "profiles:\n"
          "  p: {load-interval: 1s}\n"
          "default-profile: p\n",
          { "f:3:3: error: profile \"p\" needs \"threshold\"" } },
        { "version: 1\n"
          "profiles:\n"
          "  p: {threshold: 1kbps}\n"
          "default-profile: p\n",
          { "f:3:3: error: profile \"p\" needs \"load-interval\"" } } } );
}

TEST( ParseErrors, reportsAWrongVersion ) {
   expectErrors(
      { { "version: 2\n"
          "profiles: {p: {threshold: 1kbps, load-interval: 1s}}\n"
          "default-profile: p\n",
          { "f:1:10: error: unknown version \"2\"; this program reads version 1" } },
        { "version: \"1\"\n"
          "profiles: {p: {threshold: 1kbps, load-interval: 1s}}\n"
          "default-profile: p\n",
          { "f:1:10: error: \"version\" must be a number, without quotes" } },
        { "version: [1]\n"
          "profiles: {p: {threshold: 1kbps, load-interval: 1s}}\n"
          "default-profile: p\n",
          { "f:1:10: error: \"version\" must be 1, not a list" } } } );
}

TEST( ParseErrors, reportsUnknownKeys ) {
   expectErrors(
      { { good + "setle: 10s\n",
          { "f:4:1: error: unknown key \"setle\" in the configuration; did you mean \"settle\"?" } },
        { good + "colour: red\n",
          { "f:4:1: error: unknown key \"colour\" in the configuration; known are version, switch, listen, "
            "settle, stages, enter, exit, profiles, default-profile, groups, units, redundancy-groups, "
            "control-plane-floor, hooks and simulated" } },
        { good + "Groups: {}\n",
          { "f:4:1: error: unknown key \"Groups\" in the configuration; did you mean \"groups\"?" } },
        { good + "groups:\n"
                 "  g: {interface: [et1]}\n",
          { "f:5:7: error: unknown key \"interface\" in a group; did you mean \"interfaces\"?" } },
        { good + "units:\n"
                 "  u: {group: []}\n",
          { "f:5:7: error: unknown key \"group\" in a unit; did you mean \"groups\"?" } },
        { good + "listen: {name: [a]}\n",
          { "f:4:10: error: unknown key \"name\" in \"listen\"; did you mean \"names\"?" } },
        { good + "listen: {wbe: \"\"}\n",
          { "f:4:10: error: unknown key \"wbe\" in \"listen\"; did you mean \"web\"?" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1kbps, load-interval: 1s, shutdown-maxdelay: 5s}\n",
          { "f:4:44: error: unknown key \"shutdown-maxdelay\" in a profile; did you mean "
            "\"shutdown-max-delay\"?" } },
        { good + "simulated:\n"
                 "  port: {}\n",
          { "f:5:3: error: unknown key \"port\" in \"simulated\"; did you mean \"ports\"?" } },
        { good + "simulated:\n"
                 "  ports:\n"
                 "    et1: {trafic: []}\n",
          { "f:6:11: error: unknown key \"trafic\" in a port; did you mean \"traffic\"?" } },
        { good + "simulated:\n"
                 "  ports:\n"
                 "    et1: {traffic: [{fro: 1s, for: 1s}]}\n",
          { "f:6:22: error: unknown key \"fro\" in a traffic segment; did you mean \"for\"?" } } } );
}

TEST( ParseErrors, reportsWhatStandsTwice ) {
   expectErrors(
      { { good + "settle: 10s\n"
                 "settle: 20s\n",
          { "f:5:1: error: duplicate key \"settle\"; it is already at f:4:1" } },
        { good + "settle: 10s\n"
                 "\"settle\": 10s\n",
          { "f:5:1: error: duplicate key \"settle\"; it is already at f:4:1" } },
        { good + "groups:\n"
                 "  g: {}\n"
                 "  h: {}\n"
                 "  g: {}\n",
          { "f:7:3: error: duplicate key \"g\"; it is already at f:5:3" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1kbps, load-interval: 1s, threshold: 2kbps}\n",
          { "f:4:44: error: duplicate key \"threshold\"; it is already at f:4:7" } },
        { good + "groups: {g: {}}\n"
                 "units:\n"
                 "  u: {groups: [g, g]}\n",
          { "f:6:19: error: \"g\" is listed twice; it is already at f:6:16" } },
        { good + "groups:\n"
                 "  g:\n"
                 "    interfaces: [et1, et2, et1]\n",
          { "f:6:28: error: \"et1\" is listed twice; it is already at f:6:18" } },
        { good + "enter: [drainwatch, drainwatch]\n",
          { "f:4:21: error: \"drainwatch\" is listed twice; it is already at f:4:9" } },
        { good + "groups:\n"
                 "  g: {vlans: [10, 10]}\n",
          { "f:5:19: error: VLAN \"10\" overlaps \"10\" at f:5:15" } },
        { good + "simulated:\n"
                 "  ports: {et1: {}}\n"
                 "  port-channels: {pc1: [et1], pc2: [et1]}\n",
          { "f:6:37: error: \"et1\" is already a member of a port-channel at f:6:25" } },
        { good + "simulated:\n"
                 "  ports: {et1: {}}\n"
                 "  port-channels: {pc1: [et1, et1]}\n",
          { "f:6:30: error: \"et1\" is already a member of a port-channel at f:6:25" } },
        { good + "simulated:\n"
                 "  ports: {et1: {}}\n"
                 "  port-channels: {et1: []}\n",
          { "f:6:19: error: duplicate name \"et1\"; it is already at f:5:11" } },
        { good + "simulated:\n"
                 "  ports: {vlan10: {}}\n"
                 "  vlans: {10: {}}\n",
          { "f:6:11: error: duplicate name \"vlan10\"; it is already at f:5:11" } },
        { good + "simulated:\n"
                 "  vlans: {10: {name: v}, 11: {name: v}}\n",
          { "f:5:37: error: duplicate name \"v\"; it is already at f:5:22" } },
        { good + "simulated:\n"
                 "  ports: {et1: {}}\n"
                 "  vlans: {10: {members: [et1, et1]}}\n",
          { "f:6:31: error: \"et1\" is listed twice; it is already at f:6:26" } } } );
}

TEST( ParseErrors, reportsNamesThatAreNotDefined ) {
   expectErrors(
      { { "version: 1\n"
          "profiles: {fast: {threshold: 1kbps, load-interval: 1s}}\n"
          "default-profile: fsat\n",
          { "f:3:18: error: unknown profile \"fsat\"; did you mean \"fast\"?" } },
        { good + "groups:\n"
                 "  g: {profile: q1}\n",
          { "f:5:16: error: unknown profile \"q1\"" } },
        { good + "groups: {uplinks: {}}\n"
                 "units:\n"
                 "  u: {groups: [uplnks]}\n",
          { "f:6:16: error: unknown group \"uplnks\"; did you mean \"uplinks\"?" } },
        { good + "simulated:\n"
                 "  ports: {et1: {}}\n"
                 "  port-channels: {pc1: [et1, et2]}\n",
          { "f:6:30: error: unknown port \"et2\"" } },
        { good + "simulated:\n"
                 "  ports: {et1: {}}\n"
                 "  port-channels: {pc1: [et1], pc2: [pc1]}\n",
          { "f:6:37: error: unknown port \"pc1\"" } },
        { good + "simulated:\n"
                 "  vlans: {10: {members: [et1]}}\n",
          { "f:5:26: error: unknown port or port-channel \"et1\"" } } } );
}

TEST( ParseErrors, reportsBadStages ) {
   expectErrors(
      { { good + "enter: [drainwach]\n",
          { "f:4:9: error: unknown stage \"drainwach\"; did you mean \"drainwatch\"?" } },
        { good + "exit: []\n", { "f:4:7: error: \"exit\" needs at least one stage" } },
        { good + "units:\n"
                 "  u: {enter: [wait], exit: drainwatch}\n",
          { "f:5:15: error: unknown stage \"wait\"",
            "f:5:28: error: \"exit\" must be a list of stages, not a single value" } } } );
}

TEST( ParseErrors, reportsTrafficSegmentsThatMakeNoSense ) {
   expectErrors(
      { { good + "simulated:\n"
                 "  ports:\n"
                 "    et1: {traffic: [{for: 1s, ramp: 1s, to: 1kbps}]}\n",
          { "f:6:31: error: a traffic segment has either \"for\" or \"ramp\"" } },
        { good + "simulated:\n"
                 "  ports:\n"
                 "    et1: {traffic: [{in: 1kbps}]}\n",
          { "f:6:21: error: a traffic segment needs \"for\" or \"ramp\"" } },
        { good + "simulated:\n"
                 "  ports:\n"
                 "    et1: {traffic: [{for: 1s, to: 1kbps}]}\n",
          { "f:6:31: error: \"to\" belongs to \"ramp\"; write \"in\" and \"out\"" } },
        { good + "simulated:\n"
                 "  ports:\n"
                 "    et1: {traffic: [{ramp: 1s, to: 1kbps, in: 1kbps}]}\n",
          { "f:6:32: error: a ramp has either \"to\", for both directions, or \"in\" and \"out\"" } },
        { good + "simulated:\n"
                 "  ports:\n"
                 "    et1: {traffic: [{ramp: 1s}]}\n",
          { "f:6:22: error: a ramp needs \"to\", \"in\" or \"out\"" } } } );
}

TEST( ParseErrors, reportsAVlanMemberThatIsInAPortChannel ) {
   expectErrors(
      { { good + "simulated:\n"
                 "  ports: {et1: {}}\n"
                 "  port-channels: {pc1: [et1]}\n"
                 "  vlans: {10: {members: [et1, pc1]}}\n",
          { "f:7:26: error: \"et1\" is a member of a port-channel at f:6:25; the port-channel can be a "
            "member of the VLAN instead" } } } );
}

} // namespace
