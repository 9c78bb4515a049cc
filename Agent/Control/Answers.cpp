#include "Agent/Control/Answers.h"

#include "Agent/Control/Shapes.h"
#include "Api/Values.h"
#include "Config/Stages.h"
#include "Platform/Vel/Entity.h"
#include "Platform/Vel/Trace.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace Agent {

using Maintenance::Unit::UnitState;
using nlohmann::json;

namespace {

/// Seconds for which a unit may have as many drained interfaces as monitored ones and not settle.
constexpr double stuckAfter = 15;

std::string text( const json & value ) {
   // Names come from outside; what is not UTF-8 is shown, not refused.
   return value.dump( -1, ' ', false, json::error_handler_t::replace ) + "\n";
}

json number( double value ) { return std::isfinite( value ) ? json( value ) : json( nullptr ); }

json textOrNull( const std::string & value ) { return value.empty() ? json( nullptr ) : json( value ); }

json counter( Vel::U64 value ) { return Api::counterText( value ); }

Api::Error noUnit( const std::string & name ) {
   return { Api::ErrorCode::notFound, "there is no unit " + name, name };
}

const Maintenance::Unit::Status & unitStatus( const ControlModel & model, const std::string & name ) {
   if ( const auto * status = model.unitStatusDir->status( name ) )
      return *status;
   throw noUnit( name );
}

} // namespace

/// The shapes as JSON.
struct Answers::Json {
   const ControlModel & model;
   const ControlCommands & commands;

   explicit Json( const Answers & answers ) : model( answers.model_ ), commands( answers.commands_ ) {}

   json time( double clockSeconds ) const {
      return clockSeconds > 0 ? json( Api::timeText( commands.wallTime( clockSeconds ) ) ) : json( nullptr );
   }

   json unit( const Maintenance::Unit::Status & status ) const {
      const std::string name = status.unitName();
      const auto * run = model.unitRunDir->unitRun( name );
      const auto progress = commands.progress( name );
      std::set< std::string > violating, groups;
      for ( const auto & [intf, value] : status.intfsViolatingTrafficThresholdRange() )
         violating.emplace( intf.name() );
      if ( const auto * of = model.groupToUnitDir->unitToGroup( name ) )
         for ( const auto & [group, none] : of->groupKeyRange() )
            groups.insert( group.name );
      const double deadline = run ? run->deadline() : 0;
      return {
         { "name", name },
         { "state", unitStateText( status.state() ) },
         { "stage", textOrNull( progress.stage ) },
         { "stages", stages( status, progress ) },
         { "generation", status.genId() },
         { "since", run ? time( run->since() ) : json( nullptr ) },
         { "reason", run ? textOrNull( run->reason() ) : json( nullptr ) },
         { "by", run ? textOrNull( run->by() ) : json( nullptr ) },
         { "deadline", time( deadline ) },
         { "overdue", deadline > 0 && commands.now() > deadline },
         { "interfaces", { { "total", progress.total }, { "drained", progress.drained } } },
         { "rates",
           { { "in-bps", status.aggTrafficRate().inRate }, { "out-bps", status.aggTrafficRate().outRate } } },
         { "violating", violating },
         { "total-violations", status.totalIntfTrafficViolations() },
         { "settling-since", progress.settlingSince ? time( *progress.settlingSince ) : json( nullptr ) },
         { "groups", groups } };
   }

   json stages( const Maintenance::Unit::Status & status, const ControlCommands::Progress & progress ) const {
      json result = json::array();
      for ( const auto & stage : progress.stages ) {
         const bool limited = stage.limit > 0;
         const bool runs = stage.state == "running" && !stage.waits && stage.waitsFor.empty();
         result.push_back(
            { { "name", stage.name },
              { "state", stage.state },
              { "since", time( stage.since ) },
              { "command", textOrNull( stage.command ) },
              { "limit-seconds", limited ? json( stage.limit ) : json( nullptr ) },
              { "deadline", limited && runs ? time( stage.since + stage.limit ) : json( nullptr ) },
              { "failure", textOrNull( stage.failure ) },
              { "text", stageText( stage, status.state() ) } } );
      }
      return result;
   }

