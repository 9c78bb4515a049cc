// Routes of the real kernel, and that asking for them changes nothing.

#include "DataPlane/Linux/Kernel.h"
#include "DataPlane/Linux/NamespaceTest.h"

#include <fstream>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace DataPlane::Linux {
namespace {

class LinuxRoutes : public InNamespace {
 protected:
   void SetUp() override {
      InNamespace::SetUp();
      if ( IsSkipped() )
         return;
      up( "lo" );
      for ( const char * number : { "1", "2", "3" } ) {
         const Vel::String name = Vel::text( "et", number );
         veth( name, Vel::text( "p", number ) );
         // No addresses that the kernel makes by itself, and tells of seconds later.
         for ( const Vel::String & end : { name, Vel::text( "p", number ) } )
            std::ofstream( "/proc/sys/net/ipv6/conf/" + end + "/addr_gen_mode" ) << "1";
         up( name );
         up( Vel::text( "p", number ) );
         ip( Vel::text( "address add 10.0.", number, ".1/24 dev ", name ) );
         ip( Vel::text( "-6 address add 2001:db8:", number, "::1/64 nodad dev ", name ) );
      }
      vlans = tryIp( "link add link et3 name et3.7 type vlan id 7" );
      if ( vlans ) {
         ip( "address add 10.0.7.1/24 dev et3.7" );
         up( "et3.7" );
         ip( "route add 10.5.0.0/16 via 10.0.7.2" );
      }
      ip( "route add default via 10.0.1.2" );
      ip( "route add 10.1.0.0/16 nexthop via 10.0.1.2 weight 3 nexthop via 10.0.2.2" );
      ip( "route add 10.2.0.0/16 via 10.0.1.2 metric 10" );
      ip( "route add 10.2.0.0/16 via 10.0.2.2 metric 20" );
      ip( "route add blackhole 10.3.0.0/16" );
      ip( "route add 10.4.0.0/16 via 10.0.2.2 table 100" );
      ip( "-6 route add 2001:db8:100::/48 nexthop via 2001:db8:1::2 nexthop via 2001:db8:2::2" );
      ip( "-6 route add unreachable 2001:db8:200::/48" );
      started();
   }

