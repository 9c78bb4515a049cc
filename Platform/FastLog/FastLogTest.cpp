#include "Platform/FastLog/FastLog.h"

#include "Platform/FastLog/Capture.h"
#include "Platform/FastLog/ChildTest.h"
#include "Platform/FastLog/Reader.h"
#include "Platform/Vel/Text.h"

#include <dlfcn.h>
#include <limits>

namespace Elsewhere {

struct Named {
   std::string name;
};
std::string stringValue( const Named & named ) { return "<" + named.name + ">"; }

struct Numbered {
   int number;
};
int fastLogValue( const Numbered & numbered ) { return numbered.number; }
std::string stringValue( const Numbered & ) { return "not this one"; }

struct Special {
   char bytes[3];
};

enum class Colour { red };
std::string_view stringValue( Colour ) { return "red"; }

} // namespace Elsewhere

template <>
struct FastLog::Arg< Elsewhere::Special > {
   static std::string_view of( const Elsewhere::Special & special ) { return { special.bytes, 3 }; }
};

using namespace FastLog;

namespace {

/// The text of the only line that the work logs, as a capture has it and as it is read from the ring.
template < class Work >
std::string textOf( Work work ) {
   Capture capture;
   work();
   EXPECT_EQ( capture.lines().size(), 1u );
   const std::string text = capture.lines().at( 0 ).text;
   const Contents contents = ownLines( 1 );
   EXPECT_EQ( contents.lines.at( 0 ).text, text );
   EXPECT_EQ( contents.damage, std::vector< std::string >() );
   return text;
}

std::vector< std::string > texts( const std::vector< Line > & lines ) {
   std::vector< std::string > out;
   for ( const Line & line : lines )
      out.push_back( line.text );
   return out;
}

std::uint64_t lastSequence() { return ownLines( 1 ).lines.at( 0 ).sequence; }

} // namespace

TEST( FastLog, textIsThePiecesOneAfterAnother ) {
   const std::string unit = "unit1";
   EXPECT_EQ(
      textOf( [&] { FASTLOG( "restart: unit ", unit, " has ", 3, " intfs" ); } ),
      "restart: unit unit1 has 3 intfs" );
}

TEST( FastLog, showsEachTypeOfValueAsTracesDo ) {
   const char * const word = "word";
   const char * const none = nullptr;
   const std::string_view part = std::string_view( "partial" ).substr( 0, 4 );
   char changing[8] = "abc";
   const char full[3] = { 'x', 'y', 'z' };
   EXPECT_EQ( textOf( [&] { FASTLOG( true, false ); } ), "10" );
   EXPECT_EQ(
      textOf( [&] { FASTLOG( -1, " ", 2u, " ", 'a', " ", std::int8_t( -5 ), " ", std::uint8_t( 200 ) ); } ),
      "-1 2 97 -5 200" );
   EXPECT_EQ(
      textOf( [&] { FASTLOG( std::numeric_limits< std::int64_t >::min(), " ", ~std::uint64_t( 0 ) ); } ),
      "-9223372036854775808 18446744073709551615" );
   EXPECT_EQ(
      textOf( [&] { FASTLOG( 1.5, " ", 0.1, " ", 1700000005.0, " ", 2.5f, " ", 1e300 ); } ),
      "1.5 0.1 1700000005 2.5 1e+300" );
   EXPECT_EQ(
      textOf( [&] {
         FASTLOG(
            std::numeric_limits< double >::infinity(), " ", -std::numeric_limits< double >::infinity() );
      } ),
      "inf -inf" );
   EXPECT_EQ(
      textOf( [&] { FASTLOG( word, ",", none, ",", part, ",", changing, ",", full ); } ),
      "word,(null),part,abc,xyz" );
}

