#include "Maintctl/CurlClient.h"

#include "Maintctl/Failure.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace Maintctl {

namespace {

/// A local socket on which each connection gets the same bytes, after its request has come.
class Server {
 public:
   /// \param answer  empty: the connection is closed without one
   Server( const std::string & path, std::string answer, unsigned connections )
      : answer_( std::move( answer ) ) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy( address.sun_path, sizeof address.sun_path - 1 );
      listener_ = socket( AF_UNIX, SOCK_STREAM, 0 );
      EXPECT_EQ( bind( listener_, reinterpret_cast< sockaddr * >( &address ), sizeof address ), 0 );
      EXPECT_EQ( listen( listener_, 1 ), 0 );
      thread_ = std::thread( [this, connections] {
         for ( unsigned i = 0; i < connections; ++i )
            serve( accept( listener_, nullptr, nullptr ) );
      } );
   }
   ~Server() {
      finish();
      close( listener_ );
   }
   Server( const Server & ) = delete;
   Server & operator=( const Server & ) = delete;

   /// Waits for all connections; gives what they sent.
   std::string finish() {
      if ( thread_.joinable() )
         thread_.join();
      return received_;
   }

 private:
   void serve( int connection ) {
      std::string request;
      char buffer[1024];
      // Requests of these tests have no body, or one that ends with a brace.
      while ( !request.ends_with( "\r\n\r\n" ) || request.find( "POST" ) == 0 ) {
         const ssize_t got = recv( connection, buffer, sizeof buffer, 0 );
         if ( got <= 0 )
            break;
         request.append( buffer, static_cast< std::size_t >( got ) );
         if ( request.ends_with( "}" ) )
            break;
      }
      received_ += request;
      if ( !answer_.empty() )
         send( connection, answer_.data(), answer_.size(), MSG_NOSIGNAL );
      close( connection );
   }

   std::string answer_, received_;
   int listener_;
   std::thread thread_;
};

class CurlClientTest : public testing::Test {
 protected:
   void SetUp() override {
      std::string name = ( std::filesystem::temp_directory_path() / "maintctl-XXXXXX" ).string();
      ASSERT_NE( mkdtemp( name.data() ), nullptr );
      folder = name;
      path = folder + "/control.sock";
   }
   void TearDown() override { std::filesystem::remove_all( folder ); }

   Failure failureOf( Client & client ) {
      try {
         client.send( { Request::Method::get, "/api/v1/units", "" } );
      } catch ( const Failure & failure ) {
         return failure;
      }
      ADD_FAILURE() << "there was an answer";
      return {};
   }

   std::string folder, path;
   bool interrupted = false;
   std::function< bool() > isInterrupted = [this] { return interrupted; };
};

constexpr char refusal[] = "HTTP/1.1 404 Not Found\r\nContent-Length: 5\r\nConnection: close\r\n\r\nhello";

TEST_F( CurlClientTest, asksAndGivesTheAnswerWhateverItsStatus ) {
   Server server( path, refusal, 1 );
   CurlClient client( path, isInterrupted );
   const Reply reply = client.send( { Request::Method::get, "/api/v1/units/../a%2Fb", "" } );
   EXPECT_EQ( reply.status, 404 );
   EXPECT_EQ( reply.body, "hello" );
   EXPECT_TRUE( server.finish().starts_with( "GET /api/v1/units/../a%2Fb HTTP/1.1\r\n" ) ) << server.finish();
}

TEST_F( CurlClientTest, sendsABodyAsJson ) {
   Server server( path, "HTTP/1.1 202 Accepted\r\nContent-Length: 0\r\nConnection: close\r\n\r\n", 1 );
   CurlClient client( path, isInterrupted );
   EXPECT_EQ( client.send( { Request::Method::post, "/api/v1/reload", R"({"a":1})" } ).status, 202 );
   const std::string request = server.finish();
   EXPECT_TRUE( request.starts_with( "POST /api/v1/reload HTTP/1.1\r\n" ) ) << request;
   EXPECT_NE( request.find( "Content-Type: application/json\r\n" ), std::string::npos );
   EXPECT_EQ( request.find( "Expect" ), std::string::npos );
   EXPECT_TRUE( request.ends_with( "\r\n\r\n{\"a\":1}" ) ) << request;
}

TEST_F( CurlClientTest, connectsAnewAfterAPost ) {
   Server server( path, refusal, 2 );
   CurlClient client( path, isInterrupted );
   client.send( { Request::Method::post, "/one", "{}" } );
   client.send( { Request::Method::get, "/two", "" } );
   EXPECT_NE( server.finish().find( "GET /two " ), std::string::npos );
}

TEST_F( CurlClientTest, saysThatThereIsNoSocket ) {
   CurlClient client( path, isInterrupted );
   const Failure failure = failureOf( client );
   EXPECT_EQ( failure.status, ExitStatus::notReachable );
   EXPECT_EQ( failure.code, "not-reachable" );
   EXPECT_EQ( failure.message, "the agent cannot be reached: No such file or directory" );
   EXPECT_EQ( failure.hint, "is maintd running? --socket names another socket" );
   EXPECT_EQ( failure.where, path );
}

