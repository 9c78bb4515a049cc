#pragma once

#include "DataPlane/Switch.h"

#include <map>
#include <string>
#include <vector>

/// Purpose: a switch that notes which links really move, over all the agents that it serves one after the other.
namespace Tests {

class WatchedSwitch final : public DataPlane::Switch, private DataPlane::Listener {
 public:
   struct Move {
      double time;
      std::string what; ///< "et1 down"
   };

   explicit WatchedSwitch( Vel::Ptr< DataPlane::Switch > inner ) : inner_( std::move( inner ) ) {}

   /// Links that were set up or down since the beginning.
   const std::vector< Move > & moves() const { return moves_; }
   void clockIs( const Vel::Clock & clock ) { clock_ = &clock; }

   DataPlane::Outcome start( DataPlane::Listener & listener ) override {
      listener_ = &listener;
      return inner_->start( *this );
   }
   void stop() override { inner_->stop(); }
   DataPlane::Outcome countersRefresh( VelPool::EntityManager & pool ) override {
      return inner_->countersRefresh( pool );
   }
   void linkSet(
      DataPlane::RequestId id, const Wire::IntfId & intf, bool up, const Vel::String & restore ) override {
      inner_->linkSet( id, intf, up, restore );
   }
   DataPlane::LinkSnapshot linkSnapshot( const Wire::IntfId & intf ) override {
      return inner_->linkSnapshot( intf );
   }
   bool tellsMembership() const override { return inner_->tellsMembership(); }
   const Vel::String & bootId() const override { return inner_->bootId(); }

 private:
   void linkIs( const DataPlane::Link & link ) override {
      const auto [at, fresh] = adminUp_.try_emplace( link.intf, link.adminUp );
      if ( !fresh && at->second != link.adminUp ) {
         at->second = link.adminUp;
         moves_.push_back(
            { clock_->currentTime(), Vel::text( link.intf.name(), link.adminUp ? " up" : " down" ) } );
      }
      listener_->linkIs( link );
   }
   void linkDel( const Wire::IntfId & intf ) override { listener_->linkDel( intf ); }
   void portChannelIs( const Wire::IntfId & port, const Wire::IntfId & portChannel ) override {
      listener_->portChannelIs( port, portChannel );
   }
   void vlanMemberIs( Vel::U16 vlanId, const Wire::IntfId & member ) override {
      listener_->vlanMemberIs( vlanId, member );
   }
   void vlanMemberDel( Vel::U16 vlanId, const Wire::IntfId & member ) override {
      listener_->vlanMemberDel( vlanId, member );
   }
   void linkSetDone( DataPlane::RequestId id, const DataPlane::LinkSetResult & result ) override {
      listener_->linkSetDone( id, result );
   }
   void resynchronised() override { listener_->resynchronised(); }
   void healthIs( const DataPlane::Health & health ) override { listener_->healthIs( health ); }

   Vel::Ptr< DataPlane::Switch > inner_;
   DataPlane::Listener * listener_ = nullptr;
   const Vel::Clock * clock_ = nullptr;
   std::map< Wire::IntfId, bool > adminUp_;
   std::vector< Move > moves_;
};

} // namespace Tests
