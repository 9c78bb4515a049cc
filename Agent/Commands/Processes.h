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

/// The processes of a session that have not ended, without its leader: all, or those that have left its process group.
std::vector< pid_t > othersOfSession( pid_t leader, bool outsideGroup );

/// Whether a process has not ended and is of the session.
bool isOfSession( pid_t pid, pid_t leader );

} // namespace Agent
