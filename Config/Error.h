#pragma once

#include <compare>
#include <string>

namespace Config {

/// One thing that is wrong with a configuration, or that is right and does nothing.
struct Error {
   std::string file;
   unsigned line = 0;   ///< from 1; 0: the file as a whole (it cannot be read)
   unsigned column = 0; ///< from 1, in characters; 0 with line 0
   std::string message; ///< one line, what is wrong and, where we can tell, what to write instead

   /// `file:line:col: error: message`, or `file: error: message` for the file as a whole.
   std::string text() const { return text( "error" ); }
   std::string warningText() const { return text( "warning" ); } ///< the same with another word

   friend auto operator<=>( const Error &, const Error & ) = default;

 private:
   std::string text( const char * severity ) const;
};

} // namespace Config
