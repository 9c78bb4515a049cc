#include "Agent/Control/ControlApi.h"

#include "Agent/Control/Shapes.h"
#include "Platform/Vel/Entity.h"
#include "Platform/Vel/Trace.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cmath>

namespace Agent {

using nlohmann::json;

namespace {

std::vector< std::string > split( const std::string & path ) {
   std::vector< std::string > result;
   std::size_t begin = 0;
   while ( begin < path.size() ) {
      const std::size_t end = std::min( path.find( '/', begin ), path.size() );
      if ( end > begin )
         result.push_back( path.substr( begin, end - begin ) );
      begin = end + 1;
   }
   return result;
}

HttpReply ok( const json & body, int status = 200 ) {
   // Names come from outside; what is not UTF-8 is shown, not refused.
   return { status, body.dump( -1, ' ', false, json::error_handler_t::replace ) + "\n" };
}

Api::Error notFound( const std::string & what, const std::string & where ) {
   return { Api::ErrorCode::notFound, what, where };
}

json number( double value ) { return std::isfinite( value ) ? json( value ) : json( nullptr ); }

json textOrNull( const std::string & text ) { return text.empty() ? json( nullptr ) : json( text ); }

} // namespace

/// The shapes as JSON.
struct ControlApi::Json {
   const ControlModel & model;
   const ControlCommands & commands;

   json time( double clockSeconds ) const {
      return clockSeconds > 0 ? json( rfc3339( commands.wallTime( clockSeconds ) ) ) : json( nullptr );
   }

   json unit( const Maintenance::Unit::Status & status ) const {
      const std::string name = status.unitName();
      const auto * run = model.unitRunDir->unitRun( name );
      const auto progress = commands.progress( name );
      json violating = json::array();
      for ( const auto & [intf, value] : status.intfsViolatingTrafficThresholdRange() )
         violating.push_back( intf.name() );
      json groups = json::array();
      if ( const auto * of = model.groupToUnitDir->unitToGroup( name ) )
         for ( const auto & [group, none] : of->groupKeyRange() )
            groups.push_back( group.name );
      return {
         { "name", name },
         { "state", unitStateText( status.state() ) },
         { "stage", textOrNull( progress.stage ) },
         { "generation", status.genId() },
         { "since", run ? time( run->since() ) : json( nullptr ) },
         { "reason", run ? textOrNull( run->reason() ) : json( nullptr ) },
         { "by", run ? textOrNull( run->by() ) : json( nullptr ) },
         { "interfaces", { { "total", progress.total }, { "drained", progress.drained } } },
         { "rates",
           { { "in-bps", status.aggTrafficRate().inRate }, { "out-bps", status.aggTrafficRate().outRate } } },
         { "violating", violating },
         { "total-violations", status.totalIntfTrafficViolations() },
         { "settling-since", progress.settlingSince ? time( *progress.settlingSince ) : json( nullptr ) },
         { "groups", groups } };
   }

   json interface( const Wire::IntfId & intf ) const {
      const auto * record = model.monIntfStatusDir->monIntfStatus( intf );
      const auto rate = [&]( double value ) {
         return record && record->totalSamples() ? number( value ) : json( nullptr );
      };
      return {
         { "name", intf.name() },
         { "kind", kindText( intf.kind() ) },
         { "units", unitsOfInterface( model, intf ) },
         { "profile", textOrNull( profileOf( model, intf ) ) },
         { "state", record ? json( monStateText( record->state() ) ) : json( nullptr ) },
         { "in-bps", rate( record ? record->curRates().inBitsRate : 0 ) },
         { "out-bps", rate( record ? record->curRates().outBitsRate : 0 ) },
         { "samples", record ? json( record->totalSamples() ) : json( nullptr ) },
         { "consecutive-drained-samples",
           record ? json( record->numConsecutiveDrainedSamples() ) : json( nullptr ) },
         { "spike", record && record->spikeUnderMaint() },
         { "shut", model.cause->intfStatus( intf ) != nullptr },
         { "link-state", commands.linkState( intf ) },
         { "start-time", record ? time( record->startTime() ) : json( nullptr ) },
         { "state-time", record ? time( record->stateTime() ) : json( nullptr ) },
         { "last-sample-time", record ? time( record->lastSampleTime() ) : json( nullptr ) } };
   }

