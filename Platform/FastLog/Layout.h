#pragma once

#include <cstddef>
#include <cstdint>

/// Purpose: where what stands in a ring. The same bytes in memory and in a file, in the byte order of the machine.
///
///     FileHead     headBytes    written once; siteBytes grows
///     site table   siteTableBytes    one entry a call site, in the order of their ids; never rewritten
///     block 0      blockBytes   BlockHead, then lines, each a LineHead and its arguments
///     block 1 ...
///
/// Invariants:
/// 1. Block number n (counted from 1) stands in slot n modulo the number of blocks. A block whose number is 0 is
///    empty or being started.
/// 2. Nothing before `used` of a block changes as long as its number does not. So whoever reads the number, `used`,
///    the bytes before it and the number once more, and finds the same number, has read whole lines.
/// 3. The entry of a call site is complete before the first line that names it is.
/// 4. A line never crosses the end of a block.
namespace FastLog {

inline constexpr char magic[8] = { 'f', 'a', 's', 't', 'l', 'o', 'g', '\n' };
inline constexpr std::uint32_t version = 1;
inline constexpr std::uint32_t byteOrder = 0x01020304;
inline constexpr std::uint32_t headBytes = 4096;
inline constexpr std::uint32_t siteTableBytes = 128 * 1024;
inline constexpr std::uint32_t blockBytes = 4096;
inline constexpr std::uint32_t maxBlocks = 256 * 1024;

struct FileHead {
   char magic[8];
   std::uint32_t version;
   std::uint32_t byteOrder;
   std::uint32_t headBytes;
   std::uint32_t siteTableBytes;
   std::uint32_t blockBytes;
   std::uint32_t blocks;
   std::uint32_t pid;      ///< of the writer
   std::uint32_t checksum; ///< of all before it
   std::uint32_t reserved[6];
   std::uint32_t siteBytes; ///< of the site table that are in use
};
static_assert( sizeof( FileHead ) == 68 );

/// In the site table: an entry begins at a multiple of 8. What follows is described in Sites.h.
struct SiteHead {
   std::uint32_t bytes;    ///< of what follows
   std::uint32_t checksum; ///< of what follows
};

struct BlockHead {
   std::uint64_t number;
   std::uint64_t firstSequence; ///< of its first line
   std::uint32_t used; ///< bytes from the beginning of this head to the end of the last complete line
   std::uint32_t reserved[3];
};
static_assert( sizeof( BlockHead ) == 32 );

struct LineHead {
   std::uint16_t bytes;    ///< with this head and its arguments; a multiple of 8
   std::uint16_t site;     ///< id of its call site, or fullSite
   std::uint32_t sequence; ///< the lower 32 bits
   double time;
};
static_assert( sizeof( LineHead ) == 16 );

/// Site of the lines whose own call site found no room in the table. Their arguments: kind, file, line, function,
/// text.
inline constexpr std::uint16_t fullSite = 0xffff;

/// How an argument stands in a line and in the description of a call site. The ordinals are part of the format.
enum class Type : std::uint8_t {
   literal = 0,         ///< takes no room in a line; its text is in the site's description
   signedInteger = 1,   ///< 8 bytes
   unsignedInteger = 2, ///< 8 bytes
   boolean = 3,         ///< 1 byte
   real = 4,            ///< a double
   text = 5             ///< 2 bytes: number of bytes, and textCut if there had been more; then the bytes
};
inline constexpr std::uint16_t textCut = 0x8000;

/// Bytes that one text keeps; more are cut off.
inline constexpr std::size_t maxText = 255;
/// Bytes that all arguments of a line may have.
inline constexpr std::size_t maxPayload = blockBytes - sizeof( BlockHead ) - sizeof( LineHead );

/// What kind of line a call site writes.
enum class Kind : std::uint8_t {
   event = 0,
   profile = 1 ///< a profiling point: that something that takes time begins
};

} // namespace FastLog
