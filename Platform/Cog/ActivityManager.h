#pragma once

#include "Platform/Vel/Clock.h"

/// Purpose: the name under which state machines reach what drives them.
namespace Cog {

class ActivityManager {
 public:
   /// The clock of this process (Vel::System::clock()); null before one is set.
   const Vel::Ptr< Vel::Clock > & clock() const { return Vel::System::clock(); }
};

inline ActivityManager activityManager() { return {}; }

} // namespace Cog
