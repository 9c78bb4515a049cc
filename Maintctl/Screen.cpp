#include "Maintctl/Screen.h"

#include <algorithm>
#include <utility>

namespace Maintctl {

namespace {

constexpr char hideCursor[] = "\033[?25l", showCursor[] = "\033[?25h";
constexpr char wrapOff[] = "\033[?7l", wrapOn[] = "\033[?7h";
constexpr char enterAlone[] = "\033[?1049h\033[H", leaveAlone[] = "\033[?1049l";
constexpr char plainText[] = "\033[0m";
constexpr char clearLine[] = "\033[K", clearBelow[] = "\033[J";

const char * escapeOf( Tone tone ) {
   switch ( tone ) {
   case Tone::plain:
      return "";
   case Tone::strong:
      return "\033[1m";
   case Tone::faint:
      return "\033[2m";
   case Tone::good:
      return "\033[32m";
   case Tone::warning:
      return "\033[33m";
   case Tone::bad:
      return "\033[1;31m";
   }
   return "";
}

std::string moved( std::size_t rows, char direction ) {
   return rows ? "\033[" + std::to_string( rows ) + direction : "";
}

} // namespace

Size Screen::room() {
   const Size size = display_.size();
   // One column less than there are, see above; and below the frame a row for what comes after it.
   const std::size_t spare = place_ == Place::below ? 1 : 0;
   return {
      size.columns - std::min< std::size_t >( size.columns, 1 ), size.rows - std::min( size.rows, spare ) };
}

bool Screen::needsDrawing() {
   if ( display_.wasLeft() )
      open_ = false;
   if ( display_.size() != size_ )
      whole_ = true;
   return ( whole_ || !open_ || !pending_.empty() ) && display_.isOurs();
}

void Screen::draw( const Lines & lines ) {
   needsDrawing();
   if ( !display_.isOurs() )
      return;
   tellPending();
   std::string bytes = opening();
   if ( whole_ ) {
      bytes += std::string( "\r" ) + clearBelow;
      shown_.clear();
   }
   std::vector< std::string > wanted;
   for ( const Line & line : lines )
      wanted.push_back( encoded( line ) );
   std::size_t at = 0;
   for ( std::size_t row = 0; row < wanted.size(); ++row ) {
      if ( row < shown_.size() && shown_[row] == wanted[row] )
         continue;
      bytes += down( at, row ) + wanted[row] + ( row < shown_.size() ? clearLine : "" ) + "\r";
      at = row;
   }
   if ( wanted.size() < shown_.size() ) {
      // The row where the rest begins is there: no new one is made.
      bytes += moved( wanted.size() - at, 'B' ) + clearBelow;
      at = wanted.size();
   }
   bytes += moved( at, 'A' );
   shown_ = std::move( wanted );
   size_ = display_.size();
   whole_ = false;
   display_.begin( goodbye() );
   if ( !bytes.empty() )
      display_.write( bytes );
   open_ = true;
}

void Screen::above( const Line & line ) {
   pending_.push_back( line );
   if ( display_.isOurs() )
      tellPending();
}

void Screen::tellPending() {
   if ( pending_.empty() )
      return;
   // Wrapped by the terminal if it is long: it is no part of the frame.
   std::string bytes = open_ ? std::string( "\r" ) + clearBelow + wrapOn : "";
   for ( const Line & line : std::exchange( pending_, {} ) )
      bytes += encoded( line ) + "\r\n";
   bytes += open_ ? wrapOff : "";
   // A frame that is replaced as a whole next is not drawn before.
   if ( !open_ || whole_ )
      shown_.clear();
   for ( std::size_t row = 0; row < shown_.size(); ++row )
      bytes += ( row ? "\r\n" : "" ) + shown_[row];
   if ( !shown_.empty() )
      bytes += "\r" + moved( shown_.size() - 1, 'A' );
   display_.write( bytes );
}

void Screen::close() {
   if ( std::exchange( open_, false ) ) {
      display_.end();
      shown_.clear();
   }
   tellPending(); // also in the background: whatever is said afterwards is said there too
}

std::string Screen::opening() {
   if ( open_ )
      return "";
   whole_ = true;
   return std::string( place_ == Place::alone ? enterAlone : "" ) + hideCursor + wrapOff;
}

std::string Screen::goodbye() const {
   std::string bytes = plainText;
   if ( place_ == Place::below && !shown_.empty() )
      bytes += moved( shown_.size() - 1, 'B' ) + "\r\n";
   return bytes + wrapOn + showCursor + ( place_ == Place::alone ? leaveAlone : "" );
}

std::string Screen::down( std::size_t from, std::size_t to ) const {
   // The cursor cannot be moved past the last row there is; a new line makes one, scrolling if it has to.
   const std::size_t last = shown_.empty() ? 0 : shown_.size() - 1;
   const std::size_t there = std::max( from, std::min( to, last ) );
   std::string bytes = moved( there - from, 'B' );
   for ( std::size_t row = there; row < to; ++row )
      bytes += "\n";
   return bytes;
}

std::string Screen::encoded( const Line & line ) const {
   std::string bytes;
   for ( const Span & span : line.spans() ) {
      const bool coloured = display_.abilities().colours && span.tone != Tone::plain;
      bytes += coloured ? escapeOf( span.tone ) + span.text + plainText : span.text;
   }
   return bytes;
}

} // namespace Maintctl
