#pragma once

#include "Agent/Control/Answers.h"
#include "Agent/Control/EventStreams.h"
#include "Agent/Control/HttpServer.h"
#include "Agent/Control/Metrics.h"
#include "Agent/Control/SampleAnswers.h"

/// Purpose: the control API: what is asked over HTTP, answered from the model or handed to the agent.
/// Owner: the agent.
///
/// Answers to what changes something are given when the turn that decided it is committed. Over the web address
/// nothing can be changed. A body is a JSON object; a member that a request does not know is refused, since it may be
/// a misspelt one that matters.
namespace Agent {

class ControlApi {
 public:
   ControlApi( ControlModel model, ControlCommands commands );

   void handle( const HttpRequest & request, HttpServer::Answer answer );
   /// What the API says of the interfaces of a unit. Throws Api::Error if there is no such unit.
   std::string interfacesOf( const std::string & unit ) const { return answers_.interfacesOf( unit ); }
   EventStreams & eventStreams() { return events_; }
   /// The reply that says why something is refused.
   static HttpReply refusal( const Api::Error & error );

 private:
   using Path = std::vector< std::string >; ///< what is behind the root, by segment
   /// A request that a route has been found for.
   struct Call {
      const HttpRequest & request;
      const Path & path;
      const HttpServer::Answer & answer;
   };
   /// What is done for one method and one pattern of paths, in which "*" is a name.
   struct Route {
      const char * method;
      const char * pattern;
      void ( ControlApi::*handler )( const Call & call );
      /// Names of the query's parameters, each once, with a "+" as often as one likes; "*" is any. Others are refused: a
      /// name that means nothing may be a misspelt one.
      const char * parameters = "";
   };
   static const Route routes[];

   void getUnits( const Call & call );
   void getUnit( const Call & call );
   void getExplanation( const Call & call );
   void getPlan( const Call & call );
   void getInterfaces( const Call & call );
   void getInterface( const Call & call );
   void getSamples( const Call & call );
   void getHistory( const Call & call );
   void getHistoryRecord( const Call & call );
   void getProfiles( const Call & call );
   void getGroups( const Call & call );
   void getCounters( const Call & call );
   void getAgent( const Call & call );
   void getHealth( const Call & call );
   void getMetrics( const Call & call );
   void getEvents( const Call & call );
   void getRecentEvents( const Call & call );
   void getTrace( const Call & call );
   void getDump( const Call & call );
   void getOperations( const Call & call );
   void getOperation( const Call & call );
   void postEnter( const Call & call );
   void postExit( const Call & call );
   void postRelease( const Call & call );
   void postTrace( const Call & call );
   void postReload( const Call & call );
   void postSimulated( const Call & call );
   /// Enters a unit, unless the plan of it says that this takes force.
   void enterJudged( const Call & call, ControlCommands::Request request );
   /// `operation`: that stands in the way; 0: none does.
   static HttpReply refusalFor( const Api::Error & error, Vel::U32 operation );
   /// Answers, when the turn is committed, what has become of a request for an operation.
   void answerTaken(
      const std::string & unit, const HttpServer::Answer & answer, const ControlCommands::Taken & taken );
   /// Answers when the turn is committed.
   void answerWhenCommitted( const Call & call, int status, std::string body );

   ControlModel model_;
   ControlCommands commands_;
   std::map< std::string, unsigned > exitsAsked_; ///< how often, by unit
   Answers answers_;
   Metrics metrics_;
   SampleAnswers samples_;
   EventStreams events_;
};

} // namespace Agent
