#include "Agent/Control/RatesFrame.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>

namespace Agent {

namespace {

/// As JSON text. Nearly all names are plain.
void appendName( std::string & to, std::string_view name ) {
   const bool plain = std::all_of( name.begin(), name.end(), []( char c ) {
      return std::isalnum( static_cast< unsigned char >( c ) ) || c == '-' || c == '.' || c == '_';
   } );
   if ( plain )
      to.append( "\"" ).append( name ).append( "\"" );
   else
      to += nlohmann::json( std::string( name ) )
               .dump( -1, ' ', false, nlohmann::json::error_handler_t::replace );
}

} // namespace

void RatesFrame::add( std::string_view name, double inBps, double outBps ) {
   if ( !empty_ )
      text_ += ',';
   empty_ = false;
   appendName( text_, name );
   text_ += ":[";
   addRate( inBps );
   text_ += ',';
   addRate( outBps );
   text_ += ']';
}

void RatesFrame::addRate( double bps ) {
   if ( !std::isfinite( bps ) ) {
      text_ += "null";
      return;
   }
   // Whole bits: nobody can see less on a curve. Beyond what a counter can give it is a number all the same.
   char digits[32];
   const double whole = std::round( bps );
   const auto end = std::abs( whole ) < 9e18
                       ? std::to_chars( digits, digits + sizeof digits, static_cast< long long >( whole ) )
                       : std::to_chars( digits, digits + sizeof digits, whole );
   text_.append( digits, end.ptr );
}

} // namespace Agent
