#include "Tests/Plugin/StoryRun.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

/// The plug-in and the reference model go through random stories and are compared in everything after every event.
///
///     STORY_SEED=17 RandomStoriesTest --gtest_filter='*asks*'    one story, by the seed that a failure prints
///     STORY_FILE=x  RandomStoriesTest --gtest_filter='*asks*'    the events that a failure prints
namespace {

using namespace Tests;

constexpr std::size_t eventsPerStory = 2500;

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

std::string report( std::uint64_t seed, const Story & story, const Failure & failure ) {
   const Story shorter = shortened( story, failure );
   const auto again = replay( shorter );
   std::ostringstream out;
   out << "seed " << seed << ( mannerOf( seed ).linksFall ? ", links fall" : ", links keep their status" )
       << ( mannerOf( seed ).unruly ? ", unruly" : "" ) << "\nevent " << failure.event << ": "
       << text( story.events[failure.event] ) << "\n"
       << failure.text << "\nThe last events before it:\n"
       << lastEvents( story, 20 ) << "Shortened to " << shorter.events.size()
       << " events: " << ( again ? again->text : "agrees" ) << "\n"
       << text( shorter );
   return out.str();
}

void tell( std::uint64_t seed, Situations & situations ) {
   Story story;
   if ( const auto failure = tellStory( seed, mannerOf( seed ), eventsPerStory, story, situations ) )
      FAIL() << report( seed, story, *failure );
}

TEST( RandomStories, tellsTheOneThatIsAskedFor ) {
   Situations situations;
   if ( const char * seed = std::getenv( "STORY_SEED" ) )
      tell( std::strtoull( seed, nullptr, 10 ), situations );
   const char * file = std::getenv( "STORY_FILE" );
   if ( !file )
      return;
   std::stringstream from;
   from << std::ifstream( file ).rdbuf();
   const Story story = storyFrom( from.str() );
   if ( const auto failure = replay( story ) )
      FAIL() << report( 0, story, *failure );
}

/// A quarter of the stories.
void tellShare( std::uint64_t share ) {
   Situations situations;
   for ( std::uint64_t n = 0; n < 100 && !testing::Test::HasFatalFailure(); ++n )
      tell( share * 1000 + n, situations );
   for ( int what = 0; what < Situations::count; ++what )
      std::cout << Situations::name( static_cast< Situations::What >( what ) ) << ": "
                << situations.seen( static_cast< Situations::What >( what ) ) << "\n";
   for ( int what = 0; what < Situations::count; ++what )
      EXPECT_GE( situations.seen( static_cast< Situations::What >( what ) ), 20u )
         << Situations::name( static_cast< Situations::What >( what ) );
}

TEST( RandomStories, pluginAndModelAgreeInTheFirstShare ) { tellShare( 1 ); }

} // namespace
