#include "Agent/Control/HttpServer.h"

#include "Platform/Cog/RealTime.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <unistd.h>
#include <vector>

namespace Agent {

namespace {

/// One connection of somebody who asks. Reads whatever comes, unless told not to.
class Client {
 public:
   Client( Cog::EventLoop & loop, const sockaddr * address, socklen_t size ) : loop_( loop ) {
      descriptor_ = socket( address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0 );
      EXPECT_EQ( 0, connect( descriptor_, address, size ) ) << strerror( errno );
      loop_.descriptorIs( descriptor_, Cog::EventLoop::readable, [this]( Vel::U32 ) { read(); } );
   }
   ~Client() { close(); }
   Client( const Client & ) = delete;
   Client & operator=( const Client & ) = delete;

   /// Queues it; as much as the socket takes goes at once, the rest when there is room.
   void send( const std::string & text ) {
      toSend_ += text;
      write();
   }
   void close() {
      if ( descriptor_ < 0 )
         return;
      loop_.descriptorDel( descriptor_ );
      ::close( descriptor_ );
      descriptor_ = -1;
   }
   void readingIs( bool reading ) {
      reading_ = reading;
      interestIs();
   }
   /// The other side has ended the connection.
   bool ended() const { return ended_; }
   const std::string & received() const { return received_; }

   /// Status lines of the answers that have come in full.
   std::vector< std::string > statuses() const {
      std::vector< std::string > result;
      walk( [&]( const std::string & head, const std::string & ) {
         result.push_back( head.substr( 0, head.find( "\r\n" ) ) );
      } );
      return result;
   }
   std::vector< std::string > bodies() const {
      std::vector< std::string > result;
      walk( [&]( const std::string &, const std::string & body ) { result.push_back( body ); } );
      return result;
   }

 private:
   template < class Call >
   void walk( Call call ) const {
      for ( std::size_t at = 0;; ) {
         const std::size_t end = received_.find( "\r\n\r\n", at );
         if ( end == std::string::npos )
            return;
         const std::string head = received_.substr( at, end - at );
         const std::string key = "Content-Length: ";
         const std::size_t length = head.find( key );
         const std::size_t size =
            length == std::string::npos ? 0 : std::stoul( head.substr( length + key.size() ) );
         if ( received_.size() < end + 4 + size )
            return;
         call( head, received_.substr( end + 4, size ) );
         at = end + 4 + size;
      }
   }
   void read() {
      write();
      std::array< char, 65536 > buffer;
      const ssize_t got = recv( descriptor_, buffer.data(), buffer.size(), MSG_DONTWAIT );
      if ( got > 0 )
         received_.append( buffer.data(), static_cast< std::size_t >( got ) );
      else if ( got == 0 || errno == ECONNRESET ) {
         ended_ = true;
         loop_.descriptorDel( descriptor_ );
      }
   }
   void write() {
      while ( !toSend_.empty() ) {
         const ssize_t sent =
            ::send( descriptor_, toSend_.data(), toSend_.size(), MSG_DONTWAIT | MSG_NOSIGNAL );
         if ( sent <= 0 )
            break;
         toSend_.erase( 0, static_cast< std::size_t >( sent ) );
      }
      interestIs();
   }
   void interestIs() {
      if ( !ended_ )
         loop_.descriptorInterestIs(
            descriptor_, ( reading_ ? Cog::EventLoop::readable : 0u ) |
                            ( toSend_.empty() ? 0u : Cog::EventLoop::writable ) );
   }

