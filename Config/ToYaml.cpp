#include "Config/ToYaml.h"

#include "Config/Names.h"

namespace Config {

namespace {

/// A name as a scalar. What is more than letters, digits, ".", "_" and "-", or could be taken for the absence of a
/// value, is put in quotes.
std::string scalar( const std::string & text ) {
   if ( isName( text ) && text != "null" && text != "Null" && text != "NULL" )
      return text;
   std::string result = "\"";
   for ( const char c : text ) {
      if ( c == '"' || c == '\\' )
         result.append( 1, '\\' );
      result.append( 1, c );
   }
   return result.append( 1, '"' );
}

template < typename Items, typename Text >
std::string list( const Items & items, const Text & text ) {
   std::string result = "[";
   for ( const auto & item : items )
      result.append( result.size() == 1 ? "" : ", " ).append( text( item ) );
   return result.append( 1, ']' );
}

template < typename Names >
std::string list( const Names & names ) {
   return list( names, scalar );
}

std::string text( const Profile & profile ) {
   std::string result =
      "{threshold: " + profile.threshold.text() + ", load-interval: " + profile.loadInterval.text();
   result.append( profile.shutdown ? ", shutdown: true" : ", shutdown: false" );
   if ( profile.shutdownMaxDelay )
      result.append( ", shutdown-max-delay: " ).append( profile.shutdownMaxDelay->text() );
   return result.append( 1, '}' );
}

std::string text( const Group & group ) {
   std::string result = "{interfaces: " + list( group.interfaces );
   result.append( ", vlans: " ).append( list( group.vlans.ranges(), []( const VlanRange & range ) {
      return range.text();
   } ) );
   if ( group.profile )
      result.append( ", profile: " ).append( scalar( *group.profile ) );
   return result.append( 1, '}' );
}

std::string text( const Unit & unit ) {
   return "{groups: " + list( unit.groups ) + ", enter: " + list( unit.enter ) +
          ", exit: " + list( unit.exit ) + "}";
}

std::string text( const TrafficSegment & segment ) {
   return std::string( segment.kind == TrafficSegment::Kind::ramp ? "{ramp: " : "{for: " ) +
          segment.length.text() + ", in: " + segment.in.text() + ", out: " + segment.out.text() + "}";
}

std::string text( const SimulatedPort & port ) {
   std::string result;
   if ( !port.traffic.empty() )
      result =
         "traffic: " + list( port.traffic, []( const TrafficSegment & segment ) { return text( segment ); } );
   if ( port.speed )
      result += ( result.empty() ? "speed: " : ", speed: " ) + port.speed->text();
   return "{" + result + "}";
}

std::string text( const SimulatedRoute & route ) {
   return "{to: " + scalar( route.to ) + ", via: " + list( route.via ) +
          ", metric: " + std::to_string( route.metric ) + "}";
}

std::string text( const RedundancyGroup & group ) {
   return "{units: " + list( group.units ) + ", max-out: " + std::to_string( group.maxOut ) + "}";
}

std::string text( const SimulatedVlan & vlan ) {
   return "{name: " + scalar( vlan.name ) + ", members: " + list( vlan.members ) + "}";
}

std::string text( const CommandStage & stage ) {
   std::string result = "{";
   if ( !stage.enter.empty() )
      result.append( "enter: " + scalar( stage.enter.text() ) + ", " );
   if ( !stage.exit.empty() )
      result.append( "exit: " + scalar( stage.exit.text() ) + ", " );
   // The version that does not know `steers` can read what is kept as long as nobody uses it.
   return result.append( "timeout: " + stage.timeout.text() + ", on-failure: " )
      .append( text( stage.onFailure ) )
      .append( stage.steers ? ", steers: true}" : "}" );
}

std::string text( const Hook & hook ) {
   std::string result = "{at: " + list( hook.at, []( Moment moment ) { return text( moment ); } );
   if ( !hook.units.empty() )
      result += ", units: " + list( hook.units );
   if ( !hook.command.empty() )
      result += ", command: " + scalar( hook.command.text() );
   if ( !hook.url.empty() )
      result += ", url: " + scalar( hook.url );
   return result.append( ", time-limit: " + hook.timeLimit.text() + "}" );
}

std::string text( const std::set< std::string > & names ) { return list( names ); }

std::string keyText( const std::string & name ) { return scalar( name ); }
std::string keyText( VlanId vlan ) { return std::to_string( vlan ); }

/// A map, one line for each entry.
template < typename Map >
std::string entries( const std::string & indent, const char * key, const Map & map ) {
   std::string result = indent + key + ":";
   if ( map.empty() )
      return result.append( " {}\n" );
   result.append( 1, '\n' );
   for ( const auto & [name, value] : map )
      result.append( indent + "  " + keyText( name ) + ": " + text( value ) + "\n" );
   return result;
}

} // namespace

std::string toYaml( const Configuration & configuration ) {
   const Simulated & simulated = configuration.simulated;
   std::string result = "version: 1\n";
   result.append( "switch: " ).append( text( configuration.switchKind ) ).append( "\n" );
   result.append( "listen: {web: \"" )
      .append( configuration.web ? configuration.web->text() : std::string() )
      .append( "\"" );
   if ( !configuration.webNames.empty() ) // which versions before this one do not know
      result.append( ", names: " ).append( list( configuration.webNames ) );
   result.append( "}\n" );
   result.append( "settle: " + configuration.settle.text() + "\n" );
   result.append( entries( "", "stages", configuration.stages ) );
   result.append( "enter: " + list( configuration.enter ) + "\n" );
   result.append( "exit: " + list( configuration.exit ) + "\n" );
   result.append( entries( "", "profiles", configuration.profiles ) );
   result.append( "default-profile: " + scalar( configuration.defaultProfile ) + "\n" );
   result.append( entries( "", "groups", configuration.groups ) );
   result.append( entries( "", "units", configuration.units ) );
   result.append( entries( "", "redundancy-groups", configuration.redundancyGroups ) );
   result.append( "control-plane-floor: " + configuration.controlPlaneFloor.text() + "\n" );
   result.append( entries( "", "hooks", configuration.hooks ) );
   result.append( "simulated:\n" );
   result.append( simulated.clock == Simulated::Clock::real ? "  clock: real\n" : "  clock: virtual\n" );
   result.append( entries( "  ", "ports", simulated.ports ) );
   result.append( entries( "  ", "port-channels", simulated.portChannels ) );
   result.append( entries( "  ", "vlans", simulated.vlans ) );
   result.append( "  routes: " )
      .append( list( simulated.routes, []( const SimulatedRoute & route ) { return text( route ); } ) )
      .append( 1, '\n' );
   return result;
}

} // namespace Config
