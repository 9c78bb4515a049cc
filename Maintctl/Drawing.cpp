#include "Maintctl/Drawing.h"

#include "Api/Names.h"
#include "Api/Values.h"
#include "Maintctl/IntfDrawing.h"
#include "Maintctl/Text.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace Maintctl {

namespace {

constexpr std::size_t stateWidth = 11;
constexpr std::size_t widestName = 24, partForNames = 4; ///< more of a wide terminal
constexpr std::size_t narrowestWithBar = 40, shortestBar = 5, longestBar = 24;
constexpr std::size_t rowsWithLegend = 20; ///< in any case

std::string timeOfDay( std::optional< double > clock ) {
   return clock ? Api::timeText( *clock ).substr( 11, 8 ) + " UTC" : "";
}

Tone toneOf( const UnitPicture & unit ) {
   if ( unit.urgency == Urgency::back || unit.urgency == Urgency::stuck )
      return Tone::bad;
   if ( unit.moving )
      return Tone::warning;
   return unit.state == Api::UnitState::maintenance ? Tone::good : Tone::plain;
}

/// Which units get room first.
int rankOf( const UnitPicture & unit ) {
   if ( unit.urgency == Urgency::back )
      return 0;
   if ( unit.moving )
      return 1;
   return unit.state == Api::UnitState::normal ? 3 : 2;
}

/// Never full before all have drained.
std::string barText( const UnitPicture & unit, std::size_t width, bool utf8 ) {
   const bool there = unit.state == Api::UnitState::maintenance;
   const double part = unit.total ? std::min( 1.0, double( unit.drained ) / double( unit.total ) ) : there;
   const std::size_t steps = utf8 ? 8 : 1;
   const auto filled = static_cast< std::size_t >( part * double( width * steps ) );
   static constexpr const char * pieces[] = { "", "▏", "▎", "▍", "▌", "▋", "▊", "▉" };
   std::string result;
   std::size_t taken = filled / steps;
   for ( std::size_t i = 0; i < taken; ++i )
      result += utf8 ? "█" : "#";
   if ( filled % steps ) {
      result += pieces[filled % steps];
      ++taken;
   }
   for ( ; taken < width; ++taken )
      result += utf8 ? "░" : ".";
   return utf8 ? result : "[" + result + "]";
}

std::string countText( const UnitPicture & unit ) {
   return std::to_string( unit.drained ) + "/" + std::to_string( unit.total );
}

/// The lines of units under each other, their columns aligned.
class UnitsDrawing {
 public:
   UnitsDrawing( const Picture & picture, Size size, bool utf8 )
      : units_( picture.units ),
        mostRows_( picture.mostRows ),
        size_( size ),
        utf8_( utf8 ),
        shares_( units_.size() ) {
      std::vector< const IntfPicture * > interfaces;
      for ( const UnitPicture & unit : units_ ) {
         name_ = std::max( name_, Maintctl::columns( printable( unit.name ) ) );
         count_ = std::max( count_, countText( unit ).size() );
         for ( const IntfPicture & intf : unit.interfaces )
            interfaces.push_back( &intf );
      }
      name_ = std::min( { name_, std::max( widestName, size.columns / partForNames ), size.columns / 2 } );
      const std::size_t taken = name_ + stateWidth + count_ + ( utf8 ? 6 : 8 );
      if ( size.columns >= std::max( narrowestWithBar, taken + shortestBar ) )
         bar_ = std::clamp( ( size.columns - taken ) / 3, shortestBar, longestBar );
      layout_ = IntfLayout( interfaces, indent, size.columns );
   }

   /// Once.
   Lines lines() {
      share();
      Lines result;
      std::size_t hidden = 0;
      bool normal = true;
      for ( std::size_t i = 0; i < units_.size(); ++i ) {
         if ( !shares_[i].head ) {
            ++hidden;
            normal = normal && isNormal( i );
            continue;
         }
         result.push_back( head( units_[i], shares_[i] ) );
         for ( const std::string & line : sentence( units_[i], shares_[i].sentence ) )
            result.push_back( Line( "  " ).add( line ) );
         for ( const Line & line : layout_.lines( units_[i].interfaces, shares_[i].rows, utf8_ ) )
            result.push_back( line );
      }
      if ( hidden > 0 )
         result.push_back( Line(
            "and " + Maintctl::countText( hidden, "more unit" ) + ( normal ? ", normal" : "" ),
            Tone::faint ) );
      return result;
   }

   /// In the lines.
   bool showsCurves() const {
      return layout_.hasCurves() && std::any_of( shares_.begin(), shares_.end(), []( const Share & share ) {
                return share.rows > 0;
             } );
   }

 private:
   static constexpr std::size_t indent = 2;

   /// What of a unit is shown.
   struct Share {
      bool head = false;
      std::size_t sentence = 0, rows = 0; ///< lines
   };

   Line head( const UnitPicture & unit, const Share & share ) const {
      Line line;
      line.nameField( unit.name, name_, utf8_, Tone::strong )
         .add( "  " )
         .field( unit.state, stateWidth, toneOf( unit ) );
      if ( bar_ )
         line.add( "  " ).add( barText( unit, bar_, utf8_ ), toneOf( unit ) );
      line.add( "  " ).rightField( countText( unit ), count_ );
      if ( unit.etaSeconds )
         line.add( ", about " + spanText( std::ceil( *unit.etaSeconds ) ) + " left" );
      // Where there is a row for one, that says how many more there are.
      if ( share.rows == 0 && !unit.interfaces.empty() )
         line.add( "  (" + std::to_string( unit.interfaces.size() ) + " more)", Tone::faint );
      if ( !unit.stage.empty() )
         line.add( "  stage " ).add( unit.stage );
      if ( unit.forSeconds )
         line.add( "  " ).add( spanText( *unit.forSeconds ) );
      if ( !unit.who.empty() )
         line.add( "  " ).add( unit.who, Tone::faint );
      return line;
   }

