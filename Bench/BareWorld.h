#pragma once

#include "Bench/PluginWorld.h"
#include "Platform/Cog/ManualClock.h"

#include <cstdlib>
#include <memory>
#include <unordered_map>
#include <vector>

/// Purpose: the floor under the monitoring of Ethernet ports: the same work on plain structs, made one by one as
/// interfaces come and go, with a look-up by name wherever one part is known to another by name only.
namespace PluginBench {

constexpr double period = 5; ///< seconds between two samples

/// Octets by which the counters of a port go on in one period: always more than the threshold, always another rate.
inline U64 octets( int i, U64 round ) {
   return 100000 + ( static_cast< U64 >( i ) * 7 + round * 1001 ) % 100000;
}

struct BareLink {
   BareLink * next = nullptr;
   BareLink * previous = nullptr;
};

/// A bucket a second.
class BareWheel {
 public:
   BareWheel() {
      for ( BareLink & head : heads_ )
         head.next = head.previous = &head;
   }
   void arm( BareLink & link, double seconds ) {
      BareLink & head = heads_[static_cast< U64 >( seconds ) % std::size( heads_ )];
      link.next = &head;
      link.previous = head.previous;
      head.previous->next = &link;
      head.previous = &link;
   }
   template < class Fire >
   void run( double seconds, Fire fire ) {
      BareLink & head = heads_[static_cast< U64 >( seconds ) % std::size( heads_ )];
      while ( head.next != &head ) {
         BareLink & link = *head.next;
         link.previous->next = link.next;
         link.next->previous = link.previous;
         fire( link );
      }
   }

 private:
   BareLink heads_[1800];
};

struct BareCounters {
   U64 in = 0, out = 0;
};
struct BareRates {
   double out = 0, in = 0, time = 0;
};
struct BareUnit {
   U64 in = 0, out = 0;
   double time = 0;
};
struct BareProfile {
   double kbps = thresholdKbps;
   U32 loadInterval = 10;
   bool shutdown = false;
   double maxDelay = 0;
};
struct BareIntf : BareLink {
   IntfId id;
   BareCounters previous;
   double previousTime = 0;
   // the record
   BareRates current, before;
   double startTime = 0, lastSampleTime = 0;
   U32 samples = 0, quietRun = 0, quiet = 0, busy = 0;
   int state = 1;
   bool shut = false;
   BareProfile * profile = nullptr;
   std::vector< std::string > unitNames;
   std::vector< BareUnit * > units;
};

enum class Parts { lookedUp, resolved };

template < Parts parts >
class BareWorld {
 public:
   explicit BareWorld( int count ) : array_( parts == Parts::resolved ? count : 0 ) {
      for ( int i = 0; i < count; ++i ) {
         counters_.try_emplace( port( i ) );
         BareIntf & intf = intfIs( i );
         intf.id = port( i );
         intf.profile = &profile_;
         intf.previousTime = intf.startTime = now_;
         const std::string unit = unitName( i / intfsPerUnit );
         intf.unitNames.push_back( unit );
         intf.units.push_back( &units_[unit] );
         wheel_.arm( intf, now_ + period );
         last_ = &intf;
         ports_.push_back( &counters_[intf.id] );
      }
   }
   void traffic( U64 round ) {
      for ( int i = 0; BareCounters * counters : ports_ ) {
         counters->in += octets( i, round );
         counters->out += octets( i++, round ) / 2;
      }
   }
   void goOn() {
      now_ += period;
      wheel_.run( now_, [this]( BareLink & link ) { sample( static_cast< BareIntf & >( link ) ); } );
   }
   U64 inRate() const { return last_->units.front()->in; }
   U32 samples() const { return last_->samples; }

 private:
   BareIntf & intfIs( int i ) {
      if constexpr ( parts == Parts::resolved )
         return array_[i];
      return *( intfs_[port( i )] = std::make_unique< BareIntf >() );
   }
   [[gnu::noinline]] void sample( BareIntf & intf ) {
      traced( 9 );
      const auto found = counters_.find( intf.id );
      if ( found == counters_.end() )
         return;
      const BareCounters counters = found->second;
      const double seconds = now_ - intf.previousTime;
      const BareRates rates{
         static_cast< double >( ( counters.out - intf.previous.out ) * 8 ) / seconds,
         static_cast< double >( ( counters.in - intf.previous.in ) * 8 ) / seconds, now_ };
      intf.previous = counters;
      intf.previousTime = now_;
      traced( 9 );
      intf.before = intf.current;
      intf.current = rates;
      ratesChanged( intf );
      intf.lastSampleTime = now_;
      ++intf.samples;
      const double threshold = intf.profile->kbps * 1000;
      const bool below = rates.in < threshold && rates.out < threshold;
      intf.quietRun = below ? intf.quietRun + 1 : 0;
      ++( below ? intf.quiet : intf.busy );
      const bool drained =
         below && static_cast< U32 >( intf.quietRun * period ) >= intf.profile->loadInterval;
      traced( 4 );
      const bool shut =
         intf.profile->shutdown && ( drained || now_ - intf.startTime >= intf.profile->maxDelay );
      if ( !shut )
         release( intf );
      if ( drained || shut )
         intf.state = 2;
      else
         wheel_.arm( intf, now_ + period );
   }
   void ratesChanged( const BareIntf & intf ) {
      if constexpr ( parts == Parts::resolved ) {
         for ( BareUnit * unit : intf.units )
            aggregate( *unit, intf.before, intf.current );
         return;
      }
      const auto monitored = intfs_.find( intf.id );
      if ( monitored == intfs_.end() )
         return;
      for ( const std::string & name : monitored->second->unitNames )
         if ( const auto unit = units_.find( name ); unit != units_.end() )
            aggregate( unit->second, intf.before, intf.current );
   }
   void release( BareIntf & intf ) {
      if constexpr ( parts == Parts::resolved )
         intf.shut = false;
      else if ( const auto shut = shut_.find( intf.id ); shut != shut_.end() )
         shut_.erase( shut );
   }
   void aggregate( BareUnit & unit, const BareRates & sub, const BareRates & add ) {
      const U64 subIn = static_cast< U64 >( sub.in + 0.5 ), subOut = static_cast< U64 >( sub.out + 0.5 );
      const U64 addIn = static_cast< U64 >( add.in + 0.5 ), addOut = static_cast< U64 >( add.out + 0.5 );
      if ( subIn > unit.in || subOut > unit.out || unit.in + addIn < unit.in || unit.out + addOut < unit.out )
         std::abort();
      unit = { unit.in + addIn - subIn, unit.out + addOut - subOut, now_ };
      traced( 4 );
   }
   void traced( int level ) {
      if ( level <= level_ ) [[unlikely]]
         std::abort();
   }

   double now_ = Cog::ManualClock::defaultStartTime;
   int level_ = -1;
   BareWheel wheel_;
   BareProfile profile_;
   std::vector< BareIntf > array_;
   std::unordered_map< IntfId, std::unique_ptr< BareIntf > > intfs_;
   std::unordered_map< std::string, BareUnit > units_;
   std::unordered_map< IntfId, BareCounters > counters_;
   std::unordered_map< IntfId, double > shut_;
   std::vector< BareCounters * > ports_;
   BareIntf * last_ = nullptr;
};

} // namespace PluginBench
