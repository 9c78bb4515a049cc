#include "Agent/Commands/Lines.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Agent::Lines;

class LinesOf : public testing::Test {
 protected:
   void add( std::string_view bytes ) { lines.add( bytes, taker ); }
   void end() { lines.end( taker ); }

   std::vector< std::string > taken;
   unsigned cuts = 0;
   const Lines::Taker taker = [this]( const std::string & line, bool cut ) {
      taken.push_back( line );
      cuts += cut;
   };
   Lines lines = Lines( true );
};

TEST_F( LinesOf, whatComesInPiecesAreWholeAtTheirEnds ) {
   add( "on" );
   add( "e\ntwo\n\nth" );
   EXPECT_EQ( ( std::vector< std::string >{ "one", "two", "" } ), taken );
   add( "ree" );
   end();
   EXPECT_EQ( ( std::vector< std::string >{ "one", "two", "", "three" } ), taken );
   end();
   EXPECT_EQ( 4u, taken.size() );
   EXPECT_EQ( 0u, cuts );
}

TEST_F( LinesOf, nothingAreNone ) {
   add( "" );
   end();
   EXPECT_TRUE( taken.empty() );
}

TEST_F( LinesOf, textAreCutWhereItIsTooLongAndTheNextOneIsWhole ) {
   const std::string most( Lines::mostOfText, 'x' );
   add( most + "\n" );
   EXPECT_EQ( 0u, cuts );
   add( most );
   add( "y" );
   add( std::string( 5'000'000, 'y' ) + "\nz\n" );
   EXPECT_EQ( ( std::vector< std::string >{ most, most, "z" } ), taken );
   EXPECT_EQ( 1u, cuts );
}

TEST_F( LinesOf, objectsAreLonger ) {
   const std::string most = "{" + std::string( Lines::mostOfAnObject - 1, 'x' );
   add( most.substr( 0, 1 ) );
   add( most.substr( 1 ) );
   add( "\n" );
   add( most + "y\n" );
   EXPECT_EQ( ( std::vector< std::string >{ most, most } ), taken );
   EXPECT_EQ( 1u, cuts );
}

TEST_F( LinesOf, objectsAreTextWhereNoneAreTaken ) {
   lines = Lines( false );
   add( "{" + std::string( 5'000, 'x' ) + "\n" );
   EXPECT_EQ( Lines::mostOfText, taken.at( 0 ).size() );
   EXPECT_EQ( 1u, cuts );
}

TEST( PrintableLine, escapesWhatIsNoCharacter ) {
   const std::vector< std::pair< std::string, std::string > > rows{
      { "plain \u00e9 \u20ac \U0001f600 ~", "plain \u00e9 \u20ac \U0001f600 ~" },
      { "a\tb\rc\x1b[31m", "a b\\x0dc\\x1b[31m" },
      { std::string( "a\0b", 3 ), "a\\x00b" },
      { "\x7f\xc2\x80", "\\x7f\\xc2\\x80" },
      { "\xc3", "\\xc3" },
      { "\xc3(", "\\xc3(" },
      { "\xc0\xaf\xe0\x80\x80", "\\xc0\\xaf\\xe0\\x80\\x80" },
      { "\xed\xa0\x80\xf4\x90\x80\x80\xff", "\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80\\xff" } };
   for ( const auto & [bytes, text] : rows ) {
      SCOPED_TRACE( text );
      EXPECT_EQ( text, Agent::printableLine( bytes ) );
   }
}

} // namespace
