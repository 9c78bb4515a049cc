#include "Tests/Plugin/StoryRun.h"

#include "Tests/Plugin/DrivenPlugin.h"
#include "Tests/Reference/Model.h"

#include <algorithm>

namespace Tests {

using Reference::Event;

namespace {

Failure differs( std::size_t at, const Difference & found ) {
   std::string what = found.field;
   std::erase_if( what, []( char c ) { return c >= '0' && c <= '9'; } );
   return { Failure::Kind::differs, at, what, found.text() };
}

/// Plug-ins that failed half way through something: they cannot even be torn down.
std::vector< DrivenPlugin * > & wrecks() {
   static auto * const all = new std::vector< DrivenPlugin * >;
   return *all;
}

class Pair {
 public:
   Pair( const Reference::World & world, const Hearing & hearing )
      : plugin_( std::make_unique< DrivenPlugin >( world ) ), model_( world ), hearing_( hearing ) {}

   /// The text is empty if they agree.
   std::optional< Failure > apply( std::size_t at, const Event & event ) {
      try {
         model_.apply( event );
      } catch ( const Reference::Unreachable & why ) {
         return Failure{ Failure::Kind::unreachable, at, why.what(), why.what() };
      }
      try {
         if ( const auto heard = hearing_ ? hearing_( event ) : event )
            plugin_->apply( *heard );
      } catch ( const std::exception & why ) {
         wrecks().push_back( plugin_.release() );
         return Failure{ Failure::Kind::throws, at, why.what(), why.what() };
      }
      if ( const Difference found = difference( plugin_->decisions(), model_.decisions() ) )
         return differs( at, found );
      if ( const Difference found = difference( plugin_->published(), model_.published() ) )
         return differs( at, found );
      return {};
   }
   const Reference::Published & published() const { return plugin_->published(); }
   const std::vector< Reference::Decision > & decisions() const { return plugin_->decisions(); }

 private:
   std::unique_ptr< DrivenPlugin > plugin_;
   Reference::Model model_;
   const Hearing & hearing_;
};

} // namespace

std::optional< Failure > replay( const Story & story, const Hearing & hearing ) {
   Pair pair( story.world, hearing );
   for ( std::size_t at = 0; at < story.events.size(); ++at )
      if ( auto failure = pair.apply( at, story.events[at] ) )
         return failure;
   return {};
}

std::optional< Failure > tellStory(
   std::uint64_t seed, StoryTeller::Manner manner, std::size_t events, Story & story, Situations & situations,
   const Hearing & hearing ) {
   story = { randomWorld( seed ), {} };
   Pair pair( story.world, hearing );
   Written written;
   StoryTeller teller( seed, story.world, manner, written, pair.published() );
   for ( std::size_t at = 0; at < events; ++at ) {
      const Event event = teller.next();
      story.events.push_back( event );
      situations.before( event, pair.published() );
      written.apply( event );
      if ( auto failure = pair.apply( at, event ) )
         return failure;
      situations.after( event, written, pair.published(), pair.decisions() );
   }
   return {};
}

Story shortened( const Story & story, const Failure & failure, const Hearing & hearing ) {
   Story best = story;
   best.events.resize( failure.event + 1 );
   for ( std::size_t chunk = best.events.size() / 2; chunk > 0; ) {
      bool found = false;
      // From the end: what came last before the failure matters most, and what came long before it least.
      for ( std::size_t from = 0; from < best.events.size(); ) {
         Story shorter = best;
         const auto begin = shorter.events.begin() + static_cast< std::ptrdiff_t >( from );
         shorter.events.erase(
            begin, begin + static_cast< std::ptrdiff_t >( std::min( chunk, shorter.events.size() - from ) ) );
         if ( const auto still = replay( shorter, hearing ); still && still->isLike( failure ) ) {
            shorter.events.resize( still->event + 1 );
            best = std::move( shorter );
            found = true;
         } else
            from += chunk;
      }
      if ( chunk > 1 || !found )
         chunk /= 2;
   }
   return best;
}

} // namespace Tests
