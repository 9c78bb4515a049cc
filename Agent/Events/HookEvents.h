#pragma once

#include "Agent/Events/Damper.h"
#include "Agent/Events/EventWriter.h"
#include "Agent/Model/EventsTold.h"
#include "Agent/Model/HookRecord.h"

#include <map>
#include <string>

/// Purpose: tells what goes wrong with hooks. A hook that fails again and again must not fill the log: what follows the
/// first failure is counted and told together. What is not told when the agent ends is told by the next one, at once.
/// Owner: Events.
namespace Agent {

class HookEvents {
 public:
   /// \param told  keeps what has yet to be told
   HookEvents( EventWriter & writer, Vel::Ptr< EventsTold > told ) : writer_( writer ), told_( told ) {}
   HookEvents( const HookEvents & ) = delete;
   HookEvents & operator=( const HookEvents & ) = delete;

   void failed( const HookFailure & failure );
   void missed( const std::string & hook, Vel::U64 count );
   /// Writes down what may be told. `now`: seconds of the agent's clock.
   void look( double now );

 private:
   struct Dampers {
      Damper failure, missed;
   };
   void tellFailures( const UntoldHook & hook );
   void tellMissed( const UntoldHook & hook );

   EventWriter & writer_;
   Vel::Ptr< EventsTold > told_;
   std::map< std::string, Dampers > dampers_; ///< by hook
};

} // namespace Agent