   Cog::EventLoop & loop_;
   int descriptor_;
   std::string toSend_, received_;
   bool reading_ = true, ended_ = false;
};

std::string get( const std::string & path ) { return "GET " + path + " HTTP/1.1\r\nHost: agent\r\n\r\n"; }

std::string head( const std::string & path, std::size_t size ) {
   return "POST " + path + " HTTP/1.1\r\nHost: agent\r\nContent-Length: " + std::to_string( size ) +
          "\r\n\r\n";
}

std::string post( const std::string & path, const std::string & body ) {
   return head( path, body.size() ) + body;
}

using Bodies = std::vector< std::string >;

class HttpServerTest : public testing::Test {
 protected:
   HttpServerTest() {
      std::string name = ( std::filesystem::temp_directory_path() / "server-XXXXXX" ).string();
      EXPECT_NE( mkdtemp( name.data() ), nullptr );
      folder = name;
      path = folder + "/control.sock";
      loop->commitHookIs( [this] {
         if ( until_ && until_() )
            loop->stop();
         return true;
      } );
      watchdog_.is( wheel, this ).hasNotificationActiveIs( true );
      server = newServer();
   }
   ~HttpServerTest() override {
      clients.clear();
      server.reset();
      std::filesystem::remove_all( folder );
   }

   std::unique_ptr< HttpServer > newServer( unsigned idleTimeout = 60 ) {
      return std::make_unique< HttpServer >(
         loop, wheel,
         [this]( const HttpRequest & request, HttpServer::Answer answer ) {
            requests.push_back( request );
            if ( handler )
               handler( request, std::move( answer ) );
            else
               answer( { 200, request.path } );
         },
         []( const Api::Error & error ) {
            return HttpReply{ httpStatus( error.code ), stringValue( error.code ) };
         },
         idleTimeout );
   }
   void listen() { ASSERT_EQ( std::nullopt, server->listenLocal( path ) ); }

   Client & client() {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy( address.sun_path, sizeof address.sun_path - 1 );
      return *clients.emplace_back(
         std::make_unique< Client >( *loop, reinterpret_cast< sockaddr * >( &address ), sizeof address ) );
   }
   Client & webClient() {
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_port = htons( static_cast< std::uint16_t >( server->webPort() ) );
      address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
      return *clients.emplace_back(
         std::make_unique< Client >( *loop, reinterpret_cast< sockaddr * >( &address ), sizeof address ) );
   }

   /// Runs turns until it is so.
   void runUntil( const std::function< bool() > & condition ) {
      late_ = false;
      watchdog_->timeMinIs( loop->currentTime() + 30 );
      until_ = [this, condition] { return late_ || condition(); };
      loop->run();
      until_ = nullptr;
      watchdog_->timeMinIs( Cog::Timer::never );
      ASSERT_FALSE( late_ ) << "it does not come";
   }
   void runUntilAnswered( const Client & by, std::size_t answers = 1 ) {
      runUntil( [&] { return by.statuses().size() >= answers || by.ended(); } );
   }
   /// Whoever asks now is served.
   void expectService() {
      handler = nullptr;
      Client & fresh = client();
      fresh.send( get( "/fresh" ) );
      runUntilAnswered( fresh );
      EXPECT_EQ( Bodies{ "/fresh" }, fresh.bodies() );
   }

   std::string folder, path;
   Vel::Ptr< Cog::EventLoop > loop = Vel::make< Cog::EventLoop >( Vel::make< Cog::RealTime >( 0.0 ) );
   Vel::Ptr< Cog::TimerWheel > wheel = Vel::make< Cog::TimerWheel >( loop, 1000u, 1800u, true, 1024u );
   std::vector< HttpRequest > requests; ///< as the handler got them
   HttpServer::Handler handler;         ///< empty: answers with the path
   std::unique_ptr< HttpServer > server;
   std::vector< std::unique_ptr< Client > > clients;

 private:
   struct Watchdog final : Cog::TimerReactor< HttpServerTest > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->late_ = true; }
   };
   std::function< bool() > until_;
   bool late_ = false;
   Vel::Watch< Watchdog > watchdog_;
};

// ---- requests