TEST( FastLog, textIsThatOfATraceWithTheSamePieces ) {
   for ( const double value :
         { 0.0, -0.0, 1.0 / 3, 1e5, 100000.5, 1700000005.25, 1e-7, 123456789012345678.0 } )
      EXPECT_EQ(
         textOf( [&] { FASTLOG( "value ", value, " done" ); } ), Vel::text( "value ", value, " done" ) );
   for ( const long value : { 0l, -1l, std::numeric_limits< long >::max() } )
      EXPECT_EQ( textOf( [&] { FASTLOG( value, true, 'x' ); } ), Vel::text( value, true, 'x' ) );
}

TEST( FastLog, typesOfOthersGiveWhatIsCopied ) {
   using namespace Elsewhere;
   EXPECT_EQ( textOf( [&] { FASTLOG( "intf ", Named{ "et1" } ); } ), "intf <et1>" );
   EXPECT_EQ( textOf( [&] { FASTLOG( Numbered{ 7 } ); } ), "7" );
   EXPECT_EQ( textOf( [&] { FASTLOG( Special{ { 'a', '\0', 'b' } } ); } ), std::string( "a\0b", 3 ) );
   EXPECT_EQ( textOf( [&] { FASTLOG( Colour::red ); } ), "red" );
}

TEST( FastLog, whatLooksLikeALiteralMayChangeFromLineToLine ) {
   const auto log = []( bool good ) { FASTLOG( "it is ", good ? "good" : "evil" ); };
   EXPECT_EQ( textOf( [&] { log( true ); } ), "it is good" );
   EXPECT_EQ( textOf( [&] { log( false ); } ), "it is evil" );
}

TEST( FastLog, literalsMeanWhatTheyMeanElsewhere ) {
#define NAMED "named "
   EXPECT_EQ(
      textOf( [] { FASTLOG( "tab\t \"quoted\" back\\slash \x41\102 \0end", 1 ); } ),
      std::string( "tab\t \"quoted\" back\\slash AB \0end1", 33 ) );
   EXPECT_EQ(
      textOf( [] {
         FASTLOG(
            "one "
            "two ",
            2 );
      } ),
      "one two 2" );
   EXPECT_EQ( textOf( [] { FASTLOG( NAMED, 3 ); } ), "named 3" );
   EXPECT_EQ( textOf( [] { FASTLOG( R"(raw "x", )", 4 ); } ), "raw \"x\", 4" );
   EXPECT_EQ( textOf( [] { FASTLOG( "µ\u00b5 ", 5 ); } ), "µµ 5" );
   EXPECT_EQ( textOf( [] { FASTLOG( std::pair< int, int >( 1, 6 ).second, " pairs" ); } ), "6 pairs" );
#undef NAMED
}

TEST( FastLog, functionNameIsAPiece ) {
   const std::string text = textOf( [] { FASTLOG( __func__, ": done" ); } );
   EXPECT_EQ( text, "operator(): done" );
}

TEST( FastLog, evaluatesEachPieceOnce ) {
   int calls = 0;
   for ( int i = 0; i < 3; ++i )
      FASTLOG( "calls ", ++calls );
   EXPECT_EQ( calls, 3 );
}

TEST( FastLog, lineSaysWhenAndWhereItWasWritten ) {
   timeIs( 1700000001.5 );
   Capture capture;
   FASTLOG( "here" );
   const unsigned line = __LINE__ - 1;
   FASTLOG_PROFILE( "codef backlog processing" );

   ASSERT_EQ( capture.lines().size(), 2u );
   const Line & first = capture.lines()[0];
   EXPECT_EQ( first.time, 1700000001.5 );
   EXPECT_EQ( first.file, "Platform/FastLog/FastLogTest.cpp" );
   EXPECT_EQ( first.line, line );
   EXPECT_EQ( first.function, "TestBody" );
   EXPECT_EQ( first.kind, Kind::event );
   const Line & second = capture.lines()[1];
   EXPECT_EQ( second.sequence, first.sequence + 1 );
   EXPECT_EQ( second.kind, Kind::profile );
   EXPECT_EQ( second.text, "codef backlog processing" );
   EXPECT_EQ(
      formatted( second ), std::to_string( second.sequence ) +
                              " 1700000001.500 Platform/FastLog/FastLogTest.cpp:" +
                              std::to_string( line + 2 ) + " TestBody: [profile] codef backlog processing" );
   timeIs( 0 );
}

