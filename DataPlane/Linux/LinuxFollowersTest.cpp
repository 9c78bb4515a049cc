// What hangs on a link: VLAN devices, which go down and up with it, in virtual time.

#include "DataPlane/Linux/LinuxFaultTest.h"

#include <set>

namespace DataPlane::Linux {
namespace {

class LinuxFollowers : public LinuxFault {
 protected:
   LinuxFollowers() {
      vlan( 11, "et1.100", 1 );
      vlan( 12, "et1.200", 1, false );
      vlan( 13, "et1.100.5", 11 );
      loose( 14, "et1.300", 1 );
      vlan( 15, "et1.300.5", 14 );
      vlan( 21, "et2.100", 2 );
   }
   TestLink & vlan( Vel::U32 ifIndex, const Vel::String & name, Vel::U32 lower, bool isUp = true ) {
      TestLink & link = kernel->links[ifIndex];
      link.ifIndex = ifIndex;
      link.name = name;
      link.flags = isUp ? upAndRunning : 0;
      link.kind = "vlan";
      link.lower = lower;
      link.vlanId = 7;
      return link;
   }
   void loose( Vel::U32 ifIndex, const Vel::String & name, Vel::U32 lower ) {
      vlan( ifIndex, name, lower ).looseBinding = true;
   }
   /// 2001:db8:N::1.
   static Bytes addressOf( Vel::U32 ifIndex ) {
      LinkAddress one;
      one.address = address( Vel::text( "2001:db8:", ifIndex, "::1" ).c_str() );
      one.prefixLength = 64;
      return addressRequest( one, ifIndex );
   }
   static Bytes neighbourOf( Vel::U32 ifIndex ) {
      return neighbourBytes( ifIndex, address( "192.0.2.7" ), NUD_PERMANENT );
   }
   void fill() {
      for ( const auto & [ifIndex, link] : kernel->links ) {
         kernel->addresses.push_back( addressOf( ifIndex ) );
         kernel->neighbours.push_back( neighbourOf( ifIndex ) );
         if ( link.flags & IFF_UP )
            kernel->routes.push_back( routeOver( ifIndex ) );
      }
   }
   LostState lost( std::string_view name ) {
      const LinkSnapshot snapshot = made->linkSnapshot( eth( name ) );
      EXPECT_TRUE( snapshot.outcome.ok() ) << snapshot.outcome.text();
      const LostStateRead read = lostStateFrom( snapshot.text );
      EXPECT_TRUE( read.outcome.ok() ) << read.outcome.text();
      return read.state;
   }
   bool isUp( Vel::U32 ifIndex ) const { return ( kernel->links.at( ifIndex ).flags & IFF_UP ) != 0; }
   void set( bool up, const Vel::String & restore = {} ) {
      made->linkSet( ++lastId, eth( "et1" ), up, restore );
      runFor( 1 );
      EXPECT_TRUE( listener.results.at( lastId ).link.ok() );
      EXPECT_TRUE( listener.results.at( lastId ).restore.ok() )
         << listener.results.at( lastId ).restore.text();
   }

