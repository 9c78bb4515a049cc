#include "Agent/Control/ListeningSocket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace Agent {

namespace {

/// \return the socket, or -1 with errno
int listeningOn( const addrinfo & address ) {
   const int descriptor = socket( address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   if ( descriptor < 0 )
      return -1;
   const int on = 1;
   const unsigned patience = ListeningSocket::peerTimeout * 1000;
   if (
      setsockopt( descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on ) == 0 &&
      setsockopt( descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, &patience, sizeof patience ) == 0 &&
      bind( descriptor, address.ai_addr, address.ai_addrlen ) == 0 && listen( descriptor, 64 ) == 0 )
      return descriptor;
   const int why = errno;
   close( descriptor );
   errno = why;
   return -1;
}

} // namespace

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
   const std::string where = host + ":" + std::to_string( port );
   std::vector< std::string > addresses{ host };
   if ( strcasecmp( host.c_str(), "localhost" ) == 0 )
      addresses = { "127.0.0.1", "::1" };
   std::string reason;
   for ( const std::string & address : addresses ) {
      addrinfo hints{};
      hints.ai_socktype = SOCK_STREAM;
      // A name server that does not answer would be waited for, and nothing else would be done meanwhile.
      hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV | AI_NUMERICHOST;
      addrinfo * found = nullptr;
      const int error = getaddrinfo( address.c_str(), std::to_string( port ).c_str(), &hints, &found );
      if ( error == EAI_NONAME )
         return {
            -1, where + ": is a name, and nobody is asked for its address; write the address to listen on" };
      if ( error != 0 )
         return { -1, where + ": " + gai_strerror( error ) };
      const int descriptor = listeningOn( *found );
      const int why = errno;
      freeaddrinfo( found );
      if ( descriptor >= 0 )
         return { descriptor, "" };
      reason = std::strerror( why );
      if ( why != EADDRNOTAVAIL && why != EAFNOSUPPORT ) // the machine has this address
         break;
   }
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
