#include "Config/Duration.h"

#include "Config/InQuotes.h"

namespace Config {

namespace {

constexpr std::string_view digits = "0123456789";

constexpr std::uint32_t secondsOf( char unit ) {
   switch ( unit ) {
   case 'h':
      return 3600;
   case 'm':
      return 60;
   case 's':
      return 1;
   default:
      return 0;
   }
}

std::string notADuration( std::string_view text ) {
   return inQuotes( text ) +
          " is not a time; write whole hours, minutes and seconds, for example 90s, 5m or 1h30m";
}

/// What somebody means who writes "10 s", "10S", "5min" or "30sec": the number and the first letter of the unit.
std::string withUnitMeant( std::string_view number, std::string_view unit ) {
   const std::size_t first = unit.find_first_not_of( ' ' );
   if ( first == unit.npos || unit.find_first_of( digits ) != unit.npos )
      return {};
   std::string_view name = unit.substr( first );
   const char letter = static_cast< char >( name[0] | 0x20 );
   if ( secondsOf( letter ) == 0 || name == "ms" )
      return {};
   return std::string( number ).append( 1, letter );
}

} // namespace

Parsed< Duration > Duration::parse( std::string_view text ) {
   using Result = Parsed< Duration >;
   std::uint64_t total = 0;
   std::uint32_t lastUnit = 0;
   for ( std::string_view rest = text; !rest.empty() || lastUnit == 0; ) {
      const std::size_t at = rest.find_first_not_of( digits );
      const std::string_view number = rest.substr( 0, at );
      if ( number.empty() )
         return Result::refused( notADuration( text ) );
      if ( at == rest.npos && lastUnit == 0 ) {
         const std::string bare = number.size() <= 20 ? std::string( number ) : "N";
         return Result::refused(
            inQuotes( text ) + " has no unit; write " + bare + "s, " + bare + "m or " + bare + "h" );
      }
      const std::uint32_t unit = at == rest.npos ? 0 : secondsOf( rest[at] );
      const bool unitEnds =
         at != rest.npos && ( at + 1 == rest.size() || digits.find( rest[at + 1] ) != digits.npos );
      if ( unit == 0 || !unitEnds ) {
         const std::string meant =
            at == rest.npos || lastUnit ? "" : withUnitMeant( number, rest.substr( at ) );
         return Result::refused(
            notADuration( text ) + ( meant.empty() ? "" : "; did you mean " + inQuotes( meant ) + "?" ) );
      }
      if ( lastUnit && unit >= lastUnit )
         return Result::refused(
            inQuotes( text ) + " is not a time; hours come before minutes before seconds" );
      std::uint64_t value = 0;
      for ( const char c : number ) {
         value = value * 10 + static_cast< std::uint64_t >( c - '0' );
         if ( total + value * unit > max().seconds() )
            return Result::refused( inQuotes( text ) + " is out of range; a time is at most 720h" );
      }
      total += value * unit;
      lastUnit = unit;
      rest.remove_prefix( at + 1 );
   }
   return Result::of( fromSeconds( static_cast< std::uint32_t >( total ) ) );
}

std::string Duration::text() const {
   if ( seconds_ == 0 )
      return "0s";
   std::string result;
   std::uint32_t rest = seconds_;
   for ( const char unit : { 'h', 'm', 's' } ) {
      if ( const std::uint32_t count = rest / secondsOf( unit ) )
         result.append( std::to_string( count ) ).append( 1, unit );
      rest %= secondsOf( unit );
   }
   return result;
}

} // namespace Config
