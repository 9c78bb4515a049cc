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

} // namespace
