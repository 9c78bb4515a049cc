#pragma once

#include "MaintenancePlugin/PluginRig.h"
#include "Tests/Reference/EventLog.h"

#include <array>

/// Purpose: the plug-in in a world of entities, driven by an event log and read back in the log's form. One event is
/// one write, with nothing hidden behind it: links do not follow shutdowns and traffic does not count by itself.
///
/// Reading is done after every one of a million events, so what was read before is brought up to date in place.
namespace Tests {

class DrivenPlugin {
 public:
   /// Names end in two digits, the number. That bounds the world.
   static constexpr std::size_t maxIntfs = 32;
   static constexpr std::size_t maxUnits = 8;

   /// The plug-in does not run yet. The world starts at 1.7e9 seconds or later.
   explicit DrivenPlugin( const Reference::World & world );
   ~DrivenPlugin();
   DrivenPlugin( const DrivenPlugin & ) = delete;
   DrivenPlugin & operator=( const DrivenPlugin & ) = delete;

   /// Throws Vel::AssertionFailed if the plug-in fails an assertion; it is of no use then.
   void apply( const Reference::Event & event );

   /// After the event. Good for as long as this; changes with each event.
   const Reference::Published & published() const { return published_; }
   /// Of the last event, sorted.
   const std::vector< Reference::Decision > & decisions() const { return decisions_; }

 private:
   using Event = Reference::Event;
   using Kind = Reference::Decision::Kind;

   // ---- what tells of decisions
   struct VelStatusDir final : Vel::ReactorTo< DrivenPlugin, Maintenance::MonIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onMonIntfStatus( const Wire::IntfId & intf ) override;
      void onMonIntfEnterMaint( const Wire::IntfId & intf ) override;
      void onMonIntfUnderMaint( const Wire::IntfId & intf ) override;
   };
   struct VelRecord final : Vel::ReactorTo< DrivenPlugin, Maintenance::MonIntfStatus > {
      using ReactorTo::ReactorTo;
      void onState() override;
   };
   struct VelCause final : Vel::ReactorTo< DrivenPlugin, Errdisable::CauseStatus > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const Wire::IntfId & intf ) override;
   };
   struct VelAgentStatus final : Vel::ReactorTo< DrivenPlugin, Stage::AgentStatus > {
      using ReactorTo::ReactorTo;
      void onComplete( const Stage::AgentStatusKey & key ) override;
   };
   /// One of the two sets of interfaces of each unit.
   struct VelInput final : Vel::ReactorTo< DrivenPlugin, MaintenanceMode::UnitIntfInput > {
      VelInput(
         Vel::Ptr< const MaintenanceMode::UnitIntfInput > input, DrivenPlugin * owner, Kind in, Kind out )
         : ReactorTo( std::move( input ), owner ), in_( in ), out_( out ) {}
      void onIntf( const Wire::IntfId & intf ) override { tell( intf ); }
      void tell( const Wire::IntfId & intf );

    private:
      Kind in_, out_;
   };
   struct VelInputDir final : Vel::ReactorTo< DrivenPlugin, MaintenanceMode::UnitIntfInputDir > {
      VelInputDir(
         Vel::Ptr< const MaintenanceMode::UnitIntfInputDir > dir, DrivenPlugin * owner, Kind in, Kind out )
         : ReactorTo( std::move( dir ), owner ), in_( in ), out_( out ) {}
      void onUnitIntfInput( const Vel::String & unit ) override { watch( unit ); }
      void watch( const Vel::String & unit );

    private:
      Kind in_, out_;
      std::array< Vel::Watch< VelInput >, maxUnits > inputs_;
   };
   /// What an item of the backlog takes passes when it is counted.
   struct VelCounters final : Vel::ReactorTo< DrivenPlugin, MaintenanceMode::DrainWatchSmDebugCounters > {
      using ReactorTo::ReactorTo;
      void onNumStartIntfMonInUnits() override { sm()->rig_.clock->spend( sm()->itemCost_ ); }
      void onNumStopIntfMonInUnits() override { sm()->rig_.clock->spend( sm()->itemCost_ ); }
   };

   void decided( Kind kind, int who, int other = Reference::none );
   /// What outlives the plug-in.
   void watchEntities();
   void watchEntitiesDel();
   void watchRecord( const Wire::IntfId & intf );
   void start();
   void stop();

   // writes: DrivenPluginWrites.cpp; false: no such event there
   bool writeLink( const Event & event );
   bool writeConfiguration( const Event & event );
   bool writeProfile( const Event & event );
   bool writeUnit( const Event & event );
   bool writeInstance( const Event & event );
   void passTime( const Event & event );
   const Wire::IntfId & id( Reference::Intf intf ) const {
      return ids_.at( static_cast< std::size_t >( intf ) );
   }

   // reading: DrivenPluginReads.cpp
   void readStatus();
   void readRecord( Reference::Intf intf );
   void readUnits();
   void readComplete();
   void readMonitors();

   MaintenanceMode::PluginRig rig_;
   std::vector< Wire::IntfId > ids_;
   int units_;
   double backlogQuantum_;
   double itemCost_;
   Vel::AssertionsThrow assertionsThrow_;

   Vel::Watch< VelStatusDir > statusDir_;
   std::array< Vel::Watch< VelRecord >, maxIntfs > records_;
   Vel::Watch< VelCause > cause_;
   Vel::Watch< VelAgentStatus > enterStatus_, exitStatus_;
   Vel::Watch< VelInputDir > monitored_, drained_;
   Vel::Watch< VelCounters > counters_;
   std::array< const Vel::U32 *, Reference::counterCount > counts_{};

   Reference::Published published_;
   std::vector< Reference::Decision > decisions_;
};

} // namespace Tests
