#include "DataPlane/Linux/RouteBytesTest.h"
#include "DataPlane/Linux/RouteFold.h"

#include <algorithm>
#include <map>
#include <random>

/// What is taken when the ways of a route to an address are gone.
namespace DataPlane::Linux {

namespace {

using Kind = RouteEntry::Kind;
using Links = std::set< Vel::U32 >;

/// A table of routes for an address and for others near it, with which it is known what packets would do.
class World {
 public:
   World( Vel::U8 family, unsigned seed ) : dice_( seed ) {
      address_ = address( family == AF_INET ? "10.77.3.4" : "2001:db8:77::4" );
      if ( roll( 2 ) )
         source_ = address( family == AF_INET ? "192.0.2.9" : "2001:db9::9" );
      for ( unsigned left = 1 + roll( 12 ); left > 0; --left )
         add();
      // As the kernel tells them.
      std::stable_sort(
         routes_.begin(), routes_.end(), []( const auto & a, const auto & b ) { return a.key < b.key; } );
   }

   /// What packets take without some links: its hops that are left, and none if it refuses them. Null: there is no route.
   const RouteEntry * taken( const Links & gone, Vel::U32 table ) const {
      const RouteEntry * best = nullptr;
      for ( const RouteEntry & route : routes_ )
         if (
            route.key.table == table && matches( route.key ) && works( route, gone ) &&
            ( !best || before( route, *best ) ) )
            best = &route;
      return best;
   }
   static Links left( const RouteEntry & route, const Links & gone ) {
      Links result;
      for ( const RouteHop & hop : route.hops )
         if ( !gone.count( hop.ifIndex ) && route.kind != Kind::local )
            result.insert( hop.ifIndex );
      return result;
   }
   RouteFold folded( const RouteEntry & found ) const {
      RouteFold fold( []( Vel::U32 ) { return true; } );
      fold.want( found.key );
      fold.wantAllFor( address_, source_, found.key.table );
      for ( const RouteEntry & route : routes_ )
         fold.take( route );
      fold.end();
      return fold;
   }
   const IpAddress & to() const { return address_; }
   const std::optional< IpAddress > & source() const { return source_; }

   static constexpr Vel::U32 links = 4;

 private:
   unsigned roll( unsigned sides ) { return dice_() % sides; }

   void add() {
      RouteEntry route;
      const unsigned most = maxPrefix( address_.family );
      const std::array< unsigned, 6 > lengths = { 0, 8, most / 2, most / 2 + 1, most - 1, most };
      route.key.length = static_cast< Vel::U8 >( lengths[roll( lengths.size() )] );
      IpAddress near = address_;
      if ( roll( 4 ) == 0 )
         near.bytes[roll( most / 8 )] ^= static_cast< Vel::U8 >( 1u << roll( 8 ) );
      route.key.destination = networkOf( near, route.key.length );
      route.key.source = anyAddress( address_.family );
      if ( address_.family == AF_INET6 && roll( 3 ) == 0 ) {
         route.key.sourceLength = roll( 2 ) ? 16 : 32;
         route.key.source =
            networkOf( address( roll( 3 ) ? "2001:db9::" : "2001:dba::" ), route.key.sourceLength );
      }
      route.key.table = roll( 4 ) ? Vel::U32( RT_TABLE_MAIN ) : 100u;
      route.metric = 10 * roll( 3 );
      route.kind = roll( 8 ) == 0 ? Kind::refusal : roll( 12 ) == 0 ? Kind::local : Kind::path;
      // The kernel has one route of each preference, which may have several ways.
      for ( const RouteEntry & other : routes_ )
         if ( other.key == route.key && other.metric == route.metric )
            return;
      for ( unsigned left = 1 + roll( 2 ); left > 0 && route.kind != Kind::refusal; --left )
         route.hops.push_back( { 1 + roll( links ) } );
      routes_.push_back( route );
   }
   bool matches( const RouteKey & key ) const {
      return hasBits( address_, key.destination, key.length ) &&
             ( key.sourceLength == 0 || ( source_ && hasBits( *source_, key.source, key.sourceLength ) ) );
   }
   static bool hasBits( const IpAddress & one, const IpAddress & other, unsigned length ) {
      for ( unsigned i = 0; i < length; ++i )
         if ( ( one.bytes[i / 8] ^ other.bytes[i / 8] ) & ( 0x80u >> i % 8 ) )
            return false;
      return true;
   }
   static bool works( const RouteEntry & route, const Links & gone ) {
      return route.kind != Kind::path || !left( route, gone ).empty();
   }
   static bool before( const RouteEntry & a, const RouteEntry & b ) {
      if ( a.key.length != b.key.length )
         return a.key.length > b.key.length;
      if ( a.key.sourceLength != b.key.sourceLength )
         return a.key.sourceLength > b.key.sourceLength;
      return a.metric < b.metric;
   }

