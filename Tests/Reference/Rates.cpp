#include "Tests/Reference/Rules.h"

#include <cmath>

namespace Reference {

/// Takes one sample. The first one, when the monitor is made, only notes the counters.
void Model::Rules::sample( IntfMon & mon ) {
   switch ( kindOf( mon.intf ) ) {
   case IntfKind::ethernet:
      sampleEthernet( mon, mon.intf );
      return;
   case IntfKind::portChannel:
      sampleLag( mon, mon.intf );
      return;
   case IntfKind::vlan:
      sampleVlan( mon, mon.intf );
      return;
   case IntfKind::subInterface:
      throw Unreachable( "a sub-interface is sampled" );
   }
}

namespace {
/// Wraps at 64 bits, as the counters do.
double bitsPerSecond( std::uint64_t octets, double seconds ) {
   return static_cast< double >( octets * 8 ) / seconds;
}
} // namespace

/// Each monitored interface has its own notes of the counters that it reads. A port whose counters are not there adds
/// nothing; one that comes late is compared with nothing ever counted at time 0.
Rates Model::Rules::sampleEthernet( IntfMon & mon, Intf port ) {
   const Octets * const octets = find( inputs_.octets, port );
   if ( !octets ) {
      count( numNoIntfCounter );
      return {};
   }
   Snapshot & snapshot = mon.snapshots[port];
   const Snapshot before = snapshot;
   snapshot.octets = *octets;
   snapshot.time = now_;
   if ( !mon.baselineTaken )
      return snapshot.rates;
   constexpr std::uint64_t low63Bits = ~std::uint64_t( 0 ) >> 1;
   const double seconds = now_ - before.time;
   snapshot.rates.in = bitsPerSecond( octets->in - before.octets.in, seconds );
   snapshot.rates.out = octets->out && before.octets.out
                           ? bitsPerSecond( ( *octets->out - *before.octets.out ) & low63Bits, seconds )
                           : 0;
   snapshot.rates.time = now_;
   const Rates rates = snapshot.rates;
   if ( port == mon.intf )
      publish( mon, rates );
   return rates;
}

/// The sum over the ports that are configured into it, whether or not they are up.
Rates Model::Rules::sampleLag( IntfMon & mon, Intf lag ) {
   Rates sum;
   for ( const Intf port : inputs_.lagOfPort.keys() ) {
      if ( *inputs_.lagOfPort.find( port ) != lag || kindOf( port ) != IntfKind::ethernet )
         continue;
      const Rates rates = sampleEthernet( mon, port );
      sum.in += rates.in;
      sum.out += rates.out;
   }
   sum.time = now_;
   if ( lag == mon.intf && mon.baselineTaken )
      publish( mon, sum );
   return sum;
}

/// The busiest member, for each direction by itself. Without the VLAN it is quiet.
Rates Model::Rules::sampleVlan( IntfMon & mon, Intf vlan ) {
   Rates busiest;
   const int vlanId = world_.intfs.at( static_cast< std::size_t >( vlan ) ).vlanId;
   if ( vlanId < 1 || vlanId > 4094 )
      throw Unreachable( "a VLAN interface has no valid VLAN" );
   const Sequence< Intf > * const ports = find( inputs_.vlans, vlanId );
   if ( !ports )
      count( numNoVlanStatus );
   const Sequence< Intf > noPorts;
   for ( const Intf port : ports ? *ports : noPorts ) {
      const IntfKind kind = kindOf( port );
      if ( kind != IntfKind::ethernet && kind != IntfKind::portChannel )
         throw Unreachable( "a VLAN has a member of another kind" );
      const Rates rates = kind == IntfKind::ethernet ? sampleEthernet( mon, port ) : sampleLag( mon, port );
      if ( rates.out > busiest.out )
         busiest.out = rates.out;
      if ( rates.in > busiest.in )
         busiest.in = rates.in;
   }
   busiest.time = now_;
   if ( vlan == mon.intf && mon.baselineTaken )
      publish( mon, busiest );
   return busiest;
}

/// What the interface has added to its units so far is replaced by what it adds now.
void Model::Rules::publish( IntfMon & mon, const Rates & rates ) {
   Record & record = *mon.record;
   record.prev = record.cur;
   const bool changed = record.cur != rates;
   record.cur = rates;
   if ( changed && aggregating_ )
      for ( const Unit unit : mon.dependents ) {
         UnitPublished * const shown = find( published.units, unit );
         if ( !shown )
            throw Unreachable( "a unit has lost its status but not its monitor" );
         replaceInAggregate( *shown, record.prev, record.cur );
      }
   record.lastSampleTime = now_;
}

// ---- the sum of a unit

void Model::Rules::dependentAdd( IntfMon & mon, Unit unit ) {
   if ( !mon.dependents.add( unit ) )
      return;
   mon.shown->dependents.insert( unit );
   UnitPublished * const shown = find( published.units, unit );
   if ( aggregating_ && shown )
      replaceInAggregate( *shown, {}, mon.record->cur );
}

void Model::Rules::dependentDel( IntfMon & mon, Unit unit ) {
   if ( !mon.dependents.del( unit ) )
      return;
   mon.shown->dependents.erase( unit );
   UnitPublished * const shown = find( published.units, unit );
   if ( aggregating_ && shown )
      replaceInAggregate( *shown, mon.record->cur, {} );
}

namespace {
/// Half away from zero. What is no rate has one fixed value each, so that what was added can be subtracted.
std::uint64_t rounded( double rate ) {
   constexpr double twoTo63 = 9223372036854775808.0;
   const double whole = std::round( rate );
   if ( std::isnan( whole ) || whole < -twoTo63 )
      return std::uint64_t( 1 ) << 63;
   if ( whole >= 2 * twoTo63 )
      return 0;
   if ( whole >= twoTo63 )
      return static_cast< std::uint64_t >( whole - twoTo63 ) + ( std::uint64_t( 1 ) << 63 );
   return static_cast< std::uint64_t >( static_cast< std::int64_t >( whole ) );
}

std::uint64_t replaced( std::uint64_t aggregate, double subtracted, double added ) {
   const std::uint64_t less = rounded( subtracted );
   const std::uint64_t sum = aggregate + rounded( added );
   if ( less > aggregate || sum < aggregate )
      throw Unreachable( "the sum of a unit overflows or underflows" );
   return sum - less;
}
} // namespace

void Model::Rules::replaceInAggregate(
   UnitPublished & unit, const Rates & subtracted, const Rates & added ) const {
   unit.aggregateIn = replaced( unit.aggregateIn, subtracted.in, added.in );
   unit.aggregateOut = replaced( unit.aggregateOut, subtracted.out, added.out );
   unit.aggregateTime = now_;
}

void Model::Rules::rebuildAggregates() {
   for ( auto & [unit, shown] : published.units ) {
      shown.aggregateIn = shown.aggregateOut = 0;
      shown.aggregateTime = 0;
   }
   for ( const Intf intf : intfMons_.keys() ) {
      const IntfMon & mon = *intfMons_.find( intf );
      for ( const Unit unit : mon.dependents )
         if ( UnitPublished * const shown = find( published.units, unit ) )
            replaceInAggregate( *shown, {}, mon.record->cur );
   }
   aggregating_ = true;
}

} // namespace Reference