   RouteAnswer asked( const Vel::String & address = "" ) {
      std::optional< RouteAnswer > result;
      made->routesAsk( { address }, [&]( const RouteAnswer & answer ) { result = answer; } );
      until( [&] { return result.has_value(); } );
      return result.value_or( RouteAnswer{ std::make_shared< RouteTable >(), std::nullopt } );
   }
   /// The ways to a destination of which it is the first example, as text; "none" if there is no such class.
   static Vel::String waysTo( const RouteAnswer & answer, const Vel::String & destination ) {
      for ( const RouteClass & routes : answer.table->classes )
         for ( const std::string & example : routes.examples )
            if ( example == destination )
               return text( routes.choices );
      return "none";
   }
   static Vel::String text( const Choices & choices ) {
      Vel::String result;
      for ( const EqualHops & hops : choices ) {
         result += result.empty() ? "" : " else";
         for ( const NextHop & hop : hops )
            result += Vel::text( result.empty() ? "" : " ", hop.link, "*", hop.weight );
      }
      return result;
   }
   bool vlans = false; ///< the kernel has such devices
   static const RoutedLink * link( const RouteAnswer & answer, const Vel::String & name ) {
      for ( const RoutedLink & each : answer.table->links )
         if ( each.name == name )
            return &each;
      return nullptr;
   }
};

TEST_F( LinuxRoutes, areToldOfAllTablesAndBothVersions ) {
   const RouteAnswer answer = asked();
   EXPECT_EQ( "", answer.table->problem );
   for ( const auto & [destination, ways] : std::vector< std::pair< Vel::String, Vel::String > >{
            { "0.0.0.0/0", "et1*1" },
            { "10.1.0.0/16", "et1*3 et2*1" },
            { "10.2.0.0/16", "et1*1 else et2*1" },
            { "10.3.0.0/16", "none" },
            { "10.4.0.0/16 table 100", "et2*1" },
            { "10.5.0.0/16", vlans ? "et3.7*1" : "none" },
            { "2001:db8:100::/48", "et1*1 et2*1" },
            { "2001:db8:200::/48", "none" },
            { "10.0.1.0/24", "none" },
            { "2001:db8:1::/64", "none" } } )
      EXPECT_EQ( ways, waysTo( answer, destination ) ) << destination;
}

TEST_F( LinuxRoutes, tellWhatLinksStandOnAndTheSpeedThatDriversTell ) {
   const RouteAnswer answer = asked();
   const RoutedLink * const et1 = link( answer, "et1" );
   ASSERT_TRUE( et1 );
   EXPECT_EQ( 10e9, et1->speedBps ); // what a veth says
   if ( !vlans )
      GTEST_SKIP() << "no VLAN devices in this kernel; not tested: what they stand on";
   const RoutedLink * const upper = link( answer, "et3.7" );
   ASSERT_TRUE( upper );
   EXPECT_TRUE( upper->up );
   EXPECT_EQ( ( std::vector< std::vector< std::string > >{ { "et3" } } ), upper->needs );
}

TEST_F( LinuxRoutes, followSharedNextHopsAndTheirGroups ) {
   if ( !tryIp( "nexthop add id 1 via 10.0.1.2 dev et1" ) )
      GTEST_SKIP() << "no shared next hops in this kernel; not tested: routes over them";
   ip( "nexthop add id 2 via 10.0.2.2 dev et2" );
   ip( "nexthop add id 10 group 1,3/2" );
   ip( "route add 10.9.0.0/16 nhid 10" );
   EXPECT_EQ( "et1*3 et2*1", waysTo( asked(), "10.9.0.0/16" ) );
   // Then routes do not say themselves what they lead over.
   std::ofstream( "/proc/sys/net/ipv4/nexthop_compat_mode" ) << "0";
   EXPECT_EQ( "et1*3 et2*1", waysTo( asked(), "10.9.0.0/16" ) );
   EXPECT_EQ( "et1*3 et2*1", text( asked( "10.9.1.1" ).way->choices ) );
}

TEST_F( LinuxRoutes, giveTheWayToAnAddress ) {
   struct Row {
      const char * address;
      const char * destination;
      const char * ways;
   };
   for ( const Row & row :
         { Row{ "10.1.2.3", "10.1.0.0/16", "et1*3 et2*1" },
           Row{ "10.2.2.3", "10.2.0.0/16", "et1*1 else et2*1" }, Row{ "192.0.2.1", "0.0.0.0/0", "et1*1" },
           Row{ "10.0.2.7", "10.0.2.0/24", "et2*1" },
           Row{ "2001:db8:100::7", "2001:db8:100::/48", "et1*1 et2*1" },
           Row{ "2001:db8:2::7", "2001:db8:2::/64", "et2*1" } } ) {
      const auto way = asked( row.address ).way;
      ASSERT_TRUE( way ) << row.address;
      EXPECT_EQ( "", way->problem ) << row.address;
      EXPECT_EQ( row.destination, way->destination );
      EXPECT_EQ( row.ways, text( way->choices ) ) << row.address;
   }
   EXPECT_TRUE( asked( "10.0.1.1" ).way->local );
   EXPECT_NE( "", asked( "10.3.0.1" ).way->problem );
   EXPECT_NE( "", asked( "2001:db9::1" ).way->problem );
}

TEST_F( LinuxRoutes, areReadByTheThousandInManyTurns ) {
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
   EXPECT_EQ( 20000u + ( vlans ? 6u : 5u ), destinations );
   EXPECT_LT( answer.table->classes.size(), 8u );
   EXPECT_GT( loop->turns() - turns, 3u );
}

TEST_F( LinuxRoutes, areNotChangedByAThousandQuestions ) {
   const std::unique_ptr< Kernel > kernel = kernelNew();
   const Opened monitor = kernel->open( true );
   ASSERT_TRUE( monitor.channel ) << monitor.outcome.text();
   for ( int group = RTNLGRP_LINK; group <= RTNLGRP_MAX; ++group )
      setsockopt( monitor.channel->descriptor(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group );
   const auto heard = [&] {
      int datagrams = 0;
      while ( monitor.channel->receive().got == Channel::Got::messages )
         ++datagrams;
      return datagrams;
   };
   const auto everything = [] {
      return ipSays( "-d link" ) + ipSays( "address" ) + ipSays( "-4 route show table all" ) +
             ipSays( "-6 route show table all" ) + ipSays( "nexthop" );
   };
   ip( "route add 10.77.0.0/16 via 10.0.1.2" );
   EXPECT_GT( heard(), 0 );
   const Vel::String before = everything();
   heard();
   for ( int i = 0; i < 1000; ++i )
      ASSERT_EQ( "", asked( "10.1.2.3" ).table->problem );
   EXPECT_EQ( 0, heard() );
   EXPECT_EQ( before, everything() );
}

} // namespace
} // namespace DataPlane::Linux
