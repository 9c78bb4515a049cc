#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Purpose: tells from the spelling of a call's arguments, which the preprocessor gives, which of them are literals.
/// A type cannot tell: a literal and an array that may change have the same one. What is a literal here belongs to
/// the call site and costs a line nothing.
namespace FastLog {

enum class Spelling {
   value,   ///< anything else
   literal, ///< one or more plain string literals one after another
   function ///< __func__
};

namespace detail {

constexpr bool isWordChar( char c ) {
   return ( c >= 'a' && c <= 'z' ) || ( c >= 'A' && c <= 'Z' ) || ( c >= '0' && c <= '9' ) || c == '_';
}

/// Whether the quote at `at` separates digits of a number.
constexpr bool separatesDigits( std::string_view call, std::size_t at ) {
   std::size_t first = at;
   while ( first > 0 && ( isWordChar( call[first - 1] ) || call[first - 1] == '\'' ) )
      --first;
   return first < at && call[first] >= '0' && call[first] <= '9';
}

/// The quote that ends the literal that begins at `at`, or npos.
constexpr std::size_t closingQuote( std::string_view call, std::size_t at ) {
   for ( std::size_t i = at + 1; i < call.size(); ++i ) {
      if ( call[i] == call[at] )
         return i;
      if ( call[i] == '\\' )
         ++i;
   }
   return std::string_view::npos;
}

/// Whether all escapes of the literal are ones that appendLiteral() knows.
constexpr bool hasPlainEscapes( std::string_view literal ) {
   for ( std::size_t i = 0; i + 1 < literal.size(); ++i )
      if ( literal[i] == '\\' ) {
         ++i;
         if ( std::string_view( "abefnrtvx01234567\\\"'?" ).find( literal[i] ) == std::string_view::npos )
            return false;
      }
   return true;
}

constexpr std::string_view trimmed( std::string_view text ) {
   while ( !text.empty() && text.front() == ' ' )
      text.remove_prefix( 1 );
   while ( !text.empty() && text.back() == ' ' )
      text.remove_suffix( 1 );
   return text;
}

} // namespace detail

/// Calls visit( Spelling, std::string_view spelling ) for each argument of a call, in order. Returns their number, or
/// 0 if the spelling is beyond this function (raw literals); then what has been visited means nothing.
template < class Visit >
constexpr std::size_t forEachArgument( std::string_view call, Visit && visit ) {
   std::size_t count = 0, begin = 0;
   int depth = 0;
   bool literal = false, other = false;
   const auto end = [&]( std::size_t at ) {
      const std::string_view argument = detail::trimmed( call.substr( begin, at - begin ) );
      visit(
         literal && !other        ? Spelling::literal
         : argument == "__func__" ? Spelling::function
                                  : Spelling::value,
         argument );
      ++count;
      begin = at + 1;
      literal = other = false;
   };
   for ( std::size_t i = 0; i < call.size(); ++i ) {
      const char c = call[i];
      if ( c == ',' && depth == 0 ) {
         end( i );
      } else if ( c == '"' || ( c == '\'' && !detail::separatesDigits( call, i ) ) ) {
         if ( i > 0 && call[i - 1] == 'R' )
            return 0;
         const std::size_t last = detail::closingQuote( call, i );
         if ( last == std::string_view::npos )
            return 0;
         literal = true;
         other = other || c != '"' || !detail::hasPlainEscapes( call.substr( i + 1, last - i - 1 ) );
         i = last;
      } else {
         depth += c == '(' || c == '[' || c == '{';
         depth -= c == ')' || c == ']' || c == '}';
         other = other || c != ' ';
      }
   }
   end( call.size() );
   return count;
}

/// One bit for each argument that is no value: bit 0 for the first. 0 if the spelling does not split into as many
/// arguments as the compiler sees (a comma between angle brackets): then all of them are copied like values, which is
/// right and only costs more.
constexpr std::uint64_t literalArguments( std::string_view call, std::size_t arguments ) {
   std::uint64_t mask = 0;
   std::size_t index = 0;
   const std::size_t count = forEachArgument( call, [&]( Spelling spelling, std::string_view ) {
      if ( spelling != Spelling::value && index < 64 )
         mask |= std::uint64_t( 1 ) << index;
      ++index;
   } );
   return count == arguments ? mask : 0;
}

} // namespace FastLog
