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
constexpr Vel::U64 stepsPerHour = SampleSource::fineRange / SampleSource::period;
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

void Samples::begin() {
   if ( const std::string problem = folder_.open(); !problem.empty() )
      return tickFailed( problem );
   begun_ = true;
   journal_.read(
      folder_.descriptor(), [this]( std::string_view interface, const SampleJournal::Steps & samples ) {
         SampleFile & taken = file( interface );
         for ( const auto & [step, sample] : samples )
            taken.add( step, sample );
      } );
   for ( const auto & [interface, file] : files_ )
      toWrite_.push_back( interface );
   const auto note = folder_.content( noteName );
   noted_ = note ? SampleTime::parse( *note ) : std::nullopt;
   if ( !noted_ )
      for ( std::string & interface : folder_.interfaces() )
         toScan_.push_back( std::move( interface ) );
   if ( toScan_.empty() )
      timeIsKnown();
   workSoon();
}

/// Without the note of an earlier agent nothing is kept until the files of that one have been looked through: what is
/// sampled now has to come behind what is there.
void Samples::timeIsKnown() {
   for ( const auto & [interface, file] : files_ )
      newestScanned_ = std::max( newestScanned_, file.lastStep() + 1 );
   const double clock = now();
   time_ = SampleTime::begin(
      noted_, hooks_.clock, clock, hooks_.wallTime( clock ),
      noted_ ? 0 : static_cast< double >( newestScanned_ ) * period );
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
   tickFailed_ = false;
   if ( !begun_ )
      begin();
   else if ( const std::string problem = folder_.open(); !problem.empty() )
      tickFailed( problem );
   if ( time_ ) {
      lastStep_ = stepOf( step );
      take();
      keep();
      if ( folder_.descriptor() < 0 )
         giveUp();
      queueDue();
   }
   problemMayBeOver();
   for ( const auto & call : ticked_ )
      call();
   workSoon();
}

SampleFile & Samples::file( std::string_view interface ) {
   auto found = files_.find( interface );
   if ( found == files_.end() )
      found = files_.try_emplace( std::string( interface ), std::string( interface ) ).first;
   return found->second;
}

void Samples::take() {
   for ( const auto & [intf, rates] : rates_.all() )
      file( intf.name() )
         .add(
            lastStep_,
            { static_cast< float >( rates.inBitsRate ), static_cast< float >( rates.outBitsRate ) } );
}

/// Everything that a tick writes by itself.
void Samples::keep() {
   const bool open = folder_.descriptor() >= 0;
   const std::string problem = open ? journal_.add( folder_.descriptor(), lastStep_, rates_.all() ) : "";
   if ( !problem.empty() )
      tickFailed( folder_.path() + "/" + problem );
   if ( !open || !problem.empty() )
      notInJournal_ = lastStep_ + 1;
   if ( !open )
      return;
   note();
   if ( lastStep_ >= nextCheck_ )
      findOld();
}

/// All whose minute is over. Who has waited since the tick before comes first.
void Samples::queueDue() {
   const auto next = toWrite_.empty() ? files_.begin() : files_.lower_bound( toWrite_.front() );
   toWrite_.clear();
   const auto queue = [this]( auto & file ) {
      if ( file.second.waits( due() ) || isOver( file.second ) )
         toWrite_.push_back( file.first );
   };
   std::for_each( next, files_.end(), queue );
   std::for_each( files_.begin(), next, queue );
}

/// Whether it has had no sample for so long that its minute is over.
bool Samples::isOver( const SampleFile & file ) const { return file.lastStep() + stepsPerMinute < lastStep_; }

/// Whether it has had none for so long that it waits no more.
bool Samples::isGivenUp( const SampleFile & file ) const {
   return file.lastStep() + stepsPerHour < lastStep_;
}

/// While there is no folder nothing can be written, and nothing else lets go of an interface that is gone.
void Samples::giveUp() {
   std::erase_if( files_, [this]( const auto & file ) {
      const bool givenUp = isGivenUp( file.second );
      if ( givenUp )
         unwritten_.erase( file.first );
      return givenUp;
   } );
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
      return tickFailed( problem );
   noted_ = present;
}

