#include "Platform/Vel/Text.h"

#include <charconv>

namespace Vel {

namespace {
template < class T >
void appendChars( String & out, T value ) {
   char buffer[40];
   const auto end = std::to_chars( buffer, buffer + sizeof buffer, value ).ptr;
   out.append( buffer, end );
}
} // namespace

void appendText( String & out, std::string_view text ) { out.append( text ); }
void appendText( String & out, double value ) { appendChars( out, value ); }
void appendNumber( String & out, long long value ) { appendChars( out, value ); }
void appendNumber( String & out, unsigned long long value ) { appendChars( out, value ); }

} // namespace Vel
