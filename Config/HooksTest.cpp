#include "Config/Hooks.h"

#include "Config/Differences.h"
#include "Config/ErrorRowsTest.h"

namespace {

using Config::Moment;

const std::string units = good + "units: {spine-a: {}, spine-b: {}}\n";

TEST( Hooks, areToldOfMomentsByACommandOrAUrl ) {
   const auto result = Config::parse(
      units + "hooks:\n"
              "  pager: {at: [overrun, enter], units: [spine-b], command: /bin/page 'a b', time-limit: 5m}\n"
              "  desk: {at: [completed], url: \"https://desk.example:8443/in?a=b\"}\n",
      "f" );
   ASSERT_TRUE( result ) << textsOf( result ).front();
   const Config::Hook & pager = result.configuration->hooks.at( "pager" );
   EXPECT_EQ( ( std::set< Moment >{ Moment::enter, Moment::overrun } ), pager.at );
   EXPECT_EQ( std::set< std::string >{ "spine-b" }, pager.units );
   EXPECT_EQ( ( std::vector< std::string >{ "/bin/page", "a b" } ), pager.command.words() );
   EXPECT_EQ( 300u, pager.timeLimit.seconds() );
   const Config::Hook & desk = result.configuration->hooks.at( "desk" );
   EXPECT_EQ( std::set< std::string >(), desk.units );
   EXPECT_EQ( "https://desk.example:8443/in?a=b", desk.url );
   EXPECT_EQ( 10u, desk.timeLimit.seconds() );
}

TEST( Hooks, takeTheWordsOfACommandAsAListJustAsTheyAre ) {
   const auto result = Config::parse(
      good + "hooks: {h: {at: [shut], command: [/bin/page, \"$HOME; `id`\", \"\", \"it's\"]}}\n", "f" );
   ASSERT_TRUE( result ) << textsOf( result ).front();
   EXPECT_EQ(
      ( std::vector< std::string >{ "/bin/page", "$HOME; `id`", "", "it's" } ),
      result.configuration->hooks.at( "h" ).command.words() );
}

TEST( Hooks, knowEveryMomentByItsName ) {
   for ( const Moment moment : Config::allMoments() ) {
      const auto result = Config::parse(
         good + "hooks: {h: {at: [" + Config::text( moment ) + "], command: /bin/true}}\n", "f" );
      ASSERT_TRUE( result ) << textsOf( result ).front();
      EXPECT_EQ( std::set< Moment >{ moment }, result.configuration->hooks.at( "h" ).at );
   }
}

TEST( Hooks, areReportedWhereTheyAreWrong ) {
   const std::string h = units + "hooks: {h: {";
   expectErrors(
      { { units + "hooks: [h]\n", { "f:5:8: error: \"hooks\" must be a map of hooks, not a list" } },
        { units + "hook: {}\n",
          { "f:5:1: error: unknown key \"hook\" in the configuration; did you mean \"hooks\"?" } },
        { units + "hooks: {a b: {at: [exit], command: /bin/true}}\n",
          { "f:5:9: error: \"a b\" is not a valid name; a name has 1 to 63 letters, digits, \".\", \"_\" or "
            "\"-\" and begins with a letter or digit" } },
        { h + "command: /bin/true}}\n", { "f:5:9: error: hook \"h\" needs \"at\"" } },
        { h + "at: [exit], comand: /bin/true}}\n",
          { "f:5:9: error: hook \"h\" needs \"command\" or \"url\"",
            "f:5:25: error: unknown key \"comand\" in a hook; did you mean \"command\"?" } },
        { h + "at: [exit], command: /bin/true, url: \"http://a\"}}\n",
          { "f:5:9: error: hook \"h\" has both \"command\" and \"url\"; write two hooks" } },
        { h + "at: [drain], command: /bin/true}}\n",
          { "f:5:18: error: unknown moment \"drain\"; did you mean \"drained\"?" } },
        { h + "at: [foo], command: /bin/true}}\n",
          { "f:5:18: error: unknown moment \"foo\"; known are enter, drained, shut, spike, completed, exit, "
            "normal and overrun" } },
        { h + "at: [exit, exit], command: /bin/true}}\n",
          { "f:5:24: error: \"exit\" is listed twice; it is already at f:5:18" } },
        { h + "at: [], command: /bin/true}}\n", { "f:5:17: error: \"at\" needs at least one moment" } },
        { h + "at: exit, command: /bin/true}}\n",
          { "f:5:17: error: \"at\" must be a list of moments, not a single value" } },
        { h + "at: [exit], units: [spine-c], command: /bin/true}}\n",
          { "f:5:33: error: unknown unit \"spine-c\"; did you mean \"spine-a\"?" } },
        { h + "at: [exit], units: [], command: /bin/true}}\n",
          { "f:5:32: error: \"units\" needs at least one unit; leave the key out for all of them" } },
        { h + "at: [exit], command: page}}\n",
          { "f:5:34: error: command \"page\" begins with \"page\", which is no absolute path; write where "
            "the program is, for example /usr/local/sbin/steer" } },
        { h + "at: [exit], command: [page, a]}}\n",
          { "f:5:34: error: command begins with \"page\", which is no absolute path; write where the program "
            "is, for example /usr/local/sbin/steer" } },
        { h + "at: [exit], command: []}}\n",
          { "f:5:34: error: command is empty; leave the key out if there is nothing to do" } },
        { h + "at: [exit], command: [/bin/a, [b]]}}\n",
          { "f:5:43: error: expected a word of a command, not a list" } },
        { h + "at: [exit], command: [/bin/a, \"b\\n\"]}}\n",
          { "f:5:34: error: command word \"b\\n\" has a control character" } },
        { h + "at: [exit], command: /bin/a | b}}\n",
          { "f:5:34: error: command \"/bin/a | b\" has |, and no shell runs a command; put it in '...' if it "
            "is text, or write /bin/sh -c '...'" } },
        { h + "at: [exit], command: /bin/true, time-limit: 0s}}\n",
          { "f:5:57: error: \"0s\" is out of range; a hook gets 1s to 1h" } },
        { h + "at: [exit], command: /bin/true, time-limit: 61m}}\n",
          { "f:5:57: error: \"61m\" is out of range; a hook gets 1s to 1h" } },
        { h + "at: [exit], command: /bin/true, time-limit: 10}}\n",
          { "f:5:57: error: \"10\" has no unit; write 10s, 10m or 10h" } },
        { h + "at: [exit], url: [a]}}\n", { "f:5:30: error: \"url\" must be a URL, not a list" } },
        { h + "at: [exit], url: \"ftp://a\"}}\n",
          { "f:5:30: error: the URL does not begin with http:// or https://; example: "
            "https://hooks.example.net:8443/maintenance?from=spine-a" } } } );
}

TEST( Hooks, areNoMoreThanCanRunAtATime ) {
   std::string text = good + "hooks:\n";
   for ( std::size_t i = 0; i < Config::mostHooks; ++i )
      text += "  h" + std::to_string( i ) + ": {at: [exit], command: /bin/true}\n";
   EXPECT_EQ( std::vector< std::string >(), textsOf( Config::parse( text, "f" ) ) );
   expectErrors(
      { { text + "  more: {at: [exit], command: /bin/true}\n",
          { "f:4:1: error: there are 33 hooks; there may be 32 at most" } } } );
}

TEST( Hooks, takeUrlsThatCanBePostedTo ) {
   for ( const char * url :
         { "http://localhost", "http://localhost/", "https://a.b-c.example:65535/x/y?z=1&q='%20'",
           "http://192.0.2.1:8080", "http://[2001:db8::1]", "https://[::1]:443?x", "http://u:p@h/x@y" } )
      EXPECT_EQ( url, Config::parseUrl( url ).value.value_or( "none" ) ) << url;
   for ( const char * url :
         { "",
           "http",
           "http:/a",
           "http://",
           "http:///x",
           "HTTP://a",
           "file:///etc/passwd",
           "http://a:0",
           "http://a:65536",
           "http://a:",
           "http://a b",
           "http://a/\n",
           "http://a/\x7f",
           "http://a/\u00e9",
           "http://a/#b",
           "http://::1/",
           "http://[::1",
           "http://1.2.3",
           "http://a_b",
           "http://u@" } )
      EXPECT_FALSE( Config::parseUrl( url ) ) << url;
   EXPECT_FALSE( Config::parseUrl( "http://a/" + std::string( 2000, 'x' ) ) );
}

TEST( Hooks, keepWhatAUrlMayHideOutOfMessages ) {
   for ( const char * url :
         { "http://u:secret@a b/", "ftp://secret/", "http://u:secret@/x", "http://a/secret#" } )
      EXPECT_EQ( std::string::npos, Config::parseUrl( url ).error.find( "secret" ) ) << url;
   const auto parsed = []( const std::string & hooks ) {
      return *Config::parse( good + "hooks: {" + hooks + "}\n", "f" ).configuration;
   };
   EXPECT_EQ(
      std::vector< std::string >{ "hook \"h\" edited: another url" },
      Config::describe(
         parsed( "h: {at: [exit], url: \"http://a/secret\"}" ),
         parsed( "h: {at: [exit], url: \"http://a/secret2\"}" ) ) );
}

TEST( Hooks, areComparedForThoseWhoReload ) {
   const auto parsed = []( const std::string & hooks ) {
      return *Config::parse( units + "hooks: {" + hooks + "}\n", "f" ).configuration;
   };
   const auto from = parsed( "gone: {at: [exit], command: /bin/a}, h: {at: [exit], command: /bin/a}" );
   const auto to = parsed( "new: {at: [exit], command: /bin/a}, "
                           "h: {at: [exit, shut], units: [spine-a], command: /bin/b, time-limit: 1s}" );
   EXPECT_TRUE( Config::differences( from, to ).hooks );
   EXPECT_TRUE( Config::differences( from, from ).empty() );
   EXPECT_EQ(
      ( std::vector< std::string >{
         "hook \"new\" added",
         "hook \"h\" edited: at [exit] -> [shut, exit]; units all -> [spine-a]; command /bin/a -> /bin/b; "
         "time-limit 10s -> 1s",
         "hook \"gone\" removed" } ),
      Config::describe( from, to ) );
}

} // namespace
