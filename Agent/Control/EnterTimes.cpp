#include "Agent/Control/EnterTimes.h"

#include "Api/Names.h"
#include "Config/Duration.h"

#include <nlohmann/json.hpp>

#include <string>

namespace Agent {

using nlohmann::json;
namespace Key = Api::Key;

namespace {

std::optional< double > time( Body & body, const char * member ) {
   const json * const value = body.find( member );
   if ( !value )
      return std::nullopt;
   double seconds = 0;
   if ( value->is_number() ) {
      seconds = value->get< double >();
   } else if ( !value->is_string() ) {
      throw Body::bad( member, "is neither a time nor a number of seconds" );
   } else {
      const auto & text = value->get_ref< const std::string & >();
      if ( text == Api::never )
         return AskedTimes::never;
      const auto parsed = Config::Duration::parse( text );
      if ( !parsed )
         throw Body::bad( member, "is no time: " + parsed.error );
      seconds = static_cast< double >( parsed.value->seconds() );
   }
   if ( !( seconds >= AskedTimes::least && seconds <= AskedTimes::most ) )
      throw Body::bad( member, "is out of range; it is 1s to 720h, or \"never\"" );
   return seconds;
}

} // namespace

AskedTimes enterTimes( Body & body ) {
   AskedTimes asked;
   asked.deadline = time( body, Key::deadline );
   asked.revertAfter = time( body, Key::revertAfter );
   const json * const onOverrun = body.find( Key::onOverrun );
   if ( !onOverrun )
      return asked;
   asked.restore = *onOverrun == Api::OnOverrun::restore;
   if ( !asked.restore && *onOverrun != Api::OnOverrun::keep )
      throw Body::bad( Key::onOverrun, "is neither \"keep\" nor \"restore\"" );
   if ( !asked.deadline || *asked.deadline == AskedTimes::never )
      throw Body::bad( Key::onOverrun, "needs a \"deadline\"" );
   return asked;
}

} // namespace Agent
