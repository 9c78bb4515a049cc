#include "Agent/Control/HttpServerRigTest.h"

#include <deque>

namespace Agent {

namespace {

using Client = HttpTestClient;

/// Gives what the test puts in.
class Told final : public HttpStream {
 public:
   Piece next() override {
      ++asked;
      if ( endless )
         return { endless, false, false, effort };
      if ( pieces.empty() )
         return { nullptr, ended };
      const std::string text = pieces.front();
      pieces.pop_front();
      return { std::make_shared< const std::string >( text ), ended && pieces.empty() };
   }
   std::string heartbeat() const override { return ":\n"; }
   bool ends() const override { return comesToItsEnd; }
   void tell( const std::string & text ) {
      pieces.push_back( text );
      wake();
   }
   void end() {
      ended = true;
      wake();
   }

   std::deque< std::string > pieces;
   std::shared_ptr< const std::string > endless; ///< given again and again
   std::size_t effort = 0;                       ///< of each of them
   bool ended = false, comesToItsEnd = false;
   unsigned asked = 0;
};

HttpReply replyOf( std::shared_ptr< HttpStream > stream ) {
   HttpReply reply;
   reply.contentType = "text/event-stream";
   reply.stream = std::move( stream );
   return reply;
}

class HttpStreamTest : public HttpServerRig {
 protected:
   HttpStreamTest() {
      listen();
      handler = [this]( const HttpRequest & request, const HttpServer::Answer & answer ) {
         if ( request.path == "/long" )
            return answer( { 200, longBody } );
         if ( request.path != "/stream" && request.path != "/record" )
            return answer( { 200, request.path } );
         told.push_back( std::make_shared< Told >() );
         told.back()->comesToItsEnd = request.path == "/record";
         told.back()->endless = endless;
         told.back()->effort = effort;
         answer( replyOf( told.back() ) );
      };
   }
   /// A reader whose stream is open.
   Client & reader() {
      Client & result = client();
      const std::size_t before = told.size();
      result.send( get( "/stream" ) );
      runUntil( [&, before] { return told.size() > before && told.back()->asked > 0; } );
      return result;
   }
   /// Asks for something else, with the handler as it is.
   void expectAnswer() {
      Client & asker = client();
      asker.send( get( "/other" ) );
      runUntilAnswered( asker );
      EXPECT_EQ( Bodies{ "/other" }, asker.bodies() );
      asker.close();
   }

   /// Clients on the web who ask for the long body and take nothing of it; as many as there are in the end.
   void askForTheLongBody( std::size_t count ) {
      ASSERT_EQ( std::nullopt, server->listenWeb( "127.0.0.1", 0 ) );
      for ( std::size_t i = 0; i < count; ++i ) {
         Client & asker = webClient();
         asker.readingIs( false );
         asker.send( get( "/long" ) );
      }
      runUntil( [&] { return requests.size() == count; } );
      expectAnswer();
   }

