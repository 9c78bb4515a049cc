#include "Agent/Samples/SampleTime.h"

#include <cmath>
#include <iomanip>
#include <sstream>

namespace Agent {

SampleTime SampleTime::begin(
   const std::optional< SampleTime > & kept, const std::string & clock, double clockTime, double wallTime,
   double newest ) {
   SampleTime time{ clock, kept ? kept->base : 0, clockTime, wallTime };
   double earliest = newest;
   if ( kept && kept->clock == clock ) {
      earliest = kept->now();
   } else if ( kept ) {
      const double difference = wallTime - clockTime - ( kept->wallTime - kept->clockTime );
      time.base += std::round( difference / grid ) * grid;
      earliest = kept->now() + noteMargin;
   }
   if ( time.now() < earliest )
      time.base += std::ceil( ( earliest - time.now() ) / grid ) * grid;
   return time;
}

std::string SampleTime::text() const {
   std::ostringstream out;
   out << std::setprecision( 17 ) << clock << '\n' << base << ' ' << clockTime << ' ' << wallTime << '\n';
   return out.str();
}

std::optional< SampleTime > SampleTime::parse( const std::string & text ) {
   std::istringstream in( text );
   SampleTime time;
   if ( !std::getline( in, time.clock ) )
      return std::nullopt;
   // Within what blocks can number; anything else nobody of ours has written.
   const auto sane = []( double seconds ) { return std::abs( seconds ) < 1e11; };
   const bool whole = in >> time.base >> time.clockTime >> time.wallTime && in.get() == '\n';
   if ( !whole || !sane( time.base ) || !sane( time.clockTime ) || !sane( time.wallTime ) )
      return std::nullopt;
   if ( std::fmod( time.base, grid ) != 0 || time.now() < 0 )
      return std::nullopt;
   return time;
}

} // namespace Agent
