#include "Maintctl/Json.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace Maintctl {

using Json = nlohmann::ordered_json;

namespace {

std::string dumped( const Json & json, int indent = -1 ) {
   return json.dump( indent, ' ', false, Json::error_handler_t::replace );
}

Json parsed( std::string_view text ) {
   Json document = Json::parse( text, nullptr, false );
   if ( document.is_discarded() )
      throw Api::Error{ Api::ErrorCode::internal, "the agent's answer makes no sense: it is no JSON", "" };
   return document;
}

Json jsonOf( const JsonObject::Value & value ) {
   return std::visit(
      []( const auto & is ) -> Json {
         // Whole numbers are written without a fraction.
         if constexpr ( std::is_same_v< std::decay_t< decltype( is ) >, double > )
            if ( std::nearbyint( is ) == is && std::fabs( is ) < 9e15 )
               return static_cast< std::int64_t >( is );
         return is;
      },
      value );
}

Json placesJson( const std::vector< Api::FileError > & errors ) {
   Json result = Json::array();
   for ( const Api::FileError & error : errors )
      result.push_back(
         { { "file", error.file },
           { "line", error.line },
           { "column", error.column },
           { "message", error.message } } );
   return result;
}

} // namespace

std::string JsonObject::text() const {
   Json object = Json::object();
   for ( const auto & [key, value] : fields_ )
      object[key] = jsonOf( value );
   return dumped( object );
}

std::string jsonList( const std::vector< JsonObject > & objects ) {
   std::string result = "[";
   for ( const JsonObject & object : objects )
      result += ( result.size() > 1 ? "," : "" ) + object.text();
   return result + "]";
}

std::string failureJson( const Failure & failure ) {
   Json document;
   document["error"] = {
      { "code", failure.code },
      { "message", failure.message },
      { "where", failure.where.empty() ? Json( nullptr ) : Json( failure.where ) } };
   if ( failure.operation )
      document["error"]["operation"] = *failure.operation;
   for ( const Api::Finding & finding : failure.findings )
      document["error"]["findings"].push_back( parsed( finding.json ) );
   if ( !failure.fileErrors.empty() )
      document["errors"] = placesJson( failure.fileErrors );
   return dumped( document );
}

std::string validJson( const std::string & file, const std::vector< Api::FileError > & warnings ) {
   return dumped(
      Json{ { "file", file }, { "errors", Json::array() }, { "warnings", placesJson( warnings ) } } );
}

std::string laidOut( std::string_view text ) { return dumped( parsed( text ), 2 ); }

std::string onOneLine( std::string_view text ) { return dumped( parsed( text ) ); }

} // namespace Maintctl
