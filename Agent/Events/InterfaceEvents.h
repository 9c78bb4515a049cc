#pragma once

#include "Agent/Events/AlikeEvents.h"
#include "Agent/Events/Damper.h"
#include "Agent/Model/EventsTold.h"
#include "Agent/Model/Insight.h"
#include "Platform/Cog/TimerWheel.h"
#include "Platform/Model/Errdisable.h"
#include "Platform/Model/IntfMaintenance.h"
#include "Platform/Model/IntfMaintenanceProfile.h"
#include "Platform/Model/Maintenance.h"
#include "Platform/Model/MaintenanceGroup.h"
#include "Platform/Model/MaintenanceUnit.h"

#include <map>
#include <memory>
#include <set>

/// Purpose: tells what happens to configured interfaces: membership, profile, link, the record of their monitoring, why
/// they wait, shutdowns, drift and traffic that comes back.
/// Owner: Events. Reactors note which interfaces to look at; look() tells how they differ from what was told last.
///
/// Links and traffic may go to and fro without end, and interfaces come and go, in hundreds at once, while every turn that
/// writes an event syncs the disk. So each is damped (Damper.h), with the number of changes in the event, and of the
/// turns of a second only the first few tell of them at once: what comes later is told together at the next tick. What
/// happens alike to very many in one turn is one event (AlikeEvents.h).
namespace Agent {

class InterfaceEvents {
 public:
   /// Turns of a second that tell at once of what is damped.
   static constexpr unsigned directTurns = 8;

   struct Model {
      Vel::Ptr< const Interface::AllIntfStatusDir > allIntfStatusDir;
      Vel::Ptr< const IntfMaintenance::IntfToGroupDir > intfToGroupDir;
      Vel::Ptr< const Maintenance::GroupToUnitDir > groupToUnitDir;
      Vel::Ptr< const Maintenance::Profile::DefaultProfile > defaultIntfProfile;
      Vel::Ptr< const IntfMaintenanceProfile::StatusDir > intfProfileStatusDir;
      Vel::Ptr< const Maintenance::MonIntfStatusDir > monIntfStatusDir;
      Vel::Ptr< const Maintenance::Unit::StatusDir > unitStatusDir;
      Vel::Ptr< const InsightDir > insightDir;
      Vel::Ptr< const Errdisable::CauseStatus > cause;
      Vel::Ptr< EventsTold > told;
   };
   struct Hooks {
      std::function< double() > now; ///< seconds of the agent's clock
      /// What others have done to a link: "raised", "lowered"; empty: nothing.
      std::function< std::string( const Wire::IntfId & ) > drift;
      /// Whether an interface that is shut was shut before it had drained.
      std::function< bool( const Wire::IntfId & ) > forced;
   };
   InterfaceEvents( EventWriter & writer, Vel::Ptr< Cog::TimerWheel > wheel, Model model, Hooks hooks );
   InterfaceEvents( const InterfaceEvents & ) = delete;
   InterfaceEvents & operator=( const InterfaceEvents & ) = delete;

   /// All interfaces will be looked at.
   void allChanged();
   /// Somebody else has done something to a link; may be told very often.
   void driftChanged() { driftChanged_ = true; }
   /// The interface violates its threshold under maintenance, or does so no more.
   void violation( const Wire::IntfId & intf );
   void look();

 private:
   struct VelLinks final : Vel::ReactorTo< InterfaceEvents, Interface::AllIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const Wire::IntfId & intf ) override { sm()->watchLink( intf ); }
   };
   struct VelLink final : Vel::ReactorTo< InterfaceEvents, Interface::IntfStatus > {
      using ReactorTo::ReactorTo;
      void onOperStatus() override { sm()->linkChanged( entity()->intfId() ); }
   };
   struct VelGroups final : Vel::ReactorTo< InterfaceEvents, IntfMaintenance::IntfToGroupDir > {
      using ReactorTo::ReactorTo;
      void onIntfToGroup( const Wire::IntfId & intf ) override { sm()->changed_.insert( intf ); }
   };
   struct VelRecords final : Vel::ReactorTo< InterfaceEvents, Maintenance::MonIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onMonIntfStatus( const Wire::IntfId & intf ) override { sm()->watchRecord( intf ); }
   };
   struct VelRecord final : Vel::ReactorTo< InterfaceEvents, Maintenance::MonIntfStatus > {
      using ReactorTo::ReactorTo;
      void onState() override { sm()->changed_.insert( entity()->intfId() ); }
   };
   struct VelInsights final : Vel::ReactorTo< InterfaceEvents, InsightDir > {
      using ReactorTo::ReactorTo;
      void onIntf( const Wire::IntfId & intf ) override { sm()->watchInsight( intf ); }
   };
   struct VelInsight final : Vel::ReactorTo< InterfaceEvents, IntfInsight > {
      using ReactorTo::ReactorTo;
      void onReason() override { sm()->changed_.insert( entity()->intfId() ); }
   };
   struct VelCause final : Vel::ReactorTo< InterfaceEvents, Errdisable::CauseStatus > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const Wire::IntfId & intf ) override { sm()->changed_.insert( intf ); }
   };
   /// Makes a turn in which what was held back is told.
   struct Wakeup final : Cog::TimerReactor< InterfaceEvents > {
      using TimerReactor::TimerReactor;
      void onTime() override {}
   };
   template < class R >
   using Reactors = std::map< Wire::IntfId, std::unique_ptr< Vel::Watch< R > > >;
   struct Damped {
      Damper link, spike, membership;
   };
   struct Present;

   void watchLink( const Wire::IntfId & intf );
   void watchRecord( const Wire::IntfId & intf );
   void watchInsight( const Wire::IntfId & intf );
   void linkChanged( const Wire::IntfId & intf );
   std::set< std::string > unitsOf( const Wire::IntfId & intf ) const;
   std::string profileOf( const Wire::IntfId & intf ) const;
   bool violates( const Wire::IntfId & intf ) const;
   void compareDrift();
   void lookAt( const Wire::IntfId & intf );
   void lookAtJoin( const Present & of );
   void lookAtLeave( const Present & of );
   void lookAtMembership( const Present & of );
   void lookAtLink( const Present & of );
   void lookAtRecord( const Present & of );
   void lookAtReason( const Present & of );
   void lookAtShutdown( const Present & of );
   void lookAtSpike( const Present & of );
   /// Whether it may be told now; if not, it is looked at again when it may.
   bool mayTell( const Wire::IntfId & intf, Damper & damper );
   bool mayTellMembership( const Wire::IntfId & intf );

   AlikeEvents writer_;
   Model model_;
   Hooks hooks_;
   std::set< Wire::IntfId > changed_;
   bool driftChanged_ = false;
   bool left_ = false; ///< an interface has left: what was damped of it need not be known for ever
   std::map< Wire::IntfId, Damped > damped_;                ///< those that have ever changed
   std::set< std::pair< double, Wire::IntfId > > heldBack_; ///< until when
   double second_ = 0;                                      ///< in which turns have told of damped changes
   unsigned directTurns_ = 0;                               ///< so many
   bool direct_ = false;                                    ///< this turn is one of them
   Vel::Watch< VelLinks > linksReactor_;
   Vel::Watch< VelGroups > groupsReactor_;
   Vel::Watch< VelRecords > recordsReactor_;
   Vel::Watch< VelInsights > insightsReactor_;
   Vel::Watch< VelCause > causeReactor_;
   Reactors< VelLink > linkReactors_;
   Reactors< VelRecord > recordReactors_;
   Reactors< VelInsight > insightReactors_;
   Vel::Watch< Wakeup > wakeup_;
};

} // namespace Agent
