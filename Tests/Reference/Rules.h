#pragma once

#include "Tests/Reference/Inputs.h"
#include "Tests/Reference/Model.h"

#include <tuple>

/// Purpose: the rules themselves. Each function is named after what happens; the source files are chapters:
/// Model.cpp (events), Loop.cpp (time, timers, backlog), Units.cpp (start, end, units), Interfaces.cpp (monitors of
/// interfaces), Profiles.cpp, Rates.cpp.
///
/// Whatever a write sets off happens inside the write, depth first, except for the backlog, which waits for a turn.
namespace Reference {

class Model::Rules {
 public:
   explicit Rules( const World & world );
   void apply( const Event & event );

   Published published;
   std::vector< Decision > decisions;

 private:
   /// A timer that is set: its tick, its place in the order of setting, its interface.
   using Timer = std::tuple< double, std::uint64_t, Intf >;

   /// The counters of a port as they were read last for one monitored interface.
   struct Snapshot {
      Octets octets;
      double time = 0;
      Rates rates;
   };
   /// The monitor of an interface. What is shown of it and its record are kept only there.
   struct IntfMon {
      Intf intf = none;
      ProfilePointer profile;
      Sequence< Unit > dependents;
      std::map< Intf, Snapshot > snapshots;
      bool baselineTaken = false;
      Timer timer;
      IntfMonitor * shown = nullptr;
      Record * record = nullptr;
   };
   struct UnitMon {
      Unit unit = none;
      Sequence< Intf > monitored;
      bool initialized = false;
      UnitMonitor * shown = nullptr;
   };

   // ---- Model.cpp
   void decide( Decision::Kind kind, int who, int other = none );
   void count( Counter counter ) { ++published.counters[counter]; }
   IntfKind kindOf( Intf intf ) const;
   bool isSupported( Intf intf ) const { return kindOf( intf ) != IntfKind::subInterface; }
   void applyToLinks( const Event & event );
   void applyToGroups( const Event & event );
   void applyToSelection( Entry & entry, const Event & event );
   void applyToProfiles( const Event & event );
   void applyToUnits( const Event & event );
   void applyToStages( const Event & event );
   void applyToLoop( const Event & event );
   void linkIs( Intf intf, bool up );
   void mappingIs( Group group, Unit unit );
   void mappingDel( Group group, Unit unit );

   // ---- Loop.cpp
   double firstTick() const;
   void setTimer( IntfMon & mon, double time );
   void disarmTimer( IntfMon & mon );
   void fireTimers();
   void turn();
   void runTo( double target );
   bool waitUntil( double due );
   void addToBacklog( Intf intf );
   void processBacklog();
   void processIntf( Intf intf );
   void startIntfMonInUnits( Intf intf );
   void stopIntfMonInUnits( Intf intf );
   void removeIfNoMember( Intf intf, Unit unit );

   // ---- Units.cpp
   void start();
   void crash();
   void unload();
   void deleteStaleCompletions( StageClass stageClass );
   void reconcile( Unit unit, const UnitInput & input );
   void deleteStaleRecords();
   void handleStage( StageClass stageClass, Unit unit, int generation );
   void enterMaintenance( Unit unit, int generation );
   void exitMaintenance( Unit unit, int generation );
   void notifyStageCompletion( Unit unit, int generation, StageClass stageClass );
   void completeStage( Unit unit, int generation, StageClass stageClass );
   void startUnitMon( Unit unit, int generation );
   void deleteUnitMon( Unit unit );
   void startIntfMon( UnitMon & unitMon, Intf intf );
   void stopIntfMon( UnitMon & unitMon, Intf intf );
   void checkDrainedIntfsAndReport( const UnitMon & unitMon );
   void monitoredAdd( UnitMon & unitMon, Intf intf );
   void monitoredDel( UnitMon & unitMon, Intf intf );
   void drainedAdd( UnitMon & unitMon, Intf intf );
   void drainedDel( UnitMon & unitMon, Intf intf );

   // ---- Interfaces.cpp
   IntfMon & createIntfMon( Intf intf, const ProfilePointer & profile, MonState initialState );
   void deleteIntfMon( Intf intf );
   void enterState( IntfMon & mon, MonState state );
   void setMonitoringTimer( IntfMon & mon );
   void handleTimeout( IntfMon & mon );
   void handleEnterMaintSample( IntfMon & mon );
   void handleUnderMaintSample( IntfMon & mon );
   bool isTrafficBelowThreshold( const IntfMon & mon ) const;
   void countSample( IntfMon & mon );
   bool hasTrafficDrained( const IntfMon & mon ) const;
   bool decideShutdown( IntfMon & mon, bool drained );
   void shut( Intf intf );
   void release( Intf intf );
   void notifyDependentUnits( const IntfMon & mon );
   void updateDependentUnitStatus( const IntfMon & mon, bool below );
   void unApplyProfile( IntfMon & mon );

   // ---- Profiles.cpp
   Profile selectedName( Intf intf ) const;
   ProfilePointer selectedProfile( Intf intf ) const;
   bool usesDefault( Intf intf ) const;
   void handOver( IntfMon & mon, const ProfilePointer & profile );
   void reapply( IntfMon & mon );
   void handleProfileMade( Profile profile );
   void handleProfileGone( Profile profile );
   void handleDefaultName();
   void handleShutdown( const ProfilePointer & profile );

   // ---- Rates.cpp
   void sample( IntfMon & mon );
   Rates sampleEthernet( IntfMon & mon, Intf port );
   Rates sampleLag( IntfMon & mon, Intf lag );
   Rates sampleVlan( IntfMon & mon, Intf vlan );
   void publish( IntfMon & mon, const Rates & rates );
   void dependentAdd( IntfMon & mon, Unit unit );
   void dependentDel( IntfMon & mon, Unit unit );
   void replaceInAggregate( UnitPublished & unit, const Rates & subtracted, const Rates & added ) const;
   void rebuildAggregates();

   World world_;
   Inputs inputs_;

   // The clock: the time that stands still during a turn, the time that moves, and how far it may go.
   double now_;
   double live_;
   double target_;

   // The plug-in; all of it empty while it does not run.
   bool running_ = false;
   bool helpersReleased_ = false; ///< it is being unloaded: nobody is left to write completions
   bool aggregating_ = false;
   Table< Unit, UnitMon > unitMons_;
   Table< Intf, IntfMon > intfMons_;
   std::set< Timer > timers_;
   std::uint64_t timersSet_ = 0;
};

} // namespace Reference
