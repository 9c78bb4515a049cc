#include "Agent/Executor/Drift.h"

#include <utility>

namespace Agent {

namespace {

/// A sub-interface goes down and up with its parent, which may be our doing; it is never held or watched.
bool isOurs( const Wire::IntfId & intf ) {
   using Kind = Wire::IntfId::Kind;
   return intf.kind() == Kind::ethernet || intf.kind() == Kind::portChannel || intf.kind() == Kind::vlan;
}

} // namespace

const char * stringValue( Drift drift ) {
   switch ( drift ) {
   case Drift::raised:
      return "raised";
   case Drift::lowered:
      return "lowered";
   default:
      return "none";
   }
}

Drifts::Drifts( Vel::Ptr< LinkJournal > journal, Hooks hooks )
   : journal_( std::move( journal ) ), hooks_( std::move( hooks ) ) {}

void Drifts::start( const std::function< bool( const LoweredLink & ) > & stillDown ) {
   for ( const auto & [intf, link] : journal_->loweredRange() )
      if ( !stillDown( *link ) )
         journal_->loweredDel( intf );
}

void Drifts::foundDown( const DataPlane::Link & link, const Vel::String & bootId ) {
   if ( isOurs( link.intf ) )
      down_[link.intf] = { link.ifIndex, bootId, false };
}

void Drifts::setByOthers( const DataPlane::Link & link, const Vel::String & bootId, bool held ) {
   if ( !isOurs( link.intf ) )
      return;
   down_.erase( link.intf );
   if ( !link.adminUp ) {
      down_[link.intf] = { link.ifIndex, bootId, raised_.erase( link.intf ) > 0 };
      return;
   }
   const bool wasLowered = journal_->loweredDel( link.intf );
   if ( held && raised_.insert( link.intf ).second )
      note( link.intf, "somebody else has set it up while we hold it down; it is left up" );
   else if ( !held && wasLowered )
      note( link.intf, "has been set up again" );
}

void Drifts::lower( const Wire::IntfId & intf, const Down & down ) {
   if ( !journal_->lowered( intf ) )
      note( intf, "somebody else has set it down; it is left down, also when its unit leaves maintenance" );
   LoweredLink * const lowered = journal_->loweredIs( intf );
   lowered->ifIndexIs( down.ifIndex );
   lowered->bootIdIs( down.bootId );
}

void Drifts::letGo( const Wire::IntfId & intf ) {
   if ( raised_.erase( intf ) )
      note( intf, "is not held any more; somebody else had set it up before" );
}

void Drifts::linkDel( const Wire::IntfId & intf ) {
   down_.erase( intf );
   raised_.erase( intf );
   journal_->loweredDel( intf );
}

void Drifts::turnEnds() {
   for ( const auto & [intf, down] : std::exchange( down_, {} ) )
      if ( hooks_.isUnderWay( intf ) )
         lower( intf, down );
      else if ( down.wasRaised )
         note( intf, "has been set down again" );
   for ( const auto & [intf, link] : journal_->loweredRange() )
      if ( !hooks_.isUnderWay( intf ) ) {
         note( intf, "stays down, as somebody else has set it" );
         journal_->loweredDel( intf );
      }
}

Drift Drifts::of( const Wire::IntfId & intf ) const {
   if ( raised_.count( intf ) )
      return Drift::raised;
   return journal_->lowered( intf ) ? Drift::lowered : Drift::none;
}

void Drifts::note( const Wire::IntfId & intf, const char * what ) const {
   hooks_.noted( Vel::text( intf, ": ", what ) );
}

} // namespace Agent
