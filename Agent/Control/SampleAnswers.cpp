#include "Agent/Control/SampleAnswers.h"

#include "Agent/Control/Shapes.h"
#include "Api/Values.h"
#include "Config/Duration.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace Agent {

namespace {

using Query = std::multimap< std::string, std::string >;

Api::Error bad( const std::string & argument, const std::string & what ) {
   return { Api::ErrorCode::badRequest, "\"" + argument + "\" " + what, argument };
}

/// The one value of an argument; null if it is missing.
const std::string * valueOf( const Query & query, const char * argument ) {
   const auto [begin, end] = query.equal_range( argument );
   if ( begin == end )
      return nullptr;
   if ( std::next( begin ) != end )
      throw bad( argument, "is there more than once" );
   return &begin->second;
}

/// How many seconds are asked for.
double length( const Query & query ) {
   const std::string * const value = valueOf( query, "last" );
   if ( !value )
      return SampleSource::fineRange;
   double seconds = 0;
   const char * const end = value->data() + value->size();
   const auto number = std::from_chars( value->data(), end, seconds );
   if ( number.ec != std::errc() || number.ptr != end ) {
      const auto parsed = Config::Duration::parse( *value );
      if ( !parsed )
         throw bad( "last", "is neither a number of seconds nor a time: " + parsed.error );
      seconds = static_cast< double >( parsed.value->seconds() );
   }
   if ( !( seconds > 0 && seconds <= SampleSource::range ) )
      throw bad( "last", "is out of range: above 0 and up to 7 days" );
   return seconds;
}

/// When the range that is asked for ends, in seconds of the clock.
double end( const Query & query, const ControlCommands & commands ) {
   const double now = commands.now();
   const std::string * const value = valueOf( query, "until" );
   if ( !value )
      return now;
   const auto time = Api::timeOf( *value );
   if ( !time )
      throw bad( "until", "is no time like 2026-03-01T12:00:00Z" );
   return std::min( now, *time - ( commands.wallTime( now ) - now ) );
}

std::set< std::string >
namesOf( const ControlModel & model, const ControlCommands & commands, const Query & query ) {
   std::set< std::string > names;
   const std::string * const unit = valueOf( query, "unit" );
   const auto [begin, end] = query.equal_range( "interface" );
   if ( ( unit != nullptr ) == ( begin != end ) )
      throw Api::Error{
         Api::ErrorCode::badRequest, R"(either "interface" or "unit" says whose samples are asked for)", "" };
   if ( unit ) {
      if ( !model.unitStatusDir->status( *unit ) )
         throw Api::Error{ Api::ErrorCode::notFound, "there is no unit " + *unit, *unit };
      for ( const auto & [name, intf] : interfacesOfUnit( model, *unit ) )
         names.insert( name );
      return names;
   }
   const auto groups = commands.groups();
   for ( auto at = begin; at != end; ++at ) {
      const std::string & name = at->second;
      const bool configured = std::any_of( groups.begin(), groups.end(), [&]( const auto & group ) {
         return group.second.interfaces.count( name ) > 0;
      } );
      if ( !configured && interfaceNamed( model, name ).empty() && !commands.samples->has( name ) )
         throw Api::Error{ Api::ErrorCode::notFound, "there is no interface " + name, name };
      names.insert( name );
   }
   return names;
}

void append( std::string & text, const char * key, const std::vector< float > & rates ) {
   text += key;
   char before = '[';
   for ( const float rate : rates ) {
      text += std::exchange( before, ',' );
      if ( !std::isfinite( rate ) ) {
         text += "null";
         continue;
      }
      // Whole bits: a fraction would cost more than all the rest of the answer.
      char digits[32];
      const auto written = std::to_chars( digits, digits + sizeof digits, std::llround( rate ) );
      text.append( digits, written.ptr );
   }
   text += rates.empty() ? "[]" : "]";
}

std::string quoted( const std::string & name ) {
   return nlohmann::json( name ).dump( -1, ' ', false, nlohmann::json::error_handler_t::replace );
}

} // namespace

/// Written by hand: there may be a hundred thousand numbers, for which nobody wants to wait.
std::string
sampleAnswer( const ControlModel & model, const ControlCommands & commands, const Query & query ) {
   if ( !commands.samples )
      throw Api::Error{ Api::ErrorCode::unavailable, "nobody samples", "" };
   for ( const auto & [argument, value] : query )
      if ( argument != "interface" && argument != "unit" && argument != "last" && argument != "until" )
         throw bad( argument, "is not known here" );
   const std::set< std::string > names = namesOf( model, commands, query );
   const double to = end( query, commands );
   const double from = to - length( query );
   // All have the same steps, also one that there is not.
   const SampleCurve steps = commands.samples->curve( "", from, to );
   if ( names.size() * steps.in.size() > mostSamples )
      throw Api::Error{
         Api::ErrorCode::badRequest,
         "these are too many samples at once: " + std::to_string( names.size() ) + " interfaces with " +
            std::to_string( steps.in.size() ) + " each, of " + std::to_string( mostSamples ),
         "" };
   std::string text = "{\"step-seconds\":" + std::to_string( steps.step ) +
                      ",\"start\":" + quoted( Api::timeText( commands.wallTime( steps.start ) ) ) +
                      ",\"interfaces\":{";
   const char * before = "";
   for ( const std::string & name : names ) {
      const SampleCurve curve = commands.samples->curve( name, from, to );
      text += std::exchange( before, "," ) + quoted( name );
      append( text, ":{\"in-bps\":", curve.in );
      append( text, ",\"out-bps\":", curve.out );
      text += '}';
   }
   return text + "}}\n";
}

} // namespace Agent
