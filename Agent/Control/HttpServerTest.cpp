#include "Agent/Control/HttpServerRigTest.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace Agent {

namespace {

using Client = HttpTestClient;
class HttpServerTest : public HttpServerRig {};

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

TEST_F( HttpServerTest, leavesWhatIsNoEscapeAndThatOfAZeroByteAsTheyAre ) {
   listen();
   Client & asker = client();
   asker.send( post( "/a%00b%4a%4A%G1%1G%4?u%00%41=x%00y%&w=%", "" ) );
   runUntilAnswered( asker );
   ASSERT_EQ( 1u, requests.size() );
   EXPECT_EQ( "/a%00bJJ%G1%1G%4", requests[0].path );
   EXPECT_EQ(
      ( std::multimap< std::string, std::string >{ { "u%00A", "x%00y%" }, { "w", "%" } } ),
      requests[0].query );
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

TEST_F( HttpServerTest, saysThatNoMethodIsAllowed ) {
   listen();
   handler = []( const HttpRequest &, const HttpServer::Answer & answer ) {
      answer( { 405, "no", "text/plain", "" } );
   };
   Client & asker = client();
   asker.send( get( "/" ) );
   runUntilAnswered( asker );
   EXPECT_NE( std::string::npos, asker.received().find( "\r\nAllow:  \r\n" ) ) << asker.received();
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

TEST_F( HttpServerTest, answersInATurnWhatATurnMayAnswerAndTheOthersInTheirOrder ) {
   listen();
   const std::string large( 2 * HttpServer::maxTurnBody, 'x' );
   handler = [&]( const HttpRequest &, const HttpServer::Answer & answer ) { answer( { 200, large } ); };
   constexpr std::size_t count = 40;
   for ( std::size_t i = 0; i < count; ++i )
      client().send( get( "/" + std::to_string( i ) ) );
   std::size_t before = 0, most = 0;
   const auto isAnswered = []( const auto & asker ) { return asker->bodies().size() == 1; };
   runUntil( [&] {
      most = std::max( most, requests.size() - std::exchange( before, requests.size() ) );
      return requests.size() == count && std::all_of( clients.begin(), clients.end(), isAnswered );
   } );
   EXPECT_EQ( 1u, most );
}

TEST_F( HttpServerTest, answersThoseOnThisMachineBeforeThoseWhoWaitOnTheWeb ) {
   listen();
   ASSERT_EQ( std::nullopt, server->listenWeb( "127.0.0.1", 0 ) );
   handler = []( const HttpRequest &, const HttpServer::Answer & answer ) {
      answer( { 200, std::string( HttpServer::maxTurnBody, 'x' ) } );
   };
   constexpr std::size_t count = 40;
   for ( std::size_t i = 0; i < count; ++i )
      webClient().send( get( "/" + std::to_string( i ) ) );
   runUntil( [&] { return requests.size() >= 2; } );
   Client & local = client();
   local.send( get( "/local" ) );
   runUntilAnswered( local );
   EXPECT_LT( requests.size(), count / 2 );
}

TEST_F( HttpServerTest, countsLongAnswersAmongWhatATurnMayAnswer ) {
   struct Long final : HttpStream {
      Piece next() override { return { nullptr, true }; }
      bool ends() const override { return true; }
      std::string heartbeat() const override { return ""; }
   };
   listen();
   handler = []( const HttpRequest &, const HttpServer::Answer & answer ) {
      HttpReply reply;
      reply.stream = std::make_shared< Long >();
      answer( std::move( reply ) );
   };
   constexpr std::size_t count = 40;
   for ( std::size_t i = 0; i < count; ++i )
      client().send( get( "/" + std::to_string( i ) ) );
   std::size_t before = 0, most = 0;
   runUntil( [&] {
      most = std::max( most, requests.size() - std::exchange( before, requests.size() ) );
      return requests.size() == count;
   } );
   EXPECT_LE( most, HttpServer::maxTurnBody / HttpServer::maxWebBody );
}

TEST_F( HttpServerTest, countsTheEffortOfShortAnswersAmongWhatATurnMayAnswer ) {
   listen();
   handler = []( const HttpRequest & request, const HttpServer::Answer & answer ) {
      HttpReply reply{ 200, request.path };
      reply.effort = HttpServer::maxTurnBody / 4;
      answer( std::move( reply ) );
   };
   constexpr std::size_t count = 40;
   for ( std::size_t i = 0; i < count; ++i )
      client().send( get( "/" + std::to_string( i ) ) );
   std::size_t before = 0, most = 0;
   runUntil( [&] {
      most = std::max( most, requests.size() - std::exchange( before, requests.size() ) );
      return requests.size() == count;
   } );
   EXPECT_LE( most, 4u );
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

TEST_F( HttpServerTest, closesAConnectionOnWhichNothingHappensAlsoWhileTimersRest ) {
   server = newServer( 1 );
   listen();
   Client & silent = client();
   loop->timersMayRunIs( [] { return false; } );
   const double begin = loop->currentTime();
   runUntil( [&] {
      loop->post( [] {} );
      return silent.ended() || loop->currentTime() > begin + 20;
   } );
   EXPECT_TRUE( silent.ended() );
   loop->timersMayRunIs( [] { return true; } );
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

TEST_F( HttpServerTest, sendsWhatIsShownWhileSomethingIsUncommittedWhenItIsCommitted ) {
   listen();
   bool uncommitted = true;
   server->uncommittedWhile( [&] { return uncommitted; } );
   Client & asker = client();
   std::string seen;
   loop->commitHookIs( [&] {
      if ( !requests.empty() && asker.received().empty() )
         seen += asker.hasMore() ? "sent " : "held ";
      return true;
   } );
   asker.send( get( "/shown" ) );
   runUntilAnswered( asker );
   EXPECT_EQ( Bodies{ "/shown" }, asker.bodies() );
   EXPECT_EQ( 0u, seen.find( "held " ) ) << "when the turn in which it was asked for ends: " << seen;
   uncommitted = false;
   seen.clear();
   Client & other = client();
   other.send( get( "/again" ) );
   runUntilAnswered( other );
   EXPECT_EQ( Bodies{ "/again" }, other.bodies() );
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

TEST_F( HttpServerTest, refusesRequestsOverTheWebThatAreMeantForSomebodyElse ) {
   listen();
   ASSERT_EQ( std::nullopt, server->listenWeb( "127.0.0.1", 0 ) );
   server->webNamesAre( { "leaf1.example", {} } );
   Client & web = webClient();
   web.send( "GET /a HTTP/1.1\r\nHost: evil.example:8080\r\n\r\n" );
   runUntilAnswered( web );
   EXPECT_EQ( "HTTP/1.1 421 Misdirected Request", web.statuses()[0] );
   EXPECT_EQ( 0u, requests.size() );
   web.send( "GET /b HTTP/1.1\r\nHost: leaf1.example:8080\r\n\r\n" );
   runUntilAnswered( web, 2 );
   EXPECT_EQ( "/b", web.bodies()[1] );
   Client & local = client();
   local.send( "GET /c HTTP/1.1\r\nHost: evil.example\r\n\r\n" );
   runUntilAnswered( local );
   EXPECT_EQ( Bodies{ "/c" }, local.bodies() );
}

TEST_F( HttpServerTest, namesAnAddressThatIsTaken ) {
   ASSERT_EQ( std::nullopt, server->listenWeb( "127.0.0.1", 0 ) );
   const auto second = newServer();
   EXPECT_EQ(
      "127.0.0.1:" + std::to_string( server->webPort() ) + ": Address already in use",
      second->listenWeb( "127.0.0.1", server->webPort() ).value_or( "" ) );
   EXPECT_EQ(
      "localhost:" + std::to_string( server->webPort() ) + ": Address already in use",
      second->listenWeb( "localhost", server->webPort() ).value_or( "" ) );
}

TEST_F( HttpServerTest, asksNobodyForTheAddressOfAName ) {
   EXPECT_EQ(
      "leaf1.example:80: is a name, and nobody is asked for its address; write the address to listen on",
      server->listenWeb( "leaf1.example", 80 ).value_or( "" ) );
}

TEST_F( HttpServerTest, listensOnThisMachineAsLocalhost ) {
   EXPECT_EQ( std::nullopt, server->listenWeb( "localhost", 0 ) );
   EXPECT_NE( 0u, server->webPort() );
}

} // namespace

} // namespace Agent
