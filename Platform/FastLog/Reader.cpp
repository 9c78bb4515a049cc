#include "Platform/FastLog/Reader.h"

#include "Platform/FastLog/Pass.h"
#include "Platform/FastLog/Sites.h"
#include "Platform/FastLog/State.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FastLog {

namespace {

/// Files are read, not mapped: one that is cut off meanwhile is an error then, not a signal.
class FileSource final : public Source {
 public:
   FileSource( const std::string & path, int file ) : path_( path ), file_( file ) {}
   void read( std::size_t at, void * out, std::size_t bytes ) const override {
      for ( char * to = static_cast< char * >( out ); bytes; ) {
         const ssize_t got = ::pread( file_, to, bytes, static_cast< off_t >( at ) );
         if ( got < 0 && errno == EINTR )
            continue;
         if ( got < 0 )
            throw Error( "fast log " + path_ + ": cannot read it: " + std::strerror( errno ) );
         if ( got == 0 )
            throw Error( "fast log " + path_ + ": it is cut off at byte " + std::to_string( at ) );
         to += got;
         at += static_cast< std::size_t >( got );
         bytes -= static_cast< std::size_t >( got );
      }
   }

 private:
   const std::string & path_;
   int file_;
};

class MemorySource final : public Source {
 public:
   explicit MemorySource( const char * base ) : base_( base ) {}
   void read( std::size_t at, void * out, std::size_t bytes ) const override {
      std::memcpy( out, base_ + at, bytes );
   }

 private:
   const char * base_;
};

/// Throws what is wrong with the head of a file of that many bytes.
void check( const std::string & path, const FileHead & head, std::size_t bytes ) {
   const auto refuse = [&]( const std::string & why ) { throw Error( "fast log " + path + ": " + why ); };
   if ( std::memcmp( head.magic, magic, sizeof magic ) != 0 )
      refuse( "it is no fast log: its first bytes are other ones" );
   if ( head.byteOrder != byteOrder )
      refuse(
         head.byteOrder == __builtin_bswap32( byteOrder ) ? "it is from a machine with another byte order"
                                                          : "its head is damaged at byte 12 (byte order)" );
   if ( head.version != version )
      refuse(
         "it has version " + std::to_string( head.version ) + ", this program reads version " +
         std::to_string( version ) );
   if (
      head.checksum !=
      checksum( { reinterpret_cast< const char * >( &head ), offsetof( FileHead, checksum ) } ) )
      refuse( "its head is damaged: bytes 0 to 35 have a wrong checksum" );
   if (
      head.headBytes != headBytes || head.siteTableBytes != siteTableBytes || head.blockBytes != blockBytes ||
      head.blocks < 2 || head.blocks > maxBlocks )
      refuse( "its head has sizes that version 1 does not have" );
   const std::size_t needed = headBytes + siteTableBytes + std::size_t( head.blocks ) * blockBytes;
   if ( bytes < needed )
      refuse( "it is cut off: it has " + std::to_string( bytes ) + " bytes of " + std::to_string( needed ) );
}

} // namespace

Reader::Reader( const std::string & path )
   : path_( path ), file_( ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK ) ) {
   if ( file_ < 0 )
      throw Error( "fast log " + path + ": cannot open it: " + std::strerror( errno ) );
   try {
      struct stat status;
      if ( ::fstat( file_, &status ) != 0 )
         throw Error( "fast log " + path + ": cannot look at it: " + std::strerror( errno ) );
      if ( !S_ISREG( status.st_mode ) )
         throw Error( "fast log " + path + ": it is no regular file" );
      const auto bytes = static_cast< std::size_t >( status.st_size );
      FileHead head;
      if ( bytes < sizeof head )
         throw Error(
            "fast log " + path + ": it is no fast log, or it is cut off: it has " + std::to_string( bytes ) +
            " bytes" );
      FileSource( path_, file_ ).read( 0, &head, sizeof head );
      check( path, head, bytes );
      blocks_ = head.blocks;
      pid_ = head.pid;
   } catch ( ... ) {
      ::close( file_ );
      throw;
   }
}

Reader::~Reader() { ::close( file_ ); }

Contents Reader::read( std::size_t last, std::uint64_t after ) const {
   return readRing( FileSource( path_, file_ ), blocks_, last, after );
}

Contents ownLines( std::size_t last, std::uint64_t after ) {
   if ( !ring() )
      return {};
   return readRing( MemorySource( ring().base() ), ring().head().blocks, last, after );
}

} // namespace FastLog
