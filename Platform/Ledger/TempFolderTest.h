#pragma once

#include "Platform/Vel/String.h"

#include <filesystem>

#include <stdlib.h>

/// A folder of its own for one test; removed with all that is in it.
class TempFolder {
 public:
   TempFolder() {
      Vel::String name = ( std::filesystem::temp_directory_path() / "drainwatch-XXXXXX" ).string();
      if ( mkdtemp( name.data() ) )
         path_ = name;
   }
   ~TempFolder() {
      std::error_code ignored;
      if ( !path_.empty() )
         std::filesystem::remove_all( path_, ignored );
   }
   TempFolder( const TempFolder & ) = delete;
   TempFolder & operator=( const TempFolder & ) = delete;

   const Vel::String & path() const { return path_; }

 private:
   Vel::String path_;
};
