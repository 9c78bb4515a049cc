#pragma once

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <string_view>

/// Purpose: values that readers of texts are afraid of: at their bounds, at those of numbers in a machine, and outside.
namespace Fuzz {

class Dice {
 public:
   explicit Dice( unsigned seed ) : engine_( seed ) {}
   /// From 0 to `end` - 1; 0 if there is nothing.
   std::size_t below( std::size_t end ) { return end ? engine_() % end : 0; }
   bool oneIn( std::size_t chances ) { return below( chances ) == 0; }
   template < class List >
   decltype( auto ) oneOf( const List & list ) {
      return list[below( std::size( list ) )];
   }
   /// Of a list with a blank between each two.
   std::string_view wordOf( std::string_view list ) {
      std::size_t blanks =
         below( static_cast< std::size_t >( std::count( list.begin(), list.end(), ' ' ) ) + 1 );
      for ( ; blanks > 0; --blanks )
         list.remove_prefix( list.find( ' ' ) + 1 );
      return list.substr( 0, list.find( ' ' ) );
   }

 private:
   std::minstd_rand engine_;
};

inline bool isDigit( char c ) { return '0' <= c && c <= '9'; }

/// In digits.
std::string number( Dice & dice );
/// A number, a time, a rate, a name, whatever there is.
std::string value( Dice & dice );
/// One of the same kind as the word.
std::string valueLike( std::string_view word, Dice & dice );

} // namespace Fuzz
