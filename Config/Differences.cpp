#include "Config/Differences.h"

#include "Config/InQuotes.h"

#include <algorithm>
#include <iterator>

namespace Config {

namespace {

using Names = std::set< std::string >;

Names without( const Names & names, const Names & others ) {
   Names result;
   std::set_difference(
      names.begin(), names.end(), others.begin(), others.end(), std::inserter( result, result.end() ) );
   return result;
}

template < typename Map >
std::vector< std::string > keysWithout( const Map & map, const Map & other ) {
   std::vector< std::string > result;
   for ( const auto & entry : map )
      if ( !other.count( entry.first ) )
         result.push_back( entry.first );
   return result;
}

/// Calls changed( name, from, to ) for what is in both maps and not equal.
template < typename Map, typename Changed >
void forEachChanged( const Map & from, const Map & to, const Changed & changed ) {
   for ( const auto & [name, value] : from ) {
      const auto other = to.find( name );
      if ( other != to.end() && !( value == other->second ) )
         changed( name, value, other->second );
   }
}

GroupDifference difference( const std::string & name, const Group & from, const Group & to ) {
   return {
      name,
      without( to.interfaces, from.interfaces ),
      without( from.interfaces, to.interfaces ),
      to.vlans.without( from.vlans ),
      from.vlans.without( to.vlans ),
      from.profile != to.profile };
}

UnitDifference difference( const std::string & name, const Unit & from, const Unit & to ) {
   return {
      name, without( to.groups, from.groups ), without( from.groups, to.groups ), from.enter != to.enter,
      from.exit != to.exit };
}

/// The parts of one line.
class Line {
 public:
   explicit Line( std::string begin ) : text_( std::move( begin ) ) {}

   void change( const std::string & what, const std::string & from, const std::string & to ) {
      if ( from != to )
         part( what + " " + from + " -> " + to );
   }
   template < typename List >
   void list( const char * verb, const char * what, const List & names ) {
      std::string joined;
      for ( const std::string & name : names )
         joined.append( joined.empty() ? "" : ", " ).append( name );
      list( verb, what, joined );
   }
   void list( const char * verb, const char * what, const std::string & names ) {
      if ( !names.empty() )
         part( std::string( what ) + " " + verb + " " + names );
   }
   void note( const std::string & text ) { part( text ); }
   const std::string & text() const { return text_; }

