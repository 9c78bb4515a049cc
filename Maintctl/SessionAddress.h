#pragma once

#include <string>

namespace Maintctl {

/// The address of the far end of the session that somebody works in, from what a remote shell is told in SSH_CONNECTION
/// or, if that says nothing, SSH_CLIENT. Null is a variable that is not set. Empty: it is no remote shell, or nobody says.
std::string sessionAddress( const char * connection, const char * client );

} // namespace Maintctl
