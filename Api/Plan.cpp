#include "Api/Plan.h"

#include "Api/Error.h"
#include "Api/Reader.h"

#include <nlohmann/json.hpp>

namespace Api {

namespace {

Finding findingOf( const Reader & in ) {
   return { in.name( "code" ), in.name( "severity" ), in.texts( "interfaces" ), in.name( "text" ), in.all() };
}

PlannedInterface interfaceOf( const Reader & in ) {
   PlannedInterface interface;
   interface.name = in.name( "name" );
   const Reader current = in.below( "current" ), high = in.below( "high" );
   interface.inBps = current.maybeNumber( "in-bps" );
   interface.outBps = current.maybeNumber( "out-bps" );
   interface.highInBps = high.maybeNumber( "in-bps" );
   interface.highOutBps = high.maybeNumber( "out-bps" );
   interface.highKnownSeconds = high.maybeNumber( "known-seconds" );
   interface.profile = in.maybeText( "profile" );
   interface.profileWhy = in.maybeText( "profile-why" );
   interface.thresholdBps = in.maybeNumber( "threshold-bps" );
   interface.loadIntervalSeconds = in.maybeNumber( "load-interval-seconds" );
   interface.action = in.name( "action" );
   interface.shutdownMaxDelaySeconds = in.maybeNumber( "shutdown-max-delay-seconds" );
   interface.notWatched = in.maybeText( "not-watched" );
   return interface;
}

} // namespace

Plan readPlan( std::string_view text ) {
   const auto answer = Reader::parsed( text );
   const Reader in( answer );
   return {
      in.name( "unit" ),
      in.name( "state" ),
      in.time( "time" ),
      in.maybeText( "session" ),
      in.texts( "stages" ),
      in.flag( "needs-force" ),
      in.list( "interfaces", interfaceOf ),
      in.list( "findings", findingOf ) };
}

std::vector< Finding > readRefusedFindings( std::string_view text ) try {
   const auto answer = Reader::parsed( text );
   return Reader( answer ).below( "error" ).list( "findings", findingOf );
} catch ( const Error & ) {
   return {};
}

} // namespace Api