   std::vector< std::shared_ptr< Told > > told;
   std::shared_ptr< const std::string > endless;
   std::size_t effort = 0;
   std::string longBody;
};

TEST_F( HttpStreamTest, sendsTheHeaderBeforeThereIsAnything ) {
   Client & asker = reader();
   runUntil( [&] { return asker.received().find( "\r\n\r\n" ) != std::string::npos; } );
   EXPECT_TRUE( asker.received().starts_with( "HTTP/1.1 200 OK\r\n" ) );
   EXPECT_NE( std::string::npos, asker.received().find( "\r\nContent-Type: text/event-stream\r\n" ) );
   EXPECT_NE( std::string::npos, asker.received().find( "\r\nTransfer-Encoding: chunked\r\n" ) );
   EXPECT_NE( std::string::npos, asker.received().find( "\r\nCache-Control: no-store\r\n" ) );
   EXPECT_EQ( "", asker.chunks() );
}

TEST_F( HttpStreamTest, sendsEachPieceWhenItIsThere ) {
   Client & asker = reader();
   loop->post( [&] { told[0]->tell( "one " ); } );
   runUntil( [&] { return asker.chunks() == "one "; } );
   loop->post( [&] {
      told[0]->tell( "two " );
      told[0]->tell( "three " );
   } );
   runUntil( [&] { return asker.chunks() == "one two three "; } );
   EXPECT_FALSE( asker.ended() );
}

TEST_F( HttpStreamTest, asksForNothingWhileThereIsNothing ) {
   Client & asker = reader();
   loop->post( [&] { told[0]->tell( "x" ); } );
   runUntil( [&] { return asker.chunks() == "x"; } );
   expectAnswer();
   const unsigned asked = told[0]->asked;
   const Vel::U64 turns = loop->turns();
   for ( int i = 0; i < 3; ++i )
      expectAnswer();
   EXPECT_EQ( asked, told[0]->asked );
   EXPECT_LT( loop->turns() - turns, 60u );
}

TEST_F( HttpStreamTest, endsWhereTheStreamSaysSoAndTakesTheNextRequest ) {
   Client & asker = reader();
   loop->post( [&] {
      told[0]->tell( "all" );
      told[0]->end();
   } );
   runUntil( [&] { return asker.chunksEnded(); } );
   EXPECT_EQ( "all", asker.chunks() );
   EXPECT_EQ( 0u, server->streams() );
   asker.send( get( "/next" ) );
   runUntil( [&] { return asker.received().ends_with( "/next" ); } );
}

TEST_F( HttpStreamTest, sendsAPieceThatIsLargerThanAnyBuffer ) {
   Client & asker = reader();
   std::string large;
   for ( int i = 0; i < 200000; ++i )
      large += std::to_string( i ) + " ";
   loop->post( [&] { told[0]->tell( large ); } );
   runUntil(
      [&] { return asker.received().size() > large.size() && asker.chunks().size() == large.size(); } );
   EXPECT_TRUE( asker.chunks() == large );
}

TEST_F( HttpStreamTest, asksForNoMoreThanAReaderTakes ) {
   endless = std::make_shared< const std::string >( std::string( 10000, 'x' ) );
   Client & slow = client();
   slow.readingIs( false );
   slow.send( get( "/stream" ) );
   runUntil( [&] { return told.size() == 1 && told[0]->asked > 10; } );
   // What it is asked for ends in the buffers of the connection.
   unsigned before = 0;
   while ( before != told[0]->asked ) {
      before = told[0]->asked;
      for ( int i = 0; i < 20; ++i )
         expectAnswer();
   }
   EXPECT_LT( told[0]->asked, 200u );
   slow.readingIs( true );
   runUntil( [&] { return told[0]->asked > before + 200; } );
}

TEST_F( HttpStreamTest, forgetsAReaderThatIsGoneWhenThereIsSomethingForIt ) {
   Client & asker = reader();
   asker.close();
   EXPECT_EQ( 1u, server->streams() );
   std::weak_ptr< Told > left = told[0];
   loop->post( [&] {
      told[0]->tell( "x" );
      told.clear();
   } );
   runUntil( [&] { return server->streams() == 0; } );
   EXPECT_TRUE( left.expired() );
}

TEST_F( HttpStreamTest, noticesAReaderThatIsGoneByAHeartbeatInTheEnd ) {
   server = newServer( 60, 2 );
   listen();
   Client & asker = reader();
   Client & other = reader();
   asker.close();
   const double begin = loop->currentTime();
   runUntil( [&] { return server->streams() == 1; } );
   EXPECT_GE( loop->currentTime() - begin, 1 );
   runUntil( [&] { return other.chunks() == ":\n"; } );
}

TEST_F( HttpStreamTest, givesUpAReaderWhoTakesNothingForTheIdleTimeout ) {
   server = newServer( 1 );
   listen();
   endless = std::make_shared< const std::string >( std::string( 10000, 'x' ) );
   Client & stuck = client();
   stuck.readingIs( false );
   stuck.send( get( "/stream" ) );
   runUntil( [&] { return told.size() == 1 && told[0]->asked > 10; } );
   runUntil( [&] { return server->streams() == 0; } );
   expectAnswer();
}

TEST_F( HttpStreamTest, refusesMoreStreamsThanItServesAndAnswersEverythingElse ) {
   for ( unsigned i = 0; i < HttpServer::maxStreams; ++i )
      reader();
   EXPECT_EQ( HttpServer::maxStreams, server->streams() );
   Client & late = client();
   late.send( get( "/stream" ) );
   runUntilAnswered( late );
   ASSERT_EQ( 1u, late.statuses().size() );
   EXPECT_TRUE( late.statuses()[0].starts_with( "HTTP/1.1 503 " ) );
   EXPECT_EQ( Bodies{ "unavailable" }, late.bodies() );
   expectAnswer();
   clients[0]->close();
   loop->post( [&] { told[0]->tell( "x" ); } );
   runUntil( [&] { return server->streams() < HttpServer::maxStreams; } );
   late.send( get( "/stream" ) );
   runUntil( [&] { return server->streams() == HttpServer::maxStreams; } );
}

TEST_F( HttpStreamTest, keepsPlacesForReadersOnThisMachineHoweverManyReadOverTheWeb ) {
   ASSERT_EQ( std::nullopt, server->listenWeb( "127.0.0.1", 0 ) );
   for ( unsigned i = 1; i <= HttpServer::maxWebStreams; ++i ) {
      webClient().send( get( "/stream" ) );
      runUntil( [&] { return server->streams() == i; } );
   }
   Client & late = webClient();
   late.send( get( "/stream" ) );
   runUntilAnswered( late );
   EXPECT_EQ( Bodies{ "unavailable" }, late.bodies() );
   for ( unsigned i = HttpServer::maxWebStreams; i < HttpServer::maxStreams; ++i )
      reader();
   EXPECT_EQ( HttpServer::maxStreams, server->streams() );
}

TEST_F( HttpStreamTest, hasPlacesForAnswersThatEndHoweverManyReadWithoutAnEnd ) {
   for ( unsigned i = 0; i < HttpServer::maxStreams; ++i )
      reader();
   Client & asker = client();
   asker.send( get( "/record" ) );
   runUntil( [&] { return told.size() == HttpServer::maxStreams + 1; } );
   loop->post( [&] {
      told.back()->tell( "all" );
      told.back()->end();
   } );
   runUntil( [&] { return asker.chunksEnded() || asker.bodies() == Bodies{ "unavailable" }; } );
   EXPECT_EQ( "all", asker.chunks() );
}

TEST_F( HttpStreamTest, refusesMoreLongAnswersThanItHasPlacesFor ) {
   ASSERT_EQ( std::nullopt, server->listenWeb( "127.0.0.1", 0 ) );
   for ( unsigned i = 1; i <= HttpServer::maxLongAnswers; ++i ) {
      ( i <= HttpServer::maxWebLongAnswers ? webClient() : client() ).send( get( "/record" ) );
      runUntil( [&] { return server->streams() == i; } );
      if ( i == HttpServer::maxWebLongAnswers ) {
         Client & late = webClient();
         late.send( get( "/record" ) );
         runUntilAnswered( late );
         EXPECT_EQ( Bodies{ "unavailable" }, late.bodies() );
      }
   }
   Client & late = client();
   late.send( get( "/record" ) );
   runUntilAnswered( late );
   EXPECT_EQ( Bodies{ "unavailable" }, late.bodies() );
   EXPECT_EQ(
      "there are " + std::to_string( HttpServer::maxLongAnswers ) + " long answers under way already",
      refusals.back() );
}

TEST_F( HttpStreamTest, cutsTheConnectionOfAnAnswerThatCannotGoOn ) {
   struct Broken final : HttpStream {
      Piece next() override {
         if ( std::exchange( begun, true ) )
            return { nullptr, true, true };
         return { std::make_shared< std::string >( "half" ) };
      }
      std::string heartbeat() const override { return ""; }
      bool begun = false;
   };
   handler = []( const HttpRequest &, const HttpServer::Answer & answer ) {
      answer( replyOf( std::make_shared< Broken >() ) );
   };
   Client & asker = client();
   asker.send( get( "/" ) );
   runUntil( [&] { return asker.ended() || asker.chunksEnded(); } );
   EXPECT_TRUE( asker.received().ends_with( "half\r\n" ) );
   EXPECT_FALSE( asker.chunksEnded() );
}

TEST_F( HttpStreamTest, sendsALongBodyOverTheWebAsAWholeWithItsLength ) {
   longBody = std::string( 8 << 20, 'x' );
   askForTheLongBody( 1 );
   clients[0]->readingIs( true );
   runUntilAnswered( *clients[0] );
   ASSERT_EQ( 1u, clients[0]->bodies().size() );
   EXPECT_EQ( longBody.size(), clients[0]->bodies()[0].size() );
   EXPECT_EQ( 0u, server->streams() );
}

TEST_F( HttpStreamTest, keepsNoMoreForReadersOnTheWebWhoTakeNothingThanItMay ) {
   longBody = std::string( HttpServer::maxWebBytes / 4, 'x' );
   askForTheLongBody( 20 );
   EXPECT_EQ( 4u, server->streams() );
}

TEST_F( HttpStreamTest, sendsOneBodyOverTheWebHoweverLongItIs ) {
   longBody = std::string( HttpServer::maxWebBytes + 1, 'x' );
   askForTheLongBody( 2 );
   EXPECT_EQ( 1u, server->streams() );
}

TEST_F( HttpStreamTest, givesInATurnWhatATurnMayGiveAndEveryReaderItsShare ) {
   endless = std::make_shared< const std::string >( std::string( 1000, 'x' ) );
   constexpr std::size_t count = 100;
   for ( std::size_t i = 0; i < count; ++i )
      reader();
   const auto sum = [&] {
      unsigned result = 0;
      for ( const auto & stream : told )
         result += stream->asked;
      return result;
   };
   unsigned asked = sum(), most = 0;
   runUntil( [&] {
      most = std::max( most, sum() - std::exchange( asked, sum() ) );
      std::size_t fed = 0;
      for ( const auto & reading : clients )
         fed += reading->received().size() > 1000000;
      return fed == count;
   } );
   // A piece that is begun counts whole here.
   EXPECT_LE( most * 1000, HttpServer::maxTurnBytes + count * 1000 );
   unsigned least = told[0]->asked, largest = least;
   for ( const auto & stream : told ) {
      least = std::min( least, stream->asked );
      largest = std::max( largest, stream->asked );
   }
   EXPECT_LT( largest, least * 3 );
}

TEST_F( HttpStreamTest, asksInATurnForNoMoreWorkThanATurnMayDoHoweverShortThePiecesAre ) {
   endless = std::make_shared< const std::string >( "x" );
   effort = 4096;
   constexpr std::size_t count = HttpServer::maxLongAnswers;
   for ( std::size_t i = 0; i < count; ++i )
      client().send( get( "/record" ) );
   runUntil( [&] { return told.size() == count; } );
   std::vector< unsigned > asked;
   for ( const auto & stream : told )
      asked.push_back( stream->asked );
   unsigned most = 0, mostOfOne = 0;
   runUntil( [&] {
      unsigned inTurn = 0;
      for ( std::size_t i = 0; i < count; ++i ) {
         const unsigned ofOne = told[i]->asked - std::exchange( asked[i], told[i]->asked );
         mostOfOne = std::max( mostOfOne, ofOne );
         inTurn += ofOne;
      }
      most = std::max( most, inTurn );
      return *std::min_element( asked.begin(), asked.end() ) >= 40;
   } );
   EXPECT_EQ( HttpServer::maxTurnBytes / effort, most ) << "all of them together";
   EXPECT_EQ( HttpServer::maxStreamBytes / effort, mostOfOne );
}

TEST_F( HttpStreamTest, takesThatAStreamIsWokenForNothing ) {
   Client & asker = reader();
   loop->post( [&] {
      told[0]->wake();
      told[0]->wake();
   } );
   expectAnswer();
   loop->post( [&] { told[0]->tell( "x" ); } );
   runUntil( [&] { return asker.chunks() == "x"; } );
}

TEST_F( HttpStreamTest, answersHeadWithoutAStream ) {
   Client & asker = client();
   asker.send( "HEAD /stream HTTP/1.1\r\nHost: agent\r\n\r\n" );
   runUntil( [&] { return asker.received().find( "\r\n\r\n" ) != std::string::npos; } );
   asker.send( get( "/other" ) );
   runUntil( [&] { return asker.received().ends_with( "/other" ); } );
   EXPECT_EQ( 0u, server->streams() );
   EXPECT_EQ( 0u, told[0]->asked );
}

TEST_F( HttpStreamTest, sendsWhatIsLeftBeforeItEnds ) {
   Client & asker = reader();
   Client & stuck = client();
   stuck.readingIs( false );
   endless = std::make_shared< const std::string >( std::string( 100000, 'x' ) );
   stuck.send( get( "/stream" ) );
   runUntil( [&] { return told.size() == 2; } );
   loop->post( [&] {
      told[0]->tell( "the last" );
      told[0]->end();
      server->flushStreams();
      server.reset();
   } );
   runUntil( [&] { return asker.ended(); } );
   EXPECT_EQ( "the last", asker.chunks() );
   EXPECT_TRUE( asker.chunksEnded() );
   told[1]->wake();
}

TEST_F( HttpStreamTest, letsOutOfTheLoopWhatAStreamThrows ) {
   struct Broken final : HttpStream {
      Piece next() override { throw std::runtime_error( "broken inside" ); }
      std::string heartbeat() const override { return ""; }
   };
   handler = []( const HttpRequest &, const HttpServer::Answer & answer ) {
      answer( replyOf( std::make_shared< Broken >() ) );
   };
   client().send( get( "/stream" ) );
   EXPECT_THROW( loop->run(), std::runtime_error );
}

} // namespace

} // namespace Agent
