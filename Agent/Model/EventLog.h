#pragma once

#include "Platform/Model/Wire.h"
#include "Platform/Vel/Declare.h"

/// Purpose: what has happened, in order, for people and programs that look later or lose their connection. Kept across
/// restarts of the agent and of the machine: an event is written in the turn in which what it tells has happened, so
/// that both are committed together.
namespace Agent {

/// What an event is about. Ordinals are part of the stored form.
enum class EventType : Vel::U32 { unit = 0, interface = 1, profile = 2, agent = 3 };
/// "unit", "interface", "profile", "agent".
inline Vel::String stringValue( EventType type ) {
   const char * const texts[] = { "unit", "interface", "profile", "agent" };
   const auto ordinal = static_cast< Vel::U32 >( type );
   return ordinal < std::size( texts ) ? texts[ordinal] : Vel::text( "EventType(", ordinal, ")" );
}

struct Event {
   EventType type = EventType::agent;
   /// The event as it is told, a JSON object in one line, with its sequence number. Made once; every reader gets the same.
   Vel::String json;

   friend bool operator==( const Event &, const Event & ) = default;
};
inline Vel::String stringValue( const Event & event ) { return event.json; }

} // namespace Agent

template <>
struct Vel::Codec< Agent::Event > {
   static constexpr bool stored = true;
   static void write( ByteWriter & w, const Agent::Event & v ) {
      Codec< Agent::EventType >::write( w, v.type );
      Codec< String >::write( w, v.json );
   }
   static void read( ByteReader & r, Agent::Event & v ) {
      Codec< Agent::EventType >::read( r, v.type );
      Codec< String >::read( r, v.json );
   }
};

namespace Agent {

/// The last events. Written by Events only.
///
/// Sequence numbers are without gaps and never go back: those that are kept are `first()` to `last()`.
///
/// A new event takes the place of the oldest one, so that what a commit has to write is never more than what is kept,
/// also after a store has failed for days.
class EventLog final : public Vel::Entity {
   VEL_ENTITY( EventLog );
   /// So many are kept.
   static constexpr Vel::U64 kept = 4096;

   /// Events by the remainder of their sequence number.
   VEL_MAP( Vel::U64, Event, slot, onSlot );
   /// The newest; 0: nothing has happened yet. Written after the event.
   VEL_STATE( Vel::U64, last, onLast );

   /// The oldest that is kept; above last() if none is.
   Vel::U64 first() const { return last() - slots() + 1; }
   /// Null if it is not kept.
   const Event * event( Vel::U64 sequence ) const {
      return sequence >= first() && sequence <= last() ? slot( sequence % kept ) : nullptr;
   }
   /// Adds the event that has the number last() + 1.
   void add( const Event & event ) {
      const Vel::U64 sequence = last() + 1;
      slotIs( sequence % kept, event );
      lastStore( sequence );
   }
};

} // namespace Agent
