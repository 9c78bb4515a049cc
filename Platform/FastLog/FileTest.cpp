#include "Platform/FastLog/ChildTest.h"
#include "Platform/FastLog/Reader.h"

#include <csignal>
#include <fstream>

using namespace FastLog;

namespace {

std::vector< std::string > texts( const std::string & path ) {
   const Contents contents = Reader( path ).read();
   EXPECT_EQ( contents.damage, std::vector< std::string >() );
   std::vector< std::string > out;
   for ( const Line & line : contents.lines )
      out.push_back( line.text );
   return out;
}

using Texts = std::vector< std::string >;

/// The error that the file is refused with.
std::string refusal( const std::string & path, std::size_t bytes = 8192 ) {
   try {
      fileIs( path, bytes );
   } catch ( const Error & error ) {
      return error.what();
   }
   return "none";
}

void writeFile( const std::string & path, const std::string & content ) { std::ofstream( path ) << content; }
std::string readFile( const std::string & path ) {
   std::ifstream file( path );
   return { std::istreambuf_iterator< char >( file ), {} };
}

} // namespace

TEST( FastLogFile, survivesAnAbort ) {
   const TempDir dir;
   const pid_t child = childStarted( [&] {
      fileIs( dir.file(), 64 * 1024 );
      timeIs( 1700000000.25 );
      const std::string intf = "Ethernet1/1";
      FASTLOG( "maint-down for intf ", intf );
      FASTLOG( "drained ", 3, " of ", 4u, ", rate ", 0.5 );
      std::abort();
   } );
   const int status = statusOf( child );
   ASSERT_TRUE( WIFSIGNALED( status ) && WTERMSIG( status ) == SIGABRT );

   EXPECT_EQ(
      texts( dir.file() ), ( Texts{ "maint-down for intf Ethernet1/1", "drained 3 of 4, rate 0.5" } ) );
   const Reader reader( dir.file() );
   EXPECT_EQ( reader.pid(), static_cast< unsigned >( child ) );
   const Line line = reader.read().lines.at( 1 );
   EXPECT_EQ( line.sequence, 2u );
   EXPECT_EQ( line.time, 1700000000.25 );
   EXPECT_EQ( line.file, "Platform/FastLog/FileTest.cpp" );
}

TEST( FastLogFile, survivesAKillAtAnyMoment ) {
   const TempDir dir;
   int ready[2];
   ASSERT_EQ( ::pipe( ready ), 0 );
   const pid_t child = childStarted( [&] {
      fileIs( dir.file(), 16 * 1024 );
      for ( std::uint64_t i = 1;; ++i ) {
         FASTLOG( "line ", i, " of ", std::string( i % 50, 'x' ) );
         if ( i == 1000 ) {
            ASSERT_EQ( ::write( ready[1], "r", 1 ), 1 );
         }
      }
   } );
   char byte;
   ASSERT_EQ( ::read( ready[0], &byte, 1 ), 1 );
   ASSERT_EQ( ::kill( child, SIGKILL ), 0 );
   statusOf( child );
   ::close( ready[0] );
   ::close( ready[1] );

   const Contents contents = Reader( dir.file() ).read();
   EXPECT_EQ( contents.damage, Texts() );
   ASSERT_GT( contents.lines.size(), 100u );
   EXPECT_GE( contents.lines.back().sequence, 1000u );
   std::uint64_t expected = contents.lines.front().sequence;
   for ( const Line & line : contents.lines ) {
      ASSERT_EQ( line.sequence, expected );
      ASSERT_EQ(
         line.text, "line " + std::to_string( expected ) + " of " + std::string( expected % 50, 'x' ) );
      ++expected;
   }
}

TEST( FastLogFile, linesBeforeTheFileMoveIntoIt ) {
   const TempDir dir;
   inChild( [&] {
      FASTLOG( "early ", 1 );
      fileIs( dir.file(), 8192 );
      FASTLOG( "late ", 2 );
   } );
   EXPECT_EQ( texts( dir.file() ), ( Texts{ "early 1", "late 2" } ) );
}

TEST( FastLogFile, ringsOfTheRunsBeforeAreKept ) {
   const TempDir dir;
   for ( int run = 1; run <= 5; ++run )
      inChild( [&] {
         fileIs( dir.file(), 8192 );
         FASTLOG( "run ", run );
      } );
   EXPECT_EQ( texts( dir.file() ), ( Texts{ "run 5" } ) );
   EXPECT_EQ( texts( keptPath( dir.file(), 1 ) ), ( Texts{ "run 4" } ) );
   EXPECT_EQ( texts( keptPath( dir.file(), 2 ) ), ( Texts{ "run 3" } ) );
   EXPECT_EQ( texts( keptPath( dir.file(), 3 ) ), ( Texts{ "run 2" } ) );
   EXPECT_FALSE( std::filesystem::exists( keptPath( dir.file(), 4 ) ) );
   EXPECT_FALSE( std::filesystem::exists( dir.file() + ".new" ) );
}

TEST( FastLogFile, ringWithoutALineDisplacesNoOther ) {
   const TempDir dir;
   inChild( [&] {
      fileIs( dir.file(), 8192 );
      FASTLOG( "evidence" );
   } );
   for ( int run = 0; run < 5; ++run )
      inChild( [&] { fileIs( dir.file(), 8192 ); } );
   EXPECT_EQ( texts( dir.file() ), Texts() );
   EXPECT_EQ( texts( keptPath( dir.file(), 1 ) ), ( Texts{ "evidence" } ) );
   EXPECT_FALSE( std::filesystem::exists( keptPath( dir.file(), 2 ) ) );
}

