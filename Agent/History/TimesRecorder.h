#pragma once

#include "Agent/Model/History.h"
#include "Agent/Model/UnitTimes.h"
#include "Platform/Model/MaintenanceUnit.h"
#include "Platform/Vel/Reactor.h"

#include <map>

/// Purpose: writes down with each maintenance the times that were set for it and whether it was too late.
/// Owner: the agent's views. Made after the Recorder, whose records it completes; writes inside the write that it tells of.
namespace Agent {

class TimesRecorder {
 public:
   struct Model {
      Vel::Ptr< const Maintenance::Unit::StatusDir > unitStatusDir;
      Vel::Ptr< const UnitTimesDir > unitTimesDir;
      Vel::Ptr< HistoryDir > historyDir;
   };
   explicit TimesRecorder( Model model );
   TimesRecorder( const TimesRecorder & ) = delete;
   TimesRecorder & operator=( const TimesRecorder & ) = delete;

 private:
   struct VelDir final : Vel::ReactorTo< TimesRecorder, UnitTimesDir > {
      using ReactorTo::ReactorTo;
      void onUnit( const Vel::String & unit ) override { sm()->handleUnit( unit ); }
   };
   struct VelTimes final : Vel::ReactorTo< TimesRecorder, UnitTimes > {
      using ReactorTo::ReactorTo;
      void onDeadline() override { sm()->take( entity()->unitName() ); }
      void onRestore() override { sm()->take( entity()->unitName() ); }
      void onOverrun() override { sm()->take( entity()->unitName() ); }
      void onRevertAt() override { sm()->take( entity()->unitName() ); }
   };

   void handleUnit( const Vel::String & unit );
   void take( const Vel::String & unit );

   const Model model_;
   Vel::Watch< VelDir > dir_;
   std::map< Vel::String, Vel::Watch< VelTimes > > times_;
};

} // namespace Agent
