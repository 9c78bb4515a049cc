#pragma once

namespace Agent {

/// What a plan is made for, the most urgent first.
enum class PlanPurpose {
   begin,      ///< something begins by it, in the turn in which it is made
   look,       ///< somebody on this machine only wants to see it
   lookOverWeb ///< the same for somebody of whom nobody knows who he is
};

} // namespace Agent
