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

/// Whether a refusal says nothing of what was to be set: we may set nothing, or have not reached the kernel, or it has no
/// memory.
bool isUnjudged( int code ) { return code == EPERM || code == EIO || code == ENOMEM || code == ENOBUFS; }

bool needsOthers( const Route & route ) {
   return std::any_of(
      route.legs.begin(), route.legs.end(), []( const Leg & leg ) { return leg.gateway.has_value(); } );
}

} // namespace

Restore::Restore(
   Surroundings surroundings, const Wire::IntfId & intf, LostState state, double now, Lowered lowered,
   Done done )
   : around_( surroundings ),
     intf_( intf ),
     device_( intf.name() ),
     state_( std::move( state ) ),
     now_( now ),
     begun_( now ),
     carrierSince_( never ),
     retryTime_( never ),
     lowered_( std::move( lowered ) ),
     done_( std::move( done ) ) {
   for ( const Follower & follower : state_.followers )
      followers_[follower.name] = &follower;
}

void Restore::begin() {
   noteCarrier();
   addLowering();
   if ( toLower_ == 0 )
      lowered_();
   askRound( std::exchange( next_, {} ) );
}

void Restore::retry( double now ) {
   now_ = now;
   retryTime_ = never;
   noteCarrier();
   askRound( std::exchange( next_, {} ) );
}

void Restore::noteCarrier() {
   if ( !around_.links.hasCarrier( around_.links.ifIndex( intf_ ) ) )
      carrierSince_ = never;
   else if ( carrierSince_ == never )
      carrierSince_ = now_;
}

void Restore::add( Item item ) {
   toLower_ += item.lowers;
   next_.push_back( std::move( item ) );
   ++total_;
}

namespace {

/// The same device in what is left over; it is not to be set down a second time.
LostOfDevice & ofDevice( LostState & left, const Follower * follower ) {
   if ( !follower )
      return left.own;
   const auto at = std::find_if( left.followers.begin(), left.followers.end(), [&]( const Follower & other ) {
      return other.ifIndex == follower->ifIndex;
   } );
   if ( at != left.followers.end() )
      return at->lost;
   left.followers.push_back( { follower->name, follower->ifIndex, false, {} } );
   return left.followers.back().lost;
}

} // namespace

/// Lower ones first, which takes those above them along.
void Restore::addLowering() {
   for ( const Follower & follower : state_.followers )
      if ( follower.wasDown )
         add(
            { .plan = [this, &follower] { return planOf( follower ); },
              .keep = []( LostState & ) {},
              .name = Vel::text( "that ", follower.name, " was down" ),
              .lowers = true } );
}

void Restore::addAddresses() {
   addOf( state_.own, nullptr );
   for ( const Follower & follower : state_.followers )
      addOf( follower.lost, &follower );
}

/// The kernel puts a new address before the others, so the last one goes first.
void Restore::addOf( const LostOfDevice & lost, const Follower * follower ) {
   for ( auto at = lost.addresses.rbegin(); at != lost.addresses.rend(); ++at )
      add(
         { .plan = [this, &address = *at, follower] { return planOf( address, follower ); },
           .keep =
              [&address = *at, follower]( LostState & left ) {
                 auto & addresses = ofDevice( left, follower ).addresses;
                 addresses.insert( addresses.begin(), address );
              },
           .name = Vel::text( "address ", at->address, "/", at->prefixLength ) } );
   for ( const Neighbour & neighbour : lost.neighbours )
      add(
         { .plan = [this, &neighbour, follower] { return planOf( neighbour, follower ); },
           .keep = [&neighbour, follower](
                      LostState & left ) { ofDevice( left, follower ).neighbours.push_back( neighbour ); },
           .name = Vel::text( neighbour.isProxy() ? "proxy " : "neighbour ", neighbour.address ),
           .mayBeOther = true } );
}

void Restore::addRoutes() {
   std::stable_sort( state_.routes.begin(), state_.routes.end(), []( const Route & a, const Route & b ) {
      return needsOthers( a ) < needsOthers( b );
   } );
   for ( const Route & route : state_.routes )
      add(
         { .plan = [this, &route] { return planOf( route ); },
           .keep =
              [this, &route]( LostState & left ) {
                 left.routes.push_back( route );
                 for ( const Leg & leg : route.legs )
                    if ( const Follower * const follower = followerOf( leg.device ) )
                       ofDevice( left, follower );
              },
           .name = Vel::text( "route ", route.destination, "/", route.destinationLength ) } );
}

