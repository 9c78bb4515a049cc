#pragma once

#include "DataPlane/Linux/InboxRig.h"
#include "DataPlane/Linux/MessagesTest.h"
#include "DataPlane/Linux/SeenNeighbour.h"

#include <algorithm>
#include <map>
#include <set>

#include <linux/neighbour.h>

/// Purpose: a kernel for tests, which answers as the real one does, and fails as it may.
namespace DataPlane::Linux {

class FakeKernel final : public Kernel {
 public:
   static constexpr Vel::U32 port = InboxChannel::ownPort;

   std::map< Vel::U32, TestLink > links;
   std::map< Vel::U32, StatsMessage > stats;
   std::map< Vel::U32, std::vector< TestVlans > > vlans; ///< of ports and bridges
   std::vector< Bytes > addresses;                       ///< dumped
   std::vector< Bytes > neighbours;                      ///< dumped, and found one by one
   std::vector< Bytes > routes;                          ///< dumped
   std::vector< Bytes > rules;                           ///< dumped
   std::vector< Bytes > nextHops;                        ///< dumped
   std::map< Vel::String, Bytes > ways; ///< what is found, by "ADDRESS" or "ADDRESS from SOURCE"
   std::map< Vel::String, int >
      refusals; ///< the code for who asks for the way to an address of which there is none
   std::map< Vel::String, Bytes >
      seen; ///< by "ADDRESS on IFINDEX", or "HARDWARE-ADDRESS VLAN on IFINDEX" of a bridge
   std::map< Vel::String, double > speeds; ///< bits per second, by the name of the link
   std::vector< Bytes > asked;             ///< everything to be acknowledged, in order
   /// The code of the answer to a request; 0 unless set.
   std::function< int( const nlmsghdr & ) > code;
   /// The code with which a dump is refused; 0 unless set.
   std::function< int( const nlmsghdr & ) > refused;
   /// Dumps that are marked as interrupted, and such that fail, from the next one on.
   int interruptedDumps = 0;
   int failingDumps = 0;
   bool opens = true;
   bool sends = true;
   bool answers = true;
   bool setsLinks = true; ///< or only says so
   bool permits = true;   ///< links, addresses and the like to be set
   int noLink = ENODEV;   ///< the code for who may set links and sets one that there is not
   int opened = 0;
   std::map< Vel::U16, int > dumps; ///< that were asked for, by type of message
   /// Whether a dump of VLANs leaves out those of a link, without a mark; none unless set.
   std::function< bool( Vel::U32 ifIndex ) > hidden;
   /// Called when a channel for events has been opened.
   std::function< void() > eventsOpened;
   /// Called when routes of a version of IP have been dumped and nobody has read them yet.
   std::function< void( Vel::U8 family ) > routesDumped;
   bool tellsRouteNews = true; ///< or cannot be listened to
   std::shared_ptr< Inbox > events, requests, routeNews;

   Opened open( bool toldOfLinks ) override {
      if ( !opens )
         return { Outcome::failed( "cannot open a netlink socket: Too many open files" ), nullptr };
      ++opened;
      const auto inbox = std::make_shared< Inbox >();
      if ( toldOfLinks )
         events = inbox;
      if ( toldOfLinks && eventsOpened )
         eventsOpened();
      return { {}, std::make_unique< InboxChannel >( inbox, [this, inbox]( const Bytes & message ) {
                  return sent( message, inbox );
               } ) };
   }
   Opened openRouteNews( Vel::U8 ) override {
      if ( !opens || !tellsRouteNews )
         return { Outcome::failed( "cannot open a netlink socket: Too many open files" ), nullptr };
      routeNews = std::make_shared< Inbox >();
      return { {}, std::make_unique< InboxChannel >( routeNews ) };
   }
   std::optional< double > speed( const Vel::String & link ) override {
      const auto at = speeds.find( link );
      return at == speeds.end() ? std::nullopt : std::optional( at->second );
   }
   LinkSnapshot bootId() override { return { {}, "boot 1" }; }

   void add( const TestLink & link ) {
      links[link.ifIndex] = link;
      if ( events )
         events->push( linkBytes( link ) );
   }
   void remove( Vel::U32 ifIndex ) {
      if ( events )
         events->push( linkBytes( links.at( ifIndex ), RTM_DELLINK ) );
      links.erase( ifIndex );
   }

