#include "MaintenancePlugin/PublicSurface.h"
#include "MaintenancePlugin/PluginRig.h"

#include <gtest/gtest.h>

#include <tuple>

/// What others may rely on: the types by their names, the attributes of each in their order and the order of constructor
/// inputs, which is checked while this is compiled. The operations: PublicOperationsTest.cpp.
namespace MaintenanceMode {
namespace {

using Names = std::vector< String >;

// ---- the types and their attributes

template < class T >
Names attributes() {
   Names names;
   for ( const auto & attribute : Vel::typeInfoOf< T >().attributes() )
      names.push_back( attribute.name );
   return names;
}

struct Row {
   String type;
   Names present;
   Names expected;
};
template < class T >
Row row( Names expected ) {
   return { Vel::typeName< T >(), attributes< T >(), std::move( expected ) };
}

TEST( PublicSurface, allTypesAreRegisteredInTheirOrderAndHaveTheirAttributesInTheirs ) {
   const Row rows[] = {
      row< UnitMonSm >( { "unitName", "genId", "rootSm", "monIntf", "drainedIntf", "initialized" } ),
      row< IntfMonSm >(
         { "intf", "clock", "intfProfile", "rootSm", "monitoredIntf", "initialState", "state", "initialized",
           "oldProfileName" } ),
      row< DrainWatchSmLoader >(
         { "name",
           "ethIntfCounterWriterStatusDir",
           "ethIntfCounterReaderSm",
           "phyCounterDir",
           "lagConfigDir",
           "vlanStatusDir",
           "allIntfStatusDir",
           "unitStatusDir",
           "maintenanceGroupDir",
           "intfGroupStatusDir",
           "intfProfileStatusDir",
           "intfToGroupDir",
           "groupToUnitDir",
           "errDisableCauseStatus",
           "monIntfStatusDir",
           "defaultIntfProfile",
           "maintEnterCompletionStatus",
           "maintExitCompletionStatus",
           "maintEnterProgressDir",
           "maintExitProgressDir",
           "maintEnterAgentConfig",
           "maintExitAgentConfig",
           "maintEnterAgentStatus",
           "maintExitAgentStatus",
           "drainWatchSm",
           "pluginInfoDumper",
           "context" } ),
      row< DrainWatchSmDebugCounters >(
         { "numMaintEnter",
           "numMaintExit",
           "numMaintExitNoUnitMon",
           "numMaintEnterUnitMonPresent",
           "numMaintExitInMaintModeEnter",
           "numNotifyStageCompletion",
           "numUnitStatusDel",
           "numNoVlanStatus",
           "numNoIntfCounter",
           "numNoNotifyNoStageInput",
           "numNoNotifyActiveStageMismatch",
           "numNoNotifyAlreadyNotified",
           "numNoNotifyNoUnitStatus",
           "numIntfMonInitialStatePassive",
           "numStartIntfMonInUnits",
           "numStopIntfMonInUnits",
           "numIntfMonProfileChange",
           "numIntfMonProfileDelete",
           "numIntfMonPendingProfileResolved",
           "numIntfMonDefProfileUpdate",
           "numIntfMonIntfNotSupported",
           "numIntfMonNoIntfStatus",
           "numIntfMonIntfOperNotUp" } ),
      row< IntfStatusSm >(
         { "allIntfStatusDir", "intfToGroupDir", "groupToUnitDir", "unitMonIntfInput", "intfGroupStatusDir",
           "drainWatchSm", "intfStatus", "intfToGroup", "groupToUnit", "bookmark" } ),
      row< DrainWatchPluginInfoDumper >( { "name", "context" } ),
      row< IntfRateAggregatorSm >(
         { "monIntfDir", "monIntfStatusDir", "unitStatusDir", "monitoredIntf", "monIntfStatus",
           "initialized" } ),
      row< UnitIntfInputDir >( { "unitIntfInput" } ),
      row< MaintStageHelperSm >(
         { "stageClass", "progressDir", "maintStageCompletionStatus", "agentConfig", "agentStatus", "root",
           "progress", "initialized" } ),
      row< UnitIntfInput >( { "name", "intf" } ),
      row< IntfCounterInfo >( { "intfId", "prevStats", "lastUpdateTime", "rates" } ),
      row< DrainWatchSm >(
         { "phyCounterDir",
           "lagConfigDir",
           "vlanStatusDir",
           "allIntfStatusDir",
           "unitStatusDir",
           "maintenanceGroupDir",
           "intfGroupStatusDir",
           "intfProfileStatusDir",
           "intfToGroupDir",
           "groupToUnitDir",
           "errDisableCauseStatus",
           "monIntfStatusDir",
           "defaultIntfProfile",
           "maintEnterCompletionStatus",
           "maintExitCompletionStatus",
           "maintEnterAgentConfig",
           "maintExitAgentConfig",
           "maintEnterAgentStatus",
           "maintExitAgentStatus",
           "maintEnterProgressDir",
           "maintExitProgressDir",
           "maintEnterStageHelper",
           "maintExitStageHelper",
           "unitMon",
           "intfMon",
           "intfStatusSm",
           "timerWheel",
           "unitMonIntfInput",
           "unitDrainedIntf",
           "counters",
           "monIntfDir",
           "intfRateAggSm",
           "initialized" } ),
      row< MonitoredIntfDir >( { "monitoredIntf" } ),
      row< MonitoredIntf >(
         { "intfId", "drainWatchSm", "profileName", "monIntfStatus", "dependentUnit", "memberTrafficCounters",
           "initialized" } ),
   };
   Names registered;
   for ( const auto & type : Vel::TypeRegistry::instance().types() )
      if ( type.typeName.starts_with( "MaintenanceMode::" ) )
         registered.push_back( type.typeName );
   ASSERT_EQ( std::size( rows ), registered.size() );
   for ( std::size_t i = 0; i < std::size( rows ); ++i ) {
      SCOPED_TRACE( Vel::text( "type ", i + 1, ": ", rows[i].type ) );
      EXPECT_EQ( rows[i].type, registered[i] );
      EXPECT_EQ( rows[i].expected, rows[i].present );
   }
}

TEST( PublicSurface, whatNeedsNoMoreThanANameIsMadeByTheNameOfItsType ) {
   const Names byName{
      "DrainWatchSmLoader", "DrainWatchSmDebugCounters", "DrainWatchPluginInfoDumper", "UnitIntfInputDir",
      "UnitIntfInput",      "MonitoredIntfDir" };
   const auto & registry = Vel::TypeRegistry::instance();
   const String prefix = "MaintenanceMode::";
   for ( const auto & type : registry.types() ) {
      if ( !type.typeName.starts_with( prefix ) )
         continue;
      SCOPED_TRACE( type.typeName );
      if ( std::count( byName.begin(), byName.end(), type.typeName.substr( prefix.size() ) ) )
         EXPECT_EQ( type.typeName, registry.entityNew( type.typeName, "x" )->typeInfo().name() );
      else
         EXPECT_THROW( registry.entityNew( type.typeName, "x" ), Vel::InternalException );
   }
}

// ---- constructor inputs

template < class T, std::size_t first, std::size_t second, class Inputs, std::size_t... i >
constexpr bool takesSwapped( std::index_sequence< i... > ) {
   return std::is_constructible_v<
      T, std::tuple_element_t<
            ( i == first    ? second
              : i == second ? first
                            : i ),
            Inputs >... >;
}
/// Whether T is made from these inputs in this order, and not if any two of different types change places.
template < class T, class... Inputs >
struct Order {
   using Tuple = std::tuple< Inputs... >;
   static constexpr std::size_t size = sizeof...( Inputs );

