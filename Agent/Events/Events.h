#pragma once

#include "Agent/Events/HookEvents.h"
#include "Agent/Events/InterfaceEvents.h"
#include "Agent/Events/TimesEvents.h"
#include "Agent/Events/UnitEvents.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// Purpose: writes down what happens (EventLog), for whoever looks later or watches from afar. Decides nothing.
/// Owner: the agent, which calls turnEnds() in each turn, before it commits: an event is committed together with what it
/// tells.
///
/// Works by comparing what is with what was told last, which is kept beside the log. So nothing is told twice or left
/// out over a restart, and what has changed while no agent ran is told by the next one. What an agent finds when there
/// is no log yet is taken for told.
namespace Agent {

class Events {
 public:
   struct Model {
      Vel::Ptr< const Maintenance::Unit::StatusDir > unitStatusDir;
      Vel::Ptr< const UnitRunDir > unitRunDir;
      Vel::Ptr< const UnitCommandsDir > unitCommandsDir;
      Vel::Ptr< const UnitTimesDir > unitTimesDir;
      Vel::Ptr< const Interface::AllIntfStatusDir > allIntfStatusDir;
      Vel::Ptr< const IntfMaintenance::IntfToGroupDir > intfToGroupDir;
      Vel::Ptr< const Maintenance::GroupToUnitDir > groupToUnitDir;
      Vel::Ptr< const Maintenance::Profile::DefaultProfile > defaultIntfProfile;
      Vel::Ptr< const IntfMaintenanceProfile::StatusDir > intfProfileStatusDir;
      Vel::Ptr< const Maintenance::MonIntfStatusDir > monIntfStatusDir;
      Vel::Ptr< const InsightDir > insightDir;
      Vel::Ptr< const Errdisable::CauseStatus > cause;
      Vel::Ptr< EventLog > log;
      Vel::Ptr< EventsTold > told;
   };
   /// What no entity holds.
   struct Hooks {
      std::function< double() > now;                                  ///< seconds of the agent's clock
      std::function< double() > wallTime;                             ///< seconds since 1970, for display
      std::function< std::string( const std::string & unit ) > stage; ///< that is running; empty: none
      std::function< bool( const std::string & unit ) > settling;
      /// What others have done to a link: "raised", "lowered"; empty: nothing.
      std::function< std::string( const Wire::IntfId & ) > drift;
      /// Whether an interface that is shut was shut before it had drained.
      std::function< bool( const Wire::IntfId & ) > forced;
      /// What is wrong with the agent: a word and a sentence for each. Asked once a second at most.
      std::function< std::vector< std::pair< std::string, std::string > >() > problems;
      /// Takes a line for the agent's log: a problem has begun, or is another one; or it is over.
      std::function< void( bool begins, const std::string & line ) > problemNoted;
      /// Takes a line for the agent's log, with the words of who asked as they are: what is done to units and links, and
      /// a configuration that is taken. Who reads the log of the machine finds there who has taken what out of service.
      std::function< void( bool wrong, const std::string & line ) > deedNoted;
   };

   /// Seconds after its start in which an agent finds what is wrong: until then no problem that was told is over.
   static constexpr double problemsFound = 10;

   /// All given.
   Events( Vel::Ptr< Cog::TimerWheel > wheel, Model model, Hooks hooks );
   Events( const Events & ) = delete;
   Events & operator=( const Events & ) = delete;

   /// The agent has read its configuration and taken in its links. Nothing is told before.
   void started( const std::string & version );
   /// The agent is about to end in an orderly way. Nothing is told after it.
   void stopped();
   void configurationTaken( const std::vector< std::string > & changes );
   void configurationRefused( const std::string & why );
   /// What others do to links has changed. May be told very often: it is looked at once a turn.
   void driftChanged() { interfaces_.driftChanged(); }
   /// How hooks fare; told when the turn ends.
   HookEvents & hookEvents() { return hookEvents_; }
   /// The way back of a unit goes on although these links are not back.
   void linksLate( const std::string & unit, const std::set< std::string > & links );
   void turnEnds();

 private:
   void lookAtProfiles();
   void lookAtProblems();
   void noteProblem( const std::string & what, const std::string & text );
   void tell( const char * what, const std::string & text );

   Model model_;
   Hooks hooks_;
   EventWriter writer_;
   UnitEvents units_;
   TimesEvents times_;
   InterfaceEvents interfaces_;
   HookEvents hookEvents_;
   bool running_ = false;
   bool configurationChanged_ = true;
   double startTime_ = 0;
   double problemsTime_ = 0; ///< when it was asked for problems last
   std::map< std::string, Damper > problemDampers_;
   std::map< std::string, std::string > problemsNoted_; ///< by this agent
};

} // namespace Agent
