#include "Tests/Plugin/StoryTeller.h"

#include <algorithm>
#include <cmath>

namespace Tests {

using Reference::IntfKind;
using Reference::none;

namespace {
/// Where they stand among the counters: one of the two is counted for each item of the backlog.
constexpr std::size_t numStartIntfMonInUnits = 14;
constexpr std::size_t numStopIntfMonInUnits = 15;
} // namespace

Reference::World randomWorld( std::uint64_t seed ) {
   Chance chance( seed ^ 0x5eed );
   Reference::World world;
   const int ports = 7 + chance.pick( 3 );
   for ( int i = 0; i < ports; ++i )
      world.intfs.push_back( { IntfKind::ethernet } );
   for ( int i = 0; i < 2; ++i )
      world.intfs.push_back( { IntfKind::portChannel } );
   for ( int i = 0; i < 2; ++i )
      world.intfs.push_back( { IntfKind::vlan, 10 * ( i + 1 ) } );
   world.intfs.push_back( { IntfKind::subInterface } );
   world.units = 3 + chance.pick( 2 );
   world.groups = 4 + chance.pick( 2 );
   world.profiles = 4;
   world.start = 1.7e9 + chance.of( { 0.0, 3.0, 0.25, 1234.5 } );
   world.itemCost = chance.of( { 0.0, 0.0, 0.0004, 0.004, 0.006, 0.02, 0.3 } );
   world.backlogQuantum = chance.percent( 20 ) ? 0 : 0.010;
   return world;
}

StoryTeller::StoryTeller(
   std::uint64_t seed, const Reference::World & world, Manner manner, const Written & written,
   const Reference::Published & published )
   : chance_( seed ),
     world_( world ),
     manner_( manner ),
     written_( written ),
     published_( published ),
     counted_( world.start ),
     time_( world.start ) {
   setUp();
}

Reference::Event StoryTeller::next() {
   watchShutdowns();
   while ( true ) {
      if ( auto event = restart() )
         return *event;
      if ( auto event = linkReaction() )
         return *event;
      if ( !events_.empty() ) {
         const Event event = events_.front();
         events_.pop_front();
         noteTime( event );
         return event;
      }
      if ( script_.empty() )
         plan();
      const Step step = std::move( script_.front() );
      script_.pop_front();
      step();
   }
}

void StoryTeller::plan() {
   struct Choice {
      unsigned weight;
      void ( StoryTeller::*step )();
   };
   static constexpr Choice choices[] = {
      { 30, &StoryTeller::stepTime },     { 14, &StoryTeller::stepUnit },
      { 9, &StoryTeller::stepTurn },      { 12, &StoryTeller::stepLink },
      { 10, &StoryTeller::stepTraffic },  { 2, &StoryTeller::stepCounters },
      { 2, &StoryTeller::stepLag },       { 2, &StoryTeller::stepVlan },
      { 5, &StoryTeller::stepGroup },     { 3, &StoryTeller::stepMapping },
      { 4, &StoryTeller::stepSelection }, { 4, &StoryTeller::stepProfile },
      { 1, &StoryTeller::stepDefault },   { 1, &StoryTeller::stepUnitStatus },
      { 1, &StoryTeller::stepUnruly },    { 10, &StoryTeller::stepScene } };
   unsigned all = 0;
   for ( const Choice & choice : choices )
      all += choice.weight;
   unsigned at = chance_.pick( all );
   for ( const Choice & choice : choices ) {
      if ( at < choice.weight ) {
         then( [this, step = choice.step] { ( this->*step )(); } );
         return;
      }
      at -= choice.weight;
   }
}

/// The plug-in goes at any moment and comes back some events later, but not where it could not start: the platform sees
/// to it that each interface has a profile then.
std::optional< Reference::Event > StoryTeller::restart() {
   if ( written_.running ) {
      restartIn_ = -1;
      if ( calm_ > 0 || chance_.pick( 1000u ) >= 5 )
         return {};
      restartIn_ = chance_.percent( 70 ) ? 0 : chance_.pick( 12 );
      return Event{ .kind = chance_.percent( 75 ) ? EventKind::crash : EventKind::unload };
   }
   if ( restartIn_ < 0 || restartIn_-- > 0 )
      return {};
   if ( !written_.resolvable() ) {
      restartIn_ = 0;
      return {};
   }
   return Event{ .kind = EventKind::start };
}

// ---- links that follow shutdowns

void StoryTeller::watchShutdowns() {
   const auto items =
      published_.counters[numStartIntfMonInUnits] + published_.counters[numStopIntfMonInUnits];
   spent_ += world_.itemCost * ( items >= itemsSeen_ ? items - itemsSeen_ : items );
   itemsSeen_ = items;
   if ( !manner_.linksFall )
      return;
   for ( const auto & [intf, since] : published_.shut )
      if ( shut_.insert( intf ).second )
         reactions_.push_back( intf );
   for ( auto at = shut_.begin(); at != shut_.end(); ) {
      if ( published_.shut.contains( *at ) ) {
         ++at;
         continue;
      }
      reactions_.push_back( *at );
      at = shut_.erase( at );
   }
}

std::optional< Reference::Event > StoryTeller::linkReaction() {
   if ( reactions_.empty() || calm_ > 0 || chance_.percent( 50 ) )
      return {};
   const Intf intf = reactions_.front();
   reactions_.pop_front();
   if ( !written_.links.contains( intf ) )
      return {};
   const bool up = !shut_.contains( intf ) && !unplugged_.contains( intf );
   return Event{ .kind = up ? EventKind::linkUp : EventKind::linkDown, .intf = intf };
}

// ---- time and traffic

double StoryTeller::now() const { return time_ + spent_; }

void StoryTeller::noteTime( const Event & event ) {
   if ( event.kind != EventKind::time )
      return;
   time_ = std::max( time_, event.to );
   spent_ = 0;
}

void StoryTeller::pass( double seconds ) {
   then( [this, seconds] { passTo( now() + seconds ); } );
}

/// Goes on to the next tick at which a timer may be due, and then again. Counters stand still within one event, so none
/// passes two ticks at which somebody looks at them.
void StoryTeller::passTo( double target ) {
   frameworkLooks();
   if ( !events_.empty() ) {
      script_.push_front( [this, target] { passTo( target ); } );
      return;
   }
   double to = std::max( target, now() );
   bool due = false;
   for ( const auto & [intf, monitor] : published_.intfMonitors ) {
      const double tick =
         monitor.timer ? std::max( std::ceil( *monitor.timer ), std::floor( now() ) + 1 ) : to;
      if ( monitor.timer && tick <= to ) {
         to = tick;
         due = true;
      }
   }
   if ( chance_.percent( 15 ) )
      to = std::min( to, std::floor( now() ) + 1 );
   if ( due || chance_.percent( 30 ) )
      countTraffic( to );
   tell( { .kind = EventKind::time, .to = to } );
   if ( to < target )
      script_.push_front( [this, target] { passTo( target ); } );
}

void StoryTeller::countTraffic( double until ) {
   const double seconds = until - counted_;
   if ( seconds <= 0 )
      return;
   counted_ = until;
   for ( auto & [port, t] : traffic_ ) {
      if ( t.inRate == 0 && t.outRate == 0 )
         continue;
      const double in = t.inRest + seconds * static_cast< double >( t.inRate );
      const double out = t.outRest + seconds * static_cast< double >( t.outRate );
      t.inRest = in - std::floor( in );
      t.outRest = out - std::floor( out );
      t.in += static_cast< std::uint64_t >( in );
      t.out += static_cast< std::uint64_t >( out );
      if ( written_.counters.contains( port ) )
         tell(
            { .kind = EventKind::octets,
              .intf = port,
              .in = t.in,
              .out = t.hasOut ? std::optional( t.out ) : std::nullopt } );
   }
}

void StoryTeller::rateIs( Intf port, std::uint64_t in, std::uint64_t out ) {
   countTraffic( now() );
   traffic_[port].inRate = in;
   traffic_[port].outRate = out;
}

/// Octets a second, often about the threshold of a profile or exactly at it.
std::uint64_t StoryTeller::someRate() {
   if ( chance_.percent( 45 ) || written_.profiles.empty() )
      return 0;
   if ( chance_.percent( 15 ) )
      return 1u << chance_.pick( 30 );
   const double threshold = chance_.elementOf( written_.profiles ).second.thresholdKbps * 125;
   const double rate = threshold * chance_.of( { 0.5, 1.0, 1.0, 1.0, 2.0 } );
   const double octets = std::max( 0.0, rate + chance_.pick( 3 ) - 1 );
   return static_cast< std::uint64_t >( chance_.percent( 60 ) ? rate : octets );
}

// ---- choices

StoryTeller::Intf StoryTeller::somePort() {
   Intf intf = someIntf();
   while ( !is( intf, IntfKind::ethernet ) )
      intf = someIntf();
   return intf;
}

StoryTeller::Profile StoryTeller::someProfile() {
   return written_.profiles.empty() ? none : chance_.elementOf( written_.profiles ).first;
}

StoryTeller::Intf
StoryTeller::someMonitored( const std::function< bool( Intf, const Reference::IntfMonitor & ) > & test ) {
   std::vector< Intf > found;
   for ( const auto & [intf, monitor] : published_.intfMonitors )
      if ( test( intf, monitor ) )
         found.push_back( intf );
   return found.empty() ? none : chance_.elementOf( found );
}

StoryTeller::Unit StoryTeller::someUnitIn( std::initializer_list< int > states ) {
   std::vector< Unit > found;
   for ( const auto & [unit, status] : written_.units )
      if ( std::find( states.begin(), states.end(), status.state ) != states.end() )
         found.push_back( unit );
   return found.empty() ? none : chance_.elementOf( found );
}

bool StoryTeller::someMonitorWithoutProfile() const {
   return std::any_of( published_.intfMonitors.begin(), published_.intfMonitors.end(), []( const auto & m ) {
      return m.second.profile == none;
   } );
}

void StoryTeller::settle() {
   if ( !published_.backlog.empty() ) {
      tell( { .kind = EventKind::turn } );
      script_.push_front( [this] { settle(); } );
   }
}

} // namespace Tests
