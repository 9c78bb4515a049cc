#pragma once

#include "Agent/Events/Events.h"
#include "Agent/History/Archive.h"
#include "Agent/History/Recorder.h"
#include "Agent/History/TimesRecorder.h"
#include "Agent/Hooks/HookRunner.h"
#include "Agent/Insight/Insight.h"
#include "Agent/Samples/Samples.h"
#include "Apps/MaintdEntities.h"

namespace Apps {

/// What watches the agent's work and shows it. It decides nothing, and nothing that decides depends on it: without it
/// units drain and links are shut all the same. Made when the rest of the agent is there, before counters are read;
/// the agent outlives it.
struct Maintd::Views {
   explicit Views( Maintd & agent );
   /// Called in each turn before it is committed, when all that decides has been done.
   void turnEnds() {
      insight.turnEnds();
      events.turnEnds(); // it tells what the others have found
      hooks.turnEnds();  // last: it calls for what is told
   }
   /// The agent ends: what has yet to be written down is.
   void stopped() {
      recorder.stopped();
      events.stopped();
   }
   /// What is wrong with what is shown.
   void addProblems( std::vector< Agent::Problem > & problems ) const;
   /// What the control API asks of it.
   void addAnswers( Agent::ControlCommands & commands ) const;
   void reloaded( const Agent::ControlCommands::Reloaded & result );

   Agent::Insight insight;
   Agent::Samples samples;
   Agent::Archive archive;
   Agent::Recorder recorder;
   Agent::TimesRecorder timesRecorder;
   Agent::Events events;
   Agent::HookRunner hooks;

 private:
   static Agent::Recorder::Model recorderModel( const Entities & entities );
   static Agent::HookRunner::Outside hooksOutside( Maintd & agent, Views & views );
   static Agent::Events::Model eventsModel( const Entities & entities );
};

} // namespace Apps
