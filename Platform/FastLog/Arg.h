#pragma once

#include "Platform/FastLog/Layout.h"

#include <concepts>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

/// Purpose: what of a value goes into a line. A line holds copies only: what it was made from may be gone when it is
/// read, and who reads it may be another process.
///
/// A type of one's own takes part in one of three ways, the first that exists is used:
/// 1. a specialisation of FastLog::Arg with `static X of( const T & )`
/// 2. a free function `X fastLogValue( const T & )` in its own namespace: needs no header of ours
/// 3. a free function `stringValue( const T & )` in its own namespace, the text that traces show as well
/// where X is an integer, bool, double, or text: std::string, or a std::string_view that stays good for the call.
namespace FastLog {

template < class T >
struct Arg;

namespace detail {

template < class T >
concept HasFastLogValue = requires( const T & v ) {
   fastLogValue( v );
};
template < class T >
concept HasStringValue = requires( const T & v ) {
   { stringValue( v ) } -> std::convertible_to< std::string_view >;
};
template < class T >
inline constexpr bool never = false;

} // namespace detail

/// Integers of any size (char types too: a char is a number), bool, float and double, std::string, std::string_view.
template < class T >
struct Arg {
   static decltype( auto ) of( const T & value ) {
      if constexpr ( std::is_arithmetic_v< T > && !std::is_same_v< T, long double > )
         return T( value );
      else if constexpr ( detail::HasFastLogValue< T > )
         return fastLogValue( value );
      else if constexpr ( detail::HasStringValue< T > )
         return stringValue( value );
      else if constexpr ( std::is_pointer_v< T > )
         static_assert( detail::never< T >, "a line may not hold a pointer; log what it points to" );
      else if constexpr ( std::convertible_to< const T &, std::string_view > )
         return std::string_view( value );
      else
         static_assert( detail::never< T >, "give this type a stringValue(), or specialise FastLog::Arg" );
   }
};

/// Up to the zero byte; null is "(null)".
template <>
struct Arg< const char * > {
   static std::string_view of( const char * value ) { return value ? value : "(null)"; }
};
template <>
struct Arg< char * > : Arg< const char * > {};

/// An array that is no literal of the call: up to the zero byte, or all of it.
template < std::size_t size >
struct Arg< char[size] > {
   static std::string_view of( const char ( &value )[size] ) { return { value, ::strnlen( value, size ) }; }
};

namespace detail {

/// The five forms in which arguments reach a line; few, so that few functions are made to write them.
template < class T >
constexpr auto rawOf( const T & value ) {
   if constexpr ( std::is_same_v< T, bool > )
      return value;
   else if constexpr ( std::is_integral_v< T > && std::is_signed_v< T > )
      return static_cast< std::int64_t >( value );
   else if constexpr ( std::is_integral_v< T > )
      return static_cast< std::uint64_t >( value );
   else if constexpr ( std::is_floating_point_v< T > )
      return static_cast< double >( value );
   else
      return std::string_view( value );
}

template < class Raw >
inline constexpr Type typeOf = Type::text;
template <>
inline constexpr Type typeOf< std::int64_t > = Type::signedInteger;
template <>
inline constexpr Type typeOf< std::uint64_t > = Type::unsignedInteger;
template <>
inline constexpr Type typeOf< bool > = Type::boolean;
template <>
inline constexpr Type typeOf< double > = Type::real;

template < class Raw >
constexpr std::size_t packedBytes( Raw ) {
   return sizeof( Raw );
}
constexpr std::size_t packedBytes( std::string_view text ) {
   return sizeof( std::uint16_t ) + ( text.size() < maxText ? text.size() : maxText );
}
template < class Raw >
inline constexpr std::size_t maxPacked = sizeof( Raw );
template <>
inline constexpr std::size_t maxPacked< std::string_view > = sizeof( std::uint16_t ) + maxText;

/// Copies up to maxText bytes. Names are short, so this tries two overlapping moves before it calls anybody.
inline void copyText( char * to, const char * from, std::size_t bytes ) {
   if ( bytes > 32 ) [[unlikely]] {
      std::memcpy( to, from, bytes );
   } else if ( bytes >= 16 ) {
      struct Half {
         std::uint64_t words[2];
      } first, last;
      std::memcpy( &first, from, 16 );
      std::memcpy( &last, from + bytes - 16, 16 );
      std::memcpy( to, &first, 16 );
      std::memcpy( to + bytes - 16, &last, 16 );
   } else if ( bytes >= 8 ) {
      std::uint64_t first, last;
      std::memcpy( &first, from, 8 );
      std::memcpy( &last, from + bytes - 8, 8 );
      std::memcpy( to, &first, 8 );
      std::memcpy( to + bytes - 8, &last, 8 );
   } else if ( bytes >= 4 ) {
      std::uint32_t first, last;
      std::memcpy( &first, from, 4 );
      std::memcpy( &last, from + bytes - 4, 4 );
      std::memcpy( to, &first, 4 );
      std::memcpy( to + bytes - 4, &last, 4 );
   } else if ( bytes > 0 ) {
      to[0] = from[0];
      to[bytes / 2] = from[bytes / 2];
      to[bytes - 1] = from[bytes - 1];
   }
}

template < class Raw >
inline char * pack( char * to, Raw value ) {
   std::memcpy( to, &value, sizeof value );
   return to + sizeof value;
}
inline char * pack( char * to, std::string_view text ) {
   const std::size_t bytes = text.size() < maxText ? text.size() : maxText;
   const auto head = static_cast< std::uint16_t >( text.size() > maxText ? bytes | textCut : bytes );
   std::memcpy( to, &head, sizeof head );
   copyText( to + sizeof head, text.data(), bytes );
   return to + sizeof head + bytes;
}

} // namespace detail
} // namespace FastLog
