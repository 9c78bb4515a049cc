#include "DataPlane/Simulated/SimulatedSwitch.h"

#include "DataPlane/Simulated/Factory.h"

#include <algorithm>

namespace DataPlane::Simulated {

namespace {
bool isPort( const Wire::IntfId & intf ) { return intf.kind() == Wire::IntfId::Kind::ethernet; }
bool isVlan( const Wire::IntfId & intf ) { return intf.kind() == Wire::IntfId::Kind::vlan; }
} // namespace

SimulatedSwitch::SimulatedSwitch( Vel::Ptr< Cog::Scheduler > scheduler, const Description & description )
   : scheduler_( std::move( scheduler ) ),
     bootId_( description.bootId.empty() ? Vel::String( "simulated" ) : description.bootId ),
     startTime_( scheduler_->currentTime() ),
     routes_( description.routes ) {
   for ( const Port & port : description.ports ) {
      SimLink & link = add( Wire::EthIntfId( port.name ) );
      link.in = scriptFlow( port.traffic, &TrafficSegment::inBps );
      link.out = scriptFlow( port.traffic, &TrafficSegment::outBps );
      link.speedBps = port.speedBps;
   }
   for ( const PortChannel & portChannel : description.portChannels ) {
      SimLink & link = add( Wire::PortChannelIntfId( portChannel.name ) );
      for ( const Vel::String & member : portChannel.members ) {
         link.members.push_back( find( member ) );
         link.members.back()->portChannel = &link;
      }
   }
   for ( const Vlan & vlan : description.vlans ) {
      SimLink & link = add( Wire::VlanIntfId( vlan.name, vlan.id ) );
      for ( const Vel::String & member : vlan.members )
         link.members.push_back( find( member ) );
   }
}

SimulatedSwitch::SimLink & SimulatedSwitch::add( const Wire::IntfId & intf ) {
   links_.push_back( std::make_unique< SimLink >() );
   SimLink & link = *links_.back();
   link.intf = intf;
   link.ifIndex = ++lastIfIndex_;
   byName_[Vel::String( intf.name() )] = &link;
   return link;
}

SimulatedSwitch::SimLink * SimulatedSwitch::find( std::string_view name ) {
   const auto at = byName_.find( name );
   return at == byName_.end() ? nullptr : at->second;
}

SimulatedSwitch::SimLink * SimulatedSwitch::find( const Wire::IntfId & intf ) {
   SimLink * const link = find( intf.name() );
   return link && link->intf == intf ? link : nullptr;
}

Outcome SimulatedSwitch::unknown( std::string_view name ) {
   return Outcome::failed( Vel::text( "the simulated switch has no link \"", name, "\"" ) );
}

Outcome SimulatedSwitch::start( Listener & listener ) {
   listener_ = &listener;
   ++listening_;
   told_ = Told();
   tell();
   if ( !healthFault_.empty() )
      listener_->healthIs( { true, healthFault_ } );
   return {};
}

void SimulatedSwitch::stop() {
   listener_ = nullptr;
   routesAsked_.clear();
   ++listening_;
}

// Links.

bool SimulatedSwitch::operUp( const SimLink & link ) {
   if ( !link.present || !link.adminUp )
      return false;
   if ( isPort( link.intf ) )
      return link.carrier;
   return std::any_of(
      link.members.begin(), link.members.end(), []( const SimLink * member ) { return operUp( *member ); } );
}

SimulatedSwitch::Told SimulatedSwitch::wanted() const {
   Told result;
   for ( const auto & link : links_ ) {
      if ( !link->present )
         continue;
      result.links[link->intf] = { link->intf, link->ifIndex, link->adminUp, operUp( *link ) };
      if ( inPortChannel( *link ) )
         result.portChannels[link->intf] = link->portChannel->intf;
   }
   for ( const auto & link : links_ )
      for ( const SimLink * member : link->members )
         if ( isVlan( link->intf ) && member->present && !inPortChannel( *member ) )
            result.vlanMembers.insert( { link->intf.vlanId(), member->intf } );
   return result;
}

/// Removals first, memberships before links; then additions, links before memberships. The listener may call back, but
/// changes come later, so what is wanted stands still.
void SimulatedSwitch::tell() {
   if ( !listener_ )
      return;
   const Told told = std::exchange( told_, wanted() );
   const auto same = [&]( const Wire::IntfId & intf ) {
      const auto at = told_.links.find( intf );
      return at != told_.links.end() && at->second.ifIndex == told.links.at( intf ).ifIndex;
   };
   for ( const auto & [vlanId, member] : told.vlanMembers )
      if ( !told_.vlanMembers.count( { vlanId, member } ) || !same( member ) )
         listener_->vlanMemberDel( vlanId, member );
   for ( const auto & [port, portChannel] : told.portChannels )
      if ( !told_.portChannels.count( port ) || !same( port ) || !same( portChannel ) )
         listener_->portChannelIs( port, {} );
   for ( const auto & [intf, link] : told.links )
      if ( !same( intf ) )
         listener_->linkDel( intf );
   // In the order of the description, which is that of the numbers at the start.
   for ( const auto & link : links_ ) {
      const auto at = told_.links.find( link->intf );
      const auto before = told.links.find( link->intf );
      if ( at != told_.links.end() && ( before == told.links.end() || before->second != at->second ) )
         listener_->linkIs( at->second );
   }
   for ( const auto & [port, portChannel] : told_.portChannels )
      if ( !told.portChannels.count( port ) || !same( port ) || !same( portChannel ) )
         listener_->portChannelIs( port, portChannel );
   for ( const auto & [vlanId, member] : told_.vlanMembers )
      if ( !told.vlanMembers.count( { vlanId, member } ) || !same( member ) )
         listener_->vlanMemberIs( vlanId, member );
}

void SimulatedSwitch::later( Vel::U32 turns, std::function< void() > act ) {
   scheduler_->post( [this, turns, act = std::move( act ), alive = std::weak_ptr( alive_ )] {
      if ( alive.expired() )
         return;
      if ( turns == 0 )
         act();
      else
         later( turns - 1, act );
   } );
}

void SimulatedSwitch::schedulerIs( const Vel::Ptr< Cog::Scheduler > & scheduler ) {
   stop();
   requests_.clear();
   alive_ = std::make_shared< int >();
   scheduler_ = scheduler;
}

void SimulatedSwitch::change( std::function< void() > act ) {
   later( 0, [this, act = std::move( act )] {
      settle();
      act();
      tell();
   } );
}

Outcome SimulatedSwitch::linkIs( std::string_view name, bool up ) {
   SimLink * const link = find( name );
   if ( !link )
      return unknown( name );
   if ( !isPort( link->intf ) )
      return Outcome::failed(
         Vel::text( "\"", name, "\" is up while a member is, it has no carrier of its own" ) );
   change( [link, up] { link->carrier = up; } );
   return {};
}

Outcome SimulatedSwitch::linkDel( std::string_view name ) {
   SimLink * const link = find( name );
   if ( !link )
      return unknown( name );
   change( [link] {
      link->present = false;
      link->addresses.clear();
   } );
   return {};
}

Outcome SimulatedSwitch::linkNew( std::string_view name ) {
   SimLink * const link = find( name );
   if ( !link )
      return unknown( name );
   change( [this, link] {
      if ( link->present )
         return;
      link->present = link->adminUp = link->carrier = true;
      link->ifIndex = ++lastIfIndex_;
   } );
   return {};
}

void SimulatedSwitch::linkSet(
   RequestId id, const Wire::IntfId & intf, bool up, const Vel::String & restore ) {
   requests_.push_back( { id, intf, up, restore, listening_ } );
   if ( requests_.size() > 1 )
      return;
   // All requests of a turn at once: many links are shut together.
   later( 0, [this] {
      const std::vector< Request > requests = std::exchange( requests_, {} );
      settle();
      std::vector< Outcome > outcomes;
      for ( const Request & request : requests )
         outcomes.push_back( carryOut( request ) );
      tell();
      for ( std::size_t i = 0; i < requests.size(); ++i )
         finish( requests[i], outcomes[i] );
   } );
}

Outcome SimulatedSwitch::carryOut( const Request & request ) {
   SimLink * const link = find( request.intf );
   if ( !linkSetFault_.empty() )
      return Outcome::failed( linkSetFault_ );
   if ( !link || !link->present )
      return unknown( request.intf.name() );
   link->adminUp = request.up;
   if ( !request.up )
      link->addresses.clear();
   else if ( link->addresses.empty() )
      link->addresses = request.restore;
   return {};
}

void SimulatedSwitch::finish( const Request & request, const Outcome & outcome ) {
   const auto report = [this, id = request.id, outcome, listening = request.listening] {
      if ( listener_ && listening == listening_ )
         listener_->linkSetDone( id, { outcome, {} } );
   };
   if ( linkSetDelay_ == 0 )
      report();
   else
      later( linkSetDelay_ - 1, report );
}

LinkSnapshot SimulatedSwitch::linkSnapshot( const Wire::IntfId & intf ) {
   SimLink * const link = find( intf );
   if ( !link || !link->present )
      return { unknown( intf.name() ), {} };
   return { {}, link->addresses };
}

Outcome SimulatedSwitch::addressesIs( std::string_view name, const Vel::String & text ) {
   SimLink * const link = find( name );
   if ( !link || !link->present )
      return unknown( name );
   link->addresses = text;
   return {};
}

Vel::String SimulatedSwitch::addresses( std::string_view name ) const {
   const auto at = byName_.find( name );
   return at == byName_.end() ? Vel::String() : at->second->addresses;
}

void SimulatedSwitch::healthFaultIs( const Vel::String & text ) {
   healthFault_ = text;
   later( 0, [this, text] {
      if ( listener_ )
         listener_->healthIs( { !text.empty(), text } );
   } );
}

// Traffic.

bool SimulatedSwitch::carries( const SimLink & port ) {
   return operUp( port ) && ( !inPortChannel( port ) || port.portChannel->adminUp );
}

SimulatedSwitch::Amounts SimulatedSwitch::amounts( const SimLink & port ) const {
   Amounts result{ port.inAmount, port.outAmount };
   if ( !carries( port ) )
      return result;
   const Micros now = micros();
   result.in += port.in.amount( now ) - port.in.amount( settled_ );
   result.out += port.out.amount( now ) - port.out.amount( settled_ );
   if ( !inPortChannel( port ) )
      return result;
   const SimLink & portChannel = *port.portChannel;
   const Amount sharers =
      std::count_if( portChannel.members.begin(), portChannel.members.end(), []( const SimLink * member ) {
         return carries( *member );
      } );
   result.in += ( portChannel.in.amount( now ) - portChannel.in.amount( settled_ ) ) / sharers;
   result.out += ( portChannel.out.amount( now ) - portChannel.out.amount( settled_ ) ) / sharers;
   return result;
}

void SimulatedSwitch::settle() {
   for ( const auto & link : links_ ) {
      if ( !isPort( link->intf ) )
         continue;
      const Amounts now = amounts( *link );
      link->inAmount = now.in;
      link->outAmount = now.out;
   }
   settled_ = micros();
}

Outcome SimulatedSwitch::trafficIs( std::string_view name, double inBps, double outBps, double rampSeconds ) {
   SimLink * const link = find( name );
   if ( !link )
      return unknown( name );
   if ( isVlan( link->intf ) )
      return Outcome::failed(
         Vel::text( "\"", name, "\" carries what its members carry, it has no traffic of its own" ) );
   if ( !( inBps >= 0 && inBps <= maxRate && outBps >= 0 && outBps <= maxRate ) )
      return Outcome::failed( Vel::text( "a rate for \"", name, "\" is not from 0 to 10 Tbit/s" ) );
   if ( !( rampSeconds >= 0 && rampSeconds <= maxSegment ) )
      return Outcome::failed( Vel::text( "the ramp for \"", name, "\" is not from 0 s to ten days long" ) );
   settle();
   const auto continued = [&]( const Flow & flow, double rate ) {
      Flow next( settled_, flow.rate( settled_ ) );
      next.continueWith( settled_, true, rate, rampSeconds );
      return next;
   };
   link->in = continued( link->in, inBps );
   link->out = continued( link->out, outBps );
   return {};
}

Outcome SimulatedSwitch::countersRefresh( VelPool::EntityManager & pool ) {
   if ( !countersFault_.empty() )
      return Outcome::failed( countersFault_ );
   const auto octets = []( Amount amount ) { return static_cast< Vel::U64 >( amount / amountPerOctet ); };
   for ( const auto & link : links_ ) {
      if ( !isPort( link->intf ) )
         continue;
      if ( link->present ) {
         const Amounts now = amounts( *link );
         pool.intfCountersIs( link->intf, octets( now.in ), Cog::MaybeU63( octets( now.out ) ) );
      } else {
         pool.intfDel( link->intf );
      }
   }
   return {};
}

} // namespace DataPlane::Simulated
