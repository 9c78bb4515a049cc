#pragma once

#include "Config/Parsed.h"

#include <string>
#include <vector>

namespace Config {

/// The largest file that is read, in bytes.
inline constexpr std::size_t maxFileSize = 1 << 20;

/// What reading a configuration needs of a file system. Handed in, so that tests need no files.
class Files {
 public:
   virtual ~Files() = default;

   /// The bytes of a regular file, or why it cannot be read. No more than maxFileSize + 1 bytes are read.
   virtual Parsed< std::string > read( const std::string & path ) = 0;

   /// The names of what is in a directory, in any order; none if there is no such directory; or why it cannot be read.
   virtual Parsed< std::vector< std::string > > list( const std::string & directory ) = 0;
};

/// The file system of this machine.
class SystemFiles final : public Files {
 public:
   Parsed< std::string > read( const std::string & path ) override;
   Parsed< std::vector< std::string > > list( const std::string & directory ) override;
};

} // namespace Config
