#include "Config/Suggestion.h"
#include "Config/InQuotes.h"

#include <gtest/gtest.h>

namespace {

using Config::didYouMean;
using Config::inQuotes;
using Config::nearest;

const std::vector< std::string > keys{ "threshold", "load-interval", "shutdown", "shutdown-max-delay", "in" };

TEST( Suggestion, findsEachKindOfSingleMistake ) {
   EXPECT_EQ( "threshold", nearest( "treshold", keys ) );   // missing
   EXPECT_EQ( "threshold", nearest( "thresshold", keys ) ); // too much
   EXPECT_EQ( "threshold", nearest( "thrashold", keys ) );  // wrong
   EXPECT_EQ( "threshold", nearest( "thershold", keys ) );  // swapped
}

TEST( Suggestion, findsADifferenceInCaseOnly ) {
   EXPECT_EQ( "load-interval", nearest( "LOAD-Interval", keys ) );
   EXPECT_EQ( "in", nearest( "IN", keys ) );
}

TEST( Suggestion, takesTheNearest ) { EXPECT_EQ( "shutdown", nearest( "shutdwn", keys ) ); }

TEST( Suggestion, takesTheFirstOfEquallyNear ) {
   EXPECT_EQ( "abcx", nearest( "abc", { "zzzz", "abcx", "abcy" } ) );
}

TEST( Suggestion, givesNothingForWhatIsFar ) {
   EXPECT_EQ( "", nearest( "colour", keys ) );
   EXPECT_EQ( "", nearest( "to", keys ) );
   EXPECT_EQ( "", nearest( "", keys ) );
   EXPECT_EQ( "", nearest( std::string( 100, 'a' ), { std::string( 100, 'b' ) } ) );
}

TEST( Suggestion, takesAnotherNumberForAnotherName ) {
   EXPECT_EQ( "", nearest( "spine-11", { "spine-1", "spine-2" } ) );
}

TEST( Suggestion, looksThroughNoMoreThanAThousandNames ) {
   EXPECT_EQ( "abcd", nearest( "abce", std::vector< std::string >( 1000, "abcd" ) ) );
   EXPECT_EQ( "", nearest( "abce", std::vector< std::string >( 1001, "abcd" ) ) );
}

TEST( Suggestion, isTheEndOfASentence ) {
   EXPECT_EQ( "; did you mean \"in\"?", didYouMean( "In", keys ) );
   EXPECT_EQ( "", didYouMean( "colour", keys ) );
}

TEST( InQuotes, showsControlCharactersAndQuotesEscaped ) {
   EXPECT_EQ( R"("a\"b\\c\nd\te\x00\x7f")", inQuotes( std::string_view( "a\"b\\c\nd\te\0\x7f", 11 ) ) );
}

TEST( InQuotes, cutsLongTextBetweenCharacters ) {
   EXPECT_EQ( "\"" + std::string( 64, 'a' ) + "\"", inQuotes( std::string( 64, 'a' ) ) );
   EXPECT_EQ(
      "\"" + std::string( 63, 'a' ) + "\u00e4...\"", inQuotes( std::string( 63, 'a' ) + "\u00e4\u00e4" ) );
}

} // namespace
