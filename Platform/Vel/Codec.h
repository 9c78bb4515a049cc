#pragma once

#include "Platform/Vel/Text.h"

#include <cstring>

/// Purpose: values as bytes and as text, so that every entity can be stored and shown without knowing its
/// type.
///
/// The byte form is for one machine's own store: native byte order, no padding between values. A type is
/// either trivially copyable without padding or pointers, or specialises Vel::Codec.
namespace Vel {

/// Appends values to a byte string.
class ByteWriter {
 public:
   explicit ByteWriter( String & out ) : out_( out ) {}
   void bytes( const void * data, std::size_t size ) {
      out_.append( static_cast< const char * >( data ), size );
   }

 private:
   String & out_;
};

/// Takes values from a byte string; after the first shortage it stays failed and gives zero bytes.
class ByteReader {
 public:
   explicit ByteReader( std::string_view in ) : in_( in ) {}
   bool bytes( void * data, std::size_t size ) {
      if ( size > in_.size() || failed_ ) {
         failed_ = true;
         std::memset( data, 0, size );
         return false;
      }
      std::memcpy( data, in_.data(), size );
      in_.remove_prefix( size );
      return true;
   }
   std::string_view view( std::size_t size ) {
      if ( size > in_.size() || failed_ ) {
         failed_ = true;
         return {};
      }
      const std::string_view result = in_.substr( 0, size );
      in_.remove_prefix( size );
      return result;
   }
   void failedIs() { failed_ = true; }
   bool failed() const { return failed_; }
   bool atEnd() const { return in_.empty(); }

 private:
   std::string_view in_;
   bool failed_ = false;
};

/// How a value of T becomes bytes and comes back. `stored` false: the value belongs to the running process
/// only (pointers to entities) and is left out of the store. `copiedSize`, where there is one: the byte form is
/// these bytes of the value as it lies in memory.
template < class T >
struct Codec {
   static constexpr bool stored = std::is_trivially_copyable_v< T > && !std::is_pointer_v< T >;
   static constexpr std::size_t copiedSize = stored ? sizeof( T ) : 0;
   static void write( ByteWriter & w, const T & v ) {
      if constexpr ( stored )
         w.bytes( &v, sizeof v );
   }
   static void read( ByteReader & r, T & v ) {
      if constexpr ( stored )
         r.bytes( &v, sizeof v );
   }
};

template <>
struct Codec< bool > {
   static constexpr bool stored = true;
   static constexpr std::size_t copiedSize = 1;
   static void write( ByteWriter & w, bool v ) {
      const U8 byte = v;
      w.bytes( &byte, 1 );
   }
   static void read( ByteReader & r, bool & v ) {
      U8 byte = 0;
      if ( r.bytes( &byte, 1 ) && byte > 1 )
         r.failedIs();
      v = byte != 0;
   }
};

template <>
struct Codec< String > {
   static constexpr bool stored = true;
   static void write( ByteWriter & w, const String & v ) {
      const U32 size = static_cast< U32 >( v.size() );
      w.bytes( &size, sizeof size );
      w.bytes( v.data(), v.size() );
   }
   static void read( ByteReader & r, String & v ) {
      U32 size = 0;
      r.bytes( &size, sizeof size );
      v.assign( r.view( size ) );
   }
};

template < class T >
struct Codec< Ptr< T > > {
   static constexpr bool stored = false;
   static void write( ByteWriter &, const Ptr< T > & ) {}
   static void read( ByteReader &, Ptr< T > & ) {}
};

/// The operations of one value type, for code that does not know it.
struct ValueType {
   bool stored;
   /// Bytes of the byte form if it is the value as it lies in memory, otherwise 0.
   std::size_t copiedSize;
   String ( *text )( const void * value );
   void ( *write )( ByteWriter &, const void * value );
   void ( *read )( ByteReader &, void * value );
};

template < class T >
concept HasText = requires( String & s, const T & v ) {
   appendText( s, v );
};

template < class T >
constexpr std::size_t copiedSize() {
   if constexpr ( requires { Codec< T >::copiedSize; } )
      return Codec< T >::copiedSize;
   else
      return 0;
}

template < class T >
const ValueType & valueType() {
   static constexpr ValueType type = {
      Codec< T >::stored, copiedSize< T >(),
      []( const void * value ) -> String {
         if constexpr ( HasText< T > )
            return text( *static_cast< const T * >( value ) );
         else
            return "?";
      },
      []( ByteWriter & w, const void * value ) {
         Codec< T >::write( w, *static_cast< const T * >( value ) );
      },
      []( ByteReader & r, void * value ) { Codec< T >::read( r, *static_cast< T * >( value ) ); } };
   return type;
}

} // namespace Vel
