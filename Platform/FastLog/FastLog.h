#pragma once

#include "Platform/FastLog/Arg.h"
#include "Platform/FastLog/Spelling.h"

#include <initializer_list>
#include <stdexcept>
#include <tuple>
#include <utility>

/// Purpose: the fast log. A ring that keeps the last events of the process, cheap enough for every decision, and that
/// survives the process when it is kept in a file.
///
///     FASTLOG( "maint-down for intf ", intf );
///     FASTLOG_PROFILE( "DrainWatch::IntfStatusSm codef backlog processing" );
///
/// The text of a line is its pieces one after another. Booleans are 0 or 1, numbers decimal, floating values the
/// shortest text that gives the same value back: what a trace with the same pieces shows.
///
/// Order: the first line of a call site enters the site (its literals, types of arguments, file, line, function) into
/// the ring's own table and gives it an id; after that a line is a copy of its arguments into the ring. Text is made
/// when somebody reads: Reader.h, Capture.h.
///
/// Invariants:
/// 1. A line holds copies only, no pointer. What a plug-in has logged can be read after it is unloaded; loaded again,
///    the same call gets the same id, because sites are found by their content.
/// 2. Lines have sequence numbers without gaps, from 1. The oldest go first, a block of them at a time.
/// 3. A text of more than maxText bytes is cut and marked. Nothing else is ever shortened: a call that could be too
///    long for a line does not compile.
/// 4. If the site table is full, a line of a new call site is kept as finished text of up to 1024 bytes; slower, but
///    kept.
///
/// One thread writes: the event loop's. A forked child must not go on to write, and a signal handler must not write.
namespace FastLog {

/// A refusal; the text names what and where.
class Error : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

/// The time, in seconds, of the lines to come. Read from where it is kept, so the owner of the time need not know of
/// the log: `source` must stay good until another one is set. Null: the last timeIs().
void timeFrom( const double * source );
/// The same, for whoever has no such place: call it once a turn. Ends the last timeFrom().
void timeIs( double seconds );

/// Keeps the ring in a file from now on; the lines so far move there. The ring survives the end of the process
/// in any way, also SIGKILL, and can be read by others at any time.
///
/// A place in memory (/run) is enough to outlive the process and never waits for a disk; what stands on a disk also
/// outlives a restart of the machine, as far as it has been written back by then.
///
/// `bytes`, for lines, are rounded up to 4 KiB; 8 KiB to 1 GiB. The file is made in full at once, so that a full disk
/// is refused here and not met later. The ring of the run before is kept as PATH.1, its predecessors as PATH.2 and
/// PATH.3, and never written again: it is evidence, its call sites may be those of another build, and it may be
/// damaged. Rings without a line are not kept.
///
/// Throws Error, and the ring stays where it was, if the file cannot be made or another process has it open for
/// writing. Nobody may shorten the file while it is in use.
void fileIs( const std::string & path, std::size_t bytes );
/// Keeps the ring in memory, as at the beginning; the newest lines move there. Throws Error like fileIs().
void memoryIs( std::size_t bytes );
/// Rings of this many runs before are kept.
inline constexpr unsigned keptRuns = 3;
/// Where: 1 is the run before. PATH.1, ...
std::string keptPath( const std::string & path, unsigned run );

/// One call in the code. Made by the macros only.
struct Site {
   Kind kind;
   unsigned line;
   const char * file;
   const char * function;
   const char * call;      ///< its arguments as they are spelled
   std::uint64_t literals; ///< see literalArguments()
   std::uint32_t id = 0;   ///< 0: not in the table (yet)
};

namespace detail {

/// Where the next line goes. `limit - next` is 0 when a line has to take the long way: nothing is set up, or somebody
/// captures.
struct Cursor {
   char * next;
   char * limit;
   BlockHead * block;
   const double * time;
   std::uint64_t sequence; ///< of the next line
};
extern Cursor cursor;

/// The long way: enters the site, starts a block, tells captures.
[[gnu::cold]] void
append( Site & site, std::initializer_list< Type > types, const char * payload, std::size_t bytes ) noexcept;

template < class... Raw >
[[gnu::noinline, gnu::cold]] void putSlowly( Site & site, Raw... raw ) noexcept {
   char payload[( maxPacked< Raw > + ... + 1 )];
   payload[0] = 0; // the only byte of a line without arguments
   char * end = payload;
   ( ( end = pack( end, raw ) ), ... );
   append( site, { typeOf< Raw >... }, payload, static_cast< std::size_t >( end - payload ) );
}

/// Not inline: a call site is then a few moves and a call, and all sites with the same types share one function.
template < class... Raw >
[[gnu::noinline]] void put( Site & site, Raw... raw ) noexcept {
   static_assert( ( maxPacked< Raw > + ... + 0 ) <= maxPayload, "too many arguments for one line" );
   Cursor & to = cursor;
   const std::size_t bytes = ( sizeof( LineHead ) + ( packedBytes( raw ) + ... + 7 ) ) & ~std::size_t( 7 );
   if ( bytes > static_cast< std::size_t >( to.limit - to.next ) || site.id == 0 ) [[unlikely]]
      return putSlowly( site, raw... );
   const LineHead head = {
      static_cast< std::uint16_t >( bytes ), static_cast< std::uint16_t >( site.id ),
      static_cast< std::uint32_t >( to.sequence ), *to.time };
   char * end = to.next;
   std::memcpy( end, &head, sizeof head );
   end += sizeof head;
   ( ( end = pack( end, raw ) ), ... );
   to.next += bytes;
   ++to.sequence;
   // The line is whole; from here on others see it.
   const auto used = static_cast< std::uint32_t >( to.next - reinterpret_cast< char * >( to.block ) );
   __atomic_store_n( &to.block->used, used, __ATOMIC_RELEASE );
}

/// How many arguments the compiler sees; never called.
template < class... Args >
std::integral_constant< std::size_t, sizeof...( Args ) > argumentsOf( const Args &... );

constexpr std::size_t valueIndex( std::uint64_t literals, std::size_t nth ) {
   std::size_t index = 0;
   for ( ;; ++index )
      if ( !( literals >> index & 1 ) && nth-- == 0 )
         return index;
}

template < std::uint64_t literals, std::size_t index >
constexpr bool literalsAreArrays() {
   return true;
}
template < std::uint64_t literals, std::size_t index, class First, class... Rest >
constexpr bool literalsAreArrays() {
   return (
      !( literals >> index & 1 ) ||
      std::is_array_v< First >)&&literalsAreArrays< literals, index + 1, Rest... >();
}

template < std::uint64_t literals, class... Args, std::size_t... nth >
[[gnu::always_inline]] inline void
write( Site & site, const std::tuple< const Args &... > & args, std::index_sequence< nth... > ) {
   put(
      site, rawOf( Arg< std::tuple_element_t< valueIndex( literals, nth ), std::tuple< Args... > > >::of(
               std::get< valueIndex( literals, nth ) >( args ) ) )... );
}

template < std::uint64_t literals, class... Args >
[[gnu::always_inline]] inline void write( Site & site, const Args &... args ) {
   static_assert( sizeof...( Args ) <= 64, "a line has at most 64 pieces" );
   static_assert( literalsAreArrays< literals, 0, Args... >() );
   write< literals, Args... >(
      site, std::tuple< const Args &... >( args... ),
      std::make_index_sequence<
         sizeof...( Args ) - static_cast< unsigned >( __builtin_popcountll( literals ) ) >() );
}

} // namespace detail
} // namespace FastLog

/// FASTLOG( pieces... ): one line. String literals and __func__ cost nothing; everything else is copied, see Arg.h.
#define FASTLOG( ... ) FASTLOG_SITE_( ::FastLog::Kind::event, #__VA_ARGS__, __VA_ARGS__ )

/// FASTLOG_PROFILE( pieces... ): a profiling point, a line that is marked as one.
#define FASTLOG_PROFILE( ... ) FASTLOG_SITE_( ::FastLog::Kind::profile, #__VA_ARGS__, __VA_ARGS__ )

#define FASTLOG_SITE_( kind, call, ... )                                                                     \
   do {                                                                                                      \
      constexpr auto fastLogLiterals_ = ::FastLog::literalArguments(                                         \
         call, decltype( ::FastLog::detail::argumentsOf( __VA_ARGS__ ) )::value );                           \
      static constinit ::FastLog::Site fastLogSite_ = { kind,     __LINE__, __FILE__,                        \
                                                        __func__, call,     fastLogLiterals_ };              \
      ::FastLog::detail::write< fastLogLiterals_ >( fastLogSite_, __VA_ARGS__ );                             \
   } while ( false )
