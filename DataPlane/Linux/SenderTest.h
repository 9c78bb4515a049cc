#pragma once

#include "Platform/Vel/Text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

/// Purpose: traffic of known size over a pair of links, for tests (InNamespace::quietPair()).
namespace DataPlane::Linux {

/// Sends UDP over one end of a pair of links to an address that is nobody's: the other end receives it.
class Sender {
 public:
   static constexpr Vel::U64 payload = 958;
   /// With the headers of UDP, IP and Ethernet.
   static constexpr Vel::U64 octetsPerPacket = payload + 8 + 20 + 14;

   Sender() : socket_( socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) ) { EXPECT_GE( socket_, 0 ); }
   ~Sender() { close( socket_ ); }
   Sender( const Sender & ) = delete;
   Sender & operator=( const Sender & ) = delete;

   void send( Vel::U64 packets ) {
      sockaddr_in to{};
      to.sin_family = AF_INET;
      to.sin_port = htons( 9 );
      inet_pton( AF_INET, "192.0.2.2", &to.sin_addr );
      const char zeros[payload] = {};
      for ( Vel::U64 i = 0; i < packets; ++i )
         ASSERT_EQ(
            ssize_t( payload ),
            sendto( socket_, zeros, payload, 0, reinterpret_cast< const sockaddr * >( &to ), sizeof to ) )
            << std::strerror( errno );
   }

 private:
   int socket_;
};

} // namespace DataPlane::Linux