 private:
   void part( const std::string & text ) {
      text_.append( empty_ ? ": " : "; " ).append( text );
      empty_ = false;
   }
   std::string text_;
   bool empty_ = true;
};

std::string text( bool value ) { return value ? "true" : "false"; }
std::string text( const std::optional< Duration > & value ) { return value ? value->text() : "never"; }
std::string text( const std::optional< std::string > & value ) {
   return value ? inQuotes( *value ) : "the default";
}
std::string text( const std::optional< Endpoint > & value ) { return value ? value->text() : "off"; }
std::string text( const StageList & stages ) {
   std::string result = "[";
   for ( const std::string & stage : stages )
      result.append( result.size() == 1 ? "" : ", " ).append( stage );
   return result.append( 1, ']' );
}

std::string text( const std::set< std::string > & names ) {
   return text( StageList( names.begin(), names.end() ) );
}

std::string describe( const std::string & name, const Profile & from, const Profile & to ) {
   Line line( "profile " + inQuotes( name ) + " edited" );
   line.change( "threshold", from.threshold.text(), to.threshold.text() );
   line.change( "load-interval", from.loadInterval.text(), to.loadInterval.text() );
   line.change( "shutdown", text( from.shutdown ), text( to.shutdown ) );
   line.change( "shutdown-max-delay", text( from.shutdownMaxDelay ), text( to.shutdownMaxDelay ) );
   return line.text();
}

std::string text( const Command & command ) { return command.empty() ? "nothing" : command.text(); }

std::string describe( const std::string & name, const CommandStage & from, const CommandStage & to ) {
   Line line( "stage " + inQuotes( name ) + " edited" );
   line.change( "enter", text( from.enter ), text( to.enter ) );
   line.change( "exit", text( from.exit ), text( to.exit ) );
   line.change( "timeout", from.timeout.text(), to.timeout.text() );
   line.change( "on-failure", text( from.onFailure ), text( to.onFailure ) );
   line.change( "steers", text( from.steers ), text( to.steers ) );
   return line.text();
}

std::string describe( const std::string & name, const Group & from, const Group & to ) {
   const GroupDifference change = difference( name, from, to );
   Line line( "group " + inQuotes( name ) + " edited" );
   line.change( "profile", text( from.profile ), text( to.profile ) );
   line.list( "added", "interfaces", change.interfacesAdded );
   line.list( "removed", "interfaces", change.interfacesRemoved );
   line.list( "added", "vlans", change.vlansAdded.text() );
   line.list( "removed", "vlans", change.vlansRemoved.text() );
   return line.text();
}

std::string describe( const std::string & name, const Unit & from, const Unit & to ) {
   const UnitDifference change = difference( name, from, to );
   Line line( "unit " + inQuotes( name ) + " edited" );
   line.list( "added", "groups", change.groupsAdded );
   line.list( "removed", "groups", change.groupsRemoved );
   line.change( "enter", text( from.enter ), text( to.enter ) );
   line.change( "exit", text( from.exit ), text( to.exit ) );
   return line.text();
}

} // namespace

namespace {

std::string describe( const std::string & name, const RedundancyGroup & from, const RedundancyGroup & to ) {
   Line line( "redundancy group " + inQuotes( name ) + " edited" );
   line.list( "added", "units", without( to.units, from.units ) );
   line.list( "removed", "units", without( from.units, to.units ) );
   line.change( "max-out", std::to_string( from.maxOut ), std::to_string( to.maxOut ) );
   return line.text();
}

std::string describe( const std::string & name, const Hook & from, const Hook & to ) {
   const auto moments = []( const Hook & hook ) {
      std::vector< std::string > names;
      for ( const Moment moment : hook.at )
         names.push_back( text( moment ) );
      return text( names );
   };
   const auto units = []( const Hook & hook ) {
      return hook.units.empty() ? "all" : text( StageList( hook.units.begin(), hook.units.end() ) );
   };
   Line line( "hook " + inQuotes( name ) + " edited" );
   line.change( "at", moments( from ), moments( to ) );
   line.change( "units", units( from ), units( to ) );
   line.change( "command", text( from.command ), text( to.command ) );
   // Whoever reads this need not know what it is: it may hold a password.
   if ( from.url != to.url )
      line.note( "another url" );
   line.change( "time-limit", from.timeLimit.text(), to.timeLimit.text() );
   return line.text();
}

} // namespace

Differences differences( const Configuration & from, const Configuration & to ) {
   Differences result;
   result.switchKind = from.switchKind != to.switchKind;
   result.listen = from.web != to.web;
   result.webNames = from.webNames != to.webNames;
   result.simulated = !( from.simulated == to.simulated );
   result.settle = from.settle != to.settle;
   forEachChanged(
      from.stages, to.stages, [&]( const std::string & name, const CommandStage &, const CommandStage & ) {
         result.stagesEdited.push_back( name );
      } );
   result.stagesAdded = keysWithout( to.stages, from.stages );
   result.enter = from.enter != to.enter;
   result.exit = from.exit != to.exit;
   forEachChanged(
      from.profiles, to.profiles, [&]( const std::string & name, const Profile &, const Profile & ) {
         result.profilesEdited.push_back( name );
      } );
   result.profilesAdded = keysWithout( to.profiles, from.profiles );
   result.defaultProfile = from.defaultProfile != to.defaultProfile;
   result.groupsAdded = keysWithout( to.groups, from.groups );
   forEachChanged( from.groups, to.groups, [&]( const std::string & name, const Group & a, const Group & b ) {
      result.groupsEdited.push_back( difference( name, a, b ) );
   } );
   result.unitsAdded = keysWithout( to.units, from.units );
   forEachChanged( from.units, to.units, [&]( const std::string & name, const Unit & a, const Unit & b ) {
      result.unitsEdited.push_back( difference( name, a, b ) );
   } );
   result.redundancyGroups = from.redundancyGroups != to.redundancyGroups;
   result.controlPlaneFloor = from.controlPlaneFloor != to.controlPlaneFloor;
   result.hooks = from.hooks != to.hooks;
   result.unitsRemoved = keysWithout( from.units, to.units );
   result.groupsRemoved = keysWithout( from.groups, to.groups );
   result.profilesRemoved = keysWithout( from.profiles, to.profiles );
   result.stagesRemoved = keysWithout( from.stages, to.stages );
   return result;
}

std::vector< std::string > describe( const Configuration & from, const Configuration & to ) {
   std::vector< std::string > lines;
   const auto changed = [&]( const char * what, const std::string & a, const std::string & b ) {
      if ( a != b )
         lines.push_back( std::string( what ) + ": " + a + " -> " + b );
   };
   const auto named = [&]( const char * what, const std::vector< std::string > & names, const char * verb ) {
      for ( const std::string & name : names )
         lines.push_back( std::string( what ) + " " + inQuotes( name ) + " " + verb );
   };
   const auto edited = [&]( const std::string & name, const auto & a, const auto & b ) {
      lines.push_back( describe( name, a, b ) );
   };
   const Differences change = differences( from, to );
   changed( "switch", text( from.switchKind ), text( to.switchKind ) );
   changed( "listen web", text( from.web ), text( to.web ) );
   changed( "listen names", text( from.webNames ), text( to.webNames ) );
   if ( change.simulated )
      lines.push_back( "simulated switch edited" );
   changed( "settle", from.settle.text(), to.settle.text() );
   forEachChanged( from.stages, to.stages, edited );
   named( "stage", change.stagesAdded, "added" );
   changed( "enter", text( from.enter ), text( to.enter ) );
   changed( "exit", text( from.exit ), text( to.exit ) );
   forEachChanged( from.profiles, to.profiles, edited );
   named( "profile", change.profilesAdded, "added" );
   changed( "default-profile", inQuotes( from.defaultProfile ), inQuotes( to.defaultProfile ) );
   named( "group", change.groupsAdded, "added" );
   forEachChanged( from.groups, to.groups, edited );
   named( "unit", change.unitsAdded, "added" );
   forEachChanged( from.units, to.units, edited );
   forEachChanged( from.redundancyGroups, to.redundancyGroups, edited );
   named( "redundancy group", keysWithout( to.redundancyGroups, from.redundancyGroups ), "added" );
   named( "redundancy group", keysWithout( from.redundancyGroups, to.redundancyGroups ), "removed" );
   changed( "control-plane-floor", from.controlPlaneFloor.text(), to.controlPlaneFloor.text() );
   named( "hook", keysWithout( to.hooks, from.hooks ), "added" );
   forEachChanged( from.hooks, to.hooks, edited );
   named( "hook", keysWithout( from.hooks, to.hooks ), "removed" );
   named( "unit", change.unitsRemoved, "removed" );
   named( "group", change.groupsRemoved, "removed" );
   named( "profile", change.profilesRemoved, "removed" );
   named( "stage", change.stagesRemoved, "removed" );
   return lines;
}

} // namespace Config
