#pragma once

#include "Platform/Vel/Error.h"

namespace Vel {

/// For tests: the text of the assertion that fails in `action`; empty if none does.
template < class Action >
String failedAssertion( Action action ) {
   const AssertionsThrow assertionsThrow;
   try {
      action();
   } catch ( const AssertionFailed & failure ) {
      return failure.what();
   }
   return "";
}

} // namespace Vel
