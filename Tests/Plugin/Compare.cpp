#include "Tests/Plugin/Compare.h"

#include <cstdio>
#include <type_traits>

/// Equal is found out by the comparisons of the types themselves, so no field can be forgotten. Only when something
/// differs is it looked for and named.
namespace Tests {

using namespace Reference;

namespace {

std::string text( double value ) {
   char buffer[40];
   std::snprintf( buffer, sizeof buffer, "%.17g", value );
   return buffer;
}
template < class T >
requires std::is_integral_v< T > || std::is_enum_v< T > std::string text( T value ) {
   return std::to_string( static_cast< long long >( value ) );
}
std::string text( const std::optional< double > & value ) { return value ? text( *value ) : "nothing"; }
std::string text( const std::set< int > & set ) {
   std::string result = "{";
   for ( const int element : set )
      result += " " + std::to_string( element );
   return result + " }";
}
std::string text( const Completion & c ) {
   return ( c.stageClass == StageClass::enter ? "enter " : "exit " ) + text( c.unit ) + "#" +
          text( c.generation );
}
std::string text( const std::set< Completion > & set ) {
   std::string result = "{";
   for ( const Completion & completion : set )
      result += " " + text( completion );
   return result + " }";
}
std::string text( const std::vector< Decision > & decisions ) {
   static constexpr const char * names[] = { "entering", "under",      "stopped", "shut", "released",
                                             "drained",  "notDrained", "joined",  "left", "completed" };
   std::string result = "{";
   for ( const Decision & d : decisions )
      result += std::string( " " ) + names[static_cast< std::size_t >( d.kind )] + "(" + text( d.who ) +
                ( d.other == none ? "" : "," + text( d.other ) ) + ")@" + text( d.time );
   return result + " }";
}

/// Looks through fields in their order and keeps the first one that differs.
class Search {
 public:
   template < class T >
   void field( const std::string & name, const T & plugin, const T & model ) {
      if ( found_.field.empty() && !( plugin == model ) )
         found_ = { name, text( plugin ), text( model ) };
   }
   template < class Key, class Value, class Fields >
   void map(
      const std::string & name, const std::map< Key, Value > & plugin, const std::map< Key, Value > & model,
      Fields fields ) {
      std::set< int > pluginKeys, modelKeys;
      for ( const auto & [key, value] : plugin )
         pluginKeys.insert( key );
      for ( const auto & [key, value] : model )
         modelKeys.insert( key );
      field( name, pluginKeys, modelKeys );
      for ( const auto & [key, value] : plugin )
         if ( const auto other = model.find( key ); other != model.end() )
            fields( name + "[" + std::to_string( key ) + "]", value, other->second );
   }
   void rates( const std::string & name, const Rates & plugin, const Rates & model ) {
      field( name + ".in", plugin.in, model.in );
      field( name + ".out", plugin.out, model.out );
      field( name + ".time", plugin.time, model.time );
   }
   Difference found() const { return found_; }

 private:
   Difference found_;
};

void compareRecords( Search & s, const Published & plugin, const Published & model ) {
   s.map(
      "records", plugin.records, model.records,
      [&]( const std::string & name, const Record & p, const Record & m ) {
         s.field( name + ".profile", p.profile, m.profile );
         s.field( name + ".startTime", p.startTime, m.startTime );
         s.rates( name + ".cur", p.cur, m.cur );
         s.rates( name + ".prev", p.prev, m.prev );
         s.field( name + ".lastSampleTime", p.lastSampleTime, m.lastSampleTime );
         s.field( name + ".totalSamples", p.totalSamples, m.totalSamples );
         s.field( name + ".consecutiveDrained", p.consecutiveDrained, m.consecutiveDrained );
         s.field( name + ".abovePre", p.abovePre, m.abovePre );
         s.field( name + ".belowPre", p.belowPre, m.belowPre );
         s.field( name + ".abovePost", p.abovePost, m.abovePost );
         s.field( name + ".belowPost", p.belowPost, m.belowPost );
         s.field( name + ".state", p.state, m.state );
         s.field( name + ".stateTime", p.stateTime, m.stateTime );
         s.field( name + ".spike", p.spike, m.spike );
         s.field( name + ".stale", p.stale, m.stale );
      } );
   s.field( "entering", plugin.entering, model.entering );
   s.field( "under", plugin.under, model.under );
   s.field( "spikes", plugin.spikes, model.spikes );
   s.map( "shut", plugin.shut, model.shut, [&]( const std::string & name, double p, double m ) {
      s.field( name, p, m );
   } );
}

void compareUnits( Search & s, const Published & plugin, const Published & model ) {
   s.map(
      "units", plugin.units, model.units,
      [&]( const std::string & name, const UnitPublished & p, const UnitPublished & m ) {
         s.field( name + ".aggregateIn", p.aggregateIn, m.aggregateIn );
         s.field( name + ".aggregateOut", p.aggregateOut, m.aggregateOut );
         s.field( name + ".aggregateTime", p.aggregateTime, m.aggregateTime );
         s.field( name + ".violating", p.violating, m.violating );
         s.field( name + ".totalViolations", p.totalViolations, m.totalViolations );
      } );
   s.field( "complete", plugin.complete, model.complete );
}

void compareMonitors( Search & s, const Published & plugin, const Published & model ) {
   s.map(
      "unitMonitors", plugin.unitMonitors, model.unitMonitors,
      [&]( const std::string & name, const UnitMonitor & p, const UnitMonitor & m ) {
         s.field( name + ".generation", p.generation, m.generation );
         s.field( name + ".monitored", p.monitored, m.monitored );
         s.field( name + ".drained", p.drained, m.drained );
      } );
   s.map(
      "intfMonitors", plugin.intfMonitors, model.intfMonitors,
      [&]( const std::string & name, const IntfMonitor & p, const IntfMonitor & m ) {
         s.field( name + ".state", p.state, m.state );
         s.field( name + ".initialState", p.initialState, m.initialState );
         s.field( name + ".profile", p.profile, m.profile );
         s.field( name + ".dependents", p.dependents, m.dependents );
         s.field( name + ".timer", p.timer, m.timer );
      } );
   s.field( "backlog", plugin.backlog, model.backlog );
   s.field( "bookmark", plugin.bookmark, model.bookmark );
   for ( std::size_t i = 0; i < counterCount; ++i )
      s.field( "counters[" + std::to_string( i ) + "]", plugin.counters[i], model.counters[i] );
}

bool equal( const Published & a, const Published & b ) {
   return a.records == b.records && a.entering == b.entering && a.under == b.under && a.spikes == b.spikes &&
          a.shut == b.shut && a.units == b.units && a.complete == b.complete &&
          a.unitMonitors == b.unitMonitors && a.intfMonitors == b.intfMonitors && a.backlog == b.backlog &&
          a.bookmark == b.bookmark && a.counters == b.counters;
}

} // namespace

Difference difference( const Published & plugin, const Published & model ) {
   if ( equal( plugin, model ) )
      return {};
   Search search;
   compareRecords( search, plugin, model );
   compareUnits( search, plugin, model );
   compareMonitors( search, plugin, model );
   Difference found = search.found();
   return found ? found : Difference{ "something that has no name here", "?", "?" };
}

Difference difference( const std::vector< Decision > & plugin, const std::vector< Decision > & model ) {
   if ( plugin == model )
      return {};
   return { "decisions", text( plugin ), text( model ) };
}

} // namespace Tests
