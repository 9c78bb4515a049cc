#include "Agent/Hooks/HookEvent.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace Agent;
using Config::Moment;
using nlohmann::json;

Event event( EventType type, const json & members ) {
   json object = {
      { "sequence", 7 },
      { "type", stringValue( type ) },
      { "subject", type == EventType::unit ? "u1" : "et1" },
      { "units", { "u1" } },
      { "text", "a sentence" } };
   object.update( members );
   return { type, object.dump() };
}

std::string momentOf( EventType type, const json & members ) {
   const auto found = hookEventOf( event( type, members ) );
   return found ? Config::text( found->moment ) : "none";
}

TEST( HookEvent, isAMomentOfAUnit ) {
   const auto ofState = []( const char * state ) {
      return momentOf( EventType::unit, { { "what", "state" }, { "state", state } } );
   };
   EXPECT_EQ( "enter", ofState( "entering" ) );
   EXPECT_EQ( "completed", ofState( "maintenance" ) );
   EXPECT_EQ( "exit", ofState( "exiting" ) );
   EXPECT_EQ( "normal", ofState( "normal" ) );
   EXPECT_EQ( "none", ofState( "another" ) );
   EXPECT_EQ( "overrun", momentOf( EventType::unit, { { "what", "overrun" } } ) );
   EXPECT_EQ( "none", momentOf( EventType::unit, { { "what", "stage" }, { "state", "entering" } } ) );
}

TEST( HookEvent, isAMomentOfAnInterface ) {
   const auto of = []( const json & members ) { return momentOf( EventType::interface, members ); };
   EXPECT_EQ( "shut", of( { { "what", "shut" }, { "forced", true } } ) );
   EXPECT_EQ( "spike", of( { { "what", "spike-begin" } } ) );
   EXPECT_EQ( "none", of( { { "what", "spike-end" } } ) );
   EXPECT_EQ( "none", of( { { "what", "state" }, { "state", "enter-maint" }, { "forced", false } } ) );
   EXPECT_EQ( "drained", of( { { "what", "state" }, { "state", "under-maint" }, { "forced", false } } ) );
}

TEST( HookEvent, thatSaysDrainedIsNotToldOfWhatWasForced ) {
   EXPECT_EQ(
      "none",
      momentOf(
         EventType::interface, { { "what", "state" }, { "state", "under-maint" }, { "forced", true } } ) );
}

TEST( HookEvent, isNoneOfTheAgentAndOfProfiles ) {
   for ( const EventType type : { EventType::agent, EventType::profile } )
      EXPECT_EQ( "none", momentOf( type, { { "what", "state" }, { "state", "entering" } } ) );
}

/// Somebody may give anything as his reason.
TEST( HookEvent, isNotMadeByWhatStandsInATextOfIt ) {
   EXPECT_EQ(
      "none",
      momentOf(
         EventType::unit,
         { { "what", "stage-failed" }, { "state", "entering" }, { "error", "\"what\":\"state\"" } } ) );
   EXPECT_FALSE( hookEventOf( { EventType::unit, "no JSON, but \"what\":\"state\"" } ) );
}

TEST( HookEvent, concernsAHookThatWaitsForItsMomentAndUnits ) {
   const HookEvent of{ Moment::shut, EventType::interface, "et1", { "u1", "u2" } };
   Config::Hook hook;
   hook.at = { Moment::exit };
   EXPECT_FALSE( concerns( hook, of ) );
   hook.at = { Moment::exit, Moment::shut };
   EXPECT_TRUE( concerns( hook, of ) );
   hook.units = { "u3" };
   EXPECT_FALSE( concerns( hook, of ) );
   hook.units = { "u2", "u3" };
   EXPECT_TRUE( concerns( hook, of ) );
}

TEST( HookEvent, isGivenToTheProgramAsOneLineOfJson ) {
   const Event of = event( EventType::unit, { { "what", "state" }, { "text", "} \"a\nb\"" } } );
   HookCall call{ "pager", 7, { Moment::enter, EventType::unit, "u1", { "u1" } }, 1, "" };
   const std::string input = hookInput( call, of );
   EXPECT_EQ( input.size() - 1, input.find( '\n' ) );
   json expected = json::parse( of.json );
   expected.update( { { "hook", "pager" }, { "moment", "enter" }, { "rerun", false } } );
   EXPECT_EQ( expected, json::parse( input ) );
   call.start = 2;
   EXPECT_EQ( true, json::parse( hookInput( call, of ) ).at( "rerun" ) );
}

TEST( HookEvent, isGivenToTheProgramAsNamesInItsEnvironment ) {
   const HookCall call{
      "pager", 7, { Moment::spike, EventType::interface, "e;$(x)\"1", { "u1", "u2" } }, 2, "" };
   EXPECT_EQ(
      ( std::vector< std::string >{
         "MAINTD_RUN=hook pager 7 2", "MAINTD_HOOK=pager", "MAINTD_MOMENT=spike", "MAINTD_EVENT=7",
         "MAINTD_UNITS=u1 u2", "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
         "LANG=C.UTF-8", "MAINTD_INTERFACE=e;$(x)\"1" } ),
      hookEnvironment( call ) );
   const HookCall ofUnit{ "desk", 8, { Moment::exit, EventType::unit, "u1", { "u1" } }, 1, "http://desk" };
   const auto environment = hookEnvironment( ofUnit );
   EXPECT_EQ( "MAINTD_UNIT=u1", environment.at( 7 ) );
   EXPECT_EQ( "MAINTD_URL=http://desk", environment.at( 8 ) );
}

} // namespace
