#include "Platform/FastLog/Capture.h"

#include "Platform/FastLog/State.h"

#include <algorithm>

namespace FastLog {

Capture::Capture() { captureIs( *this ); }

Capture::~Capture() { captureDel( *this ); }

unsigned Capture::count( std::string_view text ) const {
   return static_cast< unsigned >( std::count_if( lines_.begin(), lines_.end(), [&]( const Line & line ) {
      return line.text.find( text ) != std::string::npos;
   } ) );
}

} // namespace FastLog
