#include "Maintctl/RigTest.h"
#include "Platform/FastLog/FastLog.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace Maintctl {

namespace {

/// The log of this process is in a file; back in memory at the end.
class ShowFastLogTest : public testing::Test {
 protected:
   void SetUp() override {
      std::string name = ( std::filesystem::temp_directory_path() / "maintctl-XXXXXX" ).string();
      ASSERT_NE( mkdtemp( name.data() ), nullptr );
      folder = name;
      FastLog::memoryIs( 8192 );
      FastLog::fileIs( folder + "/fastlog", 8192 );
      FastLog::timeIs( 1700000000.25 );
      FASTLOG( "unit ", std::string( "a" ), " has ", 5U, " interfaces" );
      FASTLOG( "second\n" );
   }
   void TearDown() override {
      FastLog::memoryIs( 8192 );
      std::filesystem::remove_all( folder );
   }

   Rig rig;
   std::string folder;
};

TEST_F( ShowFastLogTest, givesTheLinesOfTheLogBesideTheSocket ) {
   rig.client.reachableIs( false );
   EXPECT_EQ( rig.run( { "fastlog", "--socket", folder + "/control.sock" } ), ExitStatus::done );
   const auto lines = linesOf( rig.out );
   ASSERT_GE( lines.size(), 2 );
   const std::string & first = lines[lines.size() - 2];
   EXPECT_NE( first.find( " 1700000000.250 Maintctl/ShowFastLogTest.cpp:" ), std::string::npos ) << first;
   EXPECT_TRUE( first.ends_with( ": unit a has 5 interfaces" ) ) << first;
   EXPECT_TRUE( lines.back().ends_with( ": second\\x0a" ) ) << lines.back();
}

TEST_F( ShowFastLogTest, givesTheLogThatTheAgentNames ) {
   rig.client.answers( "GET /api/v1/agent", R"({"fast-log":")" + folder + R"(/fastlog"})" );
   EXPECT_EQ( rig.run( { "fastlog", "--socket", "/elsewhere/control.sock" } ), ExitStatus::done );
   EXPECT_NE( rig.out.find( "unit a has 5 interfaces" ), std::string::npos );
}

TEST_F( ShowFastLogTest, givesOnlyTheNewestLines ) {
   EXPECT_EQ( rig.run( { "fastlog", "--file", folder + "/fastlog", "--last", "1" } ), ExitStatus::done );
   EXPECT_EQ( linesOf( rig.out ).size(), 1 );
   EXPECT_NE( rig.out.find( "second" ), std::string::npos );
}

TEST_F( ShowFastLogTest, givesTheLinesAsJson ) {
   EXPECT_EQ(
      rig.run( { "fastlog", "-j", "--file", folder + "/fastlog", "--last", "2" } ), ExitStatus::done );
   EXPECT_EQ( at( rig.out, "/0/text" ), "\"unit a has 5 interfaces\"" );
   EXPECT_EQ( at( rig.out, "/0/clock-seconds" ), "1700000000.25" );
   EXPECT_EQ( at( rig.out, "/0/kind" ), "\"event\"" );
   EXPECT_EQ( at( rig.out, "/0/file" ), "\"Maintctl/ShowFastLogTest.cpp\"" );
   EXPECT_EQ( at( rig.out, "/1/text" ), R"("second\n")" );
}

TEST_F( ShowFastLogTest, givesTheRunBefore ) {
   FastLog::memoryIs( 8192 );
   FastLog::fileIs( folder + "/fastlog", 8192 );
   FASTLOG( "third" );
   EXPECT_EQ( rig.run( { "fastlog", "--file", folder + "/fastlog", "--run", "1" } ), ExitStatus::done );
   EXPECT_NE( rig.out.find( "second" ), std::string::npos );
   EXPECT_EQ( rig.out.find( "third" ), std::string::npos );
}

TEST_F( ShowFastLogTest, saysThatNoEarlierRunIsKept ) {
   const std::string file = folder + "/fastlog";
   EXPECT_EQ( rig.run( { "fastlog", "--file", file, "--run", "3" } ), ExitStatus::failed );
   EXPECT_EQ( rig.err, "maintctl: " + file + ".3: no log of that run is kept\n" );
}

TEST_F( ShowFastLogTest, namesAFileThatIsNotThere ) {
   EXPECT_EQ( rig.run( { "fastlog", "--file", folder + "/none" } ), ExitStatus::failed );
   EXPECT_NE( rig.err.find( folder + "/none" ), std::string::npos );
   EXPECT_EQ( rig.run( { "fastlog", "-j", "--file", folder + "/none" } ), ExitStatus::failed );
   EXPECT_EQ( at( rig.out, "/error/code" ), "\"failed\"" );
}

} // namespace
} // namespace Maintctl
