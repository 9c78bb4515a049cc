#include "Platform/Vel/Clock.h"

namespace Vel {

namespace {
Ptr< Clock > & systemClock() {
   static Ptr< Clock > clock;
   return clock;
}
} // namespace

double System::currentTime() { return systemClock() ? systemClock()->currentTime() : 0; }
const Ptr< Clock > & System::clock() { return systemClock(); }
void System::clockIs( Ptr< Clock > clock ) { systemClock() = std::move( clock ); }

} // namespace Vel
