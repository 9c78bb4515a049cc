#pragma once

#include "Maintctl/Drawing.h"

#include <string_view>

/// Purpose: a terminal as drawing sees it: the seam between pictures and the device.
namespace Maintctl {

class Display {
 public:
   virtual ~Display() = default;

   /// What it can do never changes.
   struct Abilities {
      bool draws = false; ///< the cursor can be moved, and it is wanted
      bool colours = false;
      bool utf8 = false; ///< shows more than ASCII
      bool terminal = false;
   };
   virtual Abilities abilities() const = 0;

   /// How large it is now.
   virtual Size size() = 0;
   /// Whether it is ours now: not while another job has it.
   virtual bool isOurs() = 0;
   /// True once after we have been stopped and go on: it has been left as end() does, and shows something else now.
   virtual bool wasLeft() = 0;

   /// From here to end(): nobody's keys are shown, and however the process ends, `goodbye` is written at last, which
   /// shall leave the terminal as it was. It may be called again with another one.
   virtual void begin( std::string_view goodbye ) = 0;
   virtual void end() = 0;
   /// All of it at once.
   virtual void write( std::string_view bytes ) = 0;
};

} // namespace Maintctl
