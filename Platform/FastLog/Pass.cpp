#include "Platform/FastLog/Pass.h"

#include "Platform/FastLog/Sites.h"

#include <algorithm>

namespace FastLog {

namespace {

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
      if ( numberIn( slot ) != number )
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

} // namespace

Contents readRing( const Source & source, std::uint32_t blocks, std::size_t last, std::uint64_t after ) {
   return Pass( source, blocks ).run( last, after );
}

} // namespace FastLog
