// Rates of real links, in virtual time, so that they are exact: as much is sent as belongs to a period.

#include "DataPlane/Linux/NamespaceTest.h"
#include "DataPlane/Linux/SenderTest.h"
#include "Tests/Agent/AgentRig.h"

#include <nlohmann/json.hpp>

namespace DataPlane::Linux {
namespace {

using nlohmann::json;
using Tests::AgentRig;

constexpr int period = 5;         // of samples, seconds
constexpr Vel::U64 packets = 250; // in each
constexpr double rate = packets * Sender::octetsPerPacket * 8.0 / period;

/// A unit that waits for et1, which sends to p1.
class LinuxRates : public InNamespace {
 protected:
   void SetUp() override {
      InNamespace::SetUp();
      if ( IsSkipped() )
         return;
      quietPair( "et1", "p1" );
      rig = std::make_unique< AgentRig >(
         "profiles:\n  p: {threshold: 1kbps, load-interval: 10s}\ndefault-profile: p\n"
         "groups:\n  all: {interfaces: [et1, p1, later]}\nunits:\n  u1: {groups: [all]}\n",
         AgentRig::Links::kernel );
      rig->start();
      seen( "et1" );
      rig->runUntil( 2 );
      // The kernel is asked for its routes first, which takes no time of the rig's.
      const auto entered = rig->ask( "POST", "units/u1/enter" );
      until( [&] {
         rig->turn();
         return entered->status == 202;
      } );
      sender = std::make_unique< Sender >();
   }
   void TearDown() override {
      sender.reset();
      rig.reset();
      InNamespace::TearDown();
   }
   /// Waits until the agent knows that it is up.
   void seen( const char * link ) {
      until( [&] {
         rig->turn();
         const json answer = json::parse( rig->get( Vel::text( "interfaces/", link ) ) );
         return answer.contains( "link-state" ) && answer.at( "link-state" ) == "up";
      } );
   }
   /// One period. Traffic comes in its middle; `happens`, if given, some seconds after its beginning.
   void goOn( double after = 0, const std::function< void() > & happens = nullptr ) {
      const double begin = rig->time();
      const auto act = [&] {
         rig->runUntil( begin + after );
         looks();
         happens();
         rig->turn();
         looks();
      };
      if ( happens && after < period / 2.0 )
         act();
      rig->runUntil( begin + period / 2.0 );
      sender->send( packets );
      if ( happens && after >= period / 2.0 )
         act();
      for ( int second = 3; second <= period; ++second ) {
         if ( rig->time() < begin + second )
            rig->runUntil( begin + second );
         looks();
      }
   }
   /// What is sent in a period, over that or the part of a second more that a first sample may take.
   static bool sane( double seenRate ) {
      return seenRate > rate * period / ( period + 1 ) && seenRate <= rate;
   }
   /// No rate is anything but nothing or what is sent.
   void looks() {
      const json unit = json::parse( rig->get( "units/u1" ) ).at( "rates" );
      for ( const char * direction : { "in-bps", "out-bps" } ) {
         const double sum = unit.at( direction ).get< double >();
         EXPECT_TRUE( sum == 0 || sane( sum ) )
            << direction << " of the unit at " << rig->time() << ": " << sum;
      }
      for ( const auto & [link, direction] : { std::pair( "et1", "out-bps" ), { "p1", "in-bps" } } ) {
         const json intf = json::parse( rig->get( Vel::text( "interfaces/", link ) ) );
         if ( !intf.contains( direction ) || intf.at( direction ).is_null() )
            continue;
         ++rates;
         const double seenRate = intf.at( direction ).get< double >();
         EXPECT_TRUE( sane( seenRate ) ) << link << " at " << rig->time() << ": " << seenRate;
         EXPECT_EQ( 0, intf.at( link == std::string( "et1" ) ? "in-bps" : "out-bps" ).get< double >() )
            << link;
      }
   }

   std::unique_ptr< AgentRig > rig;
   std::unique_ptr< Sender > sender;
   int rates = 0; ///< that were looked at
};

TEST_F( LinuxRates, linksThatAreMadeAgainHaveNoSpikesAndNoNegativeRates ) {
   for ( int i = 0; i < 4; ++i )
      goOn();
   EXPECT_GT( rates, 10 );
   const auto again = [this] {
      ip( "link del et1" );
      quietPair( "et1", "p1" );
      seen( "et1" );
      seen( "p1" );
   };
   // Its counters are below those of the link before, at another time of the period each time.
   for ( const double after : { 0.5, 2.0, 3.0, 4.75 } ) {
      SCOPED_TRACE( after );
      goOn( after, again );
      rates = 0;
      for ( int i = 0; i < 3; ++i )
         goOn();
      EXPECT_GT( rates, 10 ) << "the links are measured again";
   }
}

TEST_F( LinuxRates, linkThatIsRenamedHasNoSpikesAndNoNegativeRates ) {
   for ( int i = 0; i < 3; ++i )
      goOn();
   const auto rename = [this]( const char * from, const char * to ) {
      ip( Vel::text( "link set ", from, " down" ) );
      ip( Vel::text( "link set ", from, " name ", to ) );
      up( to );
      ip( Vel::text( "neighbour replace 192.0.2.2 lladdr 02:00:00:00:00:02 dev ", to ) );
      seen( to );
   };
   goOn( 1, [&] {
      rename( "et1", "later" );
      rename( "later", "et1" );
      seen( "p1" );
   } );
   rates = 0;
   for ( int i = 0; i < 3; ++i )
      goOn();
   EXPECT_GT( rates, 10 );
}

} // namespace
} // namespace DataPlane::Linux
