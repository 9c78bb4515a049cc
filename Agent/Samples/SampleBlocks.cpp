#include "Agent/Samples/SampleBlocks.h"

#include <algorithm>
#include <cstring>

namespace Agent {

namespace {

/// The remainders of the polynomial that storage formats use, by byte.
constexpr std::array< Vel::U32, 256 > remainders = [] {
   std::array< Vel::U32, 256 > result{};
   for ( Vel::U32 byte = 0; byte < result.size(); ++byte ) {
      Vel::U32 rest = byte;
      for ( int bit = 0; bit < 8; ++bit )
         rest = rest & 1 ? rest >> 1 ^ 0x82f63b78u : rest >> 1;
      result[byte] = rest;
   }
   return result;
}();

/// Tells a machine of another byte order, whose numbers these are not.
constexpr Vel::U32 byteOrder = 0x01020304;

} // namespace

Vel::U32 sampleChecksum( Vel::U32 seed, const void * bytes, std::size_t size ) {
   Vel::U32 rest = ~seed;
   for ( const auto * byte = static_cast< const unsigned char * >( bytes ); size > 0; --size, ++byte )
      rest = rest >> 8 ^ remainders[( rest ^ *byte ) & 0xff];
   return ~rest;
}

Sample SampleBlock::mean() const {
   double in = 0, out = 0;
   int known = 0;
   for ( const Sample & sample : samples )
      if ( sample.known() ) {
         in += static_cast< double >( sample.in );
         out += static_cast< double >( sample.out );
         ++known;
      }
   return known ? Sample{ static_cast< float >( in / known ), static_cast< float >( out / known ) }
                : Sample();
}

SampleLayout::SampleLayout( std::string_view interface ) {
   static const std::string layout{ Vel::text(
      "maintd samples 1\n", fineRing.blocks, " x ", fineRing.samplesPerBlock, " of ", fineRing.step, " s, ",
      minuteRing.blocks, " x ", minuteRing.samplesPerBlock, " of ", minuteRing.step, " s\n" ) };
   const std::string text = layout + std::string( interface );
   const std::size_t room = header_.size() - sizeof byteOrder;
   std::memcpy( header_.data(), text.data(), std::min( text.size(), room ) );
   std::memcpy( header_.data() + room, &byteOrder, sizeof byteOrder );
   seed_ = sampleChecksum( 0, header_.data(), header_.size() );
}

Vel::U32 SampleLayout::checkOf( const SampleBlock & block ) const {
   return sampleChecksum( seed_, &block.number, sizeof block - sizeof block.check );
}

bool SampleLayout::valid( const SampleRing & ring, std::size_t place, const SampleBlock & block ) const {
   return block.number % ring.blocks == place && block.check == checkOf( block );
}

} // namespace Agent
