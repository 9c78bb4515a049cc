#pragma once

#include "Maintctl/Client.h"

#include <functional>
#include <memory>

namespace Maintctl {

/// Purpose: asks over the agent's control socket. Owner: main.
/// One connection is kept for all requests; an agent that was started again is connected to anew.
class CurlClient final : public Client {
 public:
   /// \param interrupted  asked about once a second while we wait for an answer; true gives it up
   CurlClient( std::string socket, std::function< bool() > interrupted );
   ~CurlClient() override;

   /// Seconds without a byte, after which a stream counts as broken: the agent's heartbeat comes more often.
   static constexpr unsigned silence = 45;

   Reply send( const Request & request ) override;
   Reply
   stream( const std::string & path, const std::function< void( std::string_view bytes ) > & take ) override;

 private:
   struct Handle;
   struct HeaderList;
   struct Wait;
   /// What every request has. All given outlive it.
   void prepare( const std::string & url, HeaderList & headers, Wait & wait );
   /// The status of the answer.
   int perform( HeaderList & headers, const Wait & wait );
   std::string socket_;
   std::function< bool() > interrupted_;
   std::unique_ptr< Handle > handle_;
};

} // namespace Maintctl
