#include "Agent/Events/EventWriter.h"

#include "Api/Values.h"

#include <nlohmann/json.hpp>

namespace Agent {

void EventWriter::write( const About & about ) { write( about, nlohmann::json::object() ); }

void EventWriter::write( const About & about, const nlohmann::json & numbers ) {
   if ( silent_ )
      return;
   nlohmann::ordered_json json{
      { "sequence", log_->last() + 1 },
      { "time", Api::timeText( wallTime_() ) },
      { "type", stringValue( about.type ) },
      { "subject", about.subject },
      { "what", about.what },
      { "units", about.units },
      { "text", about.text } };
   for ( const auto & [name, value] : numbers.items() )
      json[name] = value;
   log_->add( { about.type, json.dump( -1, ' ', false, nlohmann::ordered_json::error_handler_t::replace ) } );
   if ( also_ )
      also_( about );
}

} // namespace Agent
