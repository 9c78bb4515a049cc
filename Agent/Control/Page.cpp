#include "Agent/Control/Page.h"

#include <algorithm>
#include <cstdlib>

namespace Agent {

namespace {

constexpr const char * policy =
   "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self'; "
   "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
   // No text becomes a part of the page but as text.
   "require-trusted-types-for 'script'; trusted-types 'none'";

std::string_view headerOf( const HttpRequest & request, const char * name ) {
   const auto it = request.headers.find( name );
   return it == request.headers.end() ? std::string_view() : it->second;
}

std::string_view trimmed( std::string_view text ) {
   const std::size_t begin = text.find_first_not_of( " \t" );
   if ( begin == std::string_view::npos )
      return {};
   return text.substr( begin, text.find_last_not_of( " \t" ) - begin + 1 );
}

/// Whether one of the parts that commas separate is as wanted.
template < class Wanted >
bool anyPart( std::string_view list, Wanted wanted ) {
   for ( std::size_t begin = 0; begin <= list.size(); ) {
      const std::size_t end = std::min( list.find( ',', begin ), list.size() );
      if ( wanted( trimmed( list.substr( begin, end - begin ) ) ) )
         return true;
      begin = end + 1;
   }
   return false;
}

/// "gzip", "*" or one of them with a quality above 0: "gzip;q=0.5".
bool isGzip( std::string_view coding ) {
   const std::size_t end = std::min( coding.find( ';' ), coding.size() );
   const std::string_view name = trimmed( coding.substr( 0, end ) );
   if ( name != "gzip" && name != "*" )
      return false;
   const std::size_t quality = coding.find( "q=", end );
   return quality == std::string_view::npos ||
          std::strtod( std::string( coding.substr( quality + 2 ) ).c_str(), nullptr ) > 0;
}

/// A tag that a proxy has weakened still says the same of the content.
bool isTag( std::string_view given, const std::string & tag ) {
   if ( given.substr( 0, 2 ) == "W/" )
      given.remove_prefix( 2 );
   return given == tag || given == "*";
}

} // namespace

const PageFile * pageFile( std::string_view path ) {
   const auto files = pageFiles();
   const auto it =
      std::find_if( files.begin(), files.end(), [&]( const PageFile & file ) { return file.path == path; } );
   return it == files.end() ? nullptr : &*it;
}

HttpReply pageReply( const PageFile & file, const HttpRequest & request ) {
   const bool gzip = anyPart( headerOf( request, "accept-encoding" ), isGzip );
   // The two forms of a file are different bytes, so they have different tags.
   const std::string tag = "\"" + std::string( file.tag ) + ( gzip ? "-gzip" : "" ) + "\"";
   HttpReply reply;
   reply.contentType = file.contentType;
   // It is kept and asked for each time whether it is still good: after an upgrade of the agent nobody sees an old one.
   reply.cacheControl = "no-cache";
   reply.headers = {
      { "Content-Security-Policy", policy },
      { "Referrer-Policy", "no-referrer" },
      { "Cross-Origin-Resource-Policy", "same-origin" },
      { "ETag", tag },
      { "Vary", "Accept-Encoding" } };
   const auto same = [&]( std::string_view given ) { return isTag( given, tag ); };
   if ( anyPart( headerOf( request, "if-none-match" ), same ) ) {
      reply.status = 304;
      return reply;
   }
   if ( gzip )
      reply.headers["Content-Encoding"] = "gzip";
   reply.body = gzip ? file.gzip : file.plain;
   return reply;
}

} // namespace Agent
