#pragma once

#include "Platform/Vel/Ptr.h"

#include <concepts>
#include <type_traits>

/// Purpose: the one text form of every value, used by traces, dumps, logs and descriptions.
///
/// A type takes part by a free function in its own namespace: `Vel::String stringValue( const T & )`.
/// Booleans are 0 or 1, numbers decimal, floating values the shortest text that gives the same value back.
namespace Vel {

void appendText( String & out, std::string_view text );
void appendText( String & out, double value );
void appendNumber( String & out, long long value );
void appendNumber( String & out, unsigned long long value );

template < class T >
concept HasStringValue = requires( const T & v ) {
   { stringValue( v ) } -> std::convertible_to< std::string_view >;
};

template < std::integral T >
void appendText( String & out, T value ) {
   if constexpr ( std::is_signed_v< T > )
      appendNumber( out, static_cast< long long >( value ) );
   else
      appendNumber( out, static_cast< unsigned long long >( value ) );
}

template < class T >
requires HasStringValue< T >
void appendText( String & out, const T & value ) {
   appendText( out, std::string_view( stringValue( value ) ) );
}

/// Pointers to entities print as "null" or "set": an address would make two runs differ.
template < class T >
void appendText( String & out, const Ptr< T > & value ) {
   appendText( out, std::string_view( value ? "set" : "null" ) );
}

/// The pieces one after another.
template < class... Pieces >
String text( const Pieces &... pieces ) {
   String out;
   ( appendText( out, pieces ), ... );
   return out;
}

inline const char * boolText( bool value ) { return value ? "true" : "false"; }

} // namespace Vel
