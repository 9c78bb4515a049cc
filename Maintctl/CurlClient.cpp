#include "Maintctl/CurlClient.h"

#include "Maintctl/Failure.h"
#include "Maintctl/Reaching.h"

#include <curl/curl.h>

#include <exception>
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

/// The host is of no account on a local socket.
const std::string host = "http://localhost";

/// An answer that goes on.
struct Stream {
   CURL * easy;
   const std::function< void( std::string_view ) > & taken;
   Reply reply;
   std::exception_ptr thrown;
};

std::size_t handOn( const char * data, std::size_t, std::size_t size, void * into ) {
   auto & stream = *static_cast< Stream * >( into );
   long status = 0;
   curl_easy_getinfo( stream.easy, CURLINFO_RESPONSE_CODE, &status );
   if ( status < 200 || status > 299 )
      return take( data, 1, size, &stream.reply.body );
   try {
      stream.taken( { data, size } );
      return size;
   } catch ( ... ) {
      // It must not pass through the library, which is C.
      stream.thrown = std::current_exception();
      return 0;
   }
}

/// 0: none.
int systemError( CURL * easy ) {
   long number = 0;
   curl_easy_getinfo( easy, CURLINFO_OS_ERRNO, &number );
   return static_cast< int >( number );
}

/// What went wrong with a connection, in the words of the system if it has any: those of curl speak of hosts and ports.
std::string reasonOf( CURL * easy, CURLcode result, unsigned seconds ) {
   const int number = systemError( easy );
   if ( result == CURLE_COULDNT_CONNECT && number != 0 )
      return std::generic_category().message( number );
   if ( result == CURLE_PARTIAL_FILE )
      return "it went away in the middle of an answer";
   if ( result == CURLE_OPERATION_TIMEDOUT )
      return "no answer within " + std::to_string( seconds ) + "s";
   if ( result == CURLE_GOT_NOTHING || result == CURLE_RECV_ERROR || result == CURLE_SEND_ERROR )
      return "it went away without an answer";
   return curl_easy_strerror( result );
}

} // namespace

/// What goes on while we wait for an answer.
struct CurlClient::Wait {
   const std::function< bool() > & interrupted;
   const std::function< void() > & meanwhile; ///< may be empty
   unsigned seconds;                          ///< at most

   static int goesOn( void * self, curl_off_t, curl_off_t, curl_off_t, curl_off_t ) noexcept {
      const Wait & wait = *static_cast< const Wait * >( self );
      if ( wait.meanwhile )
         wait.meanwhile();
      return wait.interrupted() ? 1 : 0;
   }
};

struct CurlClient::HeaderList {
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

void CurlClient::prepare( const std::string & url, HeaderList & headers, Wait & wait ) {
   CURL * easy = handle_->easy;
   if ( !easy )
      throw Failure{ ExitStatus::failed, FailureCode::failed, "libcurl cannot be used", "", {} };
   curl_easy_reset( easy ); // keeps the connection
   // Without "Expect" an agent that is being stopped cannot leave us waiting for permission to send.
   headers.add( "Expect:" );
   curl_easy_setopt( easy, CURLOPT_URL, url.c_str() );
   curl_easy_setopt( easy, CURLOPT_PATH_AS_IS, 1L );
   curl_easy_setopt( easy, CURLOPT_UNIX_SOCKET_PATH, socket_.c_str() );
   curl_easy_setopt( easy, CURLOPT_PROXY, "" );
   curl_easy_setopt( easy, CURLOPT_PROTOCOLS_STR, "http" );
   curl_easy_setopt( easy, CURLOPT_NOSIGNAL, 1L );
   curl_easy_setopt( easy, CURLOPT_BUFFERSIZE, 256L * 1024 ); // a large answer in few pieces
   curl_easy_setopt( easy, CURLOPT_NOPROGRESS, 0L );
   curl_easy_setopt( easy, CURLOPT_XFERINFOFUNCTION, Wait::goesOn );
   curl_easy_setopt( easy, CURLOPT_XFERINFODATA, &wait );
}

int CurlClient::perform( HeaderList & headers, const Wait & wait ) {
   CURL * easy = handle_->easy;
   curl_easy_setopt( easy, CURLOPT_HTTPHEADER, headers.list );
   const CURLcode result = curl_easy_perform( easy );
   if ( result == CURLE_ABORTED_BY_CALLBACK || ( result != CURLE_OK && interrupted_() ) )
      throw Failure{ ExitStatus::interrupted, FailureCode::interrupted, "interrupted", "", {} };
   if ( result != CURLE_OK ) {
      Failure failure{
         ExitStatus::notReachable,
         FailureCode::notReachable,
         "the agent cannot be reached: " + reasonOf( easy, result, wait.seconds ),
         socket_,
         {} };
      if ( result == CURLE_COULDNT_CONNECT )
         failure.hint = reachingHint( systemError( easy ), socket_ );
      throw failure;
   }
   long status = 0;
   curl_easy_getinfo( easy, CURLINFO_RESPONSE_CODE, &status );
   return static_cast< int >( status );
}

Reply CurlClient::send( const Request & request ) {
   Reply reply;
   HeaderList headers;
   const std::string url = host + request.path;
   Wait wait{ interrupted_, request.meanwhile, request.seconds };
   prepare( url, headers, wait );
   CURL * easy = handle_->easy;
   curl_easy_setopt( easy, CURLOPT_TIMEOUT, static_cast< long >( wait.seconds ) );
   curl_easy_setopt( easy, CURLOPT_WRITEFUNCTION, take );
   curl_easy_setopt( easy, CURLOPT_WRITEDATA, &reply.body );
   if ( request.method == Request::Method::post ) {
      headers.add( "Content-Type: application/json" );
      curl_easy_setopt( easy, CURLOPT_POST, 1L );
      curl_easy_setopt( easy, CURLOPT_POSTFIELDS, request.body.c_str() );
      curl_easy_setopt( easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast< curl_off_t >( request.body.size() ) );
   }
   reply.status = perform( headers, wait );
   return reply;
}

Reply CurlClient::stream(
   const std::string & path, const std::function< void( std::string_view bytes ) > & taken ) {
   HeaderList headers;
   const std::string url = host + path;
   const std::function< void() > nothing;
   Wait wait{ interrupted_, nothing, silence };
   prepare( url, headers, wait );
   Stream stream{ handle_->easy, taken, {}, nullptr };
   curl_easy_setopt( handle_->easy, CURLOPT_LOW_SPEED_LIMIT, 1L );
   curl_easy_setopt( handle_->easy, CURLOPT_LOW_SPEED_TIME, static_cast< long >( silence ) );
   curl_easy_setopt( handle_->easy, CURLOPT_WRITEFUNCTION, handOn );
   curl_easy_setopt( handle_->easy, CURLOPT_WRITEDATA, &stream );
   try {
      stream.reply.status = perform( headers, wait );
   } catch ( const Failure & ) {
      // What was thrown in the middle of it is why it has ended.
      if ( stream.thrown )
         std::rethrow_exception( stream.thrown );
      throw;
   }
   return stream.reply;
}

} // namespace Maintctl
