#pragma once

#include "Api/Events.h"
#include "Maintctl/Display.h"
#include "Maintctl/EventParser.h"
#include "Maintctl/Output.h"
#include "Maintctl/Pace.h"
#include "Maintctl/Remote.h"

#include <optional>

namespace Maintctl {

/// Purpose: shows what happens as it happens, until the operator ends it.
///
/// 1. Each event is shown once, in order, also over an agent that is started again: what came last is where the next
///    stream begins. What the agent does not keep any more is said.
/// 2. An agent that was there is waited for for ever, also if it has too many readers now; one that was not is not.
/// 3. For people a line each; as JSON one object a line.
class Following {
 public:
   static constexpr double period = 0.5; ///< seconds between two tries to reach an agent that is away

   /// \param data  where the output's data goes
   Following( Remote & remote, Pace & pace, Output & output, Display & data )
      : remote_( remote ), pace_( pace ), output_( output ), data_( data ) {}

   /// Shows those before, then follows what happens after the event of that number. Ends by a Failure only.
   [[noreturn]] void follow( const std::vector< Api::Event > & before, std::uint64_t after );

 private:
   void show( const Api::Event & event );
   void take( const SentEvent & sent );
   void flush();

   Remote & remote_;
   Pace & pace_;
   Output & output_;
   Display & data_;
   std::uint64_t at_ = 0;
   bool reached_ = false;
   std::string whyAway_; ///< as it was told; empty: it is there
};

/// An event as a line for people, ended; on several where there is not so much room.
std::string eventLine( const Api::Event & event, std::size_t room );

} // namespace Maintctl
