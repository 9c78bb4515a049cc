#pragma once

#include <functional>
#include <string>
#include <string_view>

/// Purpose: the way to the agent: the seam between the commands and the control socket.
namespace Maintctl {

struct Request {
   enum class Method { get, post };
   Method method = Method::get;
   std::string path;      ///< with its query, escaped
   std::string body;      ///< JSON; empty for get
   unsigned seconds = 30; ///< after which an agent that does not answer counts as not reachable
   std::function< void() > meanwhile = {}; ///< done about once a second until the answer comes; may be empty
};

struct Reply {
   int status = 0; ///< of HTTP
   std::string body;
};

class Client {
 public:
   virtual ~Client() = default;

   /// Asks and waits for the answer, whatever its status is. Throws Failure if there is none: notReachable with the
   /// reason, or interrupted.
   virtual Reply send( const Request & request ) = 0;
   /// Asks for a path whose answer goes on, and hands on its bytes as they come. Returns when the agent ends it, with the
   /// body of a refusal only. Throws Failure as send() does, also if the connection breaks or is silent for too long,
   /// and what `take` throws.
   virtual Reply
   stream( const std::string & path, const std::function< void( std::string_view bytes ) > & take ) = 0;
};

} // namespace Maintctl
