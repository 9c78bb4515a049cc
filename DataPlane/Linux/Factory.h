#pragma once

#include "DataPlane/Switch.h"
#include "Platform/Cog/EventLoop.h"

namespace DataPlane {

/// Makes the switch that the Linux kernel is, in the network namespace of this thread. Nothing is opened before start().
/// Setting links takes the right to administer the network; seeing them takes none.
Vel::Ptr< Switch > switchNewLinux( const Vel::Ptr< Cog::EventLoop > & loop );

} // namespace DataPlane
