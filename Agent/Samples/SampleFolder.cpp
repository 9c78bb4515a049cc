#include "Agent/Samples/SampleFolder.h"

#include "Agent/Samples/SampleFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>

namespace Agent {

namespace {
constexpr off_t longestContent = 64 << 20;
}

SampleFolder::~SampleFolder() {
   if ( descriptor_ >= 0 )
      close( descriptor_ );
}

std::string SampleFolder::open() {
   if ( descriptor_ >= 0 )
      close( descriptor_ );
   const auto tryIt = [this] { return ::open( path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC ); };
   descriptor_ = tryIt();
   if ( descriptor_ < 0 && errno == ENOENT && mkdir( path_.c_str(), 0755 ) == 0 )
      descriptor_ = tryIt();
   return descriptor_ < 0 ? path_ + ": " + std::strerror( errno ) : "";
}

std::vector< std::string > SampleFolder::interfaces() const {
   const int again = openat( descriptor_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC );
   const auto closer = []( DIR * directory ) { closedir( directory ); };
   const std::unique_ptr< DIR, decltype( closer ) > directory(
      again < 0 ? nullptr : fdopendir( again ), closer );
   std::vector< std::string > files, result;
   while ( const dirent * entry = directory ? readdir( directory.get() ) : nullptr )
      files.emplace_back( entry->d_name );
   std::sort( files.begin(), files.end() );
   for ( const std::string & file : files )
      if ( auto interface = SampleFile::interfaceOf( file ) )
         result.push_back( std::move( *interface ) );
   return result;
}

bool SampleFolder::has( const std::string & name ) const {
   return faccessat( descriptor_, name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW ) == 0;
}

double SampleFolder::changed( const std::string & name ) const {
   struct stat status {};
   if ( fstatat( descriptor_, name.c_str(), &status, AT_SYMLINK_NOFOLLOW ) != 0 )
      return std::numeric_limits< double >::infinity();
   return static_cast< double >( status.st_mtim.tv_sec );
}

void SampleFolder::fileDel( const std::string & name ) { unlinkat( descriptor_, name.c_str(), 0 ); }

std::optional< std::string > SampleFolder::contentOf( int folder, const std::string & name ) {
   const int file = openat( folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK );
   if ( file < 0 )
      return std::nullopt;
   struct stat status {};
   const bool known = fstat( file, &status ) == 0 && S_ISREG( status.st_mode );
   std::string text(
      static_cast< std::size_t >( known ? std::min( status.st_size, longestContent ) : 0 ), '\0' );
   const auto got = read( file, text.data(), text.size() );
   close( file );
   if ( got < 0 )
      return std::nullopt;
   text.resize( static_cast< std::size_t >( got ) );
   return text;
}

std::string SampleFolder::contentIs( const std::string & name, const std::string & text ) {
   const std::string fresh = name + ".new";
   const auto problem = [&] { return path_ + "/" + fresh + ": " + std::strerror( errno ); };
   const int file =
      openat( descriptor_, fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644 );
   if ( file < 0 )
      return problem();
   errno = ENOSPC;
   const bool written = ::write( file, text.data(), text.size() ) == static_cast< ssize_t >( text.size() );
   const std::string why = written ? "" : problem();
   close( file );
   if ( !written )
      return why;
   return renameat( descriptor_, fresh.c_str(), descriptor_, name.c_str() ) == 0 ? "" : problem();
}

} // namespace Agent
