#include "Platform/Cog/EventLoop.h"
#include "Platform/Cog/ActingRig.h"
#include "Platform/Cog/RealTime.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr double start = 1.7e9;

struct Pipe {
   Pipe() { EXPECT_EQ( 0, pipe2( ends, O_CLOEXEC | O_NONBLOCK ) ); }
   ~Pipe() { closeAll(); }
   void put() { EXPECT_EQ( 1, write( ends[1], "x", 1 ) ); }
   void take() {
      char byte;
      EXPECT_EQ( 1, read( ends[0], &byte, 1 ) );
   }
   void closeAll() {
      for ( int & end : ends )
         if ( end >= 0 )
            close( std::exchange( end, -1 ) );
   }
   int ends[2];
};

using Cog::Alarm;
using Cog::Chore;

class EventLoop : public testing::Test {
 protected:
   std::function< void() > logs( std::string text ) {
      return [this, text] { log += text + " "; };
   }
   std::function< void() > stops() {
      return [this] { loop->stop(); };
   }

   const Vel::Ptr< Cog::VirtualTime > time = Vel::make< Cog::VirtualTime >( start );
   const Vel::Ptr< Cog::EventLoop > loop = Vel::make< Cog::EventLoop >( time );
   Pipe a;
   Pipe b;
   std::vector< int > quiet;
   std::string log;
};

TEST_F( EventLoop, turnGoesThroughItsPhasesInOrder ) {
   const auto wheel = Vel::make< Cog::TimerWheel >( loop, 1000, 1800, true, 1024 );
   Alarm alarm;
   alarm.act = logs( "timer" );
   alarm.timer.is( wheel, &alarm ).hasNotificationActiveIs( true );
   alarm.timer->timeMinIs( start );
   Chore chore( loop, logs( "task" ) );
   loop->commitHookIs( [this] {
      log += "commit ";
      return true;
   } );
   loop->effectIs( [this] {
      log += "effect ";
      loop->stop();
   } );
   loop->post( logs( "posted" ) );
   loop->descriptorIs( a.ends[0], loop->readable, [&]( Vel::U32 ) {
      a.take();
      log += "descriptor ";
      chore.clockReactorTimeMinIs( 0 );
   } );
   a.put();
   time->spend( 1 );
   loop->run();
   EXPECT_EQ( "descriptor posted timer task commit effect ", log );
   EXPECT_EQ( 1u, loop->turns() );
}

TEST_F( EventLoop, tellsHowLongItsTurnsTake ) {
   loop->post( [this] {
      time->spend( 0.5 );
      loop->post( [this] {
         time->spend( 0.25 );
         loop->stop();
      } );
   } );
   loop->run();
   EXPECT_EQ( 0.75, loop->turnTimes().total() );
   EXPECT_EQ( 0.5, loop->turnTimes().longest( loop->currentTime() ) );
}

TEST_F( EventLoop, doesNotWaitWhileTasksArePosted ) {
   loop->post( [this] { loop->post( [this] { loop->post( stops() ); } ); } );
   loop->run();
   EXPECT_EQ( 3u, loop->turns() );
}

TEST_F( EventLoop, looksAtDescriptorsAlsoWhileTasksArePosted ) {
   std::function< void() > again = [&] { loop->post( again ); };
   loop->post( again );
   loop->descriptorIs( a.ends[0], loop->readable, [&]( Vel::U32 ) { loop->stop(); } );
   a.put();
   loop->run();
   EXPECT_EQ( 1u, loop->turns() );
}

TEST_F( EventLoop, taskThatIsPostedByADescriptorsHandlerRunsInTheNextTurn ) {
   Vel::U64 turnOfTask = 0;
   loop->descriptorIs( a.ends[0], loop->readable, [&]( Vel::U32 ) {
      a.take();
      loop->post( [&] {
         turnOfTask = loop->turns();
         loop->stop();
      } );
   } );
   a.put();
   loop->run();
   EXPECT_EQ( 2u, turnOfTask );
}

