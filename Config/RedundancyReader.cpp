// The chapter of the reader that reads what the plan of a unit needs to know besides: who stands in for whom, and the
// routes of a simulated switch.

#include "Config/InQuotes.h"
#include "Config/Prefix.h"
#include "Config/Reader.h"

#include <charconv>

namespace Config {

/// A whole number in a range; nothing if it is none, which has been reported.
std::optional< unsigned > Reader::wholeNumber( const Node & node, unsigned least, unsigned most ) {
   const std::string range =
      "a whole number from " + std::to_string( least ) + " to " + std::to_string( most );
   if ( !values_.isScalar( node, range ) )
      return std::nullopt;
   unsigned value = 0;
   const char * const end = node.text.data() + node.text.size();
   const auto [stop, error] = std::from_chars( node.text.data(), end, value );
   if ( node.plain && error == std::errc() && stop == end && value >= least && value <= most )
      return value;
   values_.error( node.place, inQuotes( node.text ) + " is not " + range );
   return std::nullopt;
}

void Reader::redundancyGroups( const Node & node ) {
   if ( !values_.isMap( node, "a map of redundancy groups" ) )
      return;
   for ( const Node & child : node.children ) {
      values_.isValidName( child );
      redundancyGroup( child, configuration_.redundancyGroups[child.key] );
   }
}

void Reader::redundancyGroup( const Node & node, RedundancyGroup & group ) {
   if ( !values_.isRecord( node, "a redundancy group", { "units", "max-out" } ) )
      return;
   if ( const Node * const most = Values::find( node, "max-out" ) )
      group.maxOut = wholeNumber( *most, 1, 1000 ).value_or( group.maxOut );
   const Node * const list =
      values_.required( node, "units", node.keyPlace, "redundancy group " + inQuotes( node.key ) );
   if ( !list || !values_.isList( *list, "a list of units" ) )
      return;
   std::map< std::string, Place > seen;
   for ( const Node & item : list->children ) {
      const std::optional< std::string > name =
         values_.reference( item, "unit", configuration_.units, unitsKnown_ );
      if ( name && values_.isNew( seen, *name, item.place ) )
         group.units.insert( *name );
   }
}

void Reader::simulatedRoutes( const Node & node ) {
   if ( !values_.isList( node, "a list of routes" ) )
      return;
   std::map< std::pair< std::string, unsigned >, Place > seen;
   for ( const Node & item : node.children ) {
      SimulatedRoute route;
      if ( !simulatedRoute( item, route ) )
         continue;
      const auto [first, fresh] = seen.emplace( std::pair( route.to, route.metric ), item.place );
      if ( fresh )
         configuration_.simulated.routes.push_back( std::move( route ) );
      else
         values_.error(
            item.place, "there is a route to " + inQuotes( route.to ) + " with the metric " +
                           std::to_string( route.metric ) + " at " + diagnostics_.text( first->second ) +
                           " already" );
   }
}

/// Whether it can be used.
bool Reader::simulatedRoute( const Node & node, SimulatedRoute & route ) {
   if ( !values_.isRecord( node, "a route", { "to", "via", "metric" } ) )
      return false;
   if ( const Node * const metric = Values::find( node, "metric" ) )
      route.metric = wholeNumber( *metric, 0, 1'000'000 ).value_or( 0 );
   const Node * const to = values_.required( node, "to", node.place, "a route" );
   const Node * const via = values_.required( node, "via", node.place, "a route" );
   if ( to && values_.isScalar( *to, "a destination" ) ) {
      Parsed< std::string > prefix = parsePrefix( to->text );
      if ( !prefix )
         values_.error( to->place, std::move( prefix.error ) );
      route.to = prefix.value.value_or( "" );
   }
   if ( !via || !values_.isList( *via, "a list of interfaces" ) )
      return false;
   std::map< std::string, Place > seen;
   for ( const Node & item : via->children ) {
      const std::optional< std::string > name =
         values_.reference( item, "simulated interface", simulatedNames_, portsKnown_ && portChannelsKnown_ );
      if ( name && values_.isNew( seen, *name, item.place ) )
         route.via.insert( *name );
   }
   if ( via->children.empty() )
      values_.error( via->place, "a route needs at least one interface in \"via\"" );
   return !route.to.empty();
}

} // namespace Config
