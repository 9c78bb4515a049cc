#pragma once

#include <string>

namespace Maintctl {

/// The session that an operator works in, as far as the processes above him tell.
struct OperatorSession {
   std::string address; ///< as sessionAddress() gives it; empty: it is no remote shell, or nobody says
   std::string note;    ///< one line, why the operator had better say the address himself; empty: no reason
};

/// The address of the far end of a session, from what a remote shell is told in SSH_CONNECTION or, if that says nothing,
/// SSH_CLIENT; with that of the near end if it is told: "192.0.2.7,192.0.2.1". Null is a variable that is not set. Empty: it
/// is no remote shell, or nobody says.
std::string sessionAddress( const char * connection, const char * client );

/// Whether it is an address, or two, as an agent takes them for a session.
bool isSessionAddress( const std::string & text );

/// From what a process was told when it began, or else the nearest of those from which it stems: who becomes another user,
/// by sudo for example, is often not told himself. Who cannot be read is passed over.
/// \param folder   where each process has its folder, /proc
OperatorSession operatorSession( const std::string & folder, int process );

} // namespace Maintctl
