#include "Platform/FastLog/Ring.h"

#include "Platform/FastLog/Sites.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FastLog {

namespace {

constexpr std::size_t minBytes = 2 * blockBytes;
constexpr std::size_t maxBytes = std::size_t( maxBlocks ) * blockBytes;

std::size_t totalBytes( const std::string & where, std::size_t bytes ) {
   if ( bytes < minBytes || bytes > maxBytes )
      throw Error(
         where + ": a size of " + std::to_string( bytes ) + " bytes is not between " +
         std::to_string( minBytes ) + " and " + std::to_string( maxBytes ) );
   return headBytes + siteTableBytes + ( bytes + blockBytes - 1 ) / blockBytes * blockBytes;
}

[[noreturn]] void fail( const std::string & path, const char * what, int error ) {
   throw Error( "fast log " + path + ": " + what + ": " + std::strerror( error ) );
}

/// An open file; closed unless it is taken.
class File {
 public:
   File( const std::string & path, int flags )
      : path_( path ),
        file_( ::open( path.c_str(), flags | O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0640 ) ),
        error_( file_ < 0 ? errno : 0 ) {}
   ~File() {
      if ( file_ >= 0 )
         ::close( file_ );
   }
   File( const File & ) = delete;
   File & operator=( const File & ) = delete;

   int error() const { return error_; }
   int get() const { return file_; }
   int take() { return std::exchange( file_, -1 ); }

   /// Throws unless it is an open regular file that nobody writes.
   void lock() const {
      if ( error_ == ELOOP )
         throw Error( "fast log " + path_ + ": it is a symbolic link" );
      if ( error_ )
         fail( path_, "cannot open it for writing", error_ );
      struct stat status;
      if ( ::fstat( file_, &status ) != 0 )
         fail( path_, "cannot look at it", errno );
      if ( !S_ISREG( status.st_mode ) )
         throw Error( "fast log " + path_ + ": it is no regular file" );
      if ( ::flock( file_, LOCK_EX | LOCK_NB ) != 0 )
         throw Error( "fast log " + path_ + ": another process writes it" );
   }

 private:
   std::string path_;
   int file_;
   int error_;
};

/// Whether there is a line in the ring of a run before; throws if the file is none of ours.
bool hasLines( const File & file, const std::string & path ) {
   FileHead head = {};
   const ssize_t bytes = ::pread( file.get(), &head, sizeof head, 0 );
   if ( bytes < 0 )
      fail( path, "cannot read it", errno );
   if ( bytes == 0 )
      return false;
   if ( std::memcmp( head.magic, magic, sizeof magic ) != 0 )
      throw Error( "fast log " + path + ": there is a file that is no fast log; it is left as it is" );
   // The first line of a ring enters the first site. In doubt the ring is kept.
   return head.siteBytes != 0 || static_cast< std::size_t >( bytes ) < sizeof head;
}

void rename( const std::string & from, const std::string & to ) {
   if ( ::rename( from.c_str(), to.c_str() ) != 0 && errno != ENOENT )
      fail( from, ( "cannot rename it to " + to ).c_str(), errno );
}

void keep( const std::string & path ) {
   for ( unsigned run = keptRuns; run > 1; --run )
      rename( keptPath( path, run - 1 ), keptPath( path, run ) );
   rename( path, keptPath( path, 1 ) );
}

/// Removes a file again unless told otherwise.
class Unfinished {
 public:
   explicit Unfinished( std::string path ) : path_( std::move( path ) ) {}
   ~Unfinished() {
      if ( !path_.empty() )
         ::unlink( path_.c_str() );
   }
   Unfinished( const Unfinished & ) = delete;
   Unfinished & operator=( const Unfinished & ) = delete;
   void finish() { path_.clear(); }

 private:
   std::string path_;
};

} // namespace

std::string keptPath( const std::string & path, unsigned run ) { return path + '.' + std::to_string( run ); }

Ring Ring::inMemory( std::size_t bytes ) {
   const std::size_t total = totalBytes( "fast log in memory", bytes );
   void * const base = ::mmap( nullptr, total, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0 );
   if ( base == MAP_FAILED )
      fail( "in memory", "cannot get memory", errno );
   Ring ring( static_cast< char * >( base ), total, -1 );
   ring.writeHead();
   return ring;
}

// The new file gets its place only when it is complete, so a reader never sees half a head. Two processes cannot get
// here with the same path: the lock of the unfinished file keeps one of them out, later that of the file itself.
Ring Ring::inFile( const std::string & path, std::size_t bytes ) {
   const std::size_t total = totalBytes( "fast log " + path, bytes );
   const std::string unfinishedPath = path + ".new";
   File file( unfinishedPath, O_CREAT );
   file.lock();
   Unfinished unfinished( unfinishedPath );

   bool kept = false;
   const File before( path, 0 );
   if ( before.error() != ENOENT ) {
      before.lock();
      kept = hasLines( before, path );
   }
   if ( ::ftruncate( file.get(), 0 ) != 0 )
      fail( unfinishedPath, "cannot empty it", errno );
   if ( const int error = ::posix_fallocate( file.get(), 0, static_cast< off_t >( total ) ) )
      fail( path, ( "cannot get " + std::to_string( total ) + " bytes" ).c_str(), error );
   void * const base = ::mmap( nullptr, total, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0 );
   if ( base == MAP_FAILED )
      fail( path, "cannot map it", errno );
   Ring ring( static_cast< char * >( base ), total, file.take() );
   ring.writeHead();
   if ( kept )
      keep( path );
   rename( unfinishedPath, path );
   unfinished.finish();
   return ring;
}

Ring::~Ring() {
   if ( base_ )
      ::munmap( base_, bytes_ );
   if ( file_ >= 0 )
      ::close( file_ );
}

void Ring::swap( Ring & other ) {
   std::swap( base_, other.base_ );
   std::swap( bytes_, other.bytes_ );
   std::swap( file_, other.file_ );
}

void Ring::writeHead() {
   FileHead head = {};
   std::memcpy( head.magic, magic, sizeof magic );
   head.version = version;
   head.byteOrder = byteOrder;
   head.headBytes = headBytes;
   head.siteTableBytes = siteTableBytes;
   head.blockBytes = blockBytes;
   head.blocks = static_cast< std::uint32_t >( ( bytes_ - headBytes - siteTableBytes ) / blockBytes );
   head.pid = static_cast< std::uint32_t >( ::getpid() );
   head.checksum =
      FastLog::checksum( { reinterpret_cast< const char * >( &head ), offsetof( FileHead, checksum ) } );
   std::memcpy( base_, &head, sizeof head );
}

} // namespace FastLog
