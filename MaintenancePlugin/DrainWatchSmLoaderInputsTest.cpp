#include "MaintenancePlugin/DrainWatchSmLoader.h"
#include "MaintenancePlugin/PluginStore.h"
#include "MaintenancePlugin/Recorded.h"

#include <gtest/gtest.h>

/// What becomes of each entity that the loader mounts or looks up: whole and with one of them absent.
namespace MaintenanceMode {
namespace {

/// A path of the store and what the loader keeps its entity as; empty: it is mounted and not kept.
struct Row {
   Vel::String path;
   Vel::String attribute;
};

const std::vector< Row > rows{
   { "interface/ethIntfCounter/writerStatus", "ethIntfCounterWriterStatusDir" },
   { "interface/config/eth/lag", "" },
   { "lag/config", "lagConfigDir" },
   { "lag/input/config", "" },
   { "bridging/vlan/status", "vlanStatusDir" },
   { "interface/status/all", "allIntfStatusDir" },
   { "maintenance/unit/status", "unitStatusDir" },
   { "maintenance/group/config", "maintenanceGroupDir" },
   { "group/status/interface", "intfGroupStatusDir" },
   { "maintenance/profile/status/interface", "intfProfileStatusDir" },
   { "maintenance/mapping/member/interface", "intfToGroupDir" },
   { "maintenance/mapping/group", "groupToUnitDir" },
   { "interface/errdisable/cause/maintenance-shutdown", "errDisableCauseStatus" },
   { "interface/errdisable/causegroup/maintenance-shutdown", "" },
   { "maintenance/interface/status/drainwatch", "monIntfStatusDir" },
   { "maintenance/profile/config/default/interface", "defaultIntfProfile" },
   { Cell::path( "stageInput/maintEnter/MaintenanceMode", 0 ), "maintEnterAgentConfig" },
   { Cell::path( "stageInput/maintExit/MaintenanceMode", 0 ), "maintExitAgentConfig" },
   { Cell::path( "stageAgentStatus/maintEnter/MaintenanceMode", 0 ), "maintEnterAgentStatus" },
   { Cell::path( "stageAgentStatus/maintExit/MaintenanceMode", 0 ), "maintExitAgentStatus" },
   { Cell::path( "stage/maintEnter/progress", 0 ), "maintEnterProgressDir" },
   { Cell::path( "stage/maintExit/progress", 0 ), "maintExitProgressDir" },
   { Cell::path( "stage/maintEnter/completionstatus", 0 ), "maintEnterCompletionStatus" },
   { Cell::path( "stage/maintExit/completionstatus", 0 ), "maintExitCompletionStatus" } };

/// A world whose mounts are complete.
struct Loaded {
   PluginStore world;
   Vel::Ptr< DrainWatchSmLoader > loader = Vel::make< DrainWatchSmLoader >( "drainWatchPlugin" );

