#include "Agent/History/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Agent {

namespace {

/// So that the new name is there after the system has stopped, too.
void syncFolder( const std::string & folder ) {
   const Descriptor descriptor( open( folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC ) );
   if ( descriptor.isOpen() )
      fsync( descriptor.number() );
}

std::string folderOf( const std::string & path ) { return path.substr( 0, path.rfind( '/' ) ); }

} // namespace

Descriptor::~Descriptor() {
   if ( isOpen() )
      close( number_ );
}

Descriptor & Descriptor::operator=( Descriptor && other ) noexcept {
   Descriptor before( release() );
   number_ = other.release();
   return *this;
}

// ---- written

WholeFile::WholeFile( std::string path ) : path_( std::move( path ) ), fresh_( path_ + unfinishedEnding ) {}

WholeFile::~WholeFile() {
   if ( made_ )
      unlink( fresh_.c_str() );
}

std::string WholeFile::problem( int error ) const { return path_ + ": " + std::strerror( error ); }

std::string WholeFile::open() {
   mkdir( folderOf( path_ ).c_str(), 0755 );
   descriptor_ = Descriptor( ::open( fresh_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644 ) );
   made_ = descriptor_.isOpen();
   return made_ ? "" : problem( errno );
}

std::string WholeFile::append( std::string_view text ) {
   while ( !text.empty() ) {
      const ssize_t count = write( descriptor_.number(), text.data(), text.size() );
      if ( count < 0 && errno != EINTR )
         return problem( errno );
      text.remove_prefix( count > 0 ? static_cast< std::size_t >( count ) : 0 );
   }
   // Where that is not known, all of it is written in the end.
   sync_file_range( descriptor_.number(), 0, 0, SYNC_FILE_RANGE_WRITE );
   return "";
}

std::string WholeFile::finish() {
   if ( fsync( descriptor_.number() ) != 0 || close( descriptor_.release() ) != 0 )
      return problem( errno );
   if ( std::rename( fresh_.c_str(), path_.c_str() ) != 0 )
      return problem( errno );
   made_ = false;
   syncFolder( folderOf( path_ ) );
   return "";
}

// ---- read

std::optional< FilePieces > FilePieces::open( const std::string & path ) {
   // One that is no file must not keep us waiting.
   Descriptor descriptor( ::open( path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC ) );
   struct stat status {};
   if ( !descriptor.isOpen() || fstat( descriptor.number(), &status ) != 0 || !S_ISREG( status.st_mode ) )
      return std::nullopt;
   return FilePieces( std::move( descriptor ), static_cast< std::size_t >( status.st_size ) );
}

char FilePieces::last() const {
   char result = 0;
   if ( size_ == 0 || pread( descriptor_.number(), &result, 1, static_cast< off_t >( size_ - 1 ) ) != 1 )
      return 0;
   return result;
}

std::optional< std::string > FilePieces::next() {
   std::string piece( std::min( pieceSize, size_ - read_ ), 0 );
   const ssize_t count =
      pread( descriptor_.number(), piece.data(), piece.size(), static_cast< off_t >( read_ ) );
   if ( count < 0 || ( count == 0 && !piece.empty() ) )
      return std::nullopt;
   piece.resize( static_cast< std::size_t >( count ) );
   read_ += piece.size();
   return piece;
}

} // namespace Agent
