#pragma once

#include "Agent/Control/HttpServer.h"
#include "Platform/Cog/RealTime.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <unistd.h>
#include <vector>

/// Purpose: clients over real sockets for a server on a real loop; the test says what is answered.
namespace Agent {

/// One connection of somebody who asks. Reads whatever comes, unless told not to.
class HttpTestClient {
 public:
   HttpTestClient( Cog::EventLoop & loop, const sockaddr * address, socklen_t size ) : loop_( loop ) {
      descriptor_ = socket( address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0 );
      EXPECT_EQ( 0, connect( descriptor_, address, size ) ) << strerror( errno );
      loop_.descriptorIs( descriptor_, Cog::EventLoop::readable, [this]( Vel::U32 ) { read(); } );
   }
   ~HttpTestClient() { close(); }
   HttpTestClient( const HttpTestClient & ) = delete;
   HttpTestClient & operator=( const HttpTestClient & ) = delete;

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
   /// More has come that is not read yet.
   bool hasMore() const {
      char byte;
      return recv( descriptor_, &byte, 1, MSG_PEEK | MSG_DONTWAIT ) == 1;
   }

   /// Status lines of the answers that have come in full.
   std::vector< std::string > statuses() const {
      std::vector< std::string > result;
      walk( [&]( const std::string & head, const std::string & ) {
         result.push_back( head.substr( 0, head.find( "\r\n" ) ) );
      } );
      return result;
   }
   /// What has come of a body in chunks, put together.
   std::string chunks() const {
      std::string result;
      std::size_t at = received_.find( "\r\n\r\n" );
      for ( at = at == std::string::npos ? received_.size() : at + 4;; ) {
         const std::size_t end = received_.find( "\r\n", at );
         if ( end == std::string::npos )
            return result;
         const std::size_t size = std::stoul( received_.substr( at, end - at ), nullptr, 16 );
         result += received_.substr( end + 2, size );
         at = end + 2 + size + 2;
         if ( size == 0 || at > received_.size() )
            return result;
      }
   }
   /// The last chunk has come.
   bool chunksEnded() const { return received_.ends_with( "\r\n0\r\n\r\n" ); }
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

inline std::string get( const std::string & path ) {
   return "GET " + path + " HTTP/1.1\r\nHost: agent\r\n\r\n";
}

inline std::string head( const std::string & path, std::size_t size ) {
   return "POST " + path + " HTTP/1.1\r\nHost: agent\r\nContent-Length: " + std::to_string( size ) +
          "\r\n\r\n";
}

inline std::string post( const std::string & path, const std::string & body ) {
   return head( path, body.size() ) + body;
}

using Bodies = std::vector< std::string >;

class HttpServerRig : public testing::Test {
 protected:
   HttpServerRig() {
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
   ~HttpServerRig() override {
      clients.clear();
      server.reset();
      std::filesystem::remove_all( folder );
   }

   std::unique_ptr< HttpServer > newServer( unsigned idleTimeout = 60, double heartbeatAfter = 15 ) {
      return std::make_unique< HttpServer >(
         loop, wheel,
         [this]( const HttpRequest & request, HttpServer::Answer answer ) {
            requests.push_back( request );
            if ( handler )
               handler( request, std::move( answer ) );
            else
               answer( { 200, request.path } );
         },
         [this]( const Api::Error & error ) {
            refusals.push_back( error.message );
            return HttpReply{ httpStatus( error.code ), stringValue( error.code ) };
         },
         idleTimeout, heartbeatAfter );
   }
   void listen() { ASSERT_EQ( std::nullopt, server->listenLocal( path ) ); }

   HttpTestClient & client() {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy( address.sun_path, sizeof address.sun_path - 1 );
      return *clients.emplace_back( std::make_unique< HttpTestClient >(
         *loop, reinterpret_cast< sockaddr * >( &address ), sizeof address ) );
   }
   HttpTestClient & webClient() {
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_port = htons( static_cast< std::uint16_t >( server->webPort() ) );
      address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
      return *clients.emplace_back( std::make_unique< HttpTestClient >(
         *loop, reinterpret_cast< sockaddr * >( &address ), sizeof address ) );
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
   void runUntilAnswered( const HttpTestClient & by, std::size_t answers = 1 ) {
      runUntil( [&] { return by.statuses().size() >= answers || by.ended(); } );
   }
   /// Whoever asks now is served.
   void expectService() {
      handler = nullptr;
      HttpTestClient & fresh = client();
      fresh.send( get( "/fresh" ) );
      runUntilAnswered( fresh );
      EXPECT_EQ( Bodies{ "/fresh" }, fresh.bodies() );
   }

   std::string folder, path;
   Vel::Ptr< Cog::EventLoop > loop = Vel::make< Cog::EventLoop >( Vel::make< Cog::RealTime >( 0.0 ) );
   Vel::Ptr< Cog::TimerWheel > wheel = Vel::make< Cog::TimerWheel >( loop, 1000u, 1800u, true, 1024u );
   std::vector< HttpRequest > requests; ///< as the handler got them
   std::vector< std::string > refusals; ///< what the server itself has said of those that it refused
   HttpServer::Handler handler;         ///< empty: answers with the path
   std::unique_ptr< HttpServer > server;
   std::vector< std::unique_ptr< HttpTestClient > > clients;

 private:
   struct Watchdog final : Cog::TimerReactor< HttpServerRig > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->late_ = true; }
   };
   std::function< bool() > until_;
   bool late_ = false;
   Vel::Watch< Watchdog > watchdog_;
};

} // namespace Agent
