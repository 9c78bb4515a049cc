#pragma once

#include "Agent/Executor/ExecutorRigTest.h"

#include <utility>

/// Purpose: the executor and somebody else who sets links too.
namespace Agent {

/// A link of a unit that is under way.
class DriftStory : public ExecutorStory {
 protected:
   DriftStory() { underWay.insert( et1 ); }
   void othersSet( bool up ) {
      clock->post( [this, up] { fake->link( et1, up, up ); } );
      clock->runUntilIdle();
   }
   void turn() {
      clock->post( [] {} );
      clock->runUntilIdle();
   }
   /// The notes since the last call, joined.
   Vel::String noted() {
      Vel::String result;
      for ( const Vel::String & line : std::exchange( notes, {} ) )
         result += ( result.empty() ? "" : "; " ) + line;
      return result;
   }
   std::string drift() { return stringValue( executor->drift( et1 ) ); }
   /// Lets go of it, and does what is asked for then.
   void released() {
      const std::size_t before = fake->requests.size();
      bringBack();
      clock->runUntilIdle();
      for ( std::size_t i = before; i < fake->requests.size(); ++i )
         fake->done( i );
      clock->runUntilIdle();
   }
   bool isUp() { return fake->links.at( et1 ).adminUp; }

   const Vel::String lowered =
      "et1: somebody else has set it down; it is left down, also when its unit leaves maintenance";
   const Vel::String raised = "et1: somebody else has set it up while we hold it down; it is left up";
};

} // namespace Agent
