#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Purpose: what a command is told and what it may answer; docs/STAGES.md is the same for those who write commands.
namespace Agent {

/// What a command is told on its standard input.
struct CommandInput {
   std::string unit;
   std::uint32_t generation = 0;
   bool enter = true;
   std::string stage;
   std::string reason, by; ///< empty: unknown
   std::string interfaces; ///< a JSON list
   std::string recorded;   ///< a JSON object that recordProblem() has nothing against; empty: none
   bool rerun = false;     ///< it was started for this run before, and its end is not known
};
/// One JSON object on one line, with its line feed.
std::string inputText( const CommandInput & input );

/// All of the environment of a command. The first member tells one start of a unit's stage from others.
std::vector< std::string > commandEnvironment( const CommandInput & input );

/// What is wrong with a line that begins with "{" and is to be recorded; empty: nothing.
std::string recordProblem( const std::string & line );

} // namespace Agent
