#include "Config/ErrorRowsTest.h"

namespace {

Config::Result load( const std::string & name ) { return Config::load( CONFIG_EXAMPLES "/" + name ); }

TEST( Examples, areGood ) {
   for ( const char * name : { "maintd.yaml", "simulated.yaml" } ) {
      EXPECT_EQ( std::vector< std::string >(), textsOf( load( name ) ) );
      EXPECT_EQ( std::vector< std::string >(), warningsOf( load( name ) ) );
   }
}

TEST( Examples, statesTheDefaults ) {
   const Config::Result result = load( "maintd.yaml" );
   ASSERT_TRUE( result );
   const Config::Configuration defaults;
   EXPECT_EQ( defaults.switchKind, result.configuration->switchKind );
   EXPECT_EQ( defaults.web, result.configuration->web );
   EXPECT_EQ( defaults.settle, result.configuration->settle );
   EXPECT_EQ( defaults.enter, result.configuration->enter );
   EXPECT_EQ( defaults.exit, result.configuration->exit );
}

TEST( Examples, describesASimulatedSwitchThatItsGroupsUse ) {
   const Config::Result result = load( "simulated.yaml" );
   ASSERT_TRUE( result );
   EXPECT_EQ( Config::SwitchKind::simulated, result.configuration->switchKind );
   EXPECT_EQ( 4u, result.configuration->simulated.ports.size() );
   EXPECT_TRUE( result.configuration->simulated.vlans.count( 10 ) );
}

} // namespace
