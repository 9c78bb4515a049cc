#pragma once

#include "Platform/FastLog/Ring.h"

/// Purpose: what the sources of this folder share of the one log of the process.
namespace FastLog {

class Capture;

void captureIs( Capture & capture );
void captureDel( Capture & capture );

/// The ring of this process; empty before the first line.
const Ring & ring();

} // namespace FastLog
