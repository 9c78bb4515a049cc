#include <curl/curl.h>

#include <cstdio>

/// The smallest program that asks the agent with the library that maintctl asks with: what starting a process, loading
/// that library and the agent's answer cost in any case.
/// CurlFloor SOCKET PATH; prints the size of the answer.
namespace {

std::size_t count( const char *, std::size_t, std::size_t size, void * sum ) {
   *static_cast< std::size_t * >( sum ) += size;
   return size;
}

} // namespace

int main( int argc, char ** argv ) {
   CURL * const easy = argc == 3 ? curl_easy_init() : nullptr;
   if ( !easy )
      return 1;
   char url[1024];
   std::snprintf( url, sizeof url, "http://localhost%s", argv[2] );
   std::size_t size = 0;
   curl_easy_setopt( easy, CURLOPT_URL, url );
   curl_easy_setopt( easy, CURLOPT_UNIX_SOCKET_PATH, argv[1] );
   curl_easy_setopt( easy, CURLOPT_PROXY, "" );
   curl_easy_setopt( easy, CURLOPT_FAILONERROR, 1L );
   curl_easy_setopt( easy, CURLOPT_WRITEFUNCTION, count );
   curl_easy_setopt( easy, CURLOPT_WRITEDATA, &size );
   const CURLcode result = curl_easy_perform( easy );
   curl_easy_cleanup( easy );
   std::printf( "%zu\n", size );
   return result == CURLE_OK ? 0 : 1;
}
