#include "Config/ErrorRowsTest.h"

using namespace std::string_literals;

namespace {

TEST( YamlErrors, reportsThatAFileIsNoConfigurationAtAll ) {
   expectErrors(
      { { "", { "f:1:1: error: the file is empty" } },
        { "# nothing\n"
          "\n",
          { "f:1:1: error: the file is empty" } },
        { "--- ~\n", { "f:1:1: error: the file is empty" } },
        { "- a\n", { "f:1:1: error: a configuration is a map of keys and values" } },
        { "hello\n", { "f:1:1: error: a configuration is a map of keys and values" } },
        { "{}\n",
          { "f:1:1: error: the configuration needs \"version\"; write version: 1",
            "f:1:1: error: the configuration needs \"profiles\"",
            "f:1:1: error: the configuration needs \"default-profile\"" } },
        { "\"hello\n", { "f:1:1: error: the quote that opens here is not closed" } } } );
}

TEST( YamlErrors, reportsWhatYamlHasAndWeHaveNot ) {
   expectErrors(
      { { good + "groups: {~: {}}\n", { "f:4:10: error: a key is missing here, or is \"null\" or \"~\"" } },
        { good + "groups: {[a]: {}}\n", { "f:4:10: error: a key must be text" } },
        { good + "groups:\n"
                 "  g: {}\n"
                 "  <<: {h: {}}\n",
          { "f:6:3: error: merge keys are not allowed" } },
        { good + "groups:\n"
                 "  g: &a {}\n",
          { "f:5:6: error: anchors are not allowed" } },
        { good + "groups:\n"
                 "  g: &a {}\n"
                 "  h: *a\n",
          { "f:5:6: error: anchors are not allowed",
            "f:6:6: error: aliases are not allowed; write the value out" } },
        { good + "groups:\n"
                 "  h: *a\n",
          { "f:5:6: error: aliases are not allowed; write the value out" } },
        { good + "groups: {*a : {}}\n", { "f:4:10: error: aliases are not allowed; write the value out" } },
        { good + "settle: !!str 10s\n", { "f:4:9: error: tags are not allowed" } },
        { good + "groups: !mine {}\n", { "f:4:9: error: tags are not allowed" } },
        { good + "---\n"
                 "settle: 10s\n",
          { "f:4:1: error: a second document; one file holds one" } },
        { good + "...\n"
                 "settle: 10s\n",
          { "f:5:1: error: unexpected text behind the end of the document" } },
        { "%YAML 1.2\n"
          "---\n"
          "version: 1\n",
          { "f:1:1: error: directives are not allowed" } },
        { good + "groups: [[[[[[[[[[[[[[[[[]]]]]]]]]]]]]]]]]\n",
          { "f:4:24: error: nested more than 16 levels deep" } } } );
}

TEST( YamlErrors, reportsMissingValues ) {
   expectErrors(
      { { good + "settle:\n", { "f:4:1: error: \"settle\" has no value; expected a time" } },
        { good + "groups:\n"
                 "units: {}\n",
          { "f:4:1: error: \"groups\" has no value; expected a map of groups ({} is an empty one)" } },
        { good + "settle: null\n", { "f:4:1: error: \"settle\" has no value; expected a time" } },
        { good + "groups:\n"
                 "  g: {interfaces: ~}\n",
          { "f:5:7: error: \"interfaces\" has no value; expected a list of interface names ([] is an empty "
            "one)" } },
        { good + "groups:\n"
                 "  g: {interfaces: [et1, , et2]}\n",
          { "f:5:25: error: no value here; expected an interface name" } } } );
}

TEST( YamlErrors, reportsValuesOfAnotherKind ) {
   expectErrors(
      { { good + "settle: {a: b}\n", { "f:4:9: error: \"settle\" must be a time, not a map" } },
        { good + "groups: [a]\n", { "f:4:9: error: \"groups\" must be a map of groups, not a list" } },
        { good + "groups:\n"
                 "  g: {interfaces: et1}\n",
          { "f:5:19: error: \"interfaces\" must be a list of interface names, not a single value" } },
        { good + "groups:\n"
                 "  g: {interfaces: [et1: x]}\n",
          { "f:5:20: error: expected an interface name, not a map" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: [1kbps], load-interval: 1s}\n",
          { "f:4:18: error: \"threshold\" must be a rate, not a list" } },
        { "version: 1\n"
          "default-profile: p\n"
          "profiles:\n"
          "  p: {threshold: 1kbps, load-interval: 1s, shutdown: []}\n",
          { "f:4:54: error: \"shutdown\" must be true or false, not a list" } },
        { good + "groups:\n"
                 "  g: {vlans: [{10: 20}]}\n",
          { "f:5:15: error: expected a VLAN id or range, not a map" } },
        { good + "simulated:\n"
                 "  ports:\n"
                 "    et1: {traffic: [5s]}\n",
          { "f:6:21: error: expected a traffic segment, not a single value" } },
        { good + "listen: {web: []}\n", { "f:4:15: error: \"web\" must be an address, not a list" } } } );
}

TEST( YamlErrors, reportsWhereAFileIsNoYaml ) {
   expectErrors(
      { { good + "groups:\n"
                 "\tg: {}\n"
                 "  \th: {}\n",
          { "f:5:1: error: a tab in the indentation; use blanks",
            "f:6:3: error: a tab in the indentation; use blanks" } },
        { good + "groups: {g: {}\n"
                 "units: {}\n",
          { "f:5:1: error: the map at f:4:9 is not closed; expected \",\" or \"}\" here" } },
        { good + "groups:\n"
                 "  g: {interfaces: [et1, et2}\n",
          { "f:5:28: error: unexpected \"}\"; it does not match what is open here" } },
        { good + "settle: \"10s\n", { "f:4:9: error: the quote that opens here is not closed" } },
        { good + "settle: '10s\n"
                 "# x\n",
          { "f:4:9: error: the quote that opens here is not closed" } },
        { good + "settle: a: b\n",
          { "f:4:10: error: unexpected \":\"; is the indentation wrong, a \":\" missing in the line above, "
            "or text with \": \" in it not in quotes?" } },
        { good + "groups:\n"
                 "  g: {}\n"
                 " h: {}\n",
          { "f:6:2: error: the map at f:1:1 cannot go on like this; is the indentation wrong, or a \":\" "
            "missing?" } },
        { good + "groups\n"
                 "units: {}\n",
          { "f:5:6: error: unexpected \":\"; is the indentation wrong, a \":\" missing in the line above, or "
            "text with \": \" in it not in quotes?" } },
        { good + "groups: - a\n",
          { "f:4:9: error: unexpected \"-\"; a list that is written with dashes begins on its own line" } },
        { good + "groups: }\n", { "f:4:9: error: unexpected \"}\"; it does not match what is open here" } },
        { good + "settle: @home\n", { "f:4:9: error: text that begins with \"@\" must be in quotes" } },
        { good + "settle: \"\\q\"\n", { "f:4:12: error: unknown escape in quoted text" } },
        { good + "listen:\n"
                 "  web: [::1]:8080\n",
          { "f:5:13: error: the map at f:5:3 cannot go on like this; is the indentation wrong, or a \":\" "
            "missing?" } } } );
}

TEST( YamlErrors, reportsWhereAFileIsNoText ) {
   expectErrors(
      { { good + "set\000tle: 10s\n"s, { "f:4:4: error: control character 0x00 is not allowed" } },
        { good + "settle: 10s\n"
                 "\004groups: x\n",
          { "f:5:1: error: control character 0x04 is not allowed" } },
        { good + "settle: 10s\rgroups: {}\n", { "f:4:12: error: control character 0x0d is not allowed" } },
        { good + "settle: 10s\302\205\n", { "f:4:12: error: control character 0x85 is not allowed" } },
        { good + "# \303\244\303\266\377\n", { "f:4:5: error: byte 0xff is not UTF-8 text" } },
        { good + "# \355\240\200\n", { "f:4:3: error: byte 0xed is not UTF-8 text" } },
        { good + "# \300\200\n", { "f:4:3: error: byte 0xc0 is not UTF-8 text" } },
        { good + "# \303", { "f:4:3: error: byte 0xc3 is not UTF-8 text" } } } );
}

TEST( YamlErrors, reportsEscapesOfWhatMayNotStandInAFile ) {
   const std::string begin = good + "groups: {g: {interfaces: [";
   expectErrors(
      { { begin + "\"a\\x85b\"]}}\n",
          { "f:4:27: error: \"a\\u0085b\" has control character 0x85, which is not allowed" } },
        { begin + "\"a\\u009b\"]}}\n",
          { "f:4:27: error: \"a\\u009b\" has control character 0x9b, which is not allowed" } },
        { begin + "\"a\\Nb\"]}}\n", { "f:4:27: error: \"a\\x85b\" has byte 0x85, which is not UTF-8 text" } },
        { good + "stages: {s: {enter: \"/bin/a '\\x9b'\"}}\n",
          { "f:4:21: error: \"/bin/a '\\u009b'\" has control character 0x9b, which is not allowed" } },
        { good + "hooks: {h: {at: [enter], command: [/bin/a, \"\\x80\"]}}\n",
          { "f:4:44: error: \"\\u0080\" has control character 0x80, which is not allowed" } },
        { good + "groups: {\"\\x85\": {}}\n",
          { "f:4:10: error: \"\\u0085\" has control character 0x85, which is not allowed" } } } );
}

TEST( YamlErrors, takesLettersWhoseBytesLookLikeControlCharacters ) {
   const Config::Result result =
      Config::parse( good + "groups: {g: {interfaces: [\"\\u0105\", \u015b]}}\n", "f" );
   ASSERT_EQ( std::vector< std::string >(), textsOf( result ) );
   EXPECT_EQ(
      ( std::set< std::string >{ "\u0105", "\u015b" } ), result.configuration->groups.at( "g" ).interfaces );
}

TEST( YamlErrors, showsWhatIsNotSeenAsEscapes ) {
   const std::string noTime =
      " is not a time; write whole hours, minutes and seconds, for example 90s, 5m or 1h30m";
   expectErrors(
      { { good + "\ufeffgroups: {}\n",
          { "f:4:1: error: unknown key \"\\ufeffgroups\" in the configuration; did you mean \"groups\"?" } },
        { good + "settle: 10s\u00a0\n",
          { "f:4:9: error: \"10s\\u00a0\"" + noTime + "; did you mean \"10s\"?" } },
        { good + "settle: \"\u202e\u200b10s\"\n", { "f:4:9: error: \"\\u202e\\u200b10s\"" + noTime } } } );
}

TEST( YamlErrors, reportsEscapesThatAreNoCharacter ) {
   const Config::Result result = Config::parse( good + "settle: \"\\ud800\"\n", "f" );
   ASSERT_EQ( 1u, result.errors.size() );
   EXPECT_EQ( "the escape is no character", result.errors[0].message );
}

} // namespace
