#include "Fuzz/Values.h"

namespace Fuzz {

namespace {

/// Of what is counted in hundreds or, seldom, anything.
std::string count( Dice & dice ) {
   switch ( dice.below( 4 ) ) {
   case 0:
      return std::to_string( dice.below( 60 ) );
   case 1:
      return number( dice );
   default:
      return std::string(
         dice.wordOf( "0 1 2 9 10 24 59 60 61 90 100 719 720 721 3600 86400 604800 2592000" ) );
   }
}

std::string duration( Dice & dice ) {
   std::string result;
   for ( const char unit : { 'h', 'm', 's' } )
      if ( dice.oneIn( 2 ) )
         result.append( count( dice ) ).append( 1, unit );
   return result.empty() ? count( dice ) + "s" : result;
}

std::string rate( Dice & dice ) {
   std::string result = count( dice );
   if ( dice.oneIn( 2 ) )
      result.append( "." ).append( count( dice ) ).append( dice.below( 12 ), '0' );
   return result.append( dice.wordOf( "bps kbps Mbps Gbps" ) );
}

std::string range( Dice & dice ) {
   constexpr std::string_view edges = "0 1 2 9 10 11 20 29 30 4093 4094 4095";
   return std::string( dice.wordOf( edges ) ).append( "-" ).append( dice.wordOf( edges ) );
}

std::string prefix( Dice & dice ) {
   constexpr std::string_view addresses =
      "0.0.0.0 10.0.0.0 192.0.2.7 255.255.255.255 :: 2001:db8:: 2001:db8::7 ::ffff:192.0.2.7";
   constexpr std::string_view lengths = " /0 /1 /8 /24 /31 /32 /33 /64 /127 /128 /129";
   return std::string( dice.wordOf( addresses ) ).append( dice.wordOf( lengths ) );
}

std::string url( Dice & dice ) {
   std::string result( dice.wordOf( "http:// https://" ) );
   result.append( dice.wordOf( " me@ me:b@" ) );
   result.append( dice.wordOf( "a a.example 192.0.2.7 [::1] [2001:db8::7] " ) );
   result.append( dice.wordOf( "   :0 :1 :80 :65535 :65536 :" ) );
   return result.append( dice.wordOf( " /" ) ).append( dice.wordOf( " ?a=%20" ) );
}

std::string date( Dice & dice ) {
   constexpr std::string_view days =
      "0000-01-01 1969-12-31 1970-01-01 2024-02-29 2026-02-29 2026-11-31 9999-12-31";
   std::string result( dice.wordOf( days ) );
   result.append( "T" ).append( dice.wordOf( "00:00:00 12:34:56 23:59:59 23:59:60 24:00:00" ) );
   if ( dice.oneIn( 2 ) )
      result.append( "." ).append( count( dice ) );
   return result.append( dice.wordOf( "Z +05:30 %2B05:30 -23:59 +24:00 " ) );
}

} // namespace

std::string number( Dice & dice ) {
   constexpr std::string_view edges =
      "0 1 2 3 8 10 16 23 24 32 64 90 100 127 128 255 256 512 999 1000 1024 4095 4096 9999 65535 65536 86399 "
      "86400 86401 "
      "604800 604801 1000000 2591999 2592000 2592001 1700000000 2147483647 2147483648 4294967295 4294967296 "
      "253402300799 "
      "1000000000000000 9007199254740992 9223372036854775808 18446744073709551615 18446744073709551616";
   switch ( dice.below( 16 ) ) {
   case 0:
      return std::string( "-" ).append( dice.wordOf( edges ) );
   case 1:
   case 2:
      return std::to_string( dice.below( 1000 ) ) + "." + std::to_string( dice.below( 1000 ) );
   case 3:
      return std::string( dice.below( 20 ), '0' ) + std::to_string( dice.below( 100 ) );
   case 4:
      return std::to_string( dice.below( 100 ) ) + "e" + std::to_string( dice.below( 400 ) );
   case 5:
   case 6:
      return std::to_string( dice.below( 100 ) );
   case 7: {
      std::string digits;
      for ( std::size_t left = 1 + dice.below( 21 ); left > 0; --left )
         digits += static_cast< char >( '0' + dice.below( 10 ) );
      return digits;
   }
   default:
      return std::string( dice.wordOf( edges ) );
   }
}

std::string value( Dice & dice ) {
   constexpr std::string_view known = "true false null never ~ yes 1e308 -0 nan inf u1 u2 et1 a name enter "
                                      "exit drainwatch none [::1]:8080 {} []";
   switch ( dice.below( 9 ) ) {
   case 0:
      return duration( dice );
   case 1:
      return rate( dice );
   case 2:
      return range( dice );
   case 3:
      return prefix( dice );
   case 4:
      return url( dice );
   case 5:
      return date( dice );
   case 6:
      return number( dice );
   default:
      return std::string( dice.wordOf( known ) );
   }
}

std::string valueLike( std::string_view word, Dice & dice ) {
   const bool begins = !word.empty() && isDigit( word.front() );
   const std::size_t end = std::min( word.find_first_not_of( "0123456789" ), word.size() );
   const std::string_view behind = word.substr( end );
   if ( begins && behind.empty() )
      return dice.oneIn( 8 ) ? range( dice ) : dice.oneIn( 2 ) ? number( dice ) : count( dice );
   if ( begins && behind.front() == '-' )
      return end == 4 ? date( dice ) : range( dice );
   if ( begins && word.ends_with( "bps" ) )
      return rate( dice );
   if ( begins && std::string_view( "hms" ).find( behind.front() ) != std::string_view::npos )
      return duration( dice );
   if ( word.find( "://" ) != word.npos )
      return url( dice );
   if ( word.find( '/' ) != word.npos && word.find_first_of( ".:" ) != word.npos )
      return prefix( dice );
   return value( dice );
}

} // namespace Fuzz
