#include "Platform/Maintenance/PluginLoader.h"
#include "Platform/Maintenance/PluginContext.h"

#include <gtest/gtest.h>

namespace {

using Maintenance::InitCaller;

struct Plugin final : Maintenance::PluginBase< Maintenance::PluginContext > {
   Plugin() = default;
   Plugin( Maintenance::PluginLoader & loader, const Vel::String & name ) {
      loader.registerPlugin( name, loader.name(), "", "", InitCaller( this ) );
   }
   void init( Maintenance::PluginContext * context ) override {
      if ( onInit )
         onInit();
      contexts.push_back( context );
   }
   std::vector< Maintenance::PluginContext * > contexts;
   std::function< void() > onInit;
};

struct PluginLoader : testing::Test {
   Maintenance::PluginLoader loader{ "test" };
   Vel::Ptr< Maintenance::PluginContext > context = Vel::make< Maintenance::PluginContext >(
      Vel::make< Ledger::EntityManager >( []( std::function< void() > ) {} ),
      Vel::make< VelPool::EntityManager >() );

   std::vector< Maintenance::PluginLoader::Failure > init() { return loader.initPlugins( context.get() ); }
};

TEST_F( PluginLoader, theDefaultOneTakesPluginsUnderTheNameItHolds ) {
   Maintenance::PluginLoader & byDefault = Maintenance::DefaultPluginLoader();
   {
      Plugin plugin;
      byDefault.registerPlugin( "p", byDefault.name(), "", "", InitCaller( &plugin ) );
      ASSERT_TRUE( byDefault.plugin( "p" ) );
      EXPECT_EQ( &plugin, byDefault.plugin( "p" )->initCaller.plugin() );
   }
   EXPECT_FALSE( byDefault.plugin( "p" ) );
}

TEST_F( PluginLoader, keepsWhatIsSaidAboutAPlugin ) {
   Plugin plugin;
   loader.registerPlugin( "p", "test", "watches paint dry", "1.2", InitCaller( &plugin ) );
   ASSERT_TRUE( loader.plugin( "p" ) );
   EXPECT_EQ( "watches paint dry", loader.plugin( "p" )->description );
   EXPECT_EQ( "1.2", loader.plugin( "p" )->version );
}

TEST_F( PluginLoader, registeringDoesNotInitialize ) {
   Plugin plugin( loader, "p" );
   EXPECT_TRUE( plugin.contexts.empty() );
   EXPECT_FALSE( loader.plugin( "p" )->initialized );
}

TEST_F( PluginLoader, initializesInTheOrderOfRegistrationAndEachOnce ) {
   Vel::String order;
   Plugin b( loader, "b" );
   Plugin a( loader, "a" );
   b.onInit = [&] { order += "b"; };
   a.onInit = [&] { order += "a"; };
   EXPECT_TRUE( init().empty() );
   Plugin c( loader, "c" );
   c.onInit = [&] { order += "c"; };
   EXPECT_TRUE( init().empty() );
   EXPECT_EQ( "bac", order );
   EXPECT_EQ( std::vector{ context.get() }, a.contexts );
   EXPECT_TRUE( loader.plugin( "c" )->initialized );
}

TEST_F( PluginLoader, forgetsAPluginThatIsDestroyed ) {
   Plugin stays( loader, "stays" );
   { Plugin goes( loader, "goes" ); }
   ASSERT_EQ( 1u, loader.plugins().size() );
   EXPECT_EQ( "stays", loader.plugins()[0].name );
   EXPECT_TRUE( init().empty() );
}

TEST_F( PluginLoader, aPluginMayComeBackUnderItsName ) {
   { Plugin first( loader, "p" ); }
   Plugin second( loader, "p" );
   init();
   EXPECT_EQ( 1u, second.contexts.size() );
}

TEST_F( PluginLoader, refusesANameOrAnObjectTwice ) {
   Plugin first( loader, "p" );
   Plugin second;
   EXPECT_THROW( loader.registerPlugin( "p", "test", "", "", InitCaller( &second ) ), Vel::NameInUse );
   EXPECT_THROW( loader.registerPlugin( "q", "test", "", "", InitCaller( &first ) ), Vel::NameInUse );
   ASSERT_EQ( 1u, loader.plugins().size() );
   EXPECT_EQ( &first, loader.plugins()[0].initCaller.plugin() );
}

TEST_F( PluginLoader, refusesAPluginThatMeansAnotherLoader ) {
   Plugin plugin;
   EXPECT_THROW( loader.registerPlugin( "p", "other", "", "", InitCaller( &plugin ) ), Vel::RangeError );
   EXPECT_THROW( loader.registerPlugin( "p", "", "", "", InitCaller( &plugin ) ), Vel::RangeError );
   EXPECT_THROW( loader.registerPlugin( "", "test", "", "", InitCaller( &plugin ) ), Vel::RangeError );
   EXPECT_THROW( loader.registerPlugin( "p", "test", "", "", InitCaller( nullptr ) ), Vel::RangeError );
   EXPECT_TRUE( loader.plugins().empty() );
}

TEST_F( PluginLoader, namesThePluginThatRefusesAndGoesOn ) {
   Plugin refuses( loader, "refuses" );
   Plugin works( loader, "works" );
   refuses.onInit = [] { throw Vel::InternalException( "no paint" ); };
   const auto failures = init();
   ASSERT_EQ( 1u, failures.size() );
   EXPECT_EQ( "refuses", failures[0].name );
   EXPECT_EQ( "no paint", failures[0].text );
   EXPECT_FALSE( loader.plugin( "refuses" )->initialized );
   EXPECT_TRUE( loader.plugin( "works" )->initialized );
}

TEST_F( PluginLoader, triesAPluginThatHasRefusedAgain ) {
   Plugin plugin( loader, "p" );
   plugin.onInit = [] { throw Vel::InternalException( "no paint" ); };
   EXPECT_EQ( 1u, init().size() );
   plugin.onInit = nullptr;
   EXPECT_TRUE( init().empty() );
   EXPECT_EQ( 1u, plugin.contexts.size() );
}

TEST_F( PluginLoader, letsAFailedAssertionPass ) {
   Vel::AssertionsThrow assertionsThrow;
   Plugin plugin( loader, "p" );
   plugin.onInit = [] { VEL_ASSERT( false, "false" ); };
   EXPECT_THROW( init(), Vel::AssertionFailed );
}

TEST_F( PluginLoader, pluginsMayComeAndGoWhileOthersInitialize ) {
   auto goes = std::make_unique< Plugin >();
   std::unique_ptr< Plugin > comes;
   Plugin first( loader, "first" );
   loader.registerPlugin( "goes", "test", "", "", InitCaller( goes.get() ) );
   first.onInit = [&] {
      goes = nullptr;
      comes = std::make_unique< Plugin >( loader, "comes" );
   };
   EXPECT_TRUE( init().empty() );
   EXPECT_TRUE( loader.plugin( "first" )->initialized );
   EXPECT_FALSE( loader.plugin( "comes" )->initialized );
   EXPECT_TRUE( init().empty() );
   EXPECT_EQ( 1u, comes->contexts.size() );
}

TEST_F( PluginLoader, aPluginMayOutliveItsLoader ) {
   auto other = std::make_unique< Maintenance::PluginLoader >( "other" );
   Plugin plugin( *other, "p" );
   other = nullptr;
}

} // namespace
