#pragma once

#include "Maintctl/Pace.h"

namespace Maintctl {

/// Purpose: the clock of this machine, and the operator's Ctrl-C. Owner: main.
class RealPace final : public Pace {
 public:
   /// From now on a first Ctrl-C is taken note of, a second one ends the process as usual, after the
   /// terminal is left.
   RealPace();

   double now() override;
   bool sleep( double seconds ) override;

   static bool interrupted();
};

} // namespace Maintctl
