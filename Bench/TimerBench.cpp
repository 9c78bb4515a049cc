#include "Platform/Cog/ManualClock.h"
#include "Platform/Cog/TimerWheel.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Timers: arm, cancel, expire and arm again; 100,000 of them, neighbours due at different ones of ten ticks, cancelled
/// in an order of no meaning, each a part of something bigger, as timers of state machines are. Floor: a flat wheel of intrusive lists for whole seconds, with nothing else that a wheel
/// needs (times that are far away or have passed, switching on and off, changes by other handlers, exceptions). Both
/// keep the order within a tick.
/// Not in the unnamed namespace: there the compiler would know every override and call none of them virtually.
namespace TimerBench {

constexpr unsigned timers = 100000;
constexpr unsigned ticks = 10;
constexpr double start = Cog::ManualClock::defaultStartTime;

using Times = std::vector< double >;

Times times() {
   Times result;
   for ( unsigned i = 0; i < timers; ++i )
      result.push_back( start + 1 + i % ticks );
   return result;
}

/// What a timer is part of.
template < class Timer >
struct alignas( 64 ) Machine {
   Timer timer;
   std::byte rest[128 - sizeof( Timer )];
};

/// All timers, far from their neighbours: the step has no divisor in common with their number.
std::vector< unsigned > anyOrder() {
   std::vector< unsigned > result;
   for ( unsigned i = 0; i < timers; ++i )
      result.push_back( static_cast< unsigned >( std::uint64_t( i ) * 61803 % timers ) );
   return result;
}

// ---- the floor

struct FlatLink {
   FlatLink * next = nullptr;
   FlatLink * previous = nullptr;
};

struct FlatTimer : FlatLink {
   virtual void onTime() = 0;

 protected:
   ~FlatTimer() = default;
};

class FlatWheel {
 public:
   FlatWheel() {
      for ( FlatLink & head : heads_ )
         head = { &head, &head };
   }
   void arm( FlatTimer & timer, double seconds ) {
      std::int64_t tick = static_cast< std::int64_t >( seconds );
      tick += static_cast< double >( tick ) < seconds;
      FlatLink & head = heads_[static_cast< Vel::U64 >( tick ) % slots];
      timer.next = &head;
      timer.previous = head.previous;
      head.previous->next = &timer;
      head.previous = &timer;
   }
   void cancel( FlatTimer & timer ) {
      timer.previous->next = timer.next;
      timer.next->previous = timer.previous;
   }
   void run( double seconds ) {
      FlatLink & head = heads_[static_cast< Vel::U64 >( seconds ) % slots];
      while ( head.next != &head ) {
         FlatTimer & timer = static_cast< FlatTimer & >( *head.next );
         head.next = timer.next;
         timer.next->previous = &head;
         timer.onTime();
      }
   }

 private:
   static constexpr Vel::U64 slots = 2048;
   FlatLink heads_[slots];
};

class FlatBed {
 public:
   FlatBed() {
      for ( Machine< Timer > & machine : machines_ )
         machine.timer.bed = this;
   }
   void arm( unsigned timer, double seconds ) { wheel_.arm( machines_[timer].timer, seconds ); }
   void cancel( unsigned timer ) { wheel_.cancel( machines_[timer].timer ); }
   void turn() {
      now_ += 1;
      wheel_.run( now_ );
   }

 private:
   struct Timer final : FlatTimer {
      void onTime() override { bed->wheel_.arm( *this, bed->now_ + ticks ); }
      FlatBed * bed = nullptr;
   };
   FlatWheel wheel_;
   double now_ = start;
   std::vector< Machine< Timer > > machines_ = std::vector< Machine< Timer > >( timers );
};

// ---- ours

class OurBed {
 public:
   OurBed() {
      for ( Monitor & machine : machines_ )
         machine.timer.is( wheel_, this ).hasNotificationActiveIs( true );
   }
   void arm( unsigned timer, double seconds ) { machines_[timer].timer->timeMinIs( seconds ); }
   void cancel( unsigned timer ) { machines_[timer].timer->timeMinIs( Cog::Timer::never ); }
   void turn() {
      clock_->spend( 1 );
      clock_->runTurn();
   }

 private:
   struct VelClock final : Cog::TimerReactor< OurBed > {
      using TimerReactor::TimerReactor;
      void onTime() override { timeMinIs( sm()->clock_->currentTime() + ticks ); }
   };
   const Vel::Ptr< Cog::ManualClock > clock_ = Vel::make< Cog::ManualClock >();
   const Vel::Ptr< Cog::TimerWheel > wheel_ = Vel::make< Cog::TimerWheel >( clock_, 1000, 1800, true, 1024 );
   using Monitor = Machine< Cog::TimerWatch< VelClock > >;
   std::vector< Monitor > machines_ = std::vector< Monitor >( timers );
};

// ---- what is measured

template < class Bed >
void armAll( Bed & bed, const Times & seconds ) {
   for ( unsigned i = 0; i < timers; ++i )
      bed.arm( i, seconds[i] );
}

template < class Bed >
void cancelAll( Bed & bed, const std::vector< unsigned > & order ) {
   for ( const unsigned i : order )
      bed.cancel( i );
}

void finish( benchmark::State & state, const char * limit ) {
   state.SetItemsProcessed( state.iterations() * timers );
   state.SetLabel( limit );
}

template < class Bed >
void arm( benchmark::State & state, const char * limit ) {
   Bed bed;
   const Times seconds = times();
   const std::vector< unsigned > order = anyOrder();
   for ( auto _ : state ) {
      armAll( bed, seconds );
      state.PauseTiming();
      cancelAll( bed, order );
      state.ResumeTiming();
   }
   finish( state, limit );
}

template < class Bed >
void cancel( benchmark::State & state, const char * limit ) {
   Bed bed;
   const Times seconds = times();
   const std::vector< unsigned > order = anyOrder();
   for ( auto _ : state ) {
      state.PauseTiming();
      armAll( bed, seconds );
      state.ResumeTiming();
      cancelAll( bed, order );
   }
   finish( state, limit );
}

template < class Bed >
void expire( benchmark::State & state, const char * limit ) {
   Bed bed;
   armAll( bed, times() );
   for ( auto _ : state )
      for ( unsigned i = 0; i < ticks; ++i )
         bed.turn();
   finish( state, limit );
}

template < class Bed >
void rows( const std::string & side, const char * limit ) {
   const auto name = [&]( const char * row ) { return std::string( "timer, " ) + row + "/" + side; };
   benchmark::RegisterBenchmark( name( "arm" ).c_str(), arm< Bed >, limit );
   benchmark::RegisterBenchmark( name( "cancel" ).c_str(), cancel< Bed >, limit );
   benchmark::RegisterBenchmark( name( "expire and arm again" ).c_str(), expire< Bed >, limit );
}

const bool registered = ( rows< FlatBed >( "floor", "" ), rows< OurBed >( "ours", "at most 2 x" ), true );

} // namespace TimerBench
