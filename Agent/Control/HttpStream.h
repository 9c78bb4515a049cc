#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

/// Purpose: the body of a reply that goes on: pulled piece by piece as fast as its reader takes it, and woken when there
/// is something new. Nothing is queued for a reader: whoever gives the pieces remembers how far it has got.
/// Owner: the server, from the reply on until the reader is gone; one stream for one reader. One thread.
namespace Agent {

class HttpStream {
 public:
   /// What comes next. A text may be shared with other streams: it is sent from where it is.
   struct Piece {
      std::shared_ptr< const std::string > text; ///< null: there is nothing yet
      bool last = false;                         ///< nothing comes after it
      bool failed = false; ///< it cannot go on: the connection is cut, so that nobody takes it for whole
      /// Bytes that it counts for in what a turn may give, if making it has cost more than its text tells.
      std::size_t effort = 0;
   };

   HttpStream() = default;
   virtual ~HttpStream() = default;
   HttpStream( const HttpStream & ) = delete;
   HttpStream & operator=( const HttpStream & ) = delete;

   /// The next piece. Called when the one before has been taken in full by the connection, whenever that is.
   virtual Piece next() = 0;
   /// Whether it comes to its end as fast as its reader takes it; another one goes on for as long as its reader stays.
   virtual bool ends() const { return false; }
   /// Bytes that it has altogether, if that is known.
   virtual std::optional< std::size_t > size() const { return std::nullopt; }
   /// Sent when nothing else has been for a while, so that a reader who is gone is noticed.
   virtual std::string heartbeat() const = 0;

   /// Tells the reader's connection that next() has something to give, or has come to its end. Does nothing while the
   /// connection has enough to do.
   void wake() const {
      if ( wake_ )
         wake_();
   }
   /// Set by the server.
   void wakeIs( std::function< void() > wake ) { wake_ = std::move( wake ); }

 private:
   std::function< void() > wake_;
};

} // namespace Agent
