#include "DataPlane/Simulated/Factory.h"
#include "DataPlane/Simulated/RouteTable.h"
#include "DataPlane/Simulated/SimulatedSwitch.h"

namespace DataPlane {

namespace Simulated {

namespace {

enum class Role { port, memberPort, portChannel, vlan };

class Validation {
 public:
   explicit Validation( const Description & description ) {
      for ( const Port & port : description.ports )
         take( port );
      for ( const PortChannel & portChannel : description.portChannels )
         take( portChannel );
      for ( const Vlan & vlan : description.vlans )
         take( vlan );
      for ( const Route & route : description.routes )
         take( route );
   }
   Outcome outcome;

 private:
   /// The first error stays.
   template < class... Pieces >
   void refuse( const Pieces &... pieces ) {
      if ( outcome.ok() )
         outcome = Outcome::failed( Vel::text( "simulated switch: ", pieces... ) );
   }

   void takeName( const Vel::String & name, Role role ) {
      if ( name.empty() || name.size() > Wire::IntfId::maxName || name.find( '\0' ) != Vel::String::npos )
         refuse( "\"", name, "\" is no name of 1 to ", Wire::IntfId::maxName, " bytes" );
      if ( !roles_.emplace( name, role ).second )
         refuse( "the name \"", name, "\" is used twice" );
   }

   void take( const Port & port ) {
      takeName( port.name, Role::port );
      const auto good = []( double rate ) { return rate >= 0 && rate <= maxRate; };
      for ( const TrafficSegment & segment : port.traffic ) {
         if ( !good( segment.inBps ) || !good( segment.outBps ) )
            refuse( "a rate of \"", port.name, "\" is not from 0 to 10 Tbit/s" );
         if ( !( segment.seconds >= 0 && segment.seconds <= maxSegment ) )
            refuse( "a piece of traffic of \"", port.name, "\" is not from 0 s to ten days long" );
      }
      if ( port.speedBps && !( *port.speedBps > 0 ) )
         refuse( "the speed of \"", port.name, "\" is not above 0" );
   }

   void take( const PortChannel & portChannel ) {
      takeName( portChannel.name, Role::portChannel );
      for ( const Vel::String & member : portChannel.members ) {
         const auto at = roles_.find( member );
         if ( at == roles_.end() || ( at->second != Role::port && at->second != Role::memberPort ) )
            refuse( "\"", member, "\", a member of port-channel \"", portChannel.name, "\", is no port" );
         else if ( std::exchange( at->second, Role::memberPort ) == Role::memberPort )
            refuse(
               "\"", member, "\" is a member of two port-channels or twice of \"", portChannel.name, "\"" );
      }
   }

   void take( const Vlan & vlan ) {
      takeName( vlan.name, Role::vlan );
      if ( vlan.id < 1 || vlan.id > 4094 )
         refuse( "VLAN ", vlan.id, " of \"", vlan.name, "\" is not from 1 to 4094" );
      if ( !vlanIds_.insert( vlan.id ).second )
         refuse( "VLAN ", vlan.id, " is described twice" );
      std::set< Vel::String > seen;
      for ( const Vel::String & member : vlan.members ) {
         const auto at = roles_.find( member );
         if ( at == roles_.end() || at->second == Role::vlan )
            refuse( "\"", member, "\", a member of VLAN ", vlan.id, ", is no port and no port-channel" );
         if ( !seen.insert( member ).second )
            refuse( "\"", member, "\" is twice a member of VLAN ", vlan.id );
      }
   }

   void take( const Route & route ) {
      if ( !isPrefix( route.to ) )
         refuse( "\"", route.to, "\" is no destination of a route" );
      if ( route.via.empty() )
         refuse( "the route to ", route.to, " leads nowhere" );
      for ( const Vel::String & link : route.via )
         if ( !roles_.count( link ) )
            refuse( "\"", link, "\", over which the route to ", route.to, " leads, is no link" );
   }

   std::map< Vel::String, Role > roles_;
   std::set< Vel::U16 > vlanIds_;
};

} // namespace

Outcome SimulatedSwitch::validate( const Description & description ) {
   return Validation( description ).outcome;
}

} // namespace Simulated

SimulatedSwitchMade switchNewSimulated(
   const Vel::Ptr< Cog::Scheduler > & scheduler, const Simulated::Description & description ) {
   SimulatedSwitchMade result;
   result.outcome = Simulated::SimulatedSwitch::validate( description );
   if ( !result.outcome.ok() )
      return result;
   const auto made = Vel::make< Simulated::SimulatedSwitch >( scheduler, description );
   result.made = made;
   result.simulation = made.get();
   return result;
}

} // namespace DataPlane
