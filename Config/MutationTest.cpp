// Good files that were damaged: whatever stands in a file, reading it ends, with a configuration or with errors.

#include "Config/ErrorRowsTest.h"
#include "Config/GeneratorsTest.h"
#include "Config/ToYaml.h"

#include <rapidcheck/gtest.h>

namespace {

const std::string example =
   "version: 1\n"
   "switch: simulated\n"
   "listen: {web: \"[::1]:8080\", names: [leaf1]}\n"
   "settle: 1m30s # \u00e4\n"
   "enter: [drainwatch]\n"
   "profiles:\n"
   "  fast:  {threshold: 1.5Mbps, load-interval: 10s, shutdown: true, shutdown-max-delay: 5m}\n"
   "  'watch':\n"
   "    threshold: 1Mbps\n"
   "    load-interval: \"30s\"\n"
   "default-profile: fast\n"
   "groups:\n"
   "  uplinks: {interfaces: [et1, et2, bond0]}\n"
   "  tenants:\n"
   "    vlans:\n"
   "    - 10\n"
   "    - 20-29\n"
   "    profile: watch\n"
   "units:\n"
   "  spine-a: {groups: [uplinks, tenants], exit: [drainwatch]}\n"
   "hooks:\n"
   "  pager: {at: [enter, overrun], units: [spine-a], command: [/bin/page, 'a b'], time-limit: 5s}\n"
   "  desk: {at: [completed], url: \"https://[::1]:8443/x?y=z\"}\n"
   "simulated:\n"
   "  clock: virtual\n"
   "  ports:\n"
   "    et1: {traffic: [{for: 20s, in: 400Mbps, out: 380Mbps}, {ramp: 30s, to: 0bps}]}\n"
   "    et3: {}\n"
   "  port-channels: {pc1: [et3]}\n"
   "  vlans: {10: {name: vlan10, members: [et1, pc1]}}\n";

std::size_t index( std::size_t size ) { return *rc::gen::inRange< std::size_t >( 0, size ); }

/// Pieces that mean something to YAML or to us.
std::string piece() {
   return Generators::oneOf< std::string >( { "\n",          "\n\n",   "  ",       "\t",
                                              ":",           ": ",     "- ",       "? ",
                                              "[",           "]",      "{",        "}",
                                              ",",           "#",      " #",       "&a ",
                                              "*a",          "!t ",    "!!str ",   "|",
                                              ">",           "'",      "\"",       "\\",
                                              "%",           "@",      "`",        "<<: ",
                                              "---\n",       "...\n",  "~",        "null",
                                              "true",        "yes",    "0",        "-1",
                                              "1e99",        "4095",   "10s",      "1kbps",
                                              "a: ",         "\r\n",   "\r",       std::string( 1, '\0' ),
                                              "\x04",        "\x7f",   "\xff",     "\xc3",
                                              "\u00e4",      "\u2028", "\ufeff",   "\\x",
                                              "\\u009b",     "\\N",    "\\\u00e4", "[[[[[[[[[[[[[[[[[[",
                                              "{a: {a: {a: " } );
}

void damage( std::string & text ) {
   const std::size_t at = index( text.size() + 1 );
   const std::size_t lineEnd = std::min( text.find( '\n', at ), text.size() );
   switch ( *rc::gen::inRange( 0, 6 ) ) {
   case 0:
      text.insert( at, piece() );
      break;
   case 1:
      text.erase( at, 1 + index( 12 ) );
      break;
   case 2:
      text.erase( at );
      break; // cut
   case 3:
      text.replace( at, std::min< std::size_t >( 1, text.size() - at ), piece() );
      break;
   case 4:
      text.insert( lineEnd, text.substr( at, lineEnd - at ) );
      break;
   case 5: { // something from elsewhere
      const std::size_t from = index( text.size() + 1 );
      text.insert( at, text.substr( from, index( 40 ) ) );
      break;
   }
   }
}

bool isOneLineOfText( const std::string & message ) {
   for ( const char c : message )
      if ( static_cast< unsigned char >( c ) < 0x20 || c == 0x7f )
         return false;
   return !message.empty();
}

/// Every error is shown at a place that exists, in one line that can be printed.
void checkErrors( const Config::Result & result, const std::string & text ) {
   const auto lines = static_cast< unsigned >( 1 + std::count( text.begin(), text.end(), '\n' ) );
   const Config::Error * last = nullptr;
   for ( const Config::Error & error : result.errors ) {
      RC_ASSERT( error.file == "f" );
      RC_ASSERT( 1 <= error.line );
      RC_ASSERT( error.line <= lines );
      RC_ASSERT( 1 <= error.column );
      RC_ASSERT( error.column <= text.size() + 1 );
      RC_ASSERT( isOneLineOfText( error.message ) );
      if ( last )
         RC_ASSERT( std::tie( last->line, last->column ) <= std::tie( error.line, error.column ) );
      last = &error;
   }
}

RC_GTEST_PROP( Mutation, ofAGoodFileIsAConfigurationOrErrors, () ) {
   std::string text = example;
   for ( int i = *rc::gen::inRange( 1, 8 ); i > 0; --i )
      damage( text );
   RC_LOG() << text;
   const Config::Result result = Config::parse( text, "f" );
   RC_ASSERT( result.configuration.has_value() == result.errors.empty() );
   checkErrors( result, text );
   if ( result )
      RC_ASSERT(
         Config::parse( Config::toYaml( *result.configuration ), "f" ).configuration ==
         result.configuration );
}

TEST( Mutation, startsFromAGoodFile ) {
   EXPECT_EQ( std::vector< std::string >(), textsOf( Config::parse( example, "f" ) ) );
}

TEST( Mutation, ofEveryLengthIsAConfigurationOrErrors ) {
   for ( std::size_t length = 0; length < example.size(); ++length ) {
      const Config::Result result = Config::parse( example.substr( 0, length ), "f" );
      ASSERT_EQ( result.configuration.has_value(), result.errors.empty() ) << length;
   }
}

TEST( Mutation, intoALargeFileOfTheSameIsErrors ) {
   for ( const std::string unit :
         { "[", "{", "[a,", "- ", "? ", "a: ", "\"", "'", "&a\n", "!", "*a ", " ", "\n", "a\n", "'a',",
           "\u00e4: \"b\", ", "x: {}\n" } ) {
      SCOPED_TRACE( unit );
      std::string text = "groups: {";
      while ( text.size() < 200'000 )
         text.append( unit );
      EXPECT_FALSE( Config::parse( text, "f" ) );
   }
}

} // namespace
