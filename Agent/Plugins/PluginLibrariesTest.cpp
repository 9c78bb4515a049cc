#include "Agent/Plugins/PluginLibraries.h"

#include <gtest/gtest.h>

namespace {

using Agent::PluginLibraries;

class PluginLibrariesStory : public ::testing::Test {
 protected:
   std::string load( const std::string & file, const std::string & name ) {
      const auto problem = libraries.load( name, TEST_PLUGINS + file, context.get() );
      EXPECT_EQ( problem.has_value(), libraries.problem( name ).has_value() );
      return problem ? problem->message : "";
   }
   Vel::Ptr< Maintenance::PluginContext > context = Vel::make< Maintenance::PluginContext >(
      Vel::make< Ledger::EntityManager >( []( std::function< void() > ) {} ),
      Vel::make< VelPool::EntityManager >() );
   PluginLibraries libraries{ Maintenance::DefaultPluginLoader() };
};

TEST_F( PluginLibrariesStory, beginsTheWorkOfAPlugin ) {
   EXPECT_EQ( "", load( "PluginForGOODTest.so", "TestGOOD" ) );
   const auto * plugin = Maintenance::DefaultPluginLoader().plugin( "TestGOOD" );
   ASSERT_NE( nullptr, plugin );
   EXPECT_TRUE( plugin->initialized );
}

TEST_F( PluginLibrariesStory, namesAFileThatIsMissing ) {
   EXPECT_EQ(
      "plug-in " TEST_PLUGINS "nothing.so: No such file or directory", load( "nothing.so", "TestMissing" ) );
}

TEST_F( PluginLibrariesStory, refusesAFileThatIsNoPlugin ) {
   EXPECT_EQ(
      "plug-in " TEST_PLUGINS "CTestTestfile.cmake: it is not a plug-in for this agent",
      load( "CTestTestfile.cmake", "TestNone" ) );
}

TEST_F( PluginLibrariesStory, refusesAnotherInterfaceWithoutRunningItsCode ) {
   EXPECT_EQ(
      "plug-in " TEST_PLUGINS "PluginForOTHERTest.so: it was built for interface 999999, this agent has 1",
      load( "PluginForOTHERTest.so", "TestOTHER" ) );
   EXPECT_EQ( nullptr, Maintenance::DefaultPluginLoader().plugin( "TestOTHER" ) );
}

TEST_F( PluginLibrariesStory, refusesOtherHeadersOfTheSameInterfaceWithoutRunningItsCode ) {
   EXPECT_EQ(
      "plug-in " TEST_PLUGINS
      "PluginForSTALETest.so: it was built with other headers than this agent, although for "
      "the same interface; build it again",
      load( "PluginForSTALETest.so", "TestSTALE" ) );
   EXPECT_EQ( nullptr, Maintenance::DefaultPluginLoader().plugin( "TestSTALE" ) );
}

TEST( PluginHeaders, areThoseBehindTheNumber ) {
   EXPECT_EQ( "0a1b", Agent::pluginHeaders( "xmaintd plug-in interface 12, headers 0a1b." ) );
   EXPECT_EQ( "0a1b", Agent::pluginHeaders( "maintd plug-in interface 12, headers 0a1b" ) );
   for ( const char * none :
         { "", "maintd plug-in interface 12", "maintd plug-in interface 12.", "headers 0a1b",
           "maintd plug-in interface 12, headers " } ) {
      SCOPED_TRACE( none );
      EXPECT_EQ( "", Agent::pluginHeaders( none ) );
   }
}

TEST_F( PluginLibrariesStory, saysWhatCannotBeResolved ) {
   EXPECT_NE(
      std::string::npos, load( "PluginForUNRESOLVEDTest.so", "TestUNRESOLVED" ).find( "nobodyDefinesThis" ) );
}

TEST_F( PluginLibrariesStory, closesAPluginThatRefuses ) {
   EXPECT_EQ(
      "plug-in " TEST_PLUGINS "PluginForREFUSINGTest.so: not today",
      load( "PluginForREFUSINGTest.so", "TestREFUSING" ) );
   EXPECT_EQ( nullptr, Maintenance::DefaultPluginLoader().plugin( "TestREFUSING" ) );
}

TEST_F( PluginLibrariesStory, refusesALibraryWithAnotherPlugin ) {
   const auto problem = libraries.load( "Missing", TEST_PLUGINS "PluginForUNNAMEDTest.so", context.get() );
   ASSERT_TRUE( problem );
   EXPECT_EQ(
      "plug-in " TEST_PLUGINS "PluginForUNNAMEDTest.so: it does not contain Missing", problem->message );
}

TEST_F( PluginLibrariesStory, loadsWhateverElseIsAPluginInAFolder ) {
   libraries.loadOthers( TEST_PLUGINS, "PluginForGOODTest.so", context.get() );
   std::map< std::string, std::string > found;
   for ( const auto & [file, problem] : libraries.others() )
      found[file] = problem ? problem->message : "";
   ASSERT_EQ( 5u, found.size() );
   EXPECT_NE( std::string::npos, found["PluginForSTALETest.so"].find( "other headers" ) );
   EXPECT_NE( std::string::npos, found["PluginForOTHERTest.so"].find( "interface 999999" ) );
   EXPECT_NE( std::string::npos, found["PluginForREFUSINGTest.so"].find( "not today" ) );
   EXPECT_NE( std::string::npos, found["PluginForUNRESOLVEDTest.so"].find( "nobodyDefinesThis" ) );
   EXPECT_EQ( "", found["PluginForUNNAMEDTest.so"] );
   const auto * plugin = Maintenance::DefaultPluginLoader().plugin( "TestUNNAMED" );
   ASSERT_NE( nullptr, plugin );
   EXPECT_TRUE( plugin->initialized );
   libraries.close();
   EXPECT_TRUE( libraries.others().empty() );
}

TEST_F( PluginLibrariesStory, findsNoOtherPluginWhereThereIsNoFolder ) {
   libraries.loadOthers( TEST_PLUGINS "missing", "", context.get() );
   EXPECT_TRUE( libraries.others().empty() );
}

TEST_F( PluginLibrariesStory, knowsNothingOfAPluginThatWasNeverLoaded ) {
   EXPECT_EQ( "plug-in Missing is not loaded", libraries.problem( "Missing" )->message );
}

} // namespace
