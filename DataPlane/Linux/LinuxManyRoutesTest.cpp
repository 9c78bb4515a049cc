// A real kernel that has many routes, or is asked for them many times.

#include "DataPlane/Linux/Kernel.h"
#include "DataPlane/Linux/RoutesInNamespaceTest.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace DataPlane::Linux {
namespace {

using LinuxManyRoutes = LinuxRoutes;

TEST_F( LinuxManyRoutes, areReadByTheThousandInManyTurns ) {
   Vel::String lines;
   for ( int i = 0; i < 20000; ++i )
      lines += Vel::text(
         "route add 172.", 16 + i / 2560, ".", i / 10 % 256, ".", i % 10 * 16, "/28 via 10.0.1.2\n" );
   burst( lines );
   const Vel::U64 turns = loop->turns();
   const RouteAnswer answer = asked();
   EXPECT_EQ( "", answer.table->problem );
   std::uint64_t destinations = 0;
   for ( const RouteClass & routes : answer.table->classes )
      destinations += routes.destinations;
   EXPECT_EQ( 20000u + 5u, destinations );
   EXPECT_LT( answer.table->classes.size(), 8u );
   EXPECT_GT( loop->turns() - turns, 3u );
}

TEST_F( LinuxManyRoutes, areToldToWhoListensToThoseOfOneVersion ) {
   const auto isTold = []( Channel & channel ) { return channel.receive().got == Channel::Got::messages; };
   const auto kernel = kernelNew();
   // What the kernel makes of addresses by itself is told some time after.
   until( [] { return ipSays( "-6 address show tentative" ).empty(); } );
   const auto of4 = kernel->openRouteNews( AF_INET ).channel, of6 = kernel->openRouteNews( AF_INET6 ).channel;
   ip( "route add 10.77.0.0/16 via 10.0.1.2" );
   EXPECT_TRUE( isTold( *of4 ) );
   EXPECT_FALSE( isTold( *of6 ) );
   ip( "-6 route add 2001:db8:77::/48 via 2001:db8:1::2" );
   EXPECT_FALSE( isTold( *of4 ) );
   EXPECT_TRUE( isTold( *of6 ) );
   ip( "link set et1 alias other" );
   EXPECT_FALSE( isTold( *of4 ) );
   EXPECT_FALSE( isTold( *of6 ) );
}

/// Hears what the kernel tells of changes, whoever makes them.
class Monitor {
 public:
   Monitor() : channel_( kernelNew()->open( true ).channel ) {
      for ( const auto & [name, group] : std::vector< std::pair< const char *, int > >{
               { "link", RTNLGRP_LINK },
               { "neighbour", RTNLGRP_NEIGH },
               { "address", RTNLGRP_IPV4_IFADDR },
               { "route", RTNLGRP_IPV4_ROUTE },
               { "rule", RTNLGRP_IPV4_RULE },
               { "settings", RTNLGRP_IPV4_NETCONF },
               { "address 6", RTNLGRP_IPV6_IFADDR },
               { "link 6", RTNLGRP_IPV6_IFINFO },
               { "route 6", RTNLGRP_IPV6_ROUTE },
               { "rule 6", RTNLGRP_IPV6_RULE },
               { "settings 6", RTNLGRP_IPV6_NETCONF },
               { "next hop", RTNLGRP_NEXTHOP },
               { "VLAN", RTNLGRP_BRVLAN } } ) {
         EXPECT_TRUE( isMember( group ) ) << name;
      }
   }

   /// The types of all messages since the last call. Fails the test if some were lost.
   std::vector< int > heard() {
      std::vector< int > types;
      Channel::Received received;
      while ( ( received = channel_->receive() ).got == Channel::Got::messages ) {
         int size = static_cast< int >( received.size );
         for ( auto * message = static_cast< const nlmsghdr * >( received.begin ); NLMSG_OK( message, size );
               message = NLMSG_NEXT( message, size ) )
            types.push_back( message->nlmsg_type );
      }
      EXPECT_EQ( Channel::Got::nothing, received.got ) << received.error;
      return types;
   }

 private:
   bool isMember( int group ) const {
      return setsockopt(
                channel_->descriptor(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group ) == 0;
   }

   const std::unique_ptr< Channel > channel_;
};

TEST_F( LinuxManyRoutes, areNotChangedByAThousandQuestions ) {
   Monitor monitor;
   const auto everything = [] {
      return ipSays( "-d link" ) + ipSays( "address" ) + ipSays( "-4 route show table all" ) +
             ipSays( "-6 route show table all" ) + ipSays( "nexthop" );
   };
   // The state of a link is told up to a second after it has changed.
   until( [] { return ipSays( "-br link" ).find( "DOWN" ) == Vel::String::npos; } );
   monitor.heard();
   ip( "route add 10.77.0.0/16 via 10.0.1.2" );
   EXPECT_EQ( std::vector< int >{ RTM_NEWROUTE }, monitor.heard() );
   ip( "-6 route add 2001:db8:77::/48 via 2001:db8:1::2" );
   EXPECT_EQ( std::vector< int >{ RTM_NEWROUTE }, monitor.heard() );
   const Vel::String before = everything();
   for ( int i = 0; i < 1000; ++i )
      ASSERT_EQ( "", asked( "10.1.2.3" ).table->problem );
   EXPECT_EQ( std::vector< int >{}, monitor.heard() );
   EXPECT_EQ( before, everything() );
}

} // namespace
} // namespace DataPlane::Linux
