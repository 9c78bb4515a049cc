#pragma once

#include "Platform/Vel/Text.h"

#include <algorithm>
#include <vector>

namespace DataPlane::Linux {

/// So many of what may be thousands are told to the operator.
constexpr std::size_t few = 4;

/// For example "this; that; and 35 more". `texts` has at least the first few of `all`.
inline Vel::String firstFew( const std::vector< Vel::String > & texts, std::size_t all ) {
   Vel::String result;
   for ( std::size_t i = 0; i < std::min( few, texts.size() ); ++i )
      result += ( result.empty() ? "" : "; " ) + texts[i];
   if ( all > few )
      result += Vel::text( "; and ", all - few, " more" );
   return result;
}

} // namespace DataPlane::Linux