TEST( FastLog, formattedLineIsOneLineWithoutControlCharacters ) {
   Line line;
   line.file = "a.cpp";
   line.function = "f";
   line.text = "x\ny\x1b[2J\x7f";
   EXPECT_EQ( formatted( line ), "0 0.000 a.cpp:0 f: x\\x0ay\\x1b[2J\\x7f" );
}

TEST( FastLog, timeIsReadFromItsOwnerForEachLine ) {
   double turn = 10;
   timeFrom( &turn );
   Capture capture;
   FASTLOG( "first" );
   turn = 20;
   FASTLOG( "second" );
   timeFrom( nullptr );
   turn = 30;
   FASTLOG( "third" );
   EXPECT_EQ( capture.lines().at( 0 ).time, 10 );
   EXPECT_EQ( capture.lines().at( 1 ).time, 20 );
   EXPECT_EQ( capture.lines().at( 2 ).time, 0 );
}

TEST( FastLog, longTextIsCutAndMarked ) {
   const std::string fits( 255, 'a' ), tooLong( 256, 'b' );
   EXPECT_EQ( textOf( [&] { FASTLOG( "x ", fits, " y" ); } ), "x " + fits + " y" );
   EXPECT_EQ(
      textOf( [&] { FASTLOG( "x ", tooLong, " y ", 1 ); } ), "x " + std::string( 255, 'b' ) + "[...] y 1" );
}

TEST( FastLog, textsOfEveryLengthAreCopiedExactly ) {
   const std::string source = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ,.";
   for ( std::size_t bytes = 0; bytes <= source.size(); ++bytes ) {
      // Exactly as long as its memory, so that the sanitizer sees a byte too many.
      const std::vector< char > exact(
         source.begin(), source.begin() + static_cast< std::ptrdiff_t >( bytes ) );
      FASTLOG( "<", std::string_view( exact.data(), bytes ), ">" );
      ASSERT_EQ( ownLines( 1 ).lines.at( 0 ).text, "<" + source.substr( 0, bytes ) + ">" );
   }
}

TEST( FastLog, lineMayFillABlock ) {
   const std::string s( 255, 's' );
   memoryIs( 8192 );
   const std::string all = textOf( [&] { FASTLOG( s, s, s, s, s, s, s, s, s, s, s, s, s, s, s ); } );
   EXPECT_EQ( all.size(), 15 * 255u );
   FASTLOG( "next" );
   EXPECT_EQ( texts( ownLines( 2 ).lines ), ( std::vector< std::string >{ all, "next" } ) );
   memoryIs( 1024 * 1024 );
}

TEST( FastLog, fullRingLosesTheOldestBlockOfLines ) {
   memoryIs( 8192 );
   FASTLOG( "warm" );
   const std::uint64_t before = lastSequence();
   for ( unsigned i = 1; i <= 1000; ++i )
      FASTLOG( "i=", i );
   const Contents contents = ownLines();
   EXPECT_EQ( contents.damage, std::vector< std::string >() );
   // 169 lines of 24 bytes a block.
   ASSERT_GT( contents.lines.size(), 169u );
   ASSERT_LE( contents.lines.size(), 2 * 169u );
   std::uint64_t expected = before + 1001 - contents.lines.size();
   for ( const Line & line : contents.lines ) {
      ASSERT_EQ( line.sequence, expected );
      ASSERT_EQ( line.text, "i=" + std::to_string( expected - before ) );
      ++expected;
   }
   memoryIs( 1024 * 1024 );
}

