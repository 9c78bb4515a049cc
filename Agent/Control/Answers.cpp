#include "Agent/Control/Answers.h"

#include "Agent/Control/AnswersJson.h"
#include "Agent/Control/Shapes.h"
#include "Api/Values.h"
#include "Platform/Vel/Entity.h"
#include "Platform/Vel/Trace.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace Agent {

using nlohmann::json;

namespace {

std::string textOf( const json & value ) {
   // Names come from outside; what is not UTF-8 is shown, not refused.
   return value.dump( -1, ' ', false, json::error_handler_t::replace );
}

std::string text( const json & value ) { return textOf( value ) + "\n"; }

Api::Error noUnit( const std::string & name ) {
   return { Api::ErrorCode::notFound, "there is no unit " + name, name };
}

const Maintenance::Unit::Status & unitStatus( const ControlModel & model, const std::string & name ) {
   if ( const auto * status = model.unitStatusDir->status( name ) )
      return *status;
   throw noUnit( name );
}

} // namespace

// ---- the shapes

json Answers::Json::number( double value ) {
   return std::isfinite( value ) ? json( value ) : json( nullptr );
}

json Answers::Json::number( const std::optional< double > & value ) {
   return value ? number( *value ) : json( nullptr );
}

json Answers::Json::textOrNull( const std::string & value ) {
   return value.empty() ? json( nullptr ) : json( value );
}

json Answers::Json::counter( Vel::U64 value ) { return Api::counterText( value ); }

json Answers::Json::ahead( std::optional< double > clockSeconds ) const {
   return clockSeconds ? number( std::max( 0.0, *clockSeconds - commands.now() ) ) : json( nullptr );
}

json Answers::Json::time( double clockSeconds ) const {
   return clockSeconds > 0 ? json( Api::timeText( commands.wallTime( clockSeconds ) ) ) : json( nullptr );
}

json Answers::Json::profile( const IntfMaintenanceProfile::Status & profile ) const {
   return {
      { "name", profile.name() },
      { "threshold-bps", number( profile.drainWatchThresholdInKbps() * 1000 ) },
      { "load-interval-seconds", profile.drainWatchLoadInterval() },
      { "shutdown", profile.shutdown() },
      { "shutdown-max-delay-seconds", number( profile.shutdownMaxDelay() ) },
      { "default", profile.name() == model.defaultIntfProfile->profileName() } };
}

json Answers::Json::group( const std::string & name, const ControlCommands::Group & configured ) const {
   const Maintenance::GroupKey key{ Maintenance::GroupType::interfaceGroup, name };
   std::set< std::string > interfaces, units;
   if ( const auto * status = model.intfGroupStatusDir->status( key ) )
      for ( const auto & [intf, none] : status->intfRange() )
         interfaces.emplace( intf.name() );
   if ( const auto * mapping = model.groupToUnitDir->groupToUnit( key ) )
      for ( const auto & [unit, none] : mapping->unitNameRange() )
         units.insert( unit );
   return {
      { "name", name },
      { "profile", configured.profile ? json( *configured.profile ) : json( nullptr ) },
      { "interfaces", interfaces },
      { "units", units } };
}

json Answers::Json::problems( const std::vector< Problem > & list ) const {
   json result = json::array();
   for ( const Problem & problem : list )
      result.push_back(
         { { "what", problem.what }, { "since", time( problem.since ) }, { "text", problem.text } } );
   return result;
}

namespace {

json hookJson( const ControlCommands::Hook & hook ) {
   return {
      { "name", hook.name },
      { "kind", hook.isUrl ? "url" : "command" },
      { "runs", std::to_string( hook.runs ) },
      { "failures", std::to_string( hook.failures ) },
      { "missed", std::to_string( hook.missed ) },
      { "waiting", hook.waiting },
      { "event", hook.event != 0 ? json( hook.event ) : json( nullptr ) },
      { "failure", hook.failure.empty() ? json( nullptr ) : json( hook.failure ) } };
}

} // namespace

