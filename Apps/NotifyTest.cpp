#include "Apps/Notify.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

using Apps::Notify;

/// The service manager's end: what it is told, and a loop that talks to it.
class Notified : public testing::Test {
 protected:
   ~Notified() override {
      if ( socket_ >= 0 )
         close( socket_ );
      if ( !path_.empty() )
         unlink( path_.c_str() );
   }

   /// Listens on that name; '@' is that of no file.
   void listenOn( const std::string & name ) {
      socket_ = socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
      ASSERT_LE( 0, socket_ );
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::memcpy( address.sun_path, name.data(), name.size() );
      if ( name[0] == '@' )
         address.sun_path[0] = '\0';
      else
         path_ = name;
      ASSERT_EQ(
         0, bind(
               socket_, reinterpret_cast< sockaddr * >( &address ),
               static_cast< socklen_t >( offsetof( sockaddr_un, sun_path ) + name.size() ) ) )
         << std::strerror( errno );
   }
   static std::string nameOf( const std::string & what ) {
      return what + "-" + std::to_string( getpid() ) + ".notify";
   }

   /// The next thing that is told within so many seconds; empty: nothing was.
   std::string told( double seconds ) {
      timeval limit{};
      limit.tv_sec = static_cast< time_t >( seconds );
      limit.tv_usec = static_cast< suseconds_t >( ( seconds - static_cast< double >( limit.tv_sec ) ) * 1e6 );
      setsockopt( socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit );
      char text[4096];
      const ssize_t size = recv( socket_, text, sizeof text, 0 );
      return size > 0 ? std::string( text, static_cast< std::size_t >( size ) ) : "";
   }
   std::string toldAtOnce() {
      char text[4096];
      const ssize_t size = recv( socket_, text, sizeof text, MSG_DONTWAIT );
      return size > 0 ? std::string( text, static_cast< std::size_t >( size ) ) : "";
   }
   std::string told() { return told( patience ); }

   void runUntilTold( const std::string & text ) {
      for ( std::string heard; heard.find( text ) == std::string::npos; ) {
         loop->post( [this] { loop->post( [this] { loop->stop(); } ); } );
         loop->run();
         heard = told( 0.05 );
      }
   }

   static constexpr double patience = 30;
   const Vel::Ptr< Cog::EventLoop > loop =
      Vel::make< Cog::EventLoop >( Vel::make< Cog::VirtualTime >( 1.7e9 ) );

 private:
   int socket_ = -1;
   std::string path_;
};

TEST_F( Notified, isToldOfEachStepOnASocketWithAPath ) {
   const std::string name = testing::TempDir() + nameOf( "path" );
   listenOn( name );
   Notify notify( { name, std::nullopt } );
   EXPECT_EQ( "", toldAtOnce() ) << "it has not started yet";
   notify.ready( *loop, [] { return "2 units"; } );
   EXPECT_EQ( "READY=1\nSTATUS=2 units\n", told() );
   notify.reloading();
   EXPECT_EQ( 0u, told().find( "RELOADING=1\nMONOTONIC_USEC=" ) );
   notify.reloaded();
   EXPECT_EQ( "READY=1\n", told() );
   notify.stopping();
   EXPECT_EQ( "STOPPING=1\n", told() );
}

/// However long the text is: a start that is not told is ended after its time.
TEST_F( Notified, isToldThatItHasStartedAlsoWithALongStatus ) {
   const std::string name = "@" + nameOf( "long" );
   listenOn( name );
   Notify notify( { name, 0.1 } );
   std::string status = "a" + std::string( 300, '\n' );
   for ( int i = 0; i < 5000; ++i )
      status += "\u00e4";
   notify.ready( *loop, [&] { return status; } );
   const std::string heard = told();
   EXPECT_EQ( 0u, heard.find( "READY=1\nSTATUS=a   " ) ) << heard;
   EXPECT_EQ( 2, std::count( heard.begin(), heard.end(), '\n' ) ) << "one line";
   EXPECT_EQ( "\u00e4\n", heard.substr( heard.size() - 3 ) ) << "whole characters";
   EXPECT_GT( 520u, heard.size() );
}

TEST_F( Notified, isToldOnASocketWithoutAPath ) {
   const std::string name = "@" + nameOf( "maintd" );
   listenOn( name );
   Notify notify( { name, std::nullopt } );
   notify.ready( *loop, [] { return ""; } );
   EXPECT_EQ( "READY=1\nSTATUS=\n", told() );
}

TEST_F( Notified, isNotAskedForWhereNobodyListens ) {
   Notify nobody( { testing::TempDir() + nameOf( "nobody" ), 0.1 } );
   int asked = 0;
   nobody.ready( *loop, [&] { return std::to_string( ++asked ); } );
   // It goes on, and says what is so then to whoever comes.
   while ( asked < 3 ) {
      loop->post( [this] { loop->post( [this] { loop->stop(); } ); } );
      loop->run();
   }
   nobody.stopping();
   Notify none( {} );
   none.ready( *loop, []() -> std::string { throw std::logic_error( "nobody asks" ); } );
   none.reloading();
   none.reloaded();
   none.stopping();
}

