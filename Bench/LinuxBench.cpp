#include "Apps/Maintd.h"
#include "Platform/Cog/TimeSource.h"

#include <benchmark/benchmark.h>

#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <sys/socket.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>

/// What one sample of one real link costs the whole agent: the kernel's counters, the sample from its timer to its next
/// timer, the change in the store, its commit. All links belong to one unit that waits for its traffic to go.
/// Floor: the bare dump of the counters, octets read and dropped.
/// Time is virtual, so that periods follow each other; links, kernel and files are real.
namespace {

constexpr int links = 2000;
constexpr double period = 5;

std::string newFolder() {
   std::string name = std::filesystem::temp_directory_path() / "linuxBenchXXXXXX";
   if ( !mkdtemp( name.data() ) )
      throw std::runtime_error( "no folder: " + name );
   return name;
}

/// A folder that goes with this object.
class Folder {
 public:
   ~Folder() {
      std::error_code ignored;
      std::filesystem::remove_all( path, ignored );
   }
   const std::string path = newFolder();
};

/// Whether there are links, in a namespace that this process has for itself.
bool linksAreThere() {
   if ( unshare( CLONE_NEWNET ) != 0 )
      return false;
   std::ofstream( "/proc/sys/net/ipv6/conf/default/disable_ipv6" ) << "1";
   const Folder folder;
   const std::string batch = folder.path + "/links";
   std::ofstream out( batch );
   for ( int i = 0; i < links; i += 2 )
      out << "link add et" << i << " type veth peer name et" << i + 1 << '\n'
          << "link set et" << i << " up\nlink set et" << i + 1 << " up\n";
   out.close();
   return std::system( ( "ip -batch " + batch ).c_str() ) == 0;
}

class BareDump {
 public:
   BareDump() : socket_( mnl_socket_open( NETLINK_ROUTE ) ), buffer_( 1 << 16 ) {
      if ( !socket_ || mnl_socket_bind( socket_, 0, MNL_SOCKET_AUTOPID ) != 0 )
         throw std::runtime_error( "no netlink socket" );
   }
   ~BareDump() { mnl_socket_close( socket_ ); }
   BareDump( const BareDump & ) = delete;
   BareDump & operator=( const BareDump & ) = delete;

   /// The number of links in it.
   int run() {
      char request[MNL_NLMSG_HDRLEN + sizeof( if_stats_msg )];
      auto * const header = mnl_nlmsg_put_header( request );
      header->nlmsg_type = RTM_GETSTATS;
      header->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
      header->nlmsg_seq = ++sequence_;
      auto * const wanted =
         static_cast< if_stats_msg * >( mnl_nlmsg_put_extra_header( header, sizeof( if_stats_msg ) ) );
      wanted->filter_mask = IFLA_STATS_FILTER_BIT( IFLA_STATS_LINK_64 );
      mnl_socket_sendto( socket_, header, header->nlmsg_len );
      seen_ = 0;
      while ( true ) {
         const ssize_t size = mnl_socket_recvfrom( socket_, buffer_.data(), buffer_.size() );
         if (
            size <= 0 || mnl_cb_run(
                            buffer_.data(), static_cast< std::size_t >( size ), sequence_,
                            mnl_socket_get_portid( socket_ ), take, this ) <= MNL_CB_STOP )
            return seen_;
      }
   }

 private:
   static int take( const nlmsghdr * message, void * self ) {
      return mnl_attr_parse( message, sizeof( if_stats_msg ), takeAttribute, self );
   }
   static int takeAttribute( const nlattr * attribute, void * self ) {
      if ( mnl_attr_get_type( attribute ) == IFLA_STATS_LINK_64 ) {
         rtnl_link_stats64 stats;
         __builtin_memcpy( &stats, mnl_attr_get_payload( attribute ), sizeof stats );
         benchmark::DoNotOptimize( stats.rx_bytes + stats.tx_bytes );
         ++static_cast< BareDump * >( self )->seen_;
      }
      return MNL_CB_OK;
   }