TEST_F( EventLoop, goesFromDueTimeToDueTime ) {
   const auto wheel = Vel::make< Cog::TimerWheel >( loop, 1000, 1800, true, 1024 );
   std::vector< double > times;
   Alarm alarm;
   alarm.act = [&] {
      times.push_back( loop->currentTime() );
      alarm.timer->timeMinIs( loop->currentTime() + 5 );
      if ( times.size() == 3 )
         loop->stop();
   };
   alarm.timer.is( wheel, &alarm ).hasNotificationActiveIs( true );
   alarm.timer->timeMinIs( start + 5 );
   time->targetIs( start + 100 );
   loop->run();
   EXPECT_EQ( ( std::vector< double >{ start + 5, start + 10, start + 15 } ), times );
}

TEST_F( EventLoop, waitsInRealTimeForADueTime ) {
   const auto real = Vel::make< Cog::EventLoop >( Vel::make< Cog::RealTime >( 0 ) );
   const auto wheel = Vel::make< Cog::TimerWheel >( real, 5, 1800, true, 1024 );
   const double due = real->currentTime() + 0.010;
   double fired = 0;
   Alarm alarm;
   alarm.act = [&] {
      fired = real->currentTime();
      real->stop();
   };
   alarm.timer.is( wheel, &alarm ).hasNotificationActiveIs( true );
   alarm.timer->timeMinIs( due );
   real->run();
   EXPECT_GE( fired, due );
}

TEST_F( EventLoop, tellsWhatTheDescriptorIsReadyFor ) {
   struct Row {
      const char * name;
      int end;
      Vel::U32 interest;
      std::function< void() > before;
      Vel::U32 events;
   };
   const Row rows[] = {
      { "readable", 0, loop->readable, [this] { a.put(); }, loop->readable },
      { "writable", 1, loop->writable, [] {}, loop->writable },
      { "hang-up", 0, 0, [this] { close( std::exchange( a.ends[1], -1 ) ); }, loop->failed },
   };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.name );
      Vel::U32 seen = 0;
      row.before();
      loop->descriptorIs( a.ends[row.end], row.interest, [&]( Vel::U32 events ) {
         seen = events;
         loop->stop();
      } );
      loop->run();
      EXPECT_EQ( row.events, seen );
      loop->descriptorDel( a.ends[row.end] );
      if ( row.interest == loop->readable )
         a.take();
   }
}

TEST_F( EventLoop, interestCanBeChanged ) {
   unsigned calls = 0;
   loop->descriptorIs( a.ends[0], 0, [&]( Vel::U32 ) {
      ++calls;
      loop->stop();
   } );
   a.put();
   loop->post( stops() );
   loop->run();
   EXPECT_EQ( 0u, calls );
   loop->descriptorInterestIs( a.ends[0], loop->readable );
   loop->run();
   EXPECT_EQ( 1u, calls );
}

TEST_F( EventLoop, handlerCanBeReplaced ) {
   a.put();
   loop->descriptorIs( a.ends[0], loop->readable, [this]( Vel::U32 ) { log += "old "; } );
   loop->descriptorIs( a.ends[0], loop->readable, [this]( Vel::U32 ) {
      log += "new ";
      loop->stop();
   } );
   loop->run();
   EXPECT_EQ( "new ", log );
}

TEST_F( EventLoop, descriptorRemovedByAnotherHandlerIsNotServedAnyMore ) {
   const auto remover = [this]( const char * name, Pipe & other ) {
      return [this, name, &other]( Vel::U32 ) {
         log += name;
         EXPECT_TRUE( loop->descriptorDel( other.ends[0] ) );
         loop->stop();
      };
   };
   // Both are ready in the same turn; whichever comes first removes the other.
   loop->descriptorIs( a.ends[0], loop->readable, remover( "a", b ) );
   loop->descriptorIs( b.ends[0], loop->readable, remover( "b", a ) );
   a.put();
   b.put();
   loop->run();
   EXPECT_EQ( 1u, log.size() );
   EXPECT_EQ( 1u, loop->turns() );
}

