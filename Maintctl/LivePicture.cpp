#include "Maintctl/LivePicture.h"

#include <algorithm>
#include <utility>

namespace Maintctl {

namespace {

constexpr double betweenGlances = 0.25; ///< seconds after which a new size is noticed

} // namespace

void LivePicture::show( Picture picture ) {
   picture_ = std::move( picture );
   draw();
}

void LivePicture::refresh() {
   if ( picture_ && screen_.needsDrawing() )
      draw();
}

void LivePicture::draw() {
   screen_.draw( Maintctl::draw( *picture_, screen_.room(), display_.abilities().utf8 ) );
}

bool LivePicture::rest( Pace & pace, double seconds ) {
   for ( double left = seconds; left > 0; left -= betweenGlances ) {
      if ( !pace.sleep( std::min( left, betweenGlances ) ) )
         return false;
      refresh();
   }
   return true;
}

} // namespace Maintctl
