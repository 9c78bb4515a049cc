#include "Agent/Control/Metrics.h"

#include "Agent/Control/Exposition.h"
#include "Agent/Control/Shapes.h"
#include "Platform/Vel/Entity.h"

#include <algorithm>
#include <cmath>

namespace Agent {

using Maintenance::Unit::UnitState;

namespace {

constexpr double bitsPerByte = 8;
constexpr const char * problemKinds[] = { "configuration", "counters", "plug-in",
                                          "stage",         "store",    "switch" };
constexpr UnitState unitStates[] = {
   UnitState::normal, UnitState::enterInProgress, UnitState::maintenance, UnitState::exitInProgress };

/// What is known of a unit and of an interface, looked up once.
struct UnitFacts {
   std::string name;
   const Maintenance::Unit::Status * status;
   const UnitRun * run;
   ControlCommands::Progress progress;
   std::map< std::string, Wire::IntfId > members;
};
struct IntfFacts {
   std::string name;
   Wire::IntfId id;
   const Maintenance::MonIntfStatus * record;
   const IntfMaintenanceProfile::Status * profile;
   std::string link, drift;
};

} // namespace

struct Metrics::Writer {
   using Type = Exposition::Type;

   const ControlModel & model;
   const ControlCommands & commands;
   Exposition out;
   std::vector< UnitFacts > units;
   std::vector< IntfFacts > interfaces;

   explicit Writer( const Metrics & metrics ) : model( metrics.model_ ), commands( metrics.commands_ ) {
      for ( const auto & [name, status] : model.unitStatusDir->statusRange() )
         units.push_back(
            { name, status.get(), model.unitRunDir->unitRun( name ), commands.progress( name ),
              interfacesOfUnit( model, name ) } );
      std::sort(
         units.begin(), units.end(), []( const auto & a, const auto & b ) { return a.name < b.name; } );
      for ( const auto & [name, intf] : shownInterfaces( model ) )
         interfaces.push_back(
            { name, intf, model.monIntfStatusDir->monIntfStatus( intf ),
              model.intfProfileStatusDir->status( profileOf( model, intf ) ), commands.linkState( intf ),
              commands.drift( intf ) } );
   }

   // ---- how samples are written

   void one( const char * name, Type type, const char * help, double value ) {
      out.metric( name, type, help );
      out.sample( value );
   }
   /// Nothing for a time of 0, which is not known. To the millisecond: what wall time is ahead of the clock is never
   /// worked out twice the same, and a time that stays should not look as if it changed.
   void time( double clockSeconds, Exposition::Labels labels = {} ) {
      if ( clockSeconds > 0 )
         out.sample( std::round( commands.wallTime( clockSeconds ) * 1000 ) / 1000, labels );
   }
   void known( double value, Exposition::Labels labels ) {
      if ( std::isfinite( value ) )
         out.sample( value, labels );
   }
   void rates( const char * label, const std::string & name, double inBps, double outBps ) {
      known( inBps / bitsPerByte, { { label, name }, { "direction", "in" } } );
      known( outBps / bitsPerByte, { { label, name }, { "direction", "out" } } );
   }
   /// A sample of each unit.
   template < class Value >
   void ofUnits( const char * name, const char * help, Value value, Type type = Type::gauge ) {
      out.metric( name, type, help );
      for ( const UnitFacts & unit : units )
         out.sample( static_cast< double >( value( unit ) ), { { "unit", unit.name } } );
   }
   /// A sample of each interface.
   template < class Value >
   void ofInterfaces( const char * name, const char * help, Value value ) {
      out.metric( name, Type::gauge, help );
      for ( const IntfFacts & intf : interfaces )
         out.sample( static_cast< double >( value( intf ) ), { { "interface", intf.name } } );
   }
   /// What `write` writes of each interface that has what `of` asks for.
   template < class Part, class Write >
   void ofThose( const char * name, Type type, const char * help, Part IntfFacts::*of, Write write ) {
      out.metric( name, type, help );
      for ( const IntfFacts & intf : interfaces )
         if ( intf.*of )
            write( intf );
   }

   // ---- the agent

   void agent() {
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
      const bool storeFails =
         std::any_of( facts.problems.begin(), facts.problems.end(), []( const Problem & p ) {
            return p.what == "store";
         } );
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
      turns( facts );
      pluginEvents();
   }