TEST_F( HttpServerTest, handsOnWhatIsAskedAndBy ) {
   listen();
   Client & asker = client();
   asker.send( post( "/a%20b/c?unit=x%2Fy&z=&unit=a", "text" ) );
   runUntilAnswered( asker );
   ASSERT_EQ( 1u, requests.size() );
   EXPECT_EQ( "POST", requests[0].method );
   EXPECT_EQ( "/a b/c", requests[0].path );
   EXPECT_EQ(
      ( std::multimap< std::string, std::string >{ { "unit", "x/y" }, { "unit", "a" }, { "z", "" } } ),
      requests[0].query );
   EXPECT_EQ( "text", requests[0].body );
   EXPECT_TRUE( requests[0].local );
   EXPECT_FALSE( requests[0].by.empty() );
   EXPECT_NE( "unknown", requests[0].by );
}

TEST_F( HttpServerTest, handsOnHeadersByNamesInLowerCase ) {
   listen();
   Client & asker = client();
   asker.send( "GET / HTTP/1.1\r\nHost: agent\r\nIf-None-MATCH: \"a\"\r\n\r\n" );
   runUntilAnswered( asker );
   ASSERT_EQ( 1u, requests.size() );
   EXPECT_EQ(
      ( std::map< std::string, std::string >{ { "host", "agent" }, { "if-none-match", "\"a\"" } } ),
      requests[0].headers );
}

TEST_F( HttpServerTest, sendsStatusTypeAndAllowedMethods ) {
   listen();
   handler = []( const HttpRequest &, const HttpServer::Answer & answer ) {
      answer( { 405, "no", "text/plain", "GET, HEAD" } );
   };
   Client & asker = client();
   asker.send( get( "/" ) );
   runUntilAnswered( asker );
   EXPECT_EQ( ( Bodies{ "HTTP/1.1 405 Method Not Allowed" } ), asker.statuses() );
   EXPECT_NE( std::string::npos, asker.received().find( "\r\nContent-Type: text/plain\r\n" ) );
   EXPECT_NE( std::string::npos, asker.received().find( "\r\nAllow: GET, HEAD\r\n" ) );
   EXPECT_NE( std::string::npos, asker.received().find( "\r\nCache-Control: no-store\r\n" ) );
   EXPECT_NE( std::string::npos, asker.received().find( "\r\nX-Content-Type-Options: nosniff\r\n" ) );
}

TEST_F( HttpServerTest, sendsTheHeadersOfAReply ) {
   listen();
   handler = []( const HttpRequest &, const HttpServer::Answer & answer ) {
      answer( { 200, "", "text/plain", "", "no-cache", { { "ETag", "\"a\"" } } } );
   };
   Client & asker = client();
   asker.send( get( "/" ) );
   runUntilAnswered( asker );
   EXPECT_NE( std::string::npos, asker.received().find( "\r\nCache-Control: no-cache\r\n" ) );
   EXPECT_NE( std::string::npos, asker.received().find( "\r\nETag: \"a\"\r\n" ) );
}

TEST_F( HttpServerTest, handsOnARequestOnlyWhenItIsComplete ) {
   listen();
   Client & asker = client();
   asker.send( head( "/", 10 ) + "01234" );
   Client & other = client();
   other.send( get( "/other" ) );
   runUntilAnswered( other );
   ASSERT_EQ( 1u, requests.size() );
   asker.send( "56789" );
   runUntilAnswered( asker );
   ASSERT_EQ( 2u, requests.size() );
   EXPECT_EQ( "0123456789", requests[1].body );
}

TEST_F( HttpServerTest, forgetsARequestThatIsCutInHalf ) {
   listen();
   for ( const std::string & half :
         { std::string( "GET /x HT" ), head( "/", 10 ), head( "/", 10 ) + "0123" } ) {
      Client & asker = client();
      asker.send( half );
      asker.close();
   }
   expectService();
   ASSERT_EQ( 1u, requests.size() );
   EXPECT_EQ( "/fresh", requests[0].path );
}

