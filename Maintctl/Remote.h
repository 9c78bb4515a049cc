#pragma once

#include "Maintctl/Client.h"

#include <functional>
#include <optional>
#include <string>

namespace Maintctl {

/// Purpose: asks the agent and turns refusals into failures. What it gives are the bodies of answers.
/// Owner: run(). Each operation throws Failure: what the client throws, and the agent's refusal with its words.
class Remote {
 public:
   explicit Remote( Client & client ) : client_( client ) {}

   /// For whoever looks over and over: from now on an agent that does not answer soon counts as not reachable, and
   /// meanwhile this is done about once a second.
   void watchedIs( std::function< void() > meanwhile );
   /// Nothing is done meanwhile any more.
   void watchedDel() { meanwhile_ = nullptr; }
   static constexpr unsigned soon = 5; ///< seconds

   std::string get( const std::string & path );
   /// \param body  JSON
   std::string post( const std::string & path, const std::string & body );

   /// Hands on the bytes of an answer that goes on, until the agent ends it.
   void stream( const std::string & path, const std::function< void( std::string_view bytes ) > & take );

   /// The agent's present time, which ages are told by; nothing if it cannot say. Whoever looks over and over is told at
   /// once that it is not reachable.
   std::optional< double > clock();

 private:
   std::string ask( Request request );

   Client & client_;
   unsigned seconds_ = Request().seconds;
   std::function< void() > meanwhile_;
};

} // namespace Maintctl
