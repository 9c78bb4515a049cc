#include "Agent/Control/HostNames.h"

#include <arpa/inet.h>
#include <resolv.h>

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

bool isAddress( int family, const std::string & text ) {
   in6_addr address{};
   return inet_pton( family, text.c_str(), &address ) == 1;
}

} // namespace

HostNames::HostNames(
   const std::string & own, const std::set< std::string > & listed,
   const std::set< std::string > & domains ) {
   for ( const std::string & name : listed )
      names_.insert( plain( name ) );
   names_.insert( "localhost" );
   const std::string name = plain( own ), alone = name.substr( 0, name.find( '.' ) );
   if ( !alone.empty() ) {
      names_.insert( { name, alone, alone + ".local" } );
      for ( const std::string & domain : domains )
         names_.insert( alone + "." + plain( domain ) );
   }
   names_.erase( "" );
}

std::set< std::string > HostNames::searchedDomains() {
   struct __res_state state {};
   std::set< std::string > result;
   if ( res_ninit( &state ) != 0 )
      return result;
   for ( const char * const domain : state.dnsrch ) {
      if ( !domain )
         break;
      result.insert( domain );
   }
   res_nclose( &state );
   return result;
}

bool HostNames::serves( const std::string & host ) const {
   if ( host.empty() )
      return true;
   if ( host.front() == '[' ) {
      const std::size_t end = host.find( ']' );
      return end != std::string::npos && isAddress( AF_INET6, host.substr( 1, end - 1 ) );
   }
   const std::string name = plain( host.substr( 0, host.find( ':' ) ) );
   return isAddress( AF_INET, name ) || names_.count( name );
}

} // namespace Agent
