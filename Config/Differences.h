#pragma once

#include "Config/Configuration.h"

#include <set>
#include <string>
#include <vector>

namespace Config {

/// How a group that is in both configurations has changed.
struct GroupDifference {
   std::string name;
   std::set< std::string > interfacesAdded;
   std::set< std::string > interfacesRemoved;
   VlanSet vlansAdded;
   VlanSet vlansRemoved;
   bool profile = false; ///< another one, or the default instead of one, or the reverse

   friend bool operator==( const GroupDifference &, const GroupDifference & ) = default;
};

/// How a unit that is in both configurations has changed.
struct UnitDifference {
   std::string name;
   std::set< std::string > groupsAdded;
   std::set< std::string > groupsRemoved;
   bool enter = false; ///< its list in effect, be it for a change of its own or of the general one
   bool exit = false;

   friend bool operator==( const UnitDifference &, const UnitDifference & ) = default;
};

/// What has to be done to get from one configuration to another. All lists are in name order. What is renamed is
/// removed under the one name and added under the other. A flag says that something is not as before.
struct Differences {
   bool switchKind = false;
   bool listen = false;
   bool webNames = false;
   bool simulated = false;
   bool settle = false;
   std::vector< std::string > stagesEdited;
   std::vector< std::string > stagesAdded;
   bool enter = false; ///< the general list
   bool exit = false;
   std::vector< std::string > profilesEdited;
   std::vector< std::string > profilesAdded;
   bool defaultProfile = false; ///< another one by name
   std::vector< std::string > groupsAdded;
   std::vector< GroupDifference > groupsEdited;
   std::vector< std::string > unitsAdded;
   std::vector< UnitDifference > unitsEdited;
   bool redundancyGroups = false;
   bool controlPlaneFloor = false;
   bool hooks = false;
   std::vector< std::string > unitsRemoved;
   std::vector< std::string > groupsRemoved;
   std::vector< std::string > profilesRemoved;
   std::vector< std::string > stagesRemoved;

   /// Exactly if the configurations are equal.
   bool empty() const { return *this == Differences(); }
   friend bool operator==( const Differences &, const Differences & ) = default;
};

Differences differences( const Configuration & from, const Configuration & to );

/// One line for each difference, for people, in the order of the members above: `profile "fast" edited: threshold
/// 100kbps -> 200kbps`.
std::vector< std::string > describe( const Configuration & from, const Configuration & to );

} // namespace Config
