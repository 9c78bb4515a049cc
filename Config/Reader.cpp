#include "Config/Reader.h"

#include "Config/InQuotes.h"

#include <strings.h>

namespace Config {

namespace {

const std::vector< std::string > topLevelKeys{
   "version",
   "switch",
   "listen",
   "settle",
   "stages",
   "enter",
   "exit",
   "profiles",
   "default-profile",
   "groups",
   "units",
   "redundancy-groups",
   "control-plane-floor",
   "hooks",
   "simulated" };

/// A name that cannot be turned into an address without asking somebody, for whom a switch would have to wait.
bool needsLookup( const std::string & host ) {
   return isHostName( host ) && strcasecmp( host.c_str(), "localhost" ) != 0;
}

} // namespace

void Reader::version( const Node & root, bool required ) {
   const Node * const node = Values::find( root, "version" );
   if ( !node ) {
      if ( required )
         values_.error( { root.place.file, 1, 1 }, "the configuration needs \"version\"; write version: 1" );
      return;
   }
   if ( !values_.isScalar( *node, "1" ) )
      return;
   if ( node->text != "1" )
      values_.error(
         node->place, "unknown version " + inQuotes( node->text ) + "; this program reads version 1" );
   else if ( !node->plain )
      values_.error( node->place, "\"version\" must be a number, without quotes" );
}

Configuration Reader::read( const Node & root, Place start ) {
   values_.isRecord( root, "the configuration", topLevelKeys );
   if ( const Node * const node = Values::find( root, "switch" ) )
      if ( values_.choice( *node, { "linux", "simulated" } ) == "simulated" )
         configuration_.switchKind = SwitchKind::simulated;
   if ( const Node * const node = Values::find( root, "listen" ) )
      listen( *node );
   if ( const Node * const node = Values::find( root, "settle" ) )
      configuration_.settle = values_.duration( *node ).value_or( configuration_.settle );
   if ( const Node * const node = Values::find( root, "stages" ) )
      stages( *node );
   const Node * const enter = Values::find( root, "enter" );
   const Node * const exit = Values::find( root, "exit" );
   if ( enter )
      enter_ = stageList( *enter, enter_ );
   if ( exit )
      exit_ = stageList( *exit, exit_ );
   if ( enter || exit )
      checkWayBack( enter_, exit_, exit ? exit->place : enter->place );
   configuration_.enter = enter_.list;
   configuration_.exit = exit_.list;

   const std::string what = "the configuration";
   if ( const Node * const node = values_.required( root, "profiles", start, what ) )
      profiles( *node );
   if ( const Node * const node = values_.required( root, "default-profile", start, what ) )
      configuration_.defaultProfile = profileReference( *node ).value_or( "" );
   if ( const Node * const node = Values::find( root, "groups" ) )
      groups( *node );
   if ( const Node * const node = Values::find( root, "units" ) )
      units( *node );
   if ( const Node * const node = Values::find( root, "redundancy-groups" ) )
      redundancyGroups( *node );
   if ( const Node * const node = Values::find( root, "control-plane-floor" ) )
      configuration_.controlPlaneFloor = values_.rate( *node ).value_or( configuration_.controlPlaneFloor );
   if ( const Node * const node = Values::find( root, "hooks" ) )
      hooks( *node );
   if ( const Node * const node = Values::find( root, "simulated" ) )
      simulated( *node );
   return std::move( configuration_ );
}

void Reader::listen( const Node & node ) {
   if ( !values_.isRecord( node, "\"listen\"", { "web", "names" } ) )
      return;
   if ( const Node * const names = Values::find( node, "names" );
        names && values_.isList( *names, "a list of host names" ) ) {
      std::map< std::string, Place > seen;
      for ( const Node & item : names->children ) {
         if ( !values_.isScalar( item, "a host name" ) )
            continue;
         if ( !isHostName( item.text ) )
            values_.error(
               item.place, inQuotes( item.text ) + " is no host name; example: leaf1.example.net" );
         else if ( values_.isNew( seen, item.text, item.place ) )
            configuration_.webNames.insert( item.text );
      }
   }
   const Node * const web = Values::find( node, "web" );
   if ( !web || !values_.isScalar( *web, "an address" ) || web->text.empty() )
      return;
   Parsed< Endpoint > endpoint = Endpoint::parse( web->text );
   if ( !endpoint )
      values_.error( web->place, std::move( endpoint.error ) );
   else if ( needsLookup( endpoint.value->host ) )
      diagnostics_.laterError(
         web->place,
         inQuotes( endpoint.value->host ) +
            " is a name, and nobody is asked for its address; write the address to listen on, and "
            "the name into \"names\"" );
   configuration_.web = std::move( endpoint.value );
}

void Reader::profiles( const Node & node ) {
   if ( !values_.isMap( node, "a map of profiles" ) )
      return;
   for ( const Node & child : node.children ) {
      values_.isValidName( child );
      profile( child, configuration_.profiles[child.key] );
   }
   profilesKnown_ = !node.children.empty();
   if ( !profilesKnown_ && diagnostics_.complete() )
      values_.error( node.place, "\"profiles\" needs at least one profile" );
}

std::optional< std::string > Reader::profileReference( const Node & node ) {
   return values_.reference( node, "profile", configuration_.profiles, profilesKnown_ );
}

void Reader::profile( const Node & node, Profile & profile ) {
   if ( !values_.isRecord(
           node, "a profile", { "threshold", "load-interval", "shutdown", "shutdown-max-delay" } ) )
      return;
   const std::string what = "profile " + inQuotes( node.key );
   if ( const Node * const threshold = values_.required( node, "threshold", node.keyPlace, what ) ) {
      const std::optional< Rate > rate = values_.rate( *threshold );
      if ( rate == Rate() )
         values_.error(
            threshold->place, inQuotes( threshold->text ) + " is out of range; a threshold is above 0" );
      profile.threshold = rate.value_or( Rate() );
   }
   if ( const Node * const interval = values_.required( node, "load-interval", node.keyPlace, what ) )
      profile.loadInterval = values_.duration( *interval ).value_or( Duration() );
   if ( const Node * const shutdown = Values::find( node, "shutdown" ) )
      profile.shutdown = values_.boolean( *shutdown ).value_or( false );
   if ( const Node * const delay = Values::find( node, "shutdown-max-delay" ) )
      profile.shutdownMaxDelay = values_.duration( *delay );
}

void Reader::groups( const Node & node ) {
   groupsKnown_ = values_.isMap( node, "a map of groups" );
   if ( !groupsKnown_ )
      return;
   for ( const Node & child : node.children ) {
      values_.isValidName( child );
      group( child, configuration_.groups[child.key] );
   }
}

void Reader::group( const Node & node, Group & group ) {
   if ( !values_.isRecord( node, "a group", { "interfaces", "vlans", "profile" } ) )
      return;
   if ( const Node * const list = Values::find( node, "interfaces" ) )
      group.interfaces = interfaces( *list );
   if ( const Node * const list = Values::find( node, "vlans" ) )
      group.vlans = vlans( *list );
   if ( const Node * const name = Values::find( node, "profile" ) )
      group.profile = profileReference( *name );
}

std::set< std::string > Reader::interfaces( const Node & node ) {
   std::set< std::string > result;
   if ( !values_.isList( node, "a list of interface names" ) )
      return result;
   std::map< std::string, Place > seen;
   for ( const Node & item : node.children )
      if (
         values_.isScalar( item, "an interface name" ) && values_.isInterfaceName( item.text, item.place ) &&
         values_.isNew( seen, item.text, item.place ) )
         result.insert( item.text );
   return result;
}

VlanSet Reader::vlans( const Node & node ) {
   VlanSet result;
   if ( !values_.isList( node, "a list of VLAN ids and ranges" ) )
      return result;
   std::map< VlanRange, Place > seen;
   for ( const Node & item : node.children ) {
      if ( !values_.isScalar( item, "a VLAN id or range" ) )
         continue;
      Parsed< VlanRange > range = VlanRange::parse( item.text );
      if ( !range ) {
         values_.error( item.place, std::move( range.error ) );
         continue;
      }
      // What was added so far does not overlap, so its order by begin is also the one by end: the neighbours decide.
      auto at = seen.upper_bound( { range.value->last, maxVlanId } );
      if ( at != seen.begin() && std::prev( at )->first.overlaps( *range.value ) ) {
         at = std::prev( at );
         values_.error(
            item.place, "VLAN " + inQuotes( item.text ) + " overlaps " + inQuotes( at->first.text() ) +
                           " at " + diagnostics_.text( at->second ) );
         continue;
      }
      seen.emplace( *range.value, item.place );
      result.add( *range.value );
   }
   return result;
}

void Reader::units( const Node & node ) {
   unitsKnown_ = values_.isMap( node, "a map of units" );
   if ( !unitsKnown_ )
      return;
   for ( const Node & child : node.children ) {
      values_.isValidName( child );
      unit( child, configuration_.units[child.key] );
   }
}

void Reader::unit( const Node & node, Unit & unit ) {
   unit.enter = configuration_.enter;
   unit.exit = configuration_.exit;
   if ( !values_.isRecord( node, "a unit", { "groups", "enter", "exit" } ) )
      return;
   const Node * const enter = Values::find( node, "enter" );
   const Node * const exit = Values::find( node, "exit" );
   const ReadStages enters = enter ? stageList( *enter, enter_ ) : enter_;
   const ReadStages exits = exit ? stageList( *exit, exit_ ) : exit_;
   unit.enter = enters.list;
   unit.exit = exits.list;
   if ( enter || exit )
      checkWayBack( enters, exits, exit ? exit->place : node.keyPlace );
   const Node * const list = Values::find( node, "groups" );
   if ( !list || !values_.isList( *list, "a list of groups" ) )
      return;
   std::map< std::string, Place > seen;
   for ( const Node & item : list->children ) {
      const std::optional< std::string > name =
         values_.reference( item, "group", configuration_.groups, groupsKnown_ );
      if ( name && values_.isNew( seen, *name, item.place ) )
         unit.groups.insert( *name );
   }
}

} // namespace Config
