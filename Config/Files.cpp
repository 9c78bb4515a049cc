#include "Config/Files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace Config {

namespace {

std::string cannotRead( int error ) {
   return std::string( "the file cannot be read: " ) + std::strerror( error );
}

class Descriptor {
 public:
   explicit Descriptor( int descriptor ) : descriptor_( descriptor ) {}
   Descriptor( const Descriptor & ) = delete;
   Descriptor & operator=( const Descriptor & ) = delete;
   ~Descriptor() {
      if ( descriptor_ >= 0 )
         close( descriptor_ );
   }
   int get() const { return descriptor_; }

 private:
   int descriptor_;
};

} // namespace

Parsed< std::string > SystemFiles::read( const std::string & path ) {
   using Result = Parsed< std::string >;
   // Opening a pipe must not wait for its other end.
   const Descriptor file( open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK ) );
   if ( file.get() < 0 )
      return Result::refused( cannotRead( errno ) );
   struct stat status {};
   if ( fstat( file.get(), &status ) != 0 )
      return Result::refused( cannotRead( errno ) );
   if ( S_ISDIR( status.st_mode ) )
      return Result::refused( cannotRead( EISDIR ) );
   if ( !S_ISREG( status.st_mode ) )
      return Result::refused( "the file cannot be read: it is not a regular file" );
   std::string content;
   char buffer[16384];
   while ( content.size() <= maxFileSize ) {
      const ssize_t count =
         ::read( file.get(), buffer, std::min( sizeof( buffer ), maxFileSize + 1 - content.size() ) );
      if ( count == 0 )
         break;
      if ( count < 0 && errno != EINTR )
         return Result::refused( cannotRead( errno ) );
      if ( count > 0 )
         content.append( buffer, static_cast< std::size_t >( count ) );
   }
   return Result::of( std::move( content ) );
}

Parsed< std::vector< std::string > > SystemFiles::list( const std::string & directory ) {
   using Result = Parsed< std::vector< std::string > >;
   std::vector< std::string > names;
   std::error_code error;
   std::filesystem::directory_iterator at( directory, error );
   for ( ; !error && at != std::filesystem::directory_iterator(); at.increment( error ) )
      names.push_back( at->path().filename().string() );
   if ( error == std::errc::no_such_file_or_directory )
      return Result::of( {} );
   if ( error )
      return Result::refused( cannotRead( error.value() ) );
   return Result::of( std::move( names ) );
}

} // namespace Config
