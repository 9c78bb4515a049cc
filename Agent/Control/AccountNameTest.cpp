#include "Agent/Control/AccountName.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace Agent {

namespace {

class AccountNameTest : public testing::Test {
 protected:
   AccountNameTest() : file( ( std::filesystem::temp_directory_path() / "accountsXXXXXX" ).string() ) {
      const int descriptor = mkstemp( file.data() );
      EXPECT_GE( descriptor, 0 );
      close( descriptor );
   }
   ~AccountNameTest() override { std::filesystem::remove( file ); }
   void accountsAre( const std::string & text ) { std::ofstream( file ) << text; }
   std::string file;
};

TEST_F( AccountNameTest, isFoundByTheNumber ) {
   accountsAre( "root:x:0:0:root:/root:/bin/bash\nann:x:1001:1001:Ann,,,:/home/ann:/bin/sh\n" );
   EXPECT_EQ( "root", accountName( 0, file.c_str() ) );
   EXPECT_EQ( "ann", accountName( 1001, file.c_str() ) );
}

TEST_F( AccountNameTest, isTheNumberWhereThisMachineHasNoAccount ) {
   accountsAre( "root:x:0:0:root:/root:/bin/bash\n" );
   EXPECT_EQ( "uid 1001", accountName( 1001, file.c_str() ) );
   EXPECT_EQ( "uid 0", accountName( 0, ( file + "missing" ).c_str() ) );
}

TEST_F( AccountNameTest, isFoundBehindLinesThatAreNone ) {
   accountsAre( "nonsense\n\n# text\nann:x:1001\n+::::::\nbob:x:1002:1002::/:/bin/sh" );
   EXPECT_EQ( "bob", accountName( 1002, file.c_str() ) );
   EXPECT_EQ( "uid 1001", accountName( 1001, file.c_str() ) );
}

TEST_F( AccountNameTest, isAskedOfThisMachine ) { EXPECT_EQ( "root", accountName( 0 ) ); }

} // namespace

} // namespace Agent