   void problems( const std::vector< Problem > & list ) {
      std::map< std::string, unsigned > counts;
      for ( const char * kind : problemKinds )
         counts[kind] = 0;
      for ( const Problem & problem : list )
         ++counts[problem.what];
      out.metric( "maint_agent_problems", Type::gauge, "Problems of the agent at present, by kind." );
      for ( const auto & [kind, count] : counts )
         out.sample( count, { { "kind", kind } } );
   }

   void turns( const ControlCommands::AgentFacts & facts ) {
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

   void pluginEvents() {
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

   // ---- units

   void allUnits() {
      out.metric(
         "maint_unit_state", Type::gauge,
         "1 for the state that a unit is in, 0 for the others: normal, entering, maintenance, exiting." );
      for ( const UnitFacts & unit : units )
         for ( const UnitState state : unitStates )
            out.sample(
               unitStateText( unit.status->state() ) == std::string_view( unitStateText( state ) ),
               { { "unit", unit.name }, { "state", unitStateText( state ) } } );
      out.metric( "maint_unit_state_timestamp_seconds", Type::gauge, "Since when a unit is in its state." );
      for ( const UnitFacts & unit : units )
         time( unit.run ? unit.run->since() : 0, { { "unit", unit.name } } );
      ofUnits(
         "maint_unit_overdue", "Whether an operation takes longer than who asked for it expected (1).",
         [this]( const UnitFacts & unit ) {
            return unit.run && unit.run->deadline() > 0 && commands.now() > unit.run->deadline();
         } );
      ofUnits(
         "maint_unit_settling", "Whether all has drained and has to stay so for the settle time (1).",
         []( const UnitFacts & unit ) { return unit.progress.settlingSince.has_value(); } );
      progress();
      traffic();
      stages();
      out.metric( "maint_unit_member", Type::gauge, "Always 1; which interface belongs to which unit." );
      for ( const UnitFacts & unit : units )
         for ( const auto & [name, intf] : unit.members )
            out.sample( 1, { { "unit", unit.name }, { "interface", name } } );
   }

   void progress() {
      ofUnits( "maint_unit_interfaces", "Interfaces that belong to a unit.", []( const UnitFacts & unit ) {
         return unit.members.size();
      } );
      ofUnits(
         "maint_unit_monitored_interfaces", "Interfaces of a unit that are monitored.",
         []( const UnitFacts & unit ) { return unit.progress.total; } );
      ofUnits(
         "maint_unit_drained_interfaces", "Interfaces of a unit that have drained.",
         []( const UnitFacts & unit ) { return unit.progress.drained; } );
   }

   void traffic() {
      ofUnits(
         "maint_unit_violating_interfaces",
         "Interfaces of a unit that carry traffic above their threshold after they have drained.",
         []( const UnitFacts & unit ) { return unit.status->intfsViolatingTrafficThresholds(); } );
      ofUnits(
         "maint_unit_violations_total", "Samples above the threshold of interfaces that have drained.",
         []( const UnitFacts & unit ) { return unit.status->totalIntfTrafficViolations(); }, Type::counter );
      out.metric(
         "maint_unit_rate_bytes_per_second", Type::gauge,
         "Traffic of a unit: the sum over its monitored interfaces." );
      for ( const UnitFacts & unit : units ) {
         const auto & rate = unit.status->aggTrafficRate();
         rates(
            "unit", unit.name, static_cast< double >( rate.inRate ), static_cast< double >( rate.outRate ) );
      }
   }

   void stages() {
      out.metric(
         "maint_unit_stage_state", Type::gauge,
         "Always 1; the state of each stage of the present or last run of a unit: pending, running, "
         "complete, "
         "failed or skipped." );
      for ( const UnitFacts & unit : units )
         for ( const auto & stage : unit.progress.stages )
            out.sample( 1, { { "unit", unit.name }, { "name", stage.name }, { "state", stage.state } } );
      ofUnits(
         "maint_unit_failed_stages", "Stages of the present or last run of a unit that have failed.",
         []( const UnitFacts & unit ) {
            const auto & list = unit.progress.stages;
            return std::count_if(
               list.begin(), list.end(), []( const auto & stage ) { return stage.state == "failed"; } );
         } );
   }

   // ---- interfaces

   void allInterfaces() {
      ofThose(
         "maint_interface_state", Type::gauge,
         "Always 1; how far the monitoring of an interface is: idle, enter-maint, under-maint or stopped.",
         &IntfFacts::record, [this]( const IntfFacts & intf ) {
            out.sample(
               1, { { "interface", intf.name }, { "state", monStateText( intf.record->state() ) } } );
         } );
      ofThose(
         "maint_interface_rate_bytes_per_second", Type::gauge, "Traffic of an interface.", &IntfFacts::record,
         [this]( const IntfFacts & intf ) {
            const auto & rate = intf.record->curRates();
            if ( intf.record->totalSamples() > 0 )
               rates( "interface", intf.name, rate.inBitsRate, rate.outBitsRate );
         } );
      profiles();
      records();
      links();
   }

   void profiles() {
      ofThose(
         "maint_interface_threshold_bytes_per_second", Type::gauge,
         "Rate below which an interface has to stay in both directions to drain.", &IntfFacts::profile,
         [this]( const IntfFacts & intf ) {
            known(
               intf.profile->drainWatchThresholdInKbps() * 1000 / bitsPerByte,
               { { "interface", intf.name } } );
         } );
      ofThose(
         "maint_interface_load_interval_seconds", Type::gauge,
         "Time for which an interface has to stay below its threshold to drain.", &IntfFacts::profile,
         [this]( const IntfFacts & intf ) {
            out.sample( intf.profile->drainWatchLoadInterval(), { { "interface", intf.name } } );
         } );
      ofThose(
         "maint_interface_forced_shutdown_timestamp_seconds", Type::gauge,
         "When an interface that has not drained yet will be shut in any case.", &IntfFacts::record,
         [this]( const IntfFacts & intf ) {
            if (
               intf.record->state() == Maintenance::monIntfStateEnterMaint && intf.profile &&
               intf.profile->shutdown() && std::isfinite( intf.profile->shutdownMaxDelay() ) )
               time(
                  intf.record->startTime() + intf.profile->shutdownMaxDelay(),
                  { { "interface", intf.name } } );
         } );
   }

   void records() {
      ofThose(
         "maint_interface_quiet_seconds", Type::gauge,
         "Time for which an interface has stayed below its threshold.", &IntfFacts::record,
         [this]( const IntfFacts & intf ) {
            out.sample(
               static_cast< double >( intf.record->numConsecutiveDrainedSamples() ) * secondsPerSample,
               { { "interface", intf.name } } );
         } );
      ofThose(
         "maint_interface_samples_total", Type::counter, "Samples of an interface in this maintenance.",
         &IntfFacts::record, [this]( const IntfFacts & intf ) {
            out.sample( intf.record->totalSamples(), { { "interface", intf.name } } );
         } );
      ofInterfaces(
         "maint_interface_spike",
         "Whether traffic has come back at least once in this maintenance after an interface had drained "
         "(1).",
         []( const IntfFacts & intf ) { return intf.record && intf.record->spikeUnderMaint(); } );
   }

   void links() {
      ofInterfaces(
         "maint_interface_shut", "Whether the plug-in wants a link shut (1).",
         [this]( const IntfFacts & intf ) { return model.cause->intfStatus( intf.id ) != nullptr; } );
      ofInterfaces(
         "maint_interface_held", "Whether the agent holds a link down, or is about to let it up (1).",
         [this]( const IntfFacts & intf ) { return model.journal->entry( intf.id ) != nullptr; } );
      out.metric(
         "maint_interface_up", Type::gauge, "Whether a link is up (1) or down (0), as the switch has it." );
      for ( const IntfFacts & intf : interfaces )
         if ( intf.link == "up" || intf.link == "down" )
            out.sample( intf.link == "up", { { "interface", intf.name } } );
      out.metric(
         "maint_interface_drift", Type::gauge,
         "Always 1; a link that somebody else has raised while the agent holds it down, or lowered while it "
         "is "
         "watched." );
      for ( const IntfFacts & intf : interfaces )
         if ( !intf.drift.empty() )
            out.sample( 1, { { "interface", intf.name }, { "drift", intf.drift } } );
   }
};

std::string Metrics::text() const {
   Writer writer( *this );
   writer.agent();
   writer.allUnits();
   writer.allInterfaces();
   return std::move( writer.out ).text();
}

} // namespace Agent
