#include "Agent/Control/HostNames.h"

#include <arpa/inet.h>

namespace Agent {

namespace {

/// In lower case, without the dot that may end it.
std::string plain( std::string name ) {
   for ( char & c : name )
      if ( c >= 'A' && c <= 'Z' )
         c = static_cast< char >( c - 'A' + 'a' );
   if ( !name.empty() && name.back() == '.' )
      name.pop_back();
   return name;
}

std::string withoutDomain( const std::string & name ) { return name.substr( 0, name.find( '.' ) ); }

bool isAddress( int family, const std::string & text ) {
   in6_addr address{};
   return inet_pton( family, text.c_str(), &address ) == 1;
}

} // namespace

HostNames::HostNames( const std::string & own, const std::set< std::string > & listed )
   : own_( withoutDomain( plain( own ) ) ) {
   for ( const std::string & name : listed )
      listed_.insert( plain( name ) );
}

bool HostNames::serves( const std::string & host ) const {
   if ( host.empty() )
      return true;
   if ( host.front() == '[' ) {
      const std::size_t end = host.find( ']' );
      return end != std::string::npos && isAddress( AF_INET6, host.substr( 1, end - 1 ) );
   }
   const std::string name = plain( host.substr( 0, host.find( ':' ) ) );
   return isAddress( AF_INET, name ) || name == "localhost" || listed_.count( name ) ||
          ( !own_.empty() && withoutDomain( name ) == own_ );
}

} // namespace Agent
