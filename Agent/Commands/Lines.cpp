#include "Agent/Commands/Lines.h"

#include "Api/Utf8.h"

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

/// Control characters, of one byte and of two (0x80 to 0x9f).
bool isControl( std::string_view character ) {
   const auto first = static_cast< unsigned char >( character[0] );
   return first < 0x20 || first == 0x7f ||
          ( first == 0xc2 && static_cast< unsigned char >( character[1] ) < 0xa0 );
}

} // namespace

void Lines::add( std::string_view bytes, const Taker & taker ) {
   while ( !bytes.empty() ) {
      const std::size_t feed = bytes.find( '\n' );
      const std::string_view part = bytes.substr( 0, feed );
      if ( !any_ && !part.empty() )
         line_.reserve( part.size() );
      any_ = true;
      const char first = !line_.empty() ? line_[0] : part.empty() ? '\0' : part[0];
      const std::size_t room = ( objects_ && first == '{' ? mostOfAnObject : mostOfText ) - line_.size();
      cut_ = cut_ || part.size() > room;
      line_.append( part.substr( 0, room ) );
      if ( feed == bytes.npos )
         return;
      bytes.remove_prefix( feed + 1 );
      end( taker );
   }
}

void Lines::end( const Taker & taker ) {
   if ( !any_ )
      return;
   any_ = false;
   const std::string line = std::exchange( line_, {} );
   taker( line, std::exchange( cut_, false ) );
}

std::string printableLine( std::string_view bytes ) {
   constexpr std::string_view digits = "0123456789abcdef";
   std::string result;
   while ( !bytes.empty() ) {
      const std::size_t size = Api::characterSize( bytes );
      const std::string_view character = bytes.substr( 0, std::max< std::size_t >( size, 1 ) );
      if ( character == "\t" )
         result += ' ';
      else if ( size != 0 && !isControl( character ) )
         result += character;
      else
         for ( const char c : character ) {
            const auto byte = static_cast< unsigned char >( c );
            result += { '\\', 'x', digits[byte >> 4], digits[byte & 15] };
         }
      bytes.remove_prefix( character.size() );
   }
   return result;
}

std::string shortened( const std::string & text ) {
   constexpr std::size_t mostOfReason = 300;
   return text.size() <= mostOfReason ? text : std::string( Api::beginning( text, mostOfReason ) ) + "...";
}

} // namespace Agent
