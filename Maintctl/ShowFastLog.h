#pragma once

#include "Maintctl/Output.h"

namespace Maintctl {

/// Shows the fast log of an agent that runs, or has run, straight from its file: it is wanted most when the agent is
/// gone. Throws Failure that says what is wrong with the file.
/// \param file  the log of the present or last run
void showFastLog( const ShowFastLog & command, std::string file, Output & output );

} // namespace Maintctl
