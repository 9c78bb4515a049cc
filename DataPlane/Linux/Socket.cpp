// The only file that opens netlink sockets.

#include "DataPlane/Linux/Kernel.h"
#include "Platform/Vel/Text.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include <linux/ethtool.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace DataPlane::Linux {

namespace {

/// What the kernel may put into one message: it fills at most this much for a dump.
constexpr std::size_t datagramSize = 65536;
/// So that a burst of a thousand links is not lost while a turn lasts.
constexpr int receiveBuffer = 8 * 1024 * 1024;

Vel::String reason() { return std::strerror( errno ); }

class Socket final : public Channel {
 public:
   Socket() : buffer_( datagramSize / sizeof( Vel::U32 ) ) {}
   ~Socket() override {
      if ( socket_ )
         mnl_socket_close( socket_ );
   }
   Socket( const Socket & ) = delete;
   Socket & operator=( const Socket & ) = delete;

   /// \param groups  news that it is told, as bits
   Outcome open( unsigned groups, const char * what ) {
      socket_ = mnl_socket_open2( NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK );
      if ( !socket_ )
         return Outcome::failed( "cannot open a netlink socket: " + reason() );
      const int size = receiveBuffer;
      // The first is for privileged users and ignores the system's limit; with the second the limit holds.
      if ( setsockopt( descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size ) != 0 )
         setsockopt( descriptor(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size );
      // Each is a help that an old kernel may not know: texts of errors, answers without the request in them, dumps of
      // one device only.
      int on = 1;
      for ( const int option : { NETLINK_EXT_ACK, NETLINK_CAP_ACK, NETLINK_GET_STRICT_CHK } )
         mnl_socket_setsockopt( socket_, option, &on, sizeof on );
      if ( mnl_socket_bind( socket_, groups, MNL_SOCKET_AUTOPID ) != 0 )
         return Outcome::failed( Vel::text( "cannot listen to the kernel's ", what, ": ", reason() ) );
      return {};
   }
   /// Kernels that do not know it tell no VLANs when they are asked either.
   void alsoToldOfVlans() {
      int vlans = RTNLGRP_BRVLAN;
      mnl_socket_setsockopt( socket_, NETLINK_ADD_MEMBERSHIP, &vlans, sizeof vlans );
   }

   int descriptor() const override { return mnl_socket_get_fd( socket_ ); }
   Vel::U32 port() const override { return mnl_socket_get_portid( socket_ ); }

   Received receive() override {
      while ( true ) {
         sockaddr_nl from{};
         iovec part{ buffer_.data(), datagramSize };
         msghdr message{};
         message.msg_name = &from;
         message.msg_namelen = sizeof from;
         message.msg_iov = &part;
         message.msg_iovlen = 1;
         const ssize_t size = recvmsg( descriptor(), &message, 0 );
         if ( size < 0 && errno == EINTR )
            continue;
         if ( size < 0 && ( errno == EAGAIN || errno == EWOULDBLOCK ) )
            return {};
         if ( size < 0 && errno == ENOBUFS )
            return { Got::lost, nullptr, 0, {} };
         if ( size < 0 )
            return { Got::failed, nullptr, 0, reason() };
         if ( message.msg_flags & MSG_TRUNC )
            return { Got::lost, nullptr, 0, {} };
         // Whoever else may send to us is not the kernel.
         if ( from.nl_pid == 0 )
            return { Got::messages, buffer_.data(), static_cast< std::size_t >( size ), {} };
      }
   }

   Outcome send( const Bytes & message ) override {
      const std::size_t size = messageIn( message ).nlmsg_len;
      while ( mnl_socket_sendto( socket_, message.data(), size ) < 0 )
         if ( errno != EINTR )
            return Outcome::failed( reason() );
      return {};
   }

 private:
   mnl_socket * socket_ = nullptr;
   Bytes buffer_;
};

class RealKernel final : public Kernel {
 public:
   RealKernel() = default;
   ~RealKernel() override {
      if ( control_ >= 0 )
         close( control_ );
   }
   RealKernel( const RealKernel & ) = delete;
   RealKernel & operator=( const RealKernel & ) = delete;

   Opened open( bool toldOfLinks ) override {
      auto socket = std::make_unique< Socket >();
      Outcome outcome = socket->open( toldOfLinks ? RTMGRP_LINK : 0, "links" );
      if ( !outcome.ok() )
         return { outcome, nullptr };
      if ( toldOfLinks )
         socket->alsoToldOfVlans();
      return { outcome, std::move( socket ) };
   }
   Opened openRouteNews( Vel::U8 family ) override {
      auto socket = std::make_unique< Socket >();
      Outcome outcome = socket->open( family == AF_INET6 ? RTMGRP_IPV6_ROUTE : RTMGRP_IPV4_ROUTE, "routes" );
      if ( !outcome.ok() )
         return { outcome, nullptr };
      return { outcome, std::move( socket ) };
   }

   std::optional< double > speed( const Vel::String & link ) override {
      if ( control_ < 0 )
         control_ = socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
      ethtool_cmd settings{};
      settings.cmd = ETHTOOL_GSET;
      ifreq request{};
      if ( link.size() >= sizeof request.ifr_name )
         return {};
      std::memcpy( request.ifr_name, link.data(), link.size() );
      request.ifr_data = reinterpret_cast< char * >( &settings );
      if ( ioctl( control_, SIOCETHTOOL, &request ) != 0 )
         return {};
      const Vel::U32 speed = ethtool_cmd_speed( &settings );
      if ( speed == 0 || speed == static_cast< Vel::U32 >( SPEED_UNKNOWN ) )
         return {};
      return speed * 1e6;
   }

   LinkSnapshot bootId() override {
      constexpr const char * bootIdFile = "/proc/sys/kernel/random/boot_id";
      constexpr const char * namespaceFile = "/proc/thread-self/ns/net";
      std::ifstream in( bootIdFile );
      Vel::String id;
      if ( !std::getline( in, id ) || id.empty() )
         return { Outcome::failed( Vel::text( "cannot read ", bootIdFile ) ), {} };
      struct stat status;
      if ( stat( namespaceFile, &status ) != 0 )
         return { Outcome::failed( Vel::text( "cannot look at ", namespaceFile, ": ", reason() ) ), {} };
      return { {}, Vel::text( id, ".", status.st_ino ) };
   }

 private:
   int control_ = -1; ///< drivers are asked through it; opened when it is needed
};

} // namespace

std::unique_ptr< Kernel > kernelNew() { return std::make_unique< RealKernel >(); }

} // namespace DataPlane::Linux
