// Counters on the real kernel, with traffic of known size.

#include "DataPlane/Linux/NamespaceTest.h"
#include "DataPlane/Linux/SenderTest.h"

namespace DataPlane::Linux {
namespace {

class LinuxTraffic : public InNamespace {
 protected:
   void SetUp() override {
      InNamespace::SetUp();
      if ( !IsSkipped() )
         connected();
   }
   /// A pair of links that nothing but our traffic crosses.
   void connected() {
      veth( "et1", "p1" );
      for ( const char * link : { "et1", "p1" } )
         std::ofstream( Vel::text( "/proc/sys/net/ipv6/conf/", link, "/disable_ipv6" ) ) << "1";
      ip( "address add 192.0.2.1/24 dev et1" );
      up( "et1" );
      up( "p1" );
      // Until then the kernel drops what is sent, carrier or not.
      until( [] { return ipSays( "link show et1" ).find( "state UP" ) != Vel::String::npos; } );
      neighbour();
   }
   static void neighbour() { ip( "neighbour replace 192.0.2.2 lladdr 02:00:00:00:00:02 dev et1" ); }
   /// Not every kernel renames a link that is up.
   static void rename( const Vel::String & from, const Vel::String & to ) {
      ip( "link set " + from + " down" );
      ip( "link set " + from + " name " + to );
      up( to );
   }
};

TEST_F( LinuxTraffic, octetsAreCountedInBothDirections ) {
   started();
   const auto sent = counter( "et1" );
   const auto received = counter( "p1" );
   Sender().send( 100 );
   EXPECT_EQ( sent.outOctets.value() + 100 * Sender::octetsPerPacket, counter( "et1" ).outOctets.value() );
   EXPECT_EQ( sent.inOctets, counter( "et1" ).inOctets );
   EXPECT_EQ( received.inOctets + 100 * Sender::octetsPerPacket, counter( "p1" ).inOctets );
}

TEST_F( LinuxTraffic, onlyEthernetPortsHaveCounters ) {
   ip( "link add br0 type bridge" );
   started();
   counter( "et1" );
   EXPECT_EQ( 2u, pool->intfCounterDirs() );
   EXPECT_TRUE( pool->intfCounterDir( eth( "p1" ) ) );
}

TEST_F( LinuxTraffic, portThatHasGoneHasNoCounters ) {
   started();
   counter( "et1" );
   ip( "link del et1" );
   until( [&] { return !listener.link( "et1" ); } );
   ASSERT_TRUE( made->countersRefresh( *pool ).ok() );
   EXPECT_EQ( 0u, pool->intfCounterDirs() );
}

TEST_F( LinuxTraffic, linkMadeAgainCountsOn ) {
   started();
   Sender().send( 100 );
   const auto before = counter( "et1" );
   ip( "link del et1" );
   until( [&] { return !listener.link( "et1" ); } );
   ASSERT_TRUE( made->countersRefresh( *pool ).ok() );
   connected();
   until( [&] { return listener.up( "et1" ); } );
   EXPECT_EQ( before, counter( "et1" ) );
   Sender().send( 50 );
   EXPECT_EQ( before.outOctets.value() + 50 * Sender::octetsPerPacket, counter( "et1" ).outOctets.value() );
}

TEST_F( LinuxTraffic, renamedLinkTakesNoneOfItsCountToAPortThatWasThereBefore ) {
   started();
   Sender().send( 100 );
   const auto before = counter( "et1" );
   rename( "et1", "et2" );
   until( [&] { return listener.link( "et2" ); } );
   const auto renamed = counter( "et2" );
   EXPECT_EQ( before, renamed );
   rename( "et2", "et1" );
   until( [&] { return listener.link( "et1" ); } );
   neighbour();
   EXPECT_EQ( before, counter( "et1" ) );
   Sender().send( 1 );
   EXPECT_EQ( before.outOctets.value() + Sender::octetsPerPacket, counter( "et1" ).outOctets.value() );
}

TEST_F( LinuxTraffic, linkThatIsSetDownKeepsItsCount ) {
   started();
   Sender().send( 100 );
   const auto before = counter( "et1" );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   EXPECT_EQ( before, counter( "et1" ) );
}

TEST_F( LinuxTraffic, constantRateIsSeenAsItIs ) {
   constexpr double rate = 8e6;
   constexpr double period = 2;
   struct Pacer {
      struct VelTick final : Cog::TimerReactor< Pacer > {
         using TimerReactor::TimerReactor;
         void onTime() override { sm()->tick(); }
      };
      /// As much as is due by now, however late the tick is.
      void tick() {
         const double now = loop->currentTime();
         const auto due = static_cast< Vel::U64 >( ( now - start ) * rate / 8 / Sender::octetsPerPacket );
         sender.send( due - sent );
         sent = due;
         timer->timeMinIs( now + 0.004 );
      }
      explicit Pacer( Cog::EventLoop * l ) : loop( l ), start( l->currentTime() ) {}

      Cog::EventLoop * loop;
      double start;
      Vel::U64 sent = 0;
      Sender sender;
      Cog::TimerWatch< VelTick > timer;
   };
   started();
   Pacer pacer( loop.get() );
   pacer.timer.is( wheel, &pacer ).hasNotificationActiveIs( true );
   pacer.timer->timeMinIs( pacer.start );

   struct Sample {
      double time;
      Vel::U64 octets;
   };
   std::vector< Sample > samples;
   until(
      [&] {
         const double now = loop->currentTime();
         if ( now > pacer.start + 0.1 && ( samples.empty() || now >= samples.back().time + period ) )
            samples.push_back( { now, counter( "p1" ).inOctets } );
         return samples.size() == 2;
      },
      30 );
   ASSERT_EQ( 2u, samples.size() );
   const double seen = static_cast< double >( samples[1].octets - samples[0].octets ) * 8 /
                       ( samples[1].time - samples[0].time );
   EXPECT_NEAR( rate, seen, rate * 0.01 );
}

} // namespace
} // namespace DataPlane::Linux
