#include "Maintctl/Reaching.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace Maintctl {

namespace {

using std::filesystem::perms;

class ReachingTest : public testing::Test {
 protected:
   void SetUp() override {
      std::string name = ( std::filesystem::temp_directory_path() / "maintctl-XXXXXX" ).string();
      ASSERT_NE( mkdtemp( name.data() ), nullptr );
      folder = name;
      socket = folder + "/control.sock";
   }
   void TearDown() override { std::filesystem::remove_all( folder ); }

   static std::string group() {
      const auto * entry = getgrgid( getegid() );
      return entry ? entry->gr_name : std::to_string( getegid() );
   }
   static std::string user() {
      const auto * entry = getpwuid( geteuid() );
      return entry ? entry->pw_name : std::to_string( geteuid() );
   }

   std::string folder, socket;
};

TEST_F( ReachingTest, asksWhetherTheAgentRuns ) {
   for ( const int number : { ENOENT, ECONNREFUSED } )
      EXPECT_EQ( reachingHint( number, socket ), "is maintd running? --socket names another socket" );
}

TEST_F( ReachingTest, namesTheGroupOfTheSocket ) {
   std::ofstream( socket ).close();
   std::filesystem::permissions( socket, perms::owner_all | perms::group_write );
   EXPECT_EQ(
      reachingHint( EACCES, socket ),
      "it is for members of the group " + group() + ", and who has become one is so from the next login on" );
}

TEST_F( ReachingTest, namesTheUserOfASocketThatIsForNoGroup ) {
   std::ofstream( socket ).close();
   std::filesystem::permissions( socket, perms::owner_all | perms::group_read | perms::group_exec );
   EXPECT_EQ( reachingHint( EACCES, socket ), "it is for the user " + user() );
}

TEST_F( ReachingTest, looksAtTheFolderOfASocketThatCannotBeSeen ) {
   std::filesystem::permissions( folder, perms::owner_all | perms::group_exec );
   EXPECT_NE( reachingHint( EACCES, socket ).find( "members of the group " + group() ), std::string::npos );
   std::filesystem::permissions( folder, perms::owner_all );
   EXPECT_EQ( reachingHint( EACCES, socket ), "it is for the user " + user() );
}

TEST_F( ReachingTest, saysNothingWhereItKnowsNothing ) {
   EXPECT_EQ( reachingHint( EACCES, folder + "/none/control.sock" ), "" );
   EXPECT_EQ( reachingHint( ENAMETOOLONG, socket ), "" );
}

} // namespace

} // namespace Maintctl