TEST( FastLog, newestLinesMoveToAnotherRing ) {
   memoryIs( 64 * 1024 );
   for ( unsigned i = 0; i < 3000; ++i )
      FASTLOG( "line ", i );
   memoryIs( 8192 );
   const Contents small = ownLines();
   EXPECT_EQ( small.damage, std::vector< std::string >() );
   EXPECT_GT( small.lines.size(), 169u );
   EXPECT_EQ( small.lines.back().text, "line 2999" );
   FASTLOG( "after" );
   memoryIs( 1024 * 1024 );
   FASTLOG( "after that" );
   const Contents large = ownLines();
   EXPECT_EQ( large.damage, std::vector< std::string >() );
   EXPECT_EQ(
      texts( ownLines( 3 ).lines ), ( std::vector< std::string >{ "line 2999", "after", "after that" } ) );
   for ( std::size_t i = 1; i < large.lines.size(); ++i )
      ASSERT_EQ( large.lines[i].sequence, large.lines[i - 1].sequence + 1 );
}

TEST( FastLog, countsLinesBeyond32Bits ) {
   inChild( [] {
      memoryIs( 8192 );
      // A block begins with this line: one that is older has its own first number.
      detail::cursor.next = detail::cursor.limit = nullptr;
      detail::cursor.block = nullptr;
      constexpr std::uint64_t first = ( std::uint64_t( 1 ) << 32 ) - 3;
      detail::cursor.sequence = first;
      for ( unsigned i = 0; i < 300; ++i )
         FASTLOG( "line ", i );
      const Contents contents = ownLines( 200 );
      EXPECT_EQ( contents.damage, std::vector< std::string >() );
      EXPECT_EQ( contents.lines.back().sequence, first + 299 );
   } );
}

TEST( FastLog, refusesSizesThatAreNone ) {
   for ( const std::size_t bytes :
         { std::size_t( 0 ), std::size_t( 8191 ), ( std::size_t( 1 ) << 30 ) + 1, ~std::size_t( 0 ) } )
      EXPECT_THROW( memoryIs( bytes ), Error ) << bytes;
}

TEST( FastLog, readsOnlyWhatIsAskedFor ) {
   FASTLOG( "one" );
   FASTLOG( "two" );
   FASTLOG( "three" );
   const std::uint64_t last = lastSequence();
   EXPECT_EQ( texts( ownLines( 2 ).lines ), ( std::vector< std::string >{ "two", "three" } ) );
   EXPECT_EQ( texts( ownLines( allLines, last - 1 ).lines ), ( std::vector< std::string >{ "three" } ) );
   EXPECT_TRUE( ownLines( allLines, last ).lines.empty() );
   EXPECT_TRUE( ownLines( 0 ).lines.empty() );
}

TEST( FastLog, eachCaptureTakesTheLinesOfItsLife ) {
   FASTLOG( "before" );
   Capture outer;
   FASTLOG( "a" );
   {
      Capture inner;
      FASTLOG( "b" );
      EXPECT_EQ( texts( inner.lines() ), ( std::vector< std::string >{ "b" } ) );
   }
   FASTLOG( "c" );
   EXPECT_EQ( texts( outer.lines() ), ( std::vector< std::string >{ "a", "b", "c" } ) );
   EXPECT_TRUE( outer.has( "b" ) );
   EXPECT_EQ( outer.count( "nothing" ), 0u );
   outer.clear();
   EXPECT_TRUE( outer.lines().empty() );
}

TEST( FastLog, capturesMayEndInAnyOrder ) {
   auto first = std::make_unique< Capture >();
   const Capture second;
   first.reset();
   FASTLOG( "still taken" );
   EXPECT_TRUE( second.has( "still taken" ) );
}

TEST( FastLog, ringGetsWhatIsCaptured ) {
   {
      const Capture capture;
      FASTLOG( "captured" );
   }
   FASTLOG( "not captured" );
   EXPECT_EQ( texts( ownLines( 2 ).lines ), ( std::vector< std::string >{ "captured", "not captured" } ) );
}

TEST( FastLog, templatesAndLoopsHaveOneSiteForEachInstance ) {
   const auto log = []< class T >( T value ) { FASTLOG( "value ", value ); };
   EXPECT_EQ( textOf( [&] { log( 1 ); } ), "value 1" );
   EXPECT_EQ( textOf( [&] { log( std::string( "s" ) ); } ), "value s" );
   EXPECT_EQ( textOf( [&] { log( 2 ); } ), "value 2" );
}

