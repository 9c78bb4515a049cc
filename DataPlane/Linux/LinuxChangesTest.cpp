// Minutes of changes at random on a real kernel: what has been told by then is what a switch tells that is started now.

#include "DataPlane/Linux/NamespaceTest.h"

#include <fstream>
#include <random>

namespace DataPlane::Linux {
namespace {

/// Commands that change links and who is a member of what, most of which make sense.
class Commands {
 public:
   Commands() : bridgePath_( path( "bridge" ) ), ipPath_( path( "ip" ) ) {}
   ~Commands() {
      std::remove( bridgePath_.c_str() );
      std::remove( ipPath_.c_str() );
   }
   Commands( const Commands & ) = delete;
   Commands & operator=( const Commands & ) = delete;

   void play( unsigned seed ) {
      dice_.seed( seed );
      std::ofstream ip( ipPath_ );
      std::ofstream bridge( bridgePath_ );
      for ( unsigned count = 1 + roll( 12 ); count > 0; --count )
         ( roll( 3 ) ? ip << ipCommand() : bridge << bridgeCommand() ) << '\n';
      ip.close();
      bridge.close();
      // Those that the kernel refuses are as good as any: nothing may be told of them.
      for ( const Vel::String & command :
            { "ip -force -batch " + ipPath_, "bridge -force -batch " + bridgePath_ } )
         [[maybe_unused]] const int ignored = std::system( ( command + " >/dev/null 2>&1" ).c_str() );
   }

 private:
   static Vel::String path( const char * what ) {
      const char * const folder = std::getenv( "TMPDIR" );
      return Vel::text( folder ? folder : "/tmp", "/changes-", getpid(), "-", what );
   }
   unsigned roll( unsigned sides ) { return dice_() % sides; }
   Vel::String port() { return Vel::text( "p", roll( 6 ) ); }
   Vel::String bond() { return Vel::text( "bond", 1 + roll( 2 ) ); }
   Vel::String bridge() { return Vel::text( "br", roll( 2 ) ); }
   Vel::String member() { return roll( 3 ) ? port() : roll( 4 ) ? bond() : "team1"; }
   Vel::String any() { return roll( 3 ) ? member() : bridge(); }

   Vel::String ipCommand() {
      const unsigned id = 2 + roll( 4 );
      switch ( roll( 16 ) ) {
      case 0:
         return "link add " + port() + " type dummy";
      case 1:
         return "link add " + bond() + " type bond mode balance-xor miimon 100";
      case 2:
         return "link add team1 type team";
      case 3:
         return "link add " + bridge() + " type bridge vlan_filtering " + ( roll( 4 ) ? "1" : "0" );
      case 4: {
         // One id has one device, so that nobody is refused for another's sake.
         return Vel::text( "link add link br", id % 2, " name vlan", id, " type vlan id ", id );
      }
      case 5:
         return "link del " + ( roll( 4 ) ? any() : Vel::text( "vlan", id ) );
      case 6: {
         // A port joins a bond while it is down only.
         const Vel::String joins = port();
         return "link set " + joins + " down\nlink set " + joins + " master " + bond();
      }
      case 7: {
         const Vel::String joins = port();
         return "link set " + joins + " down\nlink set " + joins + " master team1";
      }
      case 8:
      case 9:
         return "link set " + member() + " master " + bridge();
      case 10:
         return "link set " + member() + " nomaster";
      case 11:
      case 12: {
         // The kernel says nothing of it while the bridge is down.
         const Vel::String changed = bridge();
         return "link set " + changed + " up\nlink set " + changed + " type bridge " +
                ( roll( 2 ) ? "vlan_filtering " : "vlan_default_pvid " ) + ( roll( 3 ) ? "1" : "0" );
      }
      case 13: {
         const Vel::String renamed = port();
         return "link set " + renamed + " down\nlink set " + renamed + " name " + port();
      }
      default:
         return "link set " + any() + ( roll( 3 ) ? " up" : " down" );
      }
   }
   Vel::String bridgeCommand() {
      const bool own = roll( 3 ) == 0;
      const unsigned first = 1 + roll( 6 );
      const Vel::String device = own ? bridge() : member();
      return Vel::text(
         "vlan ", roll( 5 ) < 3 ? "add" : "del", " dev ", device, " vid ", first,
         roll( 2 ) ? Vel::text( "-", first + 1 + roll( 3 ) ) : Vel::String(), own ? " self" : "" );
   }

   Vel::String bridgePath_, ipPath_;
   std::mt19937 dice_;
};

class LinuxChanges : public InNamespace {
 protected:
   bool isWhatAStartTells() {
      RecordingListener fresh;
      const Vel::Ptr< Switch > other = switchNewLinux( loop );
      const Outcome outcome = other->start( fresh );
      EXPECT_TRUE( outcome.ok() ) << outcome.text();
      EXPECT_EQ( std::vector< Vel::String >{}, fresh.broken );
      last = { fresh.links, fresh.portChannels, fresh.vlanMembers };
      return fresh.links == listener.links && fresh.portChannels == listener.portChannels &&
             fresh.vlanMembers == listener.vlanMembers && fresh.health == listener.health;
   }

   struct State {
      std::map< Vel::String, Link > links;
      std::map< Vel::String, Vel::String > portChannels;
      std::set< RecordingListener::VlanMember > vlanMembers;
   } last; ///< what a start told
};

TEST_F( LinuxChanges, areToldAsAStartTellsThem ) {
   started();
   Commands commands;
   std::size_t portChannels = 0, vlans = 0, uncounted = 0;
   for ( unsigned round = 0; round < 300; ++round ) {
      SCOPED_TRACE( Vel::text( "round ", round ) );
      commands.play( round );
      if ( !until( [&] { return isWhatAStartTells(); } ) ) {
         EXPECT_EQ( last.portChannels, listener.portChannels );
         EXPECT_EQ( last.vlanMembers, listener.vlanMembers );
         EXPECT_EQ( last.links.size(), listener.links.size() );
         FAIL() << "told: " << listener.take();
      }
      ASSERT_EQ( std::vector< Vel::String >{}, listener.broken );
      listener.take();
      portChannels += listener.portChannels.size();
      vlans += listener.vlanMembers.size();
      uncounted += !listener.health.text.empty();
   }
   // It has been about something.
   EXPECT_GT( portChannels, 100u );
   EXPECT_GT( vlans, 1000u );
   EXPECT_GT( uncounted, 0u );
}

} // namespace
} // namespace DataPlane::Linux
