#include "MaintenancePlugin/DrainWatchSmLoader.h"
#include "MaintenancePlugin/PluginRig.h"
#include "MaintenancePlugin/PluginStore.h"
#include "MaintenancePlugin/Recorded.h"
#include "Platform/Vel/FailedAssertion.h"

#include <gtest/gtest.h>

#include <tuple>

namespace MaintenanceMode {
namespace {

/// Fits no mount.
struct Other final : Vel::Entity {
   VEL_ENTITY( Other );
};

struct DrainWatchSmLoaderTest : testing::Test {
   PluginStore world;
   Vel::Ptr< DrainWatchSmLoader > loader = Vel::make< DrainWatchSmLoader >( "drainWatchPlugin" );

   void load() {
      loader->init( world.context );
      world.settle();
   }
   Vel::String dumped() {
      return PluginRig::written( [&]( int fd ) { world.context->dump( static_cast< unsigned >( fd ) ); } );
   }
};

// ---- the mounts

TEST_F( DrainWatchSmLoaderTest, requestsItsMountsInTheirOrder ) {
   struct Row {
      const char * path;
      const char * typeName;
      const char * mode;
   };
   const Row rows[] = {
      { "interface/ethIntfCounter/writerStatus", "Vel::Dir", "ri" },
      { "interface/config/eth/lag", "Interface::EthLagIntfConfigDir", "r" },
      { "lag/config", "Lag::Config", "r" },
      { "lag/input/config", "Vel::Dir", "ri" },
      { "bridging/vlan/status", "Bridging::VlanStatusDir", "r" },
      { "maintenance/unit/status", "Maintenance::Unit::StatusDir", "r" },
      { "maintenance/group/config", "Maintenance::MaintenanceGroup::ConfigDir", "r" },
      { "group/status/interface", "IntfGroup::StatusDir", "r" },
      { "maintenance/profile/status/interface", "IntfMaintenanceProfile::StatusDir", "r" },
      { "maintenance/mapping/member/interface", "IntfMaintenance::IntfToGroupDir", "r" },
      { "maintenance/mapping/group", "Maintenance::GroupToUnitDir", "r" },
      { "interface/errdisable/cause/maintenance-shutdown", "Errdisable::CauseStatus", "wc" },
      { "interface/errdisable/causegroup/maintenance-shutdown", "Errdisable::CauseGroup", "wc" },
      { "maintenance/interface/status/drainwatch", "Maintenance::MonIntfStatusDir", "w" },
      { "maintenance/profile/config/default/interface", "Maintenance::Profile::DefaultProfile", "r" },
      { "maintenance/group/config", "Maintenance::MaintenanceGroup::ConfigDir", "r" },
      { "cell/1/stageInput/maintEnter/MaintenanceMode", "Stage::AgentConfig", "r" },
      { "cell/1/stageInput/maintExit/MaintenanceMode", "Stage::AgentConfig", "r" },
      { "cell/1/stageAgentStatus/maintEnter/MaintenanceMode", "Stage::AgentStatus", "w" },
      { "cell/1/stageAgentStatus/maintExit/MaintenanceMode", "Stage::AgentStatus", "w" },
      { "cell/1/stage/maintEnter/progress", "Stage::ProgressDir", "r" },
      { "cell/1/stage/maintExit/progress", "Stage::ProgressDir", "r" },
      { "cell/1/stage/maintEnter/completionstatus", "Stage::CompletionStatusDir", "r" },
      { "cell/1/stage/maintExit/completionstatus", "Stage::CompletionStatusDir", "r" } };
   const auto mounts = DrainWatchSmLoader::mounts();
   ASSERT_EQ( std::size( rows ), mounts.size() );
   for ( std::size_t i = 0; i < mounts.size(); ++i ) {
      SCOPED_TRACE( i );
      EXPECT_EQ( rows[i].path, mounts[i].path );
      EXPECT_EQ( rows[i].typeName, mounts[i].typeName );
      EXPECT_EQ( rows[i].mode, mounts[i].mode );
   }
}

TEST_F( DrainWatchSmLoaderTest, mountsWhatItLists ) {
   // Each mount fails where something else is; all of them are reported.
   for ( const Ledger::Mount & mount : DrainWatchSmLoader::mounts() )
      world.store->entityIs( mount.path, Vel::make< Other >() );
   Vel::AssertionsThrow assertionsThrow;
   Vel::TraceCapture traces;
   loader->init( world.context );
   EXPECT_THROW( world.settle(), Vel::AssertionFailed );
   for ( const Ledger::Mount & mount : DrainWatchSmLoader::mounts() )
      EXPECT_TRUE( traces.has( mount.path, 1 ) ) << mount.path;
}

TEST_F( DrainWatchSmLoaderTest, holdsNothingButContextAndDumperUntilTheMountsAreComplete ) {
   Vel::TraceCapture traces;
   loader->init( world.context );
   EXPECT_EQ( world.context, loader->context() );
   ASSERT_TRUE( loader->pluginInfoDumper() );
   EXPECT_EQ( loader.get(), loader->pluginInfoDumper()->context() );
   EXPECT_EQ( loader->pluginInfoDumper().get(), world.context->dumpPluginInfo( "DrainWatchPlugin" ).get() );
   for ( const auto & attribute : loader->typeInfo().attributes() )
      if ( attribute.entity ) {
         const std::string_view name = attribute.name;
         EXPECT_EQ( name == "context" || name == "pluginInfoDumper", attribute.entity( *loader ) != nullptr )
            << name;
      }
   EXPECT_EQ( "Drain Watch information\n", dumped() );
   EXPECT_FALSE( traces.has( "doMountsComplete" ) );
   world.settle();
   EXPECT_TRUE( loader->drainWatchSm() );
}

TEST_F( DrainWatchSmLoaderTest, aMountThatFailsIsFatalUntracedToo ) {
   world.put< Lag::Config >( "bridging/vlan/status" );
   loader->init( world.context );
   EXPECT_EQ( "mountStatus == Ledger::mountSuccess_", Vel::failedAssertion( [&] { world.settle(); } ) );
   EXPECT_FALSE( loader->drainWatchSm() );
}

TEST_F( DrainWatchSmLoaderTest, aMountThatFailsIsFatal ) {
   world.put< Lag::Config >( "bridging/vlan/status" );
   loader->init( world.context );
   Sequence sequence( "DrainWatchSmLoader", 1 );
   EXPECT_EQ( "mountStatus == Ledger::mountSuccess_", Vel::failedAssertion( [&] { world.settle(); } ) );
   EXPECT_FALSE( loader->drainWatchSm() );
   EXPECT_EQ(
      Lines{ "doMountsComplete: bridging/vlan/status is a Lag::Config, not a Bridging::VlanStatusDir" },
      sequence.lines() );
}

TEST_F( DrainWatchSmLoaderTest, isNotToldOfItsMountsOnceItHasGone ) {
   loader->init( world.context );
   loader = nullptr;
   world.settle();
   EXPECT_FALSE( world.context->dumpPluginInfo( "DrainWatchPlugin" ) );
}

// ---- what it does when they are complete

TEST_F( DrainWatchSmLoaderTest, buildsTheRootFromTheMountedEntities ) {
   load();
   ASSERT_TRUE( loader->drainWatchSm() );
   const DrainWatchSm & root = *loader->drainWatchSm();
   EXPECT_EQ( loader->ethIntfCounterReaderSm()->allEthIntfCounterPtrDir(), root.phyCounterDir() );
   EXPECT_EQ( world.get< Lag::Config >( "lag/config" ), root.lagConfigDir() );
   EXPECT_EQ( world.get< Bridging::VlanStatusDir >( "bridging/vlan/status" ), root.vlanStatusDir() );
   EXPECT_EQ( world.get< Interface::AllIntfStatusDir >( "interface/status/all" ), root.allIntfStatusDir() );
   EXPECT_EQ( world.get< Maintenance::Unit::StatusDir >( "maintenance/unit/status" ), root.unitStatusDir() );
   EXPECT_EQ(
      world.get< Maintenance::MaintenanceGroup::ConfigDir >( "maintenance/group/config" ),
      root.maintenanceGroupDir() );
   EXPECT_EQ( world.get< IntfGroup::StatusDir >( "group/status/interface" ), root.intfGroupStatusDir() );
   EXPECT_EQ(
      world.get< IntfMaintenanceProfile::StatusDir >( "maintenance/profile/status/interface" ),
      root.intfProfileStatusDir() );
   EXPECT_EQ(
      world.get< IntfMaintenance::IntfToGroupDir >( "maintenance/mapping/member/interface" ),
      root.intfToGroupDir() );
   EXPECT_EQ(
      world.get< Maintenance::GroupToUnitDir >( "maintenance/mapping/group" ), root.groupToUnitDir() );
   EXPECT_EQ(
      world.get< Errdisable::CauseStatus >( "interface/errdisable/cause/maintenance-shutdown" ),
      root.errDisableCauseStatus() );
   EXPECT_EQ(
      world.get< Maintenance::MonIntfStatusDir >( "maintenance/interface/status/drainwatch" ),
      root.monIntfStatusDir() );
   EXPECT_EQ(
      world.get< Maintenance::Profile::DefaultProfile >( "maintenance/profile/config/default/interface" ),
      root.defaultIntfProfile() );
   EXPECT_EQ(
      world.getInCell< Stage::CompletionStatusDir >( "stage/maintEnter/completionstatus" ),
      root.maintEnterCompletionStatus() );
   EXPECT_EQ(
      world.getInCell< Stage::CompletionStatusDir >( "stage/maintExit/completionstatus" ),
      root.maintExitCompletionStatus() );
   EXPECT_EQ(
      world.getInCell< Stage::AgentConfig >( "stageInput/maintEnter/MaintenanceMode" ),
      root.maintEnterAgentConfig() );
   EXPECT_EQ(
      world.getInCell< Stage::AgentConfig >( "stageInput/maintExit/MaintenanceMode" ),
      root.maintExitAgentConfig() );
   EXPECT_EQ(
      world.getInCell< Stage::AgentStatus >( "stageAgentStatus/maintEnter/MaintenanceMode" ),
      root.maintEnterAgentStatus() );
   EXPECT_EQ(
      world.getInCell< Stage::AgentStatus >( "stageAgentStatus/maintExit/MaintenanceMode" ),
      root.maintExitAgentStatus() );
   EXPECT_EQ(
      world.getInCell< Stage::ProgressDir >( "stage/maintEnter/progress" ), root.maintEnterProgressDir() );
   EXPECT_EQ(
      world.getInCell< Stage::ProgressDir >( "stage/maintExit/progress" ), root.maintExitProgressDir() );
   EXPECT_TRUE( root.initialized() );
}

TEST_F( DrainWatchSmLoaderTest, keepsNothingOfWhatItMountsForOthers ) {
   load();
   for ( const char * path :
         { "interface/config/eth/lag", "lag/input/config",
           "interface/errdisable/causegroup/maintenance-shutdown" } ) {
      const auto entity = world.get< Vel::Entity >( path );
      ASSERT_TRUE( entity ) << path;
      for ( const auto & attribute : loader->typeInfo().attributes() ) {
         if ( attribute.entity ) {
            EXPECT_NE( entity.get(), attribute.entity( *loader ) ) << attribute.name;
         }
      }
   }
}

TEST_F( DrainWatchSmLoaderTest, tellsOfEachStepAtLevelFour ) {
   Vel::TraceCapture traces;
   load();
   for ( const auto & line : traces.lines() ) {
      if ( line.facility == "DrainWatchSmLoader" ) {
         EXPECT_EQ( 4, line.level ) << line.text;
      }
   }
}

TEST_F( DrainWatchSmLoaderTest, asksForItsMountsUnderItsOwnNameAndWithoutWaiting ) {
   Vel::TraceCapture traces;
   loader->init( world.context );
   EXPECT_FALSE( loader->drainWatchSm() );
   world.settle();
   EXPECT_TRUE( traces.has( "MountGroup::complete: drainWatchPlugin: 24 mounts, all done" ) );
}

/// The cause is set up before anything is taken, and the reader runs before its counters are.
TEST_F( DrainWatchSmLoaderTest, hasTheCauseAndTheCountersBeforeTheirReadersAreMade ) {
   const Wire::EthIntfId et1( "et1" );
   world.pool->intfCountersIs( et1, 100, Cog::MaybeU63( 200 ) );
   struct Seen {
      const PluginStore & world;
      Vel::String atFirst = "nothing";
      bool counters = false;
   } seen{ world };
   struct VelLoader final : Vel::ReactorTo< Seen, DrainWatchSmLoader > {
      using ReactorTo::ReactorTo;
      void onEthIntfCounterWriterStatusDir() override {
         sm()->atFirst =
            sm()
               ->world.get< Errdisable::CauseStatus >( "interface/errdisable/cause/maintenance-shutdown" )
               ->causeGroupName();
      }
      void onPhyCounterDir() override {
         sm()->counters = entity()->phyCounterDir()->intfCounterDir( Wire::EthIntfId( "et1" ) );
      }
   };
   Vel::Watch< VelLoader > watch;
   watch.is( loader, &seen ).hasNotificationActiveIs( true );
   load();
   EXPECT_EQ( "maintenance-shutdown", seen.atFirst );
   EXPECT_TRUE( seen.counters );
}

/// Who asks the context for a dump finds a dumper that knows its loader.
TEST_F( DrainWatchSmLoaderTest, theContextIsKnownBeforeTheDumperIsMade ) {
   struct Seen {
      bool context = false;
   } seen;
   struct VelLoader final : Vel::ReactorTo< Seen, DrainWatchSmLoader > {
      using ReactorTo::ReactorTo;
      void onPluginInfoDumper() override { sm()->context = bool( entity()->context() ); }
   };
   Vel::Watch< VelLoader > watch;
   watch.is( loader, &seen ).hasNotificationActiveIs( true );
   loader->init( world.context );
   EXPECT_TRUE( seen.context );
}

TEST_F( DrainWatchSmLoaderTest, mayMountOneEntityTwice ) {
   const auto mounts = DrainWatchSmLoader::mounts();
   ASSERT_EQ( mounts[6].path, mounts[15].path );
   load();
   EXPECT_EQ(
      world.get< Maintenance::MaintenanceGroup::ConfigDir >( mounts[6].path ),
      loader->drainWatchSm()->maintenanceGroupDir() );
}

TEST_F( DrainWatchSmLoaderTest, switchesTheRootOn ) {
   load();
   EXPECT_EQ( 1u, loader->intfProfileStatusDir()->velReactors() );
}

TEST_F( DrainWatchSmLoaderTest, readsTheCounterPool ) {
   const Wire::EthIntfId et1( "et1" );
   world.pool->intfCountersIs( et1, 100, Cog::MaybeU63( 200 ) );
   load();
   ASSERT_TRUE( loader->phyCounterDir()->intfCounterDir( et1 ) );
   EXPECT_EQ(
      100u, loader->phyCounterDir()->intfCounterDir( et1 )->counter( "current" )->statistics().inOctets );
   EXPECT_EQ(
      world.get< Vel::Dir >( "interface/ethIntfCounter/writerStatus" ),
      loader->ethIntfCounterReaderSm()->writerStatusDir() );
}

/// What an earlier run has shut stays shut until the root has looked at it.
TEST_F( DrainWatchSmLoaderTest, keepsTheShutdownsOfAnEarlierRun ) {
   const Vel::String path = "interface/errdisable/cause/maintenance-shutdown";
   world.put< Errdisable::CauseStatus >( path, "maintenance-shutdown" );
   const auto cause = world.get< Errdisable::CauseStatus >( path );
   cause->intfStatusIs( Wire::EthIntfId( "et1" ), 5.0 );
   loader->initErrdisableEntity( world.store );
   EXPECT_EQ( cause, world.get< Errdisable::CauseStatus >( path ) );
   ASSERT_TRUE( cause->intfStatus( Wire::EthIntfId( "et1" ) ) );
   EXPECT_EQ( 5.0, *cause->intfStatus( Wire::EthIntfId( "et1" ) ) );
}

TEST_F( DrainWatchSmLoaderTest, setsTheCauseUp ) {
   load();
   const auto status =
      world.get< Errdisable::CauseStatus >( "interface/errdisable/cause/maintenance-shutdown" );
   const auto group =
      world.get< Errdisable::CauseGroup >( "interface/errdisable/causegroup/maintenance-shutdown" );
   ASSERT_TRUE( status );
   ASSERT_TRUE( group );
   EXPECT_EQ( "maintenance-shutdown", status->causeGroupName() );
   EXPECT_EQ( "maintenance-shutdown", group->causeName() );
   EXPECT_EQ( "Interface has been shut down for maintenance.", group->description() );
   EXPECT_EQ( "maint-down", group->statusText() );
   EXPECT_EQ( 1u, static_cast< unsigned >( group->type() ) );
   EXPECT_EQ( 0u, static_cast< unsigned >( group->priority() ) );
   EXPECT_FALSE( group->configurable() );
   EXPECT_FALSE( group->recoveryEnabled() );
   EXPECT_TRUE( group->detectionEnabled() );
   EXPECT_TRUE( group->linkDown() );
   EXPECT_TRUE( group->visible() );
}

TEST_F( DrainWatchSmLoaderTest, withoutTheCauseThereIsNoWayOn ) {
   const auto empty = Vel::make< Ledger::EntityManager >( []( std::function< void() > ) {} );
   loader->contextIs( world.context );
   Vel::AssertionsThrow assertionsThrow;
   try {
      loader->doMountsComplete( Ledger::mountSuccess_, empty );
      FAIL();
   } catch ( const Vel::AssertionFailed & failure ) {
      EXPECT_STREQ( "msCause && \" errdisable cause maintenance-shutdown is NULL \"", failure.what() );
   }
   EXPECT_FALSE( loader->drainWatchSm() );
}

TEST_F( DrainWatchSmLoaderTest, buildsTheRootWithoutWhatIsAbsent ) {
   std::vector< Vel::String > paths{ "interface/status/all" };
   for ( const Ledger::Mount & mount : DrainWatchSmLoader::mounts() )
      if ( mount.mode != "wc" )
         paths.push_back( mount.path );
   for ( const Vel::String & path : paths ) {
      SCOPED_TRACE( path );
      PluginStore other;
      ASSERT_TRUE( other.store->entityDel( path ) );
      const auto otherLoader = Vel::make< DrainWatchSmLoader >( "drainWatchPlugin" );
      otherLoader->init( other.context );
      other.settle();
      ASSERT_TRUE( otherLoader->drainWatchSm() );
      EXPECT_TRUE( otherLoader->drainWatchSm()->initialized() );
      EXPECT_FALSE( other.store->getEntity( path ) );
   }
   world.store->entityDel( "interface/status/all" );
   load();
   EXPECT_FALSE( loader->drainWatchSm()->allIntfStatusDir() );
   EXPECT_TRUE( loader->drainWatchSm()->lagConfigDir() );
}

TEST_F( DrainWatchSmLoaderTest, takesAnUnmountedEntityOfAnotherTypeForAbsent ) {
   world.put< Lag::Config >( "interface/status/all" );
   load();
   ASSERT_TRUE( loader->drainWatchSm() );
   EXPECT_FALSE( loader->drainWatchSm()->allIntfStatusDir() );
}

TEST_F( DrainWatchSmLoaderTest, aSecondCompletionKeepsEverything ) {
   load();
   const auto root = loader->drainWatchSm();
   const auto reader = loader->ethIntfCounterReaderSm();
   const auto dumper = loader->pluginInfoDumper();
   root->errDisableCauseStatus()->intfStatusIs( Wire::EthIntfId( "et1" ), 5.0 );
   load();
   EXPECT_EQ( root, loader->drainWatchSm() );
   EXPECT_EQ( reader, loader->ethIntfCounterReaderSm() );
   EXPECT_EQ( dumper, loader->pluginInfoDumper() );
   EXPECT_TRUE( root->errDisableCauseStatus()->intfStatus( Wire::EthIntfId( "et1" ) ) );
   EXPECT_EQ( 1u, loader->intfProfileStatusDir()->velReactors() );
}

TEST_F( DrainWatchSmLoaderTest, aMountThatComesLaterGivesANewRoot ) {
   world.store->entityDel( "interface/status/all" );
   load();
   const DrainWatchSm * const first = loader->drainWatchSm().get();
   EXPECT_FALSE( first->allIntfStatusDir() );
   world.put< Interface::AllIntfStatusDir >( "interface/status/all" );
   load();
   EXPECT_TRUE( loader->drainWatchSm()->allIntfStatusDir() );
   EXPECT_EQ( 1u, loader->intfProfileStatusDir()->velReactors() );
}

TEST_F( DrainWatchSmLoaderTest, aDirectoryOfWritersThatComesLaterGivesAReaderThatReads ) {
   const Wire::EthIntfId et1( "et1" );
   const Vel::String path = "interface/ethIntfCounter/writerStatus";
   world.store->entityDel( path );
   world.pool->intfCountersIs( et1, 100, Cog::MaybeU63( 200 ) );
   load();
   const auto first = loader->ethIntfCounterReaderSm();
   world.put< Vel::Dir >( path );
   load();
   EXPECT_NE( first, loader->ethIntfCounterReaderSm() );
   EXPECT_EQ(
      loader->ethIntfCounterReaderSm()->allEthIntfCounterPtrDir(), loader->drainWatchSm()->phyCounterDir() );
   EXPECT_TRUE( loader->drainWatchSm()->phyCounterDir()->intfCounterDir( et1 ) );
}

// ---- the dump

TEST_F( DrainWatchSmLoaderTest, answersTheContextsDump ) {
   load();
   EXPECT_EQ(
      "Drain Watch information\n" +
         PluginRig::written( [&]( int fd ) { loader->drainWatchSm()->dump( fd, 0 ); } ),
      dumped() );
}

// ---- the owned children

TEST_F( DrainWatchSmLoaderTest, replacesAChildThatWasBuiltFromOtherArguments ) {
   load();
   const auto dumper = loader->pluginInfoDumper();
   EXPECT_EQ( dumper, loader->pluginInfoDumperIs( "DrainWatchPlugin" ) );
   EXPECT_NE( dumper, loader->pluginInfoDumperIs( "other" ) );
   EXPECT_EQ( "other", loader->pluginInfoDumper()->name() );

   const auto reader = loader->ethIntfCounterReaderSm();
   const auto dir = loader->ethIntfCounterWriterStatusDir();
   EXPECT_EQ( reader, loader->ethIntfCounterReaderSmIs( world.pool, dir ) );
   EXPECT_NE( reader, loader->ethIntfCounterReaderSmIs( world.pool, nullptr ) );
   const auto withoutWriters = loader->ethIntfCounterReaderSm();
   EXPECT_NE(
      withoutWriters, loader->ethIntfCounterReaderSmIs( Vel::make< VelPool::EntityManager >(), nullptr ) );
}

/// All inputs of the root in their order.
auto inputsOf( const DrainWatchSm & root ) {
   return std::make_tuple(
      root.phyCounterDir(), root.lagConfigDir(), root.vlanStatusDir(), root.allIntfStatusDir(),
      root.unitStatusDir(), root.maintenanceGroupDir(), root.intfGroupStatusDir(),
      root.intfProfileStatusDir(), root.intfToGroupDir(), root.groupToUnitDir(), root.errDisableCauseStatus(),
      root.monIntfStatusDir(), root.defaultIntfProfile(), root.maintEnterCompletionStatus(),
      root.maintExitCompletionStatus(), root.maintEnterAgentConfig(), root.maintExitAgentConfig(),
      root.maintEnterAgentStatus(), root.maintExitAgentStatus(), root.maintEnterProgressDir(),
      root.maintExitProgressDir() );
}

template < std::size_t index = 0, class Inputs >
void eachInputMatters( DrainWatchSmLoader & loader, const Inputs & inputs ) {
   if constexpr ( index < std::tuple_size_v< Inputs > ) {
      SCOPED_TRACE( index );
      const auto rootFrom = [&]( const auto &... input ) {
         const auto root = loader.drainWatchSmIs( input... );
         EXPECT_TRUE( root );
         EXPECT_EQ( loader.drainWatchSm(), root );
      };
      std::apply( rootFrom, inputs );
      unsigned notified = 0;
      struct VelLoader final : Vel::ReactorTo< unsigned, DrainWatchSmLoader > {
         using ReactorTo::ReactorTo;
         void onDrainWatchSm() override { ++*sm(); }
      };
      Vel::Watch< VelLoader > watch;
      watch.is( &loader, &notified ).hasNotificationActiveIs( true );
      std::apply( rootFrom, inputs );
      EXPECT_EQ( 0u, notified );
      Inputs other = inputs;
      std::get< index >( other ) = nullptr;
      std::apply( rootFrom, other );
      // The old root goes before the new one comes.
      EXPECT_EQ( 2u, notified );
      EXPECT_FALSE( std::get< index >( inputsOf( *loader.drainWatchSm() ) ) );
      eachInputMatters< index + 1 >( loader, inputs );
   }
}

TEST_F( DrainWatchSmLoaderTest, replacesTheRootForEachInputThatDiffers ) {
   load();
   eachInputMatters( *loader, inputsOf( *loader->drainWatchSm() ) );
}

TEST_F( DrainWatchSmLoaderTest, takesEachStepOnceInItsOrderAndTellsOfNothingThatIsUnchanged ) {
   const Vel::String causePath = "interface/errdisable/cause/maintenance-shutdown";
   world.put< Errdisable::CauseStatus >( causePath, "maintenance-shutdown" );
   Sequence seen( "DrainWatchSmLoader" );
   struct VelCause final : Vel::ReactorTo< Sequence, Errdisable::CauseStatus > {
      using ReactorTo::ReactorTo;
      void onCauseGroupName() override { sm()->note( "the cause is set up" ); }
   };
   struct VelLoader final : Vel::ReactorTo< Sequence, DrainWatchSmLoader > {
      using ReactorTo::ReactorTo;
      void add( const char * name ) { sm()->note( name ); }
      void onEthIntfCounterWriterStatusDir() override { add( "ethIntfCounterWriterStatusDir" ); }
      void onEthIntfCounterReaderSm() override { add( "ethIntfCounterReaderSm" ); }
      void onPhyCounterDir() override { add( "phyCounterDir" ); }
      void onLagConfigDir() override { add( "lagConfigDir" ); }
      void onVlanStatusDir() override { add( "vlanStatusDir" ); }
      void onAllIntfStatusDir() override { add( "allIntfStatusDir" ); }
      void onUnitStatusDir() override { add( "unitStatusDir" ); }
      void onMaintenanceGroupDir() override { add( "maintenanceGroupDir" ); }
      void onIntfGroupStatusDir() override { add( "intfGroupStatusDir" ); }
      void onIntfProfileStatusDir() override { add( "intfProfileStatusDir" ); }
      void onIntfToGroupDir() override { add( "intfToGroupDir" ); }
      void onGroupToUnitDir() override { add( "groupToUnitDir" ); }
      void onErrDisableCauseStatus() override { add( "errDisableCauseStatus" ); }
      void onMonIntfStatusDir() override { add( "monIntfStatusDir" ); }
      void onDefaultIntfProfile() override { add( "defaultIntfProfile" ); }
      void onMaintEnterCompletionStatus() override { add( "maintEnterCompletionStatus" ); }
      void onMaintExitCompletionStatus() override { add( "maintExitCompletionStatus" ); }
      void onMaintEnterProgressDir() override { add( "maintEnterProgressDir" ); }
      void onMaintExitProgressDir() override { add( "maintExitProgressDir" ); }
      void onMaintEnterAgentConfig() override { add( "maintEnterAgentConfig" ); }
      void onMaintExitAgentConfig() override { add( "maintExitAgentConfig" ); }
      void onMaintEnterAgentStatus() override { add( "maintEnterAgentStatus" ); }
      void onMaintExitAgentStatus() override { add( "maintExitAgentStatus" ); }
      void onDrainWatchSm() override { add( "drainWatchSm" ); }
      void onPluginInfoDumper() override { add( "pluginInfoDumper" ); }
      void onContext() override { add( "context" ); }
   };
   Vel::Watch< VelLoader > watch;
   watch.is( loader, &seen ).hasNotificationActiveIs( true );
   Vel::Watch< VelCause > cause;
   cause.is( world.get< Errdisable::CauseStatus >( causePath ), &seen ).hasNotificationActiveIs( true );
   load();
   const Lines expected{
      "DrainWatchSmLoader::init",
      "context",
      "pluginInfoDumper",
      "DrainWatchSmLoader::init - completed all doMounts",
      "DrainWatchSmLoader::doMountsComplete",
      "DrainWatchSmLoader::initErrdisableEntity",
      "the cause is set up",
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
      "DrainWatchSmLoader::doMountsComplete - done" };
   EXPECT_EQ( expected, seen.lines() );
   const Lines logged{
      "DrainWatchSmLoader - init", "DrainWatchSmLoader::init - completed all doMounts",
      "DrainWatchSmLoader - doMountsComplete", "DrainWatchSmLoader::doMountsComplete - done" };
   EXPECT_EQ( logged, seen.logged() );
   seen.clear();
   load();
   EXPECT_EQ(
      ( Lines{
         "DrainWatchSmLoader::init", "DrainWatchSmLoader::init - completed all doMounts",
         "DrainWatchSmLoader::doMountsComplete", "DrainWatchSmLoader::initErrdisableEntity",
         "DrainWatchSmLoader::doMountsComplete - done" } ),
      seen.lines() );
   watch.del();
}

// ---- release

TEST_F( DrainWatchSmLoaderTest, releasesTheReaderThenTheRootThenTheDumper ) {
   load();
   Sequence seen( "DrainWatchSmLoader" );
   struct VelLoader final : Vel::ReactorTo< Sequence, DrainWatchSmLoader > {
      using ReactorTo::ReactorTo;
      void onEthIntfCounterReaderSm() override { sm()->note( "reader" ); }
      void onDrainWatchSm() override { sm()->note( "root" ); }
      void onPluginInfoDumper() override { sm()->note( "dumper" ); }
      void onContext() override { sm()->note( "context" ); }
   };
   Vel::Watch< VelLoader > watch;
   watch.is( loader, &seen ).hasNotificationActiveIs( true );
   // A reactor holds what it watches; without that reference it sees the loader go.
   loader->velUnref();
   loader = nullptr;
   const Vel::String called = "void MaintenanceMode::DrainWatchSmLoader::prepareToDie(): called";
   EXPECT_EQ( ( Lines{ called, "reader", "root", "dumper" } ), seen.lines() );
   EXPECT_TRUE( seen.traced( called, 4 ) );
   EXPECT_FALSE( world.context->dumpPluginInfo( "DrainWatchPlugin" ) );
   EXPECT_EQ( 0u, world.pool->velReactors() );
   EXPECT_EQ( "", dumped() );
}

} // namespace
} // namespace MaintenanceMode
