#include "DataPlane/Linux/IpAddress.h"

#include <algorithm>

#include <arpa/inet.h>

namespace DataPlane::Linux {

unsigned maxPrefix( Vel::U8 family ) { return family == AF_INET ? 32 : family == AF_INET6 ? 128 : 0; }

std::size_t IpAddress::size() const { return maxPrefix( family ) / 8; }

IpAddress anyAddress( Vel::U8 family ) {
   IpAddress address;
   address.family = family;
   return address;
}

IpAddress networkOf( const IpAddress & address, unsigned length ) {
   IpAddress network = address;
   for ( std::size_t i = length / 8; i < network.bytes.size(); ++i )
      network.bytes[i] =
         i > length / 8 ? 0 : network.bytes[i] & static_cast< Vel::U8 >( ~( 0xffu >> length % 8 ) );
   return network;
}

std::optional< IpAddress > addressFrom( Vel::U8 family, std::optional< std::string_view > payload ) {
   IpAddress address = anyAddress( family );
   if ( !payload || address.size() == 0 || payload->size() != address.size() )
      return {};
   std::copy( payload->begin(), payload->end(), address.bytes.begin() );
   return address;
}

std::optional< IpAddress > addressFromText( const Vel::String & text ) {
   for ( const Vel::U8 family : { Vel::U8( AF_INET ), Vel::U8( AF_INET6 ) } ) {
      IpAddress address = anyAddress( family );
      if ( inet_pton( family, text.c_str(), address.bytes.data() ) == 1 )
         return address;
   }
   return {};
}

Vel::String stringValue( const IpAddress & address ) {
   char text[INET6_ADDRSTRLEN] = "";
   inet_ntop( address.family, address.bytes.data(), text, sizeof text );
   return text;
}

} // namespace DataPlane::Linux
