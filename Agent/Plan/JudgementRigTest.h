#pragma once

#include "Agent/Plan/FactsRig.h"

#include <gtest/gtest.h>

namespace Agent {

/// The judgement of facts that are put together piece by piece.
struct Judgement : testing::Test {
   FactsRig rig;

   /// et1 and et2, of which the unit has et1.
   void twoPorts() {
      rig.port( "et1" );
      rig.port( "et2" );
      rig.inUnit( "et1" );
      rig.carries( "et2", 0 );
   }
};

} // namespace Agent
