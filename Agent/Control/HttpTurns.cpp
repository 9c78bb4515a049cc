// Requests that wait for their turn.

#include "Agent/Control/HttpListener.h"

#include <utility>

namespace Agent {

bool HttpServer::Turns::mayHand( const std::shared_ptr< Exchange > & exchange ) {
   const Vel::U64 turn = server_.loop_->turns();
   if ( std::exchange( turn_, turn ) != turn )
      bytes_ = 0;
   // Who comes now stands behind those who wait.
   if ( bytes_ < maxTurnBody && ( exchange->itsTurn || waiting_.empty() ) )
      return true;
   exchange->listener->suspend( *exchange );
   if ( exchange->itsTurn )
      waiting_.push_front( exchange );
   else
      waiting_.push_back( exchange );
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
   while ( !waiting_.empty() && ( turn_ != turn || bytes_ < maxTurnBody ) ) {
      const std::shared_ptr< Exchange > exchange = std::move( waiting_.front() );
      waiting_.pop_front();
      if ( !exchange->connection )
         continue;
      exchange->itsTurn = true;
      exchange->listener->resume( *exchange );
      exchange->listener->run();
   }
   if ( !waiting_.empty() )
      goOnSoon();
}

} // namespace Agent
