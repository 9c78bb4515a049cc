#pragma once

#include "Agent/Control/HttpServer.h"
#include "Agent/Model/UnitRun.h"
#include "Platform/Model/Errdisable.h"
#include "Platform/Model/Interface.h"
#include "Platform/Model/IntfGroup.h"
#include "Platform/Model/IntfMaintenance.h"
#include "Platform/Model/IntfMaintenanceProfile.h"
#include "Platform/Model/Maintenance.h"
#include "Platform/Model/MaintenanceGroup.h"
#include "Platform/Model/MaintenanceProfile.h"
#include "Platform/Model/MaintenanceUnit.h"

#include <vector>

/// Purpose: the control API: what is asked over HTTP, answered from the model or handed to the agent.
/// Owner: the agent.
///
/// Answers to what changes something are given when the turn that decided it is committed.
namespace Agent {

/// Everything that is shown. All given.
struct ControlModel {
   Vel::Ptr< const Maintenance::Unit::StatusDir > unitStatusDir;
   Vel::Ptr< const UnitRunDir > unitRunDir;
   Vel::Ptr< const Maintenance::MonIntfStatusDir > monIntfStatusDir;
   Vel::Ptr< const Interface::AllIntfStatusDir > allIntfStatusDir;
   Vel::Ptr< const IntfMaintenanceProfile::StatusDir > intfProfileStatusDir;
   Vel::Ptr< const Maintenance::Profile::DefaultProfile > defaultIntfProfile;
   Vel::Ptr< const IntfMaintenance::IntfToGroupDir > intfToGroupDir;
   Vel::Ptr< const IntfGroup::StatusDir > intfGroupStatusDir;
   Vel::Ptr< const Maintenance::GroupToUnitDir > groupToUnitDir;
   Vel::Ptr< const Errdisable::CauseStatus > cause;
};

/// One thing that is wrong with the agent.
struct Problem {
   std::string what; ///< a word: "store", "counters", "configuration", "plug-in", "switch"
   double since;     ///< seconds of the agent's clock
   std::string text;
};

/// What the agent is asked to do, and what only it knows. All given.
struct ControlCommands {
   using Result = std::optional< Api::Error >;
   struct Progress {
      std::string stage; ///< that is running; empty: none
      Vel::U32 total = 0;
      Vel::U32 drained = 0;
      std::optional< double > settlingSince;
      double settleTime = 0;
   };
   struct AgentFacts {
      std::string version, switchKind, configurationFile, fastLog, pluginName, pluginProblem;
      std::vector< std::string > configurationErrors;
      double started = 0;
      std::vector< Problem > problems;
   };
   struct ConfigError {
      std::string file;
      unsigned line = 0, column = 0;
      std::string message;
   };
   struct Reloaded {
      std::vector< std::string > changes;
      std::optional< Api::Error > error;
      std::vector< ConfigError > errors;
   };
   struct Simulated {
      std::string what; ///< "traffic", "link", "advance"
      std::string interface;
      double inBps = 0, outBps = 0, seconds = 0;
      bool up = false;
   };

   std::function< Result( const std::string &unit, const std::string &reason, const std::string &by ) > enter,
      exit;
   std::function< Progress( const std::string & unit ) > progress;
   std::function< Result( const std::string & interface ) > release;
   std::function< Reloaded() > reload;
   std::function< Result( const Simulated & ) > simulated;
   std::function< AgentFacts() > agent;
   std::function< std::string() > dump;
   /// The plug-in's debug counters, null while there is none.
   std::function< const Vel::Entity *() > counters;
   /// The kernel's own state of a link: "up", "down" or "unknown".
   std::function< std::string( const Wire::IntfId & ) > linkState;
   /// Calls back when the present turn is committed.
   std::function< void( std::function< void() > ) > whenCommitted;
   /// Wall time, for display, of a time of the agent's clock; seconds since 1970.
   std::function< double( double ) > wallTime;
   std::function< double() > now;
};

class ControlApi {
 public:
   ControlApi( ControlModel model, ControlCommands commands )
      : model_( std::move( model ) ), commands_( std::move( commands ) ) {}

   void handle( const HttpRequest & request, HttpServer::Answer answer );
   static HttpReply refusal( const Api::Error & error );

 private:
   struct Json;
   HttpReply get( const HttpRequest & request, const std::vector< std::string > & path );
   HttpReply getOne( const std::vector< std::string > & path );
   void post(
      const HttpRequest & request, const std::vector< std::string > & path,
      const HttpServer::Answer & answer );

   ControlModel model_;
   ControlCommands commands_;
};

} // namespace Agent
