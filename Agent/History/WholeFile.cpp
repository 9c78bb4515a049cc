#include "Agent/History/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace Agent {

namespace {

/// The error, 0: none.
int written( int descriptor, const std::string & text ) {
   for ( std::size_t done = 0; done < text.size(); ) {
      const ssize_t count = write( descriptor, text.data() + done, text.size() - done );
      if ( count < 0 && errno != EINTR )
         return errno;
      done += count > 0 ? static_cast< std::size_t >( count ) : 0;
   }
   return fsync( descriptor ) == 0 ? 0 : errno;
}

/// So that the new name is there after the system has stopped, too.
void syncFolder( const std::string & folder ) {
   const int descriptor = open( folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC );
   if ( descriptor < 0 )
      return;
   fsync( descriptor );
   close( descriptor );
}

} // namespace

std::string writeWhole( const std::string & path, const std::string & text ) {
   const std::string fresh = path + unfinishedEnding;
   const std::string folder = path.substr( 0, path.rfind( '/' ) );
   const auto problem = [&]( int error ) {
      unlink( fresh.c_str() );
      return path + ": " + std::strerror( error );
   };
   mkdir( folder.c_str(), 0755 );
   const int descriptor = open( fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644 );
   if ( descriptor < 0 )
      return problem( errno );
   const int error = written( descriptor, text );
   if ( close( descriptor ) != 0 && error == 0 )
      return problem( errno );
   if ( error != 0 )
      return problem( error );
   if ( std::rename( fresh.c_str(), path.c_str() ) != 0 )
      return problem( errno );
   syncFolder( folder );
   return "";
}

std::optional< std::string > readWhole( const std::string & path ) {
   std::ifstream file( path );
   std::ostringstream text;
   text << file.rdbuf();
   if ( !file || !text )
      return std::nullopt;
   return text.str();
}

} // namespace Agent
