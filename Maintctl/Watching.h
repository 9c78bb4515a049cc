#pragma once

#include "Maintctl/LivePicture.h"
#include "Maintctl/Output.h"
#include "Maintctl/Sight.h"

#include <map>
#include <optional>
#include <string>

namespace Maintctl {

/// Purpose: shows over and over what `show` shows once, until the operator has seen enough.
/// Order: construct, then untilInterrupted() once.
///
/// 1. On a terminal that can draw it is a picture on a screen of its own: it uses all of it, which is exact however
///    the terminal is resized, and what was there before comes back untouched.
/// 2. Elsewhere it is a line for each thing that has changed, with the time; as JSON one document a line, when it
///    differs from the one before.
/// 3. An agent that goes away is waited for as long as it takes; one that was never there is not.
class Watching {
 public:
   Watching( const Show & show, Remote & remote, Pace & pace, Output & output, Display & display );

   ~Watching() { remote_.watchedDel(); }
   Watching( const Watching & ) = delete;
   Watching & operator=( const Watching & ) = delete;

   /// Ends with a Failure: interrupted, with nothing to say; notReachable before the first answer; failed if there is no
   /// such thing, or the output cannot be written.
   void untilInterrupted();

 private:
   /// Whether the agent has answered.
   bool look();
   void tell();
   void draw();
   void tellLines();
   void tellDocument();
   void tellChange( const std::string & name, const std::string & state, const std::string & text );
   void tellAway( const Failure & failure );

   const Show show_;
   Remote & remote_;
   Pace & pace_;
   Output & output_;
   Sight sight_;
   std::optional< LivePicture > live_; ///< where it is drawn
   bool answered_ = false, away_ = false;
   std::string document_;                      ///< the last one told
   std::map< std::string, std::string > told_; ///< what was told last of each thing, by name
};

} // namespace Maintctl