void Restore::askRound( Items items ) {
   succeeded_ = false;
   present_.clear();
   // One more for this function itself, so that the round does not end before all have been asked for.
   underWay_ = items.size() + 1;
   for ( Item & item : items ) {
      Plan plan = item.plan();
      if ( !plan.error.empty() || plan.request.empty() ) {
         const int code = plan.code != 0 ? plan.code : plan.error.empty() ? EEXIST : EAGAIN;
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
   const bool isThere = answer.code == EEXIST && ( !item.mayBeOther || answer.text.empty() );
   if ( answer.code == 0 || isThere ) {
      succeeded_ |= !isThere;
      if ( item.lowers && --toLower_ == 0 )
         lowered_();
   } else {
      item.error = answer.text;
      item.code = answer.code;
      next_.push_back( std::move( item ) );
   }
   if ( --underWay_ == 0 )
      roundEnded();
}

void Restore::roundEnded() {
   if ( stage_ == Stage::lowering ) {
      stage_ = Stage::addresses;
      addAddresses();
   } else if ( stage_ == Stage::addresses ) {
      stage_ = Stage::routes;
      addRoutes();
   } else if ( next_.empty() ) {
      return finish();
   } else if ( !succeeded_ ) {
      const double since = carrierSince_ == never ? begun_ : carrierSince_;
      if ( now_ + retryPeriod > std::min( since + maxTime, begun_ + maxTimeInAll ) )
         return finish();
      retryTime_ = now_ + retryPeriod;
      return;
   }
   askRound( std::exchange( next_, {} ) );
}

void Restore::finish() {
   Outcome outcome;
   Vel::String left;
   if ( !next_.empty() ) {
      const bool isTooEarly = now_ + retryPeriod <= carrierSince_ + maxTime;
      if ( around_.links.ifIndex( intf_ ) != 0 )
         left = textOf( leftOver( isTooEarly ) );
      outcome = Outcome::failed( Vel::text(
         next_.size(), " of ", total_, " addresses, neighbours and routes of ", device_,
         left.empty() ? " are not restored"
         : isTooEarly ? " wait for its carrier"
                      : " are not restored yet",
         ", the first is ", next_.front().name, ": ", next_.front().error ) );
   }
   const Done done = std::move( done_ );
   done( outcome, left );
}

/// Lifetimes go on meanwhile.
LostState Restore::leftOver( bool all ) const {
   LostState left;
   left.at = state_.at;
   for ( const Item & item : next_ )
      if ( all || isUnjudged( item.code ) )
         item.keep( left );
   return left;
}

bool Restore::isGone( const Follower & follower ) const {
   return !around_.links.follows( follower.ifIndex, around_.links.ifIndex( intf_ ) );
}

const Follower * Restore::followerOf( const Vel::String & device ) const {
   const auto at = followers_.find( device );
   return at == followers_.end() ? nullptr : at->second;
}

bool Restore::isOfGone( const Leg & leg ) const {
   const Follower * const follower = followerOf( leg.device );
   return follower && isGone( *follower );
}

/// The device that had the name when it was lost; 0: it is not there any more.
Vel::U32 Restore::ifIndexOf( const Vel::String & device ) const {
   const Follower * const follower = followerOf( device );
   if ( !follower )
      return around_.links.ifIndexOfName( device );
   return isGone( *follower ) ? 0 : follower->ifIndex;
}

Restore::Plan Restore::planOf( const Follower & follower ) const {
   if ( isGone( follower ) )
      return {};
   return { linkSetRequest( follower.ifIndex, false ), {} };
}

Restore::Plan Restore::planOf( const LinkAddress & address, const Follower * follower ) const {
   if ( follower && isGone( *follower ) )
      return {};
   const Vel::U32 ifIndex = follower ? follower->ifIndex : around_.links.ifIndex( intf_ );
   if ( ifIndex == 0 )
      return { {}, "there is no such link" };
   return { addressRequest( address, ifIndex ), {} };
}

/// What the kernel has learned meanwhile gives way to it; what somebody has set stays.
Restore::Plan Restore::planOf( const Neighbour & neighbour, const Follower * follower ) const {
   if ( follower && isGone( *follower ) )
      return {};
   const Vel::U32 ifIndex = follower ? follower->ifIndex : around_.links.ifIndex( intf_ );
   if ( ifIndex == 0 )
      return { {}, "there is no such link" };
   if ( neighbour.isProxy() )
      return { neighbourRequest( neighbour, ifIndex, NeighbourSet::ifAbsent ), {} };
   bool isKnown = false, isSet = false;
   // One that there is not is refused, and so it is absent.
   (void)around_.dumps.one(
      neighbourRequest( neighbour.address, ifIndex ), "neighbour", [&]( const nlmsghdr & message ) {
         isKnown = true;
         isSet = parseLostNeighbour( message ).has_value();
      } );
   if ( isSet )
      return {};
   return {
      neighbourRequest( neighbour, ifIndex, isKnown ? NeighbourSet::replace : NeighbourSet::ifAbsent ), {} };
}

Restore::Plan Restore::planOf( const Route & route, RouteSet how ) const {
   std::optional< Bytes > request =
      routeRequest( route, how, [this]( const Vel::String & name ) { return ifIndexOf( name ); } );
   if ( !request )
      return { {}, "a link of it is not there" };
   return { std::move( *request ), {} };
}

Restore::Plan Restore::planOf( const Route & route ) {
   if ( route.legs.size() == 1 ) {
      if ( isOfGone( route.legs.front() ) )
         return {};
      return planOf( route, RouteSet::ifAbsent );
   }
   const auto own = [&]( const Leg & leg ) { return leg.device == device_ || followerOf( leg.device ); };
   if ( std::none_of( route.legs.begin(), route.legs.end(), [&]( const Leg & leg ) {
           return own( leg ) && !isOfGone( leg );
        } ) )
      return {};
   const PresentRoutes & present = presentRoutes( route );
   if ( !present.outcome.ok() )
      return { {}, present.outcome.text(), EIO };
   const auto there = std::find_if( present.routes.begin(), present.routes.end(), [&]( const Route & other ) {
      return route.sameKey( other );
   } );
   const bool absent = there == present.routes.end();
   // Somebody else's, or complete as far as this link goes.
   const auto foreign = [&]( const Leg & leg ) { return !hasWay( route.legs, leg ); };
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

bool Restore::isUp( const Leg & leg ) const { return around_.links.adminUp( ifIndexOf( leg.device ) ); }

} // namespace DataPlane::Linux