   json interface( const Wire::IntfId & intf ) const {
      const auto * record = model.monIntfStatusDir->monIntfStatus( intf );
      const bool sampled = record && record->totalSamples() > 0;
      return {
         { "name", intf.name() },
         { "kind", kindText( intf.kind() ) },
         { "units", unitsOfInterface( model, intf ) },
         { "profile", textOrNull( profileOf( model, intf ) ) },
         { "state", record ? json( monStateText( record->state() ) ) : json( nullptr ) },
         { "in-bps", sampled ? number( record->curRates().inBitsRate ) : json( nullptr ) },
         { "out-bps", sampled ? number( record->curRates().outBitsRate ) : json( nullptr ) },
         { "samples", record ? counter( record->totalSamples() ) : json( nullptr ) },
         { "consecutive-drained-samples",
           record ? counter( record->numConsecutiveDrainedSamples() ) : json( nullptr ) },
         { "spike", record && record->spikeUnderMaint() },
         { "shut", model.cause->intfStatus( intf ) != nullptr },
         { "link-state", commands.linkState( intf ) },
         { "drift", textOrNull( commands.drift( intf ) ) },
         { "start-time", record ? time( record->startTime() ) : json( nullptr ) },
         { "state-time", record ? time( record->stateTime() ) : json( nullptr ) },
         { "last-sample-time", record ? time( record->lastSampleTime() ) : json( nullptr ) } };
   }

   json waiting( const std::string & name, const Maintenance::MonIntfStatus & record ) const {
      const json shown = interface( record.intfId() );
      const auto * profile = model.intfProfileStatusDir->status( profileOf( model, record.intfId() ) );
      const bool shutInAnyCase =
         profile && profile->shutdown() && std::isfinite( profile->shutdownMaxDelay() );
      const bool sampling = record.state() == Maintenance::monIntfStateEnterMaint;
      return {
         { "interface", name },
         { "state", shown["state"] },
         { "profile", shown["profile"] },
         { "in-bps", shown["in-bps"] },
         { "out-bps", shown["out-bps"] },
         { "threshold-bps",
           profile ? number( profile->drainWatchThresholdInKbps() * 1000 ) : json( nullptr ) },
         { "load-interval-seconds", profile ? json( profile->drainWatchLoadInterval() ) : json( nullptr ) },
         { "quiet-seconds",
           static_cast< double >( record.numConsecutiveDrainedSamples() ) * secondsPerSample },
         { "samples", shown["samples"] },
         { "next-sample",
           sampling ? time( std::max( record.lastSampleTime(), record.startTime() ) + secondsPerSample )
                    : json( nullptr ) },
         { "shutdown-at",
           shutInAnyCase ? time( record.startTime() + profile->shutdownMaxDelay() ) : json( nullptr ) },
         { "reason", waitingText( model, record ) } };
   }

   /// An interface without a record that keeps the unit from completing all the same.
   json
   waitingUncounted( const std::string & name, const Wire::IntfId & intf, const std::string & why ) const {
      json result{ { "interface", name }, { "profile", textOrNull( profileOf( model, intf ) ) } };
      for ( const char * unknown :
            { "state", "in-bps", "out-bps", "threshold-bps", "load-interval-seconds", "quiet-seconds",
              "samples", "next-sample", "shutdown-at" } )
         result[unknown] = nullptr;
      result["reason"] = uncountedText( why );
      return result;
   }

   /// Why the unit does not get on although all has drained; empty: it does get on.
   std::string
   stuckReason( const Maintenance::Unit::Status & status, const ControlCommands::Progress & progress ) const {
      if (
         status.state() != UnitState::enterInProgress || progress.stage != Config::drainwatchStage ||
         progress.total != progress.drained || progress.settlingSince ||
         commands.now() - std::max( unchangedSince( model, status.unitName() ), stageSince( progress ) ) <
            stuckAfter )
         return "";
      if ( !progress.blocked.empty() )
         return progress.blocked;
      for ( const auto & [name, intf] : interfacesOfUnit( model, status.unitName() ) )
         if ( const std::string why = commands.uncounted( intf ); !why.empty() )
            return name + " " + uncountedText( why );
      return ( progress.total ? "all interfaces have drained" : "there is no interface to wait for" ) +
             std::string( ", but stage " ) + progress.stage + " has not been reported complete";
   }

   /// Seconds of the clock since when the present stage runs; 0: unknown.
   static double stageSince( const ControlCommands::Progress & progress ) {
      for ( const auto & stage : progress.stages )
         if ( stage.name == progress.stage )
            return stage.since;
      return 0;
   }

