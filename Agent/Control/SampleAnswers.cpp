#include "Agent/Control/SampleAnswers.h"

#include "Agent/Control/Shapes.h"
#include "Api/Values.h"
#include "Config/Duration.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

namespace Agent {

namespace {

using Query = SampleAnswers::Query;

Api::Error bad( const std::string & argument, const std::string & what ) {
   return { Api::ErrorCode::badRequest, "\"" + argument + "\" " + what, argument };
}

/// The value of an argument that is given once; null if it is missing.
const std::string * valueOf( const Query & query, const char * argument ) {
   const auto it = query.find( argument );
   return it == query.end() ? nullptr : &it->second;
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
   std::set< std::string > known;
   for ( const auto & [name, group] : commands.groups() )
      known.insert( group.interfaces.begin(), group.interfaces.end() );
   for ( const auto & [name, intf] : shownInterfaces( model ) )
      known.insert( name );
   for ( const auto & [intf, status] : model.allIntfStatusDir->intfStatusRange() )
      known.emplace( intf.name() );
   for ( auto at = begin; at != end; ++at ) {
      const std::string & name = at->second;
      if ( !known.count( name ) && !commands.samples->has( name ) )
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

SampleAnswers::SampleAnswers( const ControlModel & model, const ControlCommands & commands )
   : model_( model ), commands_( commands ), self_( std::make_shared< SampleAnswers * >( this ) ) {}

SampleAnswers::~SampleAnswers() { *self_ = nullptr; }

void SampleAnswers::ask( const Query & query, bool local, HttpServer::Answer answer ) {
   if ( !commands_.samples )
      throw Api::Error{ Api::ErrorCode::unavailable, "nobody samples", "" };
   std::set< std::string > names = namesOf( model_, commands_, query );
   const double to = end( query, commands_ );
   const SampleSteps steps = commands_.samples->steps( to - length( query ), to );
   if ( names.size() * steps.count > mostSamples )
      throw Api::Error{
         Api::ErrorCode::badRequest,
         "these are too many samples at once: " + std::to_string( names.size() ) + " interfaces with " +
            std::to_string( steps.count ) + " each, of " + std::to_string( mostSamples ),
         "" };
   std::string text = "{\"step-seconds\":" + std::to_string( steps.step ) +
                      ",\"start\":" + quoted( Api::timeText( commands_.wallTime( steps.start ) ) ) +
                      ",\"interfaces\":{";
   ( local ? local_ : web_ )
      .push_back( { steps, std::move( names ), std::move( answer ), std::move( text ) } );
   workSoon();
}

void SampleAnswers::workSoon() {
   if ( ( local_.empty() && web_.empty() ) || std::exchange( working_, true ) )
      return;
   commands_.later( [self = self_] {
      if ( SampleAnswers * const answers = *self ) {
         answers->working_ = false;
         answers->work();
         answers->workSoon();
      }
   } );
}

void SampleAnswers::work() {
   std::size_t files = 0, steps = 0;
   while ( !( local_.empty() && web_.empty() ) && files < filesPerTurn && steps < stepsPerTurn ) {
      std::deque< Asked > & queue = local_.empty() ? web_ : local_;
      Asked asked = std::move( queue.front() );
      queue.pop_front();
      if ( !asked.names.empty() )
         readOne( asked );
      ++files;
      steps += asked.steps.count;
      if ( asked.names.empty() )
         asked.answer( { 200, asked.text + "}}\n" } );
      else
         queue.insert(
            queue.begin() + static_cast< std::ptrdiff_t >( std::min( queue.size(), atATime - 1 ) ),
            std::move( asked ) );
   }
}

/// Written by hand: there may be a hundred thousand numbers, for which nobody wants to wait.
void SampleAnswers::readOne( Asked & asked ) const {
   const std::string name = asked.names.extract( asked.names.begin() ).value();
   const SampleCurve curve = commands_.samples->curve( name, asked.steps );
   std::string & text = asked.text;
   if ( text.back() != '{' )
      text += ',';
   text += quoted( name );
   append( text, ":{\"in-bps\":", curve.in );
   append( text, ",\"out-bps\":", curve.out );
   text += '}';
}

} // namespace Agent