   std::mt19937 dice_;
   IpAddress address_;
   std::optional< IpAddress > source_;
   std::vector< RouteEntry > routes_;
};

/// What is left of the first ways that work or refuse.
Links firstOf( const std::vector< RouteWays > & choices, const Links & gone ) {
   for ( const RouteWays & ways : choices ) {
      Links result;
      for ( const RouteWay & way : ways )
         if ( !gone.count( way.hop.ifIndex ) )
            result.insert( way.hop.ifIndex );
      if ( ways.empty() || !result.empty() )
         return result;
   }
   return {};
}

} // namespace

TEST( LessSpecificRoutes, areTakenAsIfTheRoutesOverLinksThatAreGoneWereNone ) {
   int fellBack = 0, refused = 0;
   for ( unsigned seed = 1; seed <= 1000; ++seed ) {
      const World world( seed % 2 ? AF_INET : AF_INET6, seed );
      const RouteEntry * const found = world.taken( {}, RT_TABLE_MAIN );
      if ( !found )
         continue;
      const RouteFold fold = world.folded( *found );
      std::vector< RouteWays > choices = fold.wanted( found->key );
      const std::size_t own = choices.size();
      for ( const RouteFold::Destination & less :
            fold.lessSpecific( found->key, world.to(), world.source() ) )
         choices.insert( choices.end(), less.ways.begin(), less.ways.end() );
      for ( unsigned some = 0; some < 1u << World::links; ++some ) {
         Links gone;
         for ( Vel::U32 link = 1; link <= World::links; ++link )
            if ( some & 1u << ( link - 1 ) )
               gone.insert( link );
         const RouteEntry * const then = world.taken( gone, RT_TABLE_MAIN );
         const Links expected = then ? World::left( *then, gone ) : Links();
         ASSERT_EQ( expected, firstOf( choices, gone ) ) << "seed " << seed << " without " << some;
         fellBack += then && !( then->key == found->key ) && !expected.empty();
         refused += then && !( then->key == found->key ) && expected.empty();
      }
      ASSERT_GE( own, 1u );
   }
   EXPECT_GT( fellBack, 250 );
   EXPECT_GT( refused, 25 );
}

class LessSpecific : public LinuxFault {
 protected:
   AddressWay way( const Vel::String & address ) {
      std::optional< RouteAnswer > result;
      made->routesAsk( { address }, [&]( const RouteAnswer & answer ) { result = answer; } );
      for ( int i = 0; i < 100 && !result; ++i )
         turn();
      EXPECT_TRUE( result && result->way );
      return result && result->way ? *result->way : AddressWay();
   }
   using Counts = std::map< Vel::String, std::size_t >;
   /// How many there are for each: all are asked for in one reading, which keeps what any of them wants.
   Counts countsOf( const std::vector< Vel::String > & addresses ) {
      Counts result;
      for ( const Vel::String & address : addresses )
         made->routesAsk( { address }, [&result, address]( const RouteAnswer & answer ) {
            EXPECT_TRUE( answer.way );
            result[address] = answer.way ? answer.way->lessSpecific.size() : 0;
         } );
      for ( int i = 0; i < 100 && result.size() < addresses.size(); ++i )
         turn();
      return result;
   }
   /// What the kernel takes for 10.1.2.3 is the first of these.
   void has( const std::vector< TestRoute > & routes ) {
      kernel->routes.clear();
      for ( const TestRoute & route : routes )
         kernel->routes.push_back( routeBytes( route ) );
      kernel->ways["10.1.2.3"] = kernel->routes.front();
   }
};

TEST_F( LessSpecific, routesStandBehindTheOneThatIsTaken ) {
   has(
      { { "10.1.0.0/16", { { 1 } }, 10 },
        { "10.1.0.0/16", { { 2 } }, 20 },
        { "0.0.0.0/0", { { 2 } } },
        { "10.0.0.0/8", { { 1 } } },
        { "11.0.0.0/8", { { 2 } } },
        { .destination = "10.0.0.0/12", .hops = { { 2 } }, .table = 100 } } );
   started();
   const AddressWay to = way( "10.1.2.3" );
   EXPECT_EQ( "10.1.0.0/16", to.destination );
   EXPECT_EQ( ( Choices{ { { "et1" } }, { { "et2" } }, { { "et1" } }, { { "et2" } } } ), to.choices );
   const std::vector< LessSpecificRoute > less = { { "10.0.0.0/8", 2 }, { "0.0.0.0/0", 3 } };
   EXPECT_EQ( less, to.lessSpecific );
}

TEST_F( LessSpecific, routesEndWithOneThatRefuses ) {
   has(
      { { "10.1.0.0/16", { { 1 } } },
        { .destination = "10.0.0.0/8", .hops = {}, .type = RTN_BLACKHOLE },
        { "0.0.0.0/0", { { 2 } } } } );
   started();
   const AddressWay to = way( "10.1.2.3" );
   EXPECT_EQ( ( Choices{ { { "et1" } }, {} } ), to.choices );
   EXPECT_EQ( ( std::vector< LessSpecificRoute >{ { "10.0.0.0/8", 1 } } ), to.lessSpecific );
}

TEST_F( LessSpecific, routesAreNoneForWhoIsOnTheLinkItself ) {
   has(
      { { .destination = "10.1.2.0/24", .hops = { { 1 } }, .protocol = RTPROT_KERNEL, .gateway = false },
        { "0.0.0.0/0", { { 2 } } } } );
   started();
   EXPECT_EQ( std::vector< LessSpecificRoute >(), way( "10.1.2.3" ).lessSpecific );
   // Set by hand, of one who is on the link; and of a tunnel, behind which others are.
   const TestRoute byHand{
      .destination = "10.1.2.0/24", .hops = { { 1 } }, .gateway = false, .scope = RT_SCOPE_LINK };
   has( { byHand, { "0.0.0.0/0", { { 2 } } } } );
   EXPECT_EQ( std::vector< LessSpecificRoute >(), way( "10.1.2.3" ).lessSpecific );
   kernel->links[1].flags |= IFF_POINTOPOINT;
   kernel->events->push( linkBytes( kernel->links[1] ) );
   turn();
   EXPECT_EQ( 1u, way( "10.1.2.3" ).lessSpecific.size() );
}

TEST_F( LessSpecific, routesAreNoneForWhoIsOnTheLinkAlsoIfSomebodyElseHasSome ) {
   has(
      { { .destination = "10.1.2.0/24", .hops = { { 1 } }, .protocol = RTPROT_KERNEL, .gateway = false },
        { "10.0.0.0/8", { { 2 } } },
        { "0.0.0.0/0", { { 2 } } } } );
   kernel->ways["10.5.0.1"] = kernel->routes[1];
   started();
   EXPECT_EQ( ( Counts{ { "10.1.2.3", 0 }, { "10.5.0.1", 1 } } ), countsOf( { "10.1.2.3", "10.5.0.1" } ) );
}

TEST_F( LessSpecific, routesAreNoneOfATableInWhichSomebodyElseIsFound ) {
   has( { { "10.1.0.0/16", { { 1 } } }, { .destination = "10.0.0.0/8", .hops = { { 2 } }, .table = 100 } } );
   kernel->ways["10.5.0.1"] = kernel->routes[1];
   started();
   EXPECT_EQ( ( Counts{ { "10.1.2.3", 0 }, { "10.5.0.1", 0 } } ), countsOf( { "10.1.2.3", "10.5.0.1" } ) );
}

TEST_F( LessSpecific, routesThatRulesMayLeaveOutAreNone ) {
   has( { { "10.1.0.0/16", { { 1 } } }, { "10.0.0.0/8", { { 2 } } }, { "0.0.0.0/0", { { 2 } } } } );
   kernel->rules = { ruleBytes( 254, {}, FRA_SUPPRESS_PREFIXLEN, 7 ) };
   started();
   EXPECT_EQ( ( std::vector< LessSpecificRoute >{ { "10.0.0.0/8", 1 } } ), way( "10.1.2.3" ).lessSpecific );
   kernel->rules = { ruleBytes( 254, {}, FRA_SUPPRESS_PREFIXLEN, 8 ) };
   EXPECT_EQ( std::vector< LessSpecificRoute >(), way( "10.1.2.3" ).lessSpecific );
   kernel->rules.push_back( ruleBytes( 254, {}, FRA_SUPPRESS_PREFIXLEN, 7 ) );
   EXPECT_EQ( std::vector< LessSpecificRoute >(), way( "10.1.2.3" ).lessSpecific );
   kernel->rules = { ruleBytes( 254, {}, FRA_SUPPRESS_PREFIXLEN, 0xffffffff ) };
   EXPECT_EQ( 2u, way( "10.1.2.3" ).lessSpecific.size() );
   kernel->rules = { ruleBytes( 254, {}, FRA_SUPPRESS_IFGROUP, 0 ) };
   EXPECT_EQ( std::vector< LessSpecificRoute >(), way( "10.1.2.3" ).lessSpecific );
}

} // namespace DataPlane::Linux
