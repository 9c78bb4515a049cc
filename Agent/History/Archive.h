#pragma once

#include "Agent/History/RecordJson.h"
#include "Platform/Cog/Scheduler.h"
#include "Platform/Cog/TimerWheel.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

/// Purpose: files records of maintenances that are closed, keeps the last ones, and gives out records and lists.
/// Owner: the agent's views.
///
/// Order: a record is closed and committed; in a later turn its file is written, whole or not at all, then it becomes a
/// summary. A crash in between files it again, with the same result. A file is removed after the commit that has
/// forgotten its summary; what a crash leaves of that is removed at the next start.
///
/// What cannot be written stays in the state store, is a problem that is shown, and is tried again. Nothing waits for it.
namespace Agent {

class Archive {
 public:
   /// Seconds after which a file that could not be written is tried again.
   static constexpr double againAfter = 60;
   /// Records that wait for a file. The oldest of more becomes a summary without one.
   static constexpr Vel::U32 mostWaiting = 50;
   /// Curves that are read in one turn: each is a file. Before a record is filed they are collected over several turns.
   static constexpr Vel::U32 curvesAtOnce = 50;
   /// Interfaces of a record whose curves are shown before it is filed.
   static constexpr Vel::U32 mostLiveCurves = 200;

   struct Hooks {
      /// Wall time of a time of the clock, seconds since 1970. Given.
      std::function< double( double ) > wallTime;
      /// None: records have no curves.
      CurveOf curveOf;
   };
   struct Trouble {
      double since; ///< seconds of the clock
      std::string text;
   };

   /// \param folder  is made when it is missing; belongs to this object
   Archive(
      Vel::Ptr< Cog::Scheduler > scheduler, const Vel::Ptr< Cog::TimerWheel > & wheel, std::string folder,
      Vel::Ptr< HistoryDir > historyDir, Vel::Ptr< const HistoryPeaksDir > peaksDir, Hooks hooks );
   ~Archive();
   Archive( const Archive & ) = delete;
   Archive & operator=( const Archive & ) = delete;

   /// Files what is closed, in a later turn.
   void look();
   /// Why something is not filed; none: all is.
   const std::optional< Trouble > & trouble() const { return trouble_; }

   /// Whether there is a record of the unit.
   bool hasUnit( const std::string & unit ) const;
   /// Summaries as a JSON list, newest first, of records that are open too.
   /// \param unit  empty: of all units
   std::string list( const std::string & unit, std::size_t limit ) const;
   /// A whole record as JSON. Throws Api::Error: notFound, or internal if its file cannot be used.
   std::string record( Vel::U32 id ) const;

 private:
   struct Wakeup final : Cog::TimerReactor< Archive > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->run(); }
   };

   void run();
   enum class Filing { filed, failed, later };
   Filing file( const HistoryRecord & record );
   /// Reads the next curves of a record; whether all are there.
   bool collect( const HistoryRecord & record );
   void becomesSummary( const HistoryRecord & record );
   void leftOversDel();
   std::string path( Vel::U32 id ) const;
   double wallOffset( const HistoryRecord & record ) const;
   std::string textOf( const HistoryRecord & record, const CurveOf & curveOf ) const;
   double now() const { return scheduler_->currentTime(); }

   Vel::Ptr< Cog::Scheduler > scheduler_;
   const std::string folder_;
   const Vel::Ptr< HistoryDir > historyDir_;
   const Vel::Ptr< const HistoryPeaksDir > peaksDir_;
   const Hooks hooks_;
   std::optional< Trouble > trouble_;
   /// Of the record that is being filed, by interface.
   std::map< std::string, SampleCurve > curves_;
   Vel::U32 curvesOf_ = 0; ///< its id
   bool cleaned_ = false;
   /// A run is posted; shared with the posted task, which may outlive this object.
   std::shared_ptr< Archive * > self_;
   bool runPosted_ = false;
   Vel::Watch< Wakeup > wakeup_;
};

} // namespace Agent
