#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Purpose: the answers of the control API about what has happened.
namespace Api {

struct Event {
   std::uint64_t sequence = 0;
   std::string time; ///< as it was sent
   std::string type, subject, text;
   std::string json; ///< all of it, in one line
};

struct RecentEvents {
   std::vector< Event > events; ///< oldest first
   std::uint64_t last = 0;      ///< the newest that there is
};

/// Events that a reader has missed for good.
struct DroppedEvents {
   std::uint64_t dropped = 0;
   std::uint64_t next = 0; ///< the number of the next event
};

namespace Path {
inline constexpr char recentEvents[] = "/api/v1/events/recent";
/// The stream of what happens after an event.
std::string eventsAfter( std::uint64_t sequence );
/// At most so many after an event, and the newest.
std::string recentEventsAfter( std::uint64_t sequence, std::uint64_t limit );
std::string recentEventsLast( std::uint64_t limit );
} // namespace Path

/// They throw Api::Error (internal) for an answer that makes no sense.
Event readEvent( std::string_view json );
RecentEvents readRecentEvents( std::string_view json );
DroppedEvents readDroppedEvents( std::string_view json );

} // namespace Api
