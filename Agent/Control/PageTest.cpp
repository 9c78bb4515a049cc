#include "Agent/Control/Page.h"
#include "Agent/Control/ControlApiRigTest.h"

namespace Agent {

namespace {

class PageTest : public ControlApiRig {
 protected:
   static HttpReply get( const std::string & acceptEncoding = "", const std::string & ifNoneMatch = "" ) {
      HttpRequest request;
      request.headers = { { "accept-encoding", acceptEncoding }, { "if-none-match", ifNoneMatch } };
      return pageReply( *pageFile( "/" ), request );
   }
};

TEST_F( PageTest, isServedAtTheRootAndByNamesOfFiles ) {
   local = false;
   EXPECT_EQ( 200, ask( "GET", "/" ) );
   EXPECT_EQ( "text/html; charset=utf-8", reply.contentType );
   EXPECT_EQ( 0u, reply.body.find( "<!doctype html>" ) );
   for ( const PageFile & file : pageFiles() ) {
      EXPECT_EQ( 200, ask( "GET", std::string( file.path ) ) ) << file.path;
      EXPECT_EQ( file.plain, reply.body );
   }
}

TEST_F( PageTest, isOnlyRead ) {
   EXPECT_EQ( 405, ask( "POST", "/" ) );
   EXPECT_EQ( "GET, HEAD", reply.allow );
}

TEST_F( PageTest, isNothingElse ) {
   EXPECT_EQ( 404, ask( "GET", "/no-such-file" ) );
   EXPECT_EQ( 404, ask( "GET", "//" ) );
   EXPECT_EQ( 404, ask( "GET", "/api/v1" ) );
   EXPECT_EQ( 404, ask( "GET", "/api/v1/page.js" ) );
   EXPECT_EQ( nullptr, pageFile( "/../page.js" ) );
}

TEST_F( PageTest, letsTheBrowserLoadNothingFromElsewhere ) {
   const auto headers = get().headers;
   EXPECT_EQ(
      0u, headers.at( "Content-Security-Policy" )
             .find( "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
                    "img-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'" ) );
   EXPECT_EQ( "no-referrer", headers.at( "Referrer-Policy" ) );
}

TEST_F( PageTest, isCompressedForWhoeverCanReadIt ) {
   for ( const char * accepted : { "gzip", "deflate, gzip, br", "br;q=1.0,\tgzip;q=0.8", "*" } ) {
      SCOPED_TRACE( accepted );
      const HttpReply reply = get( accepted );
      EXPECT_EQ( "gzip", reply.headers.at( "Content-Encoding" ) );
      EXPECT_EQ( pageFile( "/" )->gzip, reply.body );
      EXPECT_EQ( "\x1f\x8b", reply.body.substr( 0, 2 ) );
   }
   for ( const char * accepted : { "", "br", "gzip;q=0", "gzip; q=0.0", "xgzip", "identity, deflate" } ) {
      SCOPED_TRACE( accepted );
      const HttpReply reply = get( accepted );
      EXPECT_EQ( 0u, reply.headers.count( "Content-Encoding" ) );
      EXPECT_EQ( pageFile( "/" )->plain, reply.body );
   }
   EXPECT_EQ( "Accept-Encoding", get().headers.at( "Vary" ) );
}

TEST_F( PageTest, isNotSentAgainToWhoeverHasIt ) {
   const std::string tag = get().headers.at( "ETag" ), gzipTag = get( "gzip" ).headers.at( "ETag" );
   EXPECT_NE( tag, gzipTag );
   EXPECT_EQ( "no-cache", get().cacheControl );
   EXPECT_EQ( 304, get( "", tag ).status );
   EXPECT_EQ( "", get( "", tag ).body );
   EXPECT_EQ( tag, get( "", tag ).headers.at( "ETag" ) );
   EXPECT_EQ( 304, get( "gzip", "\"old\", W/" + gzipTag ).status );
   EXPECT_EQ( 304, get( "", "*" ).status );
   EXPECT_EQ( 200, get( "gzip", tag ).status );
   EXPECT_EQ( 200, get( "", "\"old\"" ).status );
}

TEST_F( PageTest, hasATagForEachContent ) {
   std::set< std::string_view > tags;
   for ( const PageFile & file : pageFiles() )
      EXPECT_TRUE( tags.insert( file.tag ).second ) << file.path;
}

// Half of it is the library that draws the curves; an operator on a thin line out of band waits for every byte.
TEST_F( PageTest, isUnder60kBCompressed ) {
   std::size_t size = 0;
   for ( const PageFile & file : pageFiles() )
      size += file.gzip.size();
   EXPECT_LT( size, 60000u );
   EXPECT_GT( size, 1000u );
}

} // namespace

} // namespace Agent
