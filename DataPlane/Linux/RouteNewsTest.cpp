#include "DataPlane/Linux/LinuxFaultTest.h"

/// Routes that change while they are read, which the kernel does not say of a dump.
namespace DataPlane::Linux {

class RouteNews : public LinuxFault {
 protected:
   RouteNews() {
      kernel->routesDumped = [this]( Vel::U8 family ) {
         families.push_back( family );
         if ( dumped )
            dumped( family );
      };
   }
   static Bytes route( const char * destination, Vel::U16 type = RTM_NEWROUTE, unsigned flags = 0 ) {
      rtmsg header{};
      header.rtm_family = address( destination ).family;
      header.rtm_dst_len = 16;
      header.rtm_type = RTN_UNICAST;
      header.rtm_flags = flags;
      return MessageBuilder( type, 0 )
         .header( header )
         .attribute( RTA_TABLE, Vel::U32( RT_TABLE_MAIN ) )
         .attribute( RTA_DST, address( destination ).payload() )
         .attribute( RTA_OIF, Vel::U32( 1 ) )
         .attribute( RTA_GATEWAY, address( destination ).payload() )
         .take();
   }
   RouteTable asked() {
      std::optional< RouteAnswer > result;
      made->routesAsk( {}, [&]( const RouteAnswer & answer ) { result = answer; } );
      for ( int i = 0; i < 100 && !result; ++i )
         turn();
      EXPECT_TRUE( result );
      return result ? *result->table : RouteTable();
   }
   /// What is told while routes of a version are being read, so many times.
   void tells( Vel::U8 family, int times, std::function< void() > tell ) {
      dumped = [=, this]( Vel::U8 of ) mutable {
         if ( of == family && times-- > 0 )
            tell();
      };
   }

   std::function< void( Vel::U8 family ) > dumped;
   std::vector< Vel::U8 > families; ///< of the dumps
};

using Families = std::vector< Vel::U8 >;

TEST_F( RouteNews, makeTheReaderReadThoseOfThatVersionAgain ) {
   started();
   // A dump without the route that is made meanwhile; the next one has it.
   for ( const char * destination : { "10.0.0.0", "2001:db8::" } ) {
      SCOPED_TRACE( destination );
      const Bytes made = route( destination );
      const Vel::U8 family = address( destination ).family;
      families.clear();
      kernel->routes = { route( "11.0.0.0" ), route( "2001:db9::" ) };
      tells( family, 1, [&] {
         kernel->routes.push_back( made );
         kernel->routeNews->push( made );
      } );
      const RouteTable table = asked();
      EXPECT_EQ( "", table.problem );
      ASSERT_EQ( 1u, table.classes.size() );
      EXPECT_EQ( 3u, table.classes.front().destinations );
      EXPECT_EQ(
         family == AF_INET ? ( Families{ AF_INET, AF_INET, AF_INET6 } )
                           : ( Families{ AF_INET, AF_INET6, AF_INET6 } ),
         families );
   }
}

TEST_F( RouteNews, areThoseOfRoutesThatGoAndThoseThatAreLost ) {
   started();
   const Families again = { AF_INET, AF_INET6, AF_INET6 };
   tells( AF_INET6, 1, [&] { kernel->routeNews->push( route( "2001:db8::", RTM_DELROUTE ) ); } );
   asked();
   EXPECT_EQ( again, families );
   families.clear();
   tells( AF_INET6, 1, [&] { kernel->routeNews->push( Channel::Got::lost ); } );
   asked();
   EXPECT_EQ( again, families );
}

TEST_F( RouteNews, areNoneOfWhatIsInNoTable ) {
   started();
   tells( AF_INET6, 1, [&] {
      kernel->routeNews->push( route( "2001:db8::", RTM_NEWROUTE, RTM_F_CLONED ) );
      kernel->routeNews->push( linkBytes( { .name = "et1" } ) );
      kernel->routeNews->push( Channel::Got::failed );
   } );
   asked();
   EXPECT_EQ( ( Families{ AF_INET, AF_INET6 } ), families );
}

TEST_F( RouteNews, areTakenForOneThatCountsWhenThereAreMany ) {
   started();
   tells( AF_INET6, 1, [&] {
      for ( int i = 0; i < RouteReader::mostNews; ++i )
         kernel->routeNews->push( linkBytes( { .name = "et1" } ) );
   } );
   asked();
   EXPECT_EQ( ( Families{ AF_INET, AF_INET6, AF_INET6 } ), families );
}

/// Those that have not changed are right in a dump of version 4, however often others change.
TEST_F( RouteNews, thatGoOnAreAProblemOfVersion6Only ) {
   started();
   for ( const auto & [destination, problem] :
         { std::pair( "10.0.0.0", "" ), { "2001:db8::", "they have changed while they were read" } } ) {
      families.clear();
      kernel->routes = { route( destination ) };
      tells( address( destination ).family, 100, [&] { kernel->routeNews->push( kernel->routes.front() ); } );
      const RouteTable table = asked();
      EXPECT_EQ( problem, table.problem );
      EXPECT_EQ( RouteReader::mostReads + 1u, families.size() );
      // Once, however often they are read.
      ASSERT_EQ( 1u, table.classes.size() );
      EXPECT_EQ( 1u, table.classes.front().destinations );
   }
}

TEST_F( RouteNews, doNotMakeItReadAgainWhenHalfOfTheTimeIsOver ) {
   started();
   tells( AF_INET6, 100, [&] {
      kernel->routeNews->push( route( "2001:db8::" ) );
      time->spend( Switch::routePatience / 2 );
   } );
   EXPECT_EQ( "they have changed while they were read", asked().problem );
   EXPECT_EQ( ( Families{ AF_INET, AF_INET6 } ), families );
}

TEST_F( RouteNews, areDoneWithoutWhereTheyCannotBeHeard ) {
   started();
   kernel->tellsRouteNews = false;
   kernel->routes = { route( "10.0.0.0" ) };
   const RouteTable table = asked();
   EXPECT_EQ( "", table.problem );
   EXPECT_EQ( 1u, table.classes.size() );
}

} // namespace DataPlane::Linux
