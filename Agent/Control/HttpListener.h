#pragma once

#include "Agent/Control/HttpServer.h"

#include <microhttpd.h>

#include <deque>
#include <exception>
#include <set>
#include <string>

/// Purpose: what the server is made of; included by its sources only.
namespace Agent {

void addHeaders( MHD_Response & response, const HttpReply & reply );

/// One request and what comes of it. Shared by the server's callbacks and the answer that is given later.
struct HttpServer::Exchange {
   /// What a stream is suspended for.
   enum class Waits { no, forNews, forItsTurn };

   HttpRequest request;
   Listener * listener = nullptr;
   MHD_Connection * connection = nullptr; ///< null: the client or the server is gone, the listener with it
   std::optional< HttpReply > reply;
   bool handed = false;
   bool itsTurn = false; ///< it has waited, and is handed on before others
   bool tooLarge = false;
   // Of a stream, from when its reply is sent.
   std::shared_ptr< const std::string > piece; ///< that is being sent; null: the next one is to be asked for
   std::size_t sent = 0;                       ///< bytes of it
   bool last = false;                          ///< nothing comes after it
   bool failed = false;                        ///< what should come after it cannot be had
   bool beat = false;                          ///< a heartbeat, if there is nothing else
   Waits waits = Waits::no;
   double lastSent = 0;       ///< seconds of the clock, when it last had something to send
   Vel::U64 turn = 0;         ///< in which it has given
   std::size_t turnBytes = 0; ///< so many bytes, or effort that counts for so many
};

/// One listening socket with its server. The server waits with an epoll descriptor, which our loop watches.
struct HttpServer::Listener {
   /// Connections that have become idle are closed when the server runs, and nothing on a descriptor makes it run then.
   struct Idle final : Cog::TimerReactor< Listener > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->run(); }
   };

   HttpServer & server;
   bool local;
   MHD_Daemon * daemon = nullptr;
   int epoll = -1;
   std::unique_ptr< Door > door;
   std::set< Exchange * > suspended; ///< those that wait for something of ours
   std::exception_ptr escaped;       ///< what the handler threw
   bool runPosted = false;
   double idleTime = Cog::Timer::never; ///< when a connection may have become idle
   std::shared_ptr< bool > alive = std::make_shared< bool >( true );
   Vel::Watch< Idle > idle;

   Listener( HttpServer & itsServer, bool isLocal );
   ~Listener();

   /// Does what there is to do. The library may have more to do than a descriptor tells, and says so by a time limit
   /// of 0; then it runs again, a turn later at the latest.
   void run();
   void work();
   void runSoon();
   void idleTimeIs( double time );
   void suspend( Exchange & exchange );
   /// False if it is not suspended. The library looks at it when it runs next, and nothing on a descriptor makes it run.
   bool resume( Exchange & exchange );

   static constexpr unsigned maxRounds = 16;
};

/// Takes the connections of a listener, as long as it has places and the process has descriptors; whoever comes then waits
/// to be taken. The library, if it took them, would look for room only when something else made it run.
struct HttpServer::Door {
   struct Again final : Cog::TimerReactor< Door > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->restingIs( false ); }
   };

   /// The descriptor is the door's from now on.
   Door( Listener & itsListener, int listening );
   ~Door();
   Door( const Door & ) = delete;
   Door & operator=( const Door & ) = delete;

   /// Connections may have ended.
   void look();

 private:
   void take();
   bool mayTake() const;
   bool leavesDescriptors() const;
   void restingIs( bool resting );
   unsigned connections() const;

   /// Those that are taken in a turn, if more wait.
   static constexpr unsigned maxTaken = 16;
   /// Seconds after which it looks whether others have given descriptors back.
   static constexpr double retryAfter = 1;

   Listener & listener_;
   int descriptor_;
   bool resting_ = false;
   double againTime_ = Cog::Timer::never;
   unsigned connectionsThen_ = 0; ///< when it began to rest
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
   Vel::Watch< Again > again_;
};

/// The requests that wait for a later turn, since what was answered in this one is enough: an answer is made at once, and
/// a hundred who ask for everything must not hold up the turn in which they come. Whoever asks on this machine waits for
/// nobody who asks over the web address.
struct HttpServer::Turns {
   explicit Turns( HttpServer & itsServer ) : server_( itsServer ) {}
   Turns( const Turns & ) = delete;
   Turns & operator=( const Turns & ) = delete;

   /// Whether the request may be handed on in this turn; if not, it is suspended until it may.
   bool mayHand( const std::shared_ptr< Exchange > & exchange );
   /// So many bytes were answered at once.
   void answered( std::size_t bytes ) { bytes_ += bytes; }

 private:
   using Queue = std::deque< std::shared_ptr< Exchange > >; ///< some may be gone
   void goOnSoon();
   void goOn();

   HttpServer & server_;
   Queue local_, web_;
   Vel::U64 turn_ = 0;
   std::size_t bytes_ = 0; ///< that were answered in it
   bool posted_ = false;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

/// The replies that go on. Those that may give something stand in a queue, of which each turn takes as many as may send
/// in one; so what a turn does for readers is limited, however many there are and however far behind.
struct HttpServer::Streams {
   struct Beat final : Cog::TimerReactor< Streams > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->heartbeats(); }
   };

   explicit Streams( HttpServer & itsServer );
   ~Streams() = default;
   Streams( const Streams & ) = delete;
   Streams & operator=( const Streams & ) = delete;

   /// Begins to send the stream of a reply; false: the connection cannot take it.
   bool open( const std::shared_ptr< Exchange > & exchange );
   void closed( Exchange & exchange ) { open_.erase( &exchange ); }
   /// Fills the buffer of a connection. As the library wants it: bytes, 0 for nothing yet, or that it is the end.
   ssize_t read( const std::shared_ptr< Exchange > & exchange, char * buffer, std::size_t room );
   void flush();
   unsigned count() const { return static_cast< unsigned >( open_.size() ); }
   /// Why one more may not be opened; empty: it may be.
   std::string refusal( const Exchange & exchange ) const;

 private:
   bool fetch( Exchange & exchange );
   void spend( Exchange & exchange, std::size_t bytes );
   bool mayGive( Exchange & exchange );
   void wait( const std::shared_ptr< Exchange > & exchange, Exchange::Waits waits );
   void wake( const std::shared_ptr< Exchange > & exchange );
   void goOn();
   void goOnSoon();
   void heartbeats();
   double now() const { return server_.loop_->currentTime(); }

   HttpServer & server_;
   std::set< Exchange * > open_;
   std::deque< std::shared_ptr< Exchange > > ready_; ///< that wait for their turn; some may be gone
   Vel::U64 turn_ = 0;
   std::size_t turnBytes_ = 0; ///< that all have given in it
   double beatTime_ = Cog::Timer::never;
   bool posted_ = false, flushing_ = false;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
   Vel::Watch< Beat > beat_;
};

} // namespace Agent
