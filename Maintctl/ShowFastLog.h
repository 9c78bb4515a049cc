#pragma once

#include "Maintctl/Output.h"

namespace Maintctl {

/// Shows the fast log of an agent that runs, or has run, straight from its file: it is wanted most when the agent is
/// gone. Throws Failure that says what is wrong with the file.
/// \param socket  of the agent: its log is beside it unless the command names another
void showFastLog( const ShowFastLog & command, const std::string & socket, Output & output );

} // namespace Maintctl
