#include "MaintenancePlugin/DrainWatchSm.h"
#include "Platform/Cog/ManualClock.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <unordered_map>
#include <vector>

/// What one sample of an Ethernet port costs from its timer to its next timer, while its unit waits for the traffic to
/// go: timer, counters, rates, record, the unit's aggregate, threshold, drain test, shutdown decision, traces that are
/// off, re-arming. All interfaces are due in the same turn, as they are when their units enter together.
/// Floor: the same work on plain structs, made one by one as interfaces come and go, with a look-up by name wherever
/// one part is known to another by name only: the port's counters, the interface whose rates have changed, its unit,
/// the shut interfaces.
/// A second pair of rows, without a limit, shows the least that could ever do it: one array of structs, in the order
/// of the timers, all pointers resolved once, nothing looked up but the counters.
namespace {

using Vel::U32;
using Vel::U64;
using Wire::IntfId;

constexpr int intfsPerUnit = 100;
constexpr double period = 5;
constexpr double thresholdKbps = 1;

IntfId port( int i ) {
   return Wire::EthIntfId( "Ethernet" + std::to_string( i / 64 + 1 ) + '/' + std::to_string( i % 64 + 1 ) );
}

/// Octets by which the counters of a port go on in one period: always more than the threshold, always another rate.
U64 octets( int i, U64 round ) { return 100000 + ( static_cast< U64 >( i ) * 7 + round * 1001 ) % 100000; }

// ---- the floor

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

std::string unitName( int u ) { return "unit" + std::to_string( u ); }

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

// ---- ours

/// The plug-in's root over models in memory, all units entering.
class World {
   using CounterDir = Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir;
   using Counter = Interface::IntfCounterMasquerade::EthIntfCounter;
   using ProfileType = Maintenance::Profile::ProfileType;

 public:
   explicit World( int count ) {
      Vel::System::clockIs( clock_ );
      auto profile = Vel::make< IntfMaintenanceProfile::Status >( "default" );
      profile->drainWatchThresholdInKbpsIs( thresholdKbps );
      profile->drainWatchLoadIntervalIs( 10 );
      profiles_->statusPut( "default", profile );
      defaultProfile_->profileNameIs( "default" );
      for ( int i = 0; i < count; ++i )
         portIs( i );
      root_ = DrainWatchSmIs();
      for ( int u = 0; u * intfsPerUnit < count; ++u )
         enter( unitName( u ) );
      clock_->runUntilIdle();
   }
   ~World() {
      root_ = nullptr;
      Vel::System::clockIs( nullptr );
   }
   World( const World & ) = delete;
   World & operator=( const World & ) = delete;

   void traffic( U64 round ) {
      for ( int i = 0; Counter * counter : current_ ) {
         auto statistics = counter->statistics();
         statistics.inOctets += octets( i, round );
         statistics.outOctets = Cog::MaybeU63( statistics.outOctets.value() + octets( i, round ) / 2 );
         ++i;
         counter->statisticsIs( statistics );
      }
   }
   void goOn() { clock_->advance( period ); }
   U64 inRate() const {
      return units_->status( unitName( ( static_cast< int >( current_.size() ) - 1 ) / intfsPerUnit ) )
         ->aggTrafficRate()
         .inRate;
   }
   U32 samples() const {
      return records_->monIntfStatus( port( static_cast< int >( current_.size() ) - 1 ) )->totalSamples();
   }

 private:
   void portIs( int i ) {
      const IntfId intf = port( i );
      const std::string unit = unitName( i / intfsPerUnit );
      current_.push_back( counters_->intfCounterDirIs( intf )->counterIs( "current" ) );
      links_->intfStatusIs( intf )->operStatusIs( Interface::operUp );
      const Maintenance::GroupKey group{ Maintenance::GroupType::interfaceGroup, unit };
      auto * entry = intfToGroup_->intfToGroupIs( intf );
      entry->selectedProfileIs(
         ProfileType::interfaceProfile,
         { ProfileType::interfaceProfile, Maintenance::Profile::defaultProfileName } );
      entry->groupIs( group );
      groups_->statusIs( group )->intfIs( intf );
      groupToUnit_->mappingIs( group, unit );
   }
   void enter( const std::string & unit ) {
      const std::string instance = unit + "#1";
      auto * status = units_->statusIs( unit );
      status->stateIs( Maintenance::Unit::UnitState::enterInProgress );
      status->genIdIs( 1 );
      status->maintEnterInstanceNameIs( instance );
      auto * progress = enterProgress_->progressIs( instance );
      progress->stageStatusIs( MaintenanceMode::stageName, Stage::stageRunning );
      enterCompletion_->statusIs( instance, Stage::stageRunning );
      progress->stageIs( MaintenanceMode::stageName );
   }
   template < class T >
   static Vel::Ptr< const T > readOnly( const Vel::Ptr< T > & entity ) {
      return entity;
   }
   Vel::Ptr< MaintenanceMode::DrainWatchSm > DrainWatchSmIs() const {
      return MaintenanceMode::DrainWatchSm::DrainWatchSmIs(
         readOnly( counters_ ), Vel::Ptr< const Lag::Config >(), Vel::Ptr< const Bridging::VlanStatusDir >(),
         readOnly( links_ ), units_, Vel::Ptr< const Maintenance::MaintenanceGroup::ConfigDir >(),
         readOnly( groups_ ), readOnly( profiles_ ), readOnly( intfToGroup_ ), readOnly( groupToUnit_ ),
         cause_, records_, readOnly( defaultProfile_ ), readOnly( enterCompletion_ ),
         Vel::Ptr< const Stage::CompletionStatusDir >(), Vel::Ptr< Stage::AgentConfig >(),
         Vel::Ptr< Stage::AgentConfig >(), Vel::Ptr< Stage::AgentStatus >(), Vel::Ptr< Stage::AgentStatus >(),
         readOnly( enterProgress_ ), Vel::Ptr< const Stage::ProgressDir >() );
   }

