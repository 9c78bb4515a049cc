#pragma once

/// Purpose: how many descriptors the process may have. The usual number is for programs that wait with select(), which the
/// agent does not: two listeners full of connections, hooks, and a command for each unit that is under way may need more.
/// Owner: the agent.
namespace Agent {

/// Makes it as many as the system lets the process have, within reason; what cannot be is left.
void descriptorLimitRaise();
/// Makes it what it was before. In a child, before it becomes another program; safe in a signal handler.
void descriptorLimitRestore();

} // namespace Agent