TEST_F( EventLoop, newDescriptorOfTheSameNumberDoesNotInheritWhatWasReady ) {
   // The first handler that runs replaces the other pipe by a quiet one that gets the same number.
   const auto replacer = [this]( Pipe & other ) {
      return [this, &other]( Vel::U32 ) {
         log += "replaced ";
         const int number = other.ends[0];
         loop->descriptorDel( number );
         Pipe fresh;
         ASSERT_EQ( number, dup2( fresh.ends[0], number ) );
         quiet.push_back( dup( fresh.ends[1] ) );
         loop->descriptorIs( number, loop->readable, [this]( Vel::U32 ) { log += "inherited "; } );
         loop->stop();
      };
   };
   loop->descriptorIs( a.ends[0], loop->readable, replacer( b ) );
   loop->descriptorIs( b.ends[0], loop->readable, replacer( a ) );
   a.put();
   b.put();
   loop->run();
   EXPECT_EQ( "replaced ", log );
   for ( const int end : quiet )
      close( end );
}

TEST_F( EventLoop, handlerMayRemoveItself ) {
   std::string text( 100, 'x' );
   loop->descriptorIs( a.ends[0], loop->readable, [this, text]( Vel::U32 ) {
      EXPECT_TRUE( loop->descriptorDel( a.ends[0] ) );
      log += text;
      loop->post( stops() );
   } );
   a.put();
   loop->run();
   EXPECT_EQ( text, log );
   EXPECT_FALSE( loop->descriptorDel( a.ends[0] ) );
}

TEST_F( EventLoop, descriptorThatIsClosedAlreadyCanBeRemoved ) {
   const int number = a.ends[0];
   loop->descriptorIs( number, loop->readable, []( Vel::U32 ) {} );
   a.closeAll();
   EXPECT_TRUE( loop->descriptorDel( number ) );
}

TEST_F( EventLoop, refusesWhatCannotBeWatched ) {
   const int file = open( "/proc/self/exe", O_RDONLY | O_CLOEXEC );
   try {
      loop->descriptorIs( file, loop->readable, []( Vel::U32 ) {} );
      FAIL() << "a regular file was taken";
   } catch ( const Vel::InternalException & refused ) {
      EXPECT_EQ(
         Vel::text( "cannot watch descriptor ", file, ": Operation not permitted" ),
         std::string( refused.what() ) );
   }
   close( file );
   EXPECT_FALSE( loop->descriptorDel( file ) );
   EXPECT_THROW( loop->descriptorIs( -1, loop->readable, []( Vel::U32 ) {} ), Vel::InternalException );
}

TEST_F( EventLoop, stopEndsWithTheTurnThatIsOn ) {
   loop->commitHookIs( [this] {
      log += "commit ";
      return true;
   } );
   loop->effectIs( logs( "effect" ) );
   loop->post( stops() );
   loop->post( logs( "posted" ) );
   loop->run();
   EXPECT_EQ( "posted commit effect ", log );
   EXPECT_EQ( 1u, loop->turns() );
}

TEST_F( EventLoop, stopOutsideOfATurnEndsTheNextRunAtOnce ) {
   loop->stop();
   loop->run();
   EXPECT_EQ( 0u, loop->turns() );
}

TEST_F( EventLoop, canRunAgainAfterAStop ) {
   loop->post( stops() );
   loop->run();
   loop->post( stops() );
   loop->run();
   EXPECT_EQ( 2u, loop->turns() );
}

TEST_F( EventLoop, escapedExceptionIsReportedAndEndsTheLoop ) {
   loop->commitHookIs( [this] {
      log += "commit ";
      return true;
   } );
   loop->escapedHookIs( [this]( const std::exception_ptr & exception ) {
      try {
         std::rethrow_exception( exception );
      } catch ( const std::exception & e ) {
         log += Vel::text( "report ", e.what(), " " );
      }
   } );
   loop->post( [] { throw Vel::InternalException( "bad" ); } );
   EXPECT_THROW( loop->run(), Vel::InternalException );
   EXPECT_EQ( "report bad ", log );
}

TEST_F( EventLoop, escapedExceptionPassesAlsoWithoutAHook ) {
   loop->descriptorIs( a.ends[1], loop->writable, []( Vel::U32 ) { throw 7; } );
   EXPECT_THROW( loop->run(), int );
}

} // namespace
