#pragma once

#include "Maintctl/RigTest.h"

#include <gtest/gtest.h>

namespace Maintctl {

/// Runs command lines, and sees what they have asked the agent for.
class RunTest : public testing::Test {
 protected:
   std::vector< std::string > requests() { return std::exchange( rig.client.requests, {} ); }
   static std::vector< std::string > only( const std::string & request ) { return { request }; }

   Rig rig;
};

} // namespace Maintctl