   template < class T >
   using Owned = const Vel::Ptr< T >;
   Owned< Cog::ManualClock > clock_ = Vel::make< Cog::ManualClock >();
   Owned< CounterDir > counters_ = Vel::make< CounterDir >();
   Owned< Interface::AllIntfStatusDir > links_ = Vel::make< Interface::AllIntfStatusDir >();
   Owned< Maintenance::Unit::StatusDir > units_ = Vel::make< Maintenance::Unit::StatusDir >();
   Owned< IntfGroup::StatusDir > groups_ = Vel::make< IntfGroup::StatusDir >();
   Owned< IntfMaintenanceProfile::StatusDir > profiles_ = Vel::make< IntfMaintenanceProfile::StatusDir >();
   Owned< IntfMaintenance::IntfToGroupDir > intfToGroup_ = Vel::make< IntfMaintenance::IntfToGroupDir >();
   Owned< Maintenance::GroupToUnitDir > groupToUnit_ = Vel::make< Maintenance::GroupToUnitDir >();
   Owned< Errdisable::CauseStatus > cause_ = Vel::make< Errdisable::CauseStatus >( "maintenance-shutdown" );
   Owned< Maintenance::MonIntfStatusDir > records_ = Vel::make< Maintenance::MonIntfStatusDir >();
   Owned< Maintenance::Profile::DefaultProfile > defaultProfile_ =
      Vel::make< Maintenance::Profile::DefaultProfile >();
   Owned< Stage::CompletionStatusDir > enterCompletion_ = Vel::make< Stage::CompletionStatusDir >();
   Owned< Stage::ProgressDir > enterProgress_ = Vel::make< Stage::ProgressDir >();
   std::vector< Counter * > current_;
   Vel::Ptr< MaintenanceMode::DrainWatchSm > root_;
};

/// A world is made once for all runs of its benchmark; it is large, so there is one at a time.
template < class W >
W & worldOf( int count ) {
   static int made = 0;
   static std::unique_ptr< W > world;
   if ( made != count ) {
      world = nullptr;
      world = std::make_unique< W >( count );
      made = count;
   }
   return *world;
}

U64 expectedInRate( int count, U64 round ) {
   U64 sum = 0;
   for ( int i = count - intfsPerUnit; i < count; ++i )
      sum += static_cast< U64 >( static_cast< double >( octets( i, round ) * 8 ) / period + 0.5 );
   return sum;
}

template < class W >
void samples( benchmark::State & state, int count, const char * limit ) {
   W & world = worldOf< W >( count );
   for ( auto _ : state ) {
      state.PauseTiming();
      const U64 round = world.samples();
      world.traffic( round );
      state.ResumeTiming();
      world.goOn();
      state.PauseTiming();
      if ( world.samples() != round + 1 || world.inRate() != expectedInRate( count, round ) )
         return state.SkipWithError( "not sampled as it should be" );
      state.ResumeTiming();
   }
   state.SetItemsProcessed( state.iterations() * count );
   state.SetLabel( limit );
}

bool registered = [] {
   const auto add = []( const std::string & name, auto run, int count, const char * limit ) {
      benchmark::RegisterBenchmark( name.c_str(), run, count, limit );
   };
   for ( const int count : { 1000, 10000, 100000 } ) {
      const std::string row = "sample of a port, " + std::to_string( count ) + " monitored";
      add( row + "/floor", samples< BareWorld< Parts::lookedUp > >, count, "" );
      add( row + "/ours", samples< World >, count, count == 10000 ? "at most 3 x" : "" );
   }
   for ( const int count : { 1000, 10000, 100000 } ) {
      const std::string row = "the same beside one array, " + std::to_string( count );
      add( row + "/floor", samples< BareWorld< Parts::resolved > >, count, "" );
      add( row + "/ours", samples< World >, count, "" );
   }
   return true;
}();

} // namespace
