#include "Agent/Commands/Protocol.h"

#include <nlohmann/json.hpp>

namespace Agent {

using nlohmann::json;

namespace {

/// Objects in objects; whoever reads a record recurses.
constexpr int deepest = 64;

json textOrNull( const std::string & text ) { return text.empty() ? json( nullptr ) : json( text ); }

const char * operation( const CommandInput & input ) { return input.enter ? "enter" : "exit"; }

} // namespace

std::string inputText( const CommandInput & input ) {
   const json object = {
      { "unit", input.unit },
      { "generation", input.generation },
      { "operation", operation( input ) },
      { "stage", input.stage },
      { "reason", textOrNull( input.reason ) },
      { "by", textOrNull( input.by ) },
      { "interfaces", json::parse( input.interfaces, nullptr, false ) },
      { "recorded", input.recorded.empty() ? json( nullptr ) : json::parse( input.recorded ) },
      { "rerun", input.rerun } };
   return object.dump( -1, ' ', false, json::error_handler_t::replace ) + "\n";
}

std::vector< std::string > commandEnvironment( const CommandInput & input ) {
   return {
      "MAINTD_RUN=" + input.unit + "#" + std::to_string( input.generation ) + "/" + input.stage,
      "MAINTD_UNIT=" + input.unit,
      "MAINTD_GENERATION=" + std::to_string( input.generation ),
      std::string( "MAINTD_OPERATION=" ) + operation( input ),
      "MAINTD_STAGE=" + input.stage,
      "MAINTD_KEPT_FD=3",
      "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
      "LANG=C.UTF-8" };
}

std::string recordProblem( const std::string & line ) {
   bool tooDeep = false;
   const json record = json::parse(
      line,
      [&]( int depth, json::parse_event_t, json & ) {
         tooDeep = tooDeep || depth > deepest;
         return !tooDeep;
      },
      false );
   if ( tooDeep )
      return "is nested more than " + std::to_string( deepest ) + " deep";
   return record.is_object() ? "" : "is no JSON object";
}

} // namespace Agent
