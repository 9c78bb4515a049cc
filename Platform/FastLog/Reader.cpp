#include "Platform/FastLog/Reader.h"

#include "Platform/FastLog/Sites.h"
#include "Platform/FastLog/State.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FastLog {

namespace {

/// The bytes of a ring. Files are read, not mapped: one that is cut off meanwhile is an error then, not a signal.
class Source {
 public:
   /// Reads all these bytes or throws.
   virtual void read( std::size_t at, void * out, std::size_t bytes ) const = 0;

 protected:
   ~Source() = default;
};

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

/// One look at a ring.
class Pass {
 public:
   Pass( const Source & source, std::uint32_t blocks ) : source_( source ), blocks_( blocks ) {}

   Contents run( std::size_t last, std::uint64_t after ) {
      std::vector< Line > block;
      std::vector< std::vector< Line > > newestFirst;
      std::size_t count = 0;
      std::uint64_t oldest = ~std::uint64_t( 0 ); // first sequence number that has been read
      for ( const auto & [number, slot] : blockNumbers() ) {
         if ( count >= last || oldest <= after + 1 )
            break;
         readBlock( number, slot, oldest, block );
         std::erase_if( block, [&]( const Line & line ) { return line.sequence <= after; } );
         if ( block.empty() )
            continue;
         count += block.size();
         newestFirst.push_back( std::move( block ) );
      }
      for ( auto it = newestFirst.rbegin(); it != newestFirst.rend(); ++it )
         std::move( it->begin(), it->end(), std::back_inserter( contents_.lines ) );
      if ( contents_.lines.size() > last )
         contents_.lines.erase(
            contents_.lines.begin(), contents_.lines.end() - static_cast< std::ptrdiff_t >( last ) );
      return std::move( contents_ );
   }

 private:
   static std::size_t positionOf( std::uint32_t slot ) {
      return headBytes + siteTableBytes + std::size_t( slot ) * blockBytes;
   }

   void damaged( std::uint32_t slot, std::size_t at, const std::string & what ) {
      if ( contents_.damage.size() < Contents::maxDamage )
         contents_.damage.push_back(
            "block " + std::to_string( slot ) + ", byte " + std::to_string( positionOf( slot ) + at ) + ": " +
            what );
   }

   std::uint64_t numberIn( std::uint32_t slot ) const {
      std::uint64_t number;
      source_.read( positionOf( slot ), &number, sizeof number );
      __atomic_thread_fence( __ATOMIC_ACQUIRE );
      return number;
   }

   /// The blocks in use with their slots, the newest first.
   std::vector< std::pair< std::uint64_t, std::uint32_t > > blockNumbers() {
      std::vector< std::pair< std::uint64_t, std::uint32_t > > numbers;
      for ( std::uint32_t slot = 0; slot < blocks_; ++slot ) {
         const std::uint64_t number = numberIn( slot );
         if ( number % blocks_ == slot && number )
            numbers.emplace_back( number, slot );
         else if ( number )
            damaged( slot, 0, "block number " + std::to_string( number ) + " does not belong here" );
      }
      std::sort( numbers.rbegin(), numbers.rend() );
      return numbers;
   }

   /// Reads the block unless it is being overwritten. Lines from `oldest` on, which a newer block had, are damage.
   void readBlock(
      std::uint64_t number, std::uint32_t slot, std::uint64_t & oldest, std::vector< Line > & lines ) {
      lines.clear();
      char bytes[blockBytes];
      BlockHead head;
      source_.read( positionOf( slot ), &head, sizeof head );
      __atomic_thread_fence( __ATOMIC_ACQUIRE );
      source_.read( positionOf( slot ), bytes, sizeof bytes );
      __atomic_thread_fence( __ATOMIC_ACQUIRE );
      if ( head.number != number || numberIn( slot ) != number )
         return;
      if ( head.used < sizeof head || head.used > blockBytes || head.used % 8 )
         return damaged( slot, 0, std::to_string( head.used ) + " bytes cannot be in use" );
      if ( head.firstSequence == 0 || head.firstSequence > oldest )
         return damaged( slot, 0, "line " + std::to_string( head.firstSequence ) + " cannot stand here" );
      readLines( slot, head.firstSequence, { bytes, head.used }, lines );
      if ( !lines.empty() && lines.back().sequence >= oldest ) {
         damaged( slot, 0, "its lines reach into the next block" );
         lines.clear();
      }
      oldest = std::min( oldest, head.firstSequence );
   }