   std::vector< std::string > sentence( const UnitPicture & unit, std::size_t most ) const {
      return most && size_.columns > indent ? wrapped( unit.sentence, size_.columns - indent, most, utf8_ )
                                            : std::vector< std::string >();
   }

   bool isNormal( std::size_t unit ) const { return units_[unit].state == Api::UnitState::normal; }

   /// Lines of a unit's sentence where there is room. Of a unit that is normal it says no more than its head.
   std::size_t sentenceLines( std::size_t unit, std::size_t most ) const {
      if ( isNormal( unit ) && units_.size() > 1 )
         return 0;
      return sentence( units_[unit], std::min< std::size_t >( most, units_.size() == 1 ? 3 : 2 ) ).size();
   }

   /// Lines for all that should be seen: heads, sentences and the slowest interface of each unit.
   std::size_t wanted() const {
      std::size_t lines = units_.size();
      for ( std::size_t i = 0; i < units_.size(); ++i )
         lines += sentenceLines( i, size_.rows ) + std::min< std::size_t >( units_[i].interfaces.size(), 1 );
      return lines;
   }

   /// Heads first, then sentences, then interfaces in turn: each in the order of who needs it most. Units that are
   /// normal make room for the others.
   void share() {
      std::vector< std::size_t > order( units_.size() );
      std::iota( order.begin(), order.end(), 0 );
      std::stable_sort( order.begin(), order.end(), [this]( std::size_t a, std::size_t b ) {
         return rankOf( units_[a] ) < rankOf( units_[b] );
      } );
      const auto normal =
         std::find_if( order.begin(), order.end(), [this]( std::size_t i ) { return isNormal( i ); } );
      if ( wanted() > size_.rows && normal != order.begin() )
         order.erase( normal, order.end() );
      std::size_t left = size_.rows;
      const bool said = order.size() < units_.size() || order.size() > left;
      if ( said && left > 0 )
         --left; // for the line that says so
      const bool all = order.size() <= left;
      for ( const std::size_t i : order )
         if ( left > 0 ) {
            shares_[i].head = true;
            --left;
         }
      if ( !all )
         return;
      for ( const std::size_t i : order ) {
         shares_[i].sentence = sentenceLines( i, left );
         left -= shares_[i].sentence;
      }
      for ( bool given = true; given && left > 0; ) {
         given = false;
         for ( const std::size_t i : order )
            if ( left > 0 && shares_[i].rows < std::min( units_[i].interfaces.size(), mostRows_ ) ) {
               ++shares_[i].rows;
               --left;
               given = true;
            }
      }
   }

   const std::vector< UnitPicture > & units_;
   const std::size_t mostRows_;
   const Size size_;
   const bool utf8_;
   std::vector< Share > shares_;
   std::size_t name_ = 0, count_ = 0, bar_ = 0; ///< columns
   IntfLayout layout_;
};

/// Everything but the pressing news loses its tone: it is not of now.
Line faded( const Line & line ) {
   Line result;
   for ( const Span & span : line.spans() )
      result.add( span.text, Tone::faint );
   return result;
}

struct Body {
   Lines lines;
   bool curves = false; ///< they want a legend
};

Body bodyOf( const Picture & picture, Size size, bool utf8 ) {
   if ( !picture.facts.empty() )
      return { interfaceInFull( picture, size, utf8 ) };
   if ( picture.units.empty() )
      return { interfaceList( picture, size, utf8 ), listShowsCurves( picture, size.columns ) };
   UnitsDrawing drawing( picture, size, utf8 );
   Lines lines = drawing.lines();
   return { std::move( lines ), drawing.showsCurves() };
}

Line titleLine( const Picture & picture, std::size_t columns ) {
   Line line( picture.title, Tone::strong );
   const std::string time = timeOfDay( picture.clock );
   if ( !time.empty() && line.columns() + 2 + time.size() <= columns )
      line.rightField( time, columns - line.columns() );
   return line;
}

} // namespace

Lines draw( const Picture & picture, Size size, bool utf8 ) {
   Lines lines;
   if ( !picture.stale.empty() ) {
      const std::string since = timeOfDay( picture.clock );
      lines.push_back( Line( "stale" + ( since.empty() ? "" : " since " + since ) + ": ", Tone::bad )
                          .add( picture.stale ) );
   }
   const bool titled = !picture.title.empty() && size.rows > 2;
   if ( titled && picture.stale.empty() )
      lines.push_back( titleLine( picture, size.columns ) );
   if ( titled )
      lines.emplace_back();
   const auto below = [&]( std::size_t rows ) {
      const std::size_t taken = std::min( size.rows, lines.size() + rows );
      return bodyOf( picture, { size.columns, size.rows - taken }, utf8 );
   };
   Body body = below( 0 );
   bool legend = false;
   if ( titled && body.curves ) {
      // On a short terminal only where it takes no room from others.
      const bool spare = lines.size() + body.lines.size() + 2 <= size.rows;
      Body beside = spare || size.rows >= rowsWithLegend ? below( 2 ) : Body();
      legend = beside.curves;
      if ( legend )
         body = std::move( beside );
   }
   for ( const Line & line : body.lines )
      lines.push_back( picture.stale.empty() ? line : faded( line ) );
   if ( legend ) {
      lines.emplace_back();
      lines.push_back( curveLegend( picture.stepSeconds, utf8 ) );
   }
   if ( lines.size() > size.rows )
      lines.resize( size.rows );
   for ( Line & line : lines )
      line = line.fitted( size.columns, utf8 );
   return lines;
}

} // namespace Maintctl
