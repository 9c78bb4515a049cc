#pragma once

#include <string>
#include <sys/types.h>

namespace Agent {

/// The name of a user of this machine, "uid N" if it has none.
///
/// Only the machine's own accounts are looked up. The names of a directory service would come over the network: while it
/// does not answer the agent would stand still.
/// \param accounts  the file of accounts
std::string accountName( uid_t user, const char * accounts = "/etc/passwd" );

} // namespace Agent
