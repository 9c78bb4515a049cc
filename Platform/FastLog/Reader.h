#pragma once

#include "Platform/FastLog/FastLog.h"
#include "Platform/FastLog/Line.h"

#include <vector>

/// Purpose: reads a ring: one's own, that of another process while it writes, or one that is left of a process that
/// is gone. The file holds all that is needed; the code that wrote it need not be there.
///
/// A line that is being written, or overwritten while it is read, is left out; what is given is whole. Of a damaged
/// ring all that makes sense is given, and what does not is named.
namespace FastLog {

struct Contents {
   std::vector< Line > lines; ///< the oldest first
   /// What is wrong with the ring and where, at most maxDamage entries.
   std::vector< std::string > damage;
   static constexpr std::size_t maxDamage = 20;
};

inline constexpr std::size_t allLines = ~std::size_t( 0 );

class Reader {
 public:
   /// Throws Error, which names the file and what is wrong with it, if it cannot be read, is no fast log, is cut off,
   /// has a damaged head, or a version that this program does not know.
   explicit Reader( const std::string & path );
   ~Reader();
   Reader( const Reader & ) = delete;
   Reader & operator=( const Reader & ) = delete;

   /// The newest `last` lines of those after a sequence number. Looks at the file anew each time, so one can follow a
   /// log with it; a writer that starts again makes another file. Throws Error if it cannot be read any more.
   Contents read( std::size_t last = allLines, std::uint64_t after = 0 ) const;

   /// Of the process that writes or wrote it.
   unsigned pid() const { return pid_; }

 private:
   std::string path_;
   int file_;
   std::uint32_t blocks_ = 0;
   unsigned pid_ = 0;
};

/// The same from the ring of this process.
Contents ownLines( std::size_t last = allLines, std::uint64_t after = 0 );

} // namespace FastLog
