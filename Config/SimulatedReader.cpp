// The chapter of the reader that reads the simulated switch.

#include "Config/InQuotes.h"
#include "Config/Reader.h"

namespace Config {

void Reader::simulated( const Node & node ) {
   if ( !values_.isRecord( node, "\"simulated\"", { "clock", "ports", "port-channels", "vlans", "routes" } ) )
      return;
   if ( const Node * const clock = Values::find( node, "clock" ) )
      if ( values_.choice( *clock, { "real", "virtual" } ) == "virtual" )
         configuration_.simulated.clock = Simulated::Clock::virtualTime;
   if ( const Node * const map = Values::find( node, "ports" ) )
      ports( *map );
   if ( const Node * const map = Values::find( node, "port-channels" ) )
      portChannels( *map );
   if ( const Node * const map = Values::find( node, "vlans" ) )
      simulatedVlans( *map );
   if ( const Node * const list = Values::find( node, "routes" ) )
      simulatedRoutes( *list );
}

/// All interfaces of the switch have different names, whatever their kind.
bool Reader::isNewInterface( const std::string & name, Place place ) {
   if ( !values_.isInterfaceName( name, place ) )
      return false;
   const auto [first, added] = simulatedNames_.emplace( name, place );
   if ( !added )
      values_.error(
         place,
         "duplicate name " + inQuotes( name ) + "; it is already at " + diagnostics_.text( first->second ) );
   return added;
}

void Reader::ports( const Node & node ) {
   portsKnown_ = values_.isMap( node, "a map of ports" );
   if ( !portsKnown_ )
      return;
   for ( const Node & child : node.children ) {
      isNewInterface( child.key, child.keyPlace );
      vlanCandidates_.emplace( child.key, child.keyPlace );
      SimulatedPort & port = configuration_.simulated.ports[child.key];
      if ( !values_.isRecord( child, "a port", { "traffic", "speed" } ) )
         continue;
      if ( const Node * const speed = Values::find( child, "speed" ) ) {
         port.speed = values_.rate( *speed );
         if ( port.speed == Rate() )
            values_.error( speed->place, inQuotes( speed->text ) + " is out of range; a speed is above 0" );
      }
      if ( const Node * const list = Values::find( child, "traffic" ) )
         traffic( *list, port );
   }
}

void Reader::traffic( const Node & node, SimulatedPort & port ) {
   if ( !values_.isList( node, "a list of traffic segments" ) )
      return;
   TrafficSegment last;
   for ( const Node & item : node.children ) {
      TrafficSegment next;
      next.in = last.in;
      next.out = last.out;
      if ( !segment( item, next ) )
         continue;
      port.traffic.push_back( next );
      last = next;
   }
}

bool Reader::segment( const Node & node, TrafficSegment & segment ) {
   if ( !values_.isRecord( node, "a traffic segment", { "for", "ramp", "to", "in", "out" } ) )
      return false;
   const Node * const hold = Values::find( node, "for" );
   const Node * const ramp = Values::find( node, "ramp" );
   const Node * const to = Values::find( node, "to" );
   const Node * const in = Values::find( node, "in" );
   const Node * const out = Values::find( node, "out" );
   if ( hold && ramp )
      values_.error( ramp->keyPlace, "a traffic segment has either \"for\" or \"ramp\"" );
   else if ( !hold && !ramp )
      values_.error( node.place, "a traffic segment needs \"for\" or \"ramp\"" );
   else if ( to && hold )
      values_.error( to->keyPlace, "\"to\" belongs to \"ramp\"; write \"in\" and \"out\"" );
   else if ( to && ( in || out ) )
      values_.error( to->keyPlace, "a ramp has either \"to\", for both directions, or \"in\" and \"out\"" );
   else if ( ramp && !to && !in && !out )
      values_.error( ramp->keyPlace, "a ramp needs \"to\", \"in\" or \"out\"" );

   segment.kind = ramp ? TrafficSegment::Kind::ramp : TrafficSegment::Kind::hold;
   for ( const Node * const length : { hold, ramp } ) {
      if ( !length )
         continue;
      const std::optional< Duration > duration = values_.duration( *length );
      if ( duration == Duration() )
         values_.error(
            length->place, inQuotes( length->text ) + " is out of range; a segment lasts at least 1s" );
      segment.length = duration.value_or( Duration() );
   }
   if ( to )
      segment.in = segment.out = values_.rate( *to ).value_or( Rate() );
   if ( in )
      segment.in = values_.rate( *in ).value_or( Rate() );
   if ( out )
      segment.out = values_.rate( *out ).value_or( Rate() );
   return true;
}

void Reader::portChannels( const Node & node ) {
   portChannelsKnown_ = values_.isMap( node, "a map of port-channels" );
   if ( !portChannelsKnown_ )
      return;
   const std::map< std::string, SimulatedPort > & ports = configuration_.simulated.ports;
   for ( const Node & child : node.children ) {
      isNewInterface( child.key, child.keyPlace );
      vlanCandidates_.emplace( child.key, child.keyPlace );
      std::set< std::string > & members = configuration_.simulated.portChannels[child.key];
      if ( !values_.isList( child, "a list of ports" ) )
         continue;
      for ( const Node & item : child.children ) {
         const std::optional< std::string > name = values_.reference( item, "port", ports, portsKnown_ );
         if ( !name )
            continue;
         const auto [first, isFree] = portChannelMembers_.emplace( *name, item.place );
         if ( isFree )
            members.insert( *name );
         else
            values_.error(
               item.place, inQuotes( *name ) + " is already a member of a port-channel at " +
                              diagnostics_.text( first->second ) );
      }
   }
}

void Reader::simulatedVlans( const Node & node ) {
   if ( !values_.isMap( node, "a map of VLANs" ) )
      return;
   for ( const Node & child : node.children ) {
      const Parsed< VlanRange > id = VlanRange::parse( child.key );
      if ( !id || id.value->first != id.value->last ) {
         values_.error(
            child.keyPlace,
            id ? inQuotes( child.key ) + " is not a VLAN id but a range" : std::move( id.error ) );
         continue;
      }
      SimulatedVlan & vlan = configuration_.simulated.vlans[id.value->first];
      vlan.name = "vlan" + child.key;
      Place namePlace = child.keyPlace;
      if ( values_.isRecord( child, "a VLAN", { "name", "members" } ) ) {
         const Node * const name = Values::find( child, "name" );
         if ( name && values_.isScalar( *name, "an interface name" ) ) {
            vlan.name = name->text;
            namePlace = name->place;
         }
         if ( const Node * const members = Values::find( child, "members" ) )
            vlanMembers( *members, vlan );
      }
      isNewInterface( vlan.name, namePlace );
   }
}

void Reader::vlanMembers( const Node & node, SimulatedVlan & vlan ) {
   if ( !values_.isList( node, "a list of ports and port-channels" ) )
      return;
   std::map< std::string, Place > seen;
   for ( const Node & item : node.children ) {
      const std::optional< std::string > name = values_.reference(
         item, "port or port-channel", vlanCandidates_, portsKnown_ && portChannelsKnown_ );
      if ( !name )
         continue;
      const auto inside = portChannelMembers_.find( *name );
      if ( inside != portChannelMembers_.end() )
         values_.error(
            item.place, inQuotes( *name ) + " is a member of a port-channel at " +
                           diagnostics_.text( inside->second ) +
                           "; the port-channel can be a member of the VLAN instead" );
      else if ( values_.isNew( seen, *name, item.place ) )
         vlan.members.insert( *name );
   }
}

} // namespace Config
