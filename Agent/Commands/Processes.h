#pragma once

#include "Agent/Model/StageCommand.h"

#include <string>
#include <sys/types.h>
#include <vector>

/// Purpose: processes as the kernel lists them.
namespace Agent {

/// The process of a number as it can be found again; none if there is no such process.
ProcessId processOf( pid_t pid );

/// The processes that an earlier agent has left of one that led a session of its own: itself and all of the session.
/// Where the leader has gone and its number may mean somebody else's session, only those with the mark in their
/// environment. What has ended already is not among them.
std::vector< pid_t > remnantsOf( const ProcessId & process, const std::string & mark );

/// A process of a session that has not ended, other than its leader; 0: there is none.
pid_t otherOfSession( pid_t leader );

} // namespace Agent
