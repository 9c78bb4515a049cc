#include "Platform/FastLog/Sites.h"

#include <charconv>

namespace FastLog {

namespace {

/// Bytes of a finished text that are kept when the call site is not in the table.
constexpr std::size_t maxFullText = 1024;

std::string_view treeRelative( std::string_view file ) {
   constexpr std::string_view ours = "Platform/FastLog/Sites.cpp", here = __FILE__;
   static_assert( here.ends_with( ours ) );
   constexpr std::string_view root = here.substr( 0, here.size() - ours.size() );
   if ( file.starts_with( root ) )
      file.remove_prefix( root.size() );
   return file;
}

unsigned digitValue( char c ) {
   return static_cast< unsigned >( c <= '9' ? c - '0' : ( c | 0x20 ) - 'a' + 10 );
}
bool isDigit( char c, bool hexadecimal ) {
   return ( c >= '0' && c <= ( hexadecimal ? '9' : '7' ) ) ||
          ( hexadecimal && ( c | 0x20 ) >= 'a' && ( c | 0x20 ) <= 'f' );
}

/// Appends what the escape at spelling[at], after the backslash, means; returns the position after it.
std::size_t appendEscape( std::string & out, std::string_view spelling, std::size_t at ) {
   constexpr std::string_view letters = "abefnrtv", meanings = "\a\b\x1b\f\n\r\t\v";
   const char c = spelling[at++];
   if ( const auto letter = letters.find( c ); letter != std::string_view::npos ) {
      out += meanings[letter];
   } else if ( c == 'x' || isDigit( c, false ) ) {
      const bool hexadecimal = c == 'x';
      const std::size_t end = hexadecimal ? spelling.size() : std::min( spelling.size(), at + 2 );
      unsigned value = hexadecimal ? 0 : digitValue( c );
      for ( ; at < end && isDigit( spelling[at], hexadecimal ); ++at )
         value = value * ( hexadecimal ? 16 : 8 ) + digitValue( spelling[at] );
      out += static_cast< char >( value );
   } else {
      out += c; // \\ \" \' \?
   }
   return at;
}

/// What one or more literals, as they are spelled, mean.
std::string literalText( std::string_view spelling ) {
   std::string out;
   bool inside = false;
   for ( std::size_t at = 0; at < spelling.size(); ) {
      const char c = spelling[at++];
      if ( c == '"' )
         inside = !inside;
      else if ( inside && c == '\\' )
         at = appendEscape( out, spelling, at );
      else if ( inside )
         out += c;
   }
   return out;
}

template < class T >
void put( std::string & out, T value ) {
   out.append( reinterpret_cast< const char * >( &value ), sizeof value );
}
void putText( std::string & out, std::string_view text ) {
   put( out, static_cast< std::uint32_t >( text.size() ) );
   out += text;
}

template < class T >
bool take( std::string_view & from, T & value ) {
   if ( from.size() < sizeof value )
      return false;
   std::memcpy( &value, from.data(), sizeof value );
   from.remove_prefix( sizeof value );
   return true;
}
bool takeText( std::string_view & from, std::string & text ) {
   std::uint32_t bytes;
   if ( !take( from, bytes ) || from.size() < bytes )
      return false;
   text = from.substr( 0, bytes );
   from.remove_prefix( bytes );
   return true;
}

template < class T >
void appendNumber( std::string & out, T value ) {
   char buffer[40];
   out.append( buffer, std::to_chars( buffer, buffer + sizeof buffer, value ).ptr );
}

template < class T >
bool formatNumber( std::string_view & from, std::string & out ) {
   T value;
   if ( !take( from, value ) )
      return false;
   appendNumber( out, value );
   return true;
}

bool formatBytes( std::string_view & from, std::string & out ) {
   std::uint16_t head;
   if ( !take( from, head ) || from.size() < ( head & ~textCut ) )
      return false;
   out += from.substr( 0, head & ~textCut );
   from.remove_prefix( head & ~textCut );
   if ( head & textCut )
      out += cutMark;
   return true;
}

bool formatPiece( const SiteInfo::Piece & piece, std::string_view & from, std::string & out ) {
   switch ( piece.type ) {
   case Type::literal:
      out += piece.literal;
      return true;
   case Type::signedInteger:
      return formatNumber< std::int64_t >( from, out );
   case Type::unsignedInteger:
      return formatNumber< std::uint64_t >( from, out );
   case Type::boolean: {
      std::uint8_t value;
      if ( !take( from, value ) || value > 1 )
         return false;
      out += value ? '1' : '0';
      return true;
   }
   case Type::real:
      return formatNumber< double >( from, out );
   case Type::text:
      return formatBytes( from, out );
   }
   return false;
}

/// Less than the padding of a line is left.
bool isPadding( std::string_view rest ) { return rest.size() < 8; }

bool decodeContent( std::string_view content, SiteInfo & info ) {
   std::uint8_t kind, pieces;
   std::uint32_t line;
   info = {};
   if (
      !take( content, kind ) || kind > static_cast< std::uint8_t >( Kind::profile ) ||
      !take( content, pieces ) || !take( content, line ) || !takeText( content, info.file ) ||
      !takeText( content, info.function ) )
      return false;
   info.kind = static_cast< Kind >( kind );
   info.line = line;
   for ( ; pieces; --pieces ) {
      std::uint8_t type;
      SiteInfo::Piece piece;
      if ( !take( content, type ) || type > static_cast< std::uint8_t >( Type::text ) )
         return false;
      piece.type = static_cast< Type >( type );
      if ( piece.type == Type::literal && !takeText( content, piece.literal ) )
         return false;
      info.pieces.push_back( std::move( piece ) );
   }
   return content.empty();
}

} // namespace

std::uint32_t checksum( std::string_view bytes ) {
   std::uint32_t sum = 2166136261u;
   for ( const char byte : bytes )
      sum = ( sum ^ static_cast< unsigned char >( byte ) ) * 16777619u;
   return sum;
}

SiteInfo siteInfo( const Site & site, std::initializer_list< Type > types ) {
   SiteInfo info;
   info.kind = site.kind;
   info.line = site.line;
   info.file = treeRelative( site.file );
   info.function = site.function;
   if ( site.literals == 0 ) {
      for ( const Type type : types )
         info.pieces.push_back( { type, {} } );
      return info;
   }
   auto type = types.begin();
   forEachArgument( site.call, [&]( Spelling spelling, std::string_view text ) {
      if ( spelling == Spelling::literal )
         info.pieces.push_back( { Type::literal, literalText( text ) } );
      else if ( spelling == Spelling::function )
         info.pieces.push_back( { Type::literal, site.function } );
      else
         info.pieces.push_back( { *type++, {} } );
   } );
   return info;
}

std::string encoded( const SiteInfo & info ) {
   std::string content;
   put( content, static_cast< std::uint8_t >( info.kind ) );
   put( content, static_cast< std::uint8_t >( info.pieces.size() ) );
   put( content, static_cast< std::uint32_t >( info.line ) );
   putText( content, info.file );
   putText( content, info.function );
   for ( const SiteInfo::Piece & piece : info.pieces ) {
      put( content, static_cast< std::uint8_t >( piece.type ) );
      if ( piece.type == Type::literal )
         putText( content, piece.literal );
   }
   std::string entry;
   put( entry, SiteHead{ static_cast< std::uint32_t >( content.size() ), checksum( content ) } );
   entry += content;
   entry.resize( ( entry.size() + 7 ) & ~std::size_t( 7 ) );
   return entry;
}

bool decode( std::string_view & table, SiteInfo & info, std::string & why ) {
   std::string_view rest = table;
   SiteHead head;
   if ( !take( rest, head ) || rest.size() < head.bytes ) {
      why = "its entry is longer than the table";
      return false;
   }
   const std::string_view content = rest.substr( 0, head.bytes );
   if ( checksum( content ) != head.checksum ) {
      why = "its entry has a wrong checksum";
      return false;
   }
   if ( !decodeContent( content, info ) ) {
      why = "its entry makes no sense";
      return false;
   }
   table.remove_prefix( std::min( table.size(), ( sizeof head + head.bytes + 7 ) & ~std::size_t( 7 ) ) );
   return true;
}

bool formatText( const SiteInfo & info, std::string_view payload, std::string & text ) {
   text.clear();
   for ( const SiteInfo::Piece & piece : info.pieces )
      if ( !formatPiece( piece, payload, text ) )
         return false;
   return isPadding( payload );
}

std::string encodedFull( const SiteInfo & info, std::string_view text ) {
   std::string out;
   const auto bytes = [&]( std::string_view what, std::size_t limit ) {
      const bool cut = what.size() > limit;
      const auto kept = static_cast< std::uint16_t >( cut ? limit : what.size() );
      put( out, static_cast< std::uint16_t >( cut ? kept | textCut : kept ) );
      out += what.substr( 0, kept );
   };
   put( out, static_cast< std::uint8_t >( info.kind ) );
   put( out, static_cast< std::uint32_t >( info.line ) );
   bytes( info.file, maxText );
   bytes( info.function, maxText );
   bytes( text, maxFullText );
   return out;
}

bool decodeFull( std::string_view payload, Line & line ) {
   std::uint8_t kind;
   std::uint32_t number;
   line.file.clear();
   line.function.clear();
   line.text.clear();
   if (
      !take( payload, kind ) || kind > static_cast< std::uint8_t >( Kind::profile ) ||
      !take( payload, number ) || !formatBytes( payload, line.file ) ||
      !formatBytes( payload, line.function ) || !formatBytes( payload, line.text ) )
      return false;
   line.kind = static_cast< Kind >( kind );
   line.line = number;
   return isPadding( payload );
}

} // namespace FastLog
