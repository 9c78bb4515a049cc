#pragma once

#include "Platform/Vel/String.h"

#include <functional>
#include <optional>
#include <vector>

#include <libmnl/libmnl.h>

/// Purpose: netlink messages as bytes: walking what the kernel has sent, building what is sent to it. Nothing here
/// touches a socket, and no bytes can do harm: what is cut short, nested wrongly or unknown is not read.
namespace DataPlane::Linux {

/// Bytes of one or more messages, aligned as the kernel aligns them.
using Bytes = std::vector< Vel::U32 >;

/// Calls `handle` for each whole message in `size` bytes, until it returns false. `begin` is aligned to 4. False: the
/// bytes end with something that is no whole message.
bool forEachMessage(
   const void * begin, std::size_t size, const std::function< bool( const nlmsghdr & ) > & handle );

/// The attributes behind a message's fixed header, or within another attribute, by number. If one comes twice the last
/// one counts; numbers above `highest` are unknown and skipped.
class Attributes {
 public:
   static constexpr unsigned highest = 95;

   Attributes( const void * begin, std::size_t size );
   /// Those behind a fixed header of that size; none if the message is shorter.
   Attributes( const nlmsghdr & message, std::size_t fixedHeader );
   /// Those within an attribute; none if it is null.
   explicit Attributes( const nlattr * nest );

   /// Null if it is not there.
   const nlattr * at( unsigned number ) const { return number <= highest ? byNumber_[number] : nullptr; }
   /// All of them in the order of the message, unknown ones included.
   std::vector< const nlattr * > all() const;

   /// Absent also if the attribute is too short for the type.
   std::optional< Vel::U8 > u8( unsigned number ) const { return value< Vel::U8 >( number ); }
   std::optional< Vel::U16 > u16( unsigned number ) const { return value< Vel::U16 >( number ); }
   std::optional< Vel::U32 > u32( unsigned number ) const { return value< Vel::U32 >( number ); }
   /// Up to the first zero byte or the end.
   std::optional< Vel::String > text( unsigned number ) const;
   /// Its payload; absent if the attribute is.
   std::optional< std::string_view > payload( unsigned number ) const;

   template < class T >
   std::optional< T > value( unsigned number ) const {
      const std::optional< std::string_view > bytes = payload( number );
      T result;
      if ( !bytes || bytes->size() < sizeof result )
         return {};
      __builtin_memcpy( &result, bytes->data(), sizeof result );
      return result;
   }

 private:
   void take( std::string_view bytes );

   std::string_view bytes_;
   const nlattr * byNumber_[highest + 1] = {};
};

std::string_view payload( const nlattr & attribute );
/// The payload of one attribute behind a fixed header of that size, for messages that are read by the thousand; absent
/// if the attribute is.
std::optional< std::string_view >
payloadIn( const nlmsghdr & message, std::size_t fixedHeader, unsigned attribute );
/// Without the bits that mark nesting and byte order.
unsigned number( const nlattr & attribute );

/// A message of which at least `Header` is there behind the netlink header; absent otherwise.
template < class Header >
std::optional< Header > fixedHeader( const nlmsghdr & message ) {
   if ( message.nlmsg_len < MNL_NLMSG_HDRLEN + sizeof( Header ) )
      return {};
   Header result;
   __builtin_memcpy( &result, mnl_nlmsg_get_payload( &message ), sizeof result );
   return result;
}

/// Builds one message. Its sequence number is set by whoever sends it.
class MessageBuilder {
 public:
   MessageBuilder( Vel::U16 type, Vel::U16 flags );

   /// The fixed header, before any attribute.
   template < class Header >
   MessageBuilder & header( const Header & value ) {
      append( &value, sizeof value );
      return *this;
   }
   MessageBuilder & attribute( unsigned number, std::string_view payload );
   template < class T >
   requires std::is_arithmetic_v< T > MessageBuilder & attribute( unsigned number, T value ) {
      return attribute(
         number, std::string_view( reinterpret_cast< const char * >( &value ), sizeof value ) );
   }
   /// The payload of an attribute of attributes, to be filled by `fill`.
   MessageBuilder & nested( unsigned number, const std::function< void() > & fill );
   /// Raw bytes, padded to 4; for headers within nested attributes.
   void append( const void * begin, std::size_t size );
   /// Where the next byte goes; for headers that hold their own length.
   std::size_t size() const { return bytes_.size() * sizeof( Vel::U32 ); }
   /// Overwrites two bytes at an offset.
   void u16At( std::size_t offset, std::size_t value );

   /// The message with its length set.
   Bytes take();

 private:
   Bytes bytes_;
};

inline const nlmsghdr & messageIn( const Bytes & bytes ) {
   return *reinterpret_cast< const nlmsghdr * >( bytes.data() );
}
inline nlmsghdr & messageIn( Bytes & bytes ) { return *reinterpret_cast< nlmsghdr * >( bytes.data() ); }

} // namespace DataPlane::Linux
