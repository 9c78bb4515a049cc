#pragma once

#include "Platform/Vel/Declare.h"

/// Purpose: maintenance groups and their mapping to maintenance units.
/// Written by the agent from the configuration.
namespace Maintenance {

/// Ordinals are part of the stored form.
enum class GroupType : Vel::U32 { none = 0, interfaceGroup = 1 };
/// "none", "interfaceGroup"; any other value as "GroupType(9)".
Vel::String stringValue( GroupType type );

struct GroupKey {
   GroupType type = GroupType::none;
   Vel::String name;

   friend bool operator==( const GroupKey &, const GroupKey & ) = default;
   friend auto operator<=>( const GroupKey &, const GroupKey & ) = default;
};
/// The name alone.
inline Vel::String stringValue( const GroupKey & key ) { return key.name; }

} // namespace Maintenance

template <>
struct std::hash< Maintenance::GroupKey > {
   std::size_t operator()( const Maintenance::GroupKey & key ) const {
      return std::hash< Vel::String >()( key.name ) + static_cast< Vel::U32 >( key.type );
   }
};

template <>
struct Vel::Codec< Maintenance::GroupKey > {
   static constexpr bool stored = true;
   static void write( ByteWriter & w, const Maintenance::GroupKey & key );
   static void read( ByteReader & r, Maintenance::GroupKey & key );
};

namespace Maintenance {

class GroupToUnitDir;

/// The units that one group is mapped to. Written by GroupToUnitDir only.
class GroupToUnit final : public Vel::Entity {
   VEL_ENTITY( GroupToUnit );
   explicit GroupToUnit( const GroupKey & groupKey ) : groupKey_( groupKey ) {}

   VEL_PARAM( GroupKey, groupKey );
   VEL_STATE_SET( Vel::String, unitName, onUnitName );

 private:
   friend class GroupToUnitDir;
};

/// The groups that are mapped to one unit. Written by GroupToUnitDir only.
class UnitToGroup final : public Vel::Entity {
   VEL_ENTITY( UnitToGroup );
   explicit UnitToGroup( const Vel::String & unitName ) : unitName_( unitName ) {}

   VEL_PARAM( Vel::String, unitName );
   VEL_STATE_SET( GroupKey, groupKey, onGroupKey );

 private:
   friend class GroupToUnitDir;
};

/// The mapping of groups to units, in both directions.
///
/// Invariants:
/// 1. Unit U is in the set of group G exactly when G is in the set of U.
/// 2. Of the two sides the unit's is written first: a reactor to GroupToUnit sees both sides equal, a reactor
///    to UnitToGroup sees the group's side a step behind.
/// 3. A GroupToUnit appears empty and leaves empty: its names come and go one by one, each with its
///    notification, while it is in the directory. One without names may stay.
/// 4. A UnitToGroup is there exactly while groups are mapped to the unit, apart from the moments in which it
///    is made and removed.
class GroupToUnitDir final : public Vel::Entity {
   VEL_ENTITY( GroupToUnitDir );
   VEL_OWNED( GroupKey, GroupToUnit, groupToUnit, onGroupToUnit );
   VEL_OWNED( Vel::String, UnitToGroup, unitToGroup, onUnitToGroup );

   /// The entry of the group that is there, or a new one without names.
   GroupToUnit * groupToUnitIs( const GroupKey & groupKey );
   /// Unmaps the group from its units one by one, then removes its entry. False if there was none.
   bool groupToUnitDel( const GroupKey & groupKey );
   /// Maps the group to the unit. Makes the group's entry first if there is none.
   void mappingIs( const GroupKey & groupKey, const Vel::String & unitName );
   /// Unmaps the group from the unit; the group's entry stays. False if it was not mapped.
   bool mappingDel( const GroupKey & groupKey, const Vel::String & unitName );
   bool mapping( const GroupKey & groupKey, const Vel::String & unitName ) const;
};

namespace MaintenanceGroup {

/// Configured groups. A place to mount; what is in a group is in its status.
class ConfigDir final : public Vel::Entity {
   VEL_ENTITY( ConfigDir );
};

} // namespace MaintenanceGroup
} // namespace Maintenance
