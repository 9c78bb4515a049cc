#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <thread>

/// Sends UDP at a constant rate for a limited time: UdpTrafficTest ADDRESS BITS-PER-SECOND SECONDS
/// The rate counts whole Ethernet frames, as counters of links do. What cannot be sent is lost: links may be shut.
int main( int argc, char ** argv ) {
   constexpr std::size_t headers = 14 + 20 + 8;
   constexpr std::size_t frame = 1000;
   constexpr std::chrono::milliseconds step( 4 );
   sockaddr_in to{};
   to.sin_family = AF_INET;
   to.sin_port = htons( 9 );
   if ( argc != 4 || inet_pton( AF_INET, argv[1], &to.sin_addr ) != 1 ) {
      std::cerr << "usage: UdpTrafficTest ADDRESS BITS-PER-SECOND SECONDS\n";
      return 2;
   }
   const double framesPerSecond = std::atof( argv[2] ) / 8 / frame;
   const double seconds = std::atof( argv[3] );
   const int descriptor = socket( AF_INET, SOCK_DGRAM, 0 );
   if ( descriptor < 0 ) {
      std::cerr << "UdpTrafficTest: cannot open a socket: " << std::strerror( errno ) << '\n';
      return 1;
   }
   const char payload[frame - headers] = {};
   const auto start = std::chrono::steady_clock::now();
   std::uint64_t sent = 0;
   for ( auto next = start;; next += step ) {
      std::this_thread::sleep_until( next );
      // As many as are due by now, however late this is: the rate stays.
      const std::chrono::duration< double > elapsed = std::chrono::steady_clock::now() - start;
      if ( elapsed.count() > seconds )
         return 0;
      for ( const auto due = static_cast< std::uint64_t >( elapsed.count() * framesPerSecond ); sent < due;
            ++sent )
         sendto( descriptor, payload, sizeof payload, 0, reinterpret_cast< sockaddr * >( &to ), sizeof to );
   }
}
