#pragma once

#include "Agent/History/Archive.h"
#include "Agent/History/Recorder.h"
#include "Platform/Cog/ManualClock.h"

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

/// Purpose: what a recorder writes down, and an archive files, of what a test publishes. A unit "u1" with the interfaces
/// et1 and et2 under the profile "fast", which shuts them.
namespace Agent {

struct HistoryRig {
   HistoryRig() {
      Vel::System::clockIs( clock );
      if ( !mkdtemp( folder.data() ) )
         throw std::runtime_error( "no folder for a test: " + folder );
      auto & fast = *profiles->statusIs( "fast" );
      fast.drainWatchThresholdInKbpsIs( 100 );
      fast.drainWatchLoadIntervalIs( 10 );
      fast.shutdownIs( true );
      fast.shutdownMaxDelayIs( 300 );
      defaultProfile->profileNameIs( "fast" );
      for ( const Wire::IntfId & intf : { et1, et2 } ) {
         member( intf );
         intfToGroup->intfToGroup( intf )->selectedProfileIs(
            Maintenance::Profile::ProfileType::interfaceProfile,
            { Maintenance::Profile::ProfileType::interfaceProfile,
              Maintenance::Profile::defaultProfileName } );
      }
      groupToUnit->mappingIs( group, "u1" );
      units->statusIs( "u1" )->stateIs( Maintenance::Unit::UnitState::normal );
      runs->unitRunIs( "u1" );
      start();
   }
   ~HistoryRig() {
      stop();
      Vel::System::clockIs( nullptr );
      std::error_code ignored;
      std::filesystem::remove_all( folder, ignored );
   }
   HistoryRig( const HistoryRig & ) = delete;
   HistoryRig & operator=( const HistoryRig & ) = delete;

   void start() {
      archive.emplace(
         clock, wheel, folder + "/history", dir, peaks,
         Archive::Hooks{
            []( double time ) { return time + wallOffset; },
            [this]( const std::string &, double, double ) {
               ++curvesRead;
               return curve;
            },
            [this]( std::function< void() > call ) {
               whenStored.push_back( std::move( call ) );
               if ( storing )
                  stored();
            } } );
      recorder.emplace(
         clock, wheel,
         Recorder::Model{
            units, runs, commands, monIntfs, insights, intfToGroup, intfGroups, groupToUnit, profiles,
            defaultProfile, cause, journal, dir, peaks },
         Recorder::Hooks{
            []( double time ) { return time + wallOffset; }, [this]( const Wire::IntfId & ) { return drift; },
            [this] { archive->look(); } } );
      clock->runUntilIdle();
   }
   void stop() {
      recorder.reset();
      archive.reset();
   }

   /// What is written is committed.
   void stored() {
      for ( const auto & call : std::exchange( whenStored, {} ) )
         call();
   }
   /// The whole text of a record.
   std::string text( Vel::U32 id ) const {
      std::string whole;
      const Archive::Pieces pieces = archive->record( id );
      for ( std::string piece = pieces(); !piece.empty(); piece = pieces() )
         whole += piece;
      return whole;
   }
   /// The store is a new one; no agent runs.
   void forgetAll() {
      dir->recordDelAll();
      dir->summaryDelAll();
      dir->lastIdIs( 0 );
   }
   double now() const { return clock->currentTime(); }
   Maintenance::Unit::Status & unit() { return *units->status( "u1" ); }
   /// As the stage machinery writes it.
   void state(
      Maintenance::Unit::UnitState state, const std::string & by = "ann", const std::string & reason = "" ) {
      UnitRun & run = *runs->unitRun( "u1" );
      run.byIs( by );
      run.reasonIs( reason );
      run.sinceIs( now() );
      using Maintenance::Unit::UnitState;
      if ( state == UnitState::enterInProgress || state == UnitState::exitInProgress ) {
         run.stageStartDelAll();
         run.stageEndDelAll();
         unit().genIdIs( unit().genId() + 1 );
      }
      unit().stateIs( state );
   }
   void enter() { state( Maintenance::Unit::UnitState::enterInProgress ); }
   void inMaintenance() { state( Maintenance::Unit::UnitState::maintenance ); }
   void exit() { state( Maintenance::Unit::UnitState::exitInProgress, "bob" ); }
   void normal() { state( Maintenance::Unit::UnitState::normal, "bob" ); }