   mnl_socket * socket_;
   std::vector< char > buffer_;
   unsigned sequence_ = 0;
   int seen_ = 0;
};

/// The agent with all links in a unit that is entering and never quiet for long enough.
class Entering {
 public:
   Entering() : time_( Vel::make< Cog::VirtualTime >( 1.7e9 ) ) {
      std::ofstream config( folder_.path + "/maintd.yaml" );
      config << "version: 1\nswitch: linux\nprofiles: {p: {threshold: 1bps, load-interval: 720h}}\n"
             << "default-profile: p\ngroups:\n  all: {interfaces: [";
      for ( int i = 0; i < links; ++i )
         config << ( i ? ", et" : "et" ) << i;
      config << "]}\nunits:\n  u: {groups: [all]}\n";
      config.close();
      Apps::MaintdOptions options;
      options.config = folder_.path + "/maintd.yaml";
      options.stateDir = folder_.path + "/state";
      options.runtimeDir = folder_.path + "/run";
      options.pluginDir = MAINT_BENCH_PLUGIN_DIR;
      Apps::MaintdWorld world;
      world.time = time_;
      agent_ = std::make_unique< Apps::Maintd >( options, world );
      if ( const std::string problem = agent_->start(); !problem.empty() )
         throw std::runtime_error( problem );
      time_->reachedIs( [this] { agent_->loop().stop(); } );
      advance( 1 );
      agent_->loop().post( [this] { ask( "POST", "units/u/enter" ); } );
      advance( 3 * period );
   }
   Entering( const Entering & ) = delete;
   Entering & operator=( const Entering & ) = delete;

   void advance( double seconds ) {
      time_->targetIs( time_->target() + seconds );
      agent_->loop().run();
   }
   /// Samples of a link so far.
   long samples() {
      const std::string text = ask( "GET", "interfaces/et" + std::to_string( links - 1 ) );
      const auto at = text.find( "\"samples\":" );
      return at == std::string::npos ? 0 : std::atol( text.c_str() + text.find_first_of( "0123456789", at ) );
   }

 private:
   std::string ask( const char * method, const std::string & path ) {
      Agent::HttpRequest request;
      request.method = method;
      request.path = "/api/v1/" + path;
      request.local = true;
      const auto body = std::make_shared< std::string >();
      agent_->api().handle( request, [body]( const Agent::HttpReply & reply ) { *body = reply.body; } );
      return *body;
   }

   const Folder folder_;
   Vel::Ptr< Cog::VirtualTime > time_;
   std::unique_ptr< Apps::Maintd > agent_;
};

void floorOf( benchmark::State & state ) {
   BareDump dump;
   int seen = 0;
   for ( auto _ : state )
      seen = dump.run();
   if ( seen < links )
      state.SkipWithError( "links are missing from the dump" );
   state.SetItemsProcessed( state.iterations() * links );
}

void ours( benchmark::State & state ) {
   Entering entering;
   const long before = entering.samples();
   for ( auto _ : state )
      entering.advance( period );
   if ( entering.samples() != before + state.iterations() )
      state.SkipWithError( "not each period had its sample" );
   state.SetItemsProcessed( state.iterations() * links );
   state.SetLabel( "at most 8 x" );
}

} // namespace

int main( int argc, char ** argv ) {
   const std::string row = "whole agent on Linux: link and sample, 2,000 links";
   if ( !linksAreThere() ) {
      std::cout << "skipped: " << row << ": needs the right to make a network namespace\n";
      return 0;
   }
   benchmark::RegisterBenchmark( ( row + "/floor" ).c_str(), floorOf )->MeasureProcessCPUTime();
   benchmark::RegisterBenchmark( ( row + "/ours" ).c_str(), ours )->MeasureProcessCPUTime();
   benchmark::Initialize( &argc, argv );
   benchmark::RunSpecifiedBenchmarks();
}
