#include "MaintenancePlugin/DrainWatchPlugin.h"
#include "MaintenancePlugin/DrainWatchSmLoader.h"
#include "MaintenancePlugin/PluginStore.h"
#include "Platform/Maintenance/PluginLoader.h"
#include "Platform/Vel/Trace.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

Maintenance::PluginLoader & pluginLoader() { return Maintenance::DefaultPluginLoader(); }

TEST( DrainWatchPlugin, registersWithTheLoaderOfTheProcess ) {
   const auto * plugin = pluginLoader().plugin( "DrainWatchPlugin" );
   ASSERT_TRUE( plugin );
   EXPECT_EQ( "", plugin->description );
   EXPECT_EQ( "", plugin->version );
   EXPECT_TRUE( dynamic_cast< MaintenanceMode::DrainWatchPlugin * >( plugin->initCaller.plugin() ) );
}

TEST( DrainWatchPlugin, definesItsLogMessage ) {
   const auto & handle = MMODE_INTF_PROFILE_CHANGE;
   EXPECT_STREQ( "MMODE_INTF_PROFILE_CHANGE", handle.name() );
   EXPECT_EQ( 5u, static_cast< unsigned >( handle.severity() ) );
   EXPECT_STREQ( "For interface %s, interface profile changed to %s (was %s)", handle.format() );
   EXPECT_STREQ(
      "A different interface profile was picked based on precedence because the same same interface was part "
      "of "
      "multiple units.",
      handle.explanation() );
   EXPECT_STREQ( Vel::NoActionRequired, handle.recommendedAction() );
   EXPECT_EQ( 0.0, handle.minInterval() );
   EXPECT_EQ( 1.0, handle.share() );
   EXPECT_EQ( 0, handle.flags() );
   EXPECT_EQ( 1, std::count( Vel::LogHandle::all().begin(), Vel::LogHandle::all().end(), &handle ) );
}

TEST( DrainWatchPlugin, makesItsLoaderInTheContextsDirectory ) {
   PluginStore world;
   MaintenanceMode::DrainWatchPlugin & plugin = dynamic_cast< MaintenanceMode::DrainWatchPlugin & >(
      *pluginLoader().plugin( "DrainWatchPlugin" )->initCaller.plugin() );
   plugin.init( world.context.get() );
   const auto loader =
      Vel::ptrCast< DrainWatchSmLoader >( world.context->entityDir()->entityRef( "drainWatchPlugin" ) );
   ASSERT_TRUE( loader );
   EXPECT_EQ( "drainWatchPlugin", loader->name() );
   EXPECT_EQ( world.context, loader->context() );
   world.settle();
   EXPECT_TRUE( loader->drainWatchSm() );

   // Held by the directory, by the plug-in and here.
   EXPECT_EQ( 3u, loader->getRefCount() );
   // Another context: its loader replaces the first, which goes with its directory's entry.
   PluginStore other;
   plugin.init( other.context.get() );
   EXPECT_EQ( 2u, loader->getRefCount() );
   EXPECT_TRUE( loader->drainWatchSm() );
   world.context->entityDir()->entryDel( "drainWatchPlugin" );
   EXPECT_EQ( 1u, loader->getRefCount() );
}

TEST( DrainWatchPlugin, aSecondBeginInOneContextKeepsLoaderAndDumperAndMountsAgain ) {
   PluginStore world;
   auto & plugin = *pluginLoader().plugin( "DrainWatchPlugin" )->initCaller.plugin();
   const auto loader = [&] {
      return Vel::ptrCast< DrainWatchSmLoader >(
         world.context->entityDir()->entityRef( "drainWatchPlugin" ) );
   };
   plugin.init( world.context.get() );
   const auto first = loader();
   const auto dumper = first->pluginInfoDumper();
   Vel::TraceCapture traces;
   plugin.init( world.context.get() );
   EXPECT_EQ( first, loader() );
   EXPECT_EQ( dumper, first->pluginInfoDumper() );
   EXPECT_EQ( 3u, first->getRefCount() );
   world.settle();
   EXPECT_EQ( 2u, traces.count( "MountGroup::complete: drainWatchPlugin: 24 mounts, all done" ) );
   EXPECT_TRUE( first->drainWatchSm() );
}

/// Somebody takes the entry away while it is made.
TEST( DrainWatchPlugin, anEntryThatIsNotThereIsFatal ) {
   PluginStore world;
   struct VelDir final : Vel::ReactorTo< Vel::Dir, Vel::Dir > {
      using ReactorTo::ReactorTo;
      void onEntry( const Vel::Name & name ) override { sm()->entryDel( name ); }
   };
   Vel::Watch< VelDir > watch;
   watch.is( world.context->entityDir(), world.context->entityDir().get() ).hasNotificationActiveIs( true );
   auto & plugin = *pluginLoader().plugin( "DrainWatchPlugin" )->initCaller.plugin();
   Vel::AssertionsThrow assertionsThrow;
   try {
      plugin.init( world.context.get() );
      FAIL();
   } catch ( const Vel::AssertionFailed & failure ) {
      EXPECT_STREQ( "entityPtr", failure.what() );
   }
   watch.del();
}

TEST( DrainWatchPlugin, needsAContext ) {
   auto & plugin = *pluginLoader().plugin( "DrainWatchPlugin" )->initCaller.plugin();
   EXPECT_THROW( plugin.init( nullptr ), Vel::RangeError );
}

TEST( DrainWatchPlugin, refusesADirectoryThatHasAnotherEntryOfItsName ) {
   PluginStore world;
   world.context->entityDir()->entryIs( "drainWatchPlugin", "Vel::Dir" );
   auto & plugin = *pluginLoader().plugin( "DrainWatchPlugin" )->initCaller.plugin();
   EXPECT_THROW( plugin.init( world.context.get() ), Vel::NameInUse );
}

} // namespace
} // namespace MaintenanceMode
