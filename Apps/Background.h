#pragma once

#include <optional>

namespace Apps {

/// The way of a program into the background: whoever has started it waits until it runs, and is told by the exit status if
/// it does not.
class Background {
 public:
   /// In the process that was started: the exit status, 0 when another one has said started(), or else that with which
   /// the process that goes on has ended (1, if a signal has ended it). Nothing in the process that goes on.
   std::optional< int > begin();
   /// Somebody else, a child of this process, is to say started().
   void forget();
   /// Lets go of the terminal and of the folder that we were started in, which could not be unmounted otherwise.
   void leave();
   /// It runs: nobody waits any more. Does what leave() does.
   void started();

 private:
   int report_ = -1; ///< -1: nobody is to be told
};

} // namespace Apps
