#pragma once

#include "Agent/Events/EventWriter.h"
#include "Agent/Events/Pace.h"
#include "Agent/Model/EventsTold.h"
#include "Agent/Model/StageCommand.h"
#include "Agent/Model/UnitRun.h"
#include "Platform/Model/MaintenanceUnit.h"

#include <map>
#include <memory>
#include <optional>

/// Purpose: tells what happens to units: their states, stages, settling and violations.
/// Owner: Events. Reactors note which units to look at; look() tells how they differ from what was told last. A unit
/// may settle and not settle, violations may begin and end without end: they are damped (Damper.h, Pace.h).
namespace Agent {

class UnitEvents {
 public:
   struct Model {
      Vel::Ptr< const Maintenance::Unit::StatusDir > unitStatusDir;
      Vel::Ptr< const UnitRunDir > unitRunDir;
      Vel::Ptr< const UnitCommandsDir > unitCommandsDir;
      Vel::Ptr< EventsTold > told;
   };
   struct Hooks {
      std::function< double() > now;                                  ///< seconds of the agent's clock
      std::function< std::string( const std::string & unit ) > stage; ///< that is running; empty: none
      std::function< bool( const std::string & unit ) > settling;
      /// Told when an interface begins or ends to violate the threshold under maintenance.
      std::function< void( const Wire::IntfId & ) > violation;
   };
   UnitEvents( EventWriter & writer, Vel::Ptr< Cog::TimerWheel > wheel, Model model, Hooks hooks );
   UnitEvents( const UnitEvents & ) = delete;
   UnitEvents & operator=( const UnitEvents & ) = delete;

   /// All units will be looked at.
   void allChanged();
   void look();

 private:
   struct VelUnits final : Vel::ReactorTo< UnitEvents, Maintenance::Unit::StatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const Vel::String & unit ) override { sm()->watchUnit( unit ); }
   };
   struct VelUnit final : Vel::ReactorTo< UnitEvents, Maintenance::Unit::Status > {
      using ReactorTo::ReactorTo;
      void onState() override { sm()->changed_.insert( entity()->unitName() ); }
      void onIntfsViolatingTrafficThreshold( const Wire::IntfId & intf ) override {
         sm()->violationChanged( *entity() );
         sm()->hooks_.violation( intf );
      }
   };
   struct VelRuns final : Vel::ReactorTo< UnitEvents, UnitRunDir > {
      using ReactorTo::ReactorTo;
      void onUnitRun( const Vel::String & unit ) override { sm()->watchRun( unit ); }
   };
   struct VelRun final : Vel::ReactorTo< UnitEvents, UnitRun > {
      using ReactorTo::ReactorTo;
      void onStageStart( const Vel::String & ) override { sm()->changed_.insert( entity()->unitName() ); }
      void onStageEnd( const Vel::String & ) override { sm()->changed_.insert( entity()->unitName() ); }
   };
   struct VelCommandsDir final : Vel::ReactorTo< UnitEvents, UnitCommandsDir > {
      using ReactorTo::ReactorTo;
      void onUnit( const Vel::String & unit ) override { sm()->watchCommands( unit ); }
   };
   struct VelCommands final : Vel::ReactorTo< UnitEvents, UnitCommands > {
      using ReactorTo::ReactorTo;
      void onStage( const Vel::String & stage ) override {
         sm()->watchCommand( entity()->unitName(), stage );
      }
   };
   /// Knows its unit by the key under which it is held.
   struct VelCommand final : Vel::ReactorTo< UnitEvents, StageCommand > {
      using ReactorTo::ReactorTo;
      void onState() override { sm()->commandChanged( *this ); }
      Vel::String unit;
   };
   template < class R, class Key >
   using Reactors = std::map< Key, std::unique_ptr< Vel::Watch< R > > >;

   void watchUnit( const Vel::String & unit );
   void watchRun( const Vel::String & unit );
   void watchCommands( const Vel::String & unit );
   void watchCommand( const Vel::String & unit, const Vel::String & stage );
   void commandChanged( const VelCommand & reactor ) { changed_.insert( reactor.unit ); }
   void violationChanged( const Maintenance::Unit::Status & status );
   void lookAt( const Vel::String & unit );
   void lookAtState( const Maintenance::Unit::Status & status, ToldUnit & told );
   void lookAtStages( const Vel::String & unit, ToldUnit & told );
   void lookAtCommands( const Vel::String & unit, ToldUnit & told );
   void lookAtViolations( const Maintenance::Unit::Status & status, ToldUnit & told );

   EventWriter & writer_;
   Model model_;
   Hooks hooks_;
   std::set< Vel::String > changed_;
   std::set< Vel::String > entering_;                 ///< they may settle, which nobody tells
   std::map< Vel::String, Damped< bool > > settled_;  ///< units that have ever done so
   std::map< Vel::String, Damped< bool > > violated_; ///< units that have ever been
   Pace< Vel::String > pace_;
   Vel::Watch< VelUnits > unitsReactor_;
   Vel::Watch< VelRuns > runsReactor_;
   Vel::Watch< VelCommandsDir > commandsDirReactor_;
   Reactors< VelUnit, Vel::String > unitReactors_;
   Reactors< VelRun, Vel::String > runReactors_;
   Reactors< VelCommands, Vel::String > commandsReactors_;
   Reactors< VelCommand, std::pair< Vel::String, Vel::String > > commandReactors_;
};

} // namespace Agent
