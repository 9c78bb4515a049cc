// How the real kernel tells of links: names and namespaces that change, bursts, interrupted dumps, lost news.

#include "DataPlane/Linux/LinuxSwitch.h"
#include "DataPlane/Linux/NamespaceTest.h"
#include "DataPlane/Linux/WatchedKernelRig.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iostream>

#include <linux/rtnetlink.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace DataPlane::Linux {
namespace {

/// A namespace beside the test's own; as long as this object lives, and no longer, however the test ends.
class OtherNamespace {
 public:
   OtherNamespace() {
      int ready[2];
      if ( pipe( ready ) != 0 || ( process_ = fork() ) < 0 )
         return;
      if ( process_ == 0 ) {
         const bool made = prctl( PR_SET_PDEATHSIG, SIGKILL ) == 0 && unshare( CLONE_NEWNET ) == 0;
         if ( !made || write( ready[1], "", 1 ) != 1 )
            _exit( 1 );
         while ( true )
            pause();
      }
      close( ready[1] );
      char word;
      there = read( ready[0], &word, 1 ) == 1;
      close( ready[0] );
   }
   ~OtherNamespace() {
      if ( process_ <= 0 )
         return;
      kill( process_, SIGKILL );
      waitpid( process_, nullptr, 0 );
   }
   OtherNamespace( const OtherNamespace & ) = delete;
   OtherNamespace & operator=( const OtherNamespace & ) = delete;

   bool there = false;
   pid_t process() const { return process_; }

 private:
   pid_t process_ = -1;
};

class LinuxNews : public InNamespace {
 protected:
   void SetUp() override {
      InNamespace::SetUp();
      if ( IsSkipped() )
         return;
      auto owned = std::make_unique< WatchedKernel >();
      kernel = owned.get();
      made = Vel::make< Linux::LinuxSwitch >( loop, std::move( owned ) );
   }
   /// Pairs et0 and p0, et1 and p1, ...; they are up.
   void pairs( int count ) {
      // So that nothing but what a test does is news.
      std::ofstream( "/proc/sys/net/ipv6/conf/default/disable_ipv6" ) << "1";
      Vel::String lines;
      for ( int i = 0; i < count; ++i )
         lines += Vel::text(
            "link add et", i, " type veth peer name p", i, "\nlink set et", i, " up\nlink set p", i,
            " up\n" );
      burst( lines );
   }
   static Vel::String setAll( const char * prefix, int count, const char * state ) {
      Vel::String lines;
      for ( int i = 0; i < count; ++i )
         lines += Vel::text( "link set ", prefix, i, " ", state, "\n" );
      return lines;
   }
   /// What the kernel keeps of news, in bytes, for the next channel only: it goes on telling of carriers for a second
   /// after a burst.
   void bufferIs( int size ) {
      kernel->eventsOpened = [this, size]( const Channel & channel ) {
         EXPECT_EQ( 0, setsockopt( channel.descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size ) );
         kernel->eventsOpened = nullptr;
      };
   }
   void turn() {
      loop->post( [this] { loop->stop(); } );
      loop->run();
   }
   /// What a switch that begins now is told.
   RecordingListener freshly() {
      RecordingListener fresh;
      const auto other = Vel::make< Linux::LinuxSwitch >( loop, kernelNew() );
      const Outcome outcome = other->start( fresh );
      EXPECT_TRUE( outcome.ok() ) << outcome.text();
      return fresh;
   }
   std::ptrdiff_t times( const Vel::String & line ) const {
      return std::count( listener.story.begin(), listener.story.end(), line );
   }
   /// The lines about the link itself, apart from what it is a member of.
   Vel::String linesOf( const Vel::String & link ) const {
      Vel::String result;
      for ( const Vel::String & line : listener.story )
         if ( line.rfind( link + " ", 0 ) == 0 || line == "-" + link )
            result += ( result.empty() ? "" : ", " ) + line;
      return result;
   }