   void readLines(
      std::uint32_t slot, std::uint64_t sequence, std::string_view block, std::vector< Line > & lines ) {
      for ( std::size_t at = sizeof( BlockHead ); at < block.size(); ++sequence ) {
         LineHead head = {};
         if ( block.size() - at >= sizeof head )
            std::memcpy( &head, block.data() + at, sizeof head );
         if ( head.bytes < sizeof head || head.bytes % 8 || head.bytes > block.size() - at )
            return damaged( slot, at, "a line of " + std::to_string( head.bytes ) + " bytes" );
         if ( head.sequence != static_cast< std::uint32_t >( sequence ) )
            return damaged( slot, at, "a line that is not number " + std::to_string( sequence ) );
         Line line;
         line.sequence = sequence;
         line.time = head.time;
         const std::string_view payload = block.substr( at + sizeof head, head.bytes - sizeof head );
         if ( readText( slot, at, head.site, payload, line ) )
            lines.push_back( std::move( line ) );
         at += head.bytes;
      }
   }

   bool
   readText( std::uint32_t slot, std::size_t at, std::uint16_t id, std::string_view payload, Line & line ) {
      if ( id == fullSite ) {
         if ( decodeFull( payload, line ) )
            return true;
         damaged( slot, at, "arguments that make no sense" );
         return false;
      }
      const SiteInfo * const info = site( id );
      if ( !info ) {
         damaged(
            slot, at,
            "call site " + std::to_string( id ) + ( whySites_.empty() ? " is unknown" : ": " + whySites_ ) );
         return false;
      }
      line.kind = info->kind;
      line.file = info->file;
      line.line = info->line;
      line.function = info->function;
      if ( formatText( *info, payload, line.text ) )
         return true;
      damaged( slot, at, "arguments that are not those of call site " + std::to_string( id ) );
      return false;
   }

   /// Null: not in the table. A site may have been entered since the table was read.
   const SiteInfo * site( std::uint16_t id ) {
      if ( id == 0 )
         return nullptr;
      if ( id > sites_.size() )
         readSites();
      return id <= sites_.size() ? &sites_[id - 1] : nullptr;
   }

   void readSites() {
      std::uint32_t used;
      source_.read( offsetof( FileHead, siteBytes ), &used, sizeof used );
      __atomic_thread_fence( __ATOMIC_ACQUIRE );
      if ( used == siteBytes_ )
         return;
      siteBytes_ = used;
      if ( used > siteTableBytes ) {
         whySites_ = "the site table has " + std::to_string( used ) + " bytes in use of " +
                     std::to_string( siteTableBytes );
         return;
      }
      std::string table( used, '\0' );
      source_.read( headBytes, table.data(), table.size() );
      sites_.clear();
      whySites_.clear();
      SiteInfo info;
      for ( std::string_view rest = table; !rest.empty(); sites_.push_back( info ) )
         if ( !decode( rest, info, whySites_ ) ) {
            whySites_ = "call site " + std::to_string( sites_.size() + 1 ) + " at byte " +
                        std::to_string( headBytes + table.size() - rest.size() ) + ": " + whySites_;
            return;
         }
   }

   const Source & source_;
   std::uint32_t blocks_;
   Contents contents_;
   std::vector< SiteInfo > sites_;
   std::string whySites_;
   std::uint32_t siteBytes_ = 0; ///< of the table when it was read
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
   return Pass( FileSource( path_, file_ ), blocks_ ).run( last, after );
}

Contents ownLines( std::size_t last, std::uint64_t after ) {
   if ( !ring() )
      return {};
   return Pass( MemorySource( ring().base() ), ring().head().blocks ).run( last, after );
}

} // namespace FastLog