TEST( FastLogFile, damagedRingOfTheRunBeforeIsKeptAsItIs ) {
   const TempDir dir;
   inChild( [&] {
      fileIs( dir.file(), 8192 );
      FASTLOG( "evidence" );
   } );
   std::filesystem::resize_file( dir.file(), 5000 );
   const std::string damaged = readFile( dir.file() );
   inChild( [&] {
      fileIs( dir.file(), 8192 );
      FASTLOG( "goes on" );
   } );
   EXPECT_EQ( texts( dir.file() ), ( Texts{ "goes on" } ) );
   EXPECT_EQ( readFile( keptPath( dir.file(), 1 ) ), damaged );
}

TEST( FastLogFile, takesTheWholeFileAtOnce ) {
   const TempDir dir;
   inChild( [&] { fileIs( dir.file(), 10000 ); } );
   EXPECT_EQ( std::filesystem::file_size( dir.file() ), headBytes + siteTableBytes + 3 * blockBytes );
   struct stat status;
   ASSERT_EQ( ::stat( dir.file().c_str(), &status ), 0 );
   EXPECT_GE(
      static_cast< std::size_t >( status.st_blocks ) * 512, std::filesystem::file_size( dir.file() ) );
   EXPECT_EQ( status.st_mode & 0777 & ~0640u, 0u );
}

TEST( FastLogFile, goesOnInMemoryWhenTheFileIsRefused ) {
   const TempDir dir;
   inChild( [&] {
      FASTLOG( "before" );
      EXPECT_NE( refusal( dir.file( "no/such/place" ) ), "none" );
      FASTLOG( "after" );
      EXPECT_EQ( ownLines().lines.size(), 2u );
   } );
}

TEST( FastLogFile, refusalSaysWhichFileAndWhy ) {
   const TempDir dir;
   const std::string missing = dir.file( "no/such/place" );
   EXPECT_EQ(
      refusal( missing ),
      "fast log " + missing + ".new: cannot open it for writing: No such file or directory" );
   EXPECT_EQ(
      refusal( dir.file(), 100 ),
      "fast log " + dir.file() + ": a size of 100 bytes is not between 8192 and 1073741824" );

   std::filesystem::create_directory( dir.file( "dir" ) );
   EXPECT_EQ(
      refusal( dir.file( "dir" ) ),
      "fast log " + dir.file( "dir" ) + ": cannot open it for writing: Is a directory" );
   std::filesystem::create_symlink( dir.file( "target" ), dir.file( "link" ) );
   EXPECT_EQ( refusal( dir.file( "link" ) ), "fast log " + dir.file( "link" ) + ": it is a symbolic link" );
   ASSERT_EQ( ::mkfifo( dir.file( "pipe" ).c_str(), 0600 ), 0 );
   EXPECT_EQ( refusal( dir.file( "pipe" ) ), "fast log " + dir.file( "pipe" ) + ": it is no regular file" );
}

TEST( FastLogFile, leavesAFileOfOthersAlone ) {
   const TempDir dir;
   writeFile( dir.file(), "precious" );
   EXPECT_EQ(
      refusal( dir.file() ),
      "fast log " + dir.file() + ": there is a file that is no fast log; it is left as it is" );
   EXPECT_EQ( readFile( dir.file() ), "precious" );
   EXPECT_FALSE( std::filesystem::exists( dir.file() + ".new" ) );
}

TEST( FastLogFile, takesTheNameOfAnEmptyFile ) {
   const TempDir dir;
   writeFile( dir.file(), "" );
   inChild( [&] {
      fileIs( dir.file(), 8192 );
      FASTLOG( "x" );
   } );
   EXPECT_EQ( texts( dir.file() ), ( Texts{ "x" } ) );
   EXPECT_FALSE( std::filesystem::exists( keptPath( dir.file(), 1 ) ) );
}

TEST( FastLogFile, isWrittenByOneProcessOnly ) {
   const TempDir dir;
   int ready[2], done[2];
   ASSERT_EQ( ::pipe( ready ), 0 );
   ASSERT_EQ( ::pipe( done ), 0 );
   const pid_t child = childStarted( [&] {
      fileIs( dir.file(), 8192 );
      FASTLOG( "mine" );
      char byte = 'r';
      ASSERT_EQ( ::write( ready[1], &byte, 1 ), 1 );
      ASSERT_EQ( ::read( done[0], &byte, 1 ), 1 );
      FASTLOG( "still mine" );
   } );
   char byte = 'd';
   ASSERT_EQ( ::read( ready[0], &byte, 1 ), 1 );
   EXPECT_EQ( refusal( dir.file() ), "fast log " + dir.file() + ": another process writes it" );
   ASSERT_EQ( ::write( done[1], &byte, 1 ), 1 );
   EXPECT_EQ( statusOf( child ), 0 );
   for ( const int end : { ready[0], ready[1], done[0], done[1] } )
      ::close( end );
   EXPECT_EQ( texts( dir.file() ), ( Texts{ "mine", "still mine" } ) );
   // The lock went with its process.
   inChild( [&] { fileIs( dir.file(), 8192 ); } );
}
