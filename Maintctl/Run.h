#pragma once

#include "Config/Files.h"
#include "Maintctl/Client.h"
#include "Maintctl/Display.h"
#include "Maintctl/Output.h"
#include "Maintctl/Pace.h"
#include "Maintctl/SessionAddress.h"

#include <optional>
#include <string>

namespace Maintctl {

/// What the commands reach the world through. Owned by main, or by a test.
struct World {
   Client & client;
   Pace & pace;
   Config::Files & files;
   Output & output;
   Display & data;     ///< where data goes, as something to draw on
   Display & messages; ///< where messages go
   OperatorSession session = {};

   /// The address that the operator has said or else that of his session, after telling him why to say it.
   std::string sessionUnless( const std::optional< std::string > & said ) const;
};

/// Does what is asked for and tells the result, also if it is a failure.
ExitStatus run( const Invocation & invocation, World & world );

} // namespace Maintctl
