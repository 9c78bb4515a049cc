#include "Platform/FastLog/Reader.h"
#include "Platform/FastLog/ChildTest.h"

#include <csignal>
#include <fstream>
#include <random>

using namespace FastLog;

namespace {

constexpr std::size_t firstBlock = headBytes + siteTableBytes;

std::string readFile( const std::string & path ) {
   std::ifstream file( path, std::ios::binary );
   return { std::istreambuf_iterator< char >( file ), {} };
}
void writeFile( const std::string & path, const std::string & content ) {
   std::ofstream( path, std::ios::binary )
      .write( content.data(), static_cast< std::streamsize >( content.size() ) );
}

std::string refusal( const std::string & path ) {
   try {
      Reader( path ).read();
   } catch ( const Error & error ) {
      return error.what();
   }
   return "none";
}

/// A ring of two blocks with a few lines, as bytes.
std::string someRing() {
   const TempDir dir;
   inChild( [&] {
      fileIs( dir.file(), 8192 );
      for ( unsigned i = 1; i <= 200; ++i )
         FASTLOG( "number ", i, " of unit ", std::string( i % 20, 'u' ), ": ", i % 2 == 0, ", ", i / 4.0 );
      FASTLOG_PROFILE( "point" );
   } );
   return readFile( dir.file() );
}

template < class T >
void poke( std::string & bytes, std::size_t at, T value ) {
   std::memcpy( bytes.data() + at, &value, sizeof value );
}

/// Of the two.
std::size_t newestSlot( const std::string & ring ) {
   std::uint64_t numbers[2];
   for ( std::size_t slot = 0; slot < 2; ++slot )
      std::memcpy( &numbers[slot], ring.data() + firstBlock + slot * blockBytes, sizeof numbers[slot] );
   return numbers[1] > numbers[0];
}

class Damaged : public testing::Test {
 protected:
   /// What a reader says of these bytes.
   std::string refusalOf( const std::string & bytes ) {
      writeFile( dir.file(), bytes );
      std::string text = refusal( dir.file() );
      const std::string prefix = "fast log " + dir.file() + ": ";
      return text.starts_with( prefix ) ? text.substr( prefix.size() ) : text;
   }
   Contents contentsOf( const std::string & bytes ) {
      writeFile( dir.file(), bytes );
      return Reader( dir.file() ).read();
   }
   TempDir dir;
   const std::string ring = someRing();
};

} // namespace

TEST_F( Damaged, soundRingHasNoDamage ) {
   const Contents contents = contentsOf( ring );
   EXPECT_EQ( contents.damage, std::vector< std::string >() );
   EXPECT_GT( contents.lines.size(), 50u );
   EXPECT_EQ( contents.lines.back().text, "point" );
}

TEST_F( Damaged, missingFileIsNamed ) {
   EXPECT_EQ(
      refusal( dir.file( "none" ) ),
      "fast log " + dir.file( "none" ) + ": cannot open it: No such file or directory" );
   EXPECT_EQ( refusal( dir.file( "" ) ), "fast log " + dir.file( "" ) + ": it is no regular file" );
}

TEST_F( Damaged, headThatCannotBeReadIsRefused ) {
   const auto with = [&]( std::size_t at, auto value ) {
      std::string bytes = ring;
      poke( bytes, at, value );
      return refusalOf( bytes );
   };
   EXPECT_EQ( refusalOf( "" ), "it is no fast log, or it is cut off: it has 0 bytes" );
   EXPECT_EQ( refusalOf( std::string( 200000, 'x' ) ), "it is no fast log: its first bytes are other ones" );
   EXPECT_EQ( with( offsetof( FileHead, magic ), 'x' ), "it is no fast log: its first bytes are other ones" );
   EXPECT_EQ(
      with( offsetof( FileHead, version ), version + 1 ), "it has version 2, this program reads version 1" );
   EXPECT_EQ(
      with( offsetof( FileHead, byteOrder ), 0x04030201u ), "it is from a machine with another byte order" );
   EXPECT_EQ( with( offsetof( FileHead, byteOrder ), 7u ), "its head is damaged at byte 12 (byte order)" );
   EXPECT_EQ(
      with( offsetof( FileHead, blocks ), 1000u ),
      "its head is damaged: bytes 0 to 35 have a wrong checksum" );
}

TEST_F( Damaged, shortFileIsRefusedWithBothSizes ) {
   EXPECT_EQ(
      refusalOf( ring.substr( 0, ring.size() - 1 ) ), "it is cut off: it has " +
                                                         std::to_string( ring.size() - 1 ) + " bytes of " +
                                                         std::to_string( ring.size() ) );
}

