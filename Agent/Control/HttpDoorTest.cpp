#include "Agent/Control/HttpServerRigTest.h"

#include <sys/resource.h>

#include <algorithm>

namespace Agent {

namespace {

using Client = HttpTestClient;

class HttpDoor : public HttpServerRig {
 protected:
   /// Makes a turn.
   struct Alarm final : Cog::TimerReactor< HttpDoor > {
      using TimerReactor::TimerReactor;
      void onTime() override {}
   };

   /// As many as there may be, each of them answered once.
   void fillWith( const std::function< Client &() > & connect ) {
      for ( unsigned i = 0; i < HttpServer::maxConnections; ++i ) {
         Client & one = connect();
         one.send( get( "/" ) );
         // Not more wait to be taken than the socket lets wait.
         if ( i % 32 == 31 )
            runUntilAnswered( one );
      }
      for ( const auto & one : clients )
         if ( one->statuses().empty() )
            runUntilAnswered( *one );
   }
};

/// The process has no descriptors but the lowest `more` that are free.
struct FewDescriptors {
   explicit FewDescriptors( int more ) {
      EXPECT_EQ( 0, getrlimit( RLIMIT_NOFILE, &before ) );
      const int lowest = dup( 0 );
      close( lowest );
      rlimit few = before;
      few.rlim_cur = static_cast< rlim_t >( lowest + more );
      EXPECT_EQ( 0, setrlimit( RLIMIT_NOFILE, &few ) );
   }
   ~FewDescriptors() { EXPECT_EQ( 0, setrlimit( RLIMIT_NOFILE, &before ) ); }
   rlimit before{};
};

TEST_F( HttpDoor, takesConnectionsAgainWhenAllHaveEndedAtOnce ) {
   listen();
   fillWith( [this]() -> Client & { return client(); } );
   for ( const auto & one : clients )
      one->close();
   expectService();
}

TEST_F( HttpDoor, takesConnectionsOfTheWebAgainWhenAllHaveEndedAtOnce ) {
   ASSERT_EQ( std::nullopt, server->listenWeb( "127.0.0.1", 0 ) );
   fillWith( [this]() -> Client & { return webClient(); } );
   for ( const auto & one : clients )
      one->close();
   Client & fresh = webClient();
   fresh.send( get( "/fresh" ) );
   runUntilAnswered( fresh );
   EXPECT_EQ( Bodies{ "/fresh" }, fresh.bodies() );
}

TEST_F( HttpDoor, takesOneMoreWhenOneOfAsManyAsThereMayBeEnds ) {
   listen();
   fillWith( [this]() -> Client & { return client(); } );
   Client & more = client();
   more.send( get( "/more" ) );
   Client & known = *clients.front();
   known.send( get( "/known" ) );
   runUntilAnswered( known, 2 );
   EXPECT_TRUE( more.received().empty() );
   known.close();
   runUntilAnswered( more );
   EXPECT_EQ( Bodies{ "/more" }, more.bodies() );
}

TEST_F( HttpDoor, servesThoseOnThisMachineWhileTheWebIsFull ) {
   listen();
   ASSERT_EQ( std::nullopt, server->listenWeb( "127.0.0.1", 0 ) );
   fillWith( [this]() -> Client & { return webClient(); } );
   expectService();
}

TEST_F( HttpDoor, takesConnectionsAgainWhenThereAreDescriptorsAgain ) {
   listen();
   Client & first = client();
   first.send( get( "/first" ) );
   runUntilAnswered( first );
   Client & second = client();
   second.send( get( "/second" ) );
   {
      const FewDescriptors few( 0 );
      first.send( get( "/again" ) );
      runUntilAnswered( first, 2 );
   }
   EXPECT_TRUE( second.received().empty() );
   first.close();
   runUntilAnswered( second );
   EXPECT_EQ( Bodies{ "/second" }, second.bodies() );
}

TEST_F( HttpDoor, restsWhileThereAreNoDescriptors ) {
   listen();
   Vel::Watch< Alarm > alarm;
   alarm.is( wheel, this ).hasNotificationActiveIs( true );
   const auto pass = [&]( double seconds ) {
      const double end = loop->currentTime() + seconds;
      alarm->timeMinIs( end );
      runUntil( [&] { return loop->currentTime() >= end; } );
   };
   // Sanitizers look through a pipe at objects of a type that is new to them: all must have been met before.
   pass( 0.01 );
   expectService();
   Client & waiting = client();
   waiting.send( get( "/" ) );
   const Vel::U64 before = loop->turns();
   {
      const FewDescriptors few( 0 );
      pass( 0.3 );
   }
   EXPECT_LT( loop->turns() - before, 10u );
   EXPECT_TRUE( waiting.received().empty() );
   runUntilAnswered( waiting );
}

TEST_F( HttpDoor, leavesDescriptorsToThoseOnThisMachine ) {
   listen();
   ASSERT_EQ( std::nullopt, server->listenWeb( "127.0.0.1", 0 ) );
   std::vector< Client * > web;
   for ( int i = 0; i < 50; ++i ) {
      web.push_back( &webClient() );
      web.back()->send( get( "/" + std::to_string( i ) ) );
   }
   Client & local = client();
   local.send( get( "/local" ) );
   const auto answered = [&] {
      return std::count_if(
         web.begin(), web.end(), []( const Client * asker ) { return !asker->statuses().empty(); } );
   };
   {
      // Three parts of four are 18 more than there are.
      const int lowest = dup( 0 );
      close( lowest );
      const FewDescriptors few( ( lowest + 18 ) * 4 / 3 - lowest );
      runUntil( [&] { return answered() >= 10 && !local.statuses().empty(); } );
      EXPECT_EQ( Bodies{ "/local" }, local.bodies() );
      Client & another = client();
      another.send( get( "/another" ) );
      runUntilAnswered( another );
      EXPECT_EQ( Bodies{ "/another" }, another.bodies() );
      EXPECT_LE( answered(), 20 );
   }
   runUntil( [&] { return answered() == 50; } );
}

} // namespace

} // namespace Agent
