#pragma once

/// Where the agent's log goes, with the platform's traces and messages in it.
namespace Apps {

/// To the standard error: with time and level; or, if that is the journal of a service manager, which has a time of its
/// own, with the priority that it reads in front of each line.
void logToStandardError();
/// To syslog, if it does not yet: a supervisor's child takes it over.
void logToSyslog();
/// What stands in front of an error on the standard error for whoever reads that; empty unless it is such a journal.
const char * errorPrefix();

} // namespace Apps