TEST_F( HttpServerTest, takes64KiBAndRefusesAByteMore ) {
   listen();
   Client & asker = client();
   asker.send( post( "/", std::string( HttpServer::maxBody, 'x' ) ) );
   runUntilAnswered( asker );
   EXPECT_EQ( ( Bodies{ "HTTP/1.1 200 OK" } ), asker.statuses() );
   ASSERT_EQ( 1u, requests.size() );
   EXPECT_EQ( HttpServer::maxBody, requests[0].body.size() );

   asker.send( post( "/", std::string( HttpServer::maxBody + 1, 'x' ) ) );
   runUntilAnswered( asker, 2 );
   ASSERT_EQ( 2u, asker.statuses().size() );
   EXPECT_EQ( 0u, asker.statuses()[1].find( "HTTP/1.1 413 " ) );
   EXPECT_EQ( "too-large", asker.bodies()[1] );
   EXPECT_EQ( 1u, requests.size() );
}

TEST_F( HttpServerTest, refusesAVeryLargeBodyInPiecesOfUnknownNumber ) {
   listen();
   Client & asker = client();
   asker.send( "POST / HTTP/1.1\r\nHost: agent\r\nTransfer-Encoding: chunked\r\n\r\n" );
   for ( int i = 0; i < 100; ++i )
      asker.send( "2710\r\n" + std::string( 10000, 'x' ) + "\r\n" );
   asker.send( "0\r\n\r\n" );
   runUntilAnswered( asker );
   EXPECT_EQ( Bodies{ "too-large" }, asker.bodies() );
   EXPECT_TRUE( requests.empty() );
}

TEST_F( HttpServerTest, refusesWhatIsNotHttp ) {
   listen();
   Client & asker = client();
   asker.send( "hello\r\n\r\n" );
   runUntil( [&] { return asker.ended(); } );
   EXPECT_TRUE( requests.empty() );
   expectService();
}

// ---- connections

TEST_F( HttpServerTest, answersOneRequestAfterAnotherOnAConnection ) {
   listen();
   Client & asker = client();
   for ( std::size_t i = 1; i <= 3; ++i ) {
      asker.send( get( "/" + std::to_string( i ) ) );
      runUntilAnswered( asker, i );
   }
   EXPECT_EQ( ( Bodies{ "/1", "/2", "/3" } ), asker.bodies() );
}

TEST_F( HttpServerTest, answersRequestsThatAreSentAheadInTheirOrder ) {
   listen();
   std::vector< HttpServer::Answer > waiting;
   handler = [&]( const HttpRequest & request, HttpServer::Answer answer ) {
      if ( request.path == "/1" )
         waiting.push_back( std::move( answer ) );
      else
         answer( { 200, request.path } );
   };
   Client & asker = client();
   asker.send( get( "/1" ) + post( "/2", "body" ) + get( "/3" ) );
   runUntil( [&] { return !waiting.empty(); } );
   EXPECT_TRUE( asker.received().empty() );
   loop->post( [&] { waiting[0]( { 200, "late" } ); } );
   runUntilAnswered( asker, 3 );
   EXPECT_EQ( ( Bodies{ "late", "/2", "/3" } ), asker.bodies() );
}

TEST_F( HttpServerTest, servesManyConnectionsAtOnce ) {
   listen();
   constexpr std::size_t count = 200;
   std::vector< Client * > askers;
   for ( std::size_t i = 0; i < count; ++i ) {
      // Not more wait to be taken than the socket lets wait.
      if ( i % 50 == 0 )
         expectService();
      askers.push_back( &client() );
      askers.back()->send( get( "/" + std::to_string( i ) ).substr( 0, 10 ) );
   }
   for ( std::size_t i = 0; i < count; ++i )
      askers[i]->send( get( "/" + std::to_string( i ) ).substr( 10 ) );
   runUntil( [&] {
      return std::all_of(
         askers.begin(), askers.end(), []( const Client * asker ) { return asker->statuses().size() == 1; } );
   } );
   for ( std::size_t i = 0; i < count; ++i )
      EXPECT_EQ( Bodies{ "/" + std::to_string( i ) }, askers[i]->bodies() );
}

