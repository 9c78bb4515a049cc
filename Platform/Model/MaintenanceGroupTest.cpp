#include "Platform/Model/IntfGroup.h"
#include "Platform/Model/IntfMaintenance.h"

#include <gtest/gtest.h>

namespace {

using Maintenance::GroupKey;
using Maintenance::GroupToUnit;
using Maintenance::GroupToUnitDir;
using Maintenance::GroupType;
using Maintenance::UnitToGroup;

GroupKey group( const Vel::String & name ) { return { GroupType::interfaceGroup, name }; }

Vel::String units( const GroupToUnitDir & dir, const GroupKey & key ) {
   const GroupToUnit * const entry = dir.groupToUnit( key );
   Vel::String result = entry ? "" : "none";
   if ( entry )
      for ( const auto & [unitName, nothing] : entry->unitNameRange() )
         result += unitName + " ";
   return result;
}

Vel::String groups( const GroupToUnitDir & dir, const Vel::String & unitName ) {
   const UnitToGroup * const entry = dir.unitToGroup( unitName );
   Vel::String result = entry ? "" : "none";
   if ( entry )
      for ( const auto & [key, nothing] : entry->groupKeyRange() )
         result += key.name + " ";
   return result;
}

TEST( GroupKey, isATypeAndAName ) {
   EXPECT_EQ( 1u, static_cast< Vel::U32 >( GroupType::interfaceGroup ) );
   EXPECT_EQ( group( "a" ), group( "a" ) );
   EXPECT_NE( group( "a" ), group( "b" ) );
   EXPECT_NE( group( "a" ), ( GroupKey{ GroupType( 2 ), "a" } ) );
   EXPECT_LT( group( "z" ), ( GroupKey{ GroupType( 2 ), "a" } ) );
   EXPECT_LT( group( "a" ), group( "b" ) );
   EXPECT_EQ( "uplinks", stringValue( group( "uplinks" ) ) );
}

TEST( GroupType, hasTexts ) {
   EXPECT_EQ( "none", stringValue( GroupType::none ) );
   EXPECT_EQ( "interfaceGroup", stringValue( GroupType::interfaceGroup ) );
   EXPECT_EQ( "GroupType(9)", stringValue( GroupType( 9 ) ) );
}

TEST( GroupToUnitDir, keepsBothDirectionsEqual ) {
   const auto dir = Vel::make< GroupToUnitDir >();
   dir->mappingIs( group( "a" ), "u1" );
   dir->mappingIs( group( "b" ), "u1" );
   dir->mappingIs( group( "a" ), "u2" );
   dir->mappingIs( group( "a" ), "u2" );
   EXPECT_EQ( "u1 u2 ", units( *dir, group( "a" ) ) );
   EXPECT_EQ( "u1 ", units( *dir, group( "b" ) ) );
   EXPECT_EQ( "a b ", groups( *dir, "u1" ) );
   EXPECT_EQ( "a ", groups( *dir, "u2" ) );
   EXPECT_TRUE( dir->mapping( group( "a" ), "u1" ) );
   EXPECT_FALSE( dir->mapping( group( "b" ), "u2" ) );
   EXPECT_FALSE( dir->mapping( group( "c" ), "u1" ) );
}

TEST( GroupToUnitDir, keepsTheGroupsEntryWhenItsLastUnitGoes ) {
   const auto dir = Vel::make< GroupToUnitDir >();
   dir->mappingIs( group( "a" ), "u1" );
   EXPECT_TRUE( dir->mappingDel( group( "a" ), "u1" ) );
   EXPECT_FALSE( dir->mappingDel( group( "a" ), "u1" ) );
   EXPECT_FALSE( dir->mappingDel( group( "c" ), "u1" ) );
   EXPECT_EQ( "", units( *dir, group( "a" ) ) );
}

TEST( GroupToUnitDir, dropsTheUnitsEntryWithItsLastGroup ) {
   const auto dir = Vel::make< GroupToUnitDir >();
   dir->mappingIs( group( "a" ), "u1" );
   dir->mappingIs( group( "b" ), "u1" );
   dir->mappingDel( group( "a" ), "u1" );
   EXPECT_EQ( "b ", groups( *dir, "u1" ) );
   dir->groupToUnitDel( group( "b" ) );
   EXPECT_EQ( "none", groups( *dir, "u1" ) );
}

TEST( GroupToUnitDir, keepsAGroupWithoutUnits ) {
   const auto dir = Vel::make< GroupToUnitDir >();
   GroupToUnit * const entry = dir->groupToUnitIs( group( "a" ) );
   EXPECT_EQ( entry, dir->groupToUnitIs( group( "a" ) ) );
   EXPECT_EQ( group( "a" ), entry->groupKey() );
   EXPECT_EQ( "", units( *dir, group( "a" ) ) );
   EXPECT_TRUE( dir->groupToUnitDel( group( "a" ) ) );
   EXPECT_FALSE( dir->groupToUnitDel( group( "a" ) ) );
   EXPECT_EQ( "none", units( *dir, group( "a" ) ) );
}

/// Notes every notification with what both directions say at that moment.
struct MappingObserver {
   struct VelDir final : Vel::ReactorTo< MappingObserver, GroupToUnitDir > {
      using ReactorTo::ReactorTo;
      void onGroupToUnit( const GroupKey & key ) override {
         GroupToUnit * const entry = entity()->groupToUnit( key );
         sm()->log += Vel::text( entry ? "+entry[" : "-entry[", units( *entity(), key ), "] " );
         if ( entry )
            sm()->entry.is( entry, sm() ).hasNotificationActiveIs( true );
      }
   };
   struct VelEntry final : Vel::ReactorTo< MappingObserver, GroupToUnit > {
      using ReactorTo::ReactorTo;
      void onUnitName( const Vel::String & unitName ) override {
         const UnitToGroup * const unit = sm()->dir->unitToGroup( unitName );
         const bool other = unit && unit->groupKey( entity()->groupKey() );
         sm()->log +=
            Vel::text( entity()->unitName( unitName ) ? "+" : "-", unitName, other ? "/yes " : "/no " );
      }
   };
   explicit MappingObserver( const Vel::Ptr< GroupToUnitDir > & argument ) : dir( argument ) {
      watch.is( dir, this ).hasNotificationActiveIs( true );
   }
   Vel::Ptr< GroupToUnitDir > dir;
   Vel::Watch< VelDir > watch;
   Vel::Watch< VelEntry > entry;
   Vel::String log;
};

TEST( GroupToUnitDir, makesAnEntryEmptyAndFillsItNameByName ) {
   const auto dir = Vel::make< GroupToUnitDir >();
   MappingObserver observer( dir );
   dir->mappingIs( group( "a" ), "u1" );
   dir->mappingIs( group( "a" ), "u2" );
   dir->mappingIs( group( "a" ), "u2" );
   EXPECT_EQ( "+entry[] +u1/yes +u2/yes ", observer.log );
}

TEST( GroupToUnitDir, emptiesAnEntryNameByNameBeforeItDeletesIt ) {
   const auto dir = Vel::make< GroupToUnitDir >();
   MappingObserver observer( dir );
   dir->mappingIs( group( "a" ), "u1" );
   dir->mappingIs( group( "a" ), "u2" );
   const Vel::Ptr< GroupToUnit > held( dir->groupToUnit( group( "a" ) ) );
   observer.log.clear();
   dir->groupToUnitDel( group( "a" ) );
   EXPECT_EQ( "-u1/no -u2/no -entry[none] ", observer.log );
   EXPECT_EQ( 0u, held->unitNames() );
}

TEST( GroupToUnitDir, takesArgumentsThatArePartOfWhatItDeletes ) {
   const auto dir = Vel::make< GroupToUnitDir >();
   dir->mappingIs( group( "a" ), "u1" );
   GroupToUnit * const entry = dir->groupToUnit( group( "a" ) );
   dir->mappingDel( entry->groupKey(), *entry->unitNameFirst() );
   EXPECT_EQ( "", units( *dir, group( "a" ) ) );
   dir->groupToUnitDel( entry->groupKey() );
   EXPECT_EQ( "none", units( *dir, group( "a" ) ) );
}

TEST( GroupToUnitDir, keepsGroupsOfOneNameAndDifferentTypesApart ) {
   const auto dir = Vel::make< GroupToUnitDir >();
   dir->mappingIs( group( "a" ), "u1" );
   dir->mappingIs( { GroupType( 2 ), "a" }, "u2" );
   EXPECT_EQ( "u1 ", units( *dir, group( "a" ) ) );
   EXPECT_EQ( "u2 ", units( *dir, { GroupType( 2 ), "a" } ) );
   EXPECT_EQ( 1u, dir->unitToGroup( "u1" )->groupKeys() );
   EXPECT_TRUE( dir->unitToGroup( "u1" )->groupKey( group( "a" ) ) );
}

TEST( IntfGroupStatusDir, keepsGroupsOfOneNameAndDifferentTypesApart ) {
   const auto dir = Vel::make< IntfGroup::StatusDir >();
   dir->statusIs( { GroupType( 2 ), "a" } )->intfIs( Wire::EthIntfId( "et1" ) );
   EXPECT_EQ( nullptr, dir->status( group( "a" ) ) );
}

struct GroupDirObserver {
   struct VelDir final : Vel::ReactorTo< GroupDirObserver, IntfGroup::StatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const GroupKey & key ) override {
         sm()->log += Vel::text( entity()->status( key ) ? "+" : "-", key, " " );
      }
   };
   Vel::Watch< VelDir > dir;
   Vel::String log;
};

