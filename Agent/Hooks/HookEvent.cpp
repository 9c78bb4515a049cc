#include "Agent/Hooks/HookEvent.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace Agent {

using Config::Moment;
using nlohmann::json;

namespace {

/// Says no to most events, without a look at what they are made of.
bool mayBeOne( const Event & event ) {
   const auto what = [&]( const char * word ) {
      return event.json.find( std::string( "\"what\":\"" ) + word + "\"" ) != std::string::npos;
   };
   if ( event.type == EventType::unit )
      return what( "state" ) || what( "overrun" );
   return event.type == EventType::interface &&
          ( what( "state" ) || what( "shut" ) || what( "spike-begin" ) );
}

std::string textOf( const json & event, const char * name ) {
   const auto it = event.find( name );
   return it != event.end() && it->is_string() ? it->get< std::string >() : std::string();
}

std::optional< Moment > ofUnit( const std::string & what, const std::string & state ) {
   if ( what == "overrun" )
      return Moment::overrun;
   if ( what != "state" )
      return std::nullopt;
   if ( state == "entering" )
      return Moment::enter;
   if ( state == "maintenance" )
      return Moment::completed;
   if ( state == "exiting" )
      return Moment::exit;
   return state == "normal" ? std::optional( Moment::normal ) : std::nullopt;
}

std::optional< Moment > ofInterface( const std::string & what, const std::string & state, bool forced ) {
   if ( what == "shut" )
      return Moment::shut;
   if ( what == "spike-begin" )
      return Moment::spike;
   return what == "state" && state == "under-maint" && !forced ? std::optional( Moment::drained )
                                                               : std::nullopt;
}

} // namespace

std::optional< HookEvent > hookEventOf( const Event & event ) {
   if ( !mayBeOne( event ) )
      return std::nullopt;
   const json object = json::parse( event.json, nullptr, false );
   if ( !object.is_object() )
      return std::nullopt;
   const std::string what = textOf( object, "what" ), state = textOf( object, "state" );
   const auto forced = object.find( "forced" );
   const std::optional< Moment > moment =
      event.type == EventType::unit ? ofUnit( what, state )
                                    : ofInterface( what, state, forced != object.end() && *forced == true );
   if ( !moment )
      return std::nullopt;
   HookEvent result{ *moment, event.type, textOf( object, "subject" ), {} };
   if ( const auto units = object.find( "units" ); units != object.end() )
      for ( const json & unit : *units )
         if ( unit.is_string() )
            result.units.insert( unit.get< std::string >() );
   return result;
}

bool concerns( const Config::Hook & hook, const HookEvent & event ) {
   return hook.at.count( event.moment ) != 0 &&
          ( hook.units.empty() ||
            std::any_of( event.units.begin(), event.units.end(), [&]( const std::string & unit ) {
               return hook.units.count( unit ) != 0;
            } ) );
}

std::string hookInput( const HookCall & call, const Event & event ) {
   // An event is an object, and what is added needs no escaping.
   std::string result = event.json.substr( 0, event.json.rfind( '}' ) );
   result += ",\"hook\":\"" + call.hook + "\",\"moment\":\"" + Config::text( call.event.moment ) +
             "\",\"rerun\":" + ( call.start > 1 ? "true" : "false" ) + "}\n";
   return result;
}

std::vector< std::string > hookEnvironment( const HookCall & call ) {
   const HookEvent & event = call.event;
   const std::string sequence = std::to_string( call.sequence );
   std::string units;
   for ( const std::string & unit : event.units )
      units += ( units.empty() ? "" : " " ) + unit;
   std::vector< std::string > result{
      "MAINTD_RUN=hook " + call.hook + " " + sequence + " " + std::to_string( call.start ),
      "MAINTD_HOOK=" + call.hook,
      std::string( "MAINTD_MOMENT=" ) + Config::text( event.moment ),
      "MAINTD_EVENT=" + sequence,
      "MAINTD_UNITS=" + units,
      "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
      "LANG=C.UTF-8" };
   if ( event.type == EventType::unit )
      result.push_back( "MAINTD_UNIT=" + event.subject );
   else
      result.push_back( "MAINTD_INTERFACE=" + event.subject );
   if ( !call.url.empty() )
      result.push_back( "MAINTD_URL=" + call.url );
   return result;
}

} // namespace Agent
