#pragma once

#include "Platform/Model/Interface.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Purpose: what interfaces have carried, as the rooms that show it, tell it or write it down ask for it. Nothing that
/// decides depends on it.
namespace Agent {

/// Equal steps of time.
struct SampleSteps {
   double start = 0;  ///< when the first one begins, seconds of the agent's clock
   unsigned step = 5; ///< seconds: 5 or 60
   std::size_t count = 0;
};

/// What one interface has carried over a range of time, in equal steps. A step of which nothing is known is NaN in both
/// directions.
struct SampleCurve {
   double start = 0;         ///< when the first step begins, seconds of the agent's clock
   unsigned step = 5;        ///< seconds: 5 or 60
   std::vector< float > in;  ///< bits per second, the mean over each step
   std::vector< float > out; ///< as many
};

/// The samples of all configured interfaces, in maintenance or not. Times are seconds of the agent's clock.
class SampleSource {
 public:
   /// From one tick to the next, in seconds.
   static constexpr unsigned period = 5;
   /// What is kept at steps of 5 s and of 60 s, in seconds.
   static constexpr unsigned fineRange = 3600;
   static constexpr unsigned range = 7 * 86400;
   /// Seconds after which a rate does not say any more what an interface carries.
   static constexpr double freshFor = 15;

   /// All interfaces that are configured, were there at the last tick and could be counted then and the time before, each
   /// once, in a fixed order. `sampleTime` is the time of the tick. Empty before the second tick.
   using Rates = std::vector< std::pair< Wire::IntfId, Interface::IntfRates > >;
   virtual const Rates & rates() const = 0;
   /// The rate of one interface in the last tick; nothing if there is none, or if that was more than `freshFor` ago.
   virtual std::optional< Interface::IntfRates > rate( const Wire::IntfId & intf ) const = 0;
   /// Whether there are samples of an interface of this name, or will be with the next ticks.
   virtual bool has( const std::string & name ) const = 0;
   /// The finest steps that are kept from one time to another: every one that lies in the range in part, but none that is
   /// yet to come or longer ago than `range`.
   virtual SampleSteps steps( double from, double to ) const = 0;
   /// What an interface has carried in such steps, also those that were given some turns ago. Reads one file, 128 bytes of
   /// it for each 12 or 15 steps.
   virtual SampleCurve curve( const std::string & name, const SampleSteps & steps ) const = 0;
   SampleCurve curve( const std::string & name, double from, double to ) const {
      return curve( name, steps( from, to ) );
   }
   /// Adds what is called in the turn of each tick, when its rates are there. Before the first tick; for good.
   virtual void whenTicked( std::function< void() > call ) = 0;

 protected:
   ~SampleSource() = default;
};

} // namespace Agent
