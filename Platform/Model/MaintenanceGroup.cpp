#include "Platform/Model/MaintenanceGroup.h"

namespace Maintenance {

namespace {
const Vel::TypeRegistration< GroupToUnitDir > groupToUnitDirType;
const Vel::TypeRegistration< MaintenanceGroup::ConfigDir > configDirType;
} // namespace

Vel::String stringValue( GroupType type ) {
   switch ( type ) {
   case GroupType::none:
      return "none";
   case GroupType::interfaceGroup:
      return "interfaceGroup";
   }
   return Vel::text( "GroupType(", Vel::U32( type ), ")" );
}

GroupToUnit * GroupToUnitDir::groupToUnitIs( const GroupKey & groupKey ) {
   if ( GroupToUnit * entry = groupToUnit( groupKey ) )
      return entry;
   return groupToUnitStore( groupKey, Vel::make< GroupToUnit >( groupKey ) );
}

bool GroupToUnitDir::groupToUnitDel( const GroupKey & argument ) {
   const GroupKey groupKey = argument;
   const Vel::Ptr< GroupToUnit > entry( groupToUnit( groupKey ) );
   if ( !entry )
      return false;
   while ( const Vel::String * unitName = entry->unitNameFirst() )
      mappingDel( groupKey, *unitName );
   return groupToUnitTake( groupKey );
}

void GroupToUnitDir::mappingIs( const GroupKey & groupKey, const Vel::String & unitName ) {
   const Vel::Ptr< GroupToUnit > group( groupToUnitIs( groupKey ) );
   Vel::Ptr< UnitToGroup > unit( unitToGroup( unitName ) );
   if ( !unit )
      unit = unitToGroupStore( unitName, Vel::make< UnitToGroup >( unitName ) );
   unit->groupKeyStore( groupKey );
   group->unitNameStore( unitName );
}

bool GroupToUnitDir::mappingDel( const GroupKey & groupArgument, const Vel::String & unitArgument ) {
   const GroupKey groupKey = groupArgument;
   const Vel::String unitName = unitArgument;
   if ( !mapping( groupKey, unitName ) )
      return false;
   const Vel::Ptr< GroupToUnit > group( groupToUnit( groupKey ) );
   const Vel::Ptr< UnitToGroup > unit( unitToGroup( unitName ) );
   unit->groupKeyTake( groupKey );
   if ( !unit->groupKeys() )
      unitToGroupTake( unitName );
   group->unitNameTake( unitName );
   return true;
}

bool GroupToUnitDir::mapping( const GroupKey & groupKey, const Vel::String & unitName ) const {
   const GroupToUnit * const group = groupToUnit( groupKey );
   return group && group->unitName( unitName );
}

} // namespace Maintenance

void Vel::Codec< Maintenance::GroupKey >::write( ByteWriter & w, const Maintenance::GroupKey & key ) {
   Codec< Maintenance::GroupType >::write( w, key.type );
   Codec< String >::write( w, key.name );
}

void Vel::Codec< Maintenance::GroupKey >::read( ByteReader & r, Maintenance::GroupKey & key ) {
   Codec< Maintenance::GroupType >::read( r, key.type );
   Codec< String >::read( r, key.name );
}
