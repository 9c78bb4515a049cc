#pragma once

#include "Agent/Control/ControlModel.h"
#include "Agent/Control/HttpStream.h"

#include <memory>
#include <optional>
#include <set>
#include <string>

/// Purpose: the event log over HTTP: the last events as JSON, and what happens as server-sent events.
/// Owner: the control API; streams may outlive it, and end then.
///
/// 1. A reader is a place in the log and the number of the last frame of rates that it was sent; nothing is queued for it.
///    One that has fallen behind what is kept is told how many events it has missed.
/// 2. An event is told when it is committed, and not before: while the store fails it waits. So a number that somebody
///    has seen is never given to another event, also if the agent is killed.
/// 3. Frames of rates are made once for all readers, at most once a second and only while somebody reads them, when a
///    sample has come. Only the newest is sent, with the number of those that a reader has missed.
namespace Agent {

class EventStreams {
 public:
   /// Both as they are handed to the API.
   EventStreams( const ControlModel & model, const ControlCommands & commands );
   ~EventStreams();
   EventStreams( const EventStreams & ) = delete;
   EventStreams & operator=( const EventStreams & ) = delete;

   /// What happens after the event of that number; without one: from now on.
   std::shared_ptr< HttpStream > stream( std::optional< Vel::U64 > after, bool rates );
   /// The first `limit` events after that number, or without one the last of them, as JSON.
   std::string recent( std::optional< Vel::U64 > after, Vel::U64 limit ) const;
   /// Rates that no record holds have changed.
   void ratesHaveChanged();
   unsigned readers() const;
   /// Events that readers have missed since the agent was started.
   Vel::U64 dropped() const;
   /// The number of the last event that may be told; 0: none.
   Vel::U64 last() const;
   /// All streams end when they have given what has happened until now, which is committed: the agent ends.
   void end();

   static constexpr const char * contentType = "text/event-stream";

 private:
   class Reader;
   struct Shared;
   struct VelLast final : Vel::ReactorTo< EventStreams, EventLog > {
      using ReactorTo::ReactorTo;
      void onLast() override { sm()->handleLast(); }
   };
   struct VelRates final : Vel::ReactorTo< EventStreams, Maintenance::MonIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onMonIntfStatus( const Wire::IntfId & intf ) override { sm()->watchRates( intf ); }
   };
   struct VelRecord final : Vel::ReactorTo< EventStreams, Maintenance::MonIntfStatus > {
      using ReactorTo::ReactorTo;
      void onCurRates() override { sm()->ratesHaveChanged(); }
   };

   void handleLast();
   void watchRates( const Wire::IntfId & intf );

   std::shared_ptr< Shared > shared_;
   Vel::Watch< VelLast > lastReactor_;
   Vel::Watch< VelRates > recordsReactor_;
   std::map< Wire::IntfId, std::unique_ptr< Vel::Watch< VelRecord > > > recordReactors_;
};

} // namespace Agent