TEST( IntfGroupStatusDir, tellsOfGroupsThatComeAndGo ) {
   const auto dir = Vel::make< IntfGroup::StatusDir >();
   GroupDirObserver observer;
   observer.dir.is( dir, &observer ).hasNotificationActiveIs( true );
   dir->statusIs( group( "a" ) );
   dir->statusIs( group( "a" ) );
   dir->statusDel( group( "a" ) );
   dir->statusDel( group( "a" ) );
   EXPECT_EQ( "+a -a ", observer.log );
}

struct IntfGroupObserver {
   struct VelStatus final : Vel::ReactorTo< IntfGroupObserver, IntfGroup::Status > {
      using ReactorTo::ReactorTo;
      void onIntf( const Wire::IntfId & intf ) override {
         sm()->log += Vel::text( entity()->intf( intf ) ? "+" : "-", intf, " " );
      }
   };
   Vel::Watch< VelStatus > status;
   Vel::String log;
};

TEST( IntfGroupStatus, isASetOfInterfacesByGroup ) {
   const auto dir = Vel::make< IntfGroup::StatusDir >();
   IntfGroup::Status * const status = dir->statusIs( group( "a" ) );
   EXPECT_EQ( status, dir->status( group( "a" ) ) );
   EXPECT_EQ( nullptr, dir->status( group( "b" ) ) );
   EXPECT_EQ( group( "a" ), status->groupKey() );
   IntfGroupObserver observer;
   observer.status.is( status, &observer ).hasNotificationActiveIs( true );
   const Wire::EthIntfId et1( "et1" );
   status->intfIs( et1 );
   status->intfIs( et1 );
   status->intfDel( et1 );
   status->intfDel( et1 );
   EXPECT_EQ( "+et1 -et1 ", observer.log );
}

} // namespace
