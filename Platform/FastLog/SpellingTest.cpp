#include "Platform/FastLog/Sites.h"

#include <gtest/gtest.h>

using namespace FastLog;

namespace {

/// One letter an argument: v value, l literal, f function; "?" if it is not understood.
std::string kinds( std::string_view call ) {
   std::string out;
   const std::size_t count = forEachArgument(
      call, [&]( Spelling spelling, std::string_view ) { out += "vlf"[static_cast< int >( spelling )]; } );
   return count == out.size() ? out : "?";
}

std::string_view nth( std::string_view call, std::size_t wanted ) {
   std::string_view found;
   std::size_t index = 0;
   forEachArgument( call, [&]( Spelling, std::string_view text ) {
      if ( index++ == wanted )
         found = text;
   } );
   return found;
}

} // namespace

TEST( Spelling, tellsLiteralsFromValues ) {
   const struct {
      const char * call;
      const char * kinds;
   } rows[] = {
      { R"("a")", "l" },
      { R"("a", b)", "lv" },
      { R"(a, "b")", "vl" },
      { R"("a" "b", c)", "lv" },
      { R"(__func__, ": ")", "fl" },
      { R"(a ? "yes" : "not")", "v" },
      { R"(f( "a", b ), "c")", "vl" },
      { R"(a[b, "c"], d{ 1, 2 })", "vv" },
      { R"("a,b\",c", d)", "lv" },
      { R"("a\\", d)", "lv" },
      { R"("a"s, "b"sv, L"c")", "vvv" },
      { R"("a" + b)", "v" },
      { R"(',', '"', '\'', "a")", "vvvl" },
      { R"(1'000'000, "a")", "vl" },
      { R"(0x1'0, u8',', "a")", "vvl" },
      { R"("\x41\101\n", "\u00b5")", "lv" },
      { R"(("a"))", "v" },
   };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.call );
      EXPECT_EQ( kinds( row.call ), row.kinds );
   }
}

TEST( Spelling, givesEachArgumentWithoutBlanksAroundIt ) {
   EXPECT_EQ( nth( R"("a", f( b, c ) , d)", 1 ), "f( b, c )" );
   EXPECT_EQ( nth( R"("a", f( b, c ) , d)", 2 ), "d" );
}

TEST( Spelling, doesNotTryRawLiterals ) {
   EXPECT_EQ( forEachArgument( "R\"x(a,\"b)x\", c", []( Spelling, std::string_view ) {} ), 0u );
   EXPECT_EQ( literalArguments( "R\"x(a,\"b)x\", \"c\"", 2 ), 0u );
}

TEST( Spelling, marksNothingWhenTheCompilerSeesOtherArguments ) {
   EXPECT_EQ( literalArguments( "\"a\", b", 2 ), 1u );
   EXPECT_EQ( literalArguments( "\"a\", f< b, c >( d )", 2 ), 0u );
}
