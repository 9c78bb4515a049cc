#pragma once

#include "Platform/FastLog/Reader.h"

/// Purpose: one look at a ring, wherever its bytes are, while it is written.
namespace FastLog {

/// The bytes of a ring. They may change from one read to the next, and in the middle of one.
class Source {
 public:
   /// Reads all these bytes, the first ones first, or throws.
   virtual void read( std::size_t at, void * out, std::size_t bytes ) const = 0;

 protected:
   ~Source() = default;
};

/// The newest `last` lines of those after a sequence number, from a ring of that many blocks.
Contents readRing( const Source & source, std::uint32_t blocks, std::size_t last, std::uint64_t after );

} // namespace FastLog
