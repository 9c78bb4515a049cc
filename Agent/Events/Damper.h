#pragma once

#include "Platform/Vel/Text.h"

#include <algorithm>
#include <optional>

/// Purpose: keeps what changes again and again from filling the log: how often it may be told.
namespace Agent {

/// One thing that goes to and fro. The first change is told at once; what follows within a second is counted and told
/// together, and while that goes on the pause doubles, up to a minute. A quiet minute begins anew.
class Damper {
 public:
   static constexpr double shortest = 1, longest = 60; ///< seconds

   void change() { ++changes_; }
   /// What has changed until now is known.
   void changesDel() { changes_ = 0; }
   /// Whether it would be told as if it had never changed before.
   bool quiet( double now ) const { return changes_ == 0 && now - notBefore_ >= longest; }
   /// Changes since it was told last.
   Vel::U32 changes() const { return changes_; }
   /// Seconds of the clock, before which it is not told again.
   double notBefore() const { return notBefore_; }
   void waitUntil( double time ) { notBefore_ = std::max( notBefore_, time ); }
   /// It is told now.
   void told( double now ) {
      pause_ = now - notBefore_ < longest ? std::min( 2 * pause_, longest ) : shortest;
      notBefore_ = now + pause_;
      changes_ = 0;
   }

 private:
   Vel::U32 changes_ = 0;
   double notBefore_ = -1e18, pause_ = shortest;
};

/// A value that goes to and fro. Whoever sees it says so, as often as it likes: only what differs is counted.
template < class T >
class Damped : public Damper {
 public:
   /// It is `value` now; the last that was told of it is `told`.
   void valueIs( const T & value, const T & told ) {
      if ( value != seen_.value_or( told ) )
         change();
      seen_ = value;
   }
   /// What was seen and counted is of something that is not there any more; how often it was told is not forgotten.
   void valueDel() {
      seen_.reset();
      changesDel();
   }

 private:
   std::optional< T > seen_; ///< none: nothing but what was told
};

} // namespace Agent
