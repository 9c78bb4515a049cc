#include "Maintctl/Reaching.h"

#include <sys/stat.h>

#include <cerrno>
#include <grp.h>
#include <pwd.h>

namespace Maintctl {

namespace {

std::string groupName( gid_t group ) {
   const struct group * const entry = getgrgid( group );
   return entry ? entry->gr_name : std::to_string( group );
}

std::string userName( uid_t user ) {
   const struct passwd * const entry = getpwuid( user );
   return entry ? entry->pw_name : std::to_string( user );
}

/// Who may connect to a socket: whoever may write to it, or may look into its folder if that is what stands in the way.
std::string whoMay( const std::string & socket ) {
   struct stat found {};
   mode_t needed = S_IWGRP;
   if ( stat( socket.c_str(), &found ) != 0 ) {
      const std::size_t slash = socket.rfind( '/' );
      const std::string folder = slash == std::string::npos ? "." : socket.substr( 0, slash + 1 );
      needed = S_IXGRP;
      if ( stat( folder.c_str(), &found ) != 0 )
         return "";
   }
   if ( ( found.st_mode & needed ) == 0 )
      return "it is for the user " + userName( found.st_uid );
   return "it is for members of the group " + groupName( found.st_gid ) +
          ", and who has become one is so from the next login on";
}

} // namespace

std::string reachingHint( int number, const std::string & socket ) {
   switch ( number ) {
   case ENOENT:
   case ECONNREFUSED:
      return "is maintd running? --socket names another socket";
   case EACCES:
   case EPERM:
      return whoMay( socket );
   default:
      return "";
   }
}

} // namespace Maintctl
