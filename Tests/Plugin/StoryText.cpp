#include "Tests/Plugin/StoryText.h"

#include <charconv>
#include <cstdio>
#include <sstream>
#include <stdexcept>

namespace Tests {

using Reference::Event;
using Reference::EventKind;
using Reference::IntfKind;
using Reference::StageClass;
using Reference::World;

namespace {

/// In the order of the kinds.
constexpr const char * kinds[] = {
   "linkUp",        "linkDown",     "linkGone",       "octets",         "countersGone",   "lagMember",
   "lagMemberGone", "vlanMade",     "vlanGone",       "vlanMember",     "vlanMemberGone", "entryMade",
   "entryGone",     "entryGroup",   "entryGroupGone", "selectionCause", "selection",      "selectionGone",
   "groupMade",     "groupGone",    "groupIntf",      "groupIntfGone",  "mapping",        "mappingGone",
   "profileMade",   "profileGone",  "threshold",      "loadInterval",   "shutdown",       "maxDelay",
   "defaultName",   "unitMade",     "unitGone",       "unitState",      "unitGeneration", "unitInstance",
   "progressMade",  "progressGone", "stageStatus",    "stage",          "completionMade", "completionGone",
   "turn",          "time",         "start",          "crash",          "unload" };
static_assert( std::size( kinds ) == static_cast< std::size_t >( EventKind::unload ) + 1 );

std::string put( double value ) {
   char buffer[40];
   std::snprintf( buffer, sizeof buffer, "%.17g", value );
   return buffer;
}
std::string put( int value ) { return std::to_string( value ); }
std::string put( std::uint32_t value ) { return std::to_string( value ); }
std::string put( std::uint64_t value ) { return std::to_string( value ); }
std::string put( bool value ) { return value ? "1" : "0"; }
std::string put( StageClass value ) { return value == StageClass::enter ? "enter" : "exit"; }
std::string put( const std::optional< std::uint64_t > & value ) { return value ? put( *value ) : "unknown"; }

template < class T >
T number( const std::string & word ) {
   T value{};
   const auto [end, error] = std::from_chars( word.data(), word.data() + word.size(), value );
   if ( error != std::errc() || end != word.data() + word.size() )
      throw std::invalid_argument( "\"" + word + "\" is no such number" );
   return value;
}
template < class T >
requires std::is_arithmetic_v< T >
void get( const std::string & word, T & value ) { value = number< T >( word ); }
void get( const std::string & word, bool & value ) { value = number< int >( word ) != 0; }
void get( const std::string & word, StageClass & value ) {
   value = word == "exit" ? StageClass::exit : StageClass::enter;
}
void get( const std::string & word, std::optional< std::uint64_t > & value ) {
   value.reset();
   if ( word != "unknown" )
      value = number< std::uint64_t >( word );
}

/// Every field with its name.
template < class E, class Visit >
void fields( E & e, Visit visit ) {
   visit( "intf", e.intf );
   visit( "unit", e.unit );
   visit( "group", e.group );
   visit( "profile", e.profile );
   visit( "class", e.stageClass );
   visit( "number", e.number );
   visit( "other", e.other );
   visit( "value", e.value );
   visit( "in", e.in );
   visit( "out", e.out );
   visit( "kbps", e.thresholdKbps );
   visit( "interval", e.loadInterval );
   visit( "shutdown", e.shutdown );
   visit( "maxDelay", e.maxDelay );
   visit( "to", e.to );
}
template < class W, class Visit >
void worldFields( W & w, Visit visit ) {
   visit( "units", w.units );
   visit( "groups", w.groups );
   visit( "profiles", w.profiles );
   visit( "start", w.start );
   visit( "quantum", w.backlogQuantum );
   visit( "cost", w.itemCost );
}

/// The fields of `from` that differ from those of a fresh one.
template < class T, class Fields >
std::string differing( const T & from, Fields all ) {
   std::vector< std::string > plain;
   T fresh{};
   all( fresh, [&]( const char *, const auto & value ) { plain.push_back( put( value ) ); } );
   std::string result;
   std::size_t i = 0;
   all( from, [&]( const char * name, const auto & value ) {
      if ( put( value ) != plain[i++] )
         result += std::string( " " ) + name + "=" + put( value );
   } );
   return result;
}

template < class T, class Fields >
void read( std::istringstream & words, T & into, Fields all ) {
   std::string word;
   while ( words >> word ) {
      const auto equals = word.find( '=' );
      const std::string name = word.substr( 0, equals );
      bool known = false;
      all( into, [&]( const char * field, auto & value ) {
         if ( name != field || equals == std::string::npos )
            return;
         known = true;
         get( word.substr( equals + 1 ), value );
      } );
      if ( !known )
         throw std::invalid_argument( "no field \"" + word + "\"" );
   }
}

/// Interfaces as in "ethernet ethernet vlan:10".
constexpr const char * intfKinds[] = { "ethernet", "portChannel", "vlan", "subInterface" };

World::Interface interfaceFrom( const std::string & word ) {
   const auto colon = word.find( ':' );
   for ( std::size_t i = 0; i < std::size( intfKinds ); ++i )
      if ( word.substr( 0, colon ) == intfKinds[i] )
         return {
            static_cast< IntfKind >( i ),
            colon == std::string::npos ? 0 : number< int >( word.substr( colon + 1 ) ) };
   throw std::invalid_argument( "no kind of interface \"" + word + "\"" );
}

void readLine( const std::string & line, Story & story ) {
   std::istringstream words( line );
   std::string first;
   if ( !( words >> first ) || first[0] == '#' )
      return;
   if ( first == "world" ) {
      read( words, story.world, []( auto & w, auto visit ) { worldFields( w, visit ); } );
      return;
   }
   if ( first == "interfaces" ) {
      for ( std::string word; words >> word; )
         story.world.intfs.push_back( interfaceFrom( word ) );
      return;
   }
   for ( std::size_t i = 0; i < std::size( kinds ); ++i )
      if ( first == kinds[i] ) {
         Event event{ .kind = static_cast< EventKind >( i ) };
         read( words, event, []( auto & e, auto visit ) { fields( e, visit ); } );
         story.events.push_back( event );
         return;
      }
   throw std::invalid_argument( "no event \"" + first + "\"" );
}

} // namespace

std::string text( const Event & event ) {
   return kinds[static_cast< std::size_t >( event.kind )] +
          differing( event, []( auto & e, auto visit ) { fields( e, visit ); } );
}

std::string text( const Story & story ) {
   std::string result =
      "world" + differing( story.world, []( auto & w, auto visit ) { worldFields( w, visit ); } );
   result += "\ninterfaces";
   for ( const auto & intf : story.world.intfs )
      result += std::string( " " ) + intfKinds[static_cast< std::size_t >( intf.kind )] +
                ( intf.vlanId ? ":" + put( intf.vlanId ) : "" );
   for ( const Event & event : story.events )
      result += "\n" + text( event );
   return result + "\n";
}

Story storyFrom( const std::string & from ) {
   Story story;
   std::istringstream lines( from );
   for ( std::string line; std::getline( lines, line ); )
      try {
         readLine( line, story );
      } catch ( const std::invalid_argument & error ) {
         throw std::invalid_argument( "\"" + line + "\": " + error.what() );
      }
   return story;
}

} // namespace Tests
