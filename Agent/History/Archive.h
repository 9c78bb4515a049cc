#pragma once

#include "Agent/History/RecordJson.h"
#include "Agent/History/WholeFile.h"
#include "Platform/Cog/Scheduler.h"
#include "Platform/Cog/TimerWheel.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Purpose: files records of maintenances that are closed, keeps the last ones, and gives out records and lists.
/// Owner: the agent's views.
///
/// Order: a record is closed and committed; in later turns its file is written, piece by piece, whole or not at all; then
/// there is a summary, and what is left of the record is taken down, again over several turns. A crash in between files it
/// again, with the same result, or goes on taking it down. A file is removed when the commit that has forgotten its
/// summary has succeeded; what a crash leaves of that is removed at the next start.
///
/// Files are worth more than what is known of them: one that the store does not know, since it is another store, is taken
/// in again, and what cannot be made out stays where it is. No record gets an id for which there is a file.
///
/// What cannot be written stays in the state store, is a problem that is shown, and is tried again. Nothing waits for it.
namespace Agent {

class Archive {
 public:
   /// Seconds after which a file that could not be written is tried again.
   static constexpr double againAfter = 60;
   /// Records that wait for a file. The oldest of more becomes a summary without one.
   static constexpr Vel::U32 mostWaiting = 50;
   /// Of one turn: interfaces that are written to a file, each with a curve, which is a file that is read; interfaces of
   /// a filed record that are taken down; files that are taken in again.
   static constexpr Vel::U32 filedAtOnce = 50, takenDownAtOnce = 250, takenInAtOnce = 10;
   /// Bytes of a file in which what is said of all the maintenance ends.
   static constexpr std::size_t mostHead = 256 * 1024;
   /// What the name of a file ends with that bears the id of a record that is not filed: it is another's.
   static constexpr char othersEnding[] = ".other";

   struct Hooks {
      /// Wall time of a time of the clock, seconds since 1970. Given.
      std::function< double( double ) > wallTime;
      /// None: records have no curves.
      CurveOf curveOf;
      /// Calls back when what has been written so far is committed, however long that takes. Given.
      std::function< void( std::function< void() > ) > whenStored;
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

   /// Files what is closed, in later turns.
   void look();
   /// Why something is not filed; none: all is.
   const std::optional< Trouble > & trouble() const { return trouble_; }

   /// Whether there is a record of the unit.
   bool hasUnit( const std::string & unit ) const;
   /// Summaries as a JSON list, newest first, of records that are open too.
   /// \param unit  empty: of all units
   std::string list( const std::string & unit, std::size_t limit ) const;
   /// Gives the next piece of a text; empty: that was all. Throws Api::Error, internal, if it cannot go on. It may outlive this object, but not what its hooks use.
   using Pieces = std::function< std::string() >;
   /// A whole record as JSON. Throws Api::Error: notFound, or internal if its file cannot be used.
   Pieces record( Vel::U32 id ) const;

 private:
   struct Wakeup final : Cog::TimerReactor< Archive > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->run(); }
   };
   /// A file that is written over several turns.
   struct Filing {
      Filing( RecordText itsText, std::string path )
         : text( std::move( itsText ) ), file( std::move( path ) ) {}
      RecordText text;
      WholeFile file;
      bool opened = false;
   };

   // ---- ArchiveFolder.cpp: what is there at the start
   void lookAtFolder();
   /// Takes in the next files that the store does not know; false: there are no more.
   bool takeIn();
   void takeIn( Vel::U32 id );
   bool isLeftOver( Vel::U32 id ) const;

   void run();
   /// Does a part of what there is to do; false: there is nothing, or it has failed.
   bool work();
   bool takeDown();
   bool file();
   bool isWaiting( const HistoryRecord & record ) const {
      return record.ended() > 0 && !historyDir_->summary( record.id() );
   }
   void becomesSummary( const HistoryRecord & record );
   void forgetOld();
   std::string path( Vel::U32 id ) const { return folder_ + "/" + std::to_string( id ) + fileEnding; }
   double wallOffset( const HistoryRecord & record ) const;
   RecordText textOf( const HistoryRecord & record ) const;
   double now() const { return scheduler_->currentTime(); }

   static constexpr char fileEnding[] = ".json";
   Vel::Ptr< Cog::Scheduler > scheduler_;
   const std::string folder_;
   const Vel::Ptr< HistoryDir > historyDir_;
   const Vel::Ptr< const HistoryPeaksDir > peaksDir_;
   const Hooks hooks_;
   std::optional< Trouble > trouble_;
   std::optional< Filing > filing_;
   std::vector< Vel::U32 > unknown_;     ///< files that the store does not know; the newest last
   std::vector< std::string > toRemove_; ///< files, when a commit has succeeded
   /// A run is posted; shared with the posted task, which may outlive this object.
   std::shared_ptr< Archive * > self_;
   bool runPosted_ = false;
   Vel::Watch< Wakeup > wakeup_;
};

} // namespace Agent
