#include "DataPlane/Linux/Message.h"

#include <algorithm>
#include <cstring>

namespace DataPlane::Linux {

bool forEachMessage(
   const void * begin, std::size_t size, const std::function< bool( const nlmsghdr & ) > & handle ) {
   const char * at = static_cast< const char * >( begin );
   std::size_t left = size;
   // Not by the library's own walk: that takes a length above 2^31 for a negative one, which fits everywhere.
   while ( left >= MNL_NLMSG_HDRLEN ) {
      const auto & message = *reinterpret_cast< const nlmsghdr * >( at );
      if ( message.nlmsg_len < MNL_NLMSG_HDRLEN || message.nlmsg_len > left )
         return false;
      if ( !handle( message ) )
         return true;
      const std::size_t whole = std::min< std::size_t >( MNL_ALIGN( message.nlmsg_len ), left );
      at += whole;
      left -= whole;
   }
   return left == 0;
}

namespace {

std::string_view bytesBehind( const nlmsghdr & message, std::size_t fixedHeader ) {
   const std::size_t before = MNL_NLMSG_HDRLEN + MNL_ALIGN( fixedHeader );
   if ( message.nlmsg_len <= before )
      return {};
   return { reinterpret_cast< const char * >( &message ) + before, message.nlmsg_len - before };
}

template < class Handle >
void eachAttribute( std::string_view bytes, Handle handle ) {
   const char * const end = bytes.data() + bytes.size();
   const auto * attribute = reinterpret_cast< const nlattr * >( bytes.data() );
   const auto left = [&] {
      return static_cast< int >( end - reinterpret_cast< const char * >( attribute ) );
   };
   for ( ; mnl_attr_ok( attribute, left() ); attribute = mnl_attr_next( attribute ) )
      handle( attribute );
}

} // namespace

Attributes::Attributes( const void * begin, std::size_t size ) {
   take( { static_cast< const char * >( begin ), size } );
}

Attributes::Attributes( const nlmsghdr & message, std::size_t fixedHeader ) {
   take( bytesBehind( message, fixedHeader ) );
}

Attributes::Attributes( const nlattr * nest ) {
   if ( nest )
      take( Linux::payload( *nest ) );
}

void Attributes::take( std::string_view bytes ) {
   bytes_ = bytes;
   eachAttribute( bytes, [this]( const nlattr * attribute ) {
      if ( number( *attribute ) <= highest )
         byNumber_[number( *attribute )] = attribute;
   } );
}

std::vector< const nlattr * > Attributes::all() const {
   std::vector< const nlattr * > result;
   eachAttribute( bytes_, [&]( const nlattr * attribute ) { result.push_back( attribute ); } );
   return result;
}

std::optional< Vel::String > Attributes::text( unsigned number ) const {
   const std::optional< std::string_view > bytes = payload( number );
   if ( !bytes )
      return {};
   return Vel::String( bytes->substr( 0, bytes->find( '\0' ) ) );
}

std::optional< std::string_view > Attributes::payload( unsigned number ) const {
   const nlattr * attribute = at( number );
   if ( !attribute )
      return {};
   return Linux::payload( *attribute );
}

std::string_view payload( const nlattr & attribute ) {
   return {
      static_cast< const char * >( mnl_attr_get_payload( &attribute ) ),
      mnl_attr_get_payload_len( &attribute ) };
}

std::optional< std::string_view >
payloadIn( const nlmsghdr & message, std::size_t fixedHeader, unsigned attribute ) {
   std::optional< std::string_view > result;
   eachAttribute( bytesBehind( message, fixedHeader ), [&]( const nlattr * at ) {
      if ( number( *at ) == attribute )
         result = payload( *at );
   } );
   return result;
}

unsigned number( const nlattr & attribute ) { return mnl_attr_get_type( &attribute ); }

MessageBuilder::MessageBuilder( Vel::U16 type, Vel::U16 flags ) {
   nlmsghdr header{};
   header.nlmsg_type = type;
   header.nlmsg_flags = flags;
   append( &header, sizeof header );
}

void MessageBuilder::append( const void * begin, std::size_t size ) {
   const std::size_t at = bytes_.size();
   bytes_.resize( at + ( size + 3 ) / 4 );
   if ( size > 0 )
      std::memcpy( bytes_.data() + at, begin, size );
}

MessageBuilder & MessageBuilder::attribute( unsigned number, std::string_view payload ) {
   nlattr header{};
   header.nla_len = static_cast< Vel::U16 >( sizeof header + payload.size() );
   header.nla_type = static_cast< Vel::U16 >( number );
   append( &header, sizeof header );
   append( payload.data(), payload.size() );
   return *this;
}

MessageBuilder & MessageBuilder::nested( unsigned number, const std::function< void() > & fill ) {
   const std::size_t begin = size();
   attribute( number, std::string_view() );
   fill();
   u16At( begin, size() - begin );
   return *this;
}

void MessageBuilder::u16At( std::size_t offset, std::size_t value ) {
   const auto word = static_cast< Vel::U16 >( value );
   std::memcpy( reinterpret_cast< char * >( bytes_.data() ) + offset, &word, sizeof word );
}

Bytes MessageBuilder::take() {
   messageIn( bytes_ ).nlmsg_len = static_cast< Vel::U32 >( size() );
   return std::move( bytes_ );
}

} // namespace DataPlane::Linux