TEST_F( Damaged, fileThatIsCutOffWhileItIsOpenIsRefused ) {
   writeFile( dir.file(), ring );
   const Reader reader( dir.file() );
   std::filesystem::resize_file( dir.file(), 1000 );
   EXPECT_THROW( reader.read(), Error );
}

TEST_F( Damaged, blockThatMakesNoSenseIsNamedAndTheOthersAreRead ) {
   const std::size_t all = contentsOf( ring ).lines.size();
   const auto damageWith = [&]( std::size_t at, auto value ) {
      std::string bytes = ring;
      poke( bytes, firstBlock + at, value );
      const Contents contents = contentsOf( bytes );
      EXPECT_GT( contents.lines.size(), 0u );
      EXPECT_LT( contents.lines.size(), all );
      return contents.damage.empty() ? "none" : contents.damage.front();
   };
   const std::string here = "block 0, byte " + std::to_string( firstBlock ) + ": ";
   const std::string line = "block 0, byte " + std::to_string( firstBlock + sizeof( BlockHead ) ) + ": ";
   EXPECT_EQ(
      damageWith( offsetof( BlockHead, number ), std::uint64_t( 77 ) ),
      here + "block number 77 does not belong here" );
   EXPECT_EQ( damageWith( offsetof( BlockHead, used ), 5000u ), here + "5000 bytes cannot be in use" );
   EXPECT_EQ(
      damageWith( offsetof( BlockHead, firstSequence ), std::uint64_t( 0 ) ),
      here + "line 0 cannot stand here" );
   EXPECT_EQ( damageWith( sizeof( BlockHead ), std::uint16_t( 12 ) ), line + "a line of 12 bytes" );
   EXPECT_EQ(
      damageWith( sizeof( BlockHead ) + 2, std::uint16_t( 900 ) ), line + "call site 900 is unknown" );
   const std::string other = damageWith( sizeof( BlockHead ) + 4, 5u );
   EXPECT_TRUE( other.starts_with( line + "a line that is not number " ) ) << other;
}

// What a process leaves that was killed in the middle of something.
TEST_F( Damaged, whatWasNotFinishedIsNoDamage ) {
   const Contents whole = contentsOf( ring );
   std::string bytes = ring;
   poke( bytes, firstBlock + offsetof( BlockHead, number ), std::uint64_t( 0 ) );
   const Contents started = contentsOf( bytes );
   EXPECT_EQ( started.damage, std::vector< std::string >() );
   EXPECT_LT( started.lines.size(), whole.lines.size() );

   // The newest line, which has no arguments, copied but not counted yet.
   bytes = ring;
   const std::size_t newest = firstBlock + newestSlot( ring ) * blockBytes;
   std::uint32_t used;
   std::memcpy( &used, bytes.data() + newest + offsetof( BlockHead, used ), sizeof used );
   poke( bytes, newest + offsetof( BlockHead, used ), used - std::uint32_t( sizeof( LineHead ) ) );
   const Contents copied = contentsOf( bytes );
   EXPECT_EQ( copied.damage, std::vector< std::string >() );
   EXPECT_EQ( copied.lines.size(), whole.lines.size() - 1 );
   EXPECT_NE( copied.lines.back().text, "point" );
}

TEST_F( Damaged, damagedCallSiteIsNamed ) {
   std::string bytes = ring;
   bytes[headBytes + 20] ^= 1;
   const Contents contents = contentsOf( bytes );
   EXPECT_TRUE( contents.lines.empty() );
   EXPECT_EQ( contents.damage.size(), Contents::maxDamage );
   EXPECT_TRUE(
      contents.damage.back().ends_with( "call site 1 at byte 4096: its entry has a wrong checksum" ) )
      << contents.damage.back();
}

TEST_F( Damaged, siteTableLongerThanItCanBeIsNamed ) {
   std::string bytes = ring;
   poke( bytes, offsetof( FileHead, siteBytes ), 1u << 30 );
   const Contents contents = contentsOf( bytes );
   EXPECT_TRUE( contents.lines.empty() );
   ASSERT_FALSE( contents.damage.empty() );
   EXPECT_NE(
      contents.damage.back().find( "the site table has 1073741824 bytes in use of 131072" ),
      std::string::npos );
}