   json explain( const Maintenance::Unit::Status & status ) const {
      const std::string name = status.unitName();
      const auto progress = commands.progress( name );
      const double now = commands.now();
      json waiting = json::array(), skipped = json::array();
      for ( const auto & [text, intf] : interfacesOfUnit( model, name ) ) {
         const auto * record = model.monIntfStatusDir->monIntfStatus( intf );
         if ( !record ) {
            skipped.push_back( { { "interface", text }, { "reason", waitingText( model, intf, now ) } } );
            continue;
         }
         if ( record->state() == Maintenance::monIntfStateUnderMaint )
            continue;
         json entry = interface( intf );
         const auto * profile = model.intfProfileStatusDir->status( profileOf( model, intf ) );
         waiting.push_back(
            { { "interface", text },
              { "state", entry["state"] },
              { "profile", entry["profile"] },
              { "in-bps", entry["in-bps"] },
              { "out-bps", entry["out-bps"] },
              { "threshold-bps",
                profile ? number( profile->drainWatchThresholdInKbps() * 1000 ) : json( nullptr ) },
              { "load-interval-seconds",
                profile ? json( profile->drainWatchLoadInterval() ) : json( nullptr ) },
              { "quiet-seconds", record->numConsecutiveDrainedSamples() * 5 },
              { "samples", record->totalSamples() },
              { "next-sample",
                record->lastSampleTime() > 0 ? time( record->lastSampleTime() + 5 ) : json( nullptr ) },
              { "shutdown-at", profile && profile->shutdown() && std::isfinite( profile->shutdownMaxDelay() )
                                  ? time( record->startTime() + profile->shutdownMaxDelay() )
                                  : json( nullptr ) },
              { "reason", waitingText( model, intf, now ) } } );
      }
      const auto * run = model.unitRunDir->unitRun( name );
      const bool stuck = status.state() == Maintenance::Unit::UnitState::enterInProgress &&
                         progress.total == progress.drained && !progress.settlingSince && run &&
                         now - run->since() > 15;
      return {
         { "unit", name },
         { "state", unitStateText( status.state() ) },
         { "stage", textOrNull( progress.stage ) },
         { "settle-remaining-seconds",
           progress.settlingSince
              ? number( std::max( 0.0, *progress.settlingSince + progress.settleTime - now ) )
              : json( nullptr ) },
         { "stuck", stuck },
         { "stuck-reason", stuck
                              ? json( "all interfaces have drained, but the stage was not reported complete" )
                              : json( nullptr ) },
         { "waiting", waiting },
         { "skipped", skipped } };
   }

   json profiles() const {
      json result = json::array();
      for ( const auto & [name, profile] : model.intfProfileStatusDir->statusRange() )
         result.push_back(
            { { "name", name },
              { "threshold-bps", number( profile->drainWatchThresholdInKbps() * 1000 ) },
              { "load-interval-seconds", profile->drainWatchLoadInterval() },
              { "shutdown", profile->shutdown() },
              { "shutdown-max-delay-seconds", number( profile->shutdownMaxDelay() ) },
              { "default", name == model.defaultIntfProfile->profileName() } } );
      return result;
   }

   json groups() const {
      json result = json::array();
      for ( const auto & [group, mapping] : model.groupToUnitDir->groupToUnitRange() ) {
         json interfaces = json::array(), units = json::array();
         if ( const auto * status = model.intfGroupStatusDir->status( group ) )
            for ( const auto & [intf, none] : status->intfRange() )
               interfaces.push_back( intf.name() );
         for ( const auto & [unit, none] : mapping->unitNameRange() )
            units.push_back( unit );
         result.push_back( { { "name", group.name }, { "interfaces", interfaces }, { "units", units } } );
      }
      return result;
   }

   json counters() const {
      json result = json::object();
      if ( const Vel::Entity * entity = commands.counters() )
         for ( const Vel::AttributeInfo & a : entity->typeInfo().attributes() )
            if ( a.kind == Vel::AttributeInfo::counter )
               result[kebabCase( a.name )] =
                  *static_cast< const Vel::U32 * >( a.raw( const_cast< Vel::Entity & >( *entity ) ) );
      return result;
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
         { "clock", time( commands.now() ) },
         { "fast-log", facts.fastLog } };
   }

   static json trace() {
      json result = json::array();
      for ( const Vel::TraceFacility * facility : Vel::TraceFacility::all() )
         result.push_back( { { "name", facility->name() }, { "level", facility->level() } } );
      return result;
   }
};

HttpReply ControlApi::refusal( const Api::Error & error ) {
   return ok(
      { { "error",
          { { "code", stringValue( error.code ) },
            { "message", error.message },
            { "where", textOrNull( error.where ) } } } },
      httpStatus( error.code ) );
}