   template < std::size_t first, std::size_t second >
   static constexpr bool noticed() {
      if constexpr (
         first < second &&
         !std::is_same_v< std::tuple_element_t< first, Tuple >, std::tuple_element_t< second, Tuple > > )
         return !takesSwapped< T, first, second, Tuple >( std::make_index_sequence< size >() );
      else
         return true;
   }
   template < std::size_t... pair >
   static constexpr bool allNoticed( std::index_sequence< pair... > ) {
      return ( noticed< pair / size, pair % size >() && ... );
   }
   static constexpr bool value =
      std::is_constructible_v< T, Inputs... > && allNoticed( std::make_index_sequence< size * size >() );
};

static_assert( std::is_default_constructible_v< DrainWatchPlugin > );
static_assert( Order< DrainWatchSmLoader, String >::value );
static_assert( Order< DrainWatchPluginInfoDumper, String >::value );
static_assert( std::is_default_constructible_v< DrainWatchSmDebugCounters > );
static_assert( std::is_default_constructible_v< UnitIntfInputDir > );
static_assert( Order< UnitIntfInput, String >::value );
static_assert( std::is_default_constructible_v< MonitoredIntfDir > );
static_assert( Order< IntfCounterInfo, IntfId >::value );
static_assert( RootInputs< Order, DrainWatchSm >::value );
static_assert( Order<
               MaintStageHelperSm, String, ProgressDir, CompletionStatusDir, AgentConfig, AgentStatus,
               DrainWatchSm * >::value );
static_assert(
   Order< UnitMonSm, String, U32, DrainWatchSm *, Ptr< UnitIntfInput >, Ptr< UnitIntfInput > >::value );
static_assert( Order<
               IntfMonSm, IntfId, Ptr< const Cog::TimerWheel >, Ptr< const Profile >, DrainWatchSm *,
               Ptr< MonitoredIntf >, MonIntfState >::value );
static_assert( Order< MonitoredIntf, IntfId, DrainWatchSm *, String >::value );
static_assert( Order<
               IntfRateAggregatorSm, Ptr< const MonitoredIntfDir >,
               Ptr< const Maintenance::MonIntfStatusDir >, Ptr< Maintenance::Unit::StatusDir > >::value );
static_assert( Order<
               IntfStatusSm, Ptr< Vel::Clock >, Ptr< const Interface::AllIntfStatusDir >,
               Ptr< const IntfMaintenance::IntfToGroupDir >, Ptr< const Maintenance::GroupToUnitDir >,
               Ptr< UnitIntfInputDir >, Ptr< const IntfGroup::StatusDir >, DrainWatchSm * >::value );

/// Inputs of one type could change places unseen: enter and exit, monitored and drained.
TEST( PublicSurface, inputsOfOneTypeReachTheirOwnAttributes ) {
   PluginRig rig;
   rig.start();
   const DrainWatchSm & root = *rig.root;
   EXPECT_EQ( rig.enterClass.completionStatus, root.maintEnterCompletionStatus() );
   EXPECT_EQ( rig.exitClass.completionStatus, root.maintExitCompletionStatus() );
   EXPECT_EQ( rig.enterClass.agentConfig, root.maintEnterAgentConfig() );
   EXPECT_EQ( rig.exitClass.agentConfig, root.maintExitAgentConfig() );
   EXPECT_EQ( rig.enterClass.agentStatus, root.maintEnterAgentStatus() );
   EXPECT_EQ( rig.exitClass.agentStatus, root.maintExitAgentStatus() );
   EXPECT_EQ( rig.enterClass.progressDir, root.maintEnterProgressDir() );
   EXPECT_EQ( rig.exitClass.progressDir, root.maintExitProgressDir() );

   const auto monitored = Vel::make< UnitIntfInput >( "u1" );
   const auto drained = Vel::make< UnitIntfInput >( "u1" );
   const auto unitMonSm = Vel::make< UnitMonSm >( "u1", 7u, rig.root.get(), monitored, drained );
   EXPECT_EQ( monitored, unitMonSm->monIntf() );
   EXPECT_EQ( drained, unitMonSm->drainedIntf() );
}

} // namespace
} // namespace MaintenanceMode
