#include "MaintenancePlugin/DrainWatchPluginInfoDumper.h"
#include "MaintenancePlugin/DrainWatchSmLoader.h"
#include "MaintenancePlugin/PluginRig.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

struct DumperTest : testing::Test {
   PluginRig rig;
   Vel::Ptr< DrainWatchPluginInfoDumper > dumper =
      Vel::make< DrainWatchPluginInfoDumper >( "DrainWatchPlugin" );
   Vel::String dumped() {
      return PluginRig::written( [&]( int fd ) { dumper->dump( static_cast< unsigned >( fd ) ); } );
   }
};

TEST_F( DumperTest, hasItsNameAndNoLoaderAtFirst ) {
   EXPECT_EQ( "DrainWatchPlugin", dumper->name() );
   EXPECT_FALSE( dumper->context() );
}

TEST_F( DumperTest, withoutALoaderWritesThatThereIsNone ) {
   EXPECT_EQ( "Drain Watch information\nDrainWatchSmLoader not initialized\n", dumped() );
}

TEST_F( DumperTest, withoutARootWritesTheHeaderOnly ) {
   const auto loader = Vel::make< DrainWatchSmLoader >( "drainWatchPlugin" );
   dumper->contextIs( loader.get() );
   EXPECT_EQ( "Drain Watch information\n", dumped() );
}

TEST_F( DumperTest, writesTheRootAtIndentZeroBelowTheHeader ) {
   const auto loader = Vel::make< DrainWatchSmLoader >( "drainWatchPlugin" );
   dumper->contextIs( loader.get() );
   const Vel::Ptr< const Stage::ProgressDir > noProgress;
   loader->drainWatchSmIs(
      rig.phyCounterDir, rig.lagConfig, rig.vlanStatusDir, rig.allIntfStatusDir, rig.unitStatusDir,
      rig.maintenanceGroupDir, rig.intfGroupStatusDir, rig.intfProfileStatusDir, rig.intfToGroupDir,
      rig.groupToUnitDir, rig.cause, rig.monIntfStatusDir, rig.defaultProfile, nullptr, nullptr, nullptr,
      nullptr, nullptr, nullptr, nullptr, nullptr );
   EXPECT_EQ(
      "Drain Watch information\n" +
         PluginRig::written( [&]( int fd ) { loader->drainWatchSm()->dump( fd, 0 ); } ),
      dumped() );
}

} // namespace
} // namespace MaintenanceMode