   /// The unit has one more interface.
   void member( const Wire::IntfId & intf ) {
      intfToGroup->intfToGroupIs( intf )->groupIs( group );
      intfGroups->statusIs( group )->intfIs( intf );
   }
   Maintenance::MonIntfStatus & watch( const Wire::IntfId & intf ) {
      auto & monIntf = *monIntfs->monIntfStatusIs( intf, "fast", now() );
      monIntf.stateIs( Maintenance::monIntfStateEnterMaint );
      return monIntf;
   }
   /// As the plug-in publishes one sample.
   void sample( const Wire::IntfId & intf, double bps ) {
      auto & monIntf = *monIntfs->monIntfStatus( intf );
      Interface::IntfRates rates;
      rates.inBitsRate = bps;
      rates.outBitsRate = bps / 2;
      rates.sampleTime = now();
      monIntf.curRatesIs( rates );
      monIntf.totalSamplesInc( 1 );
      const bool below = bps < 100e3;
      if ( monIntf.state() == Maintenance::monIntfStateUnderMaint )
         below ? monIntf.numSamplesBelowThresholdPostMaintInc( 1 )
               : monIntf.numSamplesAboveThresholdPostMaintInc( 1 );
      else
         monIntf.numConsecutiveDrainedSamplesIs( below ? monIntf.numConsecutiveDrainedSamples() + 1 : 0 );
   }
   void underMaint( const Wire::IntfId & intf ) {
      monIntfs->monIntfStatus( intf )->stateIs( Maintenance::monIntfStateUnderMaint );
   }
   void drain( const Wire::IntfId & intf ) {
      sample( intf, 0 );
      sample( intf, 0 );
      underMaint( intf );
   }
   void reason( const Wire::IntfId & intf, Reason reason ) {
      IntfInsight & insight = *insights->intfIs( intf );
      insight.sinceIs( now() );
      insight.reasonIs( reason );
   }
   void advance( double seconds ) { clock->advance( seconds ); }
   HistoryRecord & record( Vel::U32 id = 1 ) { return *dir->record( id ); }
   HistoryIntf & entry( const Wire::IntfId & intf ) { return *record().intf( intf ); }
   std::string path( Vel::U32 id ) const { return folder + "/history/" + std::to_string( id ) + ".json"; }
   /// A whole maintenance without interfaces.
   void maintenance() {
      enter();
      inMaintenance();
      exit();
      normal();
      clock->runUntilIdle();
   }

   static constexpr double wallOffset = 3600;
   const Wire::IntfId et1 = Wire::EthIntfId( "et1" ), et2 = Wire::EthIntfId( "et2" );
   const Maintenance::GroupKey group{ Maintenance::GroupType::interfaceGroup, "uplinks" };
   std::string folder = std::filesystem::temp_directory_path() / "historyXXXXXX";
   std::string drift;
   bool storing = true; ///< what is written is committed at once
   std::vector< std::function< void() > > whenStored;
   SampleCurve curve;
   unsigned curvesRead = 0;
   Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   Vel::Ptr< Cog::TimerWheel > wheel = Vel::make< Cog::TimerWheel >( clock, 1000u, 1800u, true, 1024u );
   Vel::Ptr< Maintenance::Unit::StatusDir > units = Vel::make< Maintenance::Unit::StatusDir >();
   Vel::Ptr< UnitRunDir > runs = Vel::make< UnitRunDir >();
   Vel::Ptr< UnitCommandsDir > commands = Vel::make< UnitCommandsDir >();
   Vel::Ptr< Maintenance::MonIntfStatusDir > monIntfs = Vel::make< Maintenance::MonIntfStatusDir >();
   Vel::Ptr< InsightDir > insights = Vel::make< InsightDir >();
   Vel::Ptr< IntfMaintenance::IntfToGroupDir > intfToGroup = Vel::make< IntfMaintenance::IntfToGroupDir >();
   Vel::Ptr< IntfGroup::StatusDir > intfGroups = Vel::make< IntfGroup::StatusDir >();
   Vel::Ptr< Maintenance::GroupToUnitDir > groupToUnit = Vel::make< Maintenance::GroupToUnitDir >();
   Vel::Ptr< IntfMaintenanceProfile::StatusDir > profiles = Vel::make< IntfMaintenanceProfile::StatusDir >();
   Vel::Ptr< Maintenance::Profile::DefaultProfile > defaultProfile =
      Vel::make< Maintenance::Profile::DefaultProfile >();
   Vel::Ptr< Errdisable::CauseStatus > cause = Vel::make< Errdisable::CauseStatus >( "maintenance-shutdown" );
   Vel::Ptr< LinkJournal > journal = Vel::make< LinkJournal >();
   Vel::Ptr< HistoryDir > dir = Vel::make< HistoryDir >();
   Vel::Ptr< HistoryPeaksDir > peaks = Vel::make< HistoryPeaksDir >();
   std::optional< Archive > archive;
   std::optional< Recorder > recorder;
};

} // namespace Agent
