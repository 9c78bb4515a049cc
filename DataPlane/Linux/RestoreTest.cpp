#include "DataPlane/Linux/Restore.h"
#include "DataPlane/Linux/FakeKernelTest.h"

#include <gtest/gtest.h>

namespace DataPlane::Linux {
namespace {

class Restore : public testing::Test {
 protected:
   Restore() : channel( kernel.open( false ).channel ) {
      kernel.setsLinks = false; // it knows of none
      requests.channelIs( channel.get() );
      for ( const Vel::U32 ifIndex : { 1u, 2u, 3u } )
         links.linkIs( linkMessage( { .ifIndex = ifIndex, .name = Vel::text( "et", ifIndex ) } ) );
      kernel.code = [this]( const nlmsghdr & message ) {
         const Vel::String name = nameOf( message );
         story += name + " ";
         const auto at = codes.find( name );
         return at == codes.end() ? 0 : at->second;
      };
   }

   void restore( const Vel::String & text ) {
      const LostStateRead read = lostStateFrom( text );
      ASSERT_TRUE( read.outcome.ok() ) << read.outcome.text();
      restoring = std::make_unique< Linux::Restore >(
         Linux::Restore::Surroundings{ requests, dumps, links }, Wire::EthIntfId( "et1" ), read.state, now,
         [this] { loweredAfter += story + ";"; },
         [this]( const Outcome & o, const Vel::String & l ) {
            outcome = o;
            left = l;
            ++ended;
            restoring = nullptr;
         } );
      restoring->begin();
      answer();
   }
   /// Takes answers as long as there are any, at one time.
   void answer() {
      for ( int i = 0; i < 20; ++i )
         EXPECT_TRUE( requests.takeAnswers().ok() );
   }
   void retryAt( double time ) {
      now = time;
      restoring->retry( now );
      answer();
   }
   /// The address or destination that a request sets, and of which link if not of the first; with "=" if it replaces, and
   /// the numbers of several links. Or the number of a link that it sets down.
   static Vel::String nameOf( const nlmsghdr & message ) {
      const NameOfLink number = []( Vel::U32 ifIndex ) { return Vel::text( ifIndex ); };
      const auto at = []( Vel::U32 ifIndex ) {
         return ifIndex == 1 ? Vel::String() : Vel::text( "@", ifIndex );
      };
      const char * const replaces = message.nlmsg_flags & NLM_F_REPLACE ? "=" : "";
      if ( const auto header = fixedHeader< ifinfomsg >( message );
           message.nlmsg_type == RTM_NEWLINK && !( header->ifi_flags & IFF_UP ) )
         return Vel::text( "-", header->ifi_index );
      if ( const auto header = fixedHeader< ifaddrmsg >( message ) )
         if ( const auto address = parseLostAddress( message, header->ifa_index ) )
            return stringValue( address->address ) + at( header->ifa_index );
      if ( const auto neighbour = parseLostNeighbour( message ) )
         return stringValue( neighbour->neighbour.address ) + at( neighbour->ifIndex ) + replaces;
      const auto route = parseRoute( message, number );
      if ( !route )
         return "?";
      Vel::String name = stringValue( route->destination );
      if ( message.nlmsg_flags & NLM_F_REPLACE )
         name += "=";
      for ( const Leg & leg : route->legs )
         name += route->legs.size() > 1 ? "," + leg.device : "";
      return name;
   }
   /// A route of several ways that is there.
   void
   present( const char * destination, std::initializer_list< std::pair< Vel::U32, const char * > > legs ) {
      Route route;
      route.destination = address( destination );
      route.family = AF_INET;
      route.source = anyAddress( AF_INET );
      route.destinationLength = 8;
      route.table = 254;
      route.protocol = RTPROT_BOOT;
      route.type = RTN_UNICAST;
      for ( const auto & [ifIndex, gateway] : legs ) {
         Leg leg;
         leg.device = Vel::text( "et", ifIndex );
         leg.gateway = address( gateway );
         route.legs.push_back( leg );
      }
      kernel.routes.push_back( routeRequest( route, RouteSet::ifAbsent, [this]( const Vel::String & name ) {
                                  return links.ifIndexOfName( name );
                               } ).value() );
   }

