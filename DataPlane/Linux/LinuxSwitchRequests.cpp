#include "DataPlane/Linux/LinuxSwitch.h"

/// Links that are set, what they lose by it, and how it is given back.
namespace DataPlane::Linux {

void LinuxSwitch::linkSet( RequestId id, const Wire::IntfId & intf, bool up, const Vel::String & restore ) {
   if ( !running_ )
      return;
   cancelRestore( intf );
   lostReader_.forget();
   const Vel::U32 ifIndex = links_.ifIndex( intf );
   if ( ifIndex == 0 ) {
      const Outcome outcome = Outcome::failed( Vel::text( "there is no link \"", intf, "\"" ) );
      return later( [this, id, outcome] { done( id, { outcome, {} } ); } );
   }
   const Asked asked{ id, intf, ifIndex, up, restore, ++order_ };
   lastAsked_[intf] = asked.order;
   requests_.ask( linkSetRequest( ifIndex, up ), [this, asked]( const KernelAnswer & answer ) {
      linkIsSet( asked, answer );
   } );
}

void LinuxSwitch::handleAnswers() {
   if ( !handleEvents() )
      return later( [this] { handleAnswers(); } );
   const Outcome outcome = requests_.takeAnswers();
   if ( outcome.ok() )
      return;
   close( answers_ );
   degrade( "cannot set links: " + outcome.text() );
}

void LinuxSwitch::linkIsSet( const Asked & asked, const KernelAnswer & answer ) {
   const bool last = lastAsked_[asked.intf] == asked.order;
   if ( last )
      lastAsked_.erase( asked.intf );
   LinkSetResult result;
   if ( answer.code != 0 )
      result.link = Outcome::failed( answer.text );
   else if ( last )
      result.link = readBack( asked );
   if ( result.link.ok() && asked.up && !asked.restore.empty() ) {
      if ( last ) {
         if ( Restore * const restore = restoreNew( asked.id, asked.intf, asked.restore ) )
            restore->begin();
         return;
      }
      result.restore = Outcome::failed( "a later request took its place" );
   }
   done( asked.id, result );
}

/// A driver may refuse without saying so.
Outcome LinuxSwitch::readBack( const Asked & asked ) {
   std::optional< bool > up;
   const Vel::String what = Vel::text( "cannot read ", asked.intf, " back" );
   const Outcome outcome =
      dumps_.one( linkRequest( asked.ifIndex ), what.c_str(), [&]( const nlmsghdr & message ) {
         const std::optional< LinkEvent > event = parseLink( message );
         if ( event && !event->removed && event->link.ifIndex == asked.ifIndex )
            up = event->link.adminUp;
      } );
   if ( !outcome.ok() )
      return outcome;
   if ( !up )
      return Outcome::failed( what + ": the kernel has not answered" );
   return *up == asked.up
             ? Outcome()
             : Outcome::failed( Vel::text(
                  "the kernel has acknowledged it, but the link is not ", asked.up ? "up" : "down" ) );
}

/// Null if the text cannot be read, which has been told then.
Restore * LinuxSwitch::restoreNew( RequestId id, const Wire::IntfId & intf, const Vel::String & text ) {
   const double now = loop_->currentTime();
   LostStateRead read = lostStateFrom( text );
   if ( !read.outcome.ok() ) {
      done( id, { {}, read.outcome } );
      return nullptr;
   }
   auto restore = std::make_unique< Restore >(
      Restore::Surroundings{ requests_, dumps_, links_ }, intf, restoredAt( std::move( read.state ), now ),
      now, [this, id] { listener_->linkSetRestores( id ); },
      [this, intf]( const Outcome & outcome, const Vel::String & left ) {
         // Held until everybody has been told.
         const auto ended = restoring_.extract( intf );
         done( ended.mapped().id, { {}, outcome, left } );
      } );
   Restore * const made = restore.get();
   restoring_.insert_or_assign( intf, Restoring{ id, std::move( restore ) } );
   return made;
}

void LinuxSwitch::linkRestore( RequestId id, const Wire::IntfId & intf, const Vel::String & left ) {
   if ( !running_ )
      return;
   cancelRestore( intf );
   const Vel::U64 order = ++order_;
   lastRestore_[intf] = order;
   later( [this, id, intf, left, order] {
      const auto at = lastRestore_.find( intf );
      if ( at == lastRestore_.end() || at->second != order )
         return done( id, { {}, Outcome::failed( "a later request took its place" ) } );
      lastRestore_.erase( at );
      if ( Restore * const restore = restoreNew( id, intf, left ) )
         restore->begin();
   } );
}

Vel::String LinuxSwitch::raisedByOthers( const Vel::String & snapshot ) const {
   LostStateRead read = lostStateFrom( snapshot );
   if ( !read.outcome.ok() )
      return snapshot;
   for ( Follower & follower : read.state.followers )
      follower.wasDown = false;
   return textOf( read.state );
}

Vel::String LinuxSwitch::snapshotsJoined( const Vel::String & earlier, const Vel::String & later ) const {
   LostStateRead one = lostStateFrom( earlier );
   LostStateRead other = lostStateFrom( later );
   if ( !one.outcome.ok() || !other.outcome.ok() )
      return one.outcome.ok() ? earlier : later;
   const double now = loop_->currentTime();
   return textOf(
      joined( restoredAt( std::move( one.state ), now ), restoredAt( std::move( other.state ), now ) ) );
}

void LinuxSwitch::retryRestores() {
   std::vector< Wire::IntfId > due;
   for ( const auto & [intf, restoring] : restoring_ )
      if ( restoring.restore->retryTime() <= loop_->currentTime() )
         due.push_back( intf );
   for ( const Wire::IntfId & intf : due )
      if ( const auto at = restoring_.find( intf ); at != restoring_.end() )
         at->second.restore->retry( loop_->currentTime() );
}

void LinuxSwitch::cancelRestore( const Wire::IntfId & intf ) {
   lastRestore_.erase( intf );
   const auto at = restoring_.find( intf );
   if ( at == restoring_.end() )
      return;
   const RequestId id = at->second.id;
   restoring_.erase( at );
   const Outcome outcome = Outcome::failed( "a later request took its place" );
   later( [this, id, outcome] { done( id, { {}, outcome } ); } );
}

void LinuxSwitch::done( RequestId id, const LinkSetResult & result ) { listener_->linkSetDone( id, result ); }

LinkSnapshot LinuxSwitch::linkSnapshot( const Wire::IntfId & intf ) {
   const Vel::U32 ifIndex = links_.ifIndex( intf );
   if ( ifIndex == 0 )
      return { Outcome::failed( Vel::text( "there is no link \"", intf, "\"" ) ), {} };
   LostState state;
   state.at = loop_->currentTime();
   if ( lostReader_.fresh() )
      later( [this] { lostReader_.forget(); } );
   const Outcome outcome = lostReader_.read( ifIndex, state );
   return { outcome, outcome.ok() ? textOf( state ) : Vel::String() };
}

std::optional< double > LinuxSwitch::portSpeed( const Vel::String & name ) {
   const Vel::U32 ifIndex = links_.ifIndexOfName( name );
   const LinkMessage * const link = links_.link( ifIndex );
   const bool asks = running_ && link && link->adminUp && link->lowerUp &&
                     links_.intf( ifIndex ).kind() == Wire::IntfId::Kind::ethernet;
   return asks ? kernel_->speed( name ) : std::nullopt;
}

} // namespace DataPlane::Linux
