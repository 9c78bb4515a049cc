#include "Agent/Control/ListeningSocket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Agent {

ListeningSocket ListeningSocket::local( const std::string & path ) {
   const auto failed = [&]( const std::string & what ) { return ListeningSocket{ -1, path + ": " + what }; };
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if ( path.size() >= sizeof address.sun_path )
      return failed( "the path is too long for a socket" );
   std::memcpy( address.sun_path, path.c_str(), path.size() + 1 );
   const int descriptor = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   if ( descriptor < 0 )
      return failed( std::strerror( errno ) );
   const auto * name = reinterpret_cast< const sockaddr * >( &address );
   struct stat there {};
   if ( lstat( path.c_str(), &there ) == 0 && !S_ISSOCK( there.st_mode ) ) {
      close( descriptor );
      return failed( "is not a socket" );
   }
   // Somebody who answers is alive; a socket that nobody answers on is left from a process that is gone.
   // One who is too busy to answer is alive as well.
   const int probe = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   const bool answered = probe >= 0 && ( connect( probe, name, sizeof address ) == 0 || errno == EAGAIN );
   if ( probe >= 0 )
      close( probe );
   if ( answered ) {
      close( descriptor );
      return failed( "another agent answers there" );
   }
   unlink( path.c_str() );
   if (
      bind( descriptor, name, sizeof address ) != 0 || chmod( path.c_str(), 0660 ) != 0 ||
      listen( descriptor, 64 ) != 0 ) {
      const std::string reason = std::strerror( errno );
      close( descriptor );
      return failed( reason );
   }
   return { descriptor, "" };
}

ListeningSocket ListeningSocket::web( const std::string & host, unsigned port ) {
   addrinfo hints{};
   hints.ai_socktype = SOCK_STREAM;
   hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
   addrinfo * found = nullptr;
   const std::string where = host + ":" + std::to_string( port );
   if ( const int error = getaddrinfo( host.c_str(), std::to_string( port ).c_str(), &hints, &found ) )
      return { -1, where + ": " + gai_strerror( error ) };
   std::string reason = "no address";
   for ( const addrinfo * a = found; a; a = a->ai_next ) {
      const int descriptor = socket( a->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
      const int on = 1;
      const unsigned patience = peerTimeout * 1000;
      if (
         descriptor >= 0 && setsockopt( descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on ) == 0 &&
         setsockopt( descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, &patience, sizeof patience ) == 0 &&
         bind( descriptor, a->ai_addr, a->ai_addrlen ) == 0 && listen( descriptor, 64 ) == 0 ) {
         freeaddrinfo( found );
         return { descriptor, "" };
      }
      reason = std::strerror( errno );
      if ( descriptor >= 0 )
         close( descriptor );
   }
   freeaddrinfo( found );
   return { -1, where + ": " + reason };
}

unsigned ListeningSocket::portOf( int descriptor ) {
   sockaddr_storage address{};
   socklen_t size = sizeof address;
   getsockname( descriptor, reinterpret_cast< sockaddr * >( &address ), &size );
   return ntohs(
      address.ss_family == AF_INET6 ? reinterpret_cast< sockaddr_in6 * >( &address )->sin6_port
                                    : reinterpret_cast< sockaddr_in * >( &address )->sin_port );
}

} // namespace Agent
