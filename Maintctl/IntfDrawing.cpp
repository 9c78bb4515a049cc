#include "Maintctl/IntfDrawing.h"

#include "Maintctl/Text.h"

#include <algorithm>
#include <cmath>

namespace Maintctl {

namespace {

constexpr std::size_t gap = 2;
constexpr std::size_t rateWidth = 9; ///< "12.3 Mbps", "1.50 kbps"
constexpr std::size_t etaWidth = 6;  ///< "59m59s"
constexpr std::size_t widestName = 16;
constexpr std::size_t widestCurve = 40, usefulCurve = 12, narrowestCurve = 8;
constexpr std::size_t textWanted = 36; ///< columns that a curve longer than is useful leaves to the text
constexpr std::size_t textNeeded = 24; ///< that any curve leaves to it
constexpr std::size_t narrowestWithThreshold = 48, narrowestWithEta = 50;
constexpr std::size_t labelWidth = 10; ///< of a chart
constexpr std::size_t wayWidth = 4;    ///< "out "
constexpr std::size_t lowestChart = 2, highestChart = 8;

Tone toneOf( Urgency urgency ) {
   switch ( urgency ) {
   case Urgency::back:
   case Urgency::stuck:
      return Tone::bad;
   case Urgency::busy:
      return Tone::warning;
   case Urgency::quiet:
      return Tone::plain;
   case Urgency::done:
      return Tone::good;
   case Urgency::none:
      return Tone::faint;
   }
   return Tone::plain;
}

/// et2 before et10.
bool isNamedBefore( const std::string & a, const std::string & b ) {
   const auto digit = []( char c ) { return c >= '0' && c <= '9'; };
   std::size_t i = 0;
   while ( i < a.size() && i < b.size() && a[i] == b[i] )
      ++i;
   while ( i > 0 && digit( a[i - 1] ) )
      --i;
   const auto digits = [&]( const std::string & text ) {
      std::size_t end = i;
      while ( end < text.size() && digit( text[end] ) )
         ++end;
      return end - i;
   };
   if ( digits( a ) != digits( b ) && digits( a ) && digits( b ) )
      return digits( a ) < digits( b );
   return a < b;
}

using Points = std::vector< std::optional< double > >;

/// The newest points, as many as there is room for, the newest at the right.
template < class Of >
Points newest( const std::vector< RatePoint > & curve, std::size_t count, Of of ) {
   Points result( count - std::min( count, curve.size() ) );
   for ( std::size_t i = curve.size() - std::min( count, curve.size() ); i < curve.size(); ++i )
      result.push_back( of( curve[i] ) );
   return result;
}

std::string etaText( const IntfPicture & intf ) {
   return intf.etaSeconds ? spanText( std::ceil( *intf.etaSeconds ) ) : nothing;
}

/// "> 100 kbps": how the rate stands to the threshold.
std::string thresholdText( const IntfPicture & intf ) {
   if ( !intf.thresholdBps )
      return "";
   const auto rate = intf.rates.busiest();
   return std::string(
             !rate                        ? "  "
             : *rate < *intf.thresholdBps ? "< "
                                          : "> " ) +
          rateText( intf.thresholdBps );
}

/// What the agent says of an interface, by whole clauses if there is no room for all of it. Since when it is so goes first,
/// then the numbers that stand in columns of their own, so that the word stays.
std::string clausesWithin( std::size_t room, std::string text ) {
   const auto fits = [&] { return columns( printable( text ) ) <= room; };
   for ( std::size_t at; !fits() && ( at = text.find( " since " ) ) != std::string::npos; )
      text.erase( at, text.find( ',', at ) - at );
   const bool rateFirst = !text.empty() && text[0] >= '0' && text[0] <= '9';
   if ( const std::size_t at = text.find( "bit/s, " ); !fits() && rateFirst && at != std::string::npos )
      text.erase( 0, text.find( ", " ) + 2 );
   for ( std::size_t at; !fits() && ( at = text.rfind( ", " ) ) != std::string::npos; )
      text.resize( at );
   for ( const char * const number : { " about ", " at " } )
      if ( const std::size_t at = text.find( number ); !fits() && at != std::string::npos )
         text.resize( at );
   return text;
}

} // namespace

IntfLayout::IntfLayout(
   const std::vector< const IntfPicture * > & interfaces, std::size_t indent, std::size_t columns )
   : indent_( indent ), columns_( columns ) {
   for ( const IntfPicture * intf : interfaces )
      name_ = std::max( name_, Maintctl::columns( printable( intf->name ) ) );
   name_ = std::min( { std::max( name_, std::size_t( 4 ) ), widestName, columns / 3 } );
   threshold_ = columns >= narrowestWithThreshold;
   eta_ = columns >= narrowestWithEta;
   const std::size_t taken = indent + name_ + gap + rateWidth + ( threshold_ ? 1 + 2 + rateWidth : 0 ) +
                             ( eta_ ? gap + etaWidth : 0 ) + 2 * gap;
   const auto leaving = [&]( std::size_t text ) {
      return columns > taken + text ? columns - taken - text : 0;
   };
   curve_ = std::max(
      std::min( leaving( textNeeded ), usefulCurve ), std::min( leaving( textWanted ), widestCurve ) );
   if ( curve_ < narrowestCurve )
      curve_ = 0;
}

Line IntfLayout::heading() const {
   Line line( std::string( indent_, ' ' ) );
   line.field( "NAME", name_ ).add( "  " ).rightField( "RATE", rateWidth );
   if ( threshold_ )
      line.add( " " ).field( "THRESHOLD", 2 + rateWidth );
   if ( eta_ )
      line.add( "  " ).rightField( "ETA", etaWidth );
   if ( curve_ )
      line.add( "  " ).rightField( "CURVE", curve_ );
   line.add( "  WHY" );
   return Line( line.text(), Tone::faint );
}

Lines IntfLayout::lines(
   const std::vector< IntfPicture > & slowestFirst, std::size_t most, bool utf8 ) const {
   std::vector< const IntfPicture * > shown;
   for ( const IntfPicture & intf : slowestFirst )
      if ( shown.size() < most )
         shown.push_back( &intf );
   std::stable_sort( shown.begin(), shown.end(), []( const IntfPicture * a, const IntfPicture * b ) {
      return a->urgency != b->urgency ? a->urgency < b->urgency : isNamedBefore( a->name, b->name );
   } );
   Lines result;
   for ( std::size_t i = 0; i < shown.size(); ++i )
      result.push_back(
         line( *shown[i], i + 1 == shown.size() ? slowestFirst.size() - shown.size() : 0, utf8 ) );
   return result;
}

Line IntfLayout::line( const IntfPicture & intf, std::size_t hidden, bool utf8 ) const {
   Line line( std::string( indent_, ' ' ) );
   line.nameField( intf.name, name_, utf8 )
      .add( "  " )
      .rightField( rateText( intf.rates.busiest() ), rateWidth );
   if ( threshold_ )
      line.add( " " ).field( thresholdText( intf ), 2 + rateWidth );
   if ( eta_ )
      line.add( "  " ).rightField( etaText( intf ), etaWidth );
   if ( curve_ ) {
      const auto busiest = []( const RatePoint & point ) { return point.busiest(); };
      line.add( "  " ).add(
         curveText( newest( intf.curve, curve_, busiest ), intf.thresholdBps, utf8 ),
         toneOf( intf.urgency ) );
   }
   line.add( "  " );
   const std::string more = hidden ? "  (" + std::to_string( hidden ) + " more)" : "";
   const std::size_t taken = line.columns() + more.size();
   const std::size_t room = columns_ - std::min( columns_, taken );
   const std::string why = clausesWithin( room, intf.text );
   if ( more.empty() )
      return line.add( why, toneOf( intf.urgency ) );
   if ( room > 0 )
      line.add( Line( why ).fitted( room, utf8 ).text(), toneOf( intf.urgency ) );
   else
      line = line.fitted( columns_ - std::min( columns_, more.size() ), utf8 );
   return line.add( more, Tone::faint );
}

Lines interfaceList( const Picture & picture, Size size, bool utf8 ) {
   if ( picture.interfaces.empty() )
      return { Line( "There is nothing to show." ) };
   std::vector< const IntfPicture * > all;
   for ( const IntfPicture & intf : picture.interfaces )
      all.push_back( &intf );
   const IntfLayout layout( all, 0, size.columns );
   Lines lines;
   if ( size.rows > 3 )
      lines.push_back( layout.heading() );
   const std::size_t left = size.rows - std::min( size.rows, lines.size() );
   for ( const Line & line : layout.lines( picture.interfaces, left, utf8 ) )
      lines.push_back( line );
   return lines;
}

Lines interfaceInFull( const Picture & picture, Size size, bool utf8 ) {
   Lines lines;
   std::size_t widest = 0;
   for ( const auto & [name, value] : picture.facts )
      widest = std::max( widest, columns( name ) );
   for ( const auto & [name, value] : picture.facts )
      lines.push_back( Line().field( name + ":", widest + 1 ).add( "  " ).add( value ) );
   if ( picture.interfaces.empty() || lines.size() >= size.rows || size.columns <= labelWidth + 2 )
      return lines;
   const IntfPicture & intf = picture.interfaces.front();
   // Two charts, each under a line of its own; or a line for each.
   const std::size_t each = ( size.rows - lines.size() ) / 2;
   const std::size_t height = each > lowestChart ? std::min( each - 1, highestChart ) : 0;
   const std::size_t beside = height ? labelWidth + gap : wayWidth + rateWidth + gap;
   const std::size_t width = std::min( size.columns - std::min( size.columns, beside ), Curve::mostPoints );
   const auto add = [&]( const char * what, std::optional< double > now, const Points & points ) {
      if ( !height ) {
         if ( lines.size() < size.rows )
            lines.push_back(
               Line()
                  .field( what, wayWidth )
                  .rightField( rateText( now ), rateWidth )
                  .add( "  " )
                  .add( curveText( points, intf.thresholdBps, utf8 ), toneOf( intf.urgency ) ) );
         return;
      }
      lines.push_back( Line( std::string( labelWidth + 1, ' ' ) )
                          .add( what, Tone::strong )
                          .add( "  " )
                          .add( rateText( now ) ) );
      const Chart chart = chartOf( points, intf.thresholdBps, height, utf8 );
      for ( std::size_t row = 0; row < height; ++row ) {
         std::optional< double > label;
         if ( chart.thresholdRow == row )
            label = intf.thresholdBps;
         else if ( row == 0 )
            label = chart.top;
         else if ( row + 1 == height )
            label = chart.bottom;
         lines.push_back( Line()
                             .rightField( label ? rateText( label ) : "", labelWidth )
                             .add( utf8 ? " │" : " |", Tone::faint )
                             .add( chart.rows[row], toneOf( intf.urgency ) ) );
      }
   };
   add( "in", intf.rates.inBps, newest( intf.curve, width, []( auto & point ) { return point.inBps; } ) );
   add( "out", intf.rates.outBps, newest( intf.curve, width, []( auto & point ) { return point.outBps; } ) );
   return lines;
}

bool listShowsCurves( const Picture & picture, std::size_t columns ) {
   std::vector< const IntfPicture * > all;
   for ( const IntfPicture & intf : picture.interfaces )
      all.push_back( &intf );
   return !all.empty() && IntfLayout( all, 0, columns ).hasCurves();
}

Line curveLegend( double stepSeconds, bool utf8 ) {
   return Line(
      "Curves: " + spanText( stepSeconds ) + " a column, the newest right; logarithmic, " +
         ( utf8 ? "▁▂" : "_." ) + " below the threshold.",
      Tone::faint );
}

} // namespace Maintctl
