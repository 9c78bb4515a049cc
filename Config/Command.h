#pragma once

#include "Config/Parsed.h"

#include <string>
#include <string_view>
#include <vector>

namespace Config {

/// A program and its arguments. No shell has a part in it.
class Command {
 public:
   Command() = default; ///< none

   /// Splits a line into words by blanks, with '...', "..." and \ as in a shell. What a shell would do more (pipes,
   /// variables, patterns) is refused with the way to ask a shell for it. The first word is an absolute path.
   static Parsed< Command > parse( std::string_view line );

   /// The same of words that are separate already, which may hold anything but control characters.
   static Parsed< Command > of( std::vector< std::string > words );

   bool empty() const { return words_.empty(); }
   const std::vector< std::string > & words() const { return words_; }
   /// The line for people and files; parse() gives the same words again.
   std::string text() const;

   friend auto operator<=>( const Command &, const Command & ) = default;

 private:
   static Parsed< Command > ofWords( const std::string & what, std::vector< std::string > words );

   std::vector< std::string > words_;
};

} // namespace Config
