#include "Agent/Samples/RateReader.h"

#include <algorithm>

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
   std::erase_if( ports_, [this]( const auto & port ) { return port.second.reading != reading_; } );
}

const IntfRates * RateReader::rate( const Wire::IntfId & intf ) const {
   const auto at = places_.find( intf );
   return at == places_.end() ? nullptr : &all_[at->second].second;
}

RateReader::Maybe RateReader::ratesOf( const Wire::IntfId & intf ) {
   switch ( intf.kind() ) {
   case Wire::IntfId::Kind::ethernet:
      return ofPort( intf );
   case Wire::IntfId::Kind::portChannel:
      return ofPortChannel( intf );
   case Wire::IntfId::Kind::vlan:
      return ofVlan( intf );
   default:
      return std::nullopt;
   }
}

RateReader::Maybe RateReader::ofPort( const Wire::IntfId & intf ) {
   const auto * const counterDir = model_.pool->intfCounterDir( intf );
   const auto * const counter = counterDir ? counterDir->counter( "current" ) : nullptr;
   if ( !counter )
      return std::nullopt;
   Port & port = ports_[intf];
   if ( port.reading == reading_ )
      return port.rates;
   const EthIntfStatistics counts = counter->statistics();
   const double interval = now_ - port.time;
   const bool follows = port.reading != 0 && interval > 0 && interval <= longestInterval;
   port.rates = follows ? between( port.counts, counts, interval ) : std::nullopt;
   port.counts = counts;
   port.time = now_;
   port.reading = reading_;
   return port.rates;
}

RateReader::Maybe RateReader::ofPortChannel( const Wire::IntfId & portChannel ) {
   IntfRates sum;
   bool known = true;
   // All members are read, so that the next reading has something to begin at.
   for ( const Wire::IntfId & member : model_.lagConfig->memberRange( portChannel ) ) {
      const Maybe rates = ofPort( member );
      known = known && rates;
      if ( rates ) {
         sum.inBitsRate += rates->inBitsRate;
         sum.outBitsRate += rates->outBitsRate;
      }
   }
   return known ? Maybe( sum ) : std::nullopt;
}

RateReader::Maybe RateReader::ofVlan( const Wire::IntfId & vlanIntf ) {
   IntfRates busiest;
   bool known = true;
   const Vel::U16 id = Wire::VlanIntfId::vlanId( vlanIntf );
   if ( id < Bridging::VlanId::minimum || id > Bridging::VlanId::maximum )
      return std::nullopt;
   const auto * const vlan = model_.vlanStatusDir->vlanStatus( Bridging::VlanId( id ) );
   // It has a status, so it is counted: without members it carries nothing.
   if ( !vlan )
      return busiest;
   for ( const auto & [member, status] : vlan->vlanPortStatusRange() ) {
      if ( Wire::CpuIntfId::isCpuIntfId( member ) )
         continue;
      const Maybe rates = member.kind() == Wire::IntfId::Kind::portChannel ? ofPortChannel( member )
                          : member.kind() == Wire::IntfId::Kind::ethernet  ? ofPort( member )
                                                                           : std::nullopt;
      known = known && rates;
      if ( rates ) {
         busiest.inBitsRate = std::max( busiest.inBitsRate, rates->inBitsRate );
         busiest.outBitsRate = std::max( busiest.outBitsRate, rates->outBitsRate );
      }
   }
   return known ? Maybe( busiest ) : std::nullopt;
}

} // namespace Agent
