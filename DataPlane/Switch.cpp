#include "DataPlane/Switch.h"

namespace DataPlane {

Outcome Outcome::failed( Vel::String text ) {
   Outcome outcome;
   outcome.text_ = text.empty() ? Vel::String( "unknown error" ) : std::move( text );
   return outcome;
}

} // namespace DataPlane
