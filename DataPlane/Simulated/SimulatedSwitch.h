#pragma once

#include "DataPlane/Simulated/Description.h"
#include "DataPlane/Simulated/Flow.h"
#include "DataPlane/Simulation.h"
#include "Platform/Cog/Scheduler.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

namespace DataPlane::Simulated {

/// Purpose: a switch in memory, in the turns and the time of a scheduler.
///
/// Whatever changes a link is a posted task: it happens at the time of the turn that runs it. It first brings the
/// octets of all ports up to that time, then changes, then compares what the listener has been told with what is. So
/// octets are integrals over intervals in which nothing changed.
class SimulatedSwitch final : public Switch, public Simulation {
 public:
   /// The description has been found good.
   SimulatedSwitch( Vel::Ptr< Cog::Scheduler > scheduler, const Description & description );
   /// Success, or the first thing that is wrong with it.
   static Outcome validate( const Description & description );

   Outcome start( Listener & listener ) override;
   void stop() override;
   Outcome countersRefresh( VelPool::EntityManager & pool ) override;
   void linkSet( RequestId id, const Wire::IntfId & intf, bool up, const Vel::String & restore ) override;
   LinkSnapshot linkSnapshot( const Wire::IntfId & intf ) override;
   Vel::String raisedByOthers( const Vel::String & snapshot ) const override { return snapshot; }
   Vel::String snapshotsJoined( const Vel::String & earlier, const Vel::String & later ) const override {
      return earlier.empty() ? later : earlier;
   }
   /// Nothing is ever left.
   void linkRestore( RequestId id, const Wire::IntfId &, const Vel::String & ) override {
      later( 0, [this, id, listening = listening_] {
         if ( listener_ && listening == listening_ )
            listener_->linkSetDone( id, {} );
      } );
   }
   void routesAsk( const RouteQuestion & question, RoutesAnswered answered ) override;
   std::optional< double > portSpeed( const Vel::String & name ) override;
   bool tellsMembership() const override { return true; }
   Wire::IntfId bridgeBelow( const Wire::IntfId & ) const override { return {}; }
   Vel::String uncounted( const Wire::IntfId & ) const override { return {}; }
   const Vel::String & bootId() const override { return bootId_; }

   Outcome trafficIs( std::string_view name, double inBps, double outBps, double rampSeconds ) override;
   Outcome linkIs( std::string_view name, bool up ) override;
   Outcome linkDel( std::string_view name ) override;
   Outcome linkNew( std::string_view name ) override;
   void countersFaultIs( const Vel::String & text ) override { countersFault_ = text; }
   void linkSetFaultIs( const Vel::String & text ) override { linkSetFault_ = text; }
   void healthFaultIs( const Vel::String & text ) override;
   void routesFaultIs( const Vel::String & text ) override { routesFault_ = text; }
   void linkSetDelayIs( Vel::U32 turns ) override { linkSetDelay_ = turns; }
   void schedulerIs( const Vel::Ptr< Cog::Scheduler > & scheduler ) override;
   Outcome addressesIs( std::string_view name, const Vel::String & text ) override;
   Vel::String addresses( std::string_view name ) const override;

 private:
   struct SimLink {
      Wire::IntfId intf;
      Vel::U32 ifIndex = 0;
      bool present = true;
      bool adminUp = true;
      bool carrier = true;              ///< of ports
      std::optional< double > speedBps; ///< of ports
      Flow in, out;                     ///< of ports; of port-channels what their members share
      Amount inAmount = 0;              ///< of ports: settled
      Amount outAmount = 0;
      SimLink * portChannel = nullptr;  ///< of ports
      std::vector< SimLink * > members; ///< of port-channels and VLAN interfaces
      Vel::String addresses;
   };
   struct Amounts {
      Amount in, out;
   };
   struct Request {
      RequestId id;
      Wire::IntfId intf;
      bool up;
      Vel::String restore;
      Vel::U64 listening;
   };
   using VlanMember = std::pair< Vel::U16, Wire::IntfId >;
   /// What the listener knows.
   struct Told {
      std::map< Wire::IntfId, Link > links;
      std::map< Wire::IntfId, Wire::IntfId > portChannels; ///< by port
      std::set< VlanMember > vlanMembers;
   };

   SimLink & add( const Wire::IntfId & intf );
   SimLink * find( std::string_view name );
   SimLink * find( const Wire::IntfId & intf );
   static Outcome unknown( std::string_view name );

   static bool inPortChannel( const SimLink & link ) { return link.portChannel && link.portChannel->present; }
   static bool operUp( const SimLink & link );
   static bool carries( const SimLink & port );
   Amounts amounts( const SimLink & port ) const;
   Micros micros() const { return microsSince( startTime_, scheduler_->currentTime() ); }
   void settle();

   RouteTable routesNow() const;
   AddressWay wayNow( const RouteQuestion & question ) const;
   void answerForRoutes();
   Told wanted() const;
   void tell();
   void change( std::function< void() > act );
   void later( Vel::U32 turns, std::function< void() > act );
   Outcome carryOut( const Request & request );
   void finish( const Request & request, const Outcome & outcome );

   Vel::Ptr< Cog::Scheduler > scheduler_;
   Vel::String bootId_;
   double startTime_;
   std::vector< std::unique_ptr< SimLink > > links_; ///< as described: ports, port-channels, VLAN interfaces
   std::map< Vel::String, SimLink *, std::less<> > byName_;
   std::vector< Route > routes_;
   Vel::U32 lastIfIndex_ = 0;
   Micros settled_ = 0;

   Listener * listener_ = nullptr;
   std::vector< std::pair< RouteQuestion, RoutesAnswered > > routesAsked_;
   Vel::U64 listening_ =
      0; ///< how often it has been started or stopped: results of earlier requests are dropped
   Told told_;
   std::vector< Request > requests_;                                ///< of this turn
   std::shared_ptr< const int > alive_ = std::make_shared< int >(); ///< posted tasks look whether it is

   Vel::String countersFault_, linkSetFault_, healthFault_, routesFault_;
   Vel::U32 linkSetDelay_ = 0;
};

} // namespace DataPlane::Simulated
