#pragma once

#include "Agent/Model/History.h"
#include "Agent/Model/LinkJournal.h"
#include "Agent/Model/StageCommand.h"
#include "Agent/Model/UnitRun.h"
#include "Platform/Cog/Scheduler.h"
#include "Platform/Cog/TimerWheel.h"
#include "Platform/Model/Errdisable.h"
#include "Platform/Model/IntfGroup.h"
#include "Platform/Model/IntfMaintenance.h"
#include "Platform/Model/IntfMaintenanceProfile.h"
#include "Platform/Model/Maintenance.h"
#include "Platform/Model/MaintenanceGroup.h"
#include "Platform/Model/MaintenanceProfile.h"
#include "Platform/Model/MaintenanceUnit.h"

#include <functional>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

/// Purpose: writes down each maintenance while it goes on, from what is published: nothing is decided here.
/// Owner: the agent's views.
///
/// Invariants:
/// 1. It writes in the turn, inside the write, that it tells of, so both are in one commit.
/// 2. A unit that is not normal has one record that is not closed; a unit that is normal has none. Also after a restart,
///    if an earlier version has written nothing down: then the record begins with what is known.
/// 3. Ids rise and none is given twice.
/// 4. What others do to links (drift) is looked at every `driftPeriod` seconds; all else is told.
/// 5. A sample costs as much as its interface has units: no record is looked at that is not one of theirs. It is in no
///    commit of the state folder unless it begins or ends something.
namespace Agent {

class Recorder {
 public:
   static constexpr double driftPeriod = 5;
   /// Seconds between two times at which new peaks are kept with the rest, where they survive a boot.
   static constexpr double peaksPeriod = 60;
   /// Peaks that are kept at once; more follow at the next looks at drift.
   static constexpr Vel::U32 peaksAtOnce = 500;

   /// All given.
   struct Model {
      Vel::Ptr< const Maintenance::Unit::StatusDir > unitStatusDir;
      Vel::Ptr< const UnitRunDir > unitRunDir;
      Vel::Ptr< const UnitCommandsDir > unitCommandsDir;
      Vel::Ptr< const Maintenance::MonIntfStatusDir > monIntfStatusDir;
      Vel::Ptr< const InsightDir > insightDir;
      Vel::Ptr< const IntfMaintenance::IntfToGroupDir > intfToGroupDir;
      Vel::Ptr< const IntfGroup::StatusDir > intfGroupStatusDir;
      Vel::Ptr< const Maintenance::GroupToUnitDir > groupToUnitDir;
      Vel::Ptr< const IntfMaintenanceProfile::StatusDir > intfProfileStatusDir;
      Vel::Ptr< const Maintenance::Profile::DefaultProfile > defaultIntfProfile;
      Vel::Ptr< const Errdisable::CauseStatus > cause;
      Vel::Ptr< const LinkJournal > journal;
      Vel::Ptr< HistoryDir > historyDir;
      Vel::Ptr< HistoryPeaksDir > peaksDir;
   };
   /// All given. They do not throw.
   struct Hooks {
      /// Wall time of a time of the clock, seconds since 1970.
      std::function< double( double ) > wallTime;
      /// What others have done to a link: "raised", "lowered"; empty: nothing.
      std::function< std::string( const Wire::IntfId & ) > drift;
      /// A record is closed. Called inside the write that closed it.
      std::function< void() > closed;
   };

   Recorder(
      Vel::Ptr< Cog::Scheduler > scheduler, const Vel::Ptr< Cog::TimerWheel > & wheel, Model model,
      Hooks hooks );
   Recorder( const Recorder & ) = delete;
   Recorder & operator=( const Recorder & ) = delete;

   /// Whether an interface that is shut was shut before it had drained. The one answer for all who tell of it.
   bool forced( const Wire::IntfId & intf ) const;
   /// The agent ends: all peaks are kept with the rest.
   void stopped() { keepPeaks( peaksToKeep_.size() ); }

