#include "Config/Hints.h"

#include "Config/InQuotes.h"
#include "Config/Membership.h"
#include "Config/Values.h"

#include <algorithm>

namespace Config {

namespace {

/// What is defined under a key, of an accepted configuration.
const std::vector< Node > & definitions( const Node & root, std::string_view key ) {
   static const std::vector< Node > none;
   const Node * const node = Values::find( root, key );
   return node ? node->children : none;
}

bool hasMembers( const Configuration & configuration, const Unit & unit ) {
   return std::any_of( unit.groups.begin(), unit.groups.end(), [&]( const std::string & name ) {
      return !members( configuration.groups.at( name ) ).empty();
   } );
}

void hintAtProfiles( const Configuration & configuration, const Node & root, Diagnostics & diagnostics ) {
   for ( const Node & node : definitions( root, "profiles" ) ) {
      const Profile & profile = configuration.profiles.at( node.key );
      if ( const Node * const delay = Values::find( node, "shutdown-max-delay" ); delay && !profile.shutdown )
         diagnostics.warning( delay->keyPlace, "\"shutdown-max-delay\" does nothing without shutdown: true" );
      const bool isUsed =
         node.key == configuration.defaultProfile ||
         std::any_of( configuration.groups.begin(), configuration.groups.end(), [&]( const auto & group ) {
            return group.second.profile == node.key;
         } );
      if ( !isUsed )
         diagnostics.warning(
            node.keyPlace, "profile " + inQuotes( node.key ) + " is not used: no group names it" );
   }
}

void hintAtStages( const Configuration & configuration, const Node & root, Diagnostics & diagnostics ) {
   std::set< std::string > used;
   const auto use = [&]( const StageList & list ) { used.insert( list.begin(), list.end() ); };
   use( configuration.enter );
   use( configuration.exit );
   for ( const auto & [name, unit] : configuration.units ) {
      use( unit.enter );
      use( unit.exit );
   }
   for ( const Node & node : definitions( root, "stages" ) )
      if ( !used.count( node.key ) )
         diagnostics.warning(
            node.keyPlace,
            "stage " + inQuotes( node.key ) + " is not used: it is in no \"enter\" and in no \"exit\"" );
}

void hintAtUnits( const Configuration & configuration, const Node & root, Diagnostics & diagnostics ) {
   for ( const Node & node : definitions( root, "units" ) )
      if ( !hasMembers( configuration, configuration.units.at( node.key ) ) )
         diagnostics.warning(
            node.keyPlace, "unit " + inQuotes( node.key ) +
                              " has no interfaces: nothing is watched when it is put into maintenance" );
}

void hintAtRedundancy( const Configuration & configuration, const Node & root, Diagnostics & diagnostics ) {
   for ( const Node & node : definitions( root, "redundancy-groups" ) ) {
      const RedundancyGroup & group = configuration.redundancyGroups.at( node.key );
      const std::string what = "redundancy group " + inQuotes( node.key );
      if ( group.units.size() < 2 )
         diagnostics.warning(
            node.keyPlace,
            what + " guards nothing: it has " +
               ( group.units.empty() ? "no unit" : "one unit, and no other that stands in for it" ) );
      else if ( group.maxOut >= group.units.size() )
         diagnostics.warning(
            Values::find( node, "max-out" )->place,
            what + " lets all of its " + std::to_string( group.units.size() ) +
               " units be out at a time; \"max-out\" is less than their number" );
   }
}

void hintAtHooks( const Configuration & configuration, const Node & root, Diagnostics & diagnostics ) {
   const bool isAnyShut =
      std::any_of( configuration.profiles.begin(), configuration.profiles.end(), []( const auto & profile ) {
         return profile.second.shutdown;
      } );
   for ( const Node & node : definitions( root, "hooks" ) ) {
      const Hook & hook = configuration.hooks.at( node.key );
      const bool hasInterfaces =
         hook.units.empty() ||
         std::any_of( hook.units.begin(), hook.units.end(), [&]( const std::string & unit ) {
            return hasMembers( configuration, configuration.units.at( unit ) );
         } );
      for ( const Node & moment : Values::find( node, "at" )->children ) {
         const bool isShut = moment.text == text( Moment::shut );
         const bool isOfInterface =
            isShut || moment.text == text( Moment::drained ) || moment.text == text( Moment::spike );
         const std::string what = "the moment " + inQuotes( moment.text ) + " never comes: ";
         if ( isOfInterface && !hasInterfaces )
            diagnostics.warning( moment.place, what + "the units of the hook have no interfaces" );
         else if ( isShut && !isAnyShut )
            diagnostics.warning( moment.place, what + "no profile has shutdown: true" );
      }
   }
}

} // namespace

void hint( const Configuration & configuration, const Node & root, Diagnostics & diagnostics ) {
   hintAtProfiles( configuration, root, diagnostics );
   hintAtStages( configuration, root, diagnostics );
   hintAtUnits( configuration, root, diagnostics );
   hintAtRedundancy( configuration, root, diagnostics );
   hintAtHooks( configuration, root, diagnostics );
}

} // namespace Config
