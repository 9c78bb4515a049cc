#include "Agent/Samples/RateReader.h"

#include <algorithm>
#include <utility>

namespace Agent {

using Interface::IntfRates;
using Interface::IntfCounterMasquerade::EthIntfStatistics;

namespace {

/// From one reading of a port to the next; nothing if they do not belong together.
std::optional< IntfRates >
between( const EthIntfStatistics & before, const EthIntfStatistics & after, double seconds ) {
   const bool counts = before.outOctets.hasValue() && after.outOctets.hasValue();
   if ( !counts || after.inOctets < before.inOctets || after.outOctets.value() < before.outOctets.value() )
      return std::nullopt;
   IntfRates rates;
   rates.inBitsRate = static_cast< double >( after.inOctets - before.inOctets ) * 8 / seconds;
   rates.outBitsRate =
      static_cast< double >( after.outOctets.value() - before.outOctets.value() ) * 8 / seconds;
   if ( std::max( rates.inBitsRate, rates.outBitsRate ) > RateReader::impossibleRate )
      return std::nullopt;
   return rates;
}

} // namespace

void RateReader::read( double now ) {
   now_ = now;
   ++reading_;
   all_.clear();
   places_.clear();
   for ( const auto & [intf, groups] : model_.intfToGroupDir->intfToGroupRange() ) {
      // Without a status nobody can say what it carries.
      if ( !model_.allIntfStatusDir->intfStatus( intf ) )
         continue;
      if ( Maybe rates = ratesOf( intf ) ) {
         rates->sampleTime = now;
         places_[intf] = all_.size();
         all_.emplace_back( intf, *rates );
      }
   }
   // Members of a VLAN that was read have been read with it.
   std::erase_if( vlans_, [this]( const auto & vlan ) { return vlan.second->reading != reading_; } );
   std::erase_if( portChannels_, [this]( const auto & each ) { return each.second.reading != reading_; } );
   std::erase_if( ports_, [this]( const auto & port ) { return port.second.reading != reading_; } );
}

const IntfRates * RateReader::rate( const Wire::IntfId & intf ) const {
   const auto at = places_.find( intf );
   return at == places_.end() ? nullptr : &all_[at->second].second;
}

RateReader::Maybe RateReader::ratesOf( const Wire::IntfId & intf ) {
   switch ( intf.kind() ) {
   case Wire::IntfId::Kind::ethernet:
      return ofPort( in( ports_, intf ) );
   case Wire::IntfId::Kind::portChannel:
      return ofPortChannel( in( portChannels_, intf ) );
   case Wire::IntfId::Kind::vlan:
      return ofVlan( intf );
   default:
      return std::nullopt;
   }
}

const RateReader::Maybe & RateReader::ofPort( Ports::value_type & of ) {
   auto & [intf, port] = of;
   if ( port.reading == reading_ )
      return port.rates;
   port.reading = reading_;
   port.rates.reset();
   const auto * const counterDir = model_.pool->intfCounterDir( intf );
   const auto * const counter = counterDir ? counterDir->counter( "current" ) : nullptr;
   const double before = std::exchange( port.time, counter ? now_ : 0 );
   if ( !counter )
      return port.rates;
   const EthIntfStatistics counts = counter->statistics();
   const double interval = now_ - before;
   if ( before > 0 && interval > 0 && interval <= longestInterval )
      port.rates = between( port.counts, counts, interval );
   port.counts = counts;
   return port.rates;
}

const RateReader::Maybe & RateReader::ofPortChannel( PortChannels::value_type & of ) {
   auto & [intf, portChannel] = of;
   if ( portChannel.reading == reading_ )
      return portChannel.rates;
   portChannel.reading = reading_;
   IntfRates sum;
   bool known = true;
   // All members are read, so that the next reading has something to begin at.
   for ( const Wire::IntfId & member : model_.lagConfig->memberRange( intf ) ) {
      const Maybe & rates = ofPort( in( ports_, member ) );
      known = known && rates;
      if ( rates ) {
         sum.inBitsRate += rates->inBitsRate;
         sum.outBitsRate += rates->outBitsRate;
      }
   }
   portChannel.rates = known ? Maybe( sum ) : std::nullopt;
   return portChannel.rates;
}

RateReader::Maybe RateReader::ofVlan( const Wire::IntfId & vlanIntf ) {
   IntfRates busiest;
   const Vel::U16 id = Wire::VlanIntfId::vlanId( vlanIntf );
   if ( id < Bridging::VlanId::minimum || id > Bridging::VlanId::maximum )
      return std::nullopt;
   const auto * const status = model_.vlanStatusDir->vlanStatus( Bridging::VlanId( id ) );
   // It has a status, so it is counted: without members it carries nothing.
   if ( !status )
      return busiest;
   Vlan & of = vlan( *status );
   bool known = !of.others;
   const auto take = [&]( const Maybe & rates ) {
      known = known && rates;
      if ( rates ) {
         busiest.inBitsRate = std::max( busiest.inBitsRate, rates->inBitsRate );
         busiest.outBitsRate = std::max( busiest.outBitsRate, rates->outBitsRate );
      }
   };
   for ( auto * const port : of.ports )
      take( ofPort( *port ) );
   for ( auto * const portChannel : of.portChannels )
      take( ofPortChannel( *portChannel ) );
   return known ? Maybe( busiest ) : std::nullopt;
}

RateReader::Vlan & RateReader::vlan( const Bridging::VlanStatus & status ) {
   auto & found = vlans_[status.vlanId()];
   // Another one of the same id has other members.
   if ( !found || found->watch->entity() != &status ) {
      found = std::make_unique< Vlan >();
      found->watch.is( Vel::Ptr< const Bridging::VlanStatus >( &status ), this )
         .hasNotificationActiveIs( true );
   }
   found->reading = reading_;
   if ( !found->known )
      findMembers( status, *found );
   return *found;
}

void RateReader::findMembers( const Bridging::VlanStatus & status, Vlan & vlan ) {
   vlan.ports.clear();
   vlan.portChannels.clear();
   vlan.others = false;
   for ( const auto & [member, port] : status.vlanPortStatusRange() ) {
      if ( Wire::CpuIntfId::isCpuIntfId( member ) )
         continue;
      if ( member.kind() == Wire::IntfId::Kind::ethernet )
         vlan.ports.push_back( &in( ports_, member ) );
      else if ( member.kind() == Wire::IntfId::Kind::portChannel )
         vlan.portChannels.push_back( &in( portChannels_, member ) );
      else
         vlan.others = true;
   }
   vlan.known = true;
}

void RateReader::handleMembers( Bridging::VlanId id ) {
   if ( const auto found = vlans_.find( id ); found != vlans_.end() )
      found->second->known = false;
}

} // namespace Agent
