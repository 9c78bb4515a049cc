#include "Agent/Plan/PlanJson.h"

#include "Api/Values.h"

#include <nlohmann/json.hpp>

namespace Agent {

using nlohmann::json;

namespace {

json orNull( const std::string & text ) { return text.empty() ? json( nullptr ) : json( text ); }
json orNull( const std::optional< double > & number ) { return number ? json( *number ) : json( nullptr ); }

json ratesJson( const std::optional< PlanRates > & rates ) {
   return {
      { "in-bps", rates ? json( rates->in ) : json( nullptr ) },
      { "out-bps", rates ? json( rates->out ) : json( nullptr ) } };
}

json interfaceJson( const PlanInterface & interface ) {
   json high = ratesJson( interface.load.high );
   high["known-seconds"] = interface.load.highSeconds;
   return {
      { "name", interface.name },
      { "kind", orNull( interface.kind ) },
      { "current", ratesJson( interface.load.current ) },
      { "high", high },
      { "profile", orNull( interface.profile ) },
      { "profile-why", orNull( interface.profileWhy ) },
      { "threshold-bps", orNull( interface.thresholdBps ) },
      { "load-interval-seconds", orNull( interface.loadIntervalSeconds ) },
      { "action", stringValue( actionOf( interface ) ) },
      { "shutdown-max-delay-seconds", orNull( interface.shutdownMaxDelaySeconds ) },
      { "not-watched", orNull( interface.notWatched ) } };
}

json findingsOf( const std::vector< PlanFinding > & findings ) {
   json result = json::array();
   for ( const PlanFinding & finding : findings ) {
      json numbers = json::object();
      for ( const auto & [key, value] : finding.numbers )
         numbers[key] = value;
      result.push_back(
         { { "code", finding.code },
           { "severity", stringValue( finding.severity ) },
           { "interfaces", finding.interfaces.empty() ? json( nullptr ) : json( finding.interfaces ) },
           { "text", finding.text },
           { "numbers", numbers } } );
   }
   return result;
}

std::string textOf( const json & value ) {
   return value.dump( -1, ' ', false, json::error_handler_t::replace ) + "\n";
}

} // namespace

std::string planJson( const Plan & plan, double time ) {
   json interfaces = json::array();
   for ( const PlanInterface & interface : plan.facts.interfaces )
      interfaces.push_back( interfaceJson( interface ) );
   return textOf(
      { { "unit", plan.facts.unit },
        { "state", plan.facts.state },
        { "time", Api::timeText( time ) },
        { "session", orNull( plan.facts.session ) },
        { "stages", plan.facts.stages },
        { "needs-force", plan.facts.state == "normal" && isBlocked( plan.findings ) },
        { "interfaces", interfaces },
        { "findings", findingsOf( plan.findings ) } } );
}

std::string findingsJson( const std::vector< PlanFinding > & findings ) {
   return textOf( findingsOf( findings ) );
}

} // namespace Agent
