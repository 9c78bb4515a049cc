#include "Maintctl/Line.h"

#include <gtest/gtest.h>

namespace Maintctl {

namespace {

using Texts = std::vector< std::string >;

TEST( Line, holdsNothingThatActsOnATerminal ) {
   const Line line( "a\033[31mb\r\n\xC2\x9B" );
   EXPECT_EQ( line.text(), "a\\x1B[31mb\\x0D\\x0A\\xC2\\x9B" );
   EXPECT_EQ( line.columns(), line.text().size() );
}

TEST( Line, fillsFieldsByColumns ) {
   Line line;
   line.field( "\xE4\xB8\xAD\xE6\x96\x87", 6 ).add( "|" ).rightField( "\xC3\xA4", 3 ).add( "|" );
   EXPECT_EQ( line.text(), "\xE4\xB8\xAD\xE6\x96\x87  |  \xC3\xA4|" );
   EXPECT_EQ( line.columns(), 11 );
}

TEST( Line, cutsWhatIsLongerThanItsField ) {
   EXPECT_EQ( Line().field( "abcdef", 3 ).add( "|" ).text(), "abc|" );
   // Half a character is none.
   EXPECT_EQ( Line().field( "\xE4\xB8\xAD\xE6\x96\x87", 3 ).add( "|" ).text(), "\xE4\xB8\xAD |" );
}

TEST( Line, isFittedWithItsTones ) {
   const Line line = Line( "abc" ).add( "def", Tone::bad ).add( "ghi", Tone::good );
   EXPECT_EQ( line.fitted( 5, true ), Line( "abc" ).add( "d\u2026", Tone::bad ) );
   EXPECT_EQ( line.fitted( 5, false ).text(), "abcd~" );
   EXPECT_EQ( line.fitted( 1, true ).text(), "a" );
   EXPECT_EQ( line.fitted( 0, true ), Line() );
   EXPECT_EQ( line.fitted( 99, true ), line );
}

TEST( Line, leavesOutTheMiddleOfNames ) {
   const auto name = []( const char * text, std::size_t width, bool utf8 = true ) {
      return Line().nameField( text, width, utf8 ).add( "|" ).text();
   };
   EXPECT_EQ( name( "leaf-1", 8 ), "leaf-1  |" );
   EXPECT_EQ( name( "leaf-row-1", 10 ), "leaf-row-1|" );
   EXPECT_EQ( name( "leaf-row-a-1", 8 ), "lea\u2026-a-1|" );
   EXPECT_EQ( name( "leaf-row-a-1", 7, false ), "lea~a-1|" );
   EXPECT_EQ( name( "leaf", 3 ), "l\u2026f|" );
   EXPECT_EQ( name( "leaf", 2 ), "le|" );
   EXPECT_EQ( name( "\xE4\xB8\xAD\xE6\x96\x87\xE4\xB8\xAD", 5 ), "\xE4\xB8\xAD\u2026\xE4\xB8\xAD|" );
   EXPECT_EQ( name( "\xE4\xB8\xAD\xE6\x96\x87\xE4\xB8\xAD", 4 ), "\u2026\xE4\xB8\xAD |" );
}

TEST( Line, losesBlanksAtItsEnd ) {
   EXPECT_EQ( Line( "a " ).add( "   ", Tone::bad ).fitted( 9, true ), Line( "a" ) );
   EXPECT_EQ( Line( "   " ).fitted( 9, true ).columns(), 0 );
}

TEST( Line, keepsItsColumnsInAscii ) {
   EXPECT_EQ(
      Line( "\xE4\xB8\xAD"
            "a" )
         .fitted( 9, false )
         .text(),
      "??a" );
}

TEST( Wrapped, breaksAtBlanks ) {
   EXPECT_EQ( wrapped( "one two three", 8, 9, true ), ( Texts{ "one two", "three" } ) );
   EXPECT_EQ( wrapped( "one two three", 7, 9, true ), ( Texts{ "one two", "three" } ) );
   EXPECT_EQ( wrapped( "", 7, 9, true ), Texts{} );
}

TEST( Wrapped, breaksWordsThatAreTooLong ) {
   EXPECT_EQ( wrapped( "abcdefgh ij", 3, 9, true ), ( Texts{ "abc", "def", "gh", "ij" } ) );
}

TEST( Wrapped, saysThatThereIsMore ) {
   EXPECT_EQ( wrapped( "one two three", 8, 1, true ), ( Texts{ "one two\u2026" } ) );
   EXPECT_EQ( wrapped( "one two three", 8, 1, false ), ( Texts{ "one t..." } ) );
   EXPECT_EQ( wrapped( "one two three four", 8, 2, true ), ( Texts{ "one two", "three f\u2026" } ) );
}

TEST( Wrapped, endsWhereNotEvenACharacterFits ) {
   EXPECT_EQ( wrapped( "\xE4\xB8\xAD", 1, 9, true ), Texts{} );
   EXPECT_EQ( wrapped( "a", 0, 9, true ), Texts{} );
}

} // namespace
} // namespace Maintctl
