#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <thread>
#include <vector>

namespace {

int failed( const char * what ) {
   std::cerr << "UdpTrafficTest: " << what << ": " << std::strerror( errno ) << '\n';
   return 1;
}

/// From a port of its own, which is the same in each run, so that flows spread over the members of a port-channel as they
/// did last time; far enough apart that no member is left out.
int openFlow( int number ) {
   const int descriptor = socket( AF_INET, SOCK_DGRAM, 0 );
   const int yes = 1;
   sockaddr_in from{};
   from.sin_family = AF_INET;
   from.sin_port = htons( static_cast< std::uint16_t >( 20000 + 101 * number ) );
   if (
      descriptor < 0 || setsockopt( descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes ) != 0 ||
      bind( descriptor, reinterpret_cast< sockaddr * >( &from ), sizeof from ) != 0 )
      return -1;
   return descriptor;
}

void print( std::uint64_t octets ) {
   const std::chrono::duration< double > now = std::chrono::system_clock::now().time_since_epoch();
   std::cout << std::fixed << now.count() << ' ' << octets << std::endl;
}

} // namespace

/// Sends UDP at a constant rate for a limited time: UdpTrafficTest ADDRESS BITS-PER-SECOND SECONDS [FLOWS]
/// The rate is that of all flows together, which take turns, and counts whole Ethernet frames, as counters of links do.
/// What cannot be sent is lost: links may be shut.
/// Prints, many times a second, the seconds since 1970 and the octets that have been sent by then.
int main( int argc, char ** argv ) {
   constexpr std::size_t headers = 14 + 20 + 8;
   constexpr std::size_t frame = 1000;
   constexpr std::chrono::milliseconds step( 4 );
   constexpr std::chrono::milliseconds printStep( 20 );
   sockaddr_in to{};
   to.sin_family = AF_INET;
   to.sin_port = htons( 9 );
   const int count = argc == 5 ? std::atoi( argv[4] ) : 1;
   if ( argc < 4 || argc > 5 || inet_pton( AF_INET, argv[1], &to.sin_addr ) != 1 || count < 1 ) {
      std::cerr << "usage: UdpTrafficTest ADDRESS BITS-PER-SECOND SECONDS [FLOWS]\n";
      return 2;
   }
   const double framesPerSecond = std::atof( argv[2] ) / 8 / frame;
   const double seconds = std::atof( argv[3] );
   std::vector< int > flows;
   for ( int i = 0; i < count; ++i ) {
      flows.push_back( openFlow( i ) );
      if ( flows.back() < 0 )
         return failed( "cannot open a socket" );
   }
   const char payload[frame - headers] = {};
   const auto start = std::chrono::steady_clock::now();
   std::uint64_t taken = 0;
   std::uint64_t sent = 0;
   auto lastPrinted = start;
   for ( auto next = start;; next += step ) {
      std::this_thread::sleep_until( next );
      // As many as are due by now, however late this is: the rate stays.
      const auto now = std::chrono::steady_clock::now();
      const std::chrono::duration< double > elapsed = now - start;
      if ( elapsed.count() > seconds )
         return 0;
      const auto due = static_cast< std::uint64_t >( elapsed.count() * framesPerSecond );
      // Also before it is made up for that nothing has been sent for a while.
      const bool printing = now - lastPrinted >= printStep;
      if ( printing )
         print( sent * frame );
      for ( ; taken < due; ++taken )
         sent += sendto(
                    flows[taken % flows.size()], payload, sizeof payload, 0,
                    reinterpret_cast< sockaddr * >( &to ), sizeof to ) == sizeof payload;
      if ( printing ) {
         print( sent * frame );
         lastPrinted = now;
      }
   }
}
