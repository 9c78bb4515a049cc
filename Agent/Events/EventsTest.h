#pragma once

#include "Agent/Events/Events.h"
#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>
#include <nlohmann/json_fwd.hpp>

namespace Agent {

using nlohmann::json;
using Lines = std::vector< std::string >;

/// Entities as the rest of the agent writes them, by hand: a unit "u1" with et1 and et2.
class EventsTest : public testing::Test {
 protected:
   EventsTest() {
      Vel::System::clockIs( clock );
      profile( "fast", 100 );
      defaultProfile->profileNameIs( "fast" );
      groupToUnit->mappingIs( uplinks, "u1" );
      join( et1 );
      join( et2 );
      units->statusIs( "u1" )->stateIs( Maintenance::Unit::UnitState::normal );
      runs->unitRunIs( "u1" );
      clock->commitHookIs( [this] {
         if ( events )
            events->turnEnds();
         return true;
      } );
      start();
      told();
   }
   ~EventsTest() override {
      events.reset();
      Vel::System::clockIs( nullptr );
   }

   /// The agent is started anew over what is kept.
   void start() {
      make();
      events->started( "1.2.3" );
      turn();
   }
   void make() {
      events.reset();
      wheel = Vel::make< Cog::TimerWheel >( clock, 1000u, 1800u, true, 1024u );
      events = std::make_unique< Events >(
         wheel,
         Events::Model{
            units, runs, commands, Vel::make< UnitTimesDir >(), statuses, intfToGroup, groupToUnit,
            defaultProfile, profiles, records, insights, cause, log, kept },
         Events::Hooks{
            [this] { return clock->currentTime(); }, [this] { return clock->currentTime() + 3600; },
            [this]( const std::string & unit ) { return unit == "u1" ? stage : ""; },
            [this]( const std::string & unit ) { return unit == "u1" && settling; },
            [this]( const Wire::IntfId & intf ) {
               ++driftAsked;
               return intf == et1 ? drift : "";
            },
            [this]( const Wire::IntfId & intf ) { return intf == et1; }, [this] { return problems; },
            [this]( bool begins, const std::string & line ) {
               noted.push_back( ( begins ? "error " : "info " ) + line );
            },
            [this]( bool wrong, const std::string & line ) {
               deeds.push_back( ( wrong ? "warning " : "info " ) + line );
            } } );
   }
   void turn() { clock->runUntilIdle(); }
   void profile( const std::string & name, double kbps ) {
      auto & status = *profiles->statusIs( name );
      status.drainWatchThresholdInKbpsIs( kbps );
      status.drainWatchLoadIntervalIs( 10 );
   }
   void join( const Wire::IntfId & intf ) {
      auto & entry = *intfToGroup->intfToGroupIs( intf );
      entry.groupIs( uplinks );
      entry.selectedProfileIs(
         Maintenance::Profile::ProfileType::interfaceProfile,
         { Maintenance::Profile::ProfileType::interfaceProfile, Maintenance::Profile::defaultProfileName } );
      linkIs( intf, true );
   }
   void leave( const Wire::IntfId & intf ) {
      intfToGroup->intfToGroupDel( intf );
      statuses->intfStatusDel( intf );
   }
   /// "port0", ... in the unit, and nothing told of it.
   std::vector< Wire::IntfId > joinMany( int count ) {
      std::vector< Wire::IntfId > result;
      for ( int i = 0; i < count; ++i ) {
         result.push_back( Wire::EthIntfId( "port" + std::to_string( i ) ) );
         join( result.back() );
      }
      turn();
      told();
      return result;
   }
   void linkIs( const Wire::IntfId & intf, bool up ) {
      auto * status = statuses->intfStatus( intf );
      if ( !status )
         status = statuses->intfStatusIs( intf );
      status->operStatusIs( up ? Interface::operUp : Interface::operDown );
   }
   void enter() {
      auto & run = *runs->unitRun( "u1" );
      run.byIs( "ann" );
      run.reasonIs( "optics" );
      units->status( "u1" )->genIdIs( 1 );
      units->status( "u1" )->stateIs( Maintenance::Unit::UnitState::enterInProgress );
      stage = "drainwatch";
   }
   Maintenance::MonIntfStatus & record( const Wire::IntfId & intf, double bps ) {
      auto & made = *records->monIntfStatusIs( intf, "fast", clock->currentTime() );
      Interface::IntfRates rates;
      rates.inBitsRate = bps;
      rates.sampleTime = clock->currentTime();
      made.curRatesIs( rates );
      return made;
   }
   json event( Vel::U64 sequence ) const;
   json last() const;
   /// "unit u1 state", ... of what has happened since the last look.
   Lines told();
   /// The events of the word, and all `changes` in them, since the last look.
   struct Told {
      unsigned events = 0, changes = 0;
   };
   Told toldOf( const std::string & word );

   const Wire::IntfId et1 = Wire::EthIntfId( "et1" ), et2 = Wire::EthIntfId( "et2" ),
                      et3 = Wire::EthIntfId( "et3" );
   const Maintenance::GroupKey uplinks{ Maintenance::GroupType::interfaceGroup, "uplinks" };
   const Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   Vel::Ptr< Cog::TimerWheel > wheel;
   const Vel::Ptr< Maintenance::Unit::StatusDir > units = Vel::make< Maintenance::Unit::StatusDir >();
   const Vel::Ptr< UnitRunDir > runs = Vel::make< UnitRunDir >();
   const Vel::Ptr< UnitCommandsDir > commands = Vel::make< UnitCommandsDir >();
   const Vel::Ptr< Interface::AllIntfStatusDir > statuses = Vel::make< Interface::AllIntfStatusDir >();
   const Vel::Ptr< IntfMaintenance::IntfToGroupDir > intfToGroup =
      Vel::make< IntfMaintenance::IntfToGroupDir >();
   const Vel::Ptr< Maintenance::GroupToUnitDir > groupToUnit = Vel::make< Maintenance::GroupToUnitDir >();
   const Vel::Ptr< Maintenance::Profile::DefaultProfile > defaultProfile =
      Vel::make< Maintenance::Profile::DefaultProfile >();
   const Vel::Ptr< IntfMaintenanceProfile::StatusDir > profiles =
      Vel::make< IntfMaintenanceProfile::StatusDir >();
   const Vel::Ptr< Maintenance::MonIntfStatusDir > records = Vel::make< Maintenance::MonIntfStatusDir >();
   const Vel::Ptr< InsightDir > insights = Vel::make< InsightDir >();
   const Vel::Ptr< Errdisable::CauseStatus > cause =
      Vel::make< Errdisable::CauseStatus >( "maintenance-shutdown" );
   const Vel::Ptr< EventLog > log = Vel::make< EventLog >();
   const Vel::Ptr< EventsTold > kept = Vel::make< EventsTold >();
   std::string stage, drift;
   unsigned driftAsked = 0;
   bool settling = false;
   std::vector< std::pair< std::string, std::string > > problems;
   Lines noted; ///< in the log
   Lines deeds; ///< the same
   Vel::U64 seen = 0;
   std::unique_ptr< Events > events;
};

} // namespace Agent
