#include "DataPlane/Linux/Membership.h"

#include "DataPlane/Linux/FirstFew.h"

namespace DataPlane::Linux {

namespace {

/// For the operator: one bridge may have thousands of VLANs.
Vel::String textOf( const std::map< Wire::IntfId, Vel::String > & uncounted ) {
   std::vector< Vel::String > texts;
   for ( const auto & [intf, reason] : uncounted ) {
      if ( texts.size() == few )
         break;
      const bool isVlan = intf.kind() == Wire::IntfId::Kind::vlan;
      texts.push_back( Vel::text(
         isVlan ? "VLAN interface" : "port-channel", " \"", intf, "\" cannot be counted: ", reason ) );
   }
   return firstFew( texts, uncounted.size() );
}

template < class Handle >
void forEachVlan( const VlanSet & vlans, Handle handle ) {
   // Mostly there is no difference.
   if ( vlans.none() )
      return;
   for ( Vel::U16 id = firstVlan; id <= lastVlan; ++id )
      if ( vlans.test( id ) )
         handle( id );
}

VlanSet vlansOf( const Members & members, const Wire::IntfId & member ) {
   const auto at = members.vlans.find( member );
   return at == members.vlans.end() ? VlanSet() : at->second;
}

} // namespace

void Membership::listenerIs( Listener * listener ) {
   listener_ = listener;
   told_ = {};
   uncounted_.clear();
   settled_.reset();
}

void Membership::linkIs( const Link & link ) {
   if ( listener_ )
      listener_->linkIs( link );
}

void Membership::linkDel( const Wire::IntfId & intf ) {
   if ( !listener_ )
      return;
   leaveVlans( intf, vlansOf( told_, intf ) );
   told_.vlans.erase( intf );
   for ( auto at = told_.portChannels.begin(); at != told_.portChannels.end(); ) {
      const auto & [port, portChannel] = *at;
      const bool names = port == intf || portChannel == intf;
      if ( names )
         listener_->portChannelIs( port, {} );
      at = names ? told_.portChannels.erase( at ) : std::next( at );
   }
   listener_->linkDel( intf );
}

void Membership::settle() {
   const Revisions now{ links_.revision(), vlans_.revision() };
   if ( !listener_ || settled_ == now )
      return;
   Members wanted = membersOf( links_, vlans_ );
   leave( wanted );
   join( wanted );
   uncounted_ = textOf( wanted.uncounted );
   told_ = std::move( wanted );
   settled_ = now;
}

Vel::String Membership::uncounted( const Wire::IntfId & intf ) const {
   const auto at = told_.uncounted.find( intf );
   return at == told_.uncounted.end() ? Vel::String() : at->second;
}

void Membership::leave( const Members & wanted ) {
   for ( const auto & [member, vlans] : told_.vlans )
      leaveVlans( member, vlans & ~vlansOf( wanted, member ) );
   for ( const auto & [port, portChannel] : told_.portChannels )
      if ( !wanted.portChannels.count( port ) )
         listener_->portChannelIs( port, {} );
}

void Membership::join( const Members & wanted ) {
   for ( const auto & [port, portChannel] : wanted.portChannels ) {
      const auto at = told_.portChannels.find( port );
      if ( at == told_.portChannels.end() || at->second != portChannel )
         listener_->portChannelIs( port, portChannel );
   }
   for ( const auto & [member, vlans] : wanted.vlans )
      forEachVlan( vlans & ~vlansOf( told_, member ), [&]( Vel::U16 vlanId ) {
         listener_->vlanMemberIs( vlanId, member );
      } );
}

void Membership::leaveVlans( const Wire::IntfId & member, const VlanSet & vlans ) {
   forEachVlan( vlans, [&]( Vel::U16 vlanId ) { listener_->vlanMemberDel( vlanId, member ); } );
}

} // namespace DataPlane::Linux
