#include "Agent/Plan/Session.h"

#include <arpa/inet.h>

namespace Agent {

namespace {

/// Of one end.
std::optional< Session > endFrom( const std::string & text ) {
   const std::size_t percent = text.find( '%' );
   Session session{ text.substr( 0, percent ), "" };
   if ( percent != std::string::npos )
      session.link = text.substr( percent + 1 );
   // One of IPv4 that comes in over a socket of IPv6.
   constexpr char mapped[] = "::ffff:";
   unsigned char bytes[16];
   const auto is = [&]( int family, const std::string & address ) {
      return address.find( '\0' ) == std::string::npos && inet_pton( family, address.c_str(), bytes ) == 1;
   };
   if ( session.address.starts_with( mapped ) && is( AF_INET, session.address.substr( sizeof mapped - 1 ) ) )
      session.address.erase( 0, sizeof mapped - 1 );
   const bool whole = percent == std::string::npos;
   if ( !( whole && is( AF_INET, session.address ) ) && !is( AF_INET6, session.address ) )
      return std::nullopt;
   if ( !whole && session.link.empty() )
      return std::nullopt;
   return session;
}

} // namespace

std::optional< Session > sessionFrom( const std::string & text ) {
   const std::size_t comma = text.find( ',' );
   std::optional< Session > session = endFrom( text.substr( 0, comma ) );
   if ( !session || comma == std::string::npos )
      return session;
   const std::optional< Session > near = endFrom( text.substr( comma + 1 ) );
   if ( !near )
      return std::nullopt;
   session->at = near->address;
   return session;
}

std::string stringValue( const Session & session ) {
   return session.link.empty() ? session.address : session.address + "%" + session.link;
}

} // namespace Agent
