#pragma once

#include "Platform/Vel/Text.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string_view>

/// Purpose: how the samples of one interface lie in its file: a header, then two rings of blocks, one of samples of 5
/// seconds and one of minutes.
///
/// A block is what is written at a time. It proves itself: the checksum covers the block, its number and whose file it is
/// of what layout, so neither a block of which only a part was written, nor one that was left from an earlier lap, nor
/// another file's is taken for one of these. The header is for people and programs that find the file; no block needs it.
/// Blocks do not cross the boundaries at which disks and the page cache divide a write.
namespace Agent {

/// What an interface has carried in one step, bits per second. NaN: it is not known, in both directions.
struct Sample {
   float in = std::numeric_limits< float >::quiet_NaN();
   float out = std::numeric_limits< float >::quiet_NaN();

   bool known() const { return std::isfinite( in ) && std::isfinite( out ); }
};

/// As it is on disk, in the byte order of the machine.
struct SampleBlock {
   static constexpr unsigned capacity = 15;
   Vel::U32 check = 0;
   Vel::U32 number = 0; ///< of all blocks since the beginning of time
   std::array< Sample, capacity > samples{};

   /// The mean of those that are known.
   Sample mean() const;
};
static_assert( sizeof( SampleBlock ) == 128 );

/// Of bytes, behind others whose checksum is `seed`; 0 for none.
Vel::U32 sampleChecksum( Vel::U32 seed, const void * bytes, std::size_t size );

/// Steps are numbered since the beginning of time, `step` seconds each.
struct SampleRing {
   unsigned step;
   unsigned samplesPerBlock;
   unsigned blocks;
   std::size_t offset; ///< in the file

   Vel::U32 blockOf( Vel::U64 sample ) const { return static_cast< Vel::U32 >( sample / samplesPerBlock ); }
};

/// The block that is being filled has replaced the oldest one, hence one more than the range needs. A block of the fine
/// ring is a minute, so that it has all that its minute needs.
inline constexpr SampleRing fineRing{ 5, 12, 61, sizeof( SampleBlock ) };
inline constexpr SampleRing minuteRing{ 60, 15, 673, 62 * sizeof( SampleBlock ) };
inline constexpr std::size_t sampleFileSize = ( 62 + 673 ) * sizeof( SampleBlock );

/// The layout of one interface's file.
class SampleLayout {
 public:
   using Header = std::array< char, sizeof( SampleBlock ) >;

   explicit SampleLayout( std::string_view interface );

   const Header & header() const { return header_; }
   /// Whether a block that was read from this place of the ring, counted in blocks, was written there as it is.
   bool valid( const SampleRing & ring, std::size_t place, const SampleBlock & block ) const;
   /// Sets the checksum, as the last thing before it is written.
   void seal( SampleBlock & block ) const { block.check = checkOf( block ); }

 private:
   Vel::U32 checkOf( const SampleBlock & block ) const;
   Header header_{};
   Vel::U32 seed_ = 0; ///< of all checksums: that of the header
};

} // namespace Agent