TEST_F( HttpServerTest, lastsWhileOneReadsSlowly ) {
   listen();
   const std::string large( 8 << 20, 'x' );
   handler = [&]( const HttpRequest &, const HttpServer::Answer & answer ) { answer( { 200, large } ); };
   Client & slow = client();
   slow.readingIs( false );
   slow.send( get( "/large" ) );
   runUntil( [&] { return requests.size() == 1; } );
   expectService();
   slow.readingIs( true );
   runUntilAnswered( slow );
   ASSERT_EQ( 1u, slow.bodies().size() );
   EXPECT_EQ( large.size(), slow.bodies()[0].size() );
}

TEST_F( HttpServerTest, closesAConnectionOnWhichNothingHappens ) {
   server = newServer( 1 );
   listen();
   HttpServer::Answer later;
   handler = [&]( const HttpRequest &, HttpServer::Answer answer ) { later = std::move( answer ); };
   Client & silent = client();
   Client & half = client();
   half.send( head( "/", 10 ) + "0123" );
   Client & waiting = client();
   waiting.send( get( "/" ) );
   runUntil( [&] { return silent.ended() && half.ended(); } );
   // One that waits for us is not idle.
   EXPECT_FALSE( waiting.ended() );
   loop->post( [&] { later( { 200, "late" } ); } );
   runUntilAnswered( waiting );
   EXPECT_EQ( Bodies{ "late" }, waiting.bodies() );
}

// ---- answers

TEST_F( HttpServerTest, sendsAnAnswerThatIsGivenInALaterTurn ) {
   listen();
   HttpServer::Answer later;
   handler = [&]( const HttpRequest &, HttpServer::Answer answer ) { later = std::move( answer ); };
   Client & asker = client();
   asker.send( get( "/" ) );
   runUntil( [&] { return bool( later ); } );
   loop->effectIs( [&] { later( { 202, "done" } ); } );
   runUntilAnswered( asker );
   EXPECT_EQ( ( Bodies{ "HTTP/1.1 202 Accepted" } ), asker.statuses() );
   EXPECT_EQ( Bodies{ "done" }, asker.bodies() );
}

TEST_F( HttpServerTest, takesOnlyTheFirstAnswer ) {
   listen();
   handler = []( const HttpRequest &, const HttpServer::Answer & answer ) {
      answer( { 200, "first" } );
      answer( { 200, "second" } );
   };
   Client & asker = client();
   asker.send( get( "/" ) );
   runUntilAnswered( asker );
   EXPECT_EQ( Bodies{ "first" }, asker.bodies() );
}

TEST_F( HttpServerTest, forgetsTheAnswerOfAClientThatIsGone ) {
   listen();
   HttpServer::Answer later;
   handler = [&]( const HttpRequest &, HttpServer::Answer answer ) { later = std::move( answer ); };
   Client & asker = client();
   asker.send( post( "/", "body" ) );
   runUntil( [&] { return bool( later ); } );
   asker.close();
   loop->post( [&] { later( { 200, std::string( 1 << 20, 'x' ) } ); } );
   expectService();
   later( { 200, "again" } );
   expectService();
}

TEST_F( HttpServerTest, endsWhileRequestsWaitForTheirAnswers ) {
   listen();
   std::vector< HttpServer::Answer > later;
   handler = [&]( const HttpRequest &, HttpServer::Answer answer ) {
      later.push_back( std::move( answer ) );
   };
   client().send( get( "/1" ) );
   Client & second = client();
   second.send( get( "/2" ) );
   runUntil( [&] { return later.size() == 2; } );
   server.reset();
   for ( const auto & answer : later )
      answer( { 200, "late" } );
   runUntil( [&] { return second.ended(); } );
   EXPECT_TRUE( second.received().empty() );
}

