#pragma once

#include "Agent/Control/ControlApi.h"
#include "Agent/Control/ModelTest.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// Purpose: the control API over the small model, with an agent that notes what it is asked and answers as told.
namespace Agent {

/// What the plug-in would count.
class Counted final : public Vel::Entity {
   VEL_ENTITY( Counted );
   VEL_COUNTER( numFooBar, onNumFooBar );
   VEL_COUNTER( numOther, onNumOther );
   VEL_ATTR( Vel::String, text, onText );
};

class ControlApiRig : public testing::Test {
 protected:
   ControlApiRig();

   /// Asks, commits and, if no answer has come, lets turns go by until one has. The status.
   int ask( const std::string & method, const std::string & path, const std::string & body = "" );
   int post( const std::string & path, const std::string & body = "{}" ) {
      return ask( "POST", "/api/v1/" + path, body );
   }
   /// The answer to a GET, which has to be one.
   const std::string & got( const std::string & path ) {
      EXPECT_EQ( 200, ask( "GET", "/api/v1/" + path ) ) << reply.body;
      return reply.body;
   }
   /// The code, and what it is about, of a refusal.
   std::string refused() const;
   /// The turn ends.
   void commit();

   ModelRig rig;
   ControlCommands commands;
   std::unique_ptr< ControlApi > api;
   bool local = true;
   HttpReply reply;
   bool answeredAtOnce = false;
   std::vector< std::function< void() > > waiting;         ///< for the end of the turn
   std::vector< std::function< void() > > waitingForStore; ///< for a commit that succeeds
   std::vector< std::function< void() > > later;           ///< for the next turn
   bool storeWorks = true;
   unsigned turns = 0;               ///< that have gone by for the last answer
   std::vector< std::string > asked; ///< of the agent
   ControlCommands::Planned planned{ "{}\n", "[]\n", false, "" };
   ControlCommands::Result planRefusal;
   std::function< void() > whilePlanning; ///< happens before a plan is told; nothing unless set
   ControlCommands::Result refusal;
   ControlCommands::Taken taken{ {}, 5, true };      ///< of what is not refused
   std::optional< ControlCommands::Taken > repeated; ///< of what comes with a request key
   std::vector< ControlCommands::Request > requests; ///< for operations of units that the agent was given
   ControlCommands::Progress progress;
   ControlCommands::Reloaded reloaded;
   ControlCommands::AgentFacts facts;
   Vel::Ptr< Counted > counted;
   std::string shutProblem;   ///< why et1 could not be shut
   std::string uncountedVlan; ///< why nobody can say what vlan10 carries
   double now = rig.now;
};

} // namespace Agent
