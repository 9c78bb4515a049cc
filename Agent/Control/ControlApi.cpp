#include "Agent/Control/ControlApi.h"

#include "Agent/Control/Body.h"
#include "Agent/Control/Exposition.h"
#include "Agent/Control/Page.h"
#include "Api/Names.h"
#include "Platform/Vel/Trace.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <set>

namespace Agent {

using Api::ErrorCode;
using nlohmann::json;
namespace Key = Api::Key;

namespace {

/// Seconds that may be asked for at once: a day.
constexpr double maxSeconds = 86400;

std::vector< std::string > split( std::string_view path ) {
   std::vector< std::string > result;
   for ( std::size_t begin = 0; begin < path.size(); ) {
      const std::size_t end = std::min( path.find( '/', begin ), path.size() );
      if ( end > begin )
         result.emplace_back( path.substr( begin, end - begin ) );
      begin = end + 1;
   }
   return result;
}

bool matches( const char * pattern, const std::vector< std::string > & path ) {
   const auto wanted = split( pattern );
   return std::equal(
      wanted.begin(), wanted.end(), path.begin(), path.end(),
      []( const std::string & a, const std::string & b ) { return a == "*" || a == b; } );
}

std::string text( const json & value ) {
   return value.dump( -1, ' ', false, json::error_handler_t::replace ) + "\n";
}

json refusalJson( const Api::Error & error, Vel::U32 operation = 0 ) {
   json result = {
      { "code", stringValue( error.code ) },
      { "message", error.message },
      { "where", error.where.empty() ? json( nullptr ) : json( error.where ) } };
   if ( operation )
      result["operation"] = operation;
   return { { "error", result } };
}

void checkParameters( const HttpRequest & request, std::string_view known ) {
   const std::string names = " " + std::string( known ) + " ";
   for ( const auto & [name, value] : request.query ) {
      if ( known == "*" || names.find( " " + name + "+ " ) != std::string::npos )
         continue;
      if (
         name.find_first_of( " +*" ) != std::string::npos ||
         names.find( " " + name + " " ) == std::string::npos )
         throw Api::Error{ ErrorCode::badRequest, "there is no parameter \"" + name + "\"", name };
      if ( request.query.count( name ) > 1 )
         throw Api::Error{ ErrorCode::badRequest, "\"" + name + "\" is given more than once", name };
   }
}

} // namespace

const ControlApi::Route ControlApi::routes[] = {
   { "GET", "units", &ControlApi::getUnits },
   { "GET", "units/*", &ControlApi::getUnit },
   { "GET", "units/*/explain", &ControlApi::getExplanation },
   { "GET", "units/*/plan", &ControlApi::getPlan, "session" },
   { "GET", "interfaces", &ControlApi::getInterfaces, "unit fields" },
   { "GET", "interfaces/*", &ControlApi::getInterface },
   { "GET", "samples", &ControlApi::getSamples, "interface+ unit last until" },
   { "GET", "history", &ControlApi::getHistory, "unit limit" },
   { "GET", "history/*", &ControlApi::getHistoryRecord },
   { "GET", "operations", &ControlApi::getOperations, "unit state limit" },
   { "GET", "operations/*", &ControlApi::getOperation },
   { "GET", "profiles", &ControlApi::getProfiles },
   { "GET", "groups", &ControlApi::getGroups },
   { "GET", "counters", &ControlApi::getCounters },
   { "GET", "agent", &ControlApi::getAgent },
   { "GET", "healthz", &ControlApi::getHealth, "*" },
   { "GET", "metrics", &ControlApi::getMetrics, "*" },
   { "GET", "events", &ControlApi::getEvents, "after rates" },
   { "GET", "events/recent", &ControlApi::getRecentEvents, "after limit" },
   { "GET", "trace", &ControlApi::getTrace },
   { "GET", "dump", &ControlApi::getDump },
   { "POST", "units/*/enter", &ControlApi::postEnter },
   { "POST", "units/*/exit", &ControlApi::postExit },
   { "POST", "interfaces/*/release", &ControlApi::postRelease },
   { "POST", "trace", &ControlApi::postTrace },
   { "POST", "reload", &ControlApi::postReload },
   { "POST", "simulated/traffic", &ControlApi::postSimulated },
   { "POST", "simulated/link", &ControlApi::postSimulated },
   { "POST", "simulated/advance", &ControlApi::postSimulated },
};

ControlApi::ControlApi( ControlModel model, ControlCommands commands )
   : model_( std::move( model ) ),
     commands_( std::move( commands ) ),
     answers_( model_, commands_ ),
     metrics_( model_, commands_ ),
     samples_( model_, commands_ ),
     events_( model_, commands_ ) {}

HttpReply ControlApi::refusal( const Api::Error & error ) {
   return { httpStatus( error.code ), text( refusalJson( error ) ) };
}

HttpReply ControlApi::refusalFor( const Api::Error & error, Vel::U32 operation ) {
   return { httpStatus( error.code ), text( refusalJson( error, operation ) ) };
}

void ControlApi::handle( const HttpRequest & request, HttpServer::Answer answer ) try {
   Path path = split( request.path );
   // Whoever watches many programs looks for their health and their figures at the top.
   if ( path.size() >= 2 && path[0] == "api" && path[1] == "v1" )
      path.erase( path.begin(), path.begin() + 2 );
   else if ( path != Path{ "healthz" } && path != Path{ "metrics" } )
      path.clear();
   const PageFile * const file = pageFile( request.path );
   if ( file && ( request.method == "GET" || request.method == "HEAD" ) )
      return answer( pageReply( *file, request ) );
   bool found = file;
   std::string allowed = file ? "GET, HEAD" : "";
   for ( const Route & route : routes ) {
      if ( !matches( route.pattern, path ) )
         continue;
      found = true;
      const bool reads = std::string_view( route.method ) == "GET";
      if ( !reads && !request.local )
         continue;
      if ( request.method == route.method || ( reads && request.method == "HEAD" ) ) {
         checkParameters( request, route.parameters );
         return ( this->*route.handler )( { request, path, answer } );
      }
      allowed += ( allowed.empty() ? "" : ", " ) + std::string( reads ? "GET, HEAD" : route.method );
   }
   if ( !found )
      throw Api::Error{ ErrorCode::notFound, "there is nothing here", request.path };
   HttpReply reply = refusal(
      { ErrorCode::notAllowed,
        request.local ? "this cannot be done with " + request.method
                      : "nothing can be changed over this address",
        request.path } );
   reply.allow = allowed;
   answer( std::move( reply ) );
} catch ( const Api::Error & error ) {
   answer( refusal( error ) );
}

// ---- what is shown

void ControlApi::getUnits( const Call & call ) { call.answer( { 200, answers_.units() } ); }

void ControlApi::getUnit( const Call & call ) { call.answer( { 200, answers_.unit( call.path[1] ) } ); }

void ControlApi::getExplanation( const Call & call ) {
   call.answer( { 200, answers_.explanation( call.path[1] ) } );
}

void ControlApi::getInterfaces( const Call & call ) {
   const auto & query = call.request.query;
   const auto unit = query.find( "unit" ), list = query.find( "fields" );
   const InterfaceFields fields = list == query.end() ? InterfaceFields() : InterfaceFields( list->second );
   call.answer(
      { 200, unit == query.end() ? answers_.interfaces( fields )
                                 : answers_.interfacesOf( unit->second, fields ) } );
}

void ControlApi::getInterface( const Call & call ) {
   call.answer( { 200, answers_.interface( call.path[1] ) } );
}

void ControlApi::getSamples( const Call & call ) {
   samples_.ask( call.request.query, call.request.local, call.answer );
}

void ControlApi::getProfiles( const Call & call ) { call.answer( { 200, answers_.profiles() } ); }

void ControlApi::getGroups( const Call & call ) { call.answer( { 200, answers_.groups() } ); }

void ControlApi::getCounters( const Call & call ) { call.answer( { 200, answers_.counters() } ); }

void ControlApi::getAgent( const Call & call ) { call.answer( { 200, answers_.agent() } ); }

void ControlApi::getHealth( const Call & call ) {
   call.answer( { commands_.agent().problems.empty() ? 200 : 503, answers_.health() } );
}

void ControlApi::getMetrics( const Call & call ) {
   call.answer(
      { 200, metrics_.text( { events_.last(), events_.readers(), events_.dropped() } ),
        Exposition::contentType } );
}

void ControlApi::getTrace( const Call & call ) { call.answer( { 200, Answers::traceLevels() } ); }

void ControlApi::getDump( const Call & call ) {
   call.answer( { 200, commands_.dump(), "text/plain; charset=utf-8" } );
}

// ---- what is asked for

void ControlApi::answerWhenCommitted( const Call & call, int status, std::string body ) {
   commands_.whenCommitted(
      [answer = call.answer, reply = HttpReply{ status, std::move( body ) }] { answer( reply ); } );
}

void ControlApi::postTrace( const Call & call ) {
   Body body( call.request.body );
   const std::string name = body.text( Key::name );
   const double level = body.number( Key::level, -1, 9 );
   body.end();
   if ( level != std::floor( level ) )
      throw Body::bad( Key::level, "is not a whole number" );
   const auto all = Vel::TraceFacility::all();
   if ( name != "*" && std::none_of( all.begin(), all.end(), [&]( const Vel::TraceFacility * facility ) {
           return name == facility->name();
        } ) )
      throw Api::Error{ ErrorCode::notFound, "there is no trace facility " + name, name };
   Vel::TraceFacility::levelIs( name, static_cast< int >( level ) );
   getTrace( call );
}

void ControlApi::postSimulated( const Call & call ) {
   constexpr double maxRate = 1e15;
   Body body( call.request.body );
   ControlCommands::Simulated what;
   what.what = call.path[1];
   if ( what.what == "traffic" ) {
      what.interface = body.text( Key::interface );
      what.inBps = body.number( Key::inBps, 0, maxRate );
      what.outBps = body.number( Key::outBps, 0, maxRate );
      what.seconds = body.number( Key::rampSeconds, 0, maxSeconds, 0 );
   } else if ( what.what == "link" ) {
      what.interface = body.text( Key::interface );
      what.up = body.flag( Key::up );
   } else
      what.seconds = body.number( Key::seconds, 0, maxSeconds );
   body.end();
   const auto refused = commands_.simulated( what, [this, answer = call.answer] {
      answer( { 200, answers_.simulatedTime( commands_.now() ) } );
   } );
   if ( refused )
      throw *refused;
}

} // namespace Agent
