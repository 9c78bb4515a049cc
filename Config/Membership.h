#pragma once

#include "Config/Configuration.h"

#include <compare>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Config {

/// What a group has as members: an interface by its kernel name, or the VLAN interface of an id, whose kernel name the
/// configuration does not know. Interfaces sort before VLANs, by name and by id.
struct Member {
   VlanId vlan = 0;  ///< 0: an interface
   std::string name; ///< empty: a VLAN

   std::string text() const; ///< `et1` or `vlan 10`
   friend auto operator<=>( const Member &, const Member & ) = default;
};

/// The members of a group, sorted.
std::vector< Member > members( const Group & group );

/// The names of the groups of every member of any group.
std::map< Member, std::set< std::string > > groupsByMember( const Configuration & configuration );

/// The profile that applies to an interface.
struct AppliedProfile {
   std::string name;
   bool usesDefault = false; ///< it follows the default profile when that changes

   friend bool operator==( const AppliedProfile &, const AppliedProfile & ) = default;
};

/// The strictest of the profiles of some groups: the one with the lowest threshold, then the longest load interval,
/// then one that a group names before the default, then the first by name. Nothing if there is no group.
/// \param configuration  an accepted one
/// \param groups         names of its groups; others are ignored
std::optional< AppliedProfile >
strictestProfile( const Configuration & configuration, const std::set< std::string > & groups );

} // namespace Config
