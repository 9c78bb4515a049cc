#pragma once

#include "Tests/Agent/AgentRig.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>

/// Purpose: plays a story once for each of its turns, with an agent that ends after that turn and is started again.
///
/// `make test` sets MAINT_CRASHES=half: each kind of crash is after every other turn, the other kind after those between. So
/// there is a crash after each turn, at half the cost; without the variable, as in `make test-full`, there are both.
///
/// A story has the rig as its member `rig`, has been started when it is made, and is over at `end`, seconds from the
/// beginning.
namespace Tests {

/// What a test does on the way; what is not given is left out.
template < class Story >
struct CrashSweep {
   std::function< void( Story &, unsigned turn ) > before; ///< the agent will end after this turn
   std::function< void( Story &, unsigned turn ) > down;   ///< it has, and no agent runs
   std::function< void( Story & ) > back;                  ///< the next one has been started
   std::function< void( Story & ) > over;                  ///< all has been told
   double more = 0; ///< seconds that the second agent gets after the end

   /// Stops at the first turn with which a test fails.
   void run( AgentRig::Effects effects ) const {
      unsigned turns = 0;
      {
         Story whole;
         whole.rig.runUntil( Story::end );
         turns = whole.rig.turns();
      }
      ASSERT_GE( turns, 40u );
      const char * const crashes = std::getenv( "MAINT_CRASHES" );
      const bool half = crashes && std::string_view( crashes ) == "half";
      const unsigned first = half && effects == AgentRig::Effects::lost ? 2 : 1;
      for ( unsigned turn = first; turn < turns && !testing::Test::HasFailure(); turn += half ? 2 : 1 ) {
         SCOPED_TRACE( "crash after turn " + std::to_string( turn ) );
         once( turn, effects );
      }
   }

 private:
   void once( unsigned turn, AgentRig::Effects effects ) const {
      Story story;
      if ( before )
         before( story, turn );
      story.rig.crashAfterTurnIs( turn, effects );
      story.rig.runUntil( Story::end );
      ASSERT_FALSE( story.rig.running() );
      if ( down )
         down( story, turn );
      story.rig.start();
      if ( back )
         back( story );
      story.rig.runUntil( Story::end + more );
      over( story );
   }
};

/// A suite of tests that take both kinds of crash.
class CrashTest : public testing::TestWithParam< AgentRig::Effects > {};
inline auto allCrashes() { return testing::Values( AgentRig::Effects::out, AgentRig::Effects::lost ); }
inline std::string crashName( const testing::TestParamInfo< AgentRig::Effects > & crash ) {
   return crash.param == AgentRig::Effects::out ? "whoseEffectsAreOut" : "whoseEffectsAreLost";
}

} // namespace Tests
