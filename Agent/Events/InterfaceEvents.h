#pragma once

#include "Agent/Events/AlikeEvents.h"
#include "Agent/Events/Pace.h"
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
/// Links, the monitoring of interfaces whose links do, traffic, drift and counters may go to and fro without end, and
/// interfaces come and go, in hundreds at once. So
/// each is damped (Damper.h, Pace.h), with the number of changes in the event. What happens alike to very many in one
/// turn is one event (AlikeEvents.h).
namespace Agent {

class InterfaceEvents {
 public:
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
   template < class R >
   using Reactors = std::map< Wire::IntfId, std::unique_ptr< Vel::Watch< R > > >;
   struct Dampers {
      Damped< Vel::String > link, drift;
      Damped< bool > watched, spike, starved;
      Damper membership;
   };
   struct Present;

   void watchLink( const Wire::IntfId & intf );
   void watchRecord( const Wire::IntfId & intf );
   void watchInsight( const Wire::IntfId & intf );
   void linkChanged( const Wire::IntfId & intf );
   /// A value of it that is damped, and what was told of it last.
   template < class T >
   void seen( const Wire::IntfId & intf, Damped< T > Dampers::*damped, const T & value, const T & told ) {
      auto it = damped_.find( intf );
      if ( it == damped_.end() ) {
         if ( value == told )
            return;
         it = damped_.try_emplace( intf ).first;
      }
      ( it->second.*damped ).valueIs( value, told );
   }
   std::set< std::string > unitsOf( const Wire::IntfId & intf ) const;
   std::string profileOf( const Wire::IntfId & intf ) const;
   Vel::String linkOf( const Wire::IntfId & intf ) const;
   bool spikes( const Wire::IntfId & intf ) const;
   void compareDrift();
   void lookAt( const Wire::IntfId & intf );
   void lookAtJoin( const Present & of );
   void lookAtLeave( const Present & of );
   void lookAtMembership( const Present & of );
   void lookAtLink( const Present & of );
   void lookAtRecord( const Present & of );
   void lookAtReason( const Present & of );
   void lookAtShutdown( const Present & of );
   void lookAtDrift( const Present & of );
   void lookAtSpike( const Present & of );
   bool mayTellMembership( const Wire::IntfId & intf );

   AlikeEvents writer_;
   Model model_;
   Hooks hooks_;
   std::set< Wire::IntfId > changed_;
   bool driftChanged_ = false;
   bool left_ = false; ///< an interface has left: what was damped of it need not be known for ever
   std::map< Wire::IntfId, Dampers > damped_; ///< those that have ever changed
   Pace< Wire::IntfId > pace_;
   Vel::Watch< VelLinks > linksReactor_;
   Vel::Watch< VelGroups > groupsReactor_;
   Vel::Watch< VelRecords > recordsReactor_;
   Vel::Watch< VelInsights > insightsReactor_;
   Vel::Watch< VelCause > causeReactor_;
   Reactors< VelLink > linkReactors_;
   Reactors< VelRecord > recordReactors_;
   Reactors< VelInsight > insightReactors_;
};

} // namespace Agent
