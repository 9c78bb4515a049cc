#pragma once

#include "Config/Diagnostics.h"

#include <string_view>
#include <vector>

namespace Config {

/// Purpose: the text of one file before it is taken for YAML: what must not be in it at all, and where things are.
/// Owner: the call that reads the file; the text outlives it.
class Source {
 public:
   Source( std::string_view text, unsigned file );

   /// Reports what makes the file unfit for the YAML parser, which would replace, skip or misread it: more than
   /// maxFileSize bytes, bytes that are not UTF-8, control characters, tabs in indentation, directives.
   /// \return whether there is nothing of that kind
   bool check( Diagnostics & diagnostics ) const;

   /// The text from a place on; empty behind the end.
   std::string_view from( unsigned line, unsigned column ) const;

   /// Without a byte order mark.
   std::string_view text() const { return text_; }
   unsigned file() const { return file_; }

 private:
   bool checkCharacters( Diagnostics & diagnostics ) const;
   bool checkLines( Diagnostics & diagnostics ) const;
   std::string_view line( std::size_t index ) const;

   std::string_view text_;
   unsigned file_;
   std::vector< std::size_t > lines_; ///< where each begins
};

} // namespace Config
