#include "DataPlane/Linux/Restore.h"
#include "DataPlane/Linux/FakeKernelTest.h"

#include <gtest/gtest.h>

namespace DataPlane::Linux {
namespace {

class Restore : public testing::Test {
 protected:
   Restore() : channel( kernel.open( false ).channel ) {
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
         [this]( const Outcome & o ) {
            outcome = o;
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
   /// The address or destination that a request sets; with "=" if it replaces, and the numbers of several links.
   static Vel::String nameOf( const nlmsghdr & message ) {
      const NameOfLink number = []( Vel::U32 ifIndex ) { return Vel::text( ifIndex ); };
      if ( const auto address = parseLostAddress( message, 1 ) )
         return stringValue( address->address );
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
   Outcome outcome;
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
   EXPECT_EQ(
      "1 of 2 addresses and routes of et1 are not restored, the first is route 10.0.0.0/8: Network is "
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
      [this]( const Outcome & ) { ++ended; } );
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

} // namespace
} // namespace DataPlane::Linux
