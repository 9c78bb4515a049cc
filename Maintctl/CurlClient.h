#pragma once

#include "Maintctl/Client.h"

#include <functional>
#include <memory>

namespace Maintctl {

/// Purpose: asks over the agent's control socket. Owner: main.
/// One connection is kept for all requests; an agent that was started again is connected to anew.
class CurlClient final : public Client {
 public:
   /// Seconds after which an agent that does not answer counts as not reachable.
   static constexpr long answerTimeout = 30;

   /// \param interrupted  asked about once a second while we wait for an answer; true gives it up
   CurlClient( std::string socket, std::function< bool() > interrupted );
   ~CurlClient() override;

   Reply send( const Request & request ) override;

 private:
   struct Handle;
   std::string socket_;
   std::function< bool() > interrupted_;
   std::unique_ptr< Handle > handle_;
};

} // namespace Maintctl
