#include "Agent/Events/HookEvents.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <optional>

namespace {

using namespace Agent;
using nlohmann::json;

struct HookEventsStory : testing::Test {
   json last() const { return json::parse( log->event( log->last() )->json ); }

   Vel::Ptr< EventLog > log = Vel::make< EventLog >();
   EventWriter writer{ log, [] { return 1.7e9; } };
   Vel::Ptr< EventsTold > told = Vel::make< EventsTold >();
   std::optional< HookEvents > events{ std::in_place, writer, told };
   const double now = 1.7e9;
};

TEST_F( HookEventsStory, tellAFailureAtOnce ) {
   events->failed( { "pager", "exit", 17, { "u1" }, "ended with 1" } );
   events->look( now );
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
      events->failed( { "pager", "exit", failures + 1, {}, "ended with 1" } );
      events->look( now + static_cast< double >( failures ) );
   }
   EXPECT_LT( log->last(), 20u );
   EXPECT_EQ( 60, last().at( "count" ) );
   events->failed( { "desk", "exit", 7, {}, "refused" } );
   events->look( now + 600 );
   EXPECT_EQ( "desk", last().at( "hook" ) ) << "each hook has a pace of its own";
}

TEST_F( HookEventsStory, tellOfEventsThatWereMissed ) {
   events->missed( "pager", 3 );
   events->missed( "pager", 2 );
   events->look( now );
   EXPECT_EQ( "hook-missed", last().at( "what" ) );
   EXPECT_EQ( 5, last().at( "count" ) );
   events->missed( "pager", 1 );
   events->look( now );
   EXPECT_EQ( 1u, log->last() );
   events->look( now + 2 );
   EXPECT_EQ( 2u, log->last() );
   EXPECT_EQ( 0u, told->hooks() );
}

/// They were not to be told yet when it ended.
TEST_F( HookEventsStory, areToldByTheNextAgentWhereTheLastOneHasEnded ) {
   events->failed( { "pager", "exit", 17, { "u1" }, "ended with 1" } );
   events->missed( "pager", 1 );
   events->look( now );
   events->failed( { "pager", "exit", 20, { "u1" }, "ended with 2" } );
   events->failed( { "pager", "normal", 21, { "u1", "u2" }, "ended with 3" } );
   events->missed( "pager", 4 );
   events->look( now + 0.5 );
   ASSERT_EQ( 2u, log->last() );
   events.emplace( writer, told );
   events->look( now + 0.6 );
   ASSERT_EQ( 4u, log->last() );
   const json failures = json::parse( log->event( 3 )->json );
   EXPECT_EQ( 2, failures.at( "count" ) );
   EXPECT_EQ( "normal", failures.at( "moment" ) );
   EXPECT_EQ( 21, failures.at( "event" ) );
   EXPECT_EQ( ( json{ "u1", "u2" } ), failures.at( "units" ) );
   EXPECT_EQ(
      "hook pager has failed for normal: ended with 3; it is the last of 2 failures", failures.at( "text" ) );
   EXPECT_EQ( 4, last().at( "count" ) );
   events.emplace( writer, told );
   events->look( now + 100 );
   EXPECT_EQ( 4u, log->last() ) << "what was told is not told again";
}

} // namespace
