#include "Platform/Model/Lag.h"
#include "Platform/Model/MaintenanceGroup.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <set>

/// What holds after any history of writes.
namespace {

using Wire::IntfId;

IntfId port( int n ) { return Wire::EthIntfId( Vel::text( "et", n ) ); }
/// Number 0 is no port-channel.
IntfId portChannel( int n ) {
   return n ? IntfId( Wire::PortChannelIntfId( Vel::text( "pc", n ) ) ) : IntfId();
}

RC_GTEST_PROP( LagProperty, listsTheSameMembersAsAScanOfAllPorts, () ) {
   const auto config = Vel::make< Lag::Config >();
   std::vector< Vel::Ptr< Lag::EthPhyIntfLagConfig > > held;
   const int steps = *rc::gen::inRange( 0, 200 );
   for ( int i = 0; i < steps; ++i ) {
      const IntfId intf = port( *rc::gen::inRange( 0, 6 ) );
      const IntfId lag = portChannel( *rc::gen::inRange( 0, 4 ) );
      switch ( *rc::gen::inRange( 0, 8 ) ) {
      case 0:
         config->phyIntfDel( intf );
         break;
      case 1: // hold a port beyond its removal
         if ( Lag::EthPhyIntfLagConfig * p = config->phyIntf( intf ) )
            held.emplace_back( p );
         break;
      case 2: // write to one that may have been removed
         if ( !held.empty() )
            held[*rc::gen::inRange< std::size_t >( 0, held.size() )]->portChannelIs( lag );
         break;
      case 3: { // move ports while their port-channel is walked
         for ( const IntfId & member : config->memberRange( lag ) )
            config->phyIntf( member )->portChannelIs( portChannel( *rc::gen::inRange( 0, 4 ) ) );
         break;
      }
      default:
         config->phyIntfIs( intf )->portChannelIs( lag );
      }
      for ( int n = 1; n < 4; ++n ) {
         std::vector< IntfId > scanned, listed;
         for ( const auto & [key, p] : config->phyIntfRange() )
            if ( p->portChannel() == portChannel( n ) )
               scanned.push_back( key );
         const auto range = config->memberRange( portChannel( n ) );
         for ( const IntfId & member : range )
            listed.push_back( member );
         RC_ASSERT( scanned == listed );
         RC_ASSERT( range.size() == scanned.size() );
      }
   }
}

RC_GTEST_PROP( MappingProperty, hasEachMappingInBothDirections, () ) {
   using Maintenance::GroupKey;
   const auto dir = Vel::make< Maintenance::GroupToUnitDir >();
   std::map< GroupKey, std::set< Vel::String > > wanted;
   const int steps = *rc::gen::inRange( 0, 100 );
   for ( int i = 0; i < steps; ++i ) {
      const GroupKey group{
         Maintenance::GroupType( *rc::gen::inRange( 1, 3 ) ), Vel::text( "g", *rc::gen::inRange( 0, 3 ) ) };
      const Vel::String unit = Vel::text( "u", *rc::gen::inRange( 0, 4 ) );
      switch ( *rc::gen::inRange( 0, 8 ) ) {
      case 0:
         RC_ASSERT( dir->groupToUnitDel( group ) == ( wanted.erase( group ) > 0 ) );
         break;
      case 1:
         dir->groupToUnitIs( group );
         wanted[group];
         break;
      case 2:
      case 3: {
         const auto it = wanted.find( group );
         RC_ASSERT(
            dir->mappingDel( group, unit ) == ( it != wanted.end() && it->second.erase( unit ) > 0 ) );
         break;
      }
      default:
         dir->mappingIs( group, unit );
         wanted[group].insert( unit );
      }
      std::map< GroupKey, std::set< Vel::String > > byGroup, byUnit;
      for ( const auto & [key, entry] : dir->groupToUnitRange() ) {
         byGroup[key];
         byUnit[key];
         for ( const auto & [name, nothing] : entry->unitNameRange() )
            byGroup[key].insert( name );
      }
      for ( const auto & [name, entry] : dir->unitToGroupRange() ) {
         RC_ASSERT( entry->groupKeys() > 0u );
         for ( const auto & [key, nothing] : entry->groupKeyRange() )
            byUnit[key].insert( name );
      }
      RC_ASSERT( byGroup == wanted );
      RC_ASSERT( byUnit == wanted );
   }
}

/// Names of few letters and digits, so that runs of digits meet.
rc::Gen< IntfId > intfIds() {
   const auto letter = rc::gen::elementOf( Vel::String( "0129a/" ) );
   return rc::gen::map( rc::gen::container< Vel::String >( letter ), []( const Vel::String & name ) {
      return name.empty() || name.size() > IntfId::maxName ? IntfId() : IntfId( Wire::EthIntfId( name ) );
   } );
}

RC_GTEST_PROP( IntfIdProperty, isStrictTotalAndAgreesWithEquality, () ) {
   const auto gen = rc::gen::resize( 5, intfIds() );
   const IntfId a = *gen, b = *gen, c = *gen;
   RC_ASSERT( ( a < b ) + ( b < a ) + ( a == b ) == 1 );
   if ( a < b && b < c )
      RC_ASSERT( a < c );
}

} // namespace