void Samples::tickFailed( const std::string & text ) {
   tickFailed_ = true;
   failed( text );
}

void Samples::failed( const std::string & text ) {
   if ( !problem_ )
      problem_ = { now(), text };
   else
      problem_->text = text;
}

/// It is over when the last tick has been kept and no file waits that could not be written.
void Samples::problemMayBeOver() {
   if ( !tickFailed_ && unwritten_.empty() )
      problem_.reset();
}

// ---- files

void Samples::workSoon() {
   if ( working_ || isIdle() )
      return;
   working_ = true;
   scheduler_->post( [self = self_] {
      if ( Samples * const samples = *self ) {
         samples->working_ = false;
         samples->work();
      }
   } );
}

/// Some of what is to be done with files; the rest in later turns.
void Samples::work() {
   const double begin = scheduler_->liveTime();
   for ( unsigned files = 0; !isIdle() && folder_.descriptor() >= 0; ++files ) {
      if ( files == filesPerTurn || scheduler_->liveTime() - begin > longestWrite )
         return workSoon();
      workOne();
   }
   problemMayBeOver();
}

void Samples::workOne() {
   auto & queue = !toScan_.empty() ? toScan_ : !toWrite_.empty() ? toWrite_ : toCheck_;
   const std::string interface = std::move( queue.front() );
   queue.pop_front();
   if ( &queue == &toScan_ )
      scan( interface );
   else if ( &queue == &toWrite_ )
      write( interface );
   else
      forgetOld( interface );
}

void Samples::scan( const std::string & interface ) {
   const auto newest = SampleFile( interface ).newest( folder_.descriptor() );
   newestScanned_ = std::max( newestScanned_, newest.value_or( 0 ) );
   if ( toScan_.empty() )
      timeIsKnown();
}

void Samples::write( const std::string & interface ) {
   const auto file = files_.find( interface );
   if ( file == files_.end() )
      return;
   const bool over = isOver( file->second );
   std::string problem = file->second.write( folder_.descriptor(), over ? SampleFile::end : due() );
   if ( over && problem.empty() )
      problem = file->second.finish( folder_.descriptor() );
   if ( !problem.empty() )
      failed( folder_.path() + "/" + problem );
   const bool givenUp = isGivenUp( file->second );
   if ( problem.empty() || givenUp )
      unwritten_.erase( interface );
   else
      unwritten_.insert( interface );
   if ( ( over && problem.empty() ) || givenUp )
      files_.erase( file );
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

SampleSteps Samples::steps( double from, double to ) const {
   // A little less may be meant by an hour ago.
   const bool fine = from >= now() - fineRange - 1;
   const SampleRing & ring = fine ? fineRing : minuteRing;
   const double base = time_ ? time_->base : 0;
   const auto stepAt = [&]( double time ) { return ( time + base ) / ring.step; };
   const auto ended = static_cast< double >( fine ? lastStep_ + 1 : lastStep_ / stepsPerMinute + 1 );
   const double first = std::max( 0.0, std::floor( stepAt( std::max( from, now() - range ) ) ) );
   const double last = std::min( std::ceil( stepAt( to ) ), ended );
   return {
      first * ring.step - base, ring.step, last > first ? static_cast< std::size_t >( last - first ) : 0 };
}

SampleCurve Samples::curve( const std::string & name, const SampleSteps & steps ) const {
   const SampleRing & ring = steps.step == fineRing.step ? fineRing : minuteRing;
   const double base = time_ ? time_->base : 0;
   const auto first = static_cast< Vel::U64 >( std::llround( ( steps.start + base ) / ring.step ) );
   SampleCurve curve;
   curve.step = ring.step;
   curve.start = steps.start;
   std::vector< Sample > samples( steps.count );
   const auto file = files_.find( name );
   if ( file != files_.end() )
      file->second.read( folder_.descriptor(), ring, first, samples );
   else
      SampleFile( name ).read( folder_.descriptor(), ring, first, samples );
   for ( const Sample & sample : samples ) {
      curve.in.push_back( sample.in );
      curve.out.push_back( sample.out );
   }
   return curve;
}

} // namespace Agent
