#include "Api/Samples.h"

#include "Api/Error.h"
#include "Api/Values.h"

#include <nlohmann/json.hpp>

namespace Api {

namespace {

using nlohmann::json;

[[noreturn]] void wrong( const std::string & what ) {
   throw Error{ ErrorCode::internal, "the agent's answer makes no sense: " + what, "" };
}

const json & member( const json & object, const char * key ) {
   const auto found = object.is_object() ? object.find( key ) : object.end();
   if ( found == object.end() )
      wrong( "\"" + std::string( key ) + "\" is missing" );
   return *found;
}

std::vector< std::optional< double > > rates( const json & object, const char * key ) {
   const json & list = member( object, key );
   if ( !list.is_array() )
      wrong( "\"" + std::string( key ) + "\" is no list" );
   std::vector< std::optional< double > > result;
   result.reserve( list.size() );
   for ( const json & rate : list ) {
      if ( !rate.is_null() && !rate.is_number() )
         wrong( "\"" + std::string( key ) + "\" holds something else than numbers" );
      result.push_back( rate.is_null() ? std::nullopt : std::optional( rate.get< double >() ) );
   }
   return result;
}

} // namespace

Samples readSamples( std::string_view text ) {
   const json answer = json::parse( text, nullptr, false );
   if ( answer.is_discarded() )
      wrong( "it is no JSON" );
   Samples samples;
   const json & step = member( answer, "step-seconds" );
   if ( !step.is_number() || step.get< double >() <= 0 )
      wrong( "\"step-seconds\" is no time span" );
   samples.stepSeconds = step.get< double >();
   const json & start = member( answer, "start" );
   if ( start.is_null() )
      return samples; // there are none
   const auto time = start.is_string() ? timeOf( start.get_ref< const std::string & >() ) : std::nullopt;
   if ( !time )
      wrong( "\"start\" is no time" );
   samples.start = *time;
   const json & interfaces = member( answer, "interfaces" );
   if ( !interfaces.is_object() )
      wrong( "\"interfaces\" is no object" );
   for ( const auto & [name, both] : interfaces.items() )
      samples.interfaces[name] = { rates( both, "in-bps" ), rates( both, "out-bps" ) };
   return samples;
}

} // namespace Api