 private:
   using MonIntfStatus = Maintenance::MonIntfStatus;
   struct VelUnitDir final : Vel::ReactorTo< Recorder, Maintenance::Unit::StatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const Vel::String & unit ) override { sm()->handleUnit( unit ); }
   };
   struct VelUnit final : Vel::ReactorTo< Recorder, Maintenance::Unit::Status > {
      using ReactorTo::ReactorTo;
      void onState() override { sm()->handleState( *entity() ); }
   };
   struct VelRunDir final : Vel::ReactorTo< Recorder, UnitRunDir > {
      using ReactorTo::ReactorTo;
      void onUnitRun( const Vel::String & unit ) override { sm()->handleRun( unit ); }
   };
   struct VelRun final : Vel::ReactorTo< Recorder, UnitRun > {
      using ReactorTo::ReactorTo;
      void onStageStart( const Vel::String & stage ) override { sm()->handleStage( *entity(), stage ); }
      void onStageEnd( const Vel::String & stage ) override { sm()->handleStage( *entity(), stage ); }
   };
   struct VelMonIntfDir final : Vel::ReactorTo< Recorder, Maintenance::MonIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onMonIntfStatus( const Wire::IntfId & intf ) override { sm()->handleMonIntf( intf ); }
   };
   struct VelMonIntf final : Vel::ReactorTo< Recorder, MonIntfStatus > {
      using ReactorTo::ReactorTo;
      void onProfileName() override { sm()->handleSample( *entity() ); }
      void onTotalSamples() override { sm()->handleSample( *entity() ); }
      void onNumSamplesAboveThresholdPostMaint() override { sm()->handleSampleUnderMaint( *entity(), true ); }
      void onNumSamplesBelowThresholdPostMaint() override {
         sm()->handleSampleUnderMaint( *entity(), false );
      }
      void onState() override { sm()->handleMonState( *entity() ); }
   };
   struct VelInsightDir final : Vel::ReactorTo< Recorder, InsightDir > {
      using ReactorTo::ReactorTo;
      void onIntf( const Wire::IntfId & intf ) override { sm()->handleInsight( intf ); }
   };
   struct VelInsight final : Vel::ReactorTo< Recorder, IntfInsight > {
      using ReactorTo::ReactorTo;
      void onSince() override { sm()->handleReason( entity()->intfId() ); }
      void onReason() override { sm()->handleReason( entity()->intfId() ); }
   };
   struct VelCause final : Vel::ReactorTo< Recorder, Errdisable::CauseStatus > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const Wire::IntfId & intf ) override { sm()->handleCause( intf ); }
   };
   struct Wakeup final : Cog::TimerReactor< Recorder > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->handleTime(); }
   };

   // ---- units
   void handleUnit( const Vel::String & unit );
   void handleRun( const Vel::String & unit );
   void handleState( const Maintenance::Unit::Status & status );
   void handleStage( const UnitRun & run, const Vel::String & stage );
   /// The record of a unit that is not closed, or null.
   HistoryRecord * recordOf( const Vel::String & unit ) const;
   HistoryRecord & recordNew( const Maintenance::Unit::Status & status, const UnitRun * run );
   void
   wayBackBegins( HistoryRecord & record, const Maintenance::Unit::Status & status, const UnitRun * run );
   /// Takes over why stages have failed; whether one of them has taken the unit back.
   bool takeFailures( HistoryRecord & record, bool enter ) const;
   void close( HistoryRecord & record, double time );
   /// From now on the record of its unit.
   void isOpen( HistoryRecord & record );

   // ---- interfaces
   void handleMonIntf( const Wire::IntfId & intf );
   void handleInsight( const Wire::IntfId & intf );
   void handleReason( const Wire::IntfId & intf );
   void handleCause( const Wire::IntfId & intf );
   void handleSample( const MonIntfStatus & monIntf );
   void handleSampleUnderMaint( const MonIntfStatus & monIntf, bool above );
   void handleMonState( const MonIntfStatus & monIntf );
   void handleTime();
   using UnitNames = std::vector< const Vel::String * >;
   UnitNames unitsOf( const Wire::IntfId & intf ) const;
   HistoryProfile profileOf( const Wire::IntfId & intf ) const;
   /// One interface in one record.
   struct Entry {
      HistoryRecord & record;
      HistoryIntf & intf;
   };
   /// The entries of an interface in the records whose units watch it; makes what is missing, and releases what the unit
   /// does not hold any more.
   std::vector< Entry > entriesOf( const Wire::IntfId & intf );
   /// Its unit does not hold the interface any more.
   void release( HistoryIntf & entry ) const;
   static void endSpike( HistoryIntf & entry, double time );
   /// Whether nothing of what happens to the interface belongs into the entry any more.
   static bool isOver( const HistoryIntf & entry ) {
      return entry.released() > 0 && ( entry.shut() == 0 || entry.raised() > 0 );
   }
   /// Forgets the entries of an interface that are over.
   void forget( const Wire::IntfId & intf );
   /// Null if the record takes no more.
   HistoryIntf * joined( HistoryRecord & record, const MonIntfStatus & monIntf );
   void takeProfile( HistoryIntf & entry ) const;
   void takeSample( HistoryIntf & entry, const MonIntfStatus & monIntf ) const;
   void takePeak( const Entry & entry, const MonIntfStatus & monIntf );
   void keepPeaks( std::size_t most );
   void takeSpike( HistoryIntf & entry, bool above, double bps ) const;
   void takeReason( HistoryIntf & entry ) const;
   void takeDrained( HistoryIntf & entry, const MonIntfStatus & monIntf ) const;
   bool isShut( const Wire::IntfId & intf ) const;
   void takeCause( HistoryIntf & entry ) const;
   void takeDrift( HistoryIntf & entry ) const;
   double now() const { return scheduler_->currentTime(); }

   Vel::Ptr< Cog::Scheduler > scheduler_;
   const Model model_;
   const Hooks hooks_;
   std::map< Vel::String, Vel::Ptr< HistoryRecord > > open_; ///< by unit
   /// The open records with an entry of the interface that is not over; older records first.
   std::unordered_map< Wire::IntfId, std::vector< HistoryRecord * > > entries_;
   std::set< std::pair< Vel::U32, Wire::IntfId > >
      peaksToKeep_;       ///< by record: those that are not kept with the rest
   double peaksKept_ = 0; ///< when, seconds of the clock; all of them
   Vel::Watch< VelUnitDir > unitDir_;
   Vel::Watch< VelRunDir > runDir_;
   Vel::Watch< VelMonIntfDir > monIntfDir_;
   Vel::Watch< VelInsightDir > insightDir_;
   Vel::Watch< VelCause > cause_;
   std::map< Vel::String, Vel::Watch< VelUnit > > units_;
   std::map< Vel::String, Vel::Watch< VelRun > > runs_;
   std::map< Wire::IntfId, Vel::Watch< VelMonIntf > > monIntfs_;
   std::map< Wire::IntfId, Vel::Watch< VelInsight > > insights_;
   Vel::Watch< Wakeup > wakeup_;
};

} // namespace Agent
