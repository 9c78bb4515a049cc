#include "Api/Names.h"

namespace Api {

std::string escaped( std::string_view text ) {
   constexpr char digits[] = "0123456789ABCDEF";
   std::string result;
   for ( const char c : text ) {
      const bool plain = ( c >= 'a' && c <= 'z' ) || ( c >= 'A' && c <= 'Z' ) || ( c >= '0' && c <= '9' ) ||
                         c == '-' || c == '.' || c == '_' || c == '~';
      if ( plain ) {
         result += c;
      } else {
         const auto byte = static_cast< unsigned char >( c );
         result += '%';
         result += digits[byte >> 4];
         result += digits[byte & 15];
      }
   }
   return result;
}

namespace Path {

std::string unit( std::string_view name ) { return std::string( units ) + "/" + escaped( name ); }

std::string unit( std::string_view name, std::string_view operation ) {
   return unit( name ) + "/" + std::string( operation );
}

std::string interface( std::string_view name ) { return std::string( interfaces ) + "/" + escaped( name ); }

std::string interfaceRelease( std::string_view name ) { return interface( name ) + "/release"; }

std::string planOf( std::string_view name, std::string_view session ) {
   return unit( name, "plan" ) + ( session.empty() ? "" : "?session=" + escaped( session ) );
}

std::string interfacesOf( std::string_view unit ) {
   return std::string( interfaces ) + "?unit=" + escaped( unit );
}

std::string withFields( const std::string & interfaces, std::string_view fields ) {
   return interfaces + ( interfaces.find( '?' ) == std::string::npos ? "?" : "&" ) +
          "fields=" + std::string( fields );
}

std::string samplesOf( const std::vector< std::string > & names, unsigned lastSeconds ) {
   std::string path = std::string( root ) + "/samples?last=" + std::to_string( lastSeconds );
   for ( const std::string & name : names )
      path += "&interface=" + escaped( name );
   return path;
}

std::string historyOf( std::string_view unit, std::uint64_t limit ) {
   return std::string( history ) + "?limit=" + std::to_string( limit ) +
          ( unit.empty() ? "" : "&unit=" + escaped( unit ) );
}

std::string operationsOf( std::string_view unit, std::string_view state, std::uint64_t limit ) {
   return std::string( operations ) + "?limit=" + std::to_string( limit ) +
          ( unit.empty() ? "" : "&unit=" + escaped( unit ) ) +
          ( state.empty() ? "" : "&state=" + escaped( state ) );
}

std::string operation( std::uint64_t id ) { return std::string( operations ) + "/" + std::to_string( id ); }

std::string historyRecord( std::uint64_t id ) { return std::string( history ) + "/" + std::to_string( id ); }

} // namespace Path
} // namespace Api
