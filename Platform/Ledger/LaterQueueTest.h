#pragma once

#include "Platform/Ledger/EntityManager.h"

#include <deque>

/// The event loop of a test: what was posted waits until the test runs it.
class LaterQueue {
 public:
   Ledger::Later later() {
      return [this]( std::function< void() > call ) { calls_.push_back( std::move( call ) ); };
   }
   /// Runs what is there now, and not what that posts.
   void turn() {
      for ( std::size_t left = calls_.size(); left; --left ) {
         const std::function< void() > call = std::move( calls_.front() );
         calls_.pop_front();
         call();
      }
   }
   bool empty() const { return calls_.empty(); }

 private:
   std::deque< std::function< void() > > calls_;
};
