#include "Maintctl/RealDisplay.h"

#include <gtest/gtest.h>

namespace Maintctl {

namespace {

TEST( Abilities, areWhatTheTerminalAndTheOperatorAllow ) {
   const struct {
      const char * what;
      bool terminal, wanted;
      TerminalEnvironment environment;
      bool draws, colours, utf8;
   } rows[] = {
      { "a terminal", true, true, { "", "xterm", "C.UTF-8" }, true, true, true },
      { "no terminal", false, true, { "", "xterm", "C.UTF-8" }, false, false, true },
      { "--no-progress", true, false, { "", "xterm", "C.UTF-8" }, false, false, true },
      { "NO_COLOR", true, true, { "1", "xterm", "C.UTF-8" }, true, false, true },
      { "TERM=dumb", true, true, { "", "dumb", "C.UTF-8" }, false, false, true },
      { "no TERM", true, true, { "", "", "C.UTF-8" }, false, false, true },
      { "another locale", true, true, { "", "xterm", "de_DE.ISO-8859-1" }, true, true, false },
      { "no locale", true, true, { "", "xterm", "" }, true, true, false },
      { "a locale spelled otherwise", true, true, { "", "xterm", "en_US.utf8" }, true, true, true } };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.what );
      const Display::Abilities abilities = abilitiesOf( row.terminal, row.wanted, row.environment );
      EXPECT_EQ( abilities.draws, row.draws );
      EXPECT_EQ( abilities.colours, row.colours );
      EXPECT_EQ( abilities.utf8, row.utf8 );
   }
}

} // namespace
} // namespace Maintctl
