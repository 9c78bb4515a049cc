#pragma once

#include <string>

namespace Apps {

/// A program that root has started on the folders of somebody else goes on as their owner, who could not open what root
/// would leave there. Of root's rights it keeps the one to administer the network, for itself and its commands. The
/// runtime folder is made for the owner if it is missing. Does nothing for anybody else, for root's own folders, or
/// where there are none yet. The reason if that was not possible; then the process should end.
std::string becomeOwnerOf( const std::string & stateDir, const std::string & runtimeDir );

} // namespace Apps
