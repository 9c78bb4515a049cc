// Whatever happens to links, and however it is heard of: what has been told is what a switch tells that is started now.

#include "DataPlane/Linux/LinuxFaultTest.h"

#include <random>

namespace DataPlane::Linux {
namespace {

/// Does to a kernel what commands would do, and lets it tell of it in the order of the real one.
class Commands {
 public:
   Commands( FakeKernel & kernel, unsigned seed ) : kernel_( kernel ), dice_( seed ) {
      kernel_.links.clear();
   }

   /// Whether the kernel's news reach the switch.
   bool heard = true;
   unsigned roll( unsigned sides ) { return dice_() % sides; }

   /// One command; most of those that make no sense do nothing.
   void one() {
      const Vel::U32 index = 1 + roll( size );
      const auto at = links().find( index );
      if ( at == links().end() )
         return make( index );
      switch ( roll( 12 ) ) {
      case 0:
         return remove( index );
      case 1:
      case 2:
      case 3:
         return join( index, 1 + roll( size ) );
      case 4:
         return leave( index );
      case 5:
         return rename( index );
      case 6:
         at->second.flags = roll( 2 ) ? upAndRunning : roll( 2 ) ? IFF_UP : 0;
         return tell( index );
      case 7:
         return filter( index );
      default:
         return vlans( index );
      }
   }

 private:
   static constexpr Vel::U32 size = 12;
   using Ids = std::set< Vel::U16 >;

   std::map< Vel::U32, TestLink > & links() { return kernel_.links; }
   bool isBridge( Vel::U32 index ) { return links().at( index ).kind == "bridge"; }
   void send( Bytes event ) {
      if ( heard )
         kernel_.events->push( std::move( event ) );
   }
   void tell( Vel::U32 index ) { send( linkBytes( links().at( index ) ) ); }

   /// Its number makes its kind more likely than not, so that most links meet others of use to them.
   void make( Vel::U32 index ) {
      static const char * const kinds[] = { "", "", "veth", "bond", "team", "bridge", "bridge", "vlan" };
      TestLink link{ .ifIndex = index, .name = Vel::text( "l", index ) };
      link.kind = kinds[roll( 8 )];
      link.vlanFiltering = roll( 2 );
      if ( link.kind == "vlan" ) {
         link.lower = 1 + roll( size );
         if ( !links().count( link.lower ) || links().at( link.lower ).kind == "vlan" )
            return;
         link.vlanId = static_cast< Vel::U16 >( index % 4 + 1 );
         // Which of two interfaces of one id is refused depends on which came first.
         for ( const auto & [other, one] : links() )
            if ( one.vlanId == link.vlanId )
               return;
         if ( roll( 8 ) == 0 )
            link.vlanProtocol = ETH_P_8021AD;
      }
      if ( std::any_of( links().begin(), links().end(), [&]( const auto & one ) {
              return one.second.name == link.name;
           } ) )
         return;
      links()[index] = link;
      if ( link.kind == "bridge" )
         add( index, 1, 1 );
      tell( index );
   }

   void remove( Vel::U32 index ) {
      for ( const auto & [other, link] : std::map( links() ) ) {
         if ( link.lower == index && links().count( other ) )
            remove( other );
         else if ( link.master == index && links().count( other ) )
            leave( other );
      }
      leave( index );
      forget( index );
      send( linkBytes( links().at( index ), RTM_DELLINK ) );
      links().erase( index );
   }

   void join( Vel::U32 index, Vel::U32 master ) {
      if ( index == master || !links().count( master ) )
         return;
      TestLink & link = links().at( index );
      const Vel::String & kind = links().at( master ).kind;
      const bool isMaster = kind == "bond" || kind == "team" || kind == "bridge";
      if ( !isMaster || isBridge( index ) || uses( index, master ) )
         return;
      leave( index );
      link.master = master;
      link.slaveKind = kind;
      tell( index );
      send( linkBytes( link, RTM_NEWLINK, AF_BRIDGE ) );
      tell( index );
      if ( kind == "bridge" )
         add( index, 1, 1 );
   }
   /// Whether one link stands on another, through masters and VLAN devices.
   bool uses( Vel::U32 upper, Vel::U32 lower ) {
      if ( upper == lower )
         return true;
      for ( const auto & [index, link] : links() )
         if (
            ( link.master == upper && uses( index, lower ) ) ||
            ( index == upper && link.lower != 0 && uses( link.lower, lower ) ) )
            return true;
      return false;
   }

