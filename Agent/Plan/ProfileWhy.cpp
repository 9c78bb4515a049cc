#include "Agent/Plan/ProfileWhy.h"

#include "Agent/Plan/Judgement.h"
#include "Config/Membership.h"

#include <algorithm>

namespace Agent {

namespace {

/// The groups by which an interface has a profile.
struct Source {
   std::vector< std::string > naming, without; ///< that name it, and that take the default

   std::string text() const;
};

/// "group a", "groups a and b"
std::string groupsText( const std::vector< std::string > & groups ) {
   return ( groups.size() == 1 ? "group " : "groups " ) + planList( groups );
}

std::string Source::text() const {
   if ( without.empty() )
      return groupsText( naming );
   const std::string byDefault = "the default of " + groupsText( without );
   return naming.empty() ? byDefault : groupsText( naming ) + ", and " + byDefault;
}

/// By what the winner is stricter than all others.
std::string ruleText(
   const Config::Configuration & configuration, const std::string & winner,
   const std::map< std::string, Source > & sources ) {
   const Config::Profile & strictest = configuration.profiles.at( winner );
   const auto all = [&]( const auto & holds ) {
      return std::all_of( sources.begin(), sources.end(), [&]( const auto & source ) {
         return source.first == winner || holds( configuration.profiles.at( source.first ), source.second );
      } );
   };
   if ( all( [&]( const auto & other, const Source & ) { return strictest.threshold < other.threshold; } ) )
      return "lowest threshold";
   if ( all( [&]( const auto & other, const Source & ) {
           return strictest.threshold < other.threshold || other.loadInterval < strictest.loadInterval;
        } ) )
      return "longest load interval";
   if ( !sources.at( winner ).naming.empty() && all( [&]( const auto & other, const Source & source ) {
           return strictest.threshold < other.threshold || other.loadInterval < strictest.loadInterval ||
                  source.naming.empty();
        } ) )
      return "named, and not the default";
   return "first by name";
}

} // namespace

std::string
profileWhy( const Config::Configuration & configuration, const std::set< std::string > & groups ) {
   const auto applied = Config::strictestProfile( configuration, groups );
   if ( !applied )
      return "";
   std::map< std::string, Source > sources;
   for ( const std::string & name : groups ) {
      const auto group = configuration.groups.find( name );
      if ( group == configuration.groups.end() )
         continue;
      const auto & named = group->second.profile;
      Source & source = sources[named.value_or( configuration.defaultProfile )];
      ( named ? source.naming : source.without ).push_back( name );
   }
   const Source & winner = sources.at( applied->name );
   if ( sources.size() > 1 ) {
      // The one in force first, so that it is not among those that are left out.
      std::vector< std::string > all = { applied->name + " (" + winner.text() + ")" };
      for ( const auto & [profile, source] : sources )
         if ( profile != applied->name )
            all.push_back( profile + " (" + source.text() + ")" );
      return "the strictest of " + planList( all ) + ": " + ruleText( configuration, applied->name, sources );
   }
   if ( !winner.naming.empty() )
      return "named by " + winner.text();
   return "the default, as " + groupsText( winner.without ) +
          ( winner.without.size() == 1 ? " names none" : " name none" );
}

} // namespace Agent
