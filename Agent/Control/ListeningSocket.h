#pragma once

#include <string>

/// Purpose: the sockets on which the control API is served. Owner: the server.
namespace Agent {

/// A socket that listens without blocking, or why there is none.
struct ListeningSocket {
   int descriptor = -1;
   std::string problem; ///< names the address; empty: it listens

   /// A local socket with mode 0660. One that a process before us has left is replaced; one that answers, and a file of
   /// another kind, is left alone.
   static ListeningSocket local( const std::string & path );
   /// A TCP socket. A peer that acknowledges nothing for `peerTimeout` seconds is given up.
   static ListeningSocket web( const std::string & host, unsigned port );
   static constexpr unsigned peerTimeout = 60;

   /// The port that a TCP socket has.
   static unsigned portOf( int descriptor );
};

} // namespace Agent
