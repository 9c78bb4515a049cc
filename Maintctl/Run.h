#pragma once

#include "Config/Files.h"
#include "Maintctl/Client.h"
#include "Maintctl/Display.h"
#include "Maintctl/Output.h"
#include "Maintctl/Pace.h"

namespace Maintctl {

/// What the commands reach the world through. Owned by main, or by a test.
struct World {
   Client & client;
   Pace & pace;
   Config::Files & files;
   Output & output;
   Display & data;           ///< where data goes, as something to draw on
   Display & messages;       ///< where messages go
   std::string session = {}; ///< the address of the far end of the operator's session; empty: there is none
};

/// Does what is asked for and tells the result, also if it is a failure.
ExitStatus run( const Invocation & invocation, World & world );

} // namespace Maintctl
