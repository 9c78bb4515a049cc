#pragma once

#include <optional>
#include <string>

namespace Agent {

/// From where an operator comes.
struct Session {
   std::string address; ///< IPv4 or IPv6
   std::string link;    ///< over which an address of one link only is reached; empty: as routes say
   std::string at = {}; ///< the switch's own address that he has come to; empty: not known

   friend bool operator==( const Session &, const Session & ) = default;
};

/// From where: "192.0.2.7", "fe80::7%et1"
std::string stringValue( const Session & session );

/// Reads the address of the far end of a session as shells are told it, perhaps with that of the near end: "192.0.2.7",
/// "2001:db8::7", "fe80::7%et1", "192.0.2.7,192.0.2.1". Nothing if one is no address; only those of IPv6 may be of one link.
std::optional< Session > sessionFrom( const std::string & text );

} // namespace Agent
