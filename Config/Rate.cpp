#include "Config/Rate.h"

#include "Config/InQuotes.h"

#include <array>

namespace Config {

namespace {

struct Unit {
   std::string_view name;
   std::uint64_t bps;
   unsigned digits; ///< decimal places down to 1 bps
};

constexpr std::array< Unit, 4 > units{
   { { "Gbps", 1'000'000'000, 9 }, { "Mbps", 1'000'000, 6 }, { "kbps", 1'000, 3 }, { "bps", 1, 0 } } };

constexpr std::string_view digits = "0123456789";

const Unit * unitOf( std::string_view name ) {
   for ( const Unit & unit : units )
      if ( unit.name == name )
         return &unit;
   return nullptr;
}

/// The unit that somebody means who writes "Kbps", " mbit/s" or "G".
const Unit * unitMeant( std::string_view name ) {
   const std::size_t first = name.find_first_not_of( ' ' );
   if ( first == name.npos )
      return nullptr;
   switch ( name[first] ) {
   case 'g':
   case 'G':
      return &units[0];
   case 'm':
   case 'M':
      return &units[1];
   case 'k':
   case 'K':
      return &units[2];
   case 'b':
   case 'B':
      return &units[3];
   default:
      return nullptr;
   }
}

std::string tooLarge( std::string_view text ) {
   return inQuotes( text ) + " is out of range; a rate is at most " + Rate::max().text();
}

std::string notARate( std::string_view text ) {
   return inQuotes( text ) + " is not a rate; examples: 100kbps, 1.5Mbps";
}

} // namespace

Parsed< Rate > Rate::parse( std::string_view text ) {
   using Result = Parsed< Rate >;
   std::size_t at = text.find_first_not_of( digits );
   const std::string_view whole = text.substr( 0, at );
   std::string_view fraction;
   if ( whole.empty() )
      return Result::refused( notARate( text ) );
   if ( at != text.npos && text[at] == '.' ) {
      const std::size_t end = text.find_first_not_of( digits, at + 1 );
      fraction = text.substr( at + 1, end == text.npos ? end : end - at - 1 );
      if ( fraction.empty() )
         return Result::refused( notARate( text ) );
      at = end;
   }
   if ( at == text.npos ) {
      const std::string number = text.size() <= 20 ? std::string( text ) : "N";
      return Result::refused(
         inQuotes( text ) + " has no unit; write " + number + "bps, " + number + "kbps, " + number +
         "Mbps or " + number + "Gbps" );
   }
   const Unit * const unit = unitOf( text.substr( at ) );
   if ( !unit ) {
      std::string error = inQuotes( text ) + " has an unknown unit " + inQuotes( text.substr( at ) ) +
                          "; use bps, kbps, Mbps or Gbps";
      if ( const Unit * const meant = unitMeant( text.substr( at ) ) )
         error.append( "; did you mean " )
            .append( inQuotes( std::string( text.substr( 0, at ) ).append( meant->name ) ) )
            .append( "?" );
      return Result::refused( std::move( error ) );
   }

   std::uint64_t bps = 0;
   for ( const char c : whole ) {
      bps = bps * 10 + static_cast< std::uint64_t >( c - '0' );
      if ( bps > max().bps() / unit->bps )
         return Result::refused( tooLarge( text ) );
   }
   bps *= unit->bps;
   std::uint64_t place = unit->bps;
   for ( const char c : fraction ) {
      place /= 10;
      if ( place == 0 && c != '0' )
         return Result::refused( inQuotes( text ) + " is not a whole number of bits per second" );
      bps += place * static_cast< std::uint64_t >( c - '0' );
   }
   if ( bps > max().bps() )
      return Result::refused( tooLarge( text ) );
   return Result::of( fromBps( bps ) );
}

std::string Rate::text() const {
   const Unit * unit = &units.back();
   for ( const Unit & candidate : units ) {
      if ( bps_ >= candidate.bps ) {
         unit = &candidate;
         break;
      }
   }
   std::string result = std::to_string( bps_ / unit->bps );
   if ( std::uint64_t rest = bps_ % unit->bps ) {
      std::string fraction = std::to_string( rest );
      fraction.insert( 0, unit->digits - fraction.size(), '0' );
      fraction.erase( fraction.find_last_not_of( '0' ) + 1 );
      result.append( "." ).append( fraction );
   }
   return result.append( unit->name );
}

} // namespace Config
