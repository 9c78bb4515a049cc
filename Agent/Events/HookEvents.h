#pragma once

#include "Agent/Events/Damper.h"
#include "Agent/Events/EventWriter.h"
#include "Agent/Model/HookRecord.h"

#include <map>
#include <optional>
#include <string>

/// Purpose: tells what goes wrong with hooks. A hook that fails again and again must not fill the log: what follows the
/// first failure is counted and told together.
/// Owner: Events.
namespace Agent {

class HookEvents {
 public:
   explicit HookEvents( EventWriter & writer ) : writer_( writer ) {}
   HookEvents( const HookEvents & ) = delete;
   HookEvents & operator=( const HookEvents & ) = delete;

   void failed( const HookFailure & failure );
   void missed( const std::string & hook, Vel::U64 count ) { hooks_[hook].missed += count; }
   /// Writes down what may be told. `now`: seconds of the agent's clock.
   void look( double now );

 private:
   struct Hook {
      std::optional< HookFailure > failure; ///< not told yet
      Vel::U64 missed = 0;                  ///< not told yet
      Damper failureDamper, missedDamper;
   };

   EventWriter & writer_;
   std::map< std::string, Hook > hooks_;
};

} // namespace Agent