   WatchedKernel * kernel = nullptr;
};

TEST_F( LinuxNews, enslavingALinkTellsNothingOfTheLinkItself ) {
   veth( "et1", "p1" );
   up( "et1" );
   up( "p1" );
   ip( "link add br0 type bridge" );
   started();
   untilUp( "et1" );
   listener.take();
   ip( "link set et1 master br0" );
   ip( "link set et1 nomaster" );
   ip( "link set et1 master br0" );
   // The bridge says in its own family that the link is "removed" from it. All of that comes before this.
   veth( "last", "p9" );
   until( [&] { return listener.link( "last" ) != nullptr; } );
   EXPECT_EQ( "", linesOf( "et1" ) );
   EXPECT_TRUE( listener.up( "et1" ) );
   EXPECT_EQ( freshly().links, listener.links );
   EXPECT_EQ( freshly().vlanMembers, listener.vlanMembers );
}

TEST_F( LinuxNews, namesThatAreExchangedAreOtherLinks ) {
   veth( "et1", "p1" );
   veth( "et2", "p2" );
   up( "p2" );
   started();
   const Vel::U32 first = listener.link( "et1" )->ifIndex, second = listener.link( "et2" )->ifIndex;
   burst( "link set et1 name tmp\nlink set et2 name et1\nlink set tmp name et2\n" );
   until( [&] { return listener.link( "et2" ) && listener.link( "et2" )->ifIndex == first; } );
   EXPECT_EQ( second, listener.link( "et1" )->ifIndex );
   EXPECT_FALSE( listener.link( "tmp" ) );
   EXPECT_EQ( freshly().links, listener.links );
}

TEST_F( LinuxNews, linkThatMovesToAnotherNamespaceIsGoneUntilItComesBack ) {
   const OtherNamespace other;
   ASSERT_TRUE( other.there );
   veth( "et1", "p1" );
   up( "p1" );
   started();
   const auto before = counter( "et1" );
   ip( Vel::text( "link set et1 netns ", other.process() ) );
   until( [&] { return !listener.link( "et1" ); } );
   EXPECT_EQ( "-et1", linesOf( "et1" ) );
   ASSERT_TRUE( made->countersRefresh( *pool ).ok() );
   EXPECT_FALSE( pool->intfCounterDir( eth( "et1" ) ) );
   EXPECT_EQ( "there is no link \"et1\"", set( "et1", false ).link.text() );
   listener.take();
   EXPECT_EQ(
      0, std::system(
            Vel::text( "nsenter --net=/proc/", other.process(), "/ns/net ip link set et1 netns ", getpid() )
               .c_str() ) );
   until( [&] { return listener.link( "et1" ) != nullptr; } );
   EXPECT_EQ( "et1 admin-down", linesOf( "et1" ) );
   EXPECT_GE( counter( "et1" ).inOctets, before.inOctets );
   EXPECT_TRUE( set( "et1", true ).link.ok() );
   untilUp( "et1" );
}

TEST_F( LinuxNews, linksThatAreMadeAgainAndAgainAreToldOneAfterTheOther ) {
   veth( "et1", "p1" );
   started();
   Vel::String lines;
   for ( int i = 0; i < 20; ++i )
      lines += "link del et1\nlink add et1 type veth peer name p1\n";
   burst( lines + "link set et1 up\n" );
   until( [&] { return listener.link( "et1" ) && listener.link( "et1" )->adminUp; } );
   EXPECT_EQ( 20, times( "-et1" ) );
   EXPECT_EQ( freshly().links, listener.links );
}

TEST_F( LinuxNews, interruptedDumpIsRepeatedUntilItIsWhole ) {
   // More than fits into one datagram, so that something can happen between two.
   pairs( 100 );
   int left = 2;
   kernel->received = [&]( Vel::U16 ) {
      if ( left-- > 0 )
         veth( Vel::text( "late", left ), Vel::text( "other", left ) );
   };
   started();
   EXPECT_GE( kernel->asked[RTM_GETLINK], 2 );
   EXPECT_TRUE( listener.link( "late0" ) && listener.link( "late1" ) );
   EXPECT_EQ( 205u, listener.links.size() );
   kernel->received = nullptr;
   turn();
   EXPECT_EQ( freshly().links, listener.links );
}

TEST_F( LinuxNews, overrunOfFiveHundredFlappingLinksIsMadeUpForInTwoTurns ) {
   constexpr int count = 250;
   pairs( count );
   bufferIs( 65536 );
   started();
   burst(
      setAll( "p", count, "down" ) + setAll( "et", count, "down" ) + setAll( "et", count, "up" ) +
      setAll( "p", count / 2, "up" ) +
      "link set et7 down\nlink set et7 name x7\nlink del et8\nlink add y8 type veth peer name z8\n" );
   turn();
   EXPECT_EQ( 1, times( "resynchronised" ) );
   turn();
   EXPECT_EQ( freshly().links, listener.links );
   EXPECT_FALSE( listener.health.degraded );
   // And so it stays.
   ip( "link set z8 up" );
   until( [&] { return listener.link( "z8" ) && listener.link( "z8" )->adminUp; } );
   EXPECT_EQ( freshly().links, listener.links );
   EXPECT_EQ( 1, times( "resynchronised" ) );
}

TEST_F( LinuxNews, oldNewsThatAreLeftAfterAnOverrunUndoNothing ) {
   veth( "et1", "p1" );
   up( "et1" );
   // Room for more news than a turn takes. Each takes more than a kilobyte.
   bufferIs( 2 * 1024 * 1024 );
   started();
   Vel::String lines;
   for ( int i = 0; i < 1000; ++i )
      lines += "link set p1 up\nlink set p1 down\n";
   burst( lines + "link set p1 up\nlink add et7 type veth peer name p7\nlink del p7\n" );
   turn();
   EXPECT_EQ( 1, times( "resynchronised" ) ) << "the burst was not lost";
   EXPECT_TRUE( listener.up( "et1" ) );
   listener.take();
   ip( "link add last type veth peer name p9" );
   until( [&] { return listener.link( "last" ) != nullptr; } );
   EXPECT_EQ( "", linesOf( "et1" ) );
   EXPECT_FALSE( listener.link( "et7" ) );
   EXPECT_EQ( freshly().links, listener.links );
   EXPECT_FALSE( listener.health.degraded );
}

TEST_F( LinuxNews, carriersOfHundredsOfLinksAreToldOnceEach ) {
   constexpr int count = 250;
   pairs( count );
   started();
   const auto all = [&]( bool isUp ) {
      return until(
         [&] {
            for ( int i = 0; i < count; ++i )
               if ( listener.up( Vel::text( "et", i ) ) != isUp )
                  return false;
            return true;
         },
         60 );
   };
   all( true );
   listener.take();
   for ( const bool isUp : { false, true } ) {
      burst( setAll( "p", count, isUp ? "up" : "down" ) );
      all( isUp );
      for ( int i = 0; i < count; ++i )
         EXPECT_EQ( 1, times( Vel::text( "et", i, isUp ? " up" : " down" ) ) ) << i;
      listener.take();
   }
   EXPECT_EQ( 0, times( "resynchronised" ) );
}

TEST_F( LinuxNews, shortFlapsEndWhereTheLinkDoes ) {
   pairs( 1 );
   started();
   untilUp( "et0" );
   Vel::String lines;
   for ( int i = 0; i < 100; ++i )
      lines += "link set p0 down\nlink set p0 up\n";
   burst( lines + "link add last type veth peer name p9\n" );
   until( [&] { return listener.link( "last" ) && listener.up( "et0" ); } );
   burst( lines + "link set p0 down\nlink set last up\n" );
   until( [&] { return listener.link( "last" )->adminUp && !listener.up( "et0" ); } );
   EXPECT_EQ( freshly().links, listener.links );
}

TEST_F( LinuxNews, unknownOperationalStateWithACarrierIsUp ) {
   started();
   std::vector< Vel::String > names = { "lo" };
   up( "lo" );
   if ( tryIp( "link add d0 type dummy" ) ) {
      up( "d0" );
      names.push_back( "d0" );
   } else
      std::cout << "this kernel has no links of type dummy; not tested\n";
   for ( const Vel::String & name : names ) {
      untilUp( name );
      EXPECT_NE( Vel::String::npos, ipSays( "link show " + name ).find( "state UNKNOWN" ) ) << name;
   }
}

// ---- setting links

TEST_F( LinuxNews, portChannelIsSetAtItsMasterAndVlanInterfaceAtItsDevice ) {
   struct Row {
      const char * what;
      std::vector< Vel::String > commands;
      Wire::IntfId intf;
      std::vector< Vel::String > others; ///< which are left as they are
   };
   veth( "et1", "p1" );
   veth( "et2", "p2" );
   up( "p1" );
   up( "p2" );
   const Row rows[] = {
      { "bond",
        { "link add bond0 type bond", "link set et1 master bond0", "link set bond0 up" },
        Wire::PortChannelIntfId( "bond0" ),
        { "et1" } },
      { "vlan",
        { "link add br0 type bridge vlan_filtering 1", "link set et2 master br0", "link set et2 up",
          "link set br0 up", "link add link br0 name v10 type vlan id 10", "link set v10 up" },
        Wire::VlanIntfId( "v10", 10 ),
        { "br0", "et2" } } };
   started();
   RequestId id = 1000;
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.what );
      if ( !std::all_of( row.commands.begin(), row.commands.end(), tryIp ) ) {
         std::cout << "this kernel has no links of type " << row.what << "; not tested\n";
         continue;
      }
      const Vel::String name( row.intf.name() );
      until( [&] { return listener.link( name ) && listener.link( name )->adminUp; } );
      for ( const bool isUp : { false, true } ) {
         made->linkSet( ++id, row.intf, isUp, {} );
         until( [&] { return listener.results.count( id ) > 0; } );
         EXPECT_TRUE( listener.results[id].link.ok() ) << listener.results[id].link.text();
         EXPECT_EQ( isUp, listener.link( name )->adminUp );
         for ( const Vel::String & other : row.others )
            EXPECT_TRUE( freshly().link( other )->adminUp ) << other;
      }
   }
}

} // namespace
} // namespace DataPlane::Linux
