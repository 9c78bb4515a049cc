#pragma once

#include <cstdint>
#include <initializer_list>

namespace Tests {

/// Numbers from a seed, the same ones everywhere.
class Chance {
 public:
   explicit Chance( std::uint64_t seed ) : state_( seed ) {}

   /// 0 to below - 1.
   unsigned pick( unsigned below ) { return static_cast< unsigned >( number() % below ); }
   int pick( int below ) { return static_cast< int >( pick( static_cast< unsigned >( below ) ) ); }
   bool percent( unsigned chance ) { return pick( 100u ) < chance; }
   template < class T >
   T of( std::initializer_list< T > list ) {
      return list.begin()[pick( static_cast< unsigned >( list.size() ) )];
   }
   /// An element of a container that is not empty.
   template < class Container >
   auto elementOf( const Container & container ) {
      auto at = container.begin();
      for ( unsigned n = pick( static_cast< unsigned >( container.size() ) ); n > 0; --n )
         ++at;
      return *at;
   }

   std::uint64_t number() {
      std::uint64_t z = ( state_ += 0x9e3779b97f4a7c15 );
      z = ( z ^ z >> 30 ) * 0xbf58476d1ce4e5b9;
      z = ( z ^ z >> 27 ) * 0x94d049bb133111eb;
      return z ^ z >> 31;
   }

 private:
   std::uint64_t state_;
};

} // namespace Tests
