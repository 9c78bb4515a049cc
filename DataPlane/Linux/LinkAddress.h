#pragma once

#include "DataPlane/Linux/IpAddress.h"
#include "DataPlane/Linux/Message.h"

/// Purpose: addresses of a link that the kernel drops when it goes down: those of IP version 6 that somebody has set.
/// Those of version 4 stay, and those that the kernel makes itself come back by themselves.
namespace DataPlane::Linux {

struct LinkAddress {
   static constexpr Vel::U32 forever = 0xffffffff;

   IpAddress address;
   std::optional< IpAddress > peer;
   Vel::U8 prefixLength = 0;
   Vel::U8 scope = 0;
   Vel::U32 flags = 0;               ///< only those that can be set
   Vel::U32 valid = forever;         ///< seconds left
   Vel::U32 preferred = forever;     ///< seconds left; 0: deprecated
   std::optional< Vel::U32 > metric; ///< of the route to its prefix
   Vel::U8 protocol = 0;             ///< who has set it

   friend bool operator==( const LinkAddress &, const LinkAddress & ) = default;
};

/// The address, if it is one of that link and would be lost for good; absent otherwise.
std::optional< LinkAddress > parseLostAddress( const nlmsghdr & message, Vel::U32 ifIndex );
/// All addresses of version 6 of a link.
Bytes addressDumpRequest( Vel::U32 ifIndex );
/// Sets it, if it is not there, to be acknowledged.
Bytes addressRequest( const LinkAddress & address, Vel::U32 ifIndex );

} // namespace DataPlane::Linux
