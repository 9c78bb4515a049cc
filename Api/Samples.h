#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Purpose: what the control API answers about rates of the past, as plain values for those who ask.
namespace Api {

/// Rates of one direction each, bits per second, one a step; nothing where there is no sample.
struct IntfSamples {
   std::vector< std::optional< double > > inBps, outBps;
};

struct Samples {
   double stepSeconds = 0;                          ///< above 0
   double start = 0;                                ///< of the first sample, seconds since 1970
   std::map< std::string, IntfSamples > interfaces; ///< by name
};

/// Takes the JSON text of an answer. Throws Error (internal) that says what is wrong if it is not of this shape.
Samples readSamples( std::string_view json );

} // namespace Api
