#include "Platform/Ledger/FolderLock.h"

#include "Platform/Cog/RealTime.h"
#include "Platform/Vel/Error.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/file.h>
#include <unistd.h>

namespace Ledger {

namespace {
Status failed( const Vel::String & folder, const char * what, int error ) {
   return Status::failure( "folder " + folder + ": cannot " + what + ": " + std::strerror( error ) );
}

/// The digits in the lock file, empty if there are none.
Vel::String holder( int fd ) {
   char buffer[20];
   const ssize_t size = pread( fd, buffer, sizeof buffer, 0 );
   const std::string_view text( buffer, size > 0 ? static_cast< std::size_t >( size ) : 0 );
   return Vel::String( text.substr( 0, text.find_first_not_of( "0123456789" ) ) );
}

/// In doubt there is.
bool isThere( const Vel::String & process ) {
   return process.empty() || access( ( "/proc/" + process ).c_str(), F_OK ) == 0 || errno != ENOENT;
}

/// Seconds that others are given to run. The processor is busy for so long, and only after an agent has ended just so.
constexpr double patience = 2;

/// As flock(). A process that had the folder may have ended just when it had made another one, which holds what it has
/// inherited until it runs for the first time and gives that away. So everybody else who can run is let run.
int lockOf( int fd ) {
   const double end = Cog::RealTime::timeSinceBoot() + patience;
   for ( ;; ) {
      if ( flock( fd, LOCK_EX | LOCK_NB ) == 0 )
         return 0;
      const int reason = errno;
      if ( reason != EWOULDBLOCK || Cog::RealTime::timeSinceBoot() > end || isThere( holder( fd ) ) )
         return reason;
      sched_yield();
   }
}
} // namespace

FolderLock::~FolderLock() {
   if ( fd_ >= 0 )
      close( fd_ );
}

Status FolderLock::lock( const Vel::String & folder ) {
   VEL_ASSERT( fd_ < 0, "!locked()" );
   std::error_code error;
   std::filesystem::create_directories( folder, error );
   if ( error )
      return failed( folder, "create it", error.value() );
   const Vel::String file = folder + "/lock";
   const int fd = open( file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644 );
   if ( fd < 0 )
      return failed( folder, "open its lock file", errno );
   if ( const int reason = lockOf( fd ) ) {
      const Vel::String other = holder( fd );
      close( fd );
      if ( reason != EWOULDBLOCK )
         return failed( folder, "lock it", reason );
      inUse_ = true;
      return Status::failure(
         "folder " + folder + ": in use by another process" + ( other.empty() ? "" : " (" + other + ")" ) );
   }
   const Vel::String id = std::to_string( getpid() ) + "\n";
   // It is for people who look for the process, and needs a disk that is not full; the lock does not. What is there is
   // written over, since its block would be somebody else's; no number is better than that of another.
   const bool written = pwrite( fd, id.data(), id.size(), 0 ) == static_cast< ssize_t >( id.size() );
   if ( ftruncate( fd, written ? static_cast< off_t >( id.size() ) : 0 ) ) {
      const int reason = errno;
      close( fd );
      return failed( folder, "write its lock file", reason );
   }
   fd_ = fd;
   return {};
}

} // namespace Ledger
