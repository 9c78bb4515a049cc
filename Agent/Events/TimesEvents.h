#pragma once

#include "Agent/Events/EventWriter.h"
#include "Agent/Model/EventsTold.h"
#include "Agent/Model/UnitTimes.h"
#include "Platform/Model/MaintenanceUnit.h"

/// Purpose: tells of the times that are set for maintenances, and which units are too late.
/// Owner: Events. look() tells how they differ from what was told last; there are few.
namespace Agent {

class TimesEvents {
 public:
   struct Model {
      Vel::Ptr< const Maintenance::Unit::StatusDir > unitStatusDir;
      Vel::Ptr< const UnitTimesDir > unitTimesDir;
      Vel::Ptr< EventsTold > told;
   };
   struct Hooks {
      std::function< double() > now;      ///< seconds of the agent's clock
      std::function< double() > wallTime; ///< now, seconds since 1970
   };
   TimesEvents( EventWriter & writer, Model model, Hooks hooks )
      : writer_( writer ), model_( std::move( model ) ), hooks_( std::move( hooks ) ) {}
   TimesEvents( const TimesEvents & ) = delete;
   TimesEvents & operator=( const TimesEvents & ) = delete;

   /// After UnitEvents, which keeps what was told of each unit.
   void look();

 private:
   void lookAt( ToldUnit & told );
   void tellTimes( const Vel::String & unit, const UnitTimes * times );
   void tellOverrun( const UnitTimes & times );
   std::string wallTime( double time ) const;

   EventWriter & writer_;
   Model model_;
   Hooks hooks_;
};

} // namespace Agent
