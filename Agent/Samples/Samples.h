#pragma once

#include "Agent/Samples/RateReader.h"
#include "Agent/Samples/SampleFile.h"
#include "Agent/Samples/SampleFolder.h"
#include "Agent/Samples/SampleJournal.h"
#include "Agent/Samples/SampleTime.h"
#include "Platform/Cog/Scheduler.h"
#include "Platform/Cog/TimerWheel.h"

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <set>

/// Purpose: samples what all configured interfaces carry, every 5 seconds, in maintenance or not, and keeps it in a file
/// for each: 5 s for an hour, minutes for a week.
/// Owner: the agent. It watches: what goes wrong with its files is shown, and everything else goes on.
///
/// A tick reads the counters as its turn has them and writes what it has seen of all interfaces into one file, the
/// journal. An interface's own file is written when a minute of it is over, a few files at a time, in turns of their own,
/// so that nobody waits for thousands of files; the same with what an earlier agent has left in the journal. Nothing is
/// synced.
///
/// Invariants:
/// 1. Ticks are multiples of 5 s of the agent's clock. A turn that comes late is the tick that it is nearest to; those
///    that it has missed have no sample.
/// 2. A file of which no sample is younger than a week is removed, within a day. So an interface that is not
///    configured any more is forgotten when its last sample is.
/// 3. Of an interface that is gone something is in memory for an hour at most, whatever keeps it from being written.
namespace Agent {

class Samples final : public SampleSource {
 public:
   /// Files that are written in one turn, if that takes no longer than `longestWrite` seconds.
   static constexpr unsigned filesPerTurn = 64;
   static constexpr double longestWrite = 0.002;
   /// The file in the folder that says what the times of the samples mean.
   static constexpr char noteName[] = "time";

   /// What only the agent knows. All given.
   struct Hooks {
      /// Whether the counters are those of this turn; reads them unless they are.
      std::function< bool() > countersFresh;
      /// Wall time of a time of the clock, in seconds.
      std::function< double( double ) > wallTime;
      /// Which clock it is (SampleTime).
      std::string clock;
   };
   /// `folder`: where the files are; made if it is missing.
   Samples(
      Vel::Ptr< Cog::Scheduler > scheduler, Vel::Ptr< Cog::TimerWheel > wheel, RateReader::Model model,
      std::string folder, Hooks hooks );
   ~Samples();
   Samples( const Samples & ) = delete;
   Samples & operator=( const Samples & ) = delete;

   const SampleSource::Rates & rates() const override { return rates_.all(); }
   std::optional< Interface::IntfRates > rate( const Wire::IntfId & intf ) const override;
   bool has( const std::string & name ) const override;
   SampleSteps steps( double from, double to ) const override;
   using SampleSource::curve;
   SampleCurve curve( const std::string & name, const SampleSteps & steps ) const override;
   void whenTicked( std::function< void() > call ) override { ticked_.push_back( std::move( call ) ); }

   /// Something that is wrong with the files, since when; nothing: all is well.
   struct Problem {
      double since;
      std::string text;
   };
   const std::optional< Problem > & problem() const { return problem_; }

 private:
   struct Tick final : Cog::TimerReactor< Samples > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->handleTick(); }
   };
   void handleTick();
   void begin();
   void timeIsKnown();
   SampleFile & file( std::string_view interface );
   void take();
   void keep();
   void queueDue();
   void note();
   bool isIdle() const { return toScan_.empty() && toWrite_.empty() && toCheck_.empty(); }
   void workSoon();
   void work();
   void workOne();
   void scan( const std::string & interface );
   void write( const std::string & interface );
   void forgetOld( const std::string & interface );
   void findOld();
   void failed( const std::string & text );
   void tickFailed( const std::string & text );
   void problemMayBeOver();
   bool isOver( const SampleFile & file ) const;
   bool isGivenUp( const SampleFile & file ) const;
   void giveUp();
   Vel::U64 stepOf( double step ) const;
   /// What is of the time before this step belongs into the files.
   Vel::U64 due() const {
      return std::max( lastStep_ - lastStep_ % fineRing.samplesPerBlock, notInJournal_ );
   }
   double now() const { return scheduler_->currentTime(); }

   Vel::Ptr< Cog::Scheduler > scheduler_;
   RateReader rates_;
   SampleFolder folder_;
   Hooks hooks_;
   bool begun_ = false; ///< the folder has been open, and what an earlier agent has left is taken
   std::optional< SampleTime > time_;  ///< nothing: it is not known yet, and nothing is kept
   std::optional< SampleTime > noted_; ///< as it is on disk
   std::map< std::string, SampleFile, std::less<> > files_; ///< of what is sampled, by name
   SampleJournal journal_;
   /// Interfaces whose files are to be looked through for the time, to be written, to be looked at for their age.
   std::deque< std::string > toScan_, toWrite_, toCheck_;
   Vel::U64 newestScanned_ = 0; ///< a step behind all that are there, as far as is known
   Vel::U64 notInJournal_ = 0;  ///< before this step there may be something that is only in memory
   std::vector< std::function< void() > > ticked_;
   std::optional< Problem > problem_;
   bool tickFailed_ = false;           ///< the last one
   std::set< std::string > unwritten_; ///< interfaces whose files could not be written the last time
   Vel::U64 lastStep_ = 0;             ///< of the last tick, in the time of the samples
   Vel::U64 nextCheck_ = 0;            ///< step after which old files are looked for again
   bool working_ = false;              ///< a turn for it is posted
   std::shared_ptr< Samples * > self_; ///< shared with posted tasks, which may outlive this object
   Vel::Watch< Tick > tick_;
};

} // namespace Agent