 private:
   Outcome sent( const Bytes & message, const std::shared_ptr< Inbox > & inbox ) {
      if ( !sends )
         return Outcome::failed( "No buffer space available" );
      take( message, inbox );
      return {};
   }
   void take( const Bytes & message, const std::shared_ptr< Inbox > & inbox ) {
      const nlmsghdr & header = messageIn( message );
      if ( header.nlmsg_type == RTM_GETLINK && !( header.nlmsg_flags & NLM_F_DUMP ) )
         lookUp( header, *inbox );
      else if ( header.nlmsg_type == RTM_GETROUTE && !( header.nlmsg_flags & NLM_F_DUMP ) )
         lookUpRoute( header, *inbox );
      else if ( header.nlmsg_type == RTM_GETNEIGH && !( header.nlmsg_flags & NLM_F_DUMP ) )
         lookUpNeighbour( header, *inbox );
      else if ( header.nlmsg_type == RTM_NEWLINK && fixedHeader< ifinfomsg >( header )->ifi_index == 0 )
         refuse( header, *inbox );
      else if ( header.nlmsg_flags & NLM_F_ACK )
         acknowledge( message, inbox );
      else if ( answers )
         dump( header, *inbox );
   }

   void refuse( const nlmsghdr & request, Inbox & inbox ) const {
      if ( answers )
         inbox.push( answerFrom( request, answerBytes( request.nlmsg_seq, permits ? noLink : EPERM ), 0 ) );
   }
   void acknowledge( const Bytes & message, const std::shared_ptr< Inbox > & inbox ) {
      const nlmsghdr & header = messageIn( message );
      requests = inbox;
      asked.push_back( message );
      const int result = !permits ? EPERM : code ? code( header ) : 0;
      if ( result == 0 && header.nlmsg_type == RTM_NEWLINK && setsLinks )
         setLink(
            static_cast< Vel::U32 >( fixedHeader< ifinfomsg >( header )->ifi_index ),
            fixedHeader< ifinfomsg >( header )->ifi_flags & IFF_UP );
      if ( answers )
         inbox->push( answerBytes( header.nlmsg_seq, result ) );
   }
   /// VLAN devices go along, unless they are bound loosely.
   void setLink( Vel::U32 ifIndex, bool up ) {
      TestLink link = links.at( ifIndex );
      link.flags = up ? upAndRunning : 0;
      add( link );
      for ( const auto & [index, other] : std::map( links ) )
         if (
            other.kind == "vlan" && other.lower == ifIndex && !other.looseBinding &&
            ( ( other.flags & IFF_UP ) != 0 ) != up )
            setLink( index, up );
   }

   void lookUp( const nlmsghdr & request, Inbox & inbox ) {
      if ( !answers )
         return;
      const auto link =
         links.find( static_cast< Vel::U32 >( fixedHeader< ifinfomsg >( request )->ifi_index ) );
      if ( link != links.end() )
         inbox.push( answerFrom( request, linkBytes( link->second ), 0 ) );
      inbox.push(
         answerFrom( request, answerBytes( request.nlmsg_seq, link == links.end() ? ENODEV : 0 ), 0 ) );
   }

   void lookUpRoute( const nlmsghdr & request, Inbox & inbox ) {
      if ( !answers )
         return;
      const auto address = addressFrom(
         fixedHeader< rtmsg >( request )->rtm_family,
         Attributes( request, sizeof( rtmsg ) ).payload( RTA_DST ) );
      const auto source = addressFrom(
         fixedHeader< rtmsg >( request )->rtm_family,
         Attributes( request, sizeof( rtmsg ) ).payload( RTA_SRC ) );
      const auto way =
         ways.find( stringValue( address.value() ) + ( source ? " from " + stringValue( *source ) : "" ) );
      if ( way != ways.end() )
         inbox.push( answerFrom( request, way->second, 0 ) );
      const auto refusal = refusals.find( stringValue( address.value() ) );
      const int none = refusal == refusals.end() ? ENETUNREACH : refusal->second;
      inbox.push( answerFrom( request, answerBytes( request.nlmsg_seq, way == ways.end() ? none : 0 ), 0 ) );
   }

   void lookUpNeighbour( const nlmsghdr & request, Inbox & inbox ) {
      if ( !answers )
         return;
      const auto found = std::find_if( neighbours.begin(), neighbours.end(), [&]( const Bytes & bytes ) {
         const nlmsghdr & one = messageIn( bytes );
         const ndmsg header = fixedHeader< ndmsg >( one ).value();
         return header.ndm_family == fixedHeader< ndmsg >( request )->ndm_family &&
                !( header.ndm_flags & NTF_PROXY ) &&
                header.ndm_ifindex == fixedHeader< ndmsg >( request )->ndm_ifindex &&
                Attributes( one, sizeof( ndmsg ) ).payload( NDA_DST ) ==
                   Attributes( request, sizeof( ndmsg ) ).payload( NDA_DST );
      } );
      if ( found == neighbours.end() )
         return lookUpSeen( request, inbox );
      inbox.push( answerFrom( request, *found, 0 ) );
      inbox.push( answerFrom( request, answerBytes( request.nlmsg_seq, 0 ), 0 ) );
   }

