#pragma once

#include "Platform/FastLog/Line.h"

#include <string_view>
#include <vector>

/// Purpose: the fast log's lines, for tests.
namespace FastLog {

/// While it lives, takes a copy of every line; the ring gets it as well. Captures may be nested and end in any order:
/// each takes all lines of its life. Lines take the long way meanwhile.
class Capture {
 public:
   Capture();
   ~Capture();
   Capture( const Capture & ) = delete;
   Capture & operator=( const Capture & ) = delete;

   const std::vector< Line > & lines() const { return lines_; }
   void clear() { lines_.clear(); }
   /// Lines that contain the text.
   unsigned count( std::string_view text ) const;
   bool has( std::string_view text ) const { return count( text ) != 0; }

   /// For the log.
   void lineIs( const Line & line ) { lines_.push_back( line ); }

 private:
   std::vector< Line > lines_;
};

} // namespace FastLog
