#pragma once

#include "Agent/Commands/Children.h"

/// Purpose: how a child has ended, in words.
namespace Agent {

/// Why it has failed, for the operator; empty: it has not.
/// \param lastError  what it has said last on its standard error
Vel::String endingText( const Children::Ending & ending, const Vel::String & lastError );

} // namespace Agent