   json explanation( const Maintenance::Unit::Status & status ) const {
      const std::string name = status.unitName();
      const auto progress = commands.progress( name );
      const bool underWay =
         status.state() == UnitState::enterInProgress || status.state() == UnitState::maintenance;
      json waiting = json::array(), skipped = json::array();
      for ( const auto & [text, intf] : interfacesOfUnit( model, name ) ) {
         const auto * record = model.monIntfStatusDir->monIntfStatus( intf );
         const std::string uncounted = record ? "" : commands.uncounted( intf );
         if ( status.state() == UnitState::enterInProgress && !uncounted.empty() )
            waiting.push_back( waitingUncounted( text, intf, uncounted ) );
         else if ( !record )
            skipped.push_back(
               { { "interface", text }, { "reason", skippedText( model, intf, status.state() ) } } );
         else if ( underWay && record->state() != Maintenance::monIntfStateUnderMaint )
            waiting.push_back( this->waiting( text, *record ) );
      }
      for ( const std::string & missing : missingInterfaces( name ) )
         skipped.push_back( { { "interface", missing }, { "reason", "does not exist" } } );
      const std::string stuck = stuckReason( status, progress );
      const auto * run = model.unitRunDir->unitRun( name );
      return {
         { "unit", name },
         { "state", unitStateText( status.state() ) },
         { "stage", textOrNull( progress.stage ) },
         { "reason", run ? textOrNull( run->reason() ) : json( nullptr ) },
         { "stages", stages( status, progress ) },
         { "ending-earlier-command", progress.busy && progress.stage.empty() },
         { "settle-remaining-seconds",
           progress.settlingSince
              ? number( std::max( 0.0, *progress.settlingSince + progress.settleTime - commands.now() ) )
              : json( nullptr ) },
         { "stuck", !stuck.empty() },
         { "stuck-reason", textOrNull( stuck ) },
         { "waiting", waiting },
         { "skipped", skipped } };
   }

   /// What is configured for a unit and is not there.
   std::set< std::string > missingInterfaces( const std::string & unit ) const {
      std::set< std::string > result;
      const auto * of = model.groupToUnitDir->unitToGroup( unit );
      const auto configured = commands.groups();
      for ( const auto & [name, group] : configured )
         if ( of && of->groupKey( { Maintenance::GroupType::interfaceGroup, name } ) )
            result.insert( group.interfaces.begin(), group.interfaces.end() );
      for ( const auto & [name, intf] : interfacesOfUnit( model, unit ) )
         result.erase( name );
      return result;
   }

   json profile( const IntfMaintenanceProfile::Status & profile ) const {
      return {
         { "name", profile.name() },
         { "threshold-bps", number( profile.drainWatchThresholdInKbps() * 1000 ) },
         { "load-interval-seconds", profile.drainWatchLoadInterval() },
         { "shutdown", profile.shutdown() },
         { "shutdown-max-delay-seconds", number( profile.shutdownMaxDelay() ) },
         { "default", profile.name() == model.defaultIntfProfile->profileName() } };
   }

   json group( const std::string & name, const ControlCommands::Group & configured ) const {
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

   json problems( const std::vector< Problem > & list ) const {
      json result = json::array();
      for ( const Problem & problem : list )
         result.push_back(
            { { "what", problem.what }, { "since", time( problem.since ) }, { "text", problem.text } } );
      return result;
   }

   json agent() const {
      const auto facts = commands.agent();
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
         { "fast-log", facts.fastLog } };
   }
};

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

std::string Answers::interfaces() const {
   json list = json::array();
   for ( const auto & [name, intf] : shownInterfaces( model_ ) )
      list.push_back( Json( *this ).interface( intf ) );
   return text( list );
}

std::string Answers::interfacesOf( const std::string & unit ) const {
   unitStatus( model_, unit );
   json list = json::array();
   for ( const auto & [name, intf] : interfacesOfUnit( model_, unit ) )
      list.push_back( Json( *this ).interface( intf ) );
   return text( list );
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

std::string Answers::accepted( const std::string & unit ) const {
   const auto & status = unitStatus( model_, unit );
   return text(
      { { "unit", unit }, { "generation", status.genId() }, { "state", unitStateText( status.state() ) } } );
}

std::string Answers::simulatedTime( double clockSeconds ) const {
   return text( { { "time", Json( *this ).time( clockSeconds ) } } );
}

} // namespace Agent
