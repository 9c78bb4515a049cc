#include "Agent/Control/ControlApi.h"

#include <nlohmann/json.hpp>

/// What would come of taking a unit out of service: asked for by itself, and looked at again before it is done.
namespace Agent {

using Api::ErrorCode;
using Maintenance::Unit::UnitState;
using nlohmann::json;

void ControlApi::getPlan( const Call & call ) {
   const std::string & unit = call.path[1];
   if ( !model_.unitStatusDir->status( unit ) )
      throw Api::Error{ ErrorCode::notFound, "there is no unit " + unit, unit };
   std::string session;
   for ( const auto & [name, value] : call.request.query ) {
      session = value;
      if ( session.empty() )
         throw Api::Error{ ErrorCode::badRequest, "\"session\" is empty", name };
   }
   const auto refused = commands_.plan(
      unit, session, call.request.local ? PlanPurpose::look : PlanPurpose::lookOverWeb,
      [answer = call.answer]( const auto & planned ) {
         answer( { 200, planned.plan } );
      } );
   if ( refused )
      throw *refused;
}

namespace {

/// With the findings, so that nobody has to ask for them.
std::string refusalText( const ControlCommands::Planned & planned, const std::string & unit ) {
   const json findings = json::parse( planned.findings );
   std::string message;
   for ( const json & finding : findings )
      if ( finding.at( "severity" ) == "blocking" )
         message += ( message.empty() ? "" : "; " ) + finding.at( "text" ).get< std::string >();
   const json reply = {
      { "error",
        { { "code", stringValue( ErrorCode::needsForce ) },
          { "message", message },
          { "where", unit },
          { "findings", findings } } } };
   return reply.dump( -1, ' ', false, json::error_handler_t::replace ) + "\n";
}

} // namespace

void ControlApi::enterJudged( const Call & call, ControlCommands::Request request ) {
   const std::string & unit = call.path[1];
   if ( request.force && request.reason.empty() )
      throw Api::Error{ ErrorCode::badRequest, "\"force\" needs a \"reason\"", "reason" };
   if ( const auto before = commands_.enterRepeated( unit, request ) )
      return answerTaken( unit, call.answer, *before );
   const auto enter = [this, unit, answer = call.answer]( const ControlCommands::Request & asked ) {
      answerTaken( unit, answer, commands_.enter( unit, asked ) );
   };
   // Where nothing would begin there is nothing to be judged.
   const auto begins = [this, unit] {
      const auto * status = model_.unitStatusDir->status( unit );
      return status && status->state() == UnitState::normal;
   };
   if ( !begins() )
      return enter( request );
   const auto refused = commands_.plan(
      unit, request.session, PlanPurpose::begin,
      [=, this, exits = exitsAsked_[unit],
       answer = call.answer]( const ControlCommands::Planned & planned ) mutable {
         if ( exits != exitsAsked_[unit] && begins() )
            return answer( refusal(
               { ErrorCode::conflict, "an exit was asked for meanwhile; nothing has begun", unit } ) );
         if ( planned.late && begins() )
            return answer( refusal(
               { ErrorCode::unavailable,
                 "the plan took so long that whoever asked may have given up; nothing has begun", unit } ) );
         // Somebody else may have been quicker.
         const bool blocks = planned.blocked && begins();
         if ( blocks && !request.force )
            return answer( { httpStatus( ErrorCode::needsForce ), refusalText( planned, unit ) } );
         request.overridden = blocks ? planned.overridden : "";
         enter( request );
      } );
   if ( refused )
      throw *refused;
}

} // namespace Agent
