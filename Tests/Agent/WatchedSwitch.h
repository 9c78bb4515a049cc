#pragma once

#include "DataPlane/Switch.h"

#include <map>
#include <set>
#include <string>
#include <utility>
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
   /// How often each port was asked for its speed since the beginning.
   const std::map< Vel::String, unsigned > & speedsAsked() const { return speedsAsked_; }
   /// How often counters were read since the beginning.
   unsigned refreshes() const { return refreshes_; }
   void clockIs( const Vel::Clock & clock ) { clock_ = &clock; }

   /// From now on nobody can say what the VLAN interface carries, for this reason; empty: its members are counted again.
   void uncountedIs( const Wire::IntfId & vlanIntf, const Vel::String & why ) {
      uncounted_[vlanIntf] = why;
      for ( const auto & [vlanId, member] : vlanMembers_ )
         if ( vlanId == vlanIntf.vlanId() && why.empty() )
            listener_->vlanMemberIs( vlanId, member );
         else if ( vlanId == vlanIntf.vlanId() )
            listener_->vlanMemberDel( vlanId, member );
   }
   /// It is another one from now on to those who start it.
   void bootIdIs( const Vel::String & id ) { bootId_ = id; }
   /// What the next request that sets a link up says that it cannot give back without a carrier.
   void leavesIs( const Wire::IntfId & intf, const Vel::String & left ) { leaves_[intf] = left; }
   /// The ports without counters, from the next time on that they are read.
   void withoutCountersIs( const std::set< Wire::IntfId > & ports ) { withoutCounters_ = ports; }

   DataPlane::Outcome start( DataPlane::Listener & listener ) override {
      listener_ = &listener;
      return inner_->start( *this );
   }
   void stop() override { inner_->stop(); }
   DataPlane::Outcome countersRefresh( VelPool::EntityManager & pool ) override {
      ++refreshes_;
      const DataPlane::Outcome outcome = inner_->countersRefresh( pool );
      for ( const Wire::IntfId & port : withoutCounters_ )
         pool.intfDel( port );
      return outcome;
   }
   void linkSet(
      DataPlane::RequestId id, const Wire::IntfId & intf, bool up, const Vel::String & restore ) override {
      if ( const auto leaves = up ? leaves_.extract( intf ) : decltype( leaves_ )::node_type() )
         left_[id] = leaves.mapped();
      inner_->linkSet( id, intf, up, restore );
   }
   DataPlane::LinkSnapshot linkSnapshot( const Wire::IntfId & intf ) override {
      return inner_->linkSnapshot( intf );
   }
   Vel::String raisedByOthers( const Vel::String & snapshot ) const override {
      return inner_->raisedByOthers( snapshot );
   }
   Vel::String snapshotsJoined( const Vel::String & earlier, const Vel::String & later ) const override {
      return inner_->snapshotsJoined( earlier, later );
   }
   void linkRestore( DataPlane::RequestId id, const Wire::IntfId & intf, const Vel::String & left ) override {
      inner_->linkRestore( id, intf, left );
   }
   void routesAsk( const DataPlane::RouteQuestion & question, DataPlane::RoutesAnswered answered ) override {
      inner_->routesAsk( question, std::move( answered ) );
   }
   std::optional< double > portSpeed( const Vel::String & name ) override {
      ++speedsAsked_[name];
      return inner_->portSpeed( name );
   }
   bool tellsMembership() const override { return inner_->tellsMembership(); }
   Wire::IntfId bridgeBelow( const Wire::IntfId & vlanIntf ) const override {
      return inner_->bridgeBelow( vlanIntf );
   }
   Vel::String uncounted( const Wire::IntfId & intf ) const override {
      const auto at = uncounted_.find( intf );
      return at == uncounted_.end() ? inner_->uncounted( intf ) : at->second;
   }
   const Vel::String & bootId() const override { return bootId_.empty() ? inner_->bootId() : bootId_; }

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
      vlanMembers_.emplace( vlanId, member );
      for ( const auto & [vlanIntf, why] : uncounted_ )
         if ( vlanIntf.vlanId() == vlanId && !why.empty() )
            return;
      listener_->vlanMemberIs( vlanId, member );
   }
   void vlanMemberDel( Vel::U16 vlanId, const Wire::IntfId & member ) override {
      vlanMembers_.erase( { vlanId, member } );
      listener_->vlanMemberDel( vlanId, member );
   }
   void linkSetDone( DataPlane::RequestId id, const DataPlane::LinkSetResult & result ) override {
      const auto left = left_.extract( id );
      if ( left && result.link.ok() )
         listener_->linkSetDone(
            id, { {}, DataPlane::Outcome::failed( "1 of 2 waits for its carrier" ), left.mapped() } );
      else
         listener_->linkSetDone( id, result );
   }
   void linkSetRestores( DataPlane::RequestId id ) override { listener_->linkSetRestores( id ); }
   void rereadIs( bool goesOn ) override { listener_->rereadIs( goesOn ); }
   void resynchronised() override { listener_->resynchronised(); }
   void healthIs( const DataPlane::Health & health ) override { listener_->healthIs( health ); }

   Vel::Ptr< DataPlane::Switch > inner_;
   DataPlane::Listener * listener_ = nullptr;
   const Vel::Clock * clock_ = nullptr;
   unsigned refreshes_ = 0;
   std::map< Vel::String, unsigned > speedsAsked_;
   std::map< Wire::IntfId, bool > adminUp_;
   Vel::String bootId_; ///< empty: that of the switch
   std::vector< Move > moves_;
   std::map< Wire::IntfId, Vel::String > uncounted_; ///< why, by VLAN interface
   std::set< std::pair< Vel::U16, Wire::IntfId > > vlanMembers_;
   std::set< Wire::IntfId > withoutCounters_;
   std::map< Wire::IntfId, Vel::String > leaves_;
   std::map< DataPlane::RequestId, Vel::String > left_;
};

} // namespace Tests
