#include "Agent/Control/MetricsWriter.h"

#include "Agent/Control/Shapes.h"
#include "Platform/Vel/Entity.h"

#include <algorithm>
#include <cmath>

namespace Agent {

namespace {

constexpr const char * problemKinds[] = { "configuration", "counters", "fastlog", "history",
                                          "hook",          "plug-in",  "samples", "stage",
                                          "store",         "switch",   "web" };

} // namespace

Metrics::Writer::Writer( const Metrics & metrics ) : model( metrics.model_ ), commands( metrics.commands_ ) {
   for ( const auto & [name, status] : model.unitStatusDir->statusRange() )
      units.push_back(
         { name, status.get(), model.unitRunDir->unitRun( name ), commands.progress( name ),
           interfacesOfUnit( model, name ) } );
   std::sort( units.begin(), units.end(), []( const auto & a, const auto & b ) { return a.name < b.name; } );
   for ( const auto & [name, intf] : shownInterfaces( model ) )
      interfaces.push_back(
         { name, intf, model.monIntfStatusDir->monIntfStatus( intf ),
           model.intfProfileStatusDir->status( profileOf( model, intf ) ), commands.linkState( intf ),
           commands.drift( intf ), reasonFacts( model, intf, commands.now() ) } );
}

void Metrics::Writer::time( double clockSeconds, Exposition::Labels labels ) {
   if ( clockSeconds > 0 )
      out.sample( std::round( commands.wallTime( clockSeconds ) * 1000 ) / 1000, labels );
}

void Metrics::Writer::known( double value, Exposition::Labels labels ) {
   if ( std::isfinite( value ) )
      out.sample( value, labels );
}

void Metrics::Writer::rates( const char * label, const std::string & name, double inBps, double outBps ) {
   known( inBps / bitsPerByte, { { label, name }, { "direction", "in" } } );
   known( outBps / bitsPerByte, { { label, name }, { "direction", "out" } } );
}

void Metrics::Writer::agent() {
   const auto facts = commands.agent();
   out.metric( "maint_build_info", Type::gauge, "Always 1; which version of the agent runs." );
   out.sample( 1, { { "version", facts.version } } );
   out.metric( "maint_switch_info", Type::gauge, "Always 1; the kind of switch: linux or simulated." );
   out.sample( 1, { { "kind", facts.switchKind } } );
   out.metric( "maint_agent_start_timestamp_seconds", Type::gauge, "When the agent was started." );
   time( facts.started );
   out.metric(
      "maint_agent_clock_timestamp_seconds", Type::gauge,
      "The present time of the agent, which a simulation may have set." );
   time( commands.now() );
   one(
      "maint_agent_degraded", Type::gauge, "Whether anything is wrong with the agent (1) or not (0).",
      !facts.problems.empty() );
   problems( facts.problems );
   out.metric( "maint_plugin_loaded", Type::gauge, "Whether the plug-in is loaded (1) or missing (0)." );
   out.sample( facts.pluginProblem.empty(), { { "plugin", facts.pluginName } } );
   one(
      "maint_configuration_accepted", Type::gauge,
      "Whether the agent works with the configuration file as it is (1) or with an earlier one (0).",
      facts.configurationErrors.empty() );
   const bool storeFails = std::any_of(
      facts.problems.begin(), facts.problems.end(), []( const Problem & p ) { return p.what == "store"; } );
   one(
      "maint_store_ok", Type::gauge, "Whether what changes can be kept on disk (1) or not (0).",
      !storeFails );
   out.metric(
      "maint_counters_read_timestamp_seconds", Type::gauge,
      "When the octet counters of all ports were read last." );
   time( facts.countersRead );
   one(
      "maint_switch_overruns_total", Type::counter,
      "Times that news of the switch were lost and everything was read again.", facts.switchOverruns );
   one(
      "maint_switch_degraded", Type::gauge,
      "Whether the switch does not tell of its links, so that enters are refused (1), or does (0).",
      facts.switchDegraded );
   if ( facts.restarts )
      one(
         "maint_agent_restarts_total", Type::counter,
         "Times that the agent's supervisor has started it again.", *facts.restarts );
   turns( facts );
   hooks( facts );
   pluginEvents();
}

void Metrics::Writer::problems( const std::vector< Problem > & list ) {
   std::map< std::string, unsigned > counts;
   for ( const char * kind : problemKinds )
      counts[kind] = 0;
   for ( const Problem & problem : list )
      ++counts[problem.what];
   out.metric( "maint_agent_problems", Type::gauge, "Problems of the agent at present, by kind." );
   for ( const auto & [kind, count] : counts )
      out.sample( count, { { "kind", kind } } );
}

void Metrics::Writer::turns( const ControlCommands::AgentFacts & facts ) {
   one(
      "maint_turns_total", Type::counter, "Turns of the agent's loop.",
      static_cast< double >( facts.turns ) );
   one(
      "maint_turn_seconds_total", Type::counter, "Time that all turns of the agent's loop took.",
      facts.turnSeconds );
   one(
      "maint_turn_longest_seconds", Type::gauge,
      "Time that the longest turn of the last one to two minutes took.", facts.longestTurn );
}

void Metrics::Writer::hooks( const ControlCommands::AgentFacts & facts ) {
   using Hook = ControlCommands::Hook;
   const auto ofHooks = [&]( const char * name, Type type, const char * help, auto value ) {
      out.metric( name, type, help );
      for ( const Hook & hook : facts.hooks )
         out.sample( static_cast< double >( value( hook ) ), { { "hook", hook.name } } );
   };
   ofHooks(
      "maint_hook_runs_total", Type::counter, "Calls of a hook that are over, since it was configured.",
      []( const Hook & hook ) { return hook.runs; } );
   ofHooks(
      "maint_hook_failures_total", Type::counter, "Calls of a hook that have failed.",
      []( const Hook & hook ) { return hook.failures; } );
   ofHooks(
      "maint_hook_missed_events_total", Type::counter,
      "Events that had left the log before their hook came to them.",
      []( const Hook & hook ) { return hook.missed; } );
   ofHooks(
      "maint_hook_waiting_events", Type::gauge, "Events that wait for a hook.",
      []( const Hook & hook ) { return hook.waiting; } );
   ofHooks(
      "maint_hook_running", Type::gauge, "Whether a hook is being called (1) or not (0).",
      []( const Hook & hook ) { return hook.event != 0; } );
}

void Metrics::Writer::pluginEvents() {
   out.metric(
      "maint_plugin_events_total", Type::counter,
      "Events that the plug-in has counted since it was loaded, by the counter's name." );
   const Vel::Entity * entity = commands.counters();
   if ( !entity )
      return;
   for ( const Vel::AttributeInfo & a : entity->typeInfo().attributes() )
      if ( a.kind == Vel::AttributeInfo::counter )
         out.sample(
            *static_cast< const Vel::U32 * >( a.raw( const_cast< Vel::Entity & >( *entity ) ) ),
            { { "event", kebabCase( a.name ) } } );
}

void Metrics::Writer::events( const EventReaders & readers ) {
   one(
      "maint_events_total", Type::counter, "Events that have been written into the event log, ever.",
      static_cast< double >( readers.events ) );
   one( "maint_event_readers", Type::gauge, "Who is reading events at present.", readers.count );
   one(
      "maint_events_dropped_total", Type::counter,
      "Events that readers have missed because they were too slow, or away for too long.",
      static_cast< double >( readers.dropped ) );
}

std::string Metrics::text( const EventReaders & readers ) const {
   Writer writer( *this );
   writer.agent();
   writer.events( readers );
   writer.allUnits();
   writer.allInterfaces();
   return std::move( writer.out ).text();
}

} // namespace Agent
