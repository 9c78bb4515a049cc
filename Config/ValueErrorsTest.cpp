#include "Config/ErrorRowsTest.h"

namespace {

TEST( ValueErrors, reportsBadNames ) {
   expectErrors(
      { { good + "groups: {\"a b\": {}, -x: {}, a/b: {}, \"\": {}}\n",
          { "f:4:10: error: \"a b\" is not a valid name; a name has 1 to 63 letters, digits, \".\", \"_\" or "
            "\"-\" and begins with a letter or digit",
            "f:4:21: error: \"-x\" is not a valid name; a name has 1 to 63 letters, digits, \".\", \"_\" or "
            "\"-\" and begins with a letter or digit",
            "f:4:29: error: \"a/b\" is not a valid name; a name has 1 to 63 letters, digits, \".\", \"_\" or "
            "\"-\" and begins with a letter or digit",
            "f:4:38: error: \"\" is not a valid name; a name has 1 to 63 letters, digits, \".\", \"_\" or "
            "\"-\" and begins with a letter or digit" } },
        { good + "groups:\n"
                 "  aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa: {}\n",
          { "f:5:3: error: \"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa\" is not a "
            "valid name; a name has 1 to 63 letters, digits, \".\", \"_\" or \"-\" and begins with a letter "
            "or digit" } },
        { good + "groups:\n"
                 "  g: {interfaces: [abcdefghijklmnop, a/b, \"a:b\", \"a b\", ., .., \"\", \"a\\0b\"]}\n",
          { "f:5:20: error: \"abcdefghijklmnop\" is not an interface name: it is longer than 15 bytes",
            "f:5:38: error: \"a/b\" is not an interface name: it contains \"/\"",
            "f:5:43: error: \"a:b\" is not an interface name: it contains \":\"",
            "f:5:50: error: \"a b\" is not an interface name: it contains a blank or control character",
            "f:5:57: error: \".\" is not an interface name: it is reserved",
            "f:5:60: error: \"..\" is not an interface name: it is reserved",
            "f:5:64: error: \"\" is not an interface name: it is empty",
            "f:5:68: error: \"a\\x00b\" is not an interface name: it contains a blank or control "
            "character" } },
        { good + "simulated:\n"
                 "  ports: {a b: {}}\n",
          { "f:5:11: error: \"a b\" is not an interface name: it contains a blank or control character" } },
        { good + "simulated:\n"
                 "  vlans: {10: {name: a/b}}\n",
          { "f:5:22: error: \"a/b\" is not an interface name: it contains \"/\"" } } } );
}

TEST( ValueErrors, reportsBadTimes ) {
   expectErrors(
      { { good + "settle: 10\n", { "f:4:9: error: \"10\" has no unit; write 10s, 10m or 10h" } },
        { good + "settle: 0\n", { "f:4:9: error: \"0\" has no unit; write 0s, 0m or 0h" } },
        { good + "settle: 10sec\n",
          { "f:4:9: error: \"10sec\" is not a time; write whole hours, minutes and seconds, for example 90s, "
            "5m or 1h30m; did you mean \"10s\"?" } },
        { good + "settle: 1.5h\n",
          { "f:4:9: error: \"1.5h\" is not a time; write whole hours, minutes and seconds, for example 90s, "
            "5m or 1h30m" } },
        { good + "settle: 500ms\n",
          { "f:4:9: error: \"500ms\" is not a time; write whole hours, minutes and seconds, for example 90s, "
            "5m or 1h30m" } },
        { good + "settle: 5s1m\n",
          { "f:4:9: error: \"5s1m\" is not a time; hours come before minutes before seconds" } },
        { good + "settle: 5s5s\n",
          { "f:4:9: error: \"5s5s\" is not a time; hours come before minutes before seconds" } },
        { good + "settle: 1h30\n",
          { "f:4:9: error: \"1h30\" is not a time; write whole hours, minutes and seconds, for example 90s, "
            "5m or 1h30m" } },
        { good + "settle: soon\n",
          { "f:4:9: error: \"soon\" is not a time; write whole hours, minutes and seconds, for example 90s, "
            "5m or 1h30m" } },
        { good + "settle: \"\"\n",
          { "f:4:9: error: \"\" is not a time; write whole hours, minutes and seconds, for example 90s, 5m "
            "or 1h30m" } },
        { good + "settle: -5s\n",
          { "f:4:9: error: \"-5s\" is not a time; write whole hours, minutes and seconds, for example 90s, "
            "5m or 1h30m" } },
        { good + "settle: 721h\n", { "f:4:9: error: \"721h\" is out of range; a time is at most 720h" } },
        { good + "settle: 99999999999999999999999999s\n",
          { "f:4:9: error: \"99999999999999999999999999s\" is out of range; a time is at most 720h" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1kbps, load-interval: 1s, shutdown-max-delay: 5}\n",
          { "f:4:64: error: \"5\" has no unit; write 5s, 5m or 5h" } },
        { good + "simulated:\n"
                 "  ports:\n"
                 "    et1: {traffic: [{for: 0s}]}\n",
          { "f:6:27: error: \"0s\" is out of range; a segment lasts at least 1s" } },
        { good + "simulated:\n"
                 "  ports:\n"
                 "    et1: {traffic: [{for: 1, in: 5}]}\n",
          { "f:6:27: error: \"1\" has no unit; write 1s, 1m or 1h",
            "f:6:34: error: \"5\" has no unit; write 5bps, 5kbps, 5Mbps or 5Gbps" } } } );
}

TEST( ValueErrors, reportsBadRates ) {
   expectErrors(
      { { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 100, load-interval: 1s}\n",
          { "f:4:18: error: \"100\" has no unit; write 100bps, 100kbps, 100Mbps or 100Gbps" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 0, load-interval: 1s}\n",
          { "f:4:18: error: \"0\" has no unit; write 0bps, 0kbps, 0Mbps or 0Gbps" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 0bps, load-interval: 1s}\n",
          { "f:4:18: error: \"0bps\" is out of range; a threshold is above 0" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 100Kbps, load-interval: 1s}\n",
          { "f:4:18: error: \"100Kbps\" has an unknown unit \"Kbps\"; use bps, kbps, Mbps or Gbps; did you "
            "mean \"100kbps\"?" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: \"100 kbit/s\", load-interval: 1s}\n",
          { "f:4:18: error: \"100 kbit/s\" has an unknown unit \" kbit/s\"; use bps, kbps, Mbps or Gbps; did "
            "you mean \"100kbps\"?" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 100x, load-interval: 1s}\n",
          { "f:4:18: error: \"100x\" has an unknown unit \"x\"; use bps, kbps, Mbps or Gbps" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1.5bps, load-interval: 1s}\n",
          { "f:4:18: error: \"1.5bps\" is not a whole number of bits per second" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 0.0001kbps, load-interval: 1s}\n",
          { "f:4:18: error: \"0.0001kbps\" is not a whole number of bits per second" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: fast, load-interval: 1s}\n",
          { "f:4:18: error: \"fast\" is not a rate; examples: 100kbps, 1.5Mbps" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: -1kbps, load-interval: 1s}\n",
          { "f:4:18: error: \"-1kbps\" is not a rate; examples: 100kbps, 1.5Mbps" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1.kbps, load-interval: 1s}\n",
          { "f:4:18: error: \"1.kbps\" is not a rate; examples: 100kbps, 1.5Mbps" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: \"\", load-interval: 1s}\n",
          { "f:4:18: error: \"\" is not a rate; examples: 100kbps, 1.5Mbps" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1000001Gbps, load-interval: 1s}\n",
          { "f:4:18: error: \"1000001Gbps\" is out of range; a rate is at most 1000000Gbps" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1000000.1Gbps, load-interval: 1s}\n",
          { "f:4:18: error: \"1000000.1Gbps\" is out of range; a rate is at most 1000000Gbps" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 99999999999999999999999999bps, load-interval: 1s}\n",
          { "f:4:18: error: \"99999999999999999999999999bps\" is out of range; a rate is at most "
            "1000000Gbps" } } } );
}

TEST( ValueErrors, reportsWhatIsNeitherTrueNorFalse ) {
   expectErrors(
      { { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1kbps, load-interval: 1s, shutdown: yes}\n",
          { "f:4:54: error: \"shutdown\" must be true or false, not \"yes\"" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1kbps, load-interval: 1s, shutdown: off}\n",
          { "f:4:54: error: \"shutdown\" must be true or false, not \"off\"" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1kbps, load-interval: 1s, shutdown: True}\n",
          { "f:4:54: error: \"shutdown\" must be true or false, not \"True\"" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1kbps, load-interval: 1s, shutdown: 1}\n",
          { "f:4:54: error: \"shutdown\" must be true or false, not \"1\"" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1kbps, load-interval: 1s, shutdown: \"true\"}\n",
          { "f:4:54: error: \"shutdown\" must be true or false, not \"true\" (in quotes it is text)" } } } );
}

TEST( ValueErrors, reportsBadVlans ) {
   expectErrors(
      { { good + "groups:\n"
                 "  g: {vlans: [0]}\n",
          { "f:5:15: error: VLAN \"0\" is out of range 1-4094" } },
        { good + "groups:\n"
                 "  g: {vlans: [4095]}\n",
          { "f:5:15: error: VLAN \"4095\" is out of range 1-4094" } },
        { good + "groups:\n"
                 "  g: {vlans: [4000-4095]}\n",
          { "f:5:15: error: VLAN \"4095\" is out of range 1-4094" } },
        { good + "groups:\n"
                 "  g: {vlans: [29-20]}\n",
          { "f:5:15: error: VLAN range \"29-20\" is reversed; write 20-29" } },
        { good + "groups:\n"
                 "  g: {vlans: [x]}\n",
          { "f:5:15: error: \"x\" is not a VLAN id or range; examples: 10, 20-29" } },
        { good + "groups:\n"
                 "  g: {vlans: [10-]}\n",
          { "f:5:15: error: \"10-\" is not a VLAN id or range; examples: 10, 20-29" } },
        { good + "groups:\n"
                 "  g: {vlans: [-10]}\n",
          { "f:5:15: error: \"-10\" is not a VLAN id or range; examples: 10, 20-29" } },
        { good + "groups:\n"
                 "  g: {vlans: [1-2-3]}\n",
          { "f:5:15: error: \"1-2-3\" is not a VLAN id or range; examples: 10, 20-29" } },
        { good + "groups:\n"
                 "  g: {vlans: [010]}\n",
          { "f:5:15: error: \"010\" is not a VLAN id or range; examples: 10, 20-29" } },
        { good + "groups:\n"
                 "  g: {vlans: [99999999999]}\n",
          { "f:5:15: error: VLAN \"99999999999\" is out of range 1-4094" } },
        { good + "groups:\n"
                 "  g: {vlans: [20-29, 10, 25-35]}\n",
          { "f:5:26: error: VLAN \"25-35\" overlaps \"20-29\" at f:5:15" } },
        { good + "groups:\n"
                 "  g: {vlans: [20-29, 22]}\n",
          { "f:5:22: error: VLAN \"22\" overlaps \"20-29\" at f:5:15" } },
        { good + "groups:\n"
                 "  g: {vlans: [20-29, 15-20]}\n",
          { "f:5:22: error: VLAN \"15-20\" overlaps \"20-29\" at f:5:15" } },
        { good + "groups:\n"
                 "  g: {vlans: [10, 20, 1-15]}\n",
          { "f:5:23: error: VLAN \"1-15\" overlaps \"10\" at f:5:15" } },
        { good + "simulated:\n"
                 "  vlans: {0: {}, x: {}, 10-20: {}, 4095: {}}\n",
          { "f:5:11: error: VLAN \"0\" is out of range 1-4094",
            "f:5:18: error: \"x\" is not a VLAN id or range; examples: 10, 20-29",
            "f:5:25: error: \"10-20\" is not a VLAN id but a range",
            "f:5:36: error: VLAN \"4095\" is out of range 1-4094" } } } );
}

TEST( ValueErrors, reportsWordsThatAreNoChoice ) {
   expectErrors(
      { { good + "switch: linus\n",
          { "f:4:9: error: \"switch\" must be linux or simulated, not \"linus\"; did you mean \"linux\"?" } },
        { good + "switch: hardware\n",
          { "f:4:9: error: \"switch\" must be linux or simulated, not \"hardware\"" } },
        { good + "simulated:\n"
                 "  clock: virtul\n",
          { "f:5:10: error: \"clock\" must be real or virtual, not \"virtul\"; did you mean "
            "\"virtual\"?" } } } );
}

TEST( ValueErrors, reportsBadAddresses ) {
   expectErrors(
      { { good + "listen: {web: localhost}\n",
          { "f:4:15: error: \"localhost\" has no port; examples: localhost:8080, [::1]:8080" } },
        { good + "listen: {web: localhost:65536}\n",
          { "f:4:15: error: \"localhost:65536\" has no valid port (1 to 65535); examples: localhost:8080, "
            "[::1]:8080" } },
        { good + "listen: {web: localhost:0}\n",
          { "f:4:15: error: \"localhost:0\" has no valid port (1 to 65535); examples: localhost:8080, "
            "[::1]:8080" } },
        { good + "listen: {web: \":8080\"}\n",
          { "f:4:15: error: \":8080\" has no valid host; examples: localhost:8080, [::1]:8080" } },
        { good + "listen: {web: a_b:8080}\n",
          { "f:4:15: error: \"a_b:8080\" has no valid host; examples: localhost:8080, [::1]:8080" } },
        { good + "listen: {web: 1.2.3:8080}\n",
          { "f:4:15: error: \"1.2.3:8080\" has no valid host; examples: localhost:8080, [::1]:8080" } },
        { good + "listen: {web: \"::1:8080\"}\n",
          { "f:4:15: error: \"::1:8080\" needs brackets around its IPv6 address; examples: localhost:8080, "
            "[::1]:8080" } },
        { good + "listen: {web: \"[::g]:80\"}\n",
          { "f:4:15: error: \"[::g]:80\" has no valid host; examples: localhost:8080, [::1]:8080" } },
        { good + "listen: {web: \"[::1]\"}\n",
          { "f:4:15: error: \"[::1]\" has no port; examples: localhost:8080, [::1]:8080" } },
        { good + "listen: {web: http://localhost:8080/}\n",
          { "f:4:15: error: \"http://localhost:8080/\" has no valid host; examples: localhost:8080, "
            "[::1]:8080" } } } );
}

TEST( ValueErrors, reportsNamesToListenOn ) {
   const std::string why =
      "is a name, and nobody is asked for its address; write the address to listen on, and "
      "the name into \"names\"";
   expectErrors(
      { { good + "listen: {web: mgmt.example.net:8080}\n", { "f:4:15: error: \"mgmt.example.net\" " + why } },
        { good + "listen: {web: leaf1:8080}\n", { "f:4:15: error: \"leaf1\" " + why } } } );
   for ( const char * host : { "localhost", "LocalHost", "192.0.2.1", "0.0.0.0", "\"[::]\"" } ) {
      std::string text = good + "listen: {web: " + host + ":8080}\n";
      if ( const std::size_t quote = text.find( "\":" ); quote != text.npos )
         text.replace( quote, 6, ":8080\"" );
      EXPECT_EQ( std::vector< std::string >(), textsOf( Config::parse( text, "f" ) ) ) << text;
   }
}

TEST( ValueErrors, reportsNamesThatNoHostHas ) {
   expectErrors(
      { { good + "listen: {names: leaf1}\n",
          { "f:4:17: error: \"names\" must be a list of host names, not a single value" } },
        { good + "listen: {names: [\"*.example\"]}\n",
          { "f:4:18: error: \"*.example\" is no host name; example: leaf1.example.net" } },
        { good + "listen: {names: [10.0.0.1]}\n",
          { "f:4:18: error: \"10.0.0.1\" is no host name; example: leaf1.example.net" } },
        { good + "listen: {names: [a, b, a]}\n",
          { "f:4:24: error: \"a\" is listed twice; it is already at f:4:18" } } } );
}

} // namespace