   RequestId lastId = 0;
};

TEST_F( LinuxFollowers, areInTheSnapshotOfTheirLink ) {
   fill();
   started();
   const LostState state = lost( "et1" );
   EXPECT_EQ( 1u, state.own.addresses.size() );
   EXPECT_EQ( 1u, state.own.neighbours.size() );
   Vel::String names;
   for ( const Follower & follower : state.followers ) {
      names += follower.name + ( follower.wasDown ? " down, " : ", " );
      EXPECT_EQ( 1u, follower.lost.addresses.size() ) << follower.name;
      EXPECT_EQ( 1u, follower.lost.neighbours.size() ) << follower.name;
   }
   EXPECT_EQ( "et1.100, et1.200 down, et1.100.5, ", names );
   std::set< Vel::String > routed;
   for ( const Route & route : state.routes )
      routed.insert( route.legs.at( 0 ).device );
   EXPECT_EQ( ( std::set< Vel::String >{ "et1", "et1.100", "et1.100.5" } ), routed );
   EXPECT_EQ( 3u, state.routes.size() );
}

TEST_F( LinuxFollowers, ofManyLinksAreReadOnceInATurn ) {
   for ( Vel::U32 i = 0; i < 600; ++i )
      vlan( 1000 + i, Vel::text( "v", i ), 1 + i % 2 );
   fill();
   started();
   EXPECT_EQ( 303u, lost( "et1" ).followers.size() );
   EXPECT_EQ( 301u, lost( "et2" ).followers.size() );
   EXPECT_EQ( 302u, lost( "et1" ).routes.size() - 1 );
   EXPECT_EQ( 1, kernel->dumps[RTM_GETADDR] );
   EXPECT_EQ( 2, kernel->dumps[RTM_GETROUTE] ) << "of two versions of IP each";
   EXPECT_EQ( 5, kernel->dumps[RTM_GETNEIGH] ) << "proxies and others; twice where there are any";
}

TEST_F( LinuxFollowers, comeBackAsTheyWere ) {
   fill();
   started();
   const Vel::String saved = made->linkSnapshot( eth( "et1" ) ).text;
   set( false );
   EXPECT_FALSE( isUp( 11 ) || isUp( 12 ) || isUp( 13 ) );
   EXPECT_TRUE( isUp( 14 ) && isUp( 15 ) );
   kernel->addresses.clear();
   kernel->neighbours.clear();
   kernel->routes.clear();
   kernel->asked.clear();
   set( true, saved );
   EXPECT_TRUE( isUp( 11 ) && !isUp( 12 ) && isUp( 13 ) );
   EXPECT_EQ( std::set< RequestId >{ lastId }, listener.restores );
   std::map< Vel::U16, int > asked;
   for ( const Bytes & bytes : kernel->asked )
      ++asked[messageIn( bytes ).nlmsg_type];
   EXPECT_EQ(
      ( std::map< Vel::U16, int >{
         { RTM_NEWLINK, 2 }, { RTM_NEWADDR, 4 }, { RTM_NEWNEIGH, 4 }, { RTM_NEWROUTE, 3 } } ),
      asked );
}

/// An agent that was killed when it had raised the link, and before it knew that they were down again, asks for the same
/// once more.
TEST_F( LinuxFollowers, comeBackAsTheyWereIfItIsAskedForTwice ) {
   started();
   const Vel::String saved = made->linkSnapshot( eth( "et1" ) ).text;
   set( false );
   set( true );
   EXPECT_TRUE( isUp( 12 ) );
   set( true, saved );
   EXPECT_FALSE( isUp( 12 ) );
}

TEST_F( LinuxFollowers, stayUpIfSomebodyElseHasRaisedTheLink ) {
   fill();
   started();
   const Vel::String saved = made->linkSnapshot( eth( "et1" ) ).text;
   set( false );
   set( true );
   const Vel::String raised = made->raisedByOthers( saved );
   set( true, raised );
   EXPECT_TRUE( isUp( 11 ) && isUp( 12 ) && isUp( 13 ) );
   EXPECT_EQ( lostStateFrom( saved ).state.routes, lostStateFrom( raised ).state.routes );
   EXPECT_EQ( "nonsense", made->raisedByOthers( "nonsense" ) );
}

/// It is told while all the rest is still to come back, so that the next agent knows if this one is killed.
TEST_F( LinuxFollowers, areToldToBeDownAgainBeforeAllHasComeBack ) {
   fill();
   started();
   const Vel::String saved = made->linkSnapshot( eth( "et1" ) ).text;
   set( false );
   kernel->code = []( const nlmsghdr & message ) { return message.nlmsg_type == RTM_NEWROUTE ? EINVAL : 0; };
   kernel->routes.clear();
   made->linkSet( 50, eth( "et1" ), true, saved );
   runFor( 1 );
   EXPECT_FALSE( isUp( 12 ) );
   EXPECT_EQ( std::set< RequestId >{ 50 }, listener.restores );
   EXPECT_FALSE( listener.results.count( 50 ) );
}

TEST_F( LinuxFollowers, ofALinkThatIsNotSetUpAreNotToldToBeDownAgain ) {
   started();
   const Vel::String saved = made->linkSnapshot( eth( "et1" ) ).text;
   set( false );
   kernel->setsLinks = false;
   made->linkSet( 50, eth( "et1" ), true, saved );
   runFor( 1 );
   EXPECT_FALSE( listener.results.at( 50 ).link.ok() );
   EXPECT_TRUE( listener.restores.empty() );
}

TEST_F( LinuxFollowers, snapshotsOfALinkAreJoined ) {
   started();
   LinkAddress own;
   own.address = address( "2001:db8::1" );
   own.prefixLength = 64;
   const Vel::String one = textOf( { 0, {}, { { "et1.100", 11, false, { { own }, {} } } }, {} } );
   const Vel::String other = textOf( { 0, {}, { { "et1.200", 12, true, {} } }, {} } );
   EXPECT_EQ( one + other, made->snapshotsJoined( one, other ) );
   EXPECT_EQ( one, made->snapshotsJoined( one, "nonsense" ) );
   EXPECT_EQ( other, made->snapshotsJoined( "nonsense", other ) );
}

TEST_F( LinuxFollowers, whatSomebodyHasRaisedBetweenTwoSnapshotsIsUpInBoth ) {
   started();
   const Vel::String earlier = made->linkSnapshot( eth( "et1" ) ).text;
   EXPECT_EQ( "follower et1.200 index=12 down\n", earlier );
   kernel->add( vlan( 12, "et1.200", 1 ) );
   turn();
   const Vel::String later = made->linkSnapshot( eth( "et1" ) ).text;
   EXPECT_EQ( "", made->snapshotsJoined( earlier, later ) );
   EXPECT_EQ( earlier, made->snapshotsJoined( later, earlier ) );
}

TEST_F( LinuxFollowers, neighboursThatCannotBeReadAreAFailure ) {
   started();
   kernel->refused = []( const nlmsghdr & request ) {
      return request.nlmsg_type == RTM_GETNEIGH ? ENOMEM : 0;
   };
   const LinkSnapshot snapshot = made->linkSnapshot( eth( "et1" ) );
   EXPECT_EQ( "cannot read the neighbours: Cannot allocate memory", snapshot.outcome.text() );
   EXPECT_EQ( "", snapshot.text );
}

TEST_F( LinuxFollowers, whatWaitsForTheCarrierIsGivenBackLater ) {
   started();
   kernel->code = []( const nlmsghdr & message ) { return message.nlmsg_type == RTM_NEWROUTE ? EINVAL : 0; };
   kernel->add( { .ifIndex = 1, .name = "et1", .flags = IFF_UP } );
   turn();
   kernel->setsLinks = false;
   const Vel::String route = "route inet6 2001:db8:77::/48 table=254 protocol=4 scope=0 type=1 leg=et1\n";
   made->linkSet( 50, eth( "et1" ), true, route );
   runFor( 11 );
   ASSERT_TRUE( listener.results.count( 50 ) );
   EXPECT_EQ( route, listener.results.at( 50 ).left );
   kernel->code = nullptr;
   kernel->add( { .ifIndex = 1, .name = "et1" } );
   turn();
   kernel->asked.clear();
   made->linkRestore( 51, eth( "et1" ), route );
   EXPECT_FALSE( listener.results.count( 51 ) );
   runFor( 1 );
   ASSERT_TRUE( listener.results.count( 51 ) );
   EXPECT_TRUE( listener.results.at( 51 ).restore.ok() );
   ASSERT_EQ( 1u, kernel->asked.size() );
   EXPECT_EQ( RTM_NEWROUTE, messageIn( kernel->asked[0] ).nlmsg_type );
}

TEST_F( LinuxFollowers, requestTakesThePlaceOfWhatIsStillGivenBack ) {
   started();
   made->linkRestore( 50, eth( "et1" ), "address 2001:db8::1/64\n" );
   made->linkSet( 51, eth( "et1" ), false, {} );
   runFor( 1 );
   ASSERT_TRUE( listener.results.count( 50 ) && listener.results.count( 51 ) );
   EXPECT_FALSE( listener.results.at( 50 ).restore.ok() );
   EXPECT_TRUE( listener.results.at( 51 ).link.ok() );
   EXPECT_EQ( 1u, kernel->asked.size() ) << "nothing is given to a link that is down";
}

/// The kernel sets the devices above a link up one after the other, and tells so.
TEST_F( LinuxFollowers, areNotTakenForDownWhenTheKernelHasSetThemUpAndNotToldYet ) {
   fill();
   started();
   kernel->links[12].flags = upAndRunning;
   for ( const auto & follower : lost( "et1" ).followers )
      EXPECT_FALSE( follower.wasDown ) << follower.name;
}

} // namespace
} // namespace DataPlane::Linux
