#include <curl/curl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string>

/// Posts what it reads from its standard input to MAINTD_URL, once. 0: the server has taken it (2xx); 1: it has not, and
/// why stands on the standard error, in one line. The agent runs it for hooks that have a URL: so the agent itself
/// needs no HTTP client, and nothing that a server does can hold it up. The URL is not an argument: those are for
/// everybody on the machine to see, and it may hold a password. Knows no limit of time; whoever runs it ends it.
namespace {

/// Bytes of the answer that are looked at.
constexpr std::size_t mostOfAnswer = 200;

std::size_t takeAnswer( char * bytes, std::size_t size, std::size_t count, void * answer ) {
   auto & text = *static_cast< std::string * >( answer );
   const std::size_t all = size * count;
   text.append( bytes, std::min( all, mostOfAnswer - text.size() ) );
   return all;
}

int fail( const std::string & why ) {
   std::fprintf( stderr, "%s\n", why.c_str() );
   return 1;
}

/// The URL as the library takes it: the user and the password end with the last "@" before the host, and not with the first
/// one, which a password may hold.
std::string withoutFurtherAts( std::string url ) {
   const std::size_t scheme = url.find( "://" );
   const std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
   const std::size_t host = url.substr( 0, url.find_first_of( "/?#", begin ) ).rfind( '@' );
   for ( std::size_t at = host; at != std::string::npos && at-- > begin; )
      if ( url[at] == '@' )
         url.replace( at, 1, "%40" );
   return url;
}

/// The first line, for people.
std::string firstLine( const std::string & answer ) {
   const std::string line = answer.substr( 0, answer.find_first_of( "\r\n" ) );
   return line.empty() ? "" : ": " + line;
}

int post( CURL * curl, const std::string & url, const std::string & body ) {
   char error[CURL_ERROR_SIZE] = "";
   std::string answer;
   curl_slist * headers = curl_slist_append( nullptr, "Content-Type: application/json" );
   // The body is small: nobody need be asked whether it may come.
   headers = curl_slist_append( headers, "Expect:" );
   curl_easy_setopt( curl, CURLOPT_ERRORBUFFER, error );
   curl_easy_setopt( curl, CURLOPT_URL, url.c_str() );
   curl_easy_setopt( curl, CURLOPT_PROTOCOLS_STR, "http,https" );
   curl_easy_setopt( curl, CURLOPT_NOSIGNAL, 1L );
   curl_easy_setopt( curl, CURLOPT_USERAGENT, "maintd/" MAINT_VERSION );
   curl_easy_setopt( curl, CURLOPT_HTTPHEADER, headers );
   curl_easy_setopt( curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast< curl_off_t >( body.size() ) );
   curl_easy_setopt( curl, CURLOPT_POSTFIELDS, body.data() );
   curl_easy_setopt( curl, CURLOPT_WRITEFUNCTION, takeAnswer );
   curl_easy_setopt( curl, CURLOPT_WRITEDATA, &answer );
   const CURLcode code = curl_easy_perform( curl );
   long status = 0;
   curl_easy_getinfo( curl, CURLINFO_RESPONSE_CODE, &status );
   curl_slist_free_all( headers );
   if ( code != CURLE_OK )
      return fail( *error ? error : curl_easy_strerror( code ) );
   if ( status < 200 || status > 299 )
      return fail( "the server answers " + std::to_string( status ) + firstLine( answer ) );
   return 0;
}

} // namespace

int main() {
   const char * const url = std::getenv( "MAINTD_URL" );
   if ( !url || !*url )
      return fail( "MAINTD_URL is not set; this is run by maintd for its hooks" );
   const std::string body( std::istreambuf_iterator< char >( std::cin ), {} );
   CURL * const curl = curl_global_init( CURL_GLOBAL_DEFAULT ) == CURLE_OK ? curl_easy_init() : nullptr;
   if ( !curl )
      return fail( "there is no HTTP client" );
   const int status = post( curl, withoutFurtherAts( url ), body );
   curl_easy_cleanup( curl );
   curl_global_cleanup();
   return status;
}