   void load() {
      loader->init( world.context );
      world.settle();
   }
   /// The names of the attributes of an entity that point to this one.
   static Lines keptAs( Vel::Entity & holder, const Vel::Entity * kept ) {
      Lines names;
      for ( const auto & attribute : holder.typeInfo().attributes() )
         if ( attribute.entity && attribute.entity( holder ) == kept )
            names.push_back( attribute.name );
      return names;
   }
   static Lines absentIn( Vel::Entity & holder ) { return keptAs( holder, nullptr ); }
};

TEST( DrainWatchSmLoaderInputs, aListedPathIsMountedOrIsTheOneThatIsThereAnyway ) {
   Lines mounted, listed;
   for ( const Ledger::Mount & mount : DrainWatchSmLoader::mounts() )
      mounted.push_back( mount.path );
   for ( const Row & row : rows )
      if ( row.path != "interface/status/all" )
         listed.push_back( row.path );
   std::sort( mounted.begin(), mounted.end() );
   // The configuration of groups is mounted twice.
   mounted.erase( std::unique( mounted.begin(), mounted.end() ), mounted.end() );
   std::sort( listed.begin(), listed.end() );
   EXPECT_EQ( listed, mounted );
}

/// All mounts are one request. Nothing waits for it, and it has neither a name of its own nor a limit.
TEST( DrainWatchSmLoaderInputs, theMountsAreOneGroupWithoutNameWaitOrLimit ) {
   Loaded loaded;
   Sequence groups( "Ledger" );
   loaded.loader->init( loaded.world.context );
   EXPECT_EQ( Lines{ "MountGroup::doClose: \"\", 24 mounts, wait 0, time limit 0" }, groups.lines() );
}

/// Older layouts are announced before the reader looks at what the pool holds.
TEST( DrainWatchSmLoaderInputs, theCounterReaderHearsOfOlderLayoutsBeforeItBegins ) {
   Loaded loaded;
   Sequence reader( "EthIntfCounterReaderSm" );
   loaded.load();
   EXPECT_EQ(
      ( Lines{
         "EthIntfCounterReaderSm::enableLegacyShmemManSupport",
         "EthIntfCounterReaderSm::handleInitialized: 0 interfaces" } ),
      reader.lines() );
}

TEST( DrainWatchSmLoaderInputs, eachEntityIsKeptInItsOwnAttribute ) {
   Loaded loaded;
   loaded.load();
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.path );
      const auto entity = loaded.world.store->getEntity( row.path );
      ASSERT_TRUE( entity );
      EXPECT_EQ(
         row.attribute.empty() ? Lines() : Lines{ row.attribute },
         Loaded::keptAs( *loaded.loader, entity.get() ) );
   }
   EXPECT_EQ( Lines(), Loaded::absentIn( *loaded.loader ) );
}

TEST( DrainWatchSmLoaderInputs, anEntityThatIsAbsentLeavesItsOwnAttributeEmptyAndNoOther ) {
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.path );
      Loaded loaded;
      loaded.world.store->entityDel( row.path );
      loaded.load();
      // What belongs to the cause is made if it is missing.
      const bool made = row.path.find( "errdisable" ) != Vel::String::npos;
      EXPECT_EQ( made, bool( loaded.world.store->getEntity( row.path ) ) );
      const Lines absent = made || row.attribute.empty() ? Lines() : Lines{ row.attribute };
      EXPECT_EQ( absent, Loaded::absentIn( *loaded.loader ) );
      DrainWatchSm * const root = loaded.loader->drainWatchSm().get();
      ASSERT_TRUE( root );
      EXPECT_TRUE( root->initialized() );
      // The directory of writers is the counter reader's.
      EXPECT_EQ(
         row.attribute == "ethIntfCounterWriterStatusDir" ? Lines() : absent, Loaded::absentIn( *root ) );
   }
}

/// An attribute keeps what it holds when it is given it again, and nobody is told.
TEST( DrainWatchSmLoaderInputs, theSameEntityAgainIsNoChange ) {
   Loaded loaded;
   loaded.load();
   unsigned told = 0;
   struct VelLoader final : Vel::ReactorTo< unsigned, DrainWatchSmLoader > {
      using ReactorTo::ReactorTo;
      void onLagConfigDir() override { ++*sm(); }
      void onContext() override { ++*sm(); }
   };
   Vel::Watch< VelLoader > watch;
   watch.is( loaded.loader, &told ).hasNotificationActiveIs( true );
   loaded.loader->lagConfigDirIs( loaded.world.get< Lag::Config >( "lag/config" ) );
   loaded.loader->contextIs( loaded.world.context );
   EXPECT_EQ( 0u, told );
   loaded.loader->lagConfigDirIs( Vel::make< Lag::Config >() );
   EXPECT_EQ( 1u, told );
}

/// Nothing of the store is held by a loader that has gone.
TEST( DrainWatchSmLoaderInputs, aLoaderThatGoesLetsGoOfEverything ) {
   Loaded loaded;
   loaded.load();
   // Held by the store, the loader and the root, and here.
   EXPECT_EQ( 4u, loaded.world.get< Lag::Config >( "lag/config" )->getRefCount() );
   loaded.loader = nullptr;
   for ( const auto & [path, entity] : loaded.world.store->entityRange() ) {
      EXPECT_EQ( 1u, entity->getRefCount() ) << path;
      EXPECT_EQ( 0u, entity->velReactors() ) << path;
   }
   EXPECT_FALSE( loaded.world.context->dumpPluginInfo( "DrainWatchPlugin" ) );
}

} // namespace
} // namespace MaintenanceMode
