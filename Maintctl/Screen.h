#pragma once

#include "Maintctl/Display.h"

#include <string>
#include <vector>

namespace Maintctl {

/// Purpose: keeps lines on a terminal: writes what has changed since the last frame and nothing else.
/// Owner: Waiting, Watching. Order: draw() as often as wanted, then close(), which the destructor does too.
///
/// 1. Between frames the cursor stands where the frame begins, out of sight. Whatever a terminal does to its lines when
///    it is resized, it takes the cursor along, so that all from the cursor on is ours to draw again.
/// 2. A line is written over what it replaces and cleared only behind its end, a frame in one piece: nothing flickers.
/// 3. A line is shorter than the terminal is wide, and the terminal is told not to wrap: characters that take more
///    columns than we think cannot push the frame apart.
class Screen {
 public:
   enum class Place {
      below, ///< below what was there, which stays; the last frame stays too
      alone  ///< a screen of its own, as large as the terminal; what was there comes back at the end
   };

   Screen( Display & display, Place place ) : display_( display ), place_( place ) {}
   ~Screen() { close(); }
   Screen( const Screen & ) = delete;
   Screen & operator=( const Screen & ) = delete;

   /// How large a frame may be now.
   Size room();
   /// Shows the lines, which fit into room(); nothing happens while the terminal is not ours.
   void draw( const Lines & lines );
   /// A line of text above the frame, where it stays. While the terminal is not ours it is kept until it is, or until
   /// close(). Not for Place::alone.
   void above( const Line & line );
   /// Whether the frame has to be drawn again though nothing has changed.
   bool needsDrawing();
   void close();

 private:
   void tellPending();
   std::string opening();
   std::string goodbye() const;
   /// Moves the cursor down from the row, through rows that are there or are to be made.
   std::string down( std::size_t from, std::size_t to ) const;
   std::string encoded( const Line & line ) const;

   Display & display_;
   const Place place_;
   bool open_ = false;
   bool whole_ = false; ///< the next frame replaces all that is there
   Size size_;          ///< at the last frame
   std::vector< std::string > shown_;
   Lines pending_; ///< to be said above
};

} // namespace Maintctl
