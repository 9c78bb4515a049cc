#pragma once

#include "Agent/Model/Samples.h"

#include <cmath>
#include <limits>

/// Purpose: samples for tests of those who show them.
namespace Agent {

/// Samples of et1: the number of seconds since the beginning of the range that is asked for, in thousands.
class KnownSamples final : public SampleSource {
 public:
   const Rates & rates() const override { return rates_; }
   std::optional< Interface::IntfRates > rate( const Wire::IntfId & intf ) const override {
      for ( const auto & [of, rates] : rates_ )
         if ( of == intf )
            return rates;
      return std::nullopt;
   }
   bool has( const std::string & name ) const override { return name == "old1"; }
   SampleSteps steps( double from, double to ) const override {
      asked = { from, to };
      const unsigned step = to - from > fineRange ? 60 : 5;
      return { from, step, static_cast< std::size_t >( std::ceil( ( to - from ) / step ) ) };
   }
   SampleCurve curve( const std::string & name, const SampleSteps & steps ) const override {
      ++files;
      SampleCurve curve;
      curve.start = steps.start;
      curve.step = steps.step;
      for ( std::size_t i = 0; i < steps.count; ++i ) {
         const float unknown = std::numeric_limits< float >::quiet_NaN();
         const bool known = name == "et1" && i > 0;
         curve.in.push_back( known ? static_cast< float >( i ) * curve.step * 1000.5f : unknown );
         curve.out.push_back( known ? 1e13f : unknown );
      }
      return curve;
   }
   void whenTicked( std::function< void() > ) override {}

   Rates rates_;
   mutable std::pair< double, double > asked;
   mutable unsigned files = 0; ///< that were read
};

} // namespace Agent
