#pragma once

#include "Maintctl/LivePicture.h"
#include "Maintctl/Output.h"
#include "Maintctl/Sight.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace Maintctl {

/// Purpose: waits until a unit is where it shall be, and tells what goes on meanwhile: in a picture below what was
/// there before, whose last state stays, or a line for each change, also while another job has the terminal.
/// Order: construct, then until() once.
///
/// 1. The unit is looked at, never changed: whoever stops waiting has changed nothing.
/// 2. Once the unit is on its way, or there, another direction means that somebody else has decided so: waiting ends.
///    Before that it goes on: somebody may still start it.
/// 3. An agent that goes away while we wait may be on its way back (it loses nothing when it is started again), so it
///    is given `patience`; an agent that was never there is not.
class Waiting {
 public:
   static constexpr double period = 0.5;    ///< seconds between two looks
   static constexpr double patience = 15.0; ///< seconds without an answer

   struct Target {
      std::string unit;
      Operate::Operation operation; ///< enter: until it is under maintenance; exit: until it is normal
      std::optional< Config::Duration > timeout; ///< nothing: for ever
      bool started = false;                      ///< we know that the unit is on its way
      std::optional< double > begun = {}; ///< when the timeout began, by the pace; nothing: with until()
   };

   Waiting( Target target, Remote & remote, Pace & pace, Output & output, Display & display );

   ~Waiting() { remote_.watchedDel(); }
   Waiting( const Waiting & ) = delete;
   Waiting & operator=( const Waiting & ) = delete;

   /// The body that said that the unit is there. Throws Failure: notMet (timed out, or the unit went elsewhere),
   /// interrupted, notReachable, failed (no such unit).
   std::string until();
   double elapsed() { return pace_.now() - begin_; }

 private:
   std::string untilThere();
   /// Nothing: the agent did not answer, and may be on its way back.
   std::optional< std::string > look();
   void report( const Api::Unit & unit );
   void draw( const Api::Unit & unit );
   void reportAway( const Failure & failure );
   /// A line for each stage that has failed; it does not end the wait.
   void reportFailures( const Api::Unit & unit );
   /// A line when the unit is too late; it does not end the wait either.
   void reportOverrun( const Api::Unit & unit );
   void tell( const std::string & line );
   /// Whether it is told in a picture now.
   bool isDrawn() { return live_ && live_->isSeen(); }
   std::string progressLine( const Api::Unit & unit );
   [[noreturn]] void timedOut();

   const Target target_;
   Remote & remote_;
   Pace & pace_;
   Output & output_;
   Sight sight_;
   std::optional< LivePicture > live_; ///< where it is drawn
   double begin_ = 0;
   double lastAnswer_ = 0;
   bool answered_ = false, away_ = false, drawn_ = false;
   bool reportedOverrun_ = false;
   std::string lastSeen_; ///< in words
   std::string reported_; ///< what of it would be worth another line if it changed
   std::set< std::pair< std::uint64_t, std::string > > reportedFailures_; ///< generation and stage
};

/// The stages of a unit's present or last run that have failed, and why, to be put behind a sentence; empty: none.
std::string failuresText( const Api::Unit & unit );

/// The links of a unit that could not be shut although they are to be, to be put behind a sentence; empty: none.
std::string notShutText( const Api::Unit & unit );

/// Who keeps a unit waiting, the slowest first: those above the threshold, then by how long they must still be quiet.
/// \param most  names to give
std::string slowestText( const Api::Explanation & explanation, std::size_t most );

} // namespace Maintctl
