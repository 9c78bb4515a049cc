#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <iostream>
#include <iterator>
#include <string>

/// Sends standard input to a local socket and goes away without waiting for an answer: SendTest SOCKET
int main( int argc, char ** argv ) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if ( argc != 2 || std::strlen( argv[1] ) >= sizeof address.sun_path )
      return 2;
   std::strcpy( address.sun_path, argv[1] );
   const int descriptor = socket( AF_UNIX, SOCK_STREAM, 0 );
   if ( connect( descriptor, reinterpret_cast< const sockaddr * >( &address ), sizeof address ) != 0 )
      return 1;
   const std::string text{ std::istreambuf_iterator< char >( std::cin ), std::istreambuf_iterator< char >() };
   const bool sent = write( descriptor, text.data(), text.size() ) == static_cast< ssize_t >( text.size() );
   close( descriptor );
   return sent ? 0 : 1;
}
