#pragma once

#include "Agent/Commands/Children.h"

#include <functional>
#include <list>
#include <string>
#include <vector>

/// Purpose: children of tests: nothing runs, and what each does is said by the test. Outlives the agent, as processes do.
namespace Agent {

class FakeChildren final : public Children {
 public:
   enum class Phase { held, going, ended };
   struct Child {
      Id id = 0;
      Program program;
      Listener * listener = nullptr; ///< null: its agent is gone
      ProcessId process;
      Phase phase = Phase::held;
      unsigned kept = 0; ///< line feeds on its descriptor 3
      bool terminated = false, killed = false;
   };

   /// Every one that was ever made, in order.
   std::list< Child > & all() { return all_; }
   /// The one that was made last; throws if there is none.
   Child & last();
   /// Those whose command has begun and not ended.
   unsigned running() const;
   /// "begins steer enter", "is safe", "is asked to end", "is ended by force", "remnants": what has been done to
   /// children since it was asked last.
   std::vector< std::string > taken();

   /// What a child does. Told at once: call these in a turn, or between turns.
   void says( Child & child, const std::string & text, Stream stream = Stream::output ) const;
   void ends( Child & child, int status, int signal = 0 ) const;

   /// Why no child can be made; empty: it can. Scarce: it may be possible later.
   void problemIs( const std::string & problem, bool scarce = false ) {
      problem_ = problem;
      scarce_ = scarce;
   }
   /// How often an agent finds something left of a child that its predecessor has started.
   void remnantsAre( unsigned looks ) { remnants_ = looks; }
   /// Called when the command of a child begins, is told that its record is safe, or is asked or forced to end.
   std::function< void( Child & ) > onGo, onKept, onTerminate, onKill;

   Held hold( Id id, const Program & program, Listener & listener ) override;
   void go( Id id ) override;
   void kept( Id id ) override;
   void terminate( Id id ) override;
   void kill( Id id ) override;
   void forget( Listener & listener ) override;
   bool remnantsEnd( const ProcessId & process, const std::string & mark ) override;

 private:
   Child * of( Id id );
   void note( const std::string & what, const std::function< void( Child & ) > & then, Child & child );

   std::list< Child > all_;
   std::vector< std::string > notes_;
   std::string problem_;
   bool scarce_ = false;
   unsigned remnants_ = 0;
   Vel::U32 lastPid_ = 100;
};

} // namespace Agent
