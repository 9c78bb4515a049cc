#include "DataPlane/Simulated/RouteTable.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <map>

namespace DataPlane::Simulated {

namespace {

struct Address {
   int family = AF_UNSPEC; ///< the text was none
   std::array< unsigned char, 16 > bytes{};

   explicit Address( const Vel::String & text ) {
      for ( const int each : { AF_INET, AF_INET6 } )
         if ( inet_pton( each, text.c_str(), bytes.data() ) == 1 )
            family = each;
   }
   int length() const { return family == AF_INET ? 32 : 128; }
   bool bit( int number ) const {
      return bytes[static_cast< std::size_t >( number ) / 8] & ( 0x80 >> number % 8 );
   }
};

struct Network {
   Address address;
   int length = -1; ///< the text was none

   explicit Network( const Vel::String & text ) : address( text.substr( 0, text.find( '/' ) ) ) {
      const std::size_t slash = text.find( '/' );
      int number = -1;
      if ( slash != Vel::String::npos && address.family != AF_UNSPEC )
         std::from_chars( text.data() + slash + 1, text.data() + text.size(), number );
      if ( number <= address.length() )
         length = number;
   }
   bool has( const Address & one ) const {
      if ( one.family != address.family || length < 0 )
         return false;
      for ( int i = 0; i < length; ++i )
         if ( one.bit( i ) != address.bit( i ) )
            return false;
      return true;
   }
};

constexpr std::size_t mostExamples = 5;

/// By destination in the order of the description.
std::vector< std::pair< Vel::String, Choices > > byDestination( std::vector< Route > routes ) {
   std::stable_sort(
      routes.begin(), routes.end(), []( const Route & a, const Route & b ) { return a.metric < b.metric; } );
   std::vector< std::pair< Vel::String, Choices > > result;
   for ( const Route & route : routes ) {
      auto at = std::find_if(
         result.begin(), result.end(), [&]( const auto & one ) { return one.first == route.to; } );
      if ( at == result.end() )
         at = result.insert( at, { route.to, {} } );
      EqualHops hops;
      for ( const Vel::String & link : route.via )
         hops.push_back( { link } );
      at->second.push_back( hops );
   }
   return result;
}

} // namespace

bool isPrefix( const Vel::String & text ) { return Network( text ).length >= 0; }

std::vector< RouteClass > classesOf( const std::vector< Route > & routes ) {
   std::vector< RouteClass > result;
   for ( const auto & [destination, choices] : byDestination( routes ) ) {
      auto at = std::find_if( result.begin(), result.end(), [&wanted = choices]( const RouteClass & one ) {
         return one.choices == wanted;
      } );
      if ( at == result.end() )
         at = result.insert( at, { choices, 0, {} } );
      ++at->destinations;
      if ( at->examples.size() < mostExamples )
         at->examples.push_back( destination );
   }
   return result;
}

AddressWay wayTo( const Vel::String & text, const std::vector< Route > & routes ) {
   AddressWay result;
   const Address address( text );
   auto all = byDestination( routes );
   std::erase_if( all, [&]( const auto & each ) { return !Network( each.first ).has( address ); } );
   std::stable_sort( all.begin(), all.end(), []( const auto & a, const auto & b ) {
      return Network( a.first ).length > Network( b.first ).length;
   } );
   if ( all.empty() )
      result.problem = "there is no route to " + text;
   for ( const auto & [destination, choices] : all ) {
      if ( result.choices.empty() )
         result.destination = destination;
      else
         result.lessSpecific.push_back( { destination, result.choices.size() } );
      result.choices.insert( result.choices.end(), choices.begin(), choices.end() );
   }
   return result;
}

} // namespace DataPlane::Simulated
