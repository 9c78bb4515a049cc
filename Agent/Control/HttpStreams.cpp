// Replies that go on.

#include "Agent/Control/HttpListener.h"

#include <algorithm>
#include <cstring>

namespace Agent {

/// What the library calls for a stream.
struct StreamCallbacks {
   using Exchange = HttpServer::Exchange;

   static ssize_t read( void * context, std::uint64_t, char * buffer, std::size_t room ) {
      const std::shared_ptr< Exchange > exchange = *static_cast< std::shared_ptr< Exchange > * >( context );
      try {
         return exchange->listener->server.streams_->read( exchange, buffer, room );
      } catch ( ... ) {
         // It must not pass through the library, which is C; the connection is closed.
         exchange->listener->escaped = std::current_exception();
         return MHD_CONTENT_READER_END_WITH_ERROR;
      }
   }
   static void free( void * context ) { delete static_cast< std::shared_ptr< Exchange > * >( context ); }
};

HttpServer::Streams::Streams( HttpServer & itsServer ) : server_( itsServer ) {
   beat_.is( server_.wheel_, this ).hasNotificationActiveIs( true );
   // Timers rest while counters cannot be read; there are turns all the same.
   server_.loop_->commitHookIs( [weak = std::weak_ptr( alive_ ), this] {
      if ( !weak.expired() && now() >= beatTime_ )
         heartbeats();
      return true;
   } );
}

std::string HttpServer::Streams::refusal( const Exchange & exchange ) const {
   const bool local = exchange.listener->local, ends = exchange.reply->stream->ends();
   unsigned all = 0, web = 0;
   std::size_t webBytes = 0;
   for ( const Exchange * const other : open_ ) {
      const HttpStream & stream = *other->reply->stream;
      if ( stream.ends() != ends )
         continue;
      ++all;
      if ( other->listener->local )
         continue;
      ++web;
      webBytes += stream.size().value_or( 0 );
   }
   const std::string count = std::to_string( all );
   if ( !ends )
      return all < maxStreams && ( local || web < maxWebStreams ) ? ""
                                                                  : "there are " + count + " streams already";
   const std::size_t size = exchange.reply->stream->size().value_or( 0 );
   const bool fits = local || web == 0 || webBytes + size <= maxWebBytes;
   return fits && all < maxLongAnswers && ( local || web < maxWebLongAnswers )
             ? ""
             : "there are " + count + " long answers under way already";
}

bool HttpServer::Streams::open( const std::shared_ptr< Exchange > & exchange ) {
   const auto size = exchange->reply->stream->size();
   MHD_Response * const response = MHD_create_response_from_callback(
      size ? *size : MHD_SIZE_UNKNOWN, maxStreamBytes, StreamCallbacks::read,
      new std::shared_ptr< Exchange >( exchange ), StreamCallbacks::free );
   addHeaders( *response, *exchange->reply );
   const MHD_Result result = MHD_queue_response(
      exchange->connection, static_cast< unsigned >( exchange->reply->status ), response );
   MHD_destroy_response( response );
   if ( result != MHD_YES )
      return false;
   exchange->lastSent = now();
   exchange->reply->stream->wakeIs( [this, weak = std::weak_ptr( exchange )] {
      if ( const auto woken = weak.lock() )
         wake( woken );
   } );
   open_.insert( exchange.get() );
   if ( beatTime_ == Cog::Timer::never )
      heartbeats();
   return true;
}

ssize_t
HttpServer::Streams::read( const std::shared_ptr< Exchange > & exchange, char * buffer, std::size_t room ) {
   if ( !mayGive( *exchange ) ) {
      wait( exchange, Exchange::Waits::forItsTurn );
      return 0;
   }
   room = std::min( room, maxStreamBytes );
   std::size_t filled = 0;
   // Whoever is asked for a piece may have to work for it; none is asked for that the turn has no room for.
   while ( filled < room && ( exchange->piece || ( mayGive( *exchange ) && fetch( *exchange ) ) ) ) {
      const std::string & text = *exchange->piece;
      const std::size_t size = std::min( room - filled, text.size() - exchange->sent );
      std::memcpy( buffer + filled, text.data() + exchange->sent, size );
      filled += size;
      exchange->sent += size;
      spend( *exchange, size );
      if ( exchange->sent == text.size() )
         exchange->piece = nullptr;
   }
   if ( filled == 0 && exchange->failed )
      return MHD_CONTENT_READER_END_WITH_ERROR;
   if ( filled == 0 && exchange->last )
      return MHD_CONTENT_READER_END_OF_STREAM;
   if ( filled == 0 )
      wait( exchange, Exchange::Waits::forNews );
   else
      exchange->lastSent = now();
   return static_cast< ssize_t >( filled );
}

void HttpServer::Streams::spend( Exchange & exchange, std::size_t bytes ) {
   exchange.turnBytes += bytes;
   turnBytes_ += bytes;
}

/// Whether there is another piece to send.
bool HttpServer::Streams::fetch( Exchange & exchange ) {
   if ( exchange.last )
      return false;
   HttpStream & stream = *exchange.reply->stream;
   HttpStream::Piece next = stream.next();
   exchange.last = next.last || next.failed;
   exchange.failed = next.failed;
   // Its text counts as it is sent, which may be in later turns.
   if ( const std::size_t size = next.text ? next.text->size() : 0; next.effort > size )
      spend( exchange, next.effort - size );
   if ( !next.text && exchange.beat )
      next.text = std::make_shared< const std::string >( stream.heartbeat() );
   exchange.beat = false;
   exchange.sent = 0;
   exchange.piece = next.text && !next.text->empty() ? std::move( next.text ) : nullptr;
   return exchange.piece != nullptr;
}

bool HttpServer::Streams::mayGive( Exchange & exchange ) {
   const Vel::U64 turn = server_.loop_->turns();
   if ( std::exchange( turn_, turn ) != turn )
      turnBytes_ = 0;
   if ( std::exchange( exchange.turn, turn ) != turn )
      exchange.turnBytes = 0;
   return flushing_ || ( turnBytes_ < maxTurnBytes && exchange.turnBytes < maxStreamBytes );
}

void HttpServer::Streams::wait( const std::shared_ptr< Exchange > & exchange, Exchange::Waits waits ) {
   exchange->waits = waits;
   exchange->listener->suspend( *exchange );
   if ( waits == Exchange::Waits::forItsTurn ) {
      ready_.push_back( exchange );
      goOnSoon();
   }
}

void HttpServer::Streams::wake( const std::shared_ptr< Exchange > & exchange ) {
   if ( !exchange->connection || exchange->waits != Exchange::Waits::forNews )
      return;
   exchange->waits = Exchange::Waits::forItsTurn;
   ready_.push_back( exchange );
   goOnSoon();
}

void HttpServer::Streams::goOnSoon() {
   if ( !std::exchange( posted_, true ) )
      server_.loop_->post( [weak = std::weak_ptr( alive_ ), this] {
         if ( !weak.expired() )
            goOn();
      } );
}

void HttpServer::Streams::goOn() {
   posted_ = false;
   std::set< Listener * > toRun;
   for ( std::size_t left = maxTurnBytes / maxStreamBytes; left > 0 && !ready_.empty(); ) {
      const std::shared_ptr< Exchange > exchange = std::move( ready_.front() );
      ready_.pop_front();
      if ( !exchange->connection || exchange->waits != Exchange::Waits::forItsTurn )
         continue;
      exchange->waits = Exchange::Waits::no;
      exchange->listener->resume( *exchange );
      toRun.insert( exchange->listener );
      --left;
   }
   if ( !ready_.empty() )
      goOnSoon();
   for ( Listener * const listener : toRun )
      listener->run();
}

void HttpServer::Streams::heartbeats() {
   beatTime_ = Cog::Timer::never;
   for ( Exchange * const exchange : open_ ) {
      // One that waits for its reader to take something needs none.
      if (
         exchange->waits == Exchange::Waits::forNews &&
         now() - exchange->lastSent >= server_.heartbeatAfter_ ) {
         exchange->beat = true;
         exchange->lastSent = now();
         exchange->reply->stream->wake();
      }
      beatTime_ = std::min( beatTime_, std::max( exchange->lastSent, now() - 1 ) + server_.heartbeatAfter_ );
   }
   beat_->timeMinIs( beatTime_ );
}

void HttpServer::Streams::flush() {
   constexpr unsigned maxTries = 16;
   flushing_ = true;
   for ( unsigned i = 0; i < maxTries && !open_.empty(); ++i ) {
      std::set< Listener * > toRun;
      for ( Exchange * const exchange : open_ ) {
         exchange->waits = Exchange::Waits::no;
         exchange->listener->resume( *exchange );
         toRun.insert( exchange->listener );
      }
      for ( Listener * const listener : toRun )
         listener->run();
   }
   flushing_ = false;
}

} // namespace Agent
