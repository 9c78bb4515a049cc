#pragma once

#include "Bench/Folder.h"

#include <benchmark/benchmark.h>

#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

/// Purpose: links of the kernel to measure with, and the least that reading them can cost.
namespace Bench {

/// Links et0, et1, ... in a namespace that this process has for itself; each two are a pair, and they are up.
class RealLinks {
 public:
   /// False if a namespace cannot be made.
   bool begin() {
      if ( unshare( CLONE_NEWNET ) != 0 )
         return false;
      std::ofstream( "/proc/sys/net/ipv6/conf/default/disable_ipv6" ) << "1";
      return true;
   }
   /// That many, at least as many as there are; an even number.
   void countIs( int count ) {
      const Folder folder;
      const std::string batch = folder.path + "/links";
      std::ofstream out( batch );
      for ( ; count_ < count; count_ += 2 )
         out << "link add et" << count_ << " type veth peer name et" << count_ + 1 << "\nlink set et"
             << count_ << " up\nlink set et" << count_ + 1 << " up\n";
      out.close();
      if ( count_ != count || std::system( ( "ip -batch " + batch ).c_str() ) != 0 )
         throw std::runtime_error( "cannot make the links" );
   }

 private:
   int count_ = 0;
};

/// A dump whose answer is looked at just enough to count what is in it.
class BareDump {
 public:
   enum class Of { counters, links };

   explicit BareDump( Of of ) : of_( of ), socket_( mnl_socket_open( NETLINK_ROUTE ) ), buffer_( 1 << 16 ) {
      if ( !socket_ || mnl_socket_bind( socket_, 0, MNL_SOCKET_AUTOPID ) != 0 )
         throw std::runtime_error( "no netlink socket" );
   }
   ~BareDump() { mnl_socket_close( socket_ ); }
   BareDump( const BareDump & ) = delete;
   BareDump & operator=( const BareDump & ) = delete;

   /// What a link has carried so far, in octets.
   struct Counts {
      int link = 0; ///< its index
      std::uint64_t in = 0, out = 0;
   };

   /// The number of links in it. \param counts  of counters: what each has carried; without it they are read and dropped
   int run( std::vector< Counts > * counts = nullptr ) {
      char request[MNL_NLMSG_HDRLEN + 64] = {};
      auto * const header = mnl_nlmsg_put_header( request );
      header->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
      header->nlmsg_seq = ++sequence_;
      if ( of_ == Of::counters )
         askForCounters( header );
      else
         askForLinks( header );
      mnl_socket_sendto( socket_, header, header->nlmsg_len );
      seen_ = 0;
      counts_ = counts;
      if ( counts )
         counts->clear();
      while ( true ) {
         const ssize_t size = mnl_socket_recvfrom( socket_, buffer_.data(), buffer_.size() );
         const auto take = of_ == Of::counters ? takeCounters : takeLink;
         if (
            size <= 0 || mnl_cb_run(
                            buffer_.data(), static_cast< std::size_t >( size ), sequence_,
                            mnl_socket_get_portid( socket_ ), take, this ) <= MNL_CB_STOP )
            return seen_;
      }
   }

 private:
   static void askForCounters( nlmsghdr * header ) {
      header->nlmsg_type = RTM_GETSTATS;
      auto * const wanted =
         static_cast< if_stats_msg * >( mnl_nlmsg_put_extra_header( header, sizeof( if_stats_msg ) ) );
      wanted->filter_mask = IFLA_STATS_FILTER_BIT( IFLA_STATS_LINK_64 );
   }
   static void askForLinks( nlmsghdr * header ) {
      header->nlmsg_type = RTM_GETLINK;
      mnl_nlmsg_put_extra_header( header, sizeof( ifinfomsg ) );
      mnl_attr_put_u32( header, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS );
   }
   static int takeCounters( const nlmsghdr * message, void * self ) {
      static_cast< BareDump * >( self )->link_ = static_cast< int >(
         static_cast< const if_stats_msg * >( mnl_nlmsg_get_payload( message ) )->ifindex );
      return mnl_attr_parse( message, sizeof( if_stats_msg ), takeAttribute, self );
   }
   static int takeAttribute( const nlattr * attribute, void * self ) {
      if ( mnl_attr_get_type( attribute ) == IFLA_STATS_LINK_64 ) {
         rtnl_link_stats64 stats;
         __builtin_memcpy( &stats, mnl_attr_get_payload( attribute ), sizeof stats );
         benchmark::DoNotOptimize( stats.rx_bytes + stats.tx_bytes );
         auto & dump = *static_cast< BareDump * >( self );
         if ( dump.counts_ )
            dump.counts_->push_back( { dump.link_, stats.rx_bytes, stats.tx_bytes } );
         ++dump.seen_;
      }
      return MNL_CB_OK;
   }
   static int takeLink( const nlmsghdr * message, void * self ) {
      benchmark::DoNotOptimize(
         static_cast< const ifinfomsg * >( mnl_nlmsg_get_payload( message ) )->ifi_index );
      ++static_cast< BareDump * >( self )->seen_;
      return MNL_CB_OK;
   }

   Of of_;
   mnl_socket * socket_;
   std::vector< char > buffer_;
   unsigned sequence_ = 0;
   int seen_ = 0, link_ = 0;
   std::vector< Counts > * counts_ = nullptr;
};

} // namespace Bench
