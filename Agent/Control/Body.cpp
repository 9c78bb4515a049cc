#include "Agent/Control/Body.h"

#include "Config/Duration.h"
#include "Config/Names.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <vector>

namespace Agent {

using Api::ErrorCode;
using nlohmann::json;

namespace {

constexpr std::size_t longestKey = 128;
/// Values within values: no request has as many. What copies and writes them calls itself for each.
constexpr int deepest = 16;

std::string textOf( const std::string & name, const json & value ) {
   if ( !value.is_string() )
      throw Body::bad( name, "is not a text" );
   return value.get< std::string >();
}

bool flagOf( const std::string & name, const json & value ) {
   if ( !value.is_boolean() )
      throw Body::bad( name, "is neither true nor false" );
   return value.get< bool >();
}

bool isControl( char c ) { return static_cast< unsigned char >( c ) < 0x20 || c == 0x7f; }

} // namespace

Api::Error Body::bad( const std::string & member, const std::string & what ) {
   return { ErrorCode::badRequest, "\"" + member + "\" " + what, member };
}

Body::Body( const std::string & text ) : value_( std::make_unique< json >( json::object() ) ) {
   if ( text.empty() )
      return;
   std::vector< std::set< std::string > > open; // members so far of the objects around what is read
   const auto check = [&open]( int depth, json::parse_event_t event, const json & read ) {
      if ( depth > deepest )
         throw Api::Error{
            ErrorCode::badRequest,
            "the body has values within values, more than " + std::to_string( deepest ) + " deep", "body" };
      if ( event == json::parse_event_t::object_start )
         open.emplace_back();
      else if ( event == json::parse_event_t::object_end )
         open.pop_back();
      // Whichever counted, it might be the other one that was meant.
      else if ( event == json::parse_event_t::key )
         if ( const auto & name = read.get_ref< const std::string & >(); !open.back().insert( name ).second )
            throw bad( name, "is there twice" );
      return true;
   };
   *value_ = json::parse( text, check, false );
   if ( !value_->is_object() )
      throw Api::Error{ ErrorCode::badRequest, "the body is not a JSON object", "body" };
}

Body::~Body() = default;

const json * Body::find( const char * name ) {
   known_.insert( name );
   const auto it = value_->find( name );
   return it == value_->end() || it->is_null() ? nullptr : &*it;
}

const json & Body::get( const char * name ) {
   if ( const json * value = find( name ) )
      return *value;
   throw bad( name, "is missing" );
}

std::string Body::text( const char * name ) { return textOf( name, get( name ) ); }

std::string Body::text( const char * name, const char * missing ) {
   const json * const value = find( name );
   return value ? textOf( name, *value ) : missing;
}

bool Body::flag( const char * name ) { return flagOf( name, get( name ) ); }

bool Body::flag( const char * name, bool missing ) {
   const json * const value = find( name );
   return value ? flagOf( name, *value ) : missing;
}

double Body::number( const char * name, double least, double most ) {
   const json & value = get( name );
   if ( !value.is_number() )
      throw bad( name, "is not a number" );
   const auto number = value.get< double >();
   if ( !( number >= least && number <= most ) )
      throw bad( name, "is out of range" );
   return number;
}

double Body::number( const char * name, double least, double most, double missing ) {
   return find( name ) ? number( name, least, most ) : missing;
}

std::optional< double > Body::duration( const char * name ) {
   const json * const value = find( name );
   if ( !value )
      return std::nullopt;
   if ( !value->is_string() )
      return number( name, 0, static_cast< double >( Config::Duration::max().seconds() ) );
   const auto parsed = Config::Duration::parse( value->get_ref< const std::string & >() );
   if ( !parsed )
      throw bad( name, "is no time: " + parsed.error );
   return static_cast< double >( parsed.value->seconds() );
}

std::map< std::string, std::string > Body::pairs( const char * name, std::size_t most, std::size_t longest ) {
   std::map< std::string, std::string > result;
   const json * const value = find( name );
   if ( !value )
      return result;
   if ( !value->is_object() )
      throw bad( name, "is not a JSON object" );
   if ( value->size() > most )
      throw bad( name, "has more than " + std::to_string( most ) + " pairs" );
   for ( const auto & [key, text] : value->items() ) {
      if ( !Config::isName( key ) )
         throw bad( name, "has the key \"" + key + "\", which is no name" );
      std::string & kept = result[key] = textOf( name + ( "." + key ), text );
      if ( kept.size() > longest )
         throw bad( name, "has more than " + std::to_string( longest ) + " bytes under " + key );
      if ( std::any_of( kept.begin(), kept.end(), isControl ) )
         throw bad( name, "has control characters under " + key );
   }
   return result;
}

std::string Body::key( const char * name ) {
   const json * const value = find( name );
   if ( !value )
      return "";
   std::string text = textOf( name, *value );
   const auto fits = []( char c ) { return c > ' ' && c < 0x7f; };
   if ( text.empty() || text.size() > longestKey || !std::all_of( text.begin(), text.end(), fits ) )
      throw bad(
         name,
         "is not made of 1 to " + std::to_string( longestKey ) + " characters of ASCII without blanks" );
   return text;
}

void Body::end() const {
   for ( const auto & [name, value] : value_->items() )
      if ( !known_.count( name ) )
         throw bad( name, "is not known here" );
}

std::uint64_t Body::fingerprint( const std::set< std::string > & apart ) const {
   json counted = json::object(); // in the order of the names
   for ( const auto & [name, value] : value_->items() )
      if ( !value.is_null() && !apart.count( name ) )
         counted[name] = value;
   std::uint64_t hash = 0xcbf29ce484222325; // FNV-1a
   for ( const char c : counted.dump() ) {
      hash ^= static_cast< unsigned char >( c );
      hash *= 0x100000001b3;
   }
   return hash;
}

} // namespace Agent
