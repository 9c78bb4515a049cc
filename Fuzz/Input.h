#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

/// Purpose: what fuzz targets have in common: taking the bytes they are given apart, and telling what must not be.
namespace Fuzz {

/// Ends the program if a promise is broken, which the fuzzer takes for a find.
inline void require( bool kept, const char * promise, std::string_view detail = {} ) {
   if ( kept )
      return;
   std::fprintf(
      stderr, "broken: %s\n%.*s\n", promise,
      static_cast< int >( std::min( detail.size(), std::size_t( 4000 ) ) ), detail.data() );
   std::abort();
}

/// Bytes from the fuzzer, taken from the front. Behind the end there are zeros and empty texts.
class Input {
 public:
   Input( const std::uint8_t * data, std::size_t size )
      : left_( reinterpret_cast< const char * >( data ), size ) {}

   bool empty() const { return left_.empty(); }
   std::uint8_t byte() {
      if ( left_.empty() )
         return 0;
      const auto result = static_cast< std::uint8_t >( left_.front() );
      left_.remove_prefix( 1 );
      return result;
   }
   /// Little-endian.
   std::uint16_t number16() {
      const unsigned low = byte();
      return static_cast< std::uint16_t >( low | byte() << 8 );
   }
   /// At most so many.
   std::string_view bytes( std::size_t size ) {
      const std::string_view result = left_.substr( 0, size );
      left_.remove_prefix( result.size() );
      return result;
   }
   /// Behind their length in 16 bits.
   std::string_view sized() { return bytes( number16() ); }
   std::string_view rest() { return bytes( left_.size() ); }

 private:
   std::string_view left_;
};

} // namespace Fuzz
