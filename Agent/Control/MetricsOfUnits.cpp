#include "Agent/Control/MetricsWriter.h"
#include "Agent/Control/Shapes.h"

#include <algorithm>

namespace Agent {

using Maintenance::Unit::UnitState;

namespace {

constexpr UnitState unitStates[] = {
   UnitState::normal, UnitState::enterInProgress, UnitState::maintenance, UnitState::exitInProgress };

} // namespace

void Metrics::Writer::allUnits() {
   out.metric(
      "maint_unit_state", Type::gauge,
      "1 for the state that a unit is in, 0 for the others: normal, entering, maintenance, exiting." );
   for ( const UnitSeen & unit : units )
      for ( const UnitState state : unitStates )
         out.sample(
            unitStateText( unit.status->state() ) == std::string_view( unitStateText( state ) ),
            { { "unit", unit.name }, { "state", unitStateText( state ) } } );
   out.metric( "maint_unit_state_timestamp_seconds", Type::gauge, "Since when a unit is in its state." );
   for ( const UnitSeen & unit : units )
      time( unit.run ? unit.run->since() : 0, { { "unit", unit.name } } );
   out.metric(
      "maint_unit_eta_timestamp_seconds", Type::gauge,
      "When a unit that enters is expected to be under maintenance, if that can be said." );
   for ( const UnitSeen & unit : units )
      time( eta( unit ).value_or( 0 ), { { "unit", unit.name } } );
   ofUnits(
      "maint_unit_overdue", "Whether an operation takes longer than who asked for it expected (1).",
      [this]( const UnitSeen & unit ) {
         return unit.run && unit.run->deadline() > 0 && commands.now() > unit.run->deadline();
      } );
   times();
   ofUnits(
      "maint_unit_settling", "Whether all has drained and has to stay so for the settle time (1).",
      []( const UnitSeen & unit ) { return unit.progress.settlingSince.has_value(); } );
   progress();
   traffic();
   stages();
   out.metric( "maint_unit_member", Type::gauge, "Always 1; which interface belongs to which unit." );
   for ( const UnitSeen & unit : units )
      for ( const auto & [name, intf] : unit.members )
         out.sample( 1, { { "unit", unit.name }, { "interface", name } } );
}

void Metrics::Writer::times() {
   const auto timesOf = [this]( const UnitSeen & unit ) { return model.unitTimesDir->unit( unit.name ); };
   const auto each = [&]( const char * name, const char * help, double ( *of )( const UnitTimes & ) ) {
      out.metric( name, Type::gauge, help );
      for ( const UnitSeen & unit : units )
         if ( const UnitTimes * const set = timesOf( unit ) )
            time( of( *set ), { { "unit", unit.name } } );
   };
   each(
      "maint_unit_deadline_timestamp_seconds",
      "By when a unit is to be under maintenance, if that is set and was not met.",
      []( const UnitTimes & set ) { return set.deadline(); } );
   each(
      "maint_unit_revert_timestamp_seconds", "When a unit goes back of its own accord, if that is set.",
      []( const UnitTimes & set ) { return set.revertAt(); } );
   ofUnits(
      "maint_unit_overrun", "Whether a unit was not under maintenance by its deadline (1).",
      [&]( const UnitSeen & unit ) {
         const UnitTimes * const set = timesOf( unit );
         return set && set->overrun() > 0;
      } );
}

std::optional< double > Metrics::Writer::eta( const UnitSeen & unit ) const {
   UnitFacts facts;
   facts.state = unit.status->state();
   facts.progress = unit.progress;
   for ( const auto & [name, intf] : unit.members )
      if ( auto reason = reasonFacts( model, intf, commands.now() ) )
         facts.interfaces.push_back( std::move( *reason ) );
      else if ( !commands.uncounted( intf ).empty() )
         facts.uncounted.push_back( name );
   return unitEta( facts );
}

void Metrics::Writer::progress() {
   ofUnits( "maint_unit_interfaces", "Interfaces that belong to a unit.", []( const UnitSeen & unit ) {
      return unit.members.size();
   } );
   ofUnits(
      "maint_unit_monitored_interfaces", "Interfaces of a unit that are monitored.",
      []( const UnitSeen & unit ) { return unit.progress.total; } );
   ofUnits(
      "maint_unit_drained_interfaces", "Interfaces of a unit that have drained.",
      []( const UnitSeen & unit ) { return unit.progress.drained; } );
}

void Metrics::Writer::traffic() {
   ofUnits(
      "maint_unit_violating_interfaces",
      "Interfaces of a unit that carry traffic above their threshold after they have drained.",
      []( const UnitSeen & unit ) { return unit.status->intfsViolatingTrafficThresholds(); } );
   ofUnits(
      "maint_unit_violations_total", "Samples above the threshold of interfaces that have drained.",
      []( const UnitSeen & unit ) { return unit.status->totalIntfTrafficViolations(); }, Type::counter );
   out.metric(
      "maint_unit_rate_bytes_per_second", Type::gauge,
      "Traffic of a unit: the sum over its monitored interfaces." );
   for ( const UnitSeen & unit : units ) {
      const auto & rate = unit.status->aggTrafficRate();
      rates( "unit", unit.name, static_cast< double >( rate.inRate ), static_cast< double >( rate.outRate ) );
   }
}

void Metrics::Writer::stages() {
   out.metric(
      "maint_unit_stage_state", Type::gauge,
      "Always 1; the state of each stage of the present or last run of a unit: pending, running, "
      "complete, "
      "failed or skipped." );
   for ( const UnitSeen & unit : units )
      for ( const auto & stage : unit.progress.stages )
         out.sample( 1, { { "unit", unit.name }, { "name", stage.name }, { "state", stage.state } } );
   ofUnits(
      "maint_unit_failed_stages", "Stages of the present or last run of a unit that have failed.",
      []( const UnitSeen & unit ) {
         const auto & list = unit.progress.stages;
         return std::count_if(
            list.begin(), list.end(), []( const auto & stage ) { return stage.state == "failed"; } );
      } );
}

} // namespace Agent
