#include "Api/Utf8.h"

#include <gtest/gtest.h>

namespace {

TEST( Utf8, tellsTheSizeOfACharacterOrThatThereIsNone ) {
   struct Row {
      std::string_view text;
      std::size_t size;
   };
   using namespace std::string_view_literals;
   const Row rows[] = {
      { ""sv, 0 },
      { "a"sv, 1 },
      { "\0"sv, 1 },
      { "\x7f"sv, 1 },
      { "\x80"sv, 0 },
      { "\xc0\x80"sv, 0 },
      { "\xc1\xbf"sv, 0 },
      { "\xc2\x80z"sv, 2 },
      { "\xc3\xa4"sv, 2 },
      { "\xc3"sv, 0 },
      { "\xc3z"sv, 0 },
      { "\xe0\x9f\xbf"sv, 0 },
      { "\xe0\xa0\x80"sv, 3 },
      { "\xe2\x82"sv, 0 },
      { "\xed\x9f\xbf"sv, 3 },
      { "\xed\xa0\x80"sv, 0 },
      { "\xf0\x8f\xbf\xbf"sv, 0 },
      { "\xf0\x90\x80\x80"sv, 4 },
      { "\xf4\x8f\xbf\xbf"sv, 4 },
      { "\xf4\x90\x80\x80"sv, 0 },
      { "\xf5\x80\x80\x80"sv, 0 },
      { "\xff"sv, 0 } };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( testing::PrintToString( row.text ) );
      EXPECT_EQ( row.size, Api::characterSize( row.text ) );
   }
}

TEST( Utf8, cutsATextBetweenTwoCharacters ) {
   struct Row {
      std::string_view text;
      std::size_t most;
      std::string_view beginning;
   };
   const Row rows[] = {
      { "", 0, "" },
      { "", 5, "" },
      { "abc", 3, "abc" },
      { "abc", 2, "ab" },
      { "abc", 0, "" },
      { "a\xc3\xa4", 3, "a\xc3\xa4" },
      { "a\xc3\xa4", 2, "a" },
      { "a\xc3\xa4z", 3, "a\xc3\xa4" },
      { "\xc3\xa4", 1, "" },
      { "a\xe2\x82\xac", 3, "a" },
      { "a\xe2\x82\xac", 2, "a" },
      { "\xf0\x90\x80\x80", 3, "" },
      { "\xf0\x90\x80\x80", 1, "" },
      { "a\xf0\x90\x80\x80z", 5, "a\xf0\x90\x80\x80" },
      // What is no character is no part of one either.
      { "ab\xc3", 2, "ab" },
      { "a\xc3zz", 2, "a\xc3" },
      { "\x80\x80\x80\x80\x80\x80", 5, "\x80\x80\x80\x80\x80" } };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( testing::PrintToString( row.text ) + " " + std::to_string( row.most ) );
      EXPECT_EQ( row.beginning, Api::beginning( row.text, row.most ) );
   }
}

} // namespace