   void leave( Vel::U32 index ) {
      TestLink & link = links().at( index );
      if ( link.master == 0 )
         return;
      const TestLink before = link;
      link.master = 0;
      link.slaveKind.clear();
      if ( before.slaveKind == "bridge" ) {
         send( linkBytes( before, RTM_DELLINK, AF_BRIDGE ) );
         forget( index );
      }
      tell( index );
   }

   void rename( Vel::U32 index ) {
      const Vel::String name = Vel::text( roll( 2 ) ? "l" : "m", roll( size ) );
      for ( const auto & [other, link] : links() )
         if ( link.name == name )
            return;
      links().at( index ).name = name;
      tell( index );
   }

   void filter( Vel::U32 index ) {
      if ( !isBridge( index ) )
         return;
      links().at( index ).vlanFiltering ^= true;
      tell( index );
   }

   void vlans( Vel::U32 index ) {
      const bool port = links().at( index ).slaveKind == "bridge";
      if ( !port && !isBridge( index ) )
         return;
      const auto first = static_cast< Vel::U16 >( 1 + roll( 5 ) );
      const auto last = static_cast< Vel::U16 >( first + roll( 3 ) );
      if ( roll( 5 ) < 3 )
         add( index, first, last );
      else
         del( index, first, last );
   }
   void add( Vel::U32 index, Vel::U16 first, Vel::U16 last ) {
      for ( Vel::U16 id = first; id <= last; ++id )
         ids_[index].insert( id );
      changed( index );
      send( vlanBytes( index, { { first, last } } ) );
   }
   void del( Vel::U32 index, Vel::U16 first, Vel::U16 last ) {
      for ( Vel::U16 id = first; id <= last; ++id )
         ids_[index].erase( id );
      changed( index );
      send( vlanBytes( index, { { first, last } }, RTM_DELVLAN ) );
   }
   void forget( Vel::U32 index ) {
      if ( ids_.count( index ) )
         del( index, 1, 20 );
   }
   void changed( Vel::U32 index ) {
      std::vector< TestVlans > & dumped = kernel_.vlans[index];
      dumped.clear();
      for ( const Vel::U16 id : ids_[index] )
         dumped.push_back( { id, id } );
      if ( dumped.empty() ) {
         kernel_.vlans.erase( index );
         ids_.erase( index );
      }
   }

   FakeKernel & kernel_;
   std::mt19937 dice_;
   std::map< Vel::U32, Ids > ids_;
};

class LinuxRandom : public LinuxFault {
 protected:
   /// What a switch tells that is started on the same kernel.
   void compare() {
      auto owned = std::make_unique< FakeKernel >();
      owned->links = kernel->links;
      owned->vlans = kernel->vlans;
      RecordingListener fresh;
      const auto other = Vel::make< LinuxSwitch >( loop, std::move( owned ) );
      ASSERT_TRUE( other->start( fresh ).ok() );
      ASSERT_EQ( fresh.links, listener.links );
      ASSERT_EQ( fresh.portChannels, listener.portChannels );
      ASSERT_EQ( fresh.vlanMembers, listener.vlanMembers );
      ASSERT_EQ( fresh.health.text, listener.health.text );
      portChannelMembers += fresh.portChannels.size();
      vlanMembers += fresh.vlanMembers.size();
      uncounted += !fresh.health.text.empty();
   }

   std::size_t portChannelMembers = 0, vlanMembers = 0, uncounted = 0;
};

TEST_F( LinuxRandom, whatHasBeenToldIsWhatAStartWouldTell ) {
   for ( unsigned seed = 1; seed <= 6; ++seed ) {
      made->stop();
      listener = {};
      kernel->vlans.clear();
      Commands commands( *kernel, seed );
      started();
      for ( int step = 0; step < 300; ++step ) {
         SCOPED_TRACE( Vel::text( "seed ", seed, " step ", step ) );
         commands.heard = commands.roll( 12 ) != 0;
         for ( unsigned count = commands.roll( 6 ); count > 0; --count )
            commands.one();
         if ( !commands.heard ) {
            // So that it is made up for at once.
            runFor( LinuxSwitch::recoveryPeriod );
            kernel->events->push( Channel::Got::lost );
         }
         turn();
         ASSERT_EQ( std::vector< Vel::String >{}, listener.broken );
         ASSERT_NO_FATAL_FAILURE( compare() );
      }
   }
   // It has been about something.
   EXPECT_GT( portChannelMembers, 500u );
   EXPECT_GT( vlanMembers, 500u );
   EXPECT_GT( uncounted, 300u );
}

} // namespace
} // namespace DataPlane::Linux
