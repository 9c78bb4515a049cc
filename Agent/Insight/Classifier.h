#pragma once

#include "Agent/Model/Insight.h"
#include "Platform/Model/Maintenance.h"

#include <array>

/// Purpose: why one interface is not done yet, and when it will be, worked out from its samples. Is told the time, has
/// no clock and writes nothing.
///
/// A direction that is above the threshold has to fall, whatever the other one does, so each has a trend of its own:
/// the interface falls when every direction above the threshold does, and will have drained when the later of them has.
/// A trend of the larger of the two would bend where one passes the other, and promise too much until that is a minute
/// ago.
///
/// What the record says (its state, a shutdown, traffic that came back), another profile and missing counters show at
/// once. What is only concluded from rates changes once a minute at most: nobody wants to be told of noise. Trend and
/// expected end are those of now, also while an older reason is held.
namespace Agent {

/// Whether it is concluded from the rates, and holds until there are no fresh ones; others are facts.
inline bool isConcluded( Reason reason ) {
   return reason == Reason::aboveThreshold || reason == Reason::timing || reason == Reason::stalled ||
          reason == Reason::oscillating;
}

class Classifier {
 public:
   /// Rates that are looked at.
   static constexpr unsigned window = 12;
   /// Seconds from one sample to the next while traffic is waited for.
   static constexpr double samplePeriod = 5;
   /// Seconds for which what is concluded from rates stands.
   static constexpr double leastTime = 60;
   /// Seconds without a sample after which there are no fresh counters: two have been left out.
   static constexpr double starvedAfter = 3 * samplePeriod + 1;

   /// What holds when something is concluded, apart from the rates.
   struct Inputs {
      Maintenance::MonIntfState state = Maintenance::monIntfStateEnterMaint;
      double stateTime = 0; ///< seconds
      bool shut = false;
      bool spike = false;        ///< there has been one under maintenance
      double threshold = 0;      ///< bits per second; 0: nobody knows, and no rate is below it
      Vel::U32 loadInterval = 0; ///< seconds
      Vel::U32 quietSamples = 0; ///< in a row
   };
   /// What an IntfInsight tells.
   struct Conclusion {
      Reason reason = Reason::aboveThreshold;
      double since = 0;
      Trend trend = Trend::unknown;
      double eta = 0;
   };

   /// An interface of which nothing was said before, whose monitoring began at that time.
   explicit Classifier( double startTime );
   /// One whose reason is known from an earlier run. It stands until there is evidence against it.
   Classifier( double now, Reason reason, double since );

   /// A sample, in bits per second. A rate that is not finite is above every threshold, and there is no trend as long
   /// as it is looked at.
   /// \param time       seconds, later than that of the sample before
   /// \param threshold  at that time, as in Inputs
   void sample( double time, double in, double out, double threshold );
   /// Good until the next call.
   const Conclusion & conclude( double now, const Inputs & inputs );
   /// When there are no fresh counters any more, unless a sample comes before.
   double starvedAt() const { return lastHeard_ + starvedAfter; }

 private:
   /// One direction: the logarithms of its rates, beside times_.
   using Values = std::array< float, window >;
   struct Course {
      Trend trend = Trend::unknown;
      double secondsToThreshold = 0; ///< from the last sample on, if it falls
   };

   bool isBelow( double threshold ) const { return lastIn_ < threshold && lastOut_ < threshold; }
   Reason concluded( double now, const Inputs & inputs, Trend trend ) const;
   bool isOscillating( double now, const Inputs & inputs ) const;
   bool isCalm( const Inputs & inputs ) const;
   Course course( const Inputs & inputs ) const;
   Course courseOf( const Values & values ) const;
   double etaOf( const Inputs & inputs, const Course & course ) const;
   void spikes( double now, const Inputs & inputs );
   void reasonIs( Reason reason, double since );

   Conclusion conclusion_;
   double lastChange_; ///< when a conclusion from rates was last changed or begun
   double lastHeard_;  ///< of the counters
   double lastSample_ = 0;
   double lastIn_ = 0, lastOut_ = 0;
   double threshold_ = 0; ///< of the last conclusion
   double logThreshold_ = 0;
   Vel::U32 loadInterval_ = 0;         ///< of the last conclusion
   unsigned samples_ = 0;              ///< that are looked at; the newest is the last one
   unsigned aboveRun_ = 0;             ///< samples in a row
   std::array< double, 4 > crossings_; ///< of the threshold, the newest last
   std::array< double, window > times_{};
   Values in_{}, out_{};
};

} // namespace Agent
