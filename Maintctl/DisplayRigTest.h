#pragma once

#include "Maintctl/Display.h"

#include <string>
#include <utility>
#include <vector>

/// Purpose: a terminal for tests: it does what is written to it, and shows the result.
namespace Maintctl {

/// Knows the sequences that we use, and fails the test for any other. Characters are one column wide, or two.
class FakeDisplay final : public Display {
 public:
   explicit FakeDisplay( std::size_t columns = 80, std::size_t rows = 24 );

   Abilities abilities() const override { return able; }
   Size size() override { return size_; }
   bool isOurs() override { return ours; }
   bool wasLeft() override { return std::exchange( left, false ); }
   void begin( std::string_view goodbye ) override { goodbye_ = goodbye; }
   void end() override;
   void write( std::string_view bytes ) override;

   /// As terminals do that do not break lines anew: what is outside is gone; rows are lost below the cursor first.
   void resize( std::size_t columns, std::size_t rows );
   /// What it shows, blanks at the ends of lines and empty lines at the end left out.
   std::string shown() const;
   /// The same of what has been scrolled off its top too.
   std::string everything() const;

   Abilities able{ false, false, true };
   bool ours = true, left = false;
   bool cursorShown = true, wraps = true, alone = false;
   std::size_t row = 0, column = 0;    ///< of the cursor
   std::vector< std::string > written; ///< each write
   std::string toned;                  ///< characters that were written in some tone

 private:
   using Row = std::vector< std::string >; ///< a text for each column

   void put( std::string_view character );
   void newLine();
   /// From ESC on; gives its length.
   std::size_t obey( std::string_view sequence );
   void mode( const std::string & which, bool on );

   Size size_;
   std::string goodbye_;
   std::vector< Row > rows_, scrolledOff_, hidden_; ///< hidden: what stands beneath the screen of our own
   std::size_t hiddenRow_ = 0;
   bool inTone_ = false;
};

} // namespace Maintctl
