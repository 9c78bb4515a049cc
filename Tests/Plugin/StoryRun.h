#pragma once

#include "Tests/Plugin/Compare.h"
#include "Tests/Plugin/Situations.h"
#include "Tests/Plugin/StoryTeller.h"
#include "Tests/Plugin/StoryText.h"

/// Purpose: plug-in and model go through the same story, compared after each event.
namespace Tests {

/// Where they part.
struct Failure {
   enum class Kind {
      differs,
      throws,     ///< the plug-in fails an assertion, or another exception leaves it
      unreachable ///< the story asks for what never happens in service
   };
   Kind kind{};
   std::size_t event = 0; ///< counted from 0
   std::string what;      ///< the field that differs, without its number, or the text of the exception
   std::string text;

   bool operator==( const Failure & ) const = default;
   bool isLike( const Failure & other ) const { return kind == other.kind && what == other.what; }
};

/// What the plug-in is told of an event, for tests of the comparison: nothing if this gives nothing.
using Hearing = std::function< std::optional< Reference::Event >( const Reference::Event & ) >;

std::optional< Failure > replay( const Story & story, const Hearing & hearing = {} );

/// Makes up a story of so many events and goes through it. What has been told until it failed, or all of it, is in
/// `story` afterwards.
std::optional< Failure > tellStory(
   std::uint64_t seed, StoryTeller::Manner manner, std::size_t events, Story & story, Situations & situations,
   const Hearing & hearing = {} );

/// Leaves out as many events as it can so that the story still fails in the same way.
Story shortened( const Story & story, const Failure & failure, const Hearing & hearing = {} );

} // namespace Tests