void ControlApi::handle( const HttpRequest & request, HttpServer::Answer answer ) {
   std::vector< std::string > path = split( request.path );
   if ( request.method != "GET" && request.method != "HEAD" && !request.local )
      return answer(
         refusal( { Api::ErrorCode::badRequest, "only GET is allowed on this address", request.method } ) );
   if ( path.size() == 1 && path[0] == "healthz" ) {
      const auto problems = commands_.agent().problems;
      const Json shapes{ model_, commands_ };
      return answer( ok(
         { { "status", problems.empty() ? "ok" : "degraded" }, { "problems", shapes.problems( problems ) } },
         problems.empty() ? 200 : 503 ) );
   }
   if ( path.size() < 3 || path[0] != "api" || path[1] != "v1" )
      return answer( refusal( notFound( "there is nothing here", request.path ) ) );
   path.erase( path.begin(), path.begin() + 2 );
   if ( request.method == "GET" || request.method == "HEAD" )
      return answer( get( request, path ) );
   if ( request.method == "POST" )
      return post( request, path, answer );
   answer( refusal( { Api::ErrorCode::badRequest, "unknown method " + request.method, request.method } ) );
}

HttpReply ControlApi::get( const HttpRequest & request, const std::vector< std::string > & path ) {
   const Json shapes{ model_, commands_ };
   const std::string & what = path[0];
   if ( path.size() > 1 )
      return getOne( path );
   if ( what == "units" ) {
      json list = json::array();
      for ( const auto & [name, status] : model_.unitStatusDir->statusRange() )
         list.push_back( shapes.unit( *status ) );
      return ok( list );
   }
   if ( what == "interfaces" ) {
      json list = json::array();
      const auto unit = request.query.find( "unit" );
      if ( unit != request.query.end() && !model_.unitStatusDir->status( unit->second ) )
         return refusal( notFound( "there is no unit " + unit->second, unit->second ) );
      for ( const auto & [name, intf] :
            unit == request.query.end() ? allInterfaces( model_ ) : interfacesOfUnit( model_, unit->second ) )
         list.push_back( shapes.interface( intf ) );
      return ok( list );
   }
   if ( what == "profiles" )
      return ok( shapes.profiles() );
   if ( what == "groups" )
      return ok( shapes.groups() );
   if ( what == "counters" )
      return ok( shapes.counters() );
   if ( what == "agent" )
      return ok( shapes.agent() );
   if ( what == "trace" )
      return ok( Json::trace() );
   if ( what == "dump" )
      return { 200, commands_.dump(), "text/plain; charset=utf-8" };
   return refusal( notFound( "there is nothing here", request.path ) );
}

HttpReply ControlApi::getOne( const std::vector< std::string > & path ) {
   const Json shapes{ model_, commands_ };
   const std::string & name = path[1];
   if ( path[0] == "units" ) {
      const auto * status = model_.unitStatusDir->status( name );
      if ( !status )
         return refusal( notFound( "there is no unit " + name, name ) );
      if ( path.size() == 2 )
         return ok( shapes.unit( *status ) );
      if ( path.size() == 3 && path[2] == "explain" )
         return ok( shapes.explain( *status ) );
   }
   if ( path[0] == "interfaces" && path.size() == 2 ) {
      const auto all = allInterfaces( model_ );
      const auto it = all.find( name );
      return it == all.end() ? refusal( notFound( "there is no interface " + name, name ) )
                             : ok( shapes.interface( it->second ) );
   }
   return refusal( notFound( "there is nothing here", name ) );
}

namespace {

/// A field of a request's body; throws Api::Error if it is of another type or missing.
template < class T >
T field( const json & body, const char * name, std::optional< T > missing = std::nullopt ) {
   const auto it = body.find( name );
   if ( it == body.end() || it->is_null() ) {
      if ( missing )
         return *missing;
      throw Api::Error{ Api::ErrorCode::badRequest, std::string( "\"" ) + name + "\" is missing", name };
   }
   const bool fits = std::is_same_v< T, std::string > ? it->is_string()
                     : std::is_same_v< T, bool >      ? it->is_boolean()
                                                      : it->is_number();
   if ( !fits )
      throw Api::Error{
         Api::ErrorCode::badRequest, std::string( "\"" ) + name + "\" has the wrong type", name };
   return it->get< T >();
}

json bodyOf( const HttpRequest & request ) {
   if ( request.body.empty() )
      return json::object();
   json body = json::parse( request.body, nullptr, false );
   if ( !body.is_object() )
      throw Api::Error{ Api::ErrorCode::badRequest, "the body is not a JSON object", "body" };
   return body;
}

double rate( const json & body, const char * name ) {
   const double value = field< double >( body, name );
   if ( !( value >= 0 && value <= 1e15 ) )
      throw Api::Error{ Api::ErrorCode::badRequest, std::string( "\"" ) + name + "\" is out of range", name };
   return value;
}

} // namespace