// Whatever stands in a file: lines or a refusal, nothing else.
TEST_F( Damaged, randomDamageIsNeverMoreThanDamage ) {
   std::mt19937 engine( 20240501 );
   const auto below = [&]( std::size_t limit ) {
      return std::uniform_int_distribution< std::size_t >( 0, limit - 1 )( engine );
   };
   const std::size_t interesting[] = { 0, headBytes, firstBlock, firstBlock + blockBytes };
   unsigned refused = 0, damaged = 0, untouched = 0;
   for ( unsigned round = 0; round < 3000; ++round ) {
      SCOPED_TRACE( round );
      if ( round % 10 == 0 )
         writeFile( dir.file(), ring );
      {
         std::fstream file( dir.file(), std::ios::binary | std::ios::in | std::ios::out );
         for ( std::size_t changes = 1 + below( 8 ); changes; --changes ) {
            file.seekp( static_cast< std::streamoff >( interesting[below( 4 )] + below( 600 ) ) );
            file.put( below( 3 ) == 0 ? char( 0xff ) : static_cast< char >( below( 256 ) ) );
         }
      }
      if ( round % 10 == 9 )
         std::filesystem::resize_file( dir.file(), below( ring.size() ) );
      try {
         const Contents contents = Reader( dir.file() ).read();
         ( contents.damage.empty() ? untouched : damaged )++;
         ASSERT_LE( contents.damage.size(), Contents::maxDamage );
         for ( const Line & line : contents.lines )
            ASSERT_LT( formatted( line ).size(), 100000u );
      } catch ( const Error & error ) {
         ASSERT_TRUE( std::string( error.what() ).starts_with( "fast log " + dir.file() + ": " ) )
            << error.what();
         ++refused;
      }
   }
   EXPECT_GT( refused, 100u );
   EXPECT_GT( damaged, 100u );
   EXPECT_GT( untouched, 10u );
}

TEST_F( Damaged, fileOfRandomBytesIsRefused ) {
   std::mt19937 engine( 7 );
   for ( unsigned round = 0; round < 200; ++round ) {
      std::string bytes( engine() % 20000, '\0' );
      for ( char & byte : bytes )
         byte = static_cast< char >( engine() );
      ASSERT_NE( refusalOf( bytes ), "none" );
   }
}

// The writer is faster than the reader and goes round the ring many times while it is read.
TEST( FastLogReader, readsWholeLinesWhileAnotherProcessWrites ) {
   const TempDir dir;
   int ready[2];
   ASSERT_EQ( ::pipe( ready ), 0 );
   const pid_t child = childStarted( [&] {
      fileIs( dir.file(), 32 * 1024 );
      FASTLOG( "first" );
      ASSERT_EQ( ::write( ready[1], "r", 1 ), 1 );
      for ( std::uint64_t i = 2; i <= 20'000'000; ++i )
         FASTLOG(
            "line ", i, " says ", std::string_view( "abcdefghijklmnopqrstuvwxyz" ).substr( 0, i % 27 ),
            " and ", i * 3 );
   } );
   char byte;
   ASSERT_EQ( ::read( ready[0], &byte, 1 ), 1 );
   const Reader reader( dir.file() );
   std::uint64_t newest = 0;
   while ( newest < 500'000 && ::waitpid( child, nullptr, WNOHANG ) == 0 ) {
      const Contents contents = reader.read();
      ASSERT_EQ( contents.damage, std::vector< std::string >() );
      std::uint64_t last = 0;
      for ( const Line & line : contents.lines ) {
         ASSERT_GT( line.sequence, last );
         last = line.sequence;
         if ( last > 1 ) {
            ASSERT_EQ(
               line.text, "line " + std::to_string( last ) + " says " +
                             std::string( "abcdefghijklmnopqrstuvwxyz" ).substr( 0, last % 27 ) + " and " +
                             std::to_string( last * 3 ) );
         }
      }
      newest = std::max( last, newest );
   }
   EXPECT_GE( newest, 500'000u );
   ::kill( child, SIGKILL );
   statusOf( child );
   ::close( ready[0] );
   ::close( ready[1] );
}

TEST( FastLogReader, followsALog ) {
   const TempDir dir;
   inChild( [&] {
      fileIs( dir.file(), 8192 );
      FASTLOG( "one" );
      const Reader reader( dir.file() );
      const Contents first = reader.read();
      ASSERT_EQ( first.lines.size(), 1u );
      FASTLOG( "two, of a site that the reader has not seen ", 2 );
      const Contents second = reader.read( allLines, first.lines.back().sequence );
      ASSERT_EQ( second.lines.size(), 1u );
      EXPECT_EQ( second.lines[0].text, "two, of a site that the reader has not seen 2" );
   } );
}
