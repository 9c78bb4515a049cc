#include "Tests/Plugin/StoryRun.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

/// The plug-in and the reference model go through random stories and are compared in everything after every event.
///
///     STORY_SEED=17 STORY_EVENTS=2500 build/dev/bin/RandomStoriesTest --gtest_filter='*AskedFor'
///     STORY_FILE=story.txt build/dev/bin/RandomStoriesTest --gtest_filter='*AskedFor'
///
/// tell one story again, from the seed or from the events that a failure prints. With STORY_TRACE=1 each event is printed
/// before the plug-in hears of it.
namespace {

using namespace Tests;

/// The seed decides about everything.
StoryTeller::Manner mannerOf( std::uint64_t seed ) {
   return { .linksFall = seed % 2 == 1, .unruly = seed % 8 >= 6 };
}

std::string lastEvents( const Story & story, std::size_t count ) {
   std::string result;
   const std::size_t size = story.events.size();
   for ( std::size_t at = size - std::min( count, size ); at < size; ++at )
      result += "   " + text( story.events[at] ) + "\n";
   return result;
}

std::string report( const Story & story, const Failure & failure ) {
   const Story shorter = shortened( story, failure );
   const auto again = replay( shorter );
   std::ostringstream out;
   out << "event " << failure.event << ": " << text( story.events.at( failure.event ) ) << "\n"
       << failure.text << "\nThe last events before it:\n"
       << lastEvents( story, 20 ) << "Shortened to " << shorter.events.size()
       << " events: " << ( again ? again->text : "agrees" ) << "\n"
       << text( shorter );
   return out.str();
}

/// What went wrong; empty if nothing did.
std::string
tell( std::uint64_t seed, std::size_t events, Situations & situations, const Hearing & hearing = {} ) {
   Story story;
   const StoryTeller::Manner manner = mannerOf( seed );
   const auto failure = tellStory( seed, manner, events, story, situations, hearing );
   if ( !failure )
      return {};
   return "STORY_SEED=" + std::to_string( seed ) + " STORY_EVENTS=" + std::to_string( events ) +
          ( manner.linksFall ? ", links fall, " : ", links keep their status, " ) +
          ( manner.unruly ? "unruly\n" : "orderly\n" ) + report( story, *failure );
}

/// A quarter of a million events, and all of it must have come about often enough for each quarter to be worth something.
void tellQuarter( std::uint64_t quarter ) {
   Situations situations;
   for ( std::uint64_t seed = quarter * 1000; seed < quarter * 1000 + 100; ++seed ) {
      // Should the program die, the last one is the one to look at.
      std::cout << seed << " " << std::flush;
      if ( const std::string failure = tell( seed, 2500, situations ); !failure.empty() )
         FAIL() << failure;
   }
   std::cout << std::endl;
   for ( int i = 0; i < Situations::count; ++i ) {
      const auto what = static_cast< Situations::What >( i );
      EXPECT_GE( situations.seen( what ), 20u ) << Situations::name( what );
   }
   EXPECT_EQ( situations.neverCounted(), "11" ) << "repeats are not filtered, everything else is counted";
}

TEST( RandomStories, agreeInTheFirstQuarter ) { tellQuarter( 1 ); }
TEST( RandomStories, agreeInTheSecondQuarter ) { tellQuarter( 2 ); }
TEST( RandomStories, agreeInTheThirdQuarter ) { tellQuarter( 3 ); }
TEST( RandomStories, agreeInTheFourthQuarter ) { tellQuarter( 4 ); }

/// The short tests set the seed of this one, the long ones do not.
RC_GTEST_PROP( RandomStories, agreeWhateverTheSeed, () ) {
   const auto seed = *rc::gen::noShrink( rc::gen::arbitrary< std::uint64_t >() );
   Situations situations;
   if ( const std::string failure = tell( seed, 800, situations ); !failure.empty() )
      RC_FAIL( failure );
}

TEST( RandomStories, agreeInTheOneThatIsAskedFor ) {
   Hearing hearing;
   if ( std::getenv( "STORY_TRACE" ) )
      hearing = []( const Reference::Event & event ) {
         std::cout << text( event ) << std::endl;
         return std::optional( event );
      };
   if ( const char * seed = std::getenv( "STORY_SEED" ) ) {
      const char * events = std::getenv( "STORY_EVENTS" );
      Situations situations;
      EXPECT_EQ(
         tell(
            std::strtoull( seed, nullptr, 10 ), events ? std::strtoul( events, nullptr, 10 ) : 2500,
            situations, hearing ),
         "" );
   }
   if ( const char * file = std::getenv( "STORY_FILE" ) ) {
      std::stringstream from;
      from << std::ifstream( file ).rdbuf();
      const Story story = storyFrom( from.str() );
      ASSERT_FALSE( story.events.empty() ) << file;
      const auto failure = replay( story, hearing );
      EXPECT_EQ( failure ? report( story, *failure ) : "", "" );
   }
}

} // namespace
