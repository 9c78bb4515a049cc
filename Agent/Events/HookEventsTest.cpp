#include "Agent/Events/HookEvents.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace Agent;
using nlohmann::json;

struct HookEventsStory : testing::Test {
   json last() const { return json::parse( log->event( log->last() )->json ); }

   Vel::Ptr< EventLog > log = Vel::make< EventLog >();
   EventWriter writer{ log, [] { return 1.7e9; } };
   HookEvents events{ writer };
   const double now = 1.7e9;
};

TEST_F( HookEventsStory, tellAFailureAtOnce ) {
   events.failed( { "pager", "exit", 17, { "u1" }, "ended with 1" } );
   events.look( now );
   ASSERT_EQ( 1u, log->last() );
   const json event = last();
   EXPECT_EQ( "hook-failed", event.at( "what" ) );
   EXPECT_EQ( "agent", event.at( "type" ) );
   EXPECT_EQ( "maintd", event.at( "subject" ) );
   EXPECT_EQ( json{ "u1" }, event.at( "units" ) );
   EXPECT_EQ( "pager", event.at( "hook" ) );
   EXPECT_EQ( "exit", event.at( "moment" ) );
   EXPECT_EQ( 17, event.at( "event" ) );
   EXPECT_EQ( "ended with 1", event.at( "error" ) );
   EXPECT_EQ( 1, event.at( "count" ) );
   EXPECT_EQ( "hook pager has failed for exit: ended with 1", event.at( "text" ) );
}

TEST_F( HookEventsStory, countFailuresThatFollowEachOther ) {
   Vel::U64 failures = 0;
   for ( ; failures < 600; ++failures ) {
      events.failed( { "pager", "exit", failures + 1, {}, "ended with 1" } );
      events.look( now + static_cast< double >( failures ) );
   }
   EXPECT_LT( log->last(), 20u );
   EXPECT_EQ( 60, last().at( "count" ) );
   events.failed( { "desk", "exit", 7, {}, "refused" } );
   events.look( now + 600 );
   EXPECT_EQ( "desk", last().at( "hook" ) ) << "each hook has a pace of its own";
}

TEST_F( HookEventsStory, tellOfEventsThatWereMissed ) {
   events.missed( "pager", 3 );
   events.missed( "pager", 2 );
   events.look( now );
   EXPECT_EQ( "hook-missed", last().at( "what" ) );
   EXPECT_EQ( 5, last().at( "count" ) );
   events.missed( "pager", 1 );
   events.look( now );
   EXPECT_EQ( 1u, log->last() );
   events.look( now + 2 );
   EXPECT_EQ( 2u, log->last() );
}

} // namespace
