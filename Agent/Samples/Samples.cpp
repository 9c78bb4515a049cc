#include "Agent/Samples/Samples.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <utility>

namespace Agent {

namespace {

constexpr double period = SampleSource::period;
constexpr Vel::U64 stepsPerMinute = fineRing.samplesPerBlock;
constexpr Vel::U64 stepsPerDay = 86400 / SampleSource::period;
constexpr Vel::U64 stepsPerWeek = SampleSource::range / SampleSource::period;
static_assert( fineRing.step == SampleSource::period && fineRing.step * stepsPerMinute == minuteRing.step );
static_assert(
   ( fineRing.blocks - 1 ) * fineRing.samplesPerBlock * fineRing.step == SampleSource::fineRange );
static_assert(
   ( minuteRing.blocks - 1 ) * minuteRing.samplesPerBlock * minuteRing.step == SampleSource::range );

/// The step that a tick ends, in those of the clock. Ticks are the ends of steps.
double stepEndedAt( double time ) { return std::floor( ( time - period / 2 ) / period ); }

} // namespace

Samples::Samples(
   Vel::Ptr< Cog::Scheduler > scheduler, Vel::Ptr< Cog::TimerWheel > wheel, RateReader::Model model,
   std::string folder, Hooks hooks )
   : scheduler_( std::move( scheduler ) ),
     rates_( std::move( model ) ),
     folder_( std::move( folder ) ),
     hooks_( std::move( hooks ) ),
     self_( std::make_shared< Samples * >( this ) ) {
   begin();
   tick_.is( wheel, this ).hasNotificationActiveIs( true );
   tick_->timeMinIs( ( stepEndedAt( now() ) + 2 ) * period );
}

Samples::~Samples() { *self_ = nullptr; }

// ---- a tick

/// Without the note of an earlier agent nothing is kept: it would get into the way of what that one has kept.
void Samples::begin() {
   if ( const std::string problem = folder_.open(); !problem.empty() )
      return failed( problem );
   const auto note = folder_.content( noteName );
   noted_ = note ? SampleTime::parse( *note ) : std::nullopt;
   takePresent();
   double newest = 0;
   if ( !noted_ )
      for ( const std::string & interface : folder_.interfaces() )
         if ( const auto step = SampleFile( interface ).newest( folder_.descriptor() ) )
            newest = std::max( newest, static_cast< double >( *step ) * period );
   const double clock = now();
   time_ = SampleTime::begin( noted_, hooks_.clock, clock, hooks_.wallTime( clock ), newest );
   lastStep_ = stepOf( stepEndedAt( clock ) );
   nextCheck_ = lastStep_;
}

/// A step of the clock in the time of the samples.
Vel::U64 Samples::stepOf( double step ) const {
   return static_cast< Vel::U64 >( std::max( 0.0, step + time_->base / period ) );
}

void Samples::handleTick() {
   const double step = stepEndedAt( now() );
   // The end of the next one, if there is time enough until then.
   tick_->timeMinIs( ( step + 2 ) * period );
   if ( !hooks_.countersFresh() )
      return;
   rates_.read( now() );
   if ( !time_ )
      begin();
   else if ( const std::string problem = folder_.open(); !problem.empty() )
      failed( problem );
   if ( time_ ) {
      lastStep_ = stepOf( step );
      take();
   }
   if ( folder_.descriptor() >= 0 ) {
      keepPresent();
      note();
      if ( lastStep_ >= nextCheck_ )
         findOld();
   }
   for ( const auto & call : ticked_ )
      call();
   if ( !working_ )
      work();
}

void Samples::take() {
   for ( const auto & [intf, rates] : rates_.all() ) {
      auto file = files_.find( intf.name() );
      if ( file == files_.end() )
         file = files_.try_emplace( std::string( intf.name() ), std::string( intf.name() ) ).first;
      file->second.add(
         lastStep_, { static_cast< float >( rates.inBitsRate ), static_cast< float >( rates.outBitsRate ) } );
   }
   // Who has waited since the tick before comes first.
   const auto next = toWrite_.empty() ? files_.begin() : files_.lower_bound( toWrite_.front() );
   toWrite_.clear();
   const auto queue = [this]( auto & file ) {
      if ( !file.second.keep() || isOver( file.second ) )
         toWrite_.push_back( file.first );
   };
   std::for_each( next, files_.end(), queue );
   std::for_each( files_.begin(), next, queue );
}

/// Whether it has had no sample for so long that its minute is over.
bool Samples::isOver( const SampleFile & file ) const { return file.lastStep() + stepsPerMinute < lastStep_; }

namespace {
/// An interface and its minute, as they stand one behind the other in one file.
struct PresentMinute {
   char name[32] = {};
   SampleBlock minute;
};
static_assert( sizeof( PresentMinute ) == 32 + sizeof( SampleBlock ) && Wire::IntfId::maxName < 32 );
} // namespace

/// The minute of all interfaces in one write, so that each has a file to be opened and written only once a minute.
void Samples::keepPresent() {
   std::string text;
   text.reserve( files_.size() * sizeof( PresentMinute ) );
   for ( const auto & [interface, file] : files_ )
      for ( const SampleBlock & minute : file.present() ) {
         PresentMinute present{ {}, minute };
         std::memcpy( present.name, interface.data(), std::min( interface.size(), sizeof present.name - 1 ) );
         text.append( reinterpret_cast< const char * >( &present ), sizeof present );
      }
   if ( const std::string problem = folder_.contentIs( presentName, text ); !problem.empty() )
      failed( problem );
}

/// What an earlier agent has kept so.
void Samples::takePresent() {
   const std::string text = folder_.content( presentName ).value_or( "" );
   PresentMinute present;
   for ( std::size_t at = 0; at + sizeof present <= text.size(); at += sizeof present ) {
      std::memcpy( &present, text.data() + at, sizeof present );
      present.name[sizeof present.name - 1] = '\0';
      const std::string problem =
         SampleFile( present.name ).presentIs( folder_.descriptor(), present.minute );
      if ( !problem.empty() )
         failed( folder_.path() + "/" + problem );
   }
}

/// Once a minute, and when wall time has been set.
void Samples::note() {
   SampleTime present = *time_;
   present.clockTime = now();
   present.wallTime = hooks_.wallTime( now() );
   const auto ahead = []( const SampleTime & time ) { return time.wallTime - time.clockTime; };
   if (
      noted_ && noted_->clock == present.clock && noted_->base == present.base &&
      present.clockTime - noted_->clockTime < minuteRing.step &&
      std::abs( ahead( present ) - ahead( *noted_ ) ) < SampleTime::grid / 2 )
      return;
   if ( const std::string problem = folder_.contentIs( noteName, present.text() ); !problem.empty() )
      return failed( problem );
   noted_ = present;
}

void Samples::failed( const std::string & text ) {
   failed_ = true;
   if ( !problem_ )
      problem_ = { now(), text };
   else
      problem_->text = text;
}

// ---- files

/// Some of what is to be done with files; the rest in later turns.
void Samples::work() {
   if ( folder_.descriptor() < 0 )
      return;
   const double begin = scheduler_->liveTime();
   for ( unsigned files = 0; !toWrite_.empty() || !toCheck_.empty(); ++files ) {
      if ( files == filesPerTurn || scheduler_->liveTime() - begin > longestWrite )
         return workSoon();
      auto & queue = toWrite_.empty() ? toCheck_ : toWrite_;
      const std::string interface = std::move( queue.front() );
      queue.pop_front();
      if ( &queue == &toWrite_ )
         write( interface );
      else
         forgetOld( interface );
   }
   if ( !std::exchange( failed_, false ) )
      problem_.reset();
}

void Samples::workSoon() {
   working_ = true;
   scheduler_->post( [self = self_] {
      if ( Samples * const samples = *self ) {
         samples->working_ = false;
         samples->work();
      }
   } );
}

void Samples::write( const std::string & interface ) {
   const auto file = files_.find( interface );
   if ( file == files_.end() )
      return;
   std::string problem = file->second.write( folder_.descriptor() );
   if ( isOver( file->second ) ) {
      if ( problem.empty() )
         problem = file->second.finish( folder_.descriptor() );
      files_.erase( file );
   }
   if ( !problem.empty() )
      failed( folder_.path() + "/" + problem );
}

void Samples::findOld() {
   nextCheck_ = lastStep_ + stepsPerDay;
   for ( std::string & interface : folder_.interfaces() )
      toCheck_.push_back( std::move( interface ) );
}

void Samples::forgetOld( const std::string & interface ) {
   if ( files_.count( interface ) )
      return;
   const auto newest = SampleFile( interface ).newest( folder_.descriptor() );
   // One that holds nothing of ours may be another version's.
   const double week = static_cast< double >( range );
   const bool old =
      newest ? *newest + stepsPerWeek < lastStep_
             : folder_.changed( SampleFile::fileName( interface ) ) + week < hooks_.wallTime( now() );
   if ( old )
      folder_.fileDel( SampleFile::fileName( interface ) );
}

// ---- what others ask

std::optional< Interface::IntfRates > Samples::rate( const Wire::IntfId & intf ) const {
   const Interface::IntfRates * const rates = rates_.rate( intf );
   if ( !rates || now() - rates->sampleTime > freshFor )
      return std::nullopt;
   return *rates;
}

bool Samples::has( const std::string & name ) const {
   return files_.count( name ) || folder_.has( SampleFile::fileName( name ) );
}

SampleCurve Samples::curve( const std::string & name, double from, double to ) const {
   // A little less may be meant by an hour ago.
   const bool fine = from >= now() - fineRange - 1;
   const SampleRing & ring = fine ? fineRing : minuteRing;
   const double base = time_ ? time_->base : 0;
   const auto stepAt = [&]( double time ) { return ( time + base ) / ring.step; };
   const auto ended = static_cast< double >( fine ? lastStep_ + 1 : lastStep_ / stepsPerMinute + 1 );
   const double first = std::max( 0.0, std::floor( stepAt( std::max( from, now() - range ) ) ) );
   const double last = std::min( std::ceil( stepAt( to ) ), ended );
   SampleCurve curve;
   curve.step = ring.step;
   curve.start = first * ring.step - base;
   std::vector< Sample > samples( last > first ? static_cast< std::size_t >( last - first ) : 0 );
   const auto file = files_.find( name );
   if ( file != files_.end() )
      file->second.read( folder_.descriptor(), ring, static_cast< Vel::U64 >( first ), samples );
   else
      SampleFile( name ).read( folder_.descriptor(), ring, static_cast< Vel::U64 >( first ), samples );
   for ( const Sample & sample : samples ) {
      curve.in.push_back( sample.in );
      curve.out.push_back( sample.out );
   }
   return curve;
}

} // namespace Agent
