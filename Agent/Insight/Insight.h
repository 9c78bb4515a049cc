#pragma once

#include "Agent/Insight/Classifier.h"
#include "Platform/Cog/TimerWheel.h"
#include "Platform/Model/Errdisable.h"
#include "Platform/Model/IntfMaintenanceProfile.h"

#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

/// Purpose: publishes why each monitored interface is not done yet (IntfInsight), from the published records.
/// Owner: the agent, which calls turnEnds() in each turn, before it commits: what is concluded from a sample is stored
/// with it.
///
/// Nothing is written while a record is: a sample is noted, and looked at when the turn ends and the record is whole.
/// Costs O(1) a sample. That no sample comes is seen also in turns in which no timer runs, because counters are not
/// fresh: those that wait are kept in the order in which they were heard of last, and only the first is looked at.
namespace Agent {

class Insight {
 public:
   struct Model {
      Vel::Ptr< const Maintenance::MonIntfStatusDir > monIntfStatusDir;
      Vel::Ptr< const IntfMaintenanceProfile::StatusDir > intfProfileStatusDir;
      Vel::Ptr< const Errdisable::CauseStatus > cause;
      Vel::Ptr< InsightDir > insightDir; ///< what an earlier run has kept in it goes on
   };

   /// All given. The wheel wakes the loop when counters may be missing.
   Insight( Vel::Ptr< const Cog::TimerWheel > wheel, Model model );
   ~Insight();
   Insight( const Insight & ) = delete;
   Insight & operator=( const Insight & ) = delete;

   void turnEnds();

 private:
   struct Interface;
   struct VelRecords final : Vel::ReactorTo< Insight, Maintenance::MonIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onMonIntfStatus( const Wire::IntfId & intf ) override { sm()->handleRecord( intf ); }
   };
   struct VelCause final : Vel::ReactorTo< Insight, Errdisable::CauseStatus > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const Wire::IntfId & intf ) override { sm()->handleCause( intf ); }
   };
   /// Makes a turn in which it is looked for interfaces that have not been heard of.
   struct Wakeup final : Cog::TimerReactor< Insight > {
      using TimerReactor::TimerReactor;
      void onTime() override {}
   };
   using Waiting = std::list< Interface * >;

   void handleRecord( const Wire::IntfId & intf );
   void handleCause( const Wire::IntfId & intf );
   void noteChange( Interface & interface );
   void watch( const Maintenance::MonIntfStatus & record, Classifier classifier );
   void depart( const Wire::IntfId & intf );
   Classifier::Inputs inputs( const Interface & interface );
   const IntfMaintenanceProfile::Status * profile( const Vel::String & name );
   void conclude( Interface & interface, double now );
   void waitsIs( Interface & interface, bool waits );
   void publish( Interface & interface, const Classifier::Conclusion & conclusion );

   Model model_;
   std::unordered_map< Wire::IntfId, std::unique_ptr< Interface > > interfaces_;
   std::vector< Interface * > changed_;
   /// The one that was looked up last in this turn: most interfaces have the same.
   const IntfMaintenanceProfile::Status * lastProfile_ = nullptr;
   std::vector< std::unique_ptr< Interface > > departed_; ///< in this turn
   Waiting waiting_;                                      ///< in the order of Classifier::starvedAt()
   Vel::Watch< VelRecords > records_;
   Vel::Watch< VelCause > cause_;
   Cog::TimerWatch< Wakeup > wakeup_;
   double wakeTime_ = 0; ///< no later than what waits needs it
};

} // namespace Agent
