#include "MaintenancePlugin/PluginStore.h"
#include "Platform/Maintenance/PluginLoader.h"
#include "Platform/Vel/Log.h"
#include "Platform/Vel/Trace.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

/// The library as the agent loads it, in a program that has nothing else of the plug-in.
namespace MaintenanceMode {
namespace {

using Maintenance::Unit::UnitState;

struct DrainWatchPluginLibrary : testing::Test {
   PluginStore world;
   void * library = nullptr;
   const Wire::IntfId et1 = Wire::EthIntfId( "et1" );
   const Maintenance::GroupKey group{ Maintenance::GroupType::interfaceGroup, "g1" };

   ~DrainWatchPluginLibrary() override { unload(); }

   void load() {
      library = dlopen( PLUGIN_LIBRARY, RTLD_NOW | RTLD_LOCAL );
      ASSERT_TRUE( library ) << dlerror();
      ASSERT_TRUE( Maintenance::DefaultPluginLoader().initPlugins( world.context.get() ).empty() );
      world.settle();
   }
   /// In the order that the plug-in asks for: first the entry that does its work, then the library.
   void unload() {
      if ( !library )
         return;
      world.context->entityDir()->entryDel( "drainWatchPlugin" );
      EXPECT_EQ( 0, dlclose( library ) );
      library = nullptr;
   }
   bool inMemory() {
      void * handle = dlopen( PLUGIN_LIBRARY, RTLD_NOLOAD | RTLD_NOW );
      if ( handle )
         dlclose( handle );
      return handle != nullptr;
   }
   /// One port in one unit, to be shut as soon as it is quiet.
   void configure() {
      world.pool->intfCountersIs( et1, 0, Cog::MaybeU63( 0 ) );
      world.get< Interface::AllIntfStatusDir >( "interface/status/all" )
         ->intfStatusIs( et1 )
         ->operStatusIs( Interface::operUp );
      auto * profile =
         world.get< IntfMaintenanceProfile::StatusDir >( "maintenance/profile/status/interface" )
            ->statusIs( "p" );
      profile->drainWatchThresholdInKbpsIs( 100 );
      profile->drainWatchLoadIntervalIs( 10 );
      profile->shutdownMaxDelayIs( 1000 );
      profile->shutdownIs( true );
      using Maintenance::Profile::ProfileType;
      auto * entry = world.get< IntfMaintenance::IntfToGroupDir >( "maintenance/mapping/member/interface" )
                        ->intfToGroupIs( et1 );
      entry->selectedProfileIs( ProfileType::interfaceProfile, { ProfileType::interfaceProfile, "p" } );
      entry->groupIs( group );
      world.get< IntfGroup::StatusDir >( "group/status/interface" )->statusIs( group )->intfIs( et1 );
      world.get< Maintenance::GroupToUnitDir >( "maintenance/mapping/group" )->mappingIs( group, "u1" );
   }
   void enter() {
      auto * unit = world.get< Maintenance::Unit::StatusDir >( "maintenance/unit/status" )->statusIs( "u1" );
      unit->stateIs( UnitState::enterInProgress );
      unit->genIdIs( 1 );
      unit->maintEnterInstanceNameIs( "u1#1" );
      auto * progress =
         world.getInCell< Stage::ProgressDir >( "stage/maintEnter/progress" )->progressIs( "u1#1" );
      progress->stageStatusIs( "drainwatch", Stage::stageRunning );
      world.getInCell< Stage::CompletionStatusDir >( "stage/maintEnter/completionstatus" )
         ->statusIs( "u1#1", Stage::stageRunning );
      progress->stageIs( "drainwatch" );
   }
   bool entered() {
      return world.getInCell< Stage::AgentStatus >( "stageAgentStatus/maintEnter/MaintenanceMode" )
         ->complete( { "MaintenanceMode", "drainwatch", "u1#1" } );
   }
   auto cause() {
      return world.get< Errdisable::CauseStatus >( "interface/errdisable/cause/maintenance-shutdown" );
   }
   auto records() {
      return world.get< Maintenance::MonIntfStatusDir >( "maintenance/interface/status/drainwatch" );
   }
   static std::vector< Vel::String > ourTypes() {
      std::vector< Vel::String > names;
      for ( const auto & type : Vel::TypeRegistry::instance().types() )
         if ( type.typeName.starts_with( "MaintenanceMode::" ) )
            names.push_back( type.typeName );
      return names;
   }
};

TEST_F( DrainWatchPluginLibrary, worksInItsAgentsProcess ) {
   configure();
   load();
   enter();
   world.clock->advance( 5 );
   EXPECT_FALSE( entered() );
   world.clock->advance( 10 );
   EXPECT_TRUE( entered() );
   EXPECT_TRUE( cause()->intfStatus( et1 ) );
   EXPECT_EQ( 1u, records()->monIntfUnderMaints() );
}

TEST_F( DrainWatchPluginLibrary, isKnownToTheLoaderOfTheProcessAndWaitsToBegin ) {
   library = dlopen( PLUGIN_LIBRARY, RTLD_NOW | RTLD_LOCAL );
   ASSERT_TRUE( library ) << dlerror();
   const auto * plugin = Maintenance::DefaultPluginLoader().plugin( "DrainWatchPlugin" );
   ASSERT_TRUE( plugin );
   EXPECT_EQ( "", plugin->description );
   EXPECT_EQ( "", plugin->version );
   EXPECT_TRUE( plugin->initCaller.plugin() );
   EXPECT_FALSE( plugin->initialized );
   EXPECT_FALSE( world.context->entityDir()->entityRef( "drainWatchPlugin" ) );
   EXPECT_FALSE( world.context->dumpPluginInfo( "DrainWatchPlugin" ) );
}

TEST_F( DrainWatchPluginLibrary, bringsItsTypesAndTakesThemAlong ) {
   const auto before = Vel::TypeRegistry::instance().types().size();
   EXPECT_TRUE( ourTypes().empty() );
   load();
   EXPECT_EQ(
      ( std::vector< Vel::String >{
         "MaintenanceMode::UnitMonSm", "MaintenanceMode::IntfMonSm", "MaintenanceMode::DrainWatchSmLoader",
         "MaintenanceMode::DrainWatchSmDebugCounters", "MaintenanceMode::IntfStatusSm",
         "MaintenanceMode::DrainWatchPluginInfoDumper", "MaintenanceMode::IntfRateAggregatorSm",
         "MaintenanceMode::UnitIntfInputDir", "MaintenanceMode::MaintStageHelperSm",
         "MaintenanceMode::UnitIntfInput", "MaintenanceMode::IntfCounterInfo",
         "MaintenanceMode::DrainWatchSm", "MaintenanceMode::MonitoredIntfDir",
         "MaintenanceMode::MonitoredIntf" } ),
      ourTypes() );
   EXPECT_EQ( 1u, Vel::LogHandle::all().size() );
   unload();
   EXPECT_TRUE( ourTypes().empty() );
   EXPECT_EQ( before, Vel::TypeRegistry::instance().types().size() );
   EXPECT_TRUE( Vel::LogHandle::all().empty() );
}

TEST_F( DrainWatchPluginLibrary, leavesTheMemoryWhenItIsUnloaded ) {
   const auto facilities = Vel::TraceFacility::all().size();
   load();
   EXPECT_TRUE( inMemory() );
   EXPECT_LT( facilities, Vel::TraceFacility::all().size() );
   unload();
   EXPECT_FALSE( inMemory() );
   EXPECT_EQ( facilities, Vel::TraceFacility::all().size() );
   EXPECT_FALSE( Maintenance::DefaultPluginLoader().plugin( "DrainWatchPlugin" ) );
   EXPECT_FALSE( world.context->dumpPluginInfo( "DrainWatchPlugin" ) );
}

TEST_F( DrainWatchPluginLibrary, undoesItsWorkWhenItIsUnloadedInAMaintenance ) {
   configure();
   load();
   enter();
   world.clock->advance( 30 );
   ASSERT_TRUE( cause()->intfStatus( et1 ) );
   unload();
   EXPECT_FALSE( cause()->intfStatus( et1 ) );
   EXPECT_EQ( 0u, records()->monIntfStatuss() );
   EXPECT_EQ( 0u, records()->monIntfUnderMaints() );
   // Nobody is left to be told, and nothing is left to run.
   for ( const auto & [path, entity] : world.store->entityRange() )
      EXPECT_EQ( 0u, entity->velReactors() ) << path;
   EXPECT_EQ( 0u, world.pool->velReactors() );
   world.get< Interface::AllIntfStatusDir >( "interface/status/all" )
      ->intfStatus( et1 )
      ->operStatusIs( Interface::operDown );
   world.clock->advance( 60 );
}

TEST_F( DrainWatchPluginLibrary, endsWhileTheMountsAreStillAwaited ) {
   library = dlopen( PLUGIN_LIBRARY, RTLD_NOW | RTLD_LOCAL );
   ASSERT_TRUE( library ) << dlerror();
   ASSERT_TRUE( Maintenance::DefaultPluginLoader().initPlugins( world.context.get() ).empty() );
   unload();
   world.settle();
   EXPECT_FALSE( inMemory() );
}

TEST_F( DrainWatchPluginLibrary, isLoadedAgainAfterItWasUnloaded ) {
   configure();
   for ( int run = 1; run <= 3; ++run ) {
      SCOPED_TRACE( run );
      load();
      if ( run == 1 )
         enter();
      world.clock->advance( 30 );
      EXPECT_TRUE( entered() );
      EXPECT_TRUE( cause()->intfStatus( et1 ) );
      unload();
      EXPECT_FALSE( inMemory() );
   }
}

/// The plug-in object ends the work, and with it everything traces: it must go before the facilities do.
TEST_F( DrainWatchPluginLibrary, stillHasItsTracesWhileItsWorkEnds ) {
   configure();
   load();
   enter();
   struct Seen {
      unsigned lines = 0;
      std::vector< Vel::String > late;
      static void add( void * context, const Vel::TraceFacility & facility, int, std::string_view text ) {
         Seen & seen = *static_cast< Seen * >( context );
         ++seen.lines;
         const auto all = Vel::TraceFacility::all();
         if ( std::find( all.begin(), all.end(), &facility ) == all.end() )
            seen.late.emplace_back( text );
      }
   } seen;
   Vel::TraceFacility::levelIs( "*", 9 );
   Vel::traceSinkIs( Seen::add, &seen );
   unload();
   Vel::traceSinkIs( nullptr, nullptr );
   Vel::TraceFacility::levelIs( "*", -1 );
   EXPECT_LT( 5u, seen.lines );
   EXPECT_TRUE( seen.late.empty() ) << seen.late.size() << " late, the first: " << seen.late.front();
}

} // namespace
} // namespace MaintenanceMode