json Answers::Json::agent() const {
   const auto facts = commands.agent();
   json hooks = json::array();
   for ( const ControlCommands::Hook & hook : facts.hooks )
      hooks.push_back( hookJson( hook ) );
   return {
      { "version", facts.version },
      { "pid", getpid() },
      { "started", time( facts.started ) },
      { "state", facts.problems.empty() ? "ok" : "degraded" },
      { "problems", problems( facts.problems ) },
      { "plugin",
        { { "name", facts.pluginName },
          { "state", facts.pluginProblem.empty() ? "loaded" : "missing" },
          { "text", textOrNull( facts.pluginProblem ) } } },
      { "configuration",
        { { "file", facts.configurationFile },
          { "state", facts.configurationErrors.empty() ? "accepted" : "last-accepted" },
          { "errors", facts.configurationErrors } } },
      { "switch", facts.switchKind },
      { "switch-overruns", facts.switchOverruns },
      { "clock", time( commands.now() ) },
      { "fast-log", facts.fastLog },
      { "hooks", hooks },
      { "restarts", facts.restarts ? json( *facts.restarts ) : json( nullptr ) },
      { "restart-reason", textOrNull( facts.restartReason ) } };
}

// ---- the answers

std::string Answers::units() const {
   json list = json::array();
   for ( const auto & [name, status] : model_.unitStatusDir->statusRange() )
      list.push_back( Json( *this ).unit( *status ) );
   return text( list );
}

std::string Answers::unit( const std::string & name ) const {
   return text( Json( *this ).unit( unitStatus( model_, name ) ) );
}

std::string Answers::explanation( const std::string & unit ) const {
   return text( Json( *this ).explanation( unitStatus( model_, unit ) ) );
}

std::string Answers::listOf(
   const std::map< std::string, Wire::IntfId > & interfaces, const InterfaceFields & fields ) const {
   // There may be thousands: each is written and gone before the next is made.
   std::string list;
   for ( const auto & [name, intf] : interfaces ) {
      list += list.empty() ? '[' : ',';
      list += textOf( Json( *this ).interface( intf, fields ) );
   }
   return ( list.empty() ? "[" : list ) + "]\n";
}

std::string Answers::interfaces( const InterfaceFields & fields ) const {
   return listOf( shownInterfaces( model_ ), fields );
}

std::string Answers::interfacesOf( const std::string & unit, const InterfaceFields & fields ) const {
   unitStatus( model_, unit );
   return listOf( interfacesOfUnit( model_, unit ), fields );
}

std::string Answers::interface( const std::string & name ) const {
   const Wire::IntfId intf = interfaceNamed( model_, name );
   if ( intf.empty() )
      throw Api::Error{ Api::ErrorCode::notFound, "there is no interface " + name, name };
   return text( Json( *this ).interface( intf ) );
}

std::string Answers::profiles() const {
   json list = json::array();
   for ( const auto & [name, profile] : model_.intfProfileStatusDir->statusRange() )
      list.push_back( Json( *this ).profile( *profile ) );
   return text( list );
}

std::string Answers::groups() const {
   json list = json::array();
   for ( const auto & [name, group] : commands_.groups() )
      list.push_back( Json( *this ).group( name, group ) );
   return text( list );
}

std::string Answers::counters() const {
   json result = json::object();
   if ( const Vel::Entity * entity = commands_.counters() )
      for ( const Vel::AttributeInfo & a : entity->typeInfo().attributes() )
         if ( a.kind == Vel::AttributeInfo::counter )
            result[kebabCase( a.name )] =
               *static_cast< const Vel::U32 * >( a.raw( const_cast< Vel::Entity & >( *entity ) ) );
   return text( result );
}

std::string Answers::agent() const { return text( Json( *this ).agent() ); }

std::string Answers::health() const {
   const auto problems = commands_.agent().problems;
   return text(
      { { "status", problems.empty() ? "ok" : "degraded" },
        { "problems", Json( *this ).problems( problems ) } } );
}

std::string Answers::traceLevels() {
   // Several parts may trace under one name; they are switched together.
   std::map< std::string, int > levels;
   for ( const Vel::TraceFacility * facility : Vel::TraceFacility::all() ) {
      const auto [it, isNew] = levels.try_emplace( facility->name(), facility->level() );
      it->second = std::max( it->second, facility->level() );
   }
   json list = json::array();
   for ( const auto & [name, level] : levels )
      list.push_back( { { "name", name }, { "level", level } } );
   return text( list );
}

std::string Answers::accepted( const std::string & unit, const ControlCommands::Taken & taken ) const {
   const auto & status = unitStatus( model_, unit );
   return text(
      { { "unit", unit },
        { "generation", status.genId() },
        { "state", unitStateText( status.state() ) },
        { "operation", taken.operation ? json( taken.operation ) : json( nullptr ) },
        { "changed", taken.changed },
        { "repeated", taken.repeated } } );
}

std::string Answers::simulatedTime( double clockSeconds ) const {
   return text( { { "time", Json( *this ).time( clockSeconds ) } } );
}

} // namespace Agent
