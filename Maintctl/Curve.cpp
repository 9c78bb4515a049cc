#include "Maintctl/Curve.h"

#include <algorithm>
#include <cmath>

namespace Maintctl {

namespace {

using Points = std::vector< std::optional< double > >;

constexpr const char * eighths[] = { " ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█" };
constexpr const char * asciiLevels[] = { " ", "_", ".", "-", "=", "+", "*", "#", "@" };
constexpr const char * asciiEighths[] = { " ", ".", ".", ".", ":", ":", ":", "#", "#" };
constexpr int levels = 8;
constexpr int belowThreshold = 2; ///< of the levels
constexpr double rangeBelow = 10; ///< the lowest step is less than a tenth of the threshold
constexpr double leastAbove = 10; ///< the scale reaches at least to ten times the threshold
constexpr double leastRate = 1;   ///< a logarithm begins somewhere

double largest( const Points & points ) {
   double result = 0;
   for ( const auto & point : points )
      result = std::max( result, point.value_or( 0 ) );
   return result;
}

double smallestAboveNothing( const Points & points, double most ) {
   double result = most;
   for ( const auto & point : points )
      if ( point && *point >= leastRate )
         result = std::min( result, *point );
   return result;
}

/// How far the value lies between the ends, 0 to 1, by their logarithms.
double part( double value, double low, double high ) {
   if ( value <= low || high <= low )
      return value >= high && high > 0 && value > 0 ? 1 : 0;
   return std::min( 1.0, std::log( value / low ) / std::log( high / low ) );
}

/// The level of a value among those from `first` to the highest.
int levelAbove( int first, double value, double low, double high ) {
   return first + static_cast< int >( std::lround( part( value, low, high ) * ( levels - first ) ) );
}

std::optional< double > sane( const std::optional< double > & bps ) {
   return bps && std::isfinite( *bps ) ? std::optional( std::max( 0.0, *bps ) ) : std::nullopt;
}

} // namespace

std::optional< double > RatePoint::busiest() const {
   if ( !inBps || !outBps )
      return inBps ? inBps : outBps;
   return std::max( *inBps, *outBps );
}

void Curve::see( double time, const RatePoint & point ) {
   const double step = std::floor( time / step_ );
   if ( step < newest_ - 1 || step > newest_ + mostPoints )
      points_.clear();
   const RatePoint seen{ sane( point.inBps ), sane( point.outBps ) };
   if ( !points_.empty() && step <= newest_ ) {
      points_.back() = seen;
      return;
   }
   for ( double missing = newest_ + 1; !points_.empty() && missing < step; ++missing )
      points_.emplace_back();
   points_.push_back( seen );
   newest_ = step;
   while ( points_.size() > mostPoints )
      points_.pop_front();
}

std::vector< RatePoint > Curve::last( std::size_t count ) const {
   const std::size_t skipped = points_.size() - std::min( points_.size(), count );
   return { points_.begin() + static_cast< std::ptrdiff_t >( skipped ), points_.end() };
}

std::string curveText( const Points & points, std::optional< double > threshold, bool utf8 ) {
   const bool known = threshold && *threshold > 0;
   const double top = known ? std::max( largest( points ), *threshold * leastAbove ) : largest( points );
   const double low = known ? *threshold : smallestAboveNothing( points, top );
   std::string result;
   for ( const auto & point : points ) {
      int level = 0;
      if ( !point )
         level = 0;
      else if ( known && *point < *threshold )
         level = *point < *threshold / rangeBelow ? 1 : belowThreshold;
      else
         level = levelAbove( known ? belowThreshold + 1 : 1, *point, low, top );
      result += utf8 ? eighths[level] : asciiLevels[level];
   }
   return result;
}

Chart chartOf( const Points & points, std::optional< double > threshold, std::size_t height, bool utf8 ) {
   const bool known = threshold && *threshold > 0;
   Chart chart;
   chart.top =
      std::max( { largest( points ), known ? *threshold * leastAbove : 0.0, leastRate * rangeBelow } );
   chart.bottom = std::max(
      leastRate, known ? *threshold / rangeBelow : smallestAboveNothing( points, chart.top ) / rangeBelow );
   const auto steps = static_cast< double >( height ) * levels;
   const auto filled = [&]( double value ) {
      return std::max( 1L, std::lround( part( value, chart.bottom, chart.top ) * steps ) );
   };
   if ( known ) {
      // What is below the threshold ends below its row.
      const auto row = static_cast< std::size_t >( filled( *threshold ) / levels );
      chart.thresholdRow = height - 1 - std::min( row, height - 1 );
   }
   for ( std::size_t row = 0; row < height; ++row ) {
      const long below = static_cast< long >( height - 1 - row ) * levels;
      std::string text;
      for ( const auto & point : points ) {
         const long here = point ? std::clamp( filled( *point ) - below, 0L, long( levels ) ) : 0;
         if ( here == 0 && chart.thresholdRow == row )
            text += utf8 ? "┄" : "-";
         else
            text += ( utf8 ? eighths : asciiEighths )[here];
      }
      chart.rows.push_back( std::move( text ) );
   }
   return chart;
}

} // namespace Maintctl
