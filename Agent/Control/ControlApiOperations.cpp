#include "Agent/Control/Body.h"
#include "Agent/Control/ControlApi.h"
#include "Agent/Control/EnterTimes.h"
#include "Agent/Control/Query.h"
#include "Api/Names.h"
#include "Api/Utf8.h"

#include <nlohmann/json.hpp>

#include <limits>

/// Operations: what is asked for of units, of links that are held and of the configuration, and what has become of it.
namespace Agent {

using Api::ErrorCode;
using nlohmann::json;
namespace Key = Api::Key;

namespace {

std::string textOf( const json & value ) {
   // What is in a configuration comes from outside; what is not UTF-8 is shown, not refused.
   return value.dump( -1, ' ', false, json::error_handler_t::replace ) + "\n";
}

/// Pairs that a request may bring, and bytes that each of their values may have.
constexpr std::size_t mostPairs = 16, longestValue = 256;

/// What whoever asks for an operation says of it, whatever it is.
ControlCommands::Request requestOf( const HttpRequest & request, Body & body ) {
   // It is kept with the unit, its record, its operation and each event of it.
   const std::string reason( Api::beginning( body.text( Key::reason, "" ), Operation::longestReason ) );
   ControlCommands::Request result{ reason, request.by, std::nullopt };
   const auto pairs = body.pairs( Key::with, mostPairs, longestValue );
   result.with = pairLines( Pairs( pairs.begin(), pairs.end() ) );
   result.key = body.key( Key::requestKey );
   // Where he comes from is no part of what he asks for.
   result.fingerprint = body.fingerprint( { Key::requestKey, Key::session } );
   return result;
}

/// What is added to an answer of what is done at once.
void add( json & reply, const ControlCommands::Taken & taken ) {
   reply["operation"] = taken.operation ? json( taken.operation ) : json( nullptr );
   reply["changed"] = taken.changed;
   reply["repeated"] = taken.repeated;
}

OperationState stateOf( const std::string & text ) {
   for ( const OperationState state :
         { OperationState::running, OperationState::done, OperationState::failed,
           OperationState::cancelled } )
      if ( stringValue( state ) == text )
         return state;
   throw Api::Error{
      ErrorCode::badRequest, "\"state\" is none of running, done, failed and cancelled", "state" };
}

} // namespace

void ControlApi::postEnter( const Call & call ) {
   Body body( call.request.body );
   ControlCommands::Request request = requestOf( call.request, body );
   request.timeout = body.duration( Key::timeout );
   request.force = body.flag( Key::force, false );
   request.session = body.text( Key::session, "" );
   request.times = enterTimes( body );
   body.end();
   enterJudged( call, std::move( request ) );
}

void ControlApi::postExit( const Call & call ) {
   Body body( call.request.body );
   ControlCommands::Request request = requestOf( call.request, body );
   request.timeout = body.duration( Key::timeout );
   body.end();
   const std::string & unit = call.path[1];
   if ( model_.unitStatusDir->status( unit ) )
      ++exitsAsked_[unit];
   answerTaken( unit, call.answer, commands_.exit( unit, request ) );
}

void ControlApi::answerTaken(
   const std::string & unit, const HttpServer::Answer & answer, const ControlCommands::Taken & taken ) {
   if ( taken.refused )
      return answer( refusalFor( *taken.refused, taken.operation ) );
   // What a key was used for may have been about a unit that is not configured any more.
   if ( !model_.unitStatusDir->status( unit ) )
      return answer( refusal( { ErrorCode::notFound, "there is no unit " + unit, unit } ) );
   commands_.whenCommitted(
      [answer, reply = HttpReply{ 202, answers_.accepted( unit, taken ) }] { answer( reply ); } );
}

void ControlApi::postRelease( const Call & call ) {
   Body body( call.request.body );
   const ControlCommands::Request request = requestOf( call.request, body );
   const bool force = body.flag( Key::force, false );
   body.end();
   const std::string & name = call.path[1];
   if ( !force )
      throw Api::Error{ ErrorCode::needsForce, "releasing a link raises it whatever the stages say", name };
   const ControlCommands::Taken taken = commands_.release( name, request );
   if ( taken.refused )
      return call.answer( refusalFor( *taken.refused, taken.operation ) );
   json reply = { { "interface", name } };
   add( reply, taken );
   answerWhenCommitted( call, 202, textOf( reply ) );
}

void ControlApi::postReload( const Call & call ) {
   Body body( call.request.body );
   const ControlCommands::Request request = requestOf( call.request, body );
   body.end();
   const ControlCommands::Reloaded reloaded = commands_.reload( request );
   if ( !reloaded.error ) {
      json reply = { { "changes", reloaded.changes } };
      add( reply, reloaded.taken );
      return answerWhenCommitted( call, 200, textOf( reply ) );
   }
   json reply = json::parse( refusalFor( *reloaded.error, reloaded.taken.operation ).body );
   reply["errors"] = json::array();
   for ( const auto & e : reloaded.errors )
      reply["errors"].push_back(
         { { "file", e.file }, { "line", e.line }, { "column", e.column }, { "message", e.message } } );
   call.answer( { httpStatus( reloaded.error->code ), textOf( reply ) } );
}

// ---- what has become of it

void ControlApi::getOperations( const Call & call ) {
   constexpr unsigned mostListed = 1000, listed = 100;
   Answers::OperationsAsked asked{ "", std::nullopt, listed };
   for ( const auto & [name, value] : call.request.query ) {
      if ( value.empty() )
         throw Api::Error{ ErrorCode::badRequest, "\"" + name + "\" is empty", name };
      if ( name == "unit" )
         asked.unit = value;
      else if ( name == "state" )
         asked.state = stateOf( value );
      else if ( const auto number = positiveNumber( value, mostListed ) )
         asked.limit = *number;
      else
         throw Api::Error{
            ErrorCode::badRequest, "\"limit\" is no number from 1 to " + std::to_string( mostListed ), name };
   }
   call.answer( { 200, answers_.operations( asked ) } );
}

void ControlApi::getOperation( const Call & call ) {
   const std::string & name = call.path[1];
   const auto id = positiveNumber( name, std::numeric_limits< Vel::U32 >::max() );
   if ( !id )
      throw Api::Error{ ErrorCode::badRequest, "an operation has a number, not \"" + name + "\"", name };
   call.answer( { 200, answers_.operation( *id ) } );
}

} // namespace Agent
