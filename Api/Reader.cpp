#include "Api/Reader.h"

#include "Api/Error.h"
#include "Api/Values.h"

#include <nlohmann/json.hpp>

namespace Api {

using nlohmann::json;

namespace {

[[noreturn]] void wrong( const std::string & what ) {
   throw Error{ ErrorCode::internal, "the agent's answer makes no sense: " + what, "" };
}

[[noreturn]] void wrong( const char * key, const char * what ) {
   wrong( "\"" + std::string( key ) + "\" " + what );
}

} // namespace

Reader::Reader( const json & object ) : object_( object ) {
   if ( !object.is_object() )
      wrong( "an object is missing" );
}

json Reader::parsed( std::string_view text ) {
   json result = json::parse( text, nullptr, false );
   if ( result.is_discarded() )
      wrong( "it is no JSON" );
   return result;
}

std::string Reader::all() const { return object_.dump( -1, ' ', false, json::error_handler_t::replace ); }

const json * Reader::find( const char * key ) const {
   const auto it = object_.find( key );
   return it == object_.end() || it->is_null() ? nullptr : &*it;
}

std::optional< std::string > Reader::maybeText( const char * key ) const {
   const json * value = find( key );
   if ( !value )
      return std::nullopt;
   if ( !value->is_string() )
      wrong( key, "is no text" );
   return value->get< std::string >();
}

std::string Reader::name( const char * key ) const {
   std::string value = text( key );
   if ( value.empty() )
      wrong( key, "is missing" );
   return value;
}

std::optional< double > Reader::maybeNumber( const char * key ) const {
   const json * value = find( key );
   if ( !value )
      return std::nullopt;
   if ( !value->is_number() )
      wrong( key, "is no number" );
   return value->get< double >();
}

std::optional< std::uint64_t > Reader::maybeCounter( const char * key ) const {
   const json * value = find( key );
   if ( !value )
      return std::nullopt;
   if ( value->is_number_unsigned() )
      return value->get< std::uint64_t >();
   const auto counter =
      value->is_string() ? counterOf( value->get_ref< const std::string & >() ) : std::nullopt;
   if ( !counter )
      wrong( key, "is no counter" );
   return counter;
}

bool Reader::flag( const char * key ) const {
   const json * value = find( key );
   if ( value && !value->is_boolean() )
      wrong( key, "is neither true nor false" );
   return value && value->get< bool >();
}

std::optional< double > Reader::time( const char * key ) const {
   const auto value = maybeText( key );
   if ( !value )
      return std::nullopt;
   const auto seconds = timeOf( *value );
   if ( !seconds )
      wrong( key, "is no time" );
   return seconds;
}

std::vector< std::string > Reader::texts( const char * key ) const {
   std::vector< std::string > result;
   const json * value = find( key );
   if ( !value )
      return result;
   if ( !value->is_array() )
      wrong( key, "is no list" );
   for ( const json & element : *value ) {
      if ( !element.is_string() )
         wrong( key, "holds something else than text" );
      result.push_back( element.get< std::string >() );
   }
   return result;
}

std::map< std::string, std::string > Reader::pairs( const char * key ) const {
   std::map< std::string, std::string > result;
   const json * value = find( key );
   if ( !value )
      return result;
   if ( !value->is_object() )
      wrong( key, "is no object" );
   for ( const auto & [name, text] : value->items() ) {
      if ( !text.is_string() )
         wrong( key, "holds something else than text" );
      result[name] = text.get< std::string >();
   }
   return result;
}

std::vector< std::optional< double > > Reader::numbers( const char * key ) const {
   std::vector< std::optional< double > > result;
   const json * value = find( key );
   if ( !value )
      return result;
   if ( !value->is_array() )
      wrong( key, "is no list" );
   for ( const json & element : *value ) {
      if ( !element.is_null() && !element.is_number() )
         wrong( key, "holds something else than numbers" );
      result.push_back( element.is_null() ? std::nullopt : std::optional( element.get< double >() ) );
   }
   return result;
}

Reader Reader::below( const char * key ) const {
   static const json none = json::object();
   const json * value = find( key );
   return Reader( value ? *value : none );
}

void Reader::forEach( const json & list, const std::function< void( const Reader & ) > & action ) {
   if ( !list.is_array() )
      wrong( "a list is missing" );
   for ( const json & element : list )
      action( Reader( element ) );
}

} // namespace Api
