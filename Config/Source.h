#pragma once

#include "Config/Diagnostics.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace Config {

/// Purpose: the text of one file before it is taken for YAML: what must not be in it at all, and where things are.
/// Owner: the call that reads the file; the text outlives it.
class Source {
 public:
   Source( std::string_view text, unsigned file );

   /// Reports what makes the file unfit for the YAML parser, which would replace, skip or misread it: bytes that are
   /// not UTF-8, control characters, tabs in indentation, directives.
   /// \return whether there is nothing of that kind
   bool check( Diagnostics & diagnostics ) const;

   /// The place of a byte, by its line (from 0) and its offset. Fast for places near the one asked for before.
   Place place( std::size_t line, std::size_t offset );

   /// The text from a byte on; empty behind the end.
   std::string_view from( std::size_t offset ) const {
      return text_.substr( std::min( offset, text_.size() ) );
   }

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
   std::size_t lastOffset_ = 0;
   Place lastPlace_; ///< of lastOffset_
};

} // namespace Config
