#pragma once

#include "Tests/Reference/EventLog.h"

namespace Tests {

/// A world and what happens in it.
struct Story {
   Reference::World world;
   std::vector< Reference::Event > events;
};

/// One line, as in "octets intf=3 in=500 out=7". What is not said is as in an event of its own.
std::string text( const Reference::Event & event );
/// The world in the first line, then an event a line.
std::string text( const Story & story );
/// Takes what text() gives; blank lines and those that begin with "#" are left out. Throws std::invalid_argument with the
/// line that it does not understand.
Story storyFrom( const std::string & text );

} // namespace Tests
