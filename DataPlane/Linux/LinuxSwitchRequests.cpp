#include "DataPlane/Linux/LinuxSwitch.h"

/// Links that are set, what they lose by it, and how it is given back.
namespace DataPlane::Linux {

void LinuxSwitch::linkSet( RequestId id, const Wire::IntfId & intf, bool up, const Vel::String & restore ) {
   if ( !running_ )
      return;
   cancelRestore( intf );
   lostRoutes_.forget();
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
      result.link = Outcome::failed(
         Vel::text( "cannot set ", asked.intf, asked.up ? " up: " : " down: ", answer.text ) );
   else if ( last )
      result.link = readBack( asked );
   if ( result.link.ok() && asked.up && !asked.restore.empty() ) {
      if ( last )
         return restore( asked );
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
   const char * const wanted = asked.up ? " up" : " down";
   return *up == asked.up ? Outcome()
                          : Outcome::failed( Vel::text(
                               "cannot set ", asked.intf, wanted,
                               ": the kernel has acknowledged it, but the link is not", wanted ) );
}

void LinuxSwitch::restore( const Asked & asked ) {
   const double now = loop_->currentTime();
   LostStateRead read = lostStateFrom( asked.restore );
   if ( !read.outcome.ok() )
      return done( asked.id, { {}, read.outcome } );
   auto restore = std::make_unique< Restore >(
      Restore::Surroundings{ requests_, dumps_, links_ }, asked.intf,
      restoredAt( std::move( read.state ), now ), now, [this, intf = asked.intf]( const Outcome & outcome ) {
         // Held until everybody has been told.
         const auto ended = restoring_.extract( intf );
         done( ended.mapped().id, { {}, outcome } );
      } );
   Restore & begun = *restore;
   restoring_.insert_or_assign( asked.intf, Restoring{ asked.id, std::move( restore ) } );
   begun.begin();
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
   Outcome outcome = dumps_.whole(
      addressDumpRequest( ifIndex ), "cannot read the addresses", [&] { state.addresses.clear(); },
      [&]( const nlmsghdr & message ) {
         if ( std::optional< LinkAddress > address = parseLostAddress( message, ifIndex ) )
            state.addresses.push_back( std::move( *address ) );
      } );
   if ( lostRoutes_.fresh() )
      later( [this] { lostRoutes_.forget(); } );
   if ( outcome.ok() )
      outcome = lostRoutes_.read( ifIndex, state.routes );
   return { outcome, outcome.ok() ? textOf( state ) : Vel::String() };
}

} // namespace DataPlane::Linux
