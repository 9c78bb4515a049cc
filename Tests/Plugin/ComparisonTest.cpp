#include "Tests/Plugin/StoryRun.h"

#include <gtest/gtest.h>

/// The comparison of plug-in and model finds what differs, and a story that shows it becomes a short one.
namespace {

using namespace Tests;
using namespace Reference;

constexpr StoryTeller::Manner plain;

Published something() {
   Published p;
   p.records[3];
   p.shut[3] = 5;
   p.units[1];
   p.unitMonitors[1];
   p.intfMonitors[3].timer = 7;
   return p;
}

TEST( Comparison, namesTheFieldThatDiffers ) {
   struct Row {
      const char * field;
      void ( *alter )( Published & p );
   };
   static constexpr Row rows[] = {
      { "records", []( Published & p ) { p.records[4]; } },
      { "records", []( Published & p ) { p.records.clear(); } },
      { "records[3].profile", []( Published & p ) { p.records[3].profile = 1; } },
      { "records[3].startTime", []( Published & p ) { p.records[3].startTime = 1; } },
      { "records[3].cur.in", []( Published & p ) { p.records[3].cur.in = 1; } },
      { "records[3].cur.out", []( Published & p ) { p.records[3].cur.out = 1; } },
      { "records[3].cur.time", []( Published & p ) { p.records[3].cur.time = 1; } },
      { "records[3].prev.in", []( Published & p ) { p.records[3].prev.in = 1; } },
      { "records[3].prev.out", []( Published & p ) { p.records[3].prev.out = 1; } },
      { "records[3].prev.time", []( Published & p ) { p.records[3].prev.time = 1; } },
      { "records[3].lastSampleTime", []( Published & p ) { p.records[3].lastSampleTime = 1; } },
      { "records[3].totalSamples", []( Published & p ) { p.records[3].totalSamples = 1; } },
      { "records[3].consecutiveDrained", []( Published & p ) { p.records[3].consecutiveDrained = 1; } },
      { "records[3].abovePre", []( Published & p ) { p.records[3].abovePre = 1; } },
      { "records[3].belowPre", []( Published & p ) { p.records[3].belowPre = 1; } },
      { "records[3].abovePost", []( Published & p ) { p.records[3].abovePost = 1; } },
      { "records[3].belowPost", []( Published & p ) { p.records[3].belowPost = 1; } },
      { "records[3].state", []( Published & p ) { p.records[3].state = MonState::stopped; } },
      { "records[3].stateTime", []( Published & p ) { p.records[3].stateTime = 1; } },
      { "records[3].spike", []( Published & p ) { p.records[3].spike = true; } },
      { "records[3].stale", []( Published & p ) { p.records[3].stale = true; } },
      { "entering", []( Published & p ) { p.entering.insert( 3 ); } },
      { "under", []( Published & p ) { p.under.insert( 3 ); } },
      { "spikes", []( Published & p ) { p.spikes.insert( 3 ); } },
      { "shut", []( Published & p ) { p.shut.clear(); } },
      { "shut[3]", []( Published & p ) { p.shut[3] = 6; } },
      { "units", []( Published & p ) { p.units[2]; } },
      { "units[1].aggregateIn", []( Published & p ) { p.units[1].aggregateIn = 1; } },
      { "units[1].aggregateOut", []( Published & p ) { p.units[1].aggregateOut = 1; } },
      { "units[1].aggregateTime", []( Published & p ) { p.units[1].aggregateTime = 1; } },
      { "units[1].violating", []( Published & p ) { p.units[1].violating.insert( 3 ); } },
      { "units[1].totalViolations", []( Published & p ) { p.units[1].totalViolations = 1; } },
      { "complete",
        []( Published & p ) {
           p.complete.insert( { StageClass::exit, 1, 2 } );
        } },
      { "unitMonitors", []( Published & p ) { p.unitMonitors[2]; } },
      { "unitMonitors[1].generation", []( Published & p ) { p.unitMonitors[1].generation = 1; } },
      { "unitMonitors[1].monitored", []( Published & p ) { p.unitMonitors[1].monitored.insert( 3 ); } },
      { "unitMonitors[1].drained", []( Published & p ) { p.unitMonitors[1].drained.insert( 3 ); } },
      { "intfMonitors", []( Published & p ) { p.intfMonitors[4]; } },
      { "intfMonitors[3].state", []( Published & p ) { p.intfMonitors[3].state = MonState::stopped; } },
      { "intfMonitors[3].initialState",
        []( Published & p ) { p.intfMonitors[3].initialState = MonState::underMaint; } },
      { "intfMonitors[3].profile", []( Published & p ) { p.intfMonitors[3].profile = 1; } },
      { "intfMonitors[3].dependents", []( Published & p ) { p.intfMonitors[3].dependents.insert( 1 ); } },
      { "intfMonitors[3].timer", []( Published & p ) { p.intfMonitors[3].timer.reset(); } },
      { "backlog", []( Published & p ) { p.backlog.insert( 3 ); } },
      { "bookmark", []( Published & p ) { p.bookmark = 3; } },
      { "counters[0]", []( Published & p ) { p.counters[0] = 1; } },
      { "counters[22]", []( Published & p ) { p.counters[22] = 1; } },
   };
   EXPECT_EQ( difference( something(), something() ).field, "" );
   for ( const Row & row : rows ) {
      Published altered = something();
      row.alter( altered );
      EXPECT_EQ( difference( altered, something() ).field, row.field );
      EXPECT_EQ( difference( something(), altered ).field, row.field );
   }
}

TEST( Comparison, saysWhatBothSidesHave ) {
   Published altered = something();
   altered.records[3].cur.in = 0.1;
   EXPECT_EQ(
      difference( altered, something() ).text(), "records[3].cur.in: plug-in 0.10000000000000001, model 0" );
   const Decision joined{ Decision::Kind::joined, 3, 1, 5 };
   EXPECT_EQ(
      difference( std::vector< Decision >{ joined }, {} ).text(),
      "decisions: plug-in { joined(3,1)@5 }, model { }" );
}

/// How many of the first stories it takes until a difference is found when the plug-in does not hear of one kind of event;
/// 0 if none of them shows it.
int storiesWithout( EventKind kind ) {
   Situations situations;
   for ( int n = 1; n <= 10; ++n ) {
      Story story;
      const auto deaf = [&]( const Event & event ) {
         return event.kind == kind ? std::nullopt : std::optional( event );
      };
      if ( tellStory(
              static_cast< std::uint64_t >( n ), { .linksFall = n % 2 == 1 }, 2000, story, situations,
              deaf ) )
         return n;
   }
   return 0;
}

TEST( Comparison, noticesWhenThePluginMissesAnyKindOfEvent ) {
   for ( int kind = 0; kind <= static_cast< int >( EventKind::unload ); ++kind )
      EXPECT_NE( storiesWithout( static_cast< EventKind >( kind ) ), 0 )
         << text( Event{ .kind = static_cast< EventKind >( kind ) } );
}

/// A plug-in for which thresholds are a little higher.
std::optional< Event > hearsHigherThresholds( Event event ) {
   event.thresholdKbps += 0.001;
   return event;
}

TEST( Comparison, findsASlightErrorAndShortensTheStoryToWhatShowsIt ) {
   Story story;
   Situations situations;
   std::optional< Failure > failure;
   for ( std::uint64_t seed = 1; !failure; ++seed ) {
      ASSERT_LT( seed, 20u );
      failure = tellStory( seed, plain, 2500, story, situations, hearsHigherThresholds );
   }
   EXPECT_EQ( failure->kind, Failure::Kind::differs );
   EXPECT_EQ( failure->event, story.events.size() - 1 );
   EXPECT_EQ( replay( story ), std::nullopt );

   const Story shorter = shortened( story, *failure, hearsHigherThresholds );
   const auto again = replay( shorter, hearsHigherThresholds );
   ASSERT_TRUE( again );
   EXPECT_TRUE( again->isLike( *failure ) ) << again->text;
   EXPECT_LT( shorter.events.size(), 30u ) << text( shorter );
   // Nothing in it can be left out.
   for ( std::size_t at = 0; at < shorter.events.size(); ++at ) {
      Story less = shorter;
      less.events.erase( less.events.begin() + static_cast< std::ptrdiff_t >( at ) );
      const auto still = replay( less, hearsHigherThresholds );
      EXPECT_FALSE( still && still->isLike( *failure ) ) << text( shorter.events[at] );
   }
}

TEST( Comparison, readsAStoryBackAsItWasPrinted ) {
   Story story;
   Situations situations;
   ASSERT_EQ( tellStory( 1, plain, 1000, story, situations ), std::nullopt );
   const std::string printed = text( story );
   const Story back = storyFrom( "# a story\n\n" + printed );
   EXPECT_EQ( text( back ), printed );
   EXPECT_EQ( back.events.size(), 1000u );
   EXPECT_EQ( replay( back ), std::nullopt );
   const auto deaf = []( const Event & event ) {
      return event.kind == EventKind::linkUp ? std::nullopt : std::optional( event );
   };
   EXPECT_EQ( replay( back, deaf ), replay( story, deaf ) );
}

TEST( Comparison, saysWhichLineOfAStoryItDoesNotUnderstand ) {
   for ( const char * line :
         { "linkUpp intf=1", "linkUp intf=x", "linkUp port=1", "linkUp intf", "interfaces radio" } )
      try {
         storyFrom( line );
         ADD_FAILURE() << line;
      } catch ( const std::invalid_argument & error ) {
         EXPECT_EQ( std::string( error.what() ).find( "\"" + std::string( line ) + "\": " ), 0u )
            << error.what();
      }
}

TEST( Comparison, takesAStoryThatCannotHappenForNoDifference ) {
   const Story story = storyFrom( "world units=1 groups=1 profiles=1 start=1700000000\n"
                                  "interfaces ethernet\n"
                                  "groupMade group=0\n"
                                  "groupIntf intf=0 group=0\n"
                                  "mapping unit=0 group=0\n"
                                  "start\n"
                                  "unitMade unit=0\n"
                                  "progressMade unit=0 number=1\n"
                                  "stage unit=0 number=1 other=1\n" );
   const auto failure = replay( story );
   ASSERT_TRUE( failure );
   EXPECT_EQ( failure->kind, Failure::Kind::unreachable );
   EXPECT_EQ( failure->event, 6u );
}

} // namespace
