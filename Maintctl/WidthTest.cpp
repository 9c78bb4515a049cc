#include "Maintctl/Width.h"

#include "Maintctl/Text.h"

#include <gtest/gtest.h>

namespace Maintctl {

namespace {

TEST( Width, isTwoForWideCharactersAndNoneForWhatJoinsAnother ) {
   const struct {
      const char32_t code;
      const std::size_t expected;
   } rows[] = { { U'a', 1 },     { 0xE9, 1 },   { 0x301, 0 },  { 0x2588, 1 },  { 0x4E2D, 2 }, { 0xFF21, 2 },
                { 0x1F600, 2 },  { 0x200D, 0 }, { 0xFE0F, 0 }, { 0x1100, 2 },  { 0x1161, 0 }, { 0xAC00, 2 },
                { 0x10FFFF, 1 }, { 0x3000, 2 }, { 0xAD, 1 },   { 0x2FFFD, 2 }, { 0x2FFFE, 1 } };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( static_cast< std::uint32_t >( row.code ) );
      EXPECT_EQ( width( row.code ), row.expected );
   }
}

TEST( Width, tablesAscendAndDoNotOverlap ) {
   const auto ascends = []( const CharacterRange * table, std::size_t count ) {
      for ( std::size_t i = 0; i < count; ++i )
         if ( table[i].first > table[i].last || ( i && table[i].first <= table[i - 1].last ) )
            return false;
      return true;
   };
   EXPECT_TRUE( ascends( noColumn, noColumnCount ) );
   EXPECT_TRUE( ascends( twoColumns, twoColumnsCount ) );
}

TEST( FirstCharacter, isNoneWhereTheBytesAreNotWellFormed ) {
   const char * const rows[] = {
      "\x80",
      "\xC1\x81",
      "\xE0\x80\x80",
      "\xED\xA0\x80",
      "\xF0\x80\x80\x80",
      "\xF4\x90\x80\x80",
      "\xF5\x80\x80\x80",
      "\xC3",
      "\xE2\x82",
      "\xE2\x28\xA1" };
   for ( const char * row : rows ) {
      SCOPED_TRACE( printable( row ) );
      EXPECT_EQ( firstCharacter( row ).length, 0 );
   }
}

TEST( FirstCharacter, isReadWholeWhateverItsLength ) {
   EXPECT_EQ( firstCharacter( "ab" ).code, U'a' );
   EXPECT_EQ( firstCharacter( "\xC3\xA9x" ).code, 0xE9 );
   EXPECT_EQ( firstCharacter( "\xE4\xB8\xADx" ).code, 0x4E2D );
   EXPECT_EQ( firstCharacter( "\xF0\x9F\x98\x80x" ).code, 0x1F600 );
   EXPECT_EQ( firstCharacter( "\xF0\x9F\x98\x80x" ).length, 4 );
}

TEST( Text, isCutBeforeAWideCharacterThatDoesNotFit ) {
   const std::string text = "a\xE4\xB8\xAD\xE6\x96\x87";
   EXPECT_EQ( columns( text ), 5 );
   EXPECT_EQ( cut( text, 4 ), "a\xE4\xB8\xAD" );
   EXPECT_EQ( cut( text, 2 ), "a" );
}

TEST( Text, isCutBehindWhatJoinsItsLastCharacter ) { EXPECT_EQ( cut( "e\xCC\x81x", 1 ), "e\xCC\x81" ); }

TEST( Text, thatTurnsTheDirectionOfWritingIsMadeVisible ) {
   EXPECT_EQ(
      printable( "a\xE2\x80\xAE"
                 "b" ),
      "a\\xE2\\x80\\xAE"
      "b" );
   EXPECT_EQ( printable( "\xE2\x80\xA8" ), "\\xE2\\x80\\xA8" );
}

TEST( Text, keepsItsColumnsInAscii ) {
   EXPECT_EQ(
      ascii( "a\xE4\xB8\xAD"
             "e\xCC\x81 \xE2\x96\x88" ),
      "a??e ?" );
}

} // namespace
} // namespace Maintctl
