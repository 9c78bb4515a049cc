#pragma once

#include "Tests/Plugin/Written.h"

namespace Tests {

/// Purpose: how often a story has come to what it is to come to. A story that is always harmless proves nothing.
class Situations {
 public:
   enum What {
      drainOnLastSample, ///< on the next sample the interface would have been shut, drained or not
      drainAndMaxDelay,  ///< one interface shut as drained, another one by its longest wait, in the same tick
      enterWhileSharedShut, ///< a unit enters while an interface that it shares with another one is shut
      exitDuringEnter,
      profileDeletedInUse,
      pendingProfileResolved,
      runPaused,       ///< a run over the backlog that pauses
      bookmarkWrapped, ///< a run that goes on at its bookmark, comes to the end and goes on at the beginning
      recordAdopted,
      restoredAsStopped,
      spike,
      violationInTwoUnits, ///< at once, by one interface
      count
   };

   void before( const Reference::Event & event, const Reference::Published & published );
   void after(
      const Reference::Event & event, const Written & written, const Reference::Published & published,
      const std::vector< Reference::Decision > & decisions );

   unsigned seen( What what ) const { return seen_[static_cast< std::size_t >( what )]; }
   static const char * name( What what );
   /// Places of the plug-in's counters that were 0 whenever it went, as in "3 11".
   std::string neverCounted() const;

 private:
   void saw( What what ) { ++seen_[static_cast< std::size_t >( what )]; }
   void lookAtShutdowns(
      const Written & written, const Reference::Published & published,
      const std::vector< Reference::Decision > & decisions );
   void lookAtViolations( const Reference::Published & published );
   void lookAtBacklog( const Reference::Published & published );
   void lookAtStart( const Reference::Published & published );
   void lookAtStage(
      const Reference::Event & event, const Written & written, const Reference::Published & published );

   std::array< unsigned, count > seen_{};
   std::array< bool, Reference::counterCount > counted_{};
   // what was before the event, as far as it matters to it
   std::map< Reference::Intf, Reference::Record > records_;
   std::map< Reference::Unit, Reference::UnitPublished > units_;
   std::set< Reference::Intf > backlog_;
   Reference::Intf bookmark_ = Reference::none;
   std::size_t spikes_ = 0;
   bool wasIncomplete_ = false;
   std::array< std::uint32_t, Reference::counterCount > counters_{};
};

} // namespace Tests
