#pragma once

#include "Config/Configuration.h"

#include <rapidcheck.h>

/// Accepted configurations for tests over generated input. All are called within a property.
namespace Generators {

template < typename Value >
Value oneOf( std::initializer_list< Value > values ) {
   return *rc::gen::elementOf( std::vector< Value >( values ) );
}

/// Some that YAML takes for something else when they stand without quotes.
inline std::string name() {
   return oneOf< std::string >(
      { "a", "b", "B", "null", "NULL", "true", "no", "10", "1.5", "0x10", "1e3", "a-", "a.b", "spine-a",
        "uplinks", std::string( 63, 'z' ) } );
}

inline std::string interfaceName() {
   return oneOf< std::string >(
      { "et1",  "et2", "et10", "bond0", "null", "true", "7",        "~",      "a\"b",
        "a\\b", "'q",  "#x",   "a#",    "&x",   "*x",   "!t",       "|",      ">",
        "%p",   "@x",  "`b",   "[",     "]",    "{",    "}",        ",",      "?",
        "-",    "<<",  "=",    "---",   "...",  "\\n",  "\u00e9th", "\u2028", "123456789012345" } );
}

inline std::set< std::string > interfaceNames() {
   std::set< std::string > result;
   for ( int i = *rc::gen::inRange( 0, 5 ); i > 0; --i )
      result.insert( interfaceName() );
   return result;
}

inline Config::Rate rate( std::uint64_t least ) {
   return Config::Rate::fromBps( *rc::gen::oneOf(
      rc::gen::element< std::uint64_t >( 1'000, 100'000, 1'500'000, Config::Rate::max().bps() ),
      rc::gen::inRange< std::uint64_t >( least, 1'000'000'000'000 ) ) );
}

inline Config::Duration duration( std::uint32_t least ) {
   return Config::Duration::fromSeconds( *rc::gen::oneOf(
      rc::gen::element< std::uint32_t >( 10, 30, 3600, Config::Duration::max().seconds() ),
      rc::gen::inRange< std::uint32_t >( least, 10'000 ) ) );
}

inline Config::VlanSet vlans() {
   Config::VlanSet result;
   for ( int i = *rc::gen::inRange( 0, 4 ); i > 0; --i ) {
      const auto first = *rc::gen::inRange< Config::VlanId >( Config::minVlanId, Config::maxVlanId + 1 );
      result.add( { first, *rc::gen::inRange< Config::VlanId >( first, Config::maxVlanId + 1 ) } );
   }
   return result;
}

template < typename Value >
std::string anyKey( const std::map< std::string, Value > & map ) {
   return std::next( map.begin(), *rc::gen::inRange< std::ptrdiff_t >( 0, std::ssize( map ) ) )->first;
}

inline Config::Profile profile() {
   Config::Profile result;
   // Few values, so that profiles are often equally strict.
   result.threshold = *rc::gen::arbitrary< bool >() ? rate( 1 ) : Config::Rate::fromBps( 1'000 );
   result.loadInterval = *rc::gen::arbitrary< bool >() ? duration( 0 ) : Config::Duration::fromSeconds( 10 );
   result.shutdown = *rc::gen::arbitrary< bool >();
   if ( *rc::gen::arbitrary< bool >() )
      result.shutdownMaxDelay = duration( 0 );
   return result;
}

inline Config::Simulated simulated() {
   using Config::TrafficSegment;
   Config::Simulated result;
   if ( *rc::gen::arbitrary< bool >() )
      result.clock = Config::Simulated::Clock::virtualTime;
   std::set< std::string > names = interfaceNames();
   const auto take = [&]() { return names.extract( names.begin() ).value(); };
   while ( !names.empty() && *rc::gen::inRange( 0, 4 ) != 0 ) {
      std::vector< TrafficSegment > & traffic = result.ports[take()].traffic;
      for ( int i = *rc::gen::inRange( 0, 3 ); i > 0; --i )
         traffic.push_back(
            { oneOf( { TrafficSegment::Kind::hold, TrafficSegment::Kind::ramp } ), duration( 1 ), rate( 0 ),
              rate( 0 ) } );
      if ( *rc::gen::arbitrary< bool >() )
         std::prev( result.ports.end() )->second.speed = rate( 1 );
   }
   std::set< std::string > vlanMembers;
   std::set< std::string > free;
   for ( const auto & port : result.ports )
      ( *rc::gen::arbitrary< bool >() ? free : vlanMembers ).insert( port.first );
   while ( !names.empty() && *rc::gen::arbitrary< bool >() ) {
      const std::string portChannel = take();
      vlanMembers.insert( portChannel );
      std::set< std::string > & members = result.portChannels[portChannel];
      while ( !free.empty() && *rc::gen::arbitrary< bool >() )
         members.insert( free.extract( free.begin() ).value() );
   }
   while ( !names.empty() ) {
      Config::SimulatedVlan & vlan = result.vlans[static_cast< Config::VlanId >(
         *rc::gen::inRange( 0, 1000 ) * 4 + std::ssize( names ) % 4 + 1 )];
      if ( !vlan.name.empty() )
         break;
      vlan.name = take();
      for ( const std::string & member : vlanMembers )
         if ( *rc::gen::arbitrary< bool >() )
            vlan.members.insert( member );
   }
   for ( unsigned i = *rc::gen::inRange( 0, 4 ); i > 0 && !result.ports.empty(); --i )
      result.routes.push_back(
         { oneOf< std::string >( { "0.0.0.0/0", "10.0.0.0/8", "::/0", "2001:db8::/32" } ),
           { anyKey( result.ports ), anyKey( result.ports ) },
           i } );
   return result;
}

inline Config::Command command() {
   std::string line = "/bin/" + name();
   for ( int i = *rc::gen::inRange( 0, 3 ); i > 0; --i )
      line += oneOf< std::string >(
         { " a", " ''", " 'a b'", " '$HOME'", " \"it's\"", " \\\\", " a=b", " '#'", " '\"'", " '|&;<>()`*?'",
           " \u00e9", " -n", " null" } );
   return *Config::Command::parse( line ).value;
}

inline Config::CommandStage stage() {
   Config::CommandStage result;
   const int sides = *rc::gen::inRange( 1, 4 );
   if ( sides & 1 )
      result.enter = command();
   if ( sides & 2 )
      result.exit = command();
   result.timeout = duration( 1 );
   result.onFailure = oneOf( { Config::OnFailure::abort, Config::OnFailure::continueOn } );
   result.steers = !result.enter.empty() && *rc::gen::arbitrary< bool >();
   return result;
}

/// Any order, each at most once, drainwatch among them.
inline Config::StageList stageList( const Config::Configuration & configuration ) {
   Config::StageList result = Config::defaultStages();
   for ( const auto & stage : configuration.stages )
      if ( *rc::gen::arbitrary< bool >() )
         result.insert( *rc::gen::arbitrary< bool >() ? result.begin() : result.end(), stage.first );
   return result;
}

/// The same, with every stage that has something to undo.
inline Config::StageList
wayBack( const Config::Configuration & configuration, const Config::StageList & enter ) {
   Config::StageList result = stageList( configuration );
   for ( const std::string & name : enter ) {
      const auto stage = configuration.stages.find( name );
      if (
         stage != configuration.stages.end() && !stage->second.exit.empty() &&
         std::find( result.begin(), result.end(), name ) == result.end() )
         result.push_back( name );
   }
   return result;
}

inline Config::Hook hook( const Config::Configuration & configuration ) {
   Config::Hook result;
   const std::vector< Config::Moment > moments = Config::allMoments();
   for ( int i = *rc::gen::inRange( 1, 4 ); i > 0; --i )
      result.at.insert( *rc::gen::elementOf( moments ) );
   if ( !configuration.units.empty() && *rc::gen::arbitrary< bool >() )
      result.units.insert( anyKey( configuration.units ) );
   if ( *rc::gen::arbitrary< bool >() )
      result.command = command();
   else
      result.url = oneOf< std::string >(
         { "http://localhost", "https://u:p@[::1]:8443/a/b?c=d&e='f'", "http://192.0.2.1:80/%22" } );
   result.timeLimit = Config::Duration::fromSeconds( *rc::gen::inRange( 1U, 3601U ) );
   return result;
}

inline Config::Configuration configuration() {
   Config::Configuration result;
   result.switchKind = oneOf( { Config::SwitchKind::linuxKernel, Config::SwitchKind::simulated } );
   if ( *rc::gen::arbitrary< bool >() )
      result.web = Config::Endpoint{ oneOf< std::string >( { "localhost", "127.0.0.1", "::1" } ), 8080 };
   result.settle = duration( 0 );
   for ( int i = *rc::gen::inRange( 0, 4 ); i > 0; --i )
      result.stages[name()] = stage();
   result.enter = stageList( result );
   result.exit = wayBack( result, result.enter );
   for ( int i = *rc::gen::inRange( 1, 5 ); i > 0; --i )
      result.profiles[name()] = profile();
   result.defaultProfile = anyKey( result.profiles );
   for ( int i = *rc::gen::inRange( 0, 5 ); i > 0; --i ) {
      Config::Group & group = result.groups[name()];
      group = { interfaceNames(), vlans(), std::nullopt };
      if ( *rc::gen::arbitrary< bool >() )
         group.profile = anyKey( result.profiles );
   }
   for ( int i = *rc::gen::inRange( 0, 4 ); i > 0; --i ) {
      Config::Unit & unit = result.units[name()];
      unit.enter = stageList( result );
      unit.exit = wayBack( result, unit.enter );
      if ( !result.groups.empty() )
         for ( int j = *rc::gen::inRange( 0, 3 ); j > 0; --j )
            unit.groups.insert( anyKey( result.groups ) );
   }
   if ( !result.units.empty() )
      for ( int i = *rc::gen::inRange( 0, 3 ); i > 0; --i )
         result.redundancyGroups[name()] = {
            { anyKey( result.units ), anyKey( result.units ) }, *rc::gen::inRange( 1U, 5U ) };
   for ( int i = *rc::gen::inRange( 0, 3 ); i > 0; --i )
      result.hooks[name()] = hook( result );
   result.controlPlaneFloor = rate( 0 );
   result.simulated = simulated();
   return result;
}

} // namespace Generators
