#include "Config/Membership.h"

#include <tuple>

namespace Config {

namespace {

/// Whether profile a applies before profile b.
bool isStricter( const Configuration & configuration, const AppliedProfile & a, const AppliedProfile & b ) {
   const Profile & profileA = configuration.profiles.at( a.name );
   const Profile & profileB = configuration.profiles.at( b.name );
   return std::tie( profileA.threshold, profileB.loadInterval, a.usesDefault, a.name ) <
          std::tie( profileB.threshold, profileA.loadInterval, b.usesDefault, b.name );
}

} // namespace

std::string Member::text() const { return vlan == 0 ? name : "vlan " + std::to_string( vlan ); }

std::vector< Member > members( const Group & group ) {
   std::vector< Member > result;
   for ( const std::string & name : group.interfaces )
      result.push_back( { 0, name } );
   for ( const VlanId vlan : group.vlans.ids() )
      result.push_back( { vlan, {} } );
   return result;
}

std::map< Member, std::set< std::string > > groupsByMember( const Configuration & configuration ) {
   std::map< Member, std::set< std::string > > result;
   for ( const auto & [name, group] : configuration.groups )
      for ( const Member & member : members( group ) )
         result[member].insert( name );
   return result;
}

std::optional< AppliedProfile >
strictestProfile( const Configuration & configuration, const std::set< std::string > & groups ) {
   std::optional< AppliedProfile > strictest;
   for ( const std::string & name : groups ) {
      const auto group = configuration.groups.find( name );
      if ( group == configuration.groups.end() )
         continue;
      const std::optional< std::string > & named = group->second.profile;
      AppliedProfile candidate{ named.value_or( configuration.defaultProfile ), !named.has_value() };
      if ( !strictest || isStricter( configuration, candidate, *strictest ) )
         strictest = std::move( candidate );
   }
   return strictest;
}

} // namespace Config
