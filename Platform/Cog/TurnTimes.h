#pragma once

#include <algorithm>

/// Purpose: how long the turns of a loop take, for who watches the program from outside.
namespace Cog {

class TurnTimes {
 public:
   /// Seconds of one span of time; the longest turn is told of the present span and the one before.
   static constexpr double span = 60;

   /// A turn has ended.
   /// \param time  when, in seconds; does not go back
   /// \param seconds  that it took; a negative number counts as 0
   void turnEnds( double time, double seconds ) {
      advance( time );
      const double took = std::max( seconds, 0.0 );
      total_ += took;
      longest_ = std::max( longest_, took );
   }
   /// Seconds that all turns together took.
   double total() const { return total_; }
   /// Seconds that the longest turn took that ended less than one span before `time`, or up to twice that.
   double longest( double time ) const {
      const double age = time - begin_;
      return age < span ? std::max( longest_, before_ ) : age < 2 * span ? longest_ : 0;
   }

 private:
   void advance( double time ) {
      const double age = time - begin_;
      if ( age < span )
         return;
      before_ = age < 2 * span ? longest_ : 0;
      longest_ = 0;
      begin_ = time;
   }

   double total_ = 0;
   double begin_ = 0;   ///< of the present span
   double longest_ = 0; ///< in the present span
   double before_ = 0;  ///< in the one before
};

} // namespace Cog
