#include "Agent/Control/AccountName.h"

#include <pwd.h>

#include <array>
#include <cstdio>
#include <memory>

namespace Agent {

std::string accountName( uid_t user, const char * accounts ) {
   const auto end = []( std::FILE * file ) { std::fclose( file ); };
   const std::unique_ptr< std::FILE, decltype( end ) > file( std::fopen( accounts, "re" ), end );
   std::array< char, 4096 > line;
   passwd entry{}, *found = nullptr;
   while ( file && fgetpwent_r( file.get(), &entry, line.data(), line.size(), &found ) == 0 )
      if ( found->pw_uid == user )
         return found->pw_name;
   return "uid " + std::to_string( user );
}

} // namespace Agent
