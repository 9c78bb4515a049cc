#pragma once

#include "Maintctl/Display.h"

#include <string>

namespace Maintctl {

/// What the environment says of terminals; empty where it says nothing.
struct TerminalEnvironment {
   std::string noColor; ///< NO_COLOR
   std::string term;    ///< TERM
   std::string locale;  ///< the first that is set of LC_ALL, LC_CTYPE and LANG
   static TerminalEnvironment ofProcess();
};

/// What may be drawn on a terminal.
/// \param wanted  the operator has not forbidden it
Display::Abilities abilitiesOf( bool terminal, bool wanted, const TerminalEnvironment & environment );

/// Purpose: a terminal of this machine, or what stands in its place. Owner: main. At most one is drawn on at a time.
class RealDisplay final : public Display {
 public:
   RealDisplay( int descriptor, Abilities abilities ) : descriptor_( descriptor ), abilities_( abilities ) {}
   ~RealDisplay() override { end(); }
   RealDisplay( const RealDisplay & ) = delete;
   RealDisplay & operator=( const RealDisplay & ) = delete;

   Abilities abilities() const override { return abilities_; }
   Size size() override;
   bool isOurs() override;
   bool wasLeft() override;
   void begin( std::string_view goodbye ) override;
   void end() override;
   void write( std::string_view bytes ) override;

   /// Leaves the terminal that is drawn on as end() does, if there is one. For signal handlers that no other
   /// interrupts.
   static void leave();

 private:
   const int descriptor_;
   const Abilities abilities_;
};

} // namespace Maintctl