   FakeKernel kernel;
   std::unique_ptr< Channel > channel;
   Dumps dumps{ kernel };
   Requests requests{ [] {} };
   LinkTable links;
   double now = 1000;
   std::map< Vel::String, int > codes; ///< of requests by name
   Vel::String story;                  ///< names of what was asked for
   Vel::String loweredAfter;           ///< the story each time that nothing was to go down any more, and ";"
   Outcome outcome;
   Vel::String left; ///< over
   int ended = 0;
   std::unique_ptr< Linux::Restore > restoring;
};

const char * const twoWays = "route inet 10.0.0.0/8 table=254 protocol=3 scope=0 type=1 "
                             "leg=et1 via=192.0.2.1 leg=et2 via=192.0.2.2 weight=3\n";

TEST_F( Restore, addressesComeBeforeRoutesAndGatewaysLast ) {
   restore(
      "address 2001:db8::1/64\naddress 2001:db8::2/64\n"
      "route inet 10.0.0.0/8 table=254 leg=et1 via=192.0.2.1\nroute inet 11.0.0.0/8 table=254 leg=et1\n" );
   EXPECT_EQ( "2001:db8::2 2001:db8::1 11.0.0.0 10.0.0.0 ", story );
   EXPECT_EQ( 1, ended );
   EXPECT_TRUE( outcome.ok() );
}

TEST_F( Restore, ofNothingEndsAtOnce ) {
   restore( "" );
   EXPECT_EQ( 1, ended );
   EXPECT_TRUE( outcome.ok() );
}

TEST_F( Restore, withNothingToSetDownSaysSoAtOnce ) {
   restore( "address 2001:db8::1/64\nfollower et1.100 index=4\naddress 2001:db8:1::1/64\n" );
   EXPECT_EQ( ";", loweredAfter );
}

TEST_F( Restore, whatIsThereIsASuccess ) {
   codes = { { "2001:db8::1", EEXIST }, { "10.0.0.0", EEXIST } };
   restore( "address 2001:db8::1/64\nroute inet 10.0.0.0/8 table=254 leg=et1\n" );
   EXPECT_EQ( "2001:db8::1 10.0.0.0 ", story );
   EXPECT_TRUE( ended == 1 && outcome.ok() );
}

TEST_F( Restore, whatFailsIsTriedAgainWhileOthersSucceed ) {
   // 10.0.0.0 needs 11.0.0.0.
   kernel.code = [this]( const nlmsghdr & message ) {
      const Vel::String name = nameOf( message );
      const bool possible = name != "10.0.0.0" || story.find( "11.0.0.0" ) != Vel::String::npos;
      story += name + " ";
      return possible ? 0 : ENETUNREACH;
   };
   restore( "route inet 10.0.0.0/8 table=254 leg=et1 via=11.0.0.1\nroute inet 11.0.0.0/8 table=254 leg=et1 "
            "via=192.0.2.1\n" );
   EXPECT_EQ( "10.0.0.0 11.0.0.0 10.0.0.0 ", story );
   EXPECT_TRUE( ended == 1 && outcome.ok() );
}

TEST_F( Restore, whatFailsIsTriedAgainLater ) {
   codes["10.0.0.0"] = EINVAL;
   restore( "route inet 10.0.0.0/8 table=254 leg=et1\n" );
   EXPECT_EQ( 0, ended );
   EXPECT_EQ( 1000.5, restoring->retryTime() );
   retryAt( 1000.5 );
   EXPECT_EQ( 1001, restoring->retryTime() );
   codes.clear();
   retryAt( 1001 );
   EXPECT_EQ( "10.0.0.0 10.0.0.0 10.0.0.0 ", story );
   EXPECT_TRUE( ended == 1 && outcome.ok() );
}

TEST_F( Restore, givesUpAfterTenSecondsAndNamesTheFirst ) {
   codes["10.0.0.0"] = ENETUNREACH;
   restore( "address 2001:db8::1/64\nroute inet 10.0.0.0/8 table=254 leg=et1\n" );
   while ( ended == 0 )
      retryAt( restoring->retryTime() );
   EXPECT_EQ( 1010, now );
   EXPECT_EQ( "", left );
   EXPECT_EQ(
      "1 of 2 addresses, neighbours and routes of et1 are not restored, the first is route 10.0.0.0/8: "
      "Network is "
      "unreachable",
      outcome.text() );
}

TEST_F( Restore, linkThatHasGoneIsTheReason ) {
   links.linkDel( 1 );
   restore( "address 2001:db8::1/64\nroute inet 10.0.0.0/8 table=254 leg=et1\n" );
   while ( ended == 0 )
      retryAt( restoring->retryTime() );
   EXPECT_EQ( "", story );
   EXPECT_NE( Vel::String::npos, outcome.text().find( "there is no such link" ) ) << outcome.text();
}

TEST_F( Restore, answersAfterItsEndDoNoHarm ) {
   kernel.answers = false;
   const LostStateRead read = lostStateFrom( "address 2001:db8::1/64\n" );
   restoring = std::make_unique< Linux::Restore >(
      Linux::Restore::Surroundings{ requests, dumps, links }, Wire::EthIntfId( "et1" ), read.state, now,
      [] {}, [this]( const Outcome &, const Vel::String & ) { ++ended; } );
   restoring->begin();
   restoring = nullptr;
   kernel.requests->push( answerBytes( messageIn( kernel.asked.back() ).nlmsg_seq, 0 ) );
   answer();
   EXPECT_EQ( 0, ended );
}

TEST_F( Restore, routeOfSeveralWaysThatIsAbsentTakesThoseThatAreUp ) {
   restore( twoWays );
   EXPECT_EQ( "10.0.0.0,1,2 ", story );
   EXPECT_TRUE( ended == 1 && outcome.ok() );
   story.clear();
   links.linkIs( linkMessage( { .ifIndex = 2, .name = "et2", .flags = 0 } ) );
   restore( twoWays );
   EXPECT_EQ( "10.0.0.0 ", story );
}

TEST_F( Restore, routeOfSeveralWaysGrowsByTheWayOfTheLink ) {
   present( "10.0.0.0", { { 2, "192.0.2.2" } } );
   restore( twoWays );
   EXPECT_EQ( "10.0.0.0=,1,2 ", story );
}

TEST_F( Restore, routeOfSeveralWaysThatHasTheLinksOwnIsComplete ) {
   present( "10.0.0.0", { { 1, "192.0.2.1" } } );
   restore( twoWays );
   EXPECT_EQ( "", story );
   EXPECT_TRUE( ended == 1 && outcome.ok() );
}

TEST_F( Restore, routeThatSomebodyElseHasSetMeanwhileIsLeftAlone ) {
   present( "10.0.0.0", { { 2, "192.0.2.2" }, { 3, "192.0.2.77" } } );
   restore( twoWays );
   EXPECT_EQ( "", story );
   EXPECT_TRUE( ended == 1 && outcome.ok() );
}

TEST_F( Restore, routesThatCannotBeReadAreTriedAgain ) {
   kernel.failingDumps = 1;
   restore( twoWays );
   EXPECT_EQ( 0, ended );
   retryAt( 1000.5 );
   EXPECT_EQ( "10.0.0.0,1,2 ", story );
   EXPECT_TRUE( ended == 1 && outcome.ok() );
}

TEST_F( Restore, neighboursThatAreAbsentAreSet ) {
   restore( "neighbour 192.0.2.2 lladdr=020000000002 state=128 protocol=0\n"
            "neighbour 2001:db8::9 state=0 flags=8 protocol=0\n" );
   EXPECT_EQ( "192.0.2.2 2001:db8::9 ", story );
   EXPECT_TRUE( ended == 1 && outcome.ok() );
}

TEST_F( Restore, neighbourThatTheKernelHasLearnedGivesWay ) {
   kernel.neighbours = { neighbourBytes( 1, address( "192.0.2.2" ), NUD_REACHABLE ) };
   restore( "neighbour 192.0.2.2 lladdr=020000000002 state=128 protocol=0\n" );
   EXPECT_EQ( "192.0.2.2= ", story );
   EXPECT_TRUE( ended == 1 && outcome.ok() );
}

TEST_F( Restore, neighbourThatIsLearnedJustThenGivesWayToo ) {
   codes["192.0.2.2"] = EEXIST;
   kernel.code = [this]( const nlmsghdr & message ) {
      story += nameOf( message ) + " ";
      if ( message.nlmsg_flags & NLM_F_REPLACE )
         return 0;
      kernel.neighbours = { neighbourBytes( 1, address( "192.0.2.2" ), NUD_INCOMPLETE ) };
      return EEXIST;
   };
   restore( "neighbour 192.0.2.2 lladdr=020000000002 state=128 protocol=0\n" );
   EXPECT_EQ( "192.0.2.2 192.0.2.2= ", story );
   EXPECT_TRUE( ended == 1 && outcome.ok() );
}

TEST_F( Restore, neighbourThatSomebodyHasSetMeanwhileIsLeftAlone ) {
   kernel.neighbours = { neighbourBytes( 1, address( "192.0.2.2" ), NUD_PERMANENT ) };
   restore( "neighbour 192.0.2.2 lladdr=020000000002 state=128 protocol=0\n" );
   EXPECT_EQ( "", story );
   EXPECT_TRUE( ended == 1 && outcome.ok() );
}

/// The kernel has not judged it: what it says is that we may not, or have not reached it.
class RestoreThatMayNot : public Restore, public testing::WithParamInterface< int > {};

TEST_P( RestoreThatMayNot, isLeftForLater ) {
   codes = { { "2001:db8::1", GetParam() }, { "10.0.0.0", ENETUNREACH } };
   restore( "address 2001:db8::1/64\naddress 2001:db8::2/64\n"
            "route inet 10.0.0.0/8 table=254 protocol=3 scope=0 type=1 leg=et1\n" );
   while ( ended == 0 )
      retryAt( restoring->retryTime() );
   EXPECT_EQ( 1010, now );
   EXPECT_EQ( "address 2001:db8::1/64 scope=0 flags=0 valid=forever preferred=forever protocol=0\n", left )
      << "and not what has been refused";
   EXPECT_TRUE( outcome.text().starts_with(
      "2 of 3 addresses, neighbours and routes of et1 are not restored yet, the first is address "
      "2001:db8::1/64: " ) )
      << outcome.text();
}

INSTANTIATE_TEST_SUITE_P( Restore, RestoreThatMayNot, testing::Values( EPERM, EIO, ENOMEM, ENOBUFS ) );

TEST_F( Restore, isLeftForLaterWithoutAConnectionToTheKernel ) {
   requests.channelIs( nullptr );
   restore( "address 2001:db8::1/64\n" );
   while ( ended == 0 )
      retryAt( restoring->retryTime() );
   EXPECT_EQ( "address 2001:db8::1/64 scope=0 flags=0 valid=forever preferred=forever protocol=0\n", left );
}

TEST_F( Restore, isLeftForLaterWhenTheRoutesCannotBeRead ) {
   kernel.failingDumps = 1000;
   restore( twoWays );
   while ( ended == 0 )
      retryAt( restoring->retryTime() );
   EXPECT_EQ( twoWays, left );
}

TEST_F( Restore, isNotLeftForALinkThatHasGone ) {
   codes = { { "10.0.0.0", EPERM } };
   restore( "route inet 10.0.0.0/8 table=254 leg=et1\n" );
   links.linkDel( 1 );
   while ( ended == 0 )
      retryAt( restoring->retryTime() );
   EXPECT_EQ( "", left );
}

class RestoreAbove : public Restore {
 protected:
   RestoreAbove() {
      vlan( 4, "et1.100", 1 );
      vlan( 5, "et1.200", 1 );
      vlan( 6, "et1.200.7", 5 );
   }
   void vlan( Vel::U32 ifIndex, const char * name, Vel::U32 lower, bool looseBinding = false ) {
      links.linkIs( linkMessage(
         { .ifIndex = ifIndex,
           .name = name,
           .kind = "vlan",
           .lower = lower,
           .vlanId = 7,
           .looseBinding = looseBinding } ) );
   }
};

TEST_F( RestoreAbove, whatWasDownGoesDownFirst ) {
   restore( "address 2001:db8::1/64\n"
            "follower et1.100 index=4\naddress 2001:db8:1::1/64\n"
            "neighbour 192.0.2.2 lladdr=020000000002 state=128 protocol=0\n"
            "follower et1.200 index=5 down\naddress 2001:db8:2::1/64\n"
            "follower et1.200.7 index=6 down\n"
            "route inet6 2001:db8:77::/48 table=254 leg=et1.100\n" );
   EXPECT_EQ( "-5 -6 2001:db8::1 2001:db8:1::1@4 192.0.2.2@4 2001:db8:2::1@5 2001:db8:77:: ", story );
   EXPECT_EQ( "-5 -6 ;", loweredAfter );
   EXPECT_TRUE( ended == 1 && outcome.ok() ) << outcome.text();
}

TEST_F( RestoreAbove, whatIsGoneOrMadeAnewIsLeftAlone ) {
   const char * const text = "follower et1.200 index=5 down\naddress 2001:db8:1::1/64\n"
                             "neighbour 192.0.2.2 lladdr=020000000002 state=128 protocol=0\n"
                             "route inet6 2001:db8:77::/48 table=254 leg=et1.200\n"
                             "route inet6 2001:db8:78::/48 table=254 leg=et1.200 leg=et2\n";
   for ( const char * const what : { "gone", "made anew", "on another link", "bound loosely" } ) {
      SCOPED_TRACE( what );
      links.linkDel( 6 );
      links.linkDel( 5 );
      links.linkDel( 7 );
      if ( what == Vel::String( "made anew" ) )
         vlan( 7, "et1.200", 1 );
      else if ( what == Vel::String( "on another link" ) )
         vlan( 5, "et1.200", 2 );
      else if ( what == Vel::String( "bound loosely" ) )
         vlan( 5, "et1.200", 1, true );
      ended = 0;
      loweredAfter = "";
      restore( text );
      EXPECT_EQ( "", story );
      EXPECT_EQ( ";", loweredAfter );
      EXPECT_TRUE( ended == 1 && outcome.ok() ) << outcome.text();
   }
}

TEST_F( RestoreAbove, saysThatAllIsDownWhenTheLastOneIs ) {
   codes["-6"] = EBUSY;
   restore( "follower et1.200 index=5 down\nfollower et1.200.7 index=6 down\naddress 2001:db8:2::1/64\n" );
   EXPECT_EQ( "", loweredAfter );
   codes.clear();
   story = "";
   retryAt( 1000.5 );
   EXPECT_EQ( "-6 ;", loweredAfter );
   EXPECT_TRUE( ended == 1 && outcome.ok() ) << outcome.text();
}

TEST_F( RestoreAbove, neverSaysThatAllIsDownIfItIsNot ) {
   codes["-6"] = EPERM;
   restore( "follower et1.200 index=5 down\nfollower et1.200.7 index=6 down\n" );
   while ( ended == 0 )
      retryAt( restoring->retryTime() );
   EXPECT_EQ( "", loweredAfter );
}

TEST_F( RestoreAbove, whatIsRenamedIsTheSame ) {
   links.linkDel( 6 );
   vlan( 5, "storage", 1 );
   vlan( 7, "et1.200", 1 );
   Vel::U32 routed = 0;
   kernel.code = [&]( const nlmsghdr & message ) {
      story += nameOf( message ) + " ";
      if ( message.nlmsg_type == RTM_NEWROUTE )
         routed = Attributes( message, sizeof( rtmsg ) ).u32( RTA_OIF ).value_or( 0 );
      return 0;
   };
   restore( "follower et1.200 index=5\naddress 2001:db8:1::1/64\n"
            "route inet6 2001:db8:77::/48 table=254 leg=et1.200\n" );
   EXPECT_EQ( "2001:db8:1::1@5 2001:db8:77:: ", story );
   EXPECT_EQ( 5u, routed );
}

TEST_F( RestoreAbove, routeOfSeveralWaysGrowsByTheWaysAbove ) {
   present( "10.0.0.0", { { 2, "192.0.2.2" } } );
   const char * const text = "follower et1.100 index=4\n"
                             "route inet 10.0.0.0/8 table=254 protocol=3 scope=0 type=1 "
                             "leg=et1.100 via=192.0.2.1 leg=et2 via=192.0.2.2\n";
   restore( text );
   EXPECT_EQ( "10.0.0.0=,4,2 ", story );
}

class RestoreWithoutCarrier : public Restore {
 protected:
   RestoreWithoutCarrier() { carrierIs( false ); }
   void carrierIs( bool has ) {
      links.linkIs(
         linkMessage( { .ifIndex = 1, .name = "et1", .flags = has ? upAndRunning : unsigned( IFF_UP ) } ) );
   }
   void retryUntilItEnds() {
      while ( ended == 0 )
         retryAt( restoring->retryTime() );
   }
};

TEST_F( RestoreWithoutCarrier, whatIsRefusedIsLeft ) {
   codes["2001:db8:77::"] = EINVAL;
   restore( "address 2001:db8::1/64\n"
            "route inet6 2001:db8:77::/48 table=254 protocol=3 scope=0 type=1 leg=et1\n" );
   retryUntilItEnds();
   EXPECT_EQ( 1010, now );
   EXPECT_EQ(
      "1 of 2 addresses, neighbours and routes of et1 wait for its carrier, the first is route "
      "2001:db8:77::/48: Invalid argument",
      outcome.text() );
   EXPECT_EQ( "route inet6 2001:db8:77::/48 table=254 protocol=3 scope=0 type=1 leg=et1\n", left );
}

TEST_F( RestoreWithoutCarrier, carrierThatComesGivesTenSecondsMore ) {
   codes["2001:db8:77::"] = EINVAL;
   restore( "route inet6 2001:db8:77::/48 table=254 leg=et1\n" );
   while ( now < 1008 )
      retryAt( restoring->retryTime() );
   carrierIs( true );
   retryUntilItEnds();
   EXPECT_EQ( 1018.5, now );
   EXPECT_EQ( "", left );
   EXPECT_FALSE( outcome.ok() );
}

TEST_F( RestoreWithoutCarrier, carrierThatComesAndGoesIsNotFollowedForEver ) {
   codes["2001:db8:77::"] = EINVAL;
   restore( "route inet6 2001:db8:77::/48 table=254 leg=et1\n" );
   for ( bool has = true; ended == 0; has = !has ) {
      carrierIs( has );
      for ( int i = 0; i < 7 && ended == 0; ++i )
         retryAt( restoring->retryTime() );
   }
   EXPECT_LE( now, 1030 );
   EXPECT_NE( "", left );
}

TEST_F( RestoreWithoutCarrier, lifetimesOfWhatIsLeftAreOfItsTime ) {
   codes["2001:db8:77::"] = EINVAL;
   const LostStateRead read = lostStateFrom(
      "at 900\nroute inet6 2001:db8:77::/48 table=254 protocol=3 scope=0 type=1 expires=500 leg=et1\n" );
   restore( textOf( restoredAt( read.state, now ) ) );
   retryUntilItEnds();
   EXPECT_EQ( 400u, lostStateFrom( left ).state.routes.at( 0 ).expires );
   EXPECT_EQ( 1000, lostStateFrom( left ).state.at );
}

TEST_F( RestoreWithoutCarrier, whatIsLeftOfFollowersSetsThemDownNoMore ) {
   links.linkIs(
      linkMessage( { .ifIndex = 4, .name = "et1.100", .kind = "vlan", .lower = 1, .vlanId = 7 } ) );
   codes = { { "2001:db8:77::", EINVAL }, { "2001:db8:1::2@4", ENODEV }, { "2001:db8:1::3@4", ENODEV } };
   restore( "follower et1.100 index=4 down\naddress 2001:db8:1::2/64\naddress 2001:db8:1::3/64\n"
            "route inet6 2001:db8:77::/48 table=254 protocol=3 scope=0 type=1 leg=et1.100\n" );
   retryUntilItEnds();
   EXPECT_EQ(
      "follower et1.100 index=4\n"
      "address 2001:db8:1::2/64 scope=0 flags=0 valid=forever preferred=forever protocol=0\n"
      "address 2001:db8:1::3/64 scope=0 flags=0 valid=forever preferred=forever protocol=0\n"
      "route inet6 2001:db8:77::/48 table=254 protocol=3 scope=0 type=1 leg=et1.100\n",
      left );
}

} // namespace
} // namespace DataPlane::Linux
