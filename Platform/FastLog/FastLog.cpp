#include "Platform/FastLog/FastLog.h"

#include "Platform/FastLog/Capture.h"
#include "Platform/FastLog/Sites.h"
#include "Platform/FastLog/State.h"

#include <algorithm>
#include <unordered_map>

namespace FastLog {

namespace {

/// Of a ring that nobody asked for. Pages are taken as they are written.
constexpr std::size_t defaultBytes = 1024 * 1024;

double ownTime = 0;

struct State {
   Ring ring;
   std::uint64_t blockNumber = 0;                        ///< of the block that is being written
   std::unordered_map< std::string, std::uint32_t > ids; ///< by entry
   std::vector< SiteInfo > sites;                        ///< id 1 first
   std::vector< Capture * > captures;
};

/// Never destroyed: whatever ends after us may still log.
State & state() {
   static State * const instance = new State;
   return *instance;
}

detail::Cursor & to = detail::cursor;

/// Where the block ends, or where it stands if the next line has to take the long way.
void setLimit() {
   to.limit =
      state().captures.empty() && to.block ? reinterpret_cast< char * >( to.block ) + blockBytes : to.next;
}

void startBlock() {
   State & s = state();
   BlockHead * const block = s.ring.block( ++s.blockNumber );
   __atomic_store_n( &block->number, 0, __ATOMIC_RELAXED );
   __atomic_thread_fence( __ATOMIC_RELEASE );
   block->firstSequence = to.sequence;
   block->used = sizeof( BlockHead );
   __atomic_store_n( &block->number, s.blockNumber, __ATOMIC_RELEASE );
   to.block = block;
   to.next = reinterpret_cast< char * >( block ) + sizeof( BlockHead );
}

/// 0: there is no room for it.
std::uint32_t idOf( const SiteInfo & info ) {
   State & s = state();
   std::string entry = encoded( info );
   if ( const auto it = s.ids.find( entry ); it != s.ids.end() )
      return it->second;
   FileHead & head = s.ring.head();
   if ( entry.size() > siteTableBytes - head.siteBytes || s.sites.size() + 1 >= fullSite )
      return 0;
   std::memcpy( s.ring.siteTable() + head.siteBytes, entry.data(), entry.size() );
   __atomic_store_n(
      &head.siteBytes, head.siteBytes + static_cast< std::uint32_t >( entry.size() ), __ATOMIC_RELEASE );
   s.sites.push_back( info );
   const auto id = static_cast< std::uint32_t >( s.sites.size() );
   s.ids.emplace( std::move( entry ), id );
   return id;
}

void writeLine( std::uint16_t site, std::string_view payload ) {
   const std::size_t bytes = ( sizeof( LineHead ) + payload.size() + 7 ) & ~std::size_t( 7 );
   if (
      !to.block ||
      bytes > static_cast< std::size_t >( reinterpret_cast< char * >( to.block ) + blockBytes - to.next ) )
      startBlock();
   const LineHead head = {
      static_cast< std::uint16_t >( bytes ), site, static_cast< std::uint32_t >( to.sequence ), *to.time };
   std::memcpy( to.next, &head, sizeof head );
   std::memcpy( to.next + sizeof head, payload.data(), payload.size() );
   to.next += bytes;
   ++to.sequence;
   const auto used = static_cast< std::uint32_t >( to.next - reinterpret_cast< char * >( to.block ) );
   __atomic_store_n( &to.block->used, used, __ATOMIC_RELEASE );
}

/// The newest lines that fit go along, and all sites: their ids are in use.
void ringIs( Ring ring ) {
   State & s = state();
   if ( s.ring ) {
      std::memcpy( ring.siteTable(), s.ring.siteTable(), s.ring.head().siteBytes );
      ring.head().siteBytes = s.ring.head().siteBytes;
      const std::uint64_t kept =
         std::min< std::uint64_t >( { s.blockNumber, s.ring.head().blocks, ring.head().blocks } );
      for ( std::uint64_t number = s.blockNumber - kept + 1; number <= s.blockNumber; ++number )
         std::memcpy( ring.block( number ), s.ring.block( number ), blockBytes );
   }
   if ( to.block ) {
      const auto offset = to.next - reinterpret_cast< char * >( to.block );
      to.block = ring.block( s.blockNumber );
      to.next = reinterpret_cast< char * >( to.block ) + offset;
   }
   s.ring = std::move( ring );
   setLimit();
}

} // namespace

constinit detail::Cursor detail::cursor = { nullptr, nullptr, nullptr, &ownTime, 1 };

void detail::append(
   Site & site, std::initializer_list< Type > types, const char * payload, std::size_t bytes ) noexcept {
   State & s = state();
   if ( !s.ring )
      s.ring = Ring::inMemory( defaultBytes );
   Line line;
   const std::string_view arguments( payload, bytes );
   if ( site.id == 0 )
      site.id = idOf( siteInfo( site, types ) );
   line.sequence = to.sequence;
   if ( site.id ) {
      writeLine( static_cast< std::uint16_t >( site.id ), arguments );
   } else {
      const SiteInfo info = siteInfo( site, types );
      formatText( info, arguments, line.text );
      const std::string full = encodedFull( info, line.text );
      writeLine( fullSite, full );
      decodeFull( full, line );
   }
   if ( !s.captures.empty() ) {
      line.time = *to.time;
      if ( site.id ) {
         const SiteInfo & info = s.sites[site.id - 1];
         line.kind = info.kind;
         line.file = info.file;
         line.line = info.line;
         line.function = info.function;
         formatText( info, arguments, line.text );
      }
      for ( Capture * capture : s.captures )
         capture->lineIs( line );
   }
   setLimit();
}

void timeFrom( const double * source ) { to.time = source ? source : &ownTime; }

void timeIs( double seconds ) {
   ownTime = seconds;
   to.time = &ownTime;
}

void fileIs( const std::string & path, std::size_t bytes ) { ringIs( Ring::inFile( path, bytes ) ); }

void memoryIs( std::size_t bytes ) { ringIs( Ring::inMemory( bytes ) ); }

void captureIs( Capture & capture ) {
   state().captures.push_back( &capture );
   setLimit();
}

void captureDel( Capture & capture ) {
   std::erase( state().captures, &capture );
   setLimit();
}

const Ring & ring() { return state().ring; }

} // namespace FastLog
