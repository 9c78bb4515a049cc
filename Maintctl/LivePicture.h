#pragma once

#include "Maintctl/Pace.h"
#include "Maintctl/Picture.h"
#include "Maintctl/Screen.h"

#include <optional>

namespace Maintctl {

/// Purpose: keeps a picture on a terminal, also when that is resized. Owner: Waiting, Watching.
class LivePicture {
 public:
   LivePicture( Display & display, Screen::Place place ) : display_( display ), screen_( display, place ) {}

   void show( Picture picture );
   /// Draws it again if the terminal has been resized or left since. No picture, nothing is drawn.
   void refresh();
   /// Not while another job has the terminal: then no picture is drawn.
   bool isSeen() { return display_.isOurs(); }
   /// No picture has more rows now.
   std::size_t rows() { return screen_.room().rows; }
   /// A line of text above the picture, where it stays.
   void above( const Line & line ) { screen_.above( line ); }
   /// Waits so many seconds. False: the operator has interrupted us.
   bool rest( Pace & pace, double seconds );
   /// What comes next stands below the last picture, or where the picture was not.
   void close() { screen_.close(); }

 private:
   void draw();

   Display & display_;
   Screen screen_;
   std::optional< Picture > picture_;
};

} // namespace Maintctl
