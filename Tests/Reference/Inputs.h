#pragma once

#include "Tests/Reference/EventLog.h"
#include "Tests/Reference/Order.h"

#include <memory>

/// Purpose: what has been written into the world around the plug-in, as far as the plug-in looks at it.
namespace Reference {

/// One profile. Another one of the same name, made after this one has gone, is another profile; this one keeps its
/// last values for those who still hold it.
struct ProfileObject {
   Profile name = none;
   double thresholdKbps = 0;
   std::uint32_t loadInterval = 0;
   bool shutdown = false;
   double maxDelay = 0;
};
using ProfilePointer = std::shared_ptr< ProfileObject >;

struct Octets {
   std::uint64_t in = 0;
   std::optional< std::uint64_t > out = 0;
};

/// The groups and the selection of one interface.
struct Entry {
   Sequence< Group > groups;
   int cause = 0;
   std::optional< Profile > selected;
};

struct UnitInput {
   int state = 0;
   int generation = 0;
   std::array< int, 2 > instance{ none, none }; ///< by stage class
};

/// A unit and a generation.
using Instance = std::pair< Unit, int >;

struct Progress {
   int stage = 0; ///< 1: ours
   std::uint32_t status = 0;
};

struct StageInputs {
   std::map< Instance, Progress > progress;
   std::set< Instance > completionStatus;
};

struct Inputs {
   std::map< Intf, bool > links; ///< whether it is up
   std::map< Intf, Octets > octets;
   Table< Intf, Intf > lagOfPort;
   std::map< int, Sequence< Intf > > vlans;
   std::map< Intf, Entry > entries;
   std::map< Group, Sequence< Intf > > groups;
   std::map< Group, Sequence< Unit > > unitsOfGroup; ///< none of them empty
   std::map< Unit, Sequence< Group > > groupsOfUnit;
   std::map< Profile, ProfilePointer > profiles;
   Profile defaultName = none;
   Table< Unit, UnitInput > units;
   std::array< StageInputs, 2 > stages; ///< by stage class

   StageInputs & stage( StageClass stageClass ) { return stages[static_cast< std::size_t >( stageClass )]; }
   bool isUp( Intf intf ) const {
      const bool * const up = find( links, intf );
      return up && *up;
   }
   /// Whether one of its groups is mapped to the unit.
   bool isMember( Intf intf, Unit unit ) const {
      const Entry * const entry = find( entries, intf );
      return entry && std::any_of( entry->groups.begin(), entry->groups.end(), [&]( Group group ) {
                const Sequence< Unit > * const units = find( unitsOfGroup, group );
                return units && units->has( unit );
             } );
   }
};

} // namespace Reference
