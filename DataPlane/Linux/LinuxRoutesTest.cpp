// Routes of the real kernel.

#include "DataPlane/Linux/RoutesInNamespaceTest.h"

#include <fstream>

namespace DataPlane::Linux {
namespace {

/// Of the first ways to an address that do without a link; empty: there are none.
Vel::String destinationWithout( const Vel::String & link, const AddressWay & way ) {
   for ( std::size_t i = 0; i < way.choices.size(); ++i ) {
      if ( way.choices[i].empty() )
         return "";
      for ( const NextHop & hop : way.choices[i] )
         if ( hop.link != link ) {
            Vel::String destination = way.destination;
            for ( const LessSpecificRoute & less : way.lessSpecific )
               if ( less.first <= i )
                  destination = less.destination;
            return destination;
         }
   }
   return "";
}

TEST_F( LinuxRoutes, areToldOfAllTablesAndBothVersions ) {
   const RouteAnswer answer = asked();
   EXPECT_EQ( "", answer.table->problem );
   for ( const auto & [destination, ways] : std::vector< std::pair< Vel::String, Vel::String > >{
            { "0.0.0.0/0", "et1*1" },
            { "10.1.0.0/16", "et1*3 et2*1" },
            { "10.2.0.0/16", "et1*1 else et2*1" },
            { "10.3.0.0/16", "none" },
            { "10.4.0.0/16 table 100", "et2*1" },
            { "2001:db8:100::/48", "et1*1 et2*1" },
            { "2001:db8:200::/48", "none" },
            { "10.0.1.0/24", "none" },
            { "2001:db8:1::/64", "none" } } )
      EXPECT_EQ( ways, waysTo( answer, destination ) ) << destination;
}

TEST_F( LinuxRoutes, leadOverPortsWhoseDriversTellHowFastTheyAre ) {
   EXPECT_TRUE( link( asked(), "et1" )->up );
   EXPECT_EQ( 10e9, made->portSpeed( "et1" ) ); // what a veth says
   EXPECT_EQ( std::nullopt, made->portSpeed( "lo" ) );
}

TEST_F( LinuxRoutes, followSharedNextHopsAndTheirGroups ) {
   if ( !tryIp( "nexthop add id 1 via 10.0.1.2 dev et1" ) )
      GTEST_SKIP() << "no shared next hops in this kernel; not tested: routes over them";
   burst( "nexthop add id 2 via 10.0.2.2 dev et2\n"
          "nexthop add id 10 group 1,3/2\n"
          "route add 10.9.0.0/16 nhid 10\n" );
   EXPECT_EQ( "et1*3 et2*1", waysTo( asked(), "10.9.0.0/16" ) );
   // Then routes do not say themselves what they lead over.
   std::ofstream( "/proc/sys/net/ipv4/nexthop_compat_mode" ) << "0";
   EXPECT_EQ( "et1*3 et2*1", waysTo( asked(), "10.9.0.0/16" ) );
   EXPECT_EQ( "et1*3 et2*1", textOfOwn( asked( "10.9.1.1" ).way.value() ) );
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
      EXPECT_EQ( row.ways, textOfOwn( *way ) ) << row.address;
   }
   EXPECT_TRUE( asked( "10.0.1.1" ).way->local );
   EXPECT_NE( "", asked( "2001:db9::1" ).way->problem );
}

/// Before a link is set down it is said what the kernel does then, and by whom.
TEST_F( LinuxRoutes, fallBackOnLessSpecificOnesAsTheKernelDoes ) {
   burst( "route add 10.0.0.0/8 via 10.0.2.2\n"
          "route add 10.5.0.0/16 via 10.0.1.2\n"
          "route add 10.6.0.0/16 via 10.0.1.2\n"
          "route add blackhole 10.6.0.0/15\n"
          "route add 10.8.0.0/16 via 10.0.1.2\n"
          "route add 10.8.0.0/15 via 10.0.1.2\n"
          "route add 10.10.0.0/16 via 10.0.1.2 metric 10\n"
          "route add unreachable 10.10.0.0/16 metric 20\n"
          "route add 2001:db8::/32 via 2001:db8:2::2\n"
          "route add 2001:db8:5::/48 via 2001:db8:1::2\n"
          "route add 2001:db8:6::/48 via 2001:db8:1::2\n"
          "route add unreachable 2001:db8:6::/47\n"
          "route add 2001:db8:8::/48 via 2001:db8:1::2\n"
          "route add 2001:db8:8::/47 via 2001:db8:1::2\n"
          "route add 2001:db8:10::/48 via 2001:db8:1::2 metric 10\n"
          "route add 2001:db8:10::/48 via 2001:db8:2::2 metric 20\n" );
   struct Row {
      const char * address;
      const char * then; ///< empty: none
   };
   const std::vector< Row > rows = {
      { "10.5.0.1", "10.0.0.0/8" },
      { "10.6.0.1", "" },
      { "10.8.0.1", "10.0.0.0/8" },
      { "10.10.0.1", "" },
      { "10.1.2.3", "10.1.0.0/16" },
      { "10.2.2.3", "10.2.0.0/16" },
      { "192.0.2.1", "" },
      { "2001:db8:5::1", "2001:db8::/32" },
      { "2001:db8:6::1", "" },
      { "2001:db8:8::1", "2001:db8::/32" },
      { "2001:db8:10::1", "2001:db8:10::/48" },
      { "2001:db8:100::1", "2001:db8:100::/48" } };
   for ( const Row & row : rows )
      EXPECT_EQ( row.then, destinationWithout( "et1", asked( row.address ).way.value() ) ) << row.address;
   ip( "link set et1 down" );
   for ( const Row & row : rows ) {
      const AddressWay way = asked( row.address ).way.value();
      EXPECT_EQ( row.then, way.problem.empty() ? way.destination : "" ) << row.address;
   }
}

/// Which is why no less specific one is said to be taken then.
TEST_F( LinuxRoutes, areTakenOverALinkThatHasOnlyLostItsCarrier ) {
   burst( "route add 10.0.0.0/8 via 10.0.2.2\n"
          "route add 10.5.0.0/16 via 10.0.1.2\n"
          "route add 2001:db8::/32 via 2001:db8:2::2\n"
          "route add 2001:db8:5::/48 via 2001:db8:1::2\n"
          "link set p1 down\n" );
   until( [] { return ipSays( "link show et1" ).find( "NO-CARRIER" ) != Vel::String::npos; } );
   EXPECT_EQ( "10.5.0.0/16", asked( "10.5.0.1" ).way->destination );
   EXPECT_EQ( "2001:db8:5::/48", asked( "2001:db8:5::1" ).way->destination );
}

TEST_F( LinuxRoutes, fallBackOnNothingThatRulesLeaveOut ) {
   burst( "route add 10.0.0.0/8 via 10.0.2.2\n"
          "route add 10.5.0.0/16 via 10.0.1.2\n" );
   EXPECT_EQ( 2u, asked( "10.5.0.1" ).way->lessSpecific.size() );
   if ( !tryIp( "rule add pref 100 lookup main suppress_prefixlength 0" ) )
      GTEST_SKIP() << "no rules in this kernel; not tested: that they leave routes out";
   EXPECT_EQ( 1u, asked( "10.5.0.1" ).way->lessSpecific.size() );
}

TEST_F( LinuxRoutes, tellOfARouteThatDropsPacketsThatThereIsNoWay ) {
   burst( "route add prohibit 10.31.0.0/16\n"
          "route add unreachable 10.32.0.0/16\n"
          "route add prohibit 2001:db8:201::/48\n"
          "route add blackhole 2001:db8:202::/48\n" );
   const auto problem = [this]( const char * address ) { return asked( address ).way->problem; };
   EXPECT_EQ( "a blackhole route drops what is sent to 10.3.0.1", problem( "10.3.0.1" ) );
   EXPECT_EQ( "a prohibit route turns back what is sent to 10.31.0.1", problem( "10.31.0.1" ) );
   EXPECT_EQ( "an unreachable route turns back what is sent to 10.32.0.1", problem( "10.32.0.1" ) );
   EXPECT_EQ(
      "an unreachable route turns back what is sent to 2001:db8:200::1", problem( "2001:db8:200::1" ) );
   EXPECT_EQ( "a prohibit route turns back what is sent to 2001:db8:201::1", problem( "2001:db8:201::1" ) );
   EXPECT_EQ( "a blackhole route drops what is sent to 2001:db8:202::1", problem( "2001:db8:202::1" ) );
   EXPECT_TRUE( problem( "2001:db9::1" ).starts_with( "there is no route to 2001:db9::1 (" ) )
      << problem( "2001:db9::1" );
}

TEST_F( LinuxRoutes, giveAWayWithDoubtWhereRulesChoose ) {
   EXPECT_EQ( "", asked( "10.1.2.3" ).way->doubt );
   EXPECT_EQ( "", asked( "2001:db8:100::7" ).way->doubt );
   if ( !tryIp( "rule add from 10.0.1.1 lookup 100" ) )
      GTEST_SKIP() << "no rules in this kernel; not tested: that they choose";
   EXPECT_NE( "", asked( "10.1.2.3" ).way->doubt );
   EXPECT_EQ( "", asked( "2001:db8:100::7" ).way->doubt );
   EXPECT_EQ( "et1*1", text( asked( "10.4.2.3" ).way->choices ) );
   const AddressWay fromSource = asked( "10.4.2.3", "10.0.1.1" ).way.value();
   EXPECT_EQ( "", fromSource.doubt );
   EXPECT_EQ( "et2*1", text( fromSource.choices ) );
   EXPECT_NE( "", asked( "10.4.2.3", "10.0.99.1" ).way->doubt );
}

} // namespace
} // namespace DataPlane::Linux