TEST_F( CurlClientTest, saysThatNobodyListens ) {
   std::ofstream( path ) << "no socket";
   CurlClient client( path, isInterrupted );
   EXPECT_EQ( failureOf( client ).message, "the agent cannot be reached: Connection refused" );
}

TEST_F( CurlClientTest, saysThatThePathIsTooLong ) {
   CurlClient client( "/" + std::string( 200, 'x' ), isInterrupted );
   EXPECT_EQ( failureOf( client ).status, ExitStatus::notReachable );
}

TEST_F( CurlClientTest, saysThatTheAgentWentAwayWithoutAnAnswer ) {
   Server server( path, "", 1 );
   CurlClient client( path, isInterrupted );
   const Failure failure = failureOf( client );
   EXPECT_EQ( failure.status, ExitStatus::notReachable );
   EXPECT_EQ( failure.message, "the agent cannot be reached: it went away without an answer" );
}

TEST_F( CurlClientTest, doesWhatItIsToldUntilTheAgentHasHadItsTime ) {
   // Nobody answers who has one connection already.
   Server server( path, refusal, 1 );
   CurlClient client( path, isInterrupted );
   client.send( { Request::Method::get, "/", "" } );
   unsigned done = 0;
   Request request{ Request::Method::get, "/", "", 1, [&] { ++done; } };
   try {
      client.send( request );
      ADD_FAILURE() << "there is an answer";
   } catch ( const Failure & failure ) {
      EXPECT_EQ( failure.status, ExitStatus::notReachable );
      EXPECT_EQ( failure.message, "the agent cannot be reached: no answer within 1s" );
   }
   EXPECT_GT( done, 0 );
}

TEST_F( CurlClientTest, saysThatAnAnswerWasCutOff ) {
   Server server( path, "HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\nhalf", 1 );
   CurlClient client( path, isInterrupted );
   EXPECT_EQ( failureOf( client ).status, ExitStatus::notReachable );
}

// ---- answers that go on

TEST_F( CurlClientTest, handsOnAnAnswerThatGoesOnAsItComes ) {
   Server server(
      path, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\none\r\n4\r\n two\r\n0\r\n\r\n", 1 );
   CurlClient client( path, isInterrupted );
   std::string got;
   EXPECT_EQ( client.stream( "/stream?x=1", [&]( std::string_view bytes ) { got += bytes; } ).status, 200 );
   EXPECT_EQ( got, "one two" );
   EXPECT_TRUE( server.finish().starts_with( "GET /stream?x=1 HTTP/1.1\r\n" ) );
}

TEST_F( CurlClientTest, saysThatAnAnswerThatGoesOnHasBroken ) {
   Server server( path, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\none\r\n", 1 );
   CurlClient client( path, isInterrupted );
   std::string got;
   try {
      client.stream( "/stream", [&]( std::string_view bytes ) { got += bytes; } );
      ADD_FAILURE() << "it has not broken";
   } catch ( const Failure & failure ) {
      EXPECT_EQ( failure.status, ExitStatus::notReachable );
   }
   EXPECT_EQ( got, "one" );
}

TEST_F( CurlClientTest, givesTheRefusalOfAnAnswerThatWouldGoOn ) {
   Server server( path, refusal, 1 );
   CurlClient client( path, isInterrupted );
   const Reply reply = client.stream( "/stream", []( std::string_view ) { FAIL(); } );
   EXPECT_EQ( reply.status, 404 );
   EXPECT_EQ( reply.body, "hello" );
}

TEST_F( CurlClientTest, letsOutWhatIsThrownInTheMiddleOfAnAnswer ) {
   Server server( path, "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nConnection: close\r\n\r\nhello", 1 );
   CurlClient client( path, isInterrupted );
   EXPECT_THROW(
      client.stream( "/stream", []( std::string_view ) { throw std::runtime_error( "no more" ); } ),
      std::runtime_error );
}

TEST_F( CurlClientTest, endsAnAnswerThatGoesOnWhenInterrupted ) {
   Server server( path, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\none\r\n", 1 );
   CurlClient client( path, isInterrupted );
   try {
      client.stream( "/stream", [&]( std::string_view ) { interrupted = true; } );
      ADD_FAILURE() << "it has not ended";
   } catch ( const Failure & failure ) {
      EXPECT_EQ( failure.status, ExitStatus::interrupted );
   }
}

TEST_F( CurlClientTest, endsWhenInterrupted ) {
   Server server( path, refusal, 1 );
   interrupted = true;
   CurlClient client( path, isInterrupted );
   EXPECT_EQ( failureOf( client ).status, ExitStatus::interrupted );
   // The server still waits for its connection.
   interrupted = false;
   client.send( { Request::Method::get, "/", "" } );
}

} // namespace
} // namespace Maintctl
