#include "Config/Files.h"
#include "Config/Load.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace {

/// A folder of its own for each test.
struct SystemFiles : testing::Test {
   std::string folder = testing::TempDir() + "configXXXXXX";
   Config::SystemFiles files;

   SystemFiles() { EXPECT_NE( nullptr, mkdtemp( folder.data() ) ); }
   ~SystemFiles() override { std::filesystem::remove_all( folder ); }
   std::string write( const std::string & name, const std::string & content ) {
      const std::string path = folder + "/" + name;
      std::filesystem::create_directories( std::filesystem::path( path ).parent_path() );
      std::ofstream( path, std::ios::binary ) << content;
      return path;
   }
};

TEST_F( SystemFiles, readsAFile ) {
   const std::string content( "a\0b\r\n", 5 );
   EXPECT_EQ( content, files.read( write( "f", content ) ).value );
   EXPECT_EQ( "", files.read( write( "empty", "" ) ).value );
}

TEST_F( SystemFiles, readsNotMuchMoreThanIsAllowed ) {
   const Config::Parsed< std::string > text =
      files.read( write( "f", std::string( 3 * Config::maxFileSize, 'x' ) ) );
   ASSERT_TRUE( text );
   EXPECT_EQ( Config::maxFileSize + 1, text.value->size() );
}

TEST_F( SystemFiles, saysWhyAFileCannotBeRead ) {
   EXPECT_EQ( "the file cannot be read: No such file or directory", files.read( folder + "/none" ).error );
   EXPECT_EQ( "the file cannot be read: Is a directory", files.read( folder ).error );
}

TEST_F( SystemFiles, doesNotWaitForAPipe ) {
   const std::string path = folder + "/pipe";
   ASSERT_EQ( 0, mkfifo( path.c_str(), 0600 ) );
   EXPECT_EQ( "the file cannot be read: it is not a regular file", files.read( path ).error );
}

TEST_F( SystemFiles, listsAFolder ) {
   write( "d/b", "" );
   write( "d/a", "" );
   Config::Parsed< std::vector< std::string > > names = files.list( folder + "/d" );
   ASSERT_TRUE( names );
   std::sort( names.value->begin(), names.value->end() );
   EXPECT_EQ( ( std::vector< std::string >{ "a", "b" } ), names.value );
}

TEST_F( SystemFiles, listsNothingWhereThereIsNoFolder ) {
   const Config::Parsed< std::vector< std::string > > names = files.list( folder + "/none" );
   ASSERT_TRUE( names );
   EXPECT_TRUE( names.value->empty() );
   EXPECT_FALSE( files.list( write( "file", "" ) ) );
}

TEST_F( SystemFiles, areWhereAConfigurationIsLoadedFrom ) {
   const std::string path = write( "m.yaml", "version: 1\ndefault-profile: p\n" );
   write( "maintd.d/p.yaml", "profiles: {p: {threshold: 1bps, load-interval: 1s}}\n" );
   EXPECT_TRUE( Config::load( path ) );
}

} // namespace
