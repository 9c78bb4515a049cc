#include "Api/Values.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace Api {

namespace {

constexpr std::int64_t secondsPerDay = 86400;

/// Days since 1970-01-01 of a date of the Gregorian calendar. The year is counted from March, so that the leap day is
/// the last one of it.
std::int64_t daysOf( std::int64_t year, int month, int day ) {
   year -= month <= 2;
   const std::int64_t era = ( year >= 0 ? year : year - 399 ) / 400;
   const std::int64_t yearOfEra = year - era * 400;
   const std::int64_t dayOfYear = ( 153 * ( month + ( month > 2 ? -3 : 9 ) ) + 2 ) / 5 + day - 1;
   return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

struct Date {
   std::int64_t year;
   int month, day;
};

Date dateOf( std::int64_t days ) {
   days += 719468;
   const std::int64_t era = ( days >= 0 ? days : days - 146096 ) / 146097;
   const std::int64_t dayOfEra = days - era * 146097;
   const std::int64_t yearOfEra = ( dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096 ) / 365;
   const std::int64_t dayOfYear = dayOfEra - ( 365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100 );
   const int march = static_cast< int >( ( 5 * dayOfYear + 2 ) / 153 );
   const int month = march < 10 ? march + 3 : march - 9;
   return {
      yearOfEra + era * 400 + ( month <= 2 ), month,
      static_cast< int >( dayOfYear - ( 153 * march + 2 ) / 5 + 1 ) };
}

int daysOfMonth( int year, int month ) {
   constexpr int days[] = { 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31 };
   const bool leap = year % 4 == 0 && ( year % 100 != 0 || year % 400 == 0 );
   return month == 2 && leap ? 29 : days[month - 1];
}

/// Takes text from the front.
struct Cursor {
   std::string_view rest;
   bool good = true;

   /// A number of exactly so many digits.
   int number( std::size_t digits, int least, int most ) {
      int value = 0;
      const auto end = rest.data() + std::min( digits, rest.size() );
      const auto [stop, error] = std::from_chars( rest.data(), end, value );
      if (
         rest.size() < digits || rest[0] == '-' || error != std::errc() || stop != end || value < least ||
         value > most ) {
         good = false;
         return least;
      }
      rest.remove_prefix( digits );
      return value;
   }
   void one( std::string_view of ) {
      if ( rest.empty() || of.find( rest[0] ) == std::string_view::npos )
         good = false;
      else
         rest.remove_prefix( 1 );
   }
   /// Decimals of a second, behind a point; 0 if there is none.
   double fraction() {
      if ( rest.empty() || rest[0] != '.' )
         return 0;
      rest.remove_prefix( 1 );
      double value = 0, scale = 0.1;
      std::size_t digits = 0;
      for ( ; digits < rest.size() && rest[digits] >= '0' && rest[digits] <= '9'; ++digits, scale /= 10 )
         value += scale * ( rest[digits] - '0' );
      good = good && digits > 0;
      rest.remove_prefix( digits );
      return value;
   }
   /// `Z` or `+hh:mm`, in seconds east.
   int offset() {
      if ( !rest.empty() && ( rest[0] == '+' || rest[0] == '-' ) ) {
         const int sign = rest[0] == '-' ? -1 : 1;
         rest.remove_prefix( 1 );
         const int hours = number( 2, 0, 23 );
         one( ":" );
         return sign * ( hours * 3600 + number( 2, 0, 59 ) * 60 );
      }
      one( "Zz" );
      return 0;
   }
};

std::string twoParts( long large, const char * largeUnit, long small, const char * smallUnit ) {
   char text[48];
   std::snprintf( text, sizeof text, "%ld%s%02ld%s", large, largeUnit, small, smallUnit );
   return text;
}

} // namespace

std::string timeText( double seconds ) {
   constexpr double first = -62167219200.0, last = 253402300799.999;
   const double inRange = std::isnan( seconds ) ? first : std::clamp( seconds, first, last );
   const auto millis = static_cast< std::int64_t >( std::llround( inRange * 1000 ) );
   const std::int64_t whole = ( millis - ( millis % 1000 + 1000 ) % 1000 ) / 1000;
   const std::int64_t day =
      ( whole - ( whole % secondsPerDay + secondsPerDay ) % secondsPerDay ) / secondsPerDay;
   const Date date = dateOf( day );
   const auto ofDay = static_cast< int >( whole - day * secondsPerDay );
   char text[64];
   std::snprintf(
      text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", static_cast< int >( date.year ), date.month,
      date.day, ofDay / 3600, ofDay / 60 % 60, ofDay % 60, static_cast< int >( millis - whole * 1000 ) );
   return text;
}

std::optional< double > timeOf( std::string_view text ) {
   Cursor cursor{ text };
   const int year = cursor.number( 4, 0, 9999 );
   cursor.one( "-" );
   const int month = cursor.number( 2, 1, 12 );
   cursor.one( "-" );
   const int day = cursor.number( 2, 1, daysOfMonth( year, month ) );
   cursor.one( "Tt " );
   const int hour = cursor.number( 2, 0, 23 );
   cursor.one( ":" );
   const int minute = cursor.number( 2, 0, 59 );
   cursor.one( ":" );
   const int second = cursor.number( 2, 0, 60 );
   const double fraction = cursor.fraction();
   const int offset = cursor.offset();
   if ( !cursor.good || !cursor.rest.empty() )
      return std::nullopt;
   const std::int64_t whole =
      daysOf( year, month, day ) * secondsPerDay + hour * 3600 + minute * 60 + second - offset;
   return static_cast< double >( whole ) + fraction;
}

std::string rateText( double bps ) {
   struct Unit {
      double scale;
      const char * name;
   };
   // The unit changes where three digits would round up to 1000 of the smaller one.
   static constexpr std::array< Unit, 3 > units = { { { 1e9, "Gbps" }, { 1e6, "Mbps" }, { 1e3, "kbps" } } };
   char text[64];
   const double size = std::fabs( bps );
   for ( const Unit & unit : units ) {
      if ( size >= unit.scale * 0.9995 ) {
         const double value = bps / unit.scale;
         const double digits = std::fabs( value );
         const int decimals = digits >= 99.95 ? 0 : digits >= 9.995 ? 1 : 2;
         std::snprintf( text, sizeof text, "%.*f %s", decimals, value, unit.name );
         return text;
      }
   }
   std::snprintf( text, sizeof text, "%.0f bps", size < 0.5 ? 0.0 : bps );
   return text;
}

std::string spanText( double seconds ) {
   const long whole = seconds > 0 && seconds < 1e12 ? static_cast< long >( seconds ) : 0;
   if ( whole < 60 )
      return std::to_string( whole ) + "s";
   if ( whole < 3600 )
      return twoParts( whole / 60, "m", whole % 60, "s" );
   if ( whole < 86400 )
      return twoParts( whole / 3600, "h", whole / 60 % 60, "m" );
   return twoParts( whole / 86400, "d", whole / 3600 % 24, "h" );
}

std::string counterText( std::uint64_t value ) { return std::to_string( value ); }

std::optional< std::uint64_t > counterOf( std::string_view text ) {
   std::uint64_t value = 0;
   const auto end = text.data() + text.size();
   const auto [stop, error] = std::from_chars( text.data(), end, value );
   if ( error != std::errc() || stop != end )
      return std::nullopt;
   return value;
}

} // namespace Api