// Sites that no call made: what a table full of them does to those that come later.
TEST( FastLog, linesOfSitesThatFindNoRoomAreKeptAsText ) {
   inChild( [] {
      const std::string call = '"' + std::string( 1000, 'x' ) + "\", v";
      std::vector< Site > sites;
      for ( unsigned i = 0; i < 200; ++i )
         sites.push_back( { Kind::profile, i, "some/file.cpp", "someFunction", call.c_str(), 1 } );
      for ( Site & site : sites )
         detail::put( site, std::uint64_t( site.line ) );
      FASTLOG( "small enough for the rest" );
      const unsigned line = __LINE__ - 1;

      const Contents contents = ownLines( 201 );
      EXPECT_EQ( contents.damage, std::vector< std::string >() );
      ASSERT_EQ( contents.lines.size(), 201u );
      EXPECT_NE( sites.front().id, 0u );
      EXPECT_EQ( sites.back().id, 0u );
      const std::string text( 1000, 'x' );
      for ( unsigned i = 0; i < 200; ++i ) {
         EXPECT_EQ( contents.lines[i].text, text + std::to_string( i ) );
         EXPECT_EQ( contents.lines[i].line, i );
         EXPECT_EQ( contents.lines[i].file, "some/file.cpp" );
         EXPECT_EQ( contents.lines[i].function, "someFunction" );
         EXPECT_EQ( contents.lines[i].kind, Kind::profile );
      }
      EXPECT_EQ( contents.lines[200].line, line );
   } );
}

TEST( FastLog, textOfASiteThatFindsNoRoomIsCut ) {
   inChild( [] {
      const std::string call = '"' + std::string( 200000, 'x' ) + '"';
      Site site = { Kind::event, 1, "f", "f", call.c_str(), 1 };
      const Capture capture;
      detail::put( site );
      EXPECT_EQ( capture.lines().at( 0 ).text, std::string( 1024, 'x' ) + "[...]" );
      EXPECT_EQ( ownLines( 1 ).lines.at( 0 ).text, std::string( 1024, 'x' ) + "[...]" );
   } );
}

TEST( FastLog, equalSitesShareAnId ) {
   Site first = { Kind::event, 7, "same/file.cpp", "f", "\"a\"", 1 };
   Site second = first, other = first;
   other.line = 8;
   detail::put( first );
   detail::put( second );
   detail::put( other );
   EXPECT_NE( first.id, 0u );
   EXPECT_EQ( first.id, second.id );
   EXPECT_NE( first.id, other.id );
}

// The library's memory is gone after dlclose(); its lines and its sites are ours.
TEST( FastLog, linesOfALibraryOutliveIt ) {
   const auto useLibrary = []( int number ) {
      void * const library = ::dlopen( FASTLOG_TEST_LIBRARY, RTLD_NOW | RTLD_LOCAL );
      ASSERT_NE( library, nullptr ) << ::dlerror();
      const auto log = reinterpret_cast< unsigned ( * )( int ) >( ::dlsym( library, "logFromLibrary" ) );
      ASSERT_NE( log, nullptr );
      EXPECT_EQ( log( number ), 0u ) << "the library has not been loaded anew";
      ASSERT_EQ( ::dlclose( library ), 0 );
      EXPECT_EQ( ::dlopen( FASTLOG_TEST_LIBRARY, RTLD_NOW | RTLD_NOLOAD ), nullptr );
   };
   useLibrary( 1 );
   useLibrary( 2 );
   const Contents contents = ownLines( 2 );
   EXPECT_EQ(
      texts( contents.lines ),
      ( std::vector< std::string >{
         "library logs 1 for unit-of-library", "library logs 2 for unit-of-library" } ) );
   EXPECT_EQ( contents.lines.at( 0 ).file, "Platform/FastLog/LibraryTest.cpp" );
   EXPECT_EQ( contents.lines.at( 0 ).function, "logFromLibrary" );
}
