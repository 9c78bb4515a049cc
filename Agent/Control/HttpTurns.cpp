// Requests that wait for their turn.

#include "Agent/Control/HttpListener.h"

#include <utility>

namespace Agent {

bool HttpServer::Turns::mayHand( const std::shared_ptr< Exchange > & exchange ) {
   const Vel::U64 turn = server_.loop_->turns();
   if ( std::exchange( turn_, turn ) != turn )
      bytes_ = 0;
   const bool local = exchange->listener->local;
   Queue & queue = local ? local_ : web_;
   // Who comes now stands behind those who wait.
   const bool first = queue.empty() && ( local || local_.empty() );
   if ( bytes_ < maxTurnBody && ( exchange->itsTurn || first ) )
      return true;
   exchange->listener->suspend( *exchange );
   if ( exchange->itsTurn )
      queue.push_front( exchange );
   else
      queue.push_back( exchange );
   goOnSoon();
   return false;
}

void HttpServer::Turns::goOnSoon() {
   if ( !std::exchange( posted_, true ) )
      server_.loop_->post( [weak = std::weak_ptr( alive_ ), this] {
         if ( !weak.expired() )
            goOn();
      } );
}

/// One after the other, since nobody knows before how much it will be.
void HttpServer::Turns::goOn() {
   posted_ = false;
   const Vel::U64 turn = server_.loop_->turns();
   while ( !( local_.empty() && web_.empty() ) && ( turn_ != turn || bytes_ < maxTurnBody ) ) {
      Queue & queue = local_.empty() ? web_ : local_;
      const std::shared_ptr< Exchange > exchange = std::move( queue.front() );
      queue.pop_front();
      if ( !exchange->connection )
         continue;
      exchange->itsTurn = true;
      exchange->listener->resume( *exchange );
      exchange->listener->run();
   }
   if ( !( local_.empty() && web_.empty() ) )
      goOnSoon();
}

} // namespace Agent