void ControlApi::post(
   const HttpRequest & request, const std::vector< std::string > & path,
   const HttpServer::Answer & answer ) try {
   const json body = bodyOf( request );
   const auto answerWhenCommitted = [&]( HttpReply reply ) {
      commands_.whenCommitted( [answer, reply = std::move( reply )] { answer( reply ); } );
   };
   const auto resultOf = [&]( const ControlCommands::Result & result, auto shape, int status ) {
      if ( result )
         answer( refusal( *result ) );
      else
         answerWhenCommitted( ok( shape(), status ) );
   };
   if ( path.size() == 3 && path[0] == "units" && ( path[2] == "enter" || path[2] == "exit" ) ) {
      const auto reason = field< std::string >( body, "reason", "" );
      const auto & command = path[2] == "enter" ? commands_.enter : commands_.exit;
      return resultOf(
         command( path[1], reason, request.by ),
         [&] {
            const auto & status = *model_.unitStatusDir->status( path[1] );
            return json{
               { "unit", path[1] },
               { "generation", status.genId() },
               { "state", unitStateText( status.state() ) } };
         },
         202 );
   }
   if ( path.size() == 3 && path[0] == "interfaces" && path[2] == "release" ) {
      if ( !field< bool >( body, "force", false ) )
         return answer( refusal(
            { Api::ErrorCode::needsForce, "releasing a link raises it whatever the stages say", path[1] } ) );
      return resultOf(
         commands_.release( path[1] ),
         [&] {
            return json{ { "interface", path[1] } };
         },
         202 );
   }
   if ( path.size() == 1 && path[0] == "trace" ) {
      const auto name = field< std::string >( body, "name" );
      const double level = field< double >( body, "level" );
      if ( !( level >= -1 && level <= 9 ) )
         return answer( refusal( { Api::ErrorCode::badRequest, "a level is -1 (off) to 9", "level" } ) );
      if ( Vel::TraceFacility::levelIs( name, static_cast< int >( level ) ) == 0 )
         return answer( refusal( notFound( "there is no trace facility " + name, name ) ) );
      return answer( ok( Json::trace() ) );
   }
   if ( path.size() == 1 && path[0] == "reload" ) {
      const auto reloaded = commands_.reload();
      if ( !reloaded.error )
         return answerWhenCommitted( ok( { { "changes", reloaded.changes } } ) );
      json errors = json::array();
      for ( const auto & e : reloaded.errors )
         errors.push_back(
            { { "file", e.file }, { "line", e.line }, { "column", e.column }, { "message", e.message } } );
      HttpReply reply = refusal( *reloaded.error );
      json withErrors = json::parse( reply.body );
      withErrors["errors"] = errors;
      return answer( ok( withErrors, reply.status ) );
   }
   if ( path.size() == 2 && path[0] == "simulated" ) {
      ControlCommands::Simulated what;
      what.what = path[1];
      if ( what.what == "traffic" ) {
         what.interface = field< std::string >( body, "interface" );
         what.inBps = rate( body, "in-bps" );
         what.outBps = rate( body, "out-bps" );
         what.seconds = field< double >( body, "ramp-seconds", 0.0 );
      } else if ( what.what == "link" ) {
         what.interface = field< std::string >( body, "interface" );
         what.up = field< bool >( body, "up" );
      } else if ( what.what == "advance" )
         what.seconds = field< double >( body, "seconds" );
      else
         return answer( refusal( notFound( "there is nothing here", request.path ) ) );
      if ( !( what.seconds >= 0 && what.seconds <= 86400 ) )
         return answer( refusal( { Api::ErrorCode::badRequest, "seconds are 0 to 86400", "seconds" } ) );
      return resultOf(
         commands_.simulated( what ),
         [&] {
            return json{ { "time", rfc3339( commands_.wallTime( commands_.now() ) ) } };
         },
         200 );
   }
   answer( refusal( notFound( "there is nothing here", request.path ) ) );
} catch ( const Api::Error & error ) {
   answer( refusal( error ) );
}

} // namespace Agent