TEST_F( Notified, seesTheWatchdogFedWhileTheLoopTurns ) {
   const std::string name = "@" + nameOf( "fed" );
   listenOn( name );
   Notify notify( { name, 0.2 } );
   notify.ready( *loop, [] { return "quiet"; } );
   EXPECT_EQ( "READY=1\nSTATUS=quiet\n", told() );
   EXPECT_EQ( "", toldAtOnce() ) << "it is the loop that feeds";
   runUntilTold( "WATCHDOG=1\n" );
   runUntilTold( "WATCHDOG=1\n" );
}

TEST_F( Notified, seesNoFeedWhileTheLoopHangs ) {
   const std::string name = "@" + nameOf( "hung" );
   listenOn( name );
   Notify notify( { name, 0.2 } );
   notify.ready( *loop, [] { return ""; } );
   runUntilTold( "WATCHDOG=1\n" );
   std::string heard = "nothing yet";
   loop->post( [&] {
      // What the turn itself has begun with.
      while ( !toldAtOnce().empty() ) {
      }
      // Three times what the watchdog grants.
      heard = told( 0.6 );
      loop->stop();
   } );
   loop->run();
   EXPECT_EQ( "", heard );
   runUntilTold( "WATCHDOG=1\n" );
}

TEST_F( Notified, hearsAStatusOnlyWhenItHasChanged ) {
   const std::string name = "@" + nameOf( "status" );
   listenOn( name );
   Notify notify( { name, 0.1 } );
   std::string status = "quiet";
   notify.ready( *loop, [&] { return status; } );
   EXPECT_EQ( "READY=1\nSTATUS=quiet\n", told() );
   loop->post( [this] { loop->stop(); } );
   loop->run();
   EXPECT_EQ( std::string::npos, toldAtOnce().find( "STATUS" ) );
   status = "1 entering";
   runUntilTold( "STATUS=1 entering\n" );
}

TEST_F( Notified, hearsLaterWhatItHadNoRoomFor ) {
   const std::string name = "@" + nameOf( "full" );
   listenOn( name );
   Notify notify( { name, 0.1 } );
   notify.ready( *loop, [] { return ""; } );
   // The socket takes so many messages and no more, and nobody here may wait for it.
   for ( int i = 0; i < 2000; ++i )
      notify.reloaded();
   notify.stopping();
   while ( !toldAtOnce().empty() ) {
   }
   runUntilTold( "STOPPING=1\n" );
}

TEST( NotifyAddress, isWhatTheEnvironmentSays ) {
   const auto address = Notify::address( "/run/systemd/notify", "30000000", "17", 17 );
   EXPECT_EQ( "/run/systemd/notify", address.socket );
   EXPECT_EQ( 30.0, address.watchdog );
   EXPECT_EQ( 30.0, Notify::address( "@x", "30000000", nullptr, 17 ).watchdog );
}

TEST( NotifyAddress, isNoneWhereThereIsNone ) {
   EXPECT_EQ( "", Notify::address( nullptr, "30000000", nullptr, 1 ).socket );
   EXPECT_EQ( "", Notify::address( "", nullptr, nullptr, 1 ).socket );
   EXPECT_EQ( "", Notify::address( "relative", nullptr, nullptr, 1 ).socket );
   EXPECT_EQ( "", Notify::address( "@", nullptr, nullptr, 1 ).socket );
   EXPECT_EQ( std::nullopt, Notify::address( nullptr, "30000000", nullptr, 1 ).watchdog );
}

TEST( NotifyAddress, hasNoWatchdogThatIsNotOurs ) {
   for ( const char * microseconds : { "0", "-5", "", "3s", "99999999999999999999" } ) {
      SCOPED_TRACE( microseconds );
      EXPECT_EQ( std::nullopt, Notify::address( "/run/n", microseconds, nullptr, 17 ).watchdog );
   }
   EXPECT_EQ( std::nullopt, Notify::address( "/run/n", "30000000", "18", 17 ).watchdog );
   EXPECT_EQ( std::nullopt, Notify::address( "/run/n", "30000000", "x", 17 ).watchdog );
}

TEST( NotifyAddress, isTakenOutOfTheEnvironment ) {
   setenv( "NOTIFY_SOCKET", "/run/n", 1 );
   setenv( "WATCHDOG_USEC", "4000000", 1 );
   setenv( "WATCHDOG_PID", std::to_string( getpid() ).c_str(), 1 );
   const auto address = Notify::takeFromEnvironment();
   EXPECT_EQ( "/run/n", address.socket );
   EXPECT_EQ( 4.0, address.watchdog );
   EXPECT_EQ( nullptr, getenv( "NOTIFY_SOCKET" ) );
   EXPECT_EQ( nullptr, getenv( "WATCHDOG_USEC" ) );
   EXPECT_EQ( nullptr, getenv( "WATCHDOG_PID" ) );
}

TEST( NotifyTick, isAQuarterOfTheWatchdogAndNeverLong ) {
   EXPECT_EQ( 1.0, Notify( { "/run/n", 4.0 } ).tick() );
   EXPECT_EQ( Notify::longestTick, Notify( { "/run/n", 60.0 } ).tick() );
   EXPECT_EQ( Notify::longestTick, Notify( { "/run/n", std::nullopt } ).tick() );
}

} // namespace
