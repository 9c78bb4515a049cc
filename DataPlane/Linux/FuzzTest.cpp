// Messages that are cut, changed or made up are read or left, but do no harm. The sanitizers look on.

#include "DataPlane/Linux/Dump.h"
#include "DataPlane/Linux/Membership.h"
#include "DataPlane/Linux/MessagesTest.h"
#include "DataPlane/Linux/Neighbour.h"
#include "DataPlane/Linux/RouteMessage.h"
#include "DataPlane/Linux/SeenNeighbour.h"
#include "DataPlane/RecordingListenerTest.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace DataPlane::Linux {
namespace {

class Fuzz : public testing::Test {
 protected:
   Fuzz() {
      table.listenerIs( &membership );
      membership.listenerIs( &listener );
   }
   void TearDown() override { EXPECT_EQ( std::vector< Vel::String >{}, listener.broken ); }

   static std::vector< Bytes > seeds() {
      Route several;
      several.destination = several.source = anyAddress( AF_INET );
      several.family = AF_INET;
      several.others = { { RTA_METRICS, Vel::String( 24, '\1' ) } };
      several.legs.resize( 3 );
      for ( Leg & leg : several.legs ) {
         leg.device = "et1";
         leg.gateway = address( "2001:db8::1" );
      }
      LinkAddress one;
      one.address = address( "2001:db8::1" );
      one.peer = one.address;
      nlmsgerr error{};
      error.error = -EPERM;
      error.msg.nlmsg_len = 40;
      MessageBuilder answer( NLMSG_ERROR, NLM_F_ACK_TLVS );
      answer.header( error ).append( "payload of the request..", 24 );
      answer.attribute( NLMSGERR_ATTR_MSG, std::string_view( "why" ) );
      return {
         linkBytes( { .ifIndex = 3, .name = "v10", .kind = "vlan", .lower = 1, .vlanId = 10, .master = 2 } ),
         linkBytes( { .ifIndex = 1, .name = "br0", .kind = "bridge", .vlanFiltering = true } ),
         linkBytes( { .ifIndex = 4, .name = "et1", .master = 1, .slaveKind = "bridge" } ),
         linkBytes( { .ifIndex = 2, .name = "bond0", .kind = "bond" } ),
         linkBytes( { .ifIndex = 5, .name = "et2", .master = 2, .slaveKind = "bond" } ),
         vlanBytes( 4, { { 1, 1 }, { 10, 20 } } ),
         vlanBytes( 4, { { 12, 13 } }, RTM_DELVLAN ),
         vlanBytes( 1, { { 4090, 4094 } } ),
         linkBytes( { .ifIndex = 3, .name = "v10" }, RTM_DELLINK ),
         statsBytes( 3, 1, 2 ),
         addressRequest( one, 1 ),
         seenBytes( AF_INET6, 3, "\1\2\3\4\5\6" ),
         seenBytes( AF_BRIDGE, 4, "\1\2\3\4\5\6" ),
         routeRequest( several, RouteSet::ifAbsent, []( const Vel::String & ) { return Vel::U32( 1 ); } )
            .value(),
         answer.take() };
   }
   void readAll( const void * begin, std::size_t size ) {
      forEachMessage( begin, size, [&]( const nlmsghdr & message ) {
         if ( const auto event = parseLink( message ) ) {
            if ( event->removed ) {
               table.linkDel( event->link.ifIndex );
               vlans.linkDel( event->link.ifIndex );
            } else {
               table.linkIs( event->link );
            }
         }
         if ( const auto event = parseVlan( message ) )
            vlans.eventIs( *event );
         // Rarely enough for things to come together.
         if ( ++messages % 1024 == 0 ) {
            membership.settle();
            listener.story.clear();
         }
         parseStats( message );
         parseLostAddress( message, 1 );
         parseLostNeighbour( message );
         parseRoute( message, []( Vel::U32 ) { return Vel::String( "et1" ); } );
         parseRouteEntry( message );
         parseGateways( message );
         parseNextHop( message );
         parseNeighbour( message );
         parseAnswer( message );
         return true;
      } );
   }
   /// The bytes in memory of exactly that size, so that a read behind them is seen.
   void readExactly( const unsigned char * begin, std::size_t size ) {
      const std::unique_ptr< unsigned char[] > memory( new unsigned char[size] );
      std::memcpy( memory.get(), begin, size );
      readAll( memory.get(), size );
   }

   RecordingListener listener;
   LinkTable table;
   VlanTable vlans;
   Membership membership{ table, vlans };
   unsigned messages = 0;
};

TEST_F( Fuzz, messagesThatAreCutAnywhere ) {
   for ( const Bytes & seed : seeds() ) {
      const auto * bytes = reinterpret_cast< const unsigned char * >( seed.data() );
      for ( std::size_t size = 0; size <= seed.size() * 4; ++size ) {
         readExactly( bytes, size );
         // And with a length that says so.
         Bytes cut = seed;
         messageIn( cut ).nlmsg_len = static_cast< Vel::U32 >( size );
         readExactly( reinterpret_cast< const unsigned char * >( cut.data() ), size );
      }
   }
}

TEST_F( Fuzz, messagesInWhichBytesAreChanged ) {
   std::mt19937 dice( 17 );
   const std::vector< Bytes > all = seeds();
   for ( int i = 0; i < 100000; ++i ) {
      Bytes changed = all[dice() % all.size()];
      auto * const bytes = reinterpret_cast< unsigned char * >( changed.data() );
      for ( unsigned changes = dice() % 6 + 1; changes > 0; --changes )
         bytes[dice() % ( changed.size() * 4 )] = static_cast< unsigned char >( dice() );
      // Mostly the length stays right, else hardly any would be read further.
      if ( dice() % 8 != 0 )
         messageIn( changed ).nlmsg_len = static_cast< Vel::U32 >( changed.size() * 4 );
      readExactly( bytes, changed.size() * 4 );
   }
}

TEST_F( Fuzz, messagesMadeUp ) {
   std::mt19937 dice( 23 );
   const Vel::U16 types[] = { RTM_NEWLINK,  RTM_DELLINK, RTM_NEWSTATS, RTM_NEWADDR,
                              RTM_NEWROUTE, NLMSG_ERROR, RTM_NEWVLAN,  RTM_DELVLAN };
   for ( int i = 0; i < 100000; ++i ) {
      Bytes made( dice() % 64 + 4 );
      for ( Vel::U32 & word : made )
         // Small numbers look like lengths and attributes.
         word = dice() % 3 ? dice() % 64 << 16 | dice() % 48 : dice();
      messageIn( made ).nlmsg_len = static_cast< Vel::U32 >( made.size() * 4 );
      messageIn( made ).nlmsg_type = types[dice() % 8];
      readExactly( reinterpret_cast< const unsigned char * >( made.data() ), made.size() * 4 );
   }
}

TEST_F( Fuzz, nestsAsDeepAsTheMessageIsLong ) {
   ifinfomsg header{};
   header.ifi_index = 1;
   MessageBuilder message( RTM_NEWLINK, 0 );
   message.header( header ).attribute( IFLA_IFNAME, std::string_view( "et1" ) );
   std::function< void( int ) > nest = [&]( int depth ) {
      message.nested( IFLA_LINKINFO, [&] {
         if ( depth > 0 )
            nest( depth - 1 );
      } );
   };
   nest( 4000 );
   const Bytes bytes = message.take();
   readAll( bytes.data(), bytes.size() * 4 );
   EXPECT_TRUE( listener.link( "et1" ) );
}

} // namespace
} // namespace DataPlane::Linux