TEST_F( HttpServerTest, letsOutOfTheLoopWhatTheHandlerThrows ) {
   listen();
   handler = []( const HttpRequest &, const HttpServer::Answer & ) {
      throw std::runtime_error( "broken inside" );
   };
   Client & asker = client();
   asker.send( get( "/" ) );
   try {
      loop->run();
      FAIL() << "nothing is thrown";
   } catch ( const std::runtime_error & error ) {
      EXPECT_STREQ( "broken inside", error.what() );
   }
}

// ---- where it listens

TEST_F( HttpServerTest, makesASocketForOwnerAndGroup ) {
   listen();
   struct stat made {};
   ASSERT_EQ( 0, stat( path.c_str(), &made ) );
   EXPECT_TRUE( S_ISSOCK( made.st_mode ) );
   EXPECT_EQ( 0660u, made.st_mode & 07777u );
   server.reset();
   EXPECT_FALSE( std::filesystem::exists( path ) );
}

TEST_F( HttpServerTest, replacesASocketThatNobodyAnswersOn ) {
   const int dead = socket( AF_UNIX, SOCK_STREAM, 0 );
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   path.copy( address.sun_path, sizeof address.sun_path - 1 );
   ASSERT_EQ( 0, bind( dead, reinterpret_cast< sockaddr * >( &address ), sizeof address ) );
   close( dead );
   ASSERT_TRUE( std::filesystem::exists( path ) );
   listen();
   expectService();
}

TEST_F( HttpServerTest, leavesASocketAloneThatSomebodyAnswersOn ) {
   listen();
   {
      const auto second = newServer();
      const auto problem = second->listenLocal( path );
      ASSERT_TRUE( problem );
      EXPECT_EQ( path + ": another agent answers there", *problem );
   }
   expectService();
}

TEST_F( HttpServerTest, leavesAFileOfAnotherKindAlone ) {
   std::ofstream( path ) << "precious";
   const auto problem = server->listenLocal( path );
   ASSERT_TRUE( problem );
   EXPECT_EQ( path + ": is not a socket", *problem );
   EXPECT_TRUE( std::filesystem::is_regular_file( path ) );
}

TEST_F( HttpServerTest, namesAPathThatCannotBeUsed ) {
   EXPECT_EQ(
      folder + "/none/control.sock: No such file or directory",
      server->listenLocal( folder + "/none/control.sock" ).value_or( "" ) );
   const std::string longPath = folder + "/" + std::string( 200, 'x' );
   EXPECT_EQ(
      longPath + ": the path is too long for a socket", server->listenLocal( longPath ).value_or( "" ) );
}

TEST_F( HttpServerTest, servesTheWebAsSomewhereElse ) {
   ASSERT_EQ( std::nullopt, server->listenWeb( "127.0.0.1", 0 ) );
   ASSERT_NE( 0u, server->webPort() );
   Client & asker = webClient();
   asker.send( get( "/web" ) );
   runUntilAnswered( asker );
   EXPECT_EQ( Bodies{ "/web" }, asker.bodies() );
   ASSERT_EQ( 1u, requests.size() );
   EXPECT_FALSE( requests[0].local );
   EXPECT_EQ( "127.0.0.1", requests[0].by );
}

TEST_F( HttpServerTest, namesAnAddressThatIsTakenOrUnknown ) {
   ASSERT_EQ( std::nullopt, server->listenWeb( "127.0.0.1", 0 ) );
   const auto second = newServer();
   EXPECT_EQ(
      "127.0.0.1:" + std::to_string( server->webPort() ) + ": Address already in use",
      second->listenWeb( "127.0.0.1", server->webPort() ).value_or( "" ) );
   const auto problem = second->listenWeb( "no host of this world", 80 );
   ASSERT_TRUE( problem );
   EXPECT_EQ( 0u, problem->find( "no host of this world:80: " ) );
}

} // namespace

} // namespace Agent
