#include "Maintctl/CurlClient.h"

#include "Maintctl/Failure.h"

#include <curl/curl.h>

#include <system_error>

namespace Maintctl {

namespace {

/// More than any answer of an agent; a runaway one must not take all memory.
constexpr std::size_t maxAnswer = std::size_t( 256 ) << 20;

std::size_t take( const char * data, std::size_t, std::size_t size, void * into ) {
   auto & body = *static_cast< std::string * >( into );
   if ( body.size() + size > maxAnswer )
      return 0;
   body.append( data, size );
   return size;
}

int giveUp( void * interrupted, curl_off_t, curl_off_t, curl_off_t, curl_off_t ) {
   return ( *static_cast< std::function< bool() > * >( interrupted ) )() ? 1 : 0;
}

struct HeaderList {
   curl_slist * list = nullptr;
   HeaderList() = default;
   HeaderList( const HeaderList & ) = delete;
   HeaderList & operator=( const HeaderList & ) = delete;
   ~HeaderList() { curl_slist_free_all( list ); }
   void add( const char * line ) {
      if ( curl_slist * longer = curl_slist_append( list, line ) )
         list = longer;
   }
};

/// What went wrong with a connection, in the words of the system if it has any: those of curl speak of hosts and ports.
std::string reasonOf( CURL * easy, CURLcode result ) {
   long number = 0;
   curl_easy_getinfo( easy, CURLINFO_OS_ERRNO, &number );
   if ( result == CURLE_COULDNT_CONNECT && number != 0 )
      return std::generic_category().message( static_cast< int >( number ) );
   if ( result == CURLE_OPERATION_TIMEDOUT )
      return "no answer within " + std::to_string( CurlClient::answerTimeout ) + "s";
   if ( result == CURLE_GOT_NOTHING || result == CURLE_RECV_ERROR || result == CURLE_SEND_ERROR )
      return "it went away without an answer";
   return curl_easy_strerror( result );
}

} // namespace

struct CurlClient::Handle {
   CURL * easy = curl_easy_init();
   Handle() = default;
   Handle( const Handle & ) = delete;
   Handle & operator=( const Handle & ) = delete;
   ~Handle() { curl_easy_cleanup( easy ); }
};

CurlClient::CurlClient( std::string socket, std::function< bool() > interrupted )
   : socket_( std::move( socket ) ),
     interrupted_( std::move( interrupted ) ),
     handle_( std::make_unique< Handle >() ) {}

CurlClient::~CurlClient() = default;

Reply CurlClient::send( const Request & request ) {
   CURL * easy = handle_->easy;
   if ( !easy )
      throw Failure{ ExitStatus::failed, FailureCode::failed, "libcurl cannot be used", "", {} };
   curl_easy_reset( easy ); // keeps the connection
   Reply reply;
   HeaderList headers;
   // Without "Expect" an agent that is being stopped cannot leave us waiting for permission to send.
   headers.add( "Expect:" );
   // The host is of no account on a local socket.
   const std::string url = "http://localhost" + request.path;
   curl_easy_setopt( easy, CURLOPT_URL, url.c_str() );
   curl_easy_setopt( easy, CURLOPT_PATH_AS_IS, 1L );
   curl_easy_setopt( easy, CURLOPT_UNIX_SOCKET_PATH, socket_.c_str() );
   curl_easy_setopt( easy, CURLOPT_PROXY, "" );
   curl_easy_setopt( easy, CURLOPT_PROTOCOLS_STR, "http" );
   curl_easy_setopt( easy, CURLOPT_NOSIGNAL, 1L );
   curl_easy_setopt( easy, CURLOPT_TIMEOUT, answerTimeout );
   curl_easy_setopt( easy, CURLOPT_WRITEFUNCTION, take );
   curl_easy_setopt( easy, CURLOPT_WRITEDATA, &reply.body );
   curl_easy_setopt( easy, CURLOPT_NOPROGRESS, 0L );
   curl_easy_setopt( easy, CURLOPT_XFERINFOFUNCTION, giveUp );
   curl_easy_setopt( easy, CURLOPT_XFERINFODATA, &interrupted_ );
   if ( request.method == Request::Method::post ) {
      headers.add( "Content-Type: application/json" );
      curl_easy_setopt( easy, CURLOPT_POST, 1L );
      curl_easy_setopt( easy, CURLOPT_POSTFIELDS, request.body.c_str() );
      curl_easy_setopt( easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast< curl_off_t >( request.body.size() ) );
   }
   curl_easy_setopt( easy, CURLOPT_HTTPHEADER, headers.list );

   const CURLcode result = curl_easy_perform( easy );
   if ( result == CURLE_ABORTED_BY_CALLBACK || ( result != CURLE_OK && interrupted_() ) )
      throw Failure{ ExitStatus::interrupted, FailureCode::interrupted, "interrupted", "", {} };
   if ( result != CURLE_OK )
      throw Failure{
         ExitStatus::notReachable,
         FailureCode::notReachable,
         "the agent cannot be reached: " + reasonOf( easy, result ),
         socket_,
         {} };
   long status = 0;
   curl_easy_getinfo( easy, CURLINFO_RESPONSE_CODE, &status );
   reply.status = static_cast< int >( status );
   return reply;
}

} // namespace Maintctl