   void lookUpSeen( const nlmsghdr & request, Inbox & inbox ) {
      const ndmsg header = fixedHeader< ndmsg >( request ).value();
      const Attributes attributes( request, sizeof header );
      Vel::String key;
      if ( header.ndm_family == AF_BRIDGE )
         key = Vel::text(
            stringValue( attributes.value< HardwareAddress >( NDA_LLADDR ).value() ), " ",
            attributes.u16( NDA_VLAN ).value_or( 0 ), " on ", attributes.u32( NDA_MASTER ).value() );
      else
         key = Vel::text(
            stringValue( addressFrom( header.ndm_family, attributes.payload( NDA_DST ) ).value() ), " on ",
            header.ndm_ifindex );
      const auto at = seen.find( key );
      if ( at != seen.end() )
         inbox.push( answerFrom( request, at->second, 0 ) );
      inbox.push( answerFrom( request, answerBytes( request.nlmsg_seq, at == seen.end() ? ENOENT : 0 ), 0 ) );
   }

   /// As the kernel leaves out those of other links, unless none is named.
   static bool isAskedFor( const nlmsghdr & neighbour, const nlmsghdr & request ) {
      const ndmsg one = fixedHeader< ndmsg >( neighbour ).value();
      const ndmsg wanted = fixedHeader< ndmsg >( request ).value();
      const Vel::U32 ifIndex = Attributes( request, sizeof( ndmsg ) ).u32( NDA_IFINDEX ).value_or( 0 );
      return one.ndm_family == wanted.ndm_family &&
             ( one.ndm_flags & NTF_PROXY ) == ( wanted.ndm_flags & NTF_PROXY ) &&
             ( ifIndex == 0 || one.ndm_ifindex == static_cast< int >( ifIndex ) );
   }

   void dump( const nlmsghdr & request, Inbox & inbox ) {
      ++dumps[request.nlmsg_type];
      if ( failingDumps > 0 ) {
         --failingDumps;
         return inbox.push( answerFrom( request, answerBytes( request.nlmsg_seq, ENOMEM ), 0 ) );
      }
      if ( const int result = refused ? refused( request ) : 0 )
         return inbox.push( answerFrom( request, answerBytes( request.nlmsg_seq, result ), 0 ) );
      const Vel::U16 flags = NLM_F_MULTI | ( interruptedDumps > 0 ? NLM_F_DUMP_INTR : 0 );
      interruptedDumps -= interruptedDumps > 0;
      const auto push = [&]( Bytes bytes ) {
         inbox.push( answerFrom( request, std::move( bytes ), flags ) );
      };
      if ( request.nlmsg_type == RTM_GETLINK )
         for ( const auto & [ifIndex, link] : links )
            push( linkBytes( link ) );
      if ( request.nlmsg_type == RTM_GETSTATS )
         for ( const auto & [ifIndex, octets] : stats )
            push( statsBytes( ifIndex, octets.inOctets, octets.outOctets ) );
      if ( request.nlmsg_type == RTM_GETVLAN )
         for ( const auto & [ifIndex, ranges] : vlans )
            if ( !hidden || !hidden( ifIndex ) )
               push( vlanBytes( ifIndex, ranges ) );
      if ( request.nlmsg_type == RTM_GETADDR )
         for ( const Bytes & bytes : addresses )
            push( bytes );
      if ( request.nlmsg_type == RTM_GETNEIGH )
         for ( const Bytes & bytes : neighbours )
            if ( isAskedFor( messageIn( bytes ), request ) )
               push( bytes );
      if ( request.nlmsg_type == RTM_GETROUTE )
         for ( const Bytes & bytes : routes )
            if (
               fixedHeader< rtmsg >( messageIn( bytes ) )->rtm_family ==
               fixedHeader< rtmsg >( request )->rtm_family )
               push( bytes );
      if ( request.nlmsg_type == RTM_GETRULE )
         for ( const Bytes & bytes : rules )
            push( bytes );
      if ( request.nlmsg_type == RTM_GETNEXTHOP )
         for ( const Bytes & bytes : nextHops )
            push( bytes );
      push( MessageBuilder( NLMSG_DONE, 0 ).header( 0 ).take() );
      if ( request.nlmsg_type == RTM_GETROUTE && routesDumped )
         routesDumped( fixedHeader< rtmsg >( request )->rtm_family );
   }
   static Bytes answerFrom( const nlmsghdr & request, Bytes bytes, Vel::U16 flags ) {
      nlmsghdr & header = messageIn( bytes );
      header.nlmsg_seq = request.nlmsg_seq;
      header.nlmsg_pid = port;
      header.nlmsg_flags |= flags;
      return bytes;
   }
};

} // namespace DataPlane::Linux
