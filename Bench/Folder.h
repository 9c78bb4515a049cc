#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace Bench {

/// A folder that goes with this object.
class Folder {
 public:
   Folder() : path( newFolder() ) {}
   ~Folder() {
      std::error_code ignored;
      std::filesystem::remove_all( path, ignored );
   }
   Folder( const Folder & ) = delete;
   Folder & operator=( const Folder & ) = delete;
   const std::string path;

 private:
   static std::string newFolder() {
      std::string name = std::filesystem::temp_directory_path() / "benchXXXXXX";
      if ( !mkdtemp( name.data() ) )
         throw std::runtime_error( "no folder: " + name );
      return name;
   }
};

} // namespace Bench
