#include "DataPlane/Linux/Restore.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace DataPlane::Linux {

namespace {

constexpr double never = std::numeric_limits< double >::infinity();

bool sameWay( const Leg & a, const Leg & b ) { return a.device == b.device && a.gateway == b.gateway; }

bool hasWay( const std::vector< Leg > & legs, const Leg & leg ) {
   return std::any_of( legs.begin(), legs.end(), [&]( const Leg & other ) { return sameWay( leg, other ); } );
}

bool needsOthers( const Route & route ) {
   return std::any_of(
      route.legs.begin(), route.legs.end(), []( const Leg & leg ) { return leg.gateway.has_value(); } );
}

} // namespace

Restore::Restore(
   Surroundings surroundings, const Wire::IntfId & intf, LostState state, double now, Done done )
   : around_( surroundings ),
     intf_( intf ),
     device_( intf.name() ),
     state_( std::move( state ) ),
     now_( now ),
     end_( now + maxTime ),
     retryTime_( never ),
     done_( std::move( done ) ) {}

void Restore::begin() {
   addAddresses();
   askRound( std::exchange( next_, {} ) );
}

void Restore::retry( double now ) {
   now_ = now;
   retryTime_ = never;
   askRound( std::exchange( next_, {} ) );
}

/// The kernel puts a new address before the others, so the last one goes first.
void Restore::addAddresses() {
   for ( auto at = state_.addresses.rbegin(); at != state_.addresses.rend(); ++at )
      next_.push_back(
         { [this, &address = *at] { return planOf( address ); },
           Vel::text( "address ", at->address, "/", at->prefixLength ),
           {} } );
   total_ += state_.addresses.size();
}

void Restore::addRoutes() {
   routesAdded_ = true;
   std::stable_sort( state_.routes.begin(), state_.routes.end(), []( const Route & a, const Route & b ) {
      return needsOthers( a ) < needsOthers( b );
   } );
   for ( const Route & route : state_.routes )
      next_.push_back(
         { [this, &route] { return planOf( route ); },
           Vel::text( "route ", route.destination, "/", route.destinationLength ),
           {} } );
   total_ += state_.routes.size();
}

void Restore::askRound( Items items ) {
   succeeded_ = false;
   present_.clear();
   // One more for this function itself, so that the round does not end before all have been asked for.
   underWay_ = items.size() + 1;
   for ( Item & item : items ) {
      Plan plan = item.plan();
      if ( !plan.error.empty() || plan.request.empty() ) {
         const int code = plan.error.empty() ? EEXIST : EAGAIN;
         answered( std::move( item ), { code, plan.error } );
         continue;
      }
      around_.requests.ask(
         std::move( plan.request ),
         [this, item = std::move( item ), alive = std::weak_ptr( alive_ )]( const KernelAnswer & answer ) {
            if ( !alive.expired() )
               answered( item, answer );
         } );
   }
   if ( --underWay_ == 0 )
      roundEnded();
}

void Restore::answered( Item item, const KernelAnswer & answer ) {
   if ( answer.code == 0 )
      succeeded_ = true;
   else if ( answer.code != EEXIST ) {
      item.error = answer.text;
      next_.push_back( std::move( item ) );
   }
   if ( --underWay_ == 0 )
      roundEnded();
}

void Restore::roundEnded() {
   if ( !routesAdded_ )
      addRoutes();
   else if ( next_.empty() )
      return finish();
   else if ( !succeeded_ ) {
      if ( now_ + retryPeriod > end_ )
         return finish();
      retryTime_ = now_ + retryPeriod;
      return;
   }
   askRound( std::exchange( next_, {} ) );
}

void Restore::finish() {
   Outcome outcome;
   if ( !next_.empty() )
      outcome = Outcome::failed( Vel::text(
         next_.size(), " of ", total_, " addresses and routes of ", device_,
         " are not restored, the first is ", next_.front().name, ": ", next_.front().error ) );
   const Done done = std::move( done_ );
   done( outcome );
}

Restore::Plan Restore::planOf( const LinkAddress & address ) const {
   const Vel::U32 ifIndex = around_.links.ifIndex( intf_ );
   if ( ifIndex == 0 )
      return { {}, "there is no such link" };
   return { addressRequest( address, ifIndex ), {} };
}

Restore::Plan Restore::planOf( const Route & route, RouteSet how ) const {
   std::optional< Bytes > request = routeRequest(
      route, how, [this]( const Vel::String & name ) { return around_.links.ifIndexOfName( name ); } );
   if ( !request )
      return { {}, "a link of it is not there" };
   return { std::move( *request ), {} };
}

Restore::Plan Restore::planOf( const Route & route ) {
   if ( route.legs.size() == 1 )
      return planOf( route, RouteSet::ifAbsent );
   const PresentRoutes & present = presentRoutes( route );
   if ( !present.outcome.ok() )
      return { {}, present.outcome.text() };
   const auto there = std::find_if( present.routes.begin(), present.routes.end(), [&]( const Route & other ) {
      return route.sameKey( other );
   } );
   const bool absent = there == present.routes.end();
   // Somebody else's, or complete as far as this link goes.
   const auto foreign = [&]( const Leg & leg ) { return !hasWay( route.legs, leg ); };
   const auto own = [&]( const Leg & leg ) { return leg.device == device_; };
   if (
      !absent && ( std::any_of( there->legs.begin(), there->legs.end(), foreign ) ||
                   std::any_of( there->legs.begin(), there->legs.end(), own ) ) )
      return {};
   Route possible = route;
   std::erase_if( possible.legs, [&]( const Leg & leg ) {
      return !isUp( leg ) && ( absent || !hasWay( there->legs, leg ) );
   } );
   if ( possible.legs.empty() )
      return { {}, "no link of it is up" };
   return planOf( possible, absent ? RouteSet::ifAbsent : RouteSet::replace );
}

const Restore::PresentRoutes & Restore::presentRoutes( const Route & like ) {
   const auto [at, isNew] = present_.try_emplace( { like.family, like.protocol } );
   PresentRoutes & present = at->second;
   if ( !isNew )
      return present;
   const NameOfLink nameOf = [this]( Vel::U32 ifIndex ) { return around_.links.name( ifIndex ); };
   present.outcome = around_.dumps.whole(
      routeDumpRequest( like.family, 0, like.protocol ), "routes", [&] { present.routes.clear(); },
      [&]( const nlmsghdr & message ) {
         if ( std::optional< Route > route = parseRoute( message, nameOf ) )
            present.routes.push_back( std::move( *route ) );
      } );
   return present;
}

bool Restore::isUp( const Leg & leg ) const {
   return around_.links.adminUp( around_.links.ifIndexOfName( leg.device ) );
}

} // namespace DataPlane::Linux
