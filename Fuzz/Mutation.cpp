#include "Fuzz/Mutation.h"

#include "Fuzz/Values.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate( std::uint8_t * data, std::size_t size, std::size_t most );

namespace Fuzz {

namespace {

struct Range {
   std::size_t begin, end;
   std::size_t size() const { return end - begin; }
};

std::string_view of( std::string_view text, const Range & range ) {
   return text.substr( range.begin, range.size() );
}

/// A colon ends a key where YAML and JSON have it do so; it may be in an address, a time or a URL.
bool isColon( std::string_view text, std::size_t at ) {
   if ( text[at] != ':' )
      return false;
   const char next = at + 1 < text.size() ? text[at + 1] : '\n';
   return ( at > 0 && text[at - 1] == '"' ) ||
          std::string_view( " \n\"{[" ).find( next ) != std::string_view::npos;
}

std::vector< Range > wordsOf( std::string_view text, const TextForm & form ) {
   std::vector< Range > words;
   Range word{ 0, 0 };
   const auto add = [&]( std::size_t end ) {
      word.end = end;
      while ( word.begin < word.end && text[word.begin] == ' ' )
         ++word.begin;
      if ( form.nested && of( text, word ).starts_with( "- " ) )
         word.begin += 2;
      while ( word.begin < word.end && text[word.end - 1] == ' ' )
         --word.end;
      // An empty text is a word too.
      const bool quotes =
         word.begin > 0 && end < text.size() && text[word.begin - 1] == '"' && text[end] == '"';
      if ( word.size() || quotes )
         words.push_back( word );
      word.begin = end + 1;
   };
   for ( std::size_t at = 0; at < text.size(); ++at )
      if ( form.between.find( text[at] ) != std::string_view::npos || ( form.nested && isColon( text, at ) ) )
         add( at );
   if ( word.begin <= text.size() )
      add( text.size() );
   return words;
}

/// Something that can be left out, come twice or be somewhere else: a line with all that is below it, with its end; or
/// what is between commas in brackets.
struct Part : Range {
   bool isLine;
};

std::size_t indentOf( std::string_view line ) {
   return std::min( line.find_first_not_of( ' ' ), line.size() );
}

void addLines( std::string_view text, std::vector< Part > & parts ) {
   std::vector< Range > lines;
   for ( std::size_t begin = 0; begin < text.size(); ) {
      const std::size_t end = std::min( text.find( '\n', begin ), text.size() - 1 ) + 1;
      lines.push_back( { begin, end } );
      begin = end;
   }
   for ( std::size_t first = 0; first < lines.size(); ++first ) {
      std::size_t last = first;
      const std::size_t indent = indentOf( of( text, lines[first] ) );
      while ( last + 1 < lines.size() && indentOf( of( text, lines[last + 1] ) ) > indent )
         ++last;
      parts.push_back( { { lines[first].begin, lines[last].end }, true } );
   }
}

void addElements( std::string_view text, std::vector< Part > & parts ) {
   std::vector< std::size_t > begins;
   const auto end = [&]( std::size_t at ) {
      if ( !begins.empty() && at > begins.back() )
         parts.push_back( { { begins.back(), at }, false } );
   };
   for ( std::size_t at = 0; at < text.size(); ++at )
      switch ( text[at] ) {
      case '"':
         do
            at += at + 1 < text.size() && text[at] == '\\' ? 2 : 1;
         while ( at < text.size() && text[at] != '"' );
         break;
      case '{':
      case '[':
         begins.push_back( at + 1 );
         break;
      case ',':
         end( at );
         if ( !begins.empty() )
            begins.back() = at + 1;
         break;
      case '}':
      case ']':
         end( at );
         if ( !begins.empty() )
            begins.pop_back();
         break;
      }
}

std::vector< Part > partsOf( std::string_view text ) {
   std::vector< Part > parts;
   if ( text.find( '\n' ) != text.npos )
      addLines( text, parts );
   addElements( text, parts );
   return parts;
}

std::string numbered( std::string part, std::size_t number ) {
   const std::vector< Range > words = wordsOf( part, yaml );
   if ( !words.empty() )
      part.insert( words.front().end, std::to_string( number ) );
   return part;
}

/// As a line is where another one is.
std::string indented( std::string_view part, std::size_t before, std::size_t now ) {
   std::string result;
   for ( std::size_t begin = 0; begin < part.size(); ) {
      const std::size_t end = std::min( part.find( '\n', begin ), part.size() - 1 ) + 1;
      const std::string_view line = part.substr( begin, end - begin );
      result.append( now, ' ' ).append( line.substr( std::min( indentOf( line ), before ) ) );
      begin = end;
   }
   return result;
}

constexpr std::size_t edges[] = { 1,  2,  3,  4,   7,   8,   15,  16,  17,  31,   32,   33,
                                  63, 64, 65, 127, 128, 129, 255, 256, 257, 1000, 1024, 2001 };

// ---- words

/// A number in it, with the rest as it is.
void changeDigits( std::string & word, Dice & dice ) {
   std::vector< Range > numbers;
   for ( std::size_t at = 0; at < word.size(); ++at )
      if ( isDigit( word[at] ) ) {
         if ( at == 0 || !isDigit( word[at - 1] ) )
            numbers.push_back( { at, at } );
         numbers.back().end = at + 1;
      }
   if ( numbers.empty() ) {
      word = value( dice );
      return;
   }
   const Range range = dice.oneOf( numbers );
   std::string digits = word.substr( range.begin, range.size() );
   if ( dice.oneIn( 3 ) )
      digits = digits.back() == '9' ? digits + "0"
                                    : digits.substr( 0, digits.size() - 1 ) + char( digits.back() + 1 );
   else if ( dice.oneIn( 3 ) )
      for ( char & digit : digits )
         digit = static_cast< char >( '0' + dice.below( 10 ) );
   else
      digits = number( dice );
   word.replace( range.begin, range.size(), digits );
}

void stretch( std::string & word, Dice & dice ) {
   const std::size_t size = dice.oneOf( edges );
   if ( word.size() > size )
      word.resize( size );
   else
      word.insert(
         dice.below( word.size() + 1 ), size - word.size(), word.empty() ? 'a' : dice.oneOf( word ) );
}

void changeCharacter( std::string & word, Dice & dice ) {
   static constexpr std::string_view strange =
      "= / @ # . - _ + : ; % %20 %00 \\u0000 \\u0001 \\n \\t \\\\ \x7f "
      "\xc3\xa9 \xff \xf0\x9f\x8c\x8d 0 a Z";
   if ( !word.empty() && dice.oneIn( 3 ) )
      word.erase( dice.below( word.size() ), 1 + dice.below( 2 ) );
   else
      word.insert( dice.below( word.size() + 1 ), dice.oneIn( 20 ) ? " " : dice.wordOf( strange ) );
}

/// In quotes where it needs them; numbers may be with them and without.
void fit( std::string & fresh, Range & word, std::string_view text, Dice & dice ) {
   const bool quotes =
      word.begin > 0 && text[word.begin - 1] == '"' && text.substr( word.end ).starts_with( '"' );
   const bool isKey = quotes && text.substr( word.end ).starts_with( "\":" );
   const bool isBare = !fresh.empty() && nlohmann::json::accept( fresh );
   if ( !quotes && !isBare )
      fresh = '"' + fresh + '"';
   else if ( quotes && isBare && !isKey && dice.oneIn( 2 ) )
      word = { word.begin - 1, word.end + 1 };
}

// ---- parts

/// So that a copy is none: names in a map, and in most lists, must not be the same.
std::string renamed( std::string part, std::string_view text, std::size_t number, Dice & dice ) {
   const std::vector< Range > words = wordsOf( part, yaml );
   if ( words.empty() || dice.oneIn( 8 ) )
      return part;
   const Range & name = words.front();
   if ( dice.oneIn( 3 ) )
      part.replace( name.begin, name.size(), of( text, dice.oneOf( wordsOf( text, yaml ) ) ) );
   else
      part.insert( name.end, std::to_string( number ) );
   return part;
}

/// Behind itself.
void repeat( std::string & text, const Part & part, std::size_t times, Dice & dice ) {
   const std::string copied( of( text, part ) );
   std::string copies;
   for ( std::size_t i = 0; i < times; ++i )
      copies.append( part.isLine ? "" : "," )
         .append( times == 1 ? renamed( copied, text, 0, dice ) : numbered( copied, i ) );
   text.insert( part.end, copies );
}

void exchange( std::string & text, const Part & one, const Part & other ) {
   const Part & first = one.begin < other.begin ? one : other;
   const Part & second = one.begin < other.begin ? other : one;
   if ( first.end > second.begin )
      return;
   const std::string front( of( text, first ) ), back( of( text, second ) );
   text.replace( second.begin, second.size(), front );
   text.replace( first.begin, first.size(), back );
}

void changeParts( std::string & text, Dice & dice ) {
   const std::vector< Part > parts = partsOf( text );
   if ( parts.empty() )
      return;
   const Part part = dice.oneOf( parts );
   switch ( dice.below( 8 ) ) {
   case 0:
   case 1:
   case 2:
      return repeat( text, part, 1, dice );
   case 3:
      // Where a bound of such a number is, is seen with small ones.
      return repeat( text, part, part.size() < 32 ? dice.oneOf( edges ) % 65 : 2, dice );
   case 4:
   case 5:
      return exchange( text, part, dice.oneOf( parts ) );
   default: {
      // With one of the commas beside it.
      Range gone = part;
      if ( !part.isLine && text[gone.begin - 1] == ',' )
         --gone.begin;
      else if ( !part.isLine && text[gone.end] == ',' )
         ++gone.end;
      text.erase( gone.begin, gone.size() );
   }
   }
}

} // namespace

void changeAnything( std::string & bytes, std::size_t most ) {
   const std::size_t size = bytes.size();
   bytes.resize( most );
   bytes.resize( LLVMFuzzerMutate( reinterpret_cast< std::uint8_t * >( bytes.data() ), size, most ) );
}

void changeWord( std::string & word, Dice & dice ) {
   switch ( dice.below( 8 ) ) {
   case 0:
   case 1:
   case 2:
      word = valueLike( word, dice );
      break;
   case 3:
      word = value( dice );
      break;
   case 4:
      changeDigits( word, dice );
      break;
   case 5:
      stretch( word, dice );
      break;
   case 6:
      changeAnything( word, word.size() + 32 );
      break;
   default:
      if ( dice.oneIn( 4 ) )
         word.clear();
      else
         changeCharacter( word, dice );
   }
}

void changeText( std::string & text, const TextForm & form, Dice & dice ) {
   for ( std::size_t changes = 1 + dice.below( 3 ); changes > 0; --changes ) {
      if ( form.nested && dice.oneIn( 3 ) ) {
         changeParts( text, dice );
         continue;
      }
      const std::vector< Range > words = wordsOf( text, form );
      if ( words.empty() ) {
         text += value( dice );
         continue;
      }
      Range word = dice.oneOf( words );
      std::string fresh( of( text, dice.oneIn( 8 ) ? dice.oneOf( words ) : word ) );
      if ( fresh == of( text, word ) )
         changeWord( fresh, dice );
      if ( form.quoted && !dice.oneIn( 16 ) )
         fit( fresh, word, text, dice );
      else if ( form.nested && ( fresh.empty() || dice.oneIn( 16 ) ) )
         fresh = '"' + fresh + '"';
      text.replace( word.begin, word.size(), fresh );
   }
}

void takePart( std::string & text, std::string_view other, Dice & dice ) {
   const std::vector< Part > places = partsOf( text ), parts = partsOf( other );
   if ( places.empty() || parts.empty() )
      return;
   const Part part = dice.oneOf( parts ), place = dice.oneOf( places );
   if ( part.isLine != place.isLine )
      return;
   const std::string_view taken = of( other, part );
   std::string added = std::string( "," ).append( taken );
   if ( part.isLine )
      added = indented( taken, indentOf( taken ), indentOf( of( text, place ) ) );
   if ( dice.oneIn( 2 ) )
      text.replace( place.begin, place.size(), added.substr( part.isLine ? 0 : 1 ) );
   else
      text.insert( place.end, added );
}

void changeNumber( std::string & bytes, Dice & dice ) {
   static constexpr std::uint64_t edge[] = {
      0,           1,          2,          3,          4,         5,          7,          8,
      16,          32,         64,         127,        128,       255,        256,        1000,
      4096,        0x7fff,     0x8000,     0xffff,     0x10000,   0x7fffffff, 0x80000000, 0xffffffff,
      0x100000000, 1ull << 53, ~0ull >> 1, 1ull << 63, ~0ull - 1, ~0ull };
   using Limits = std::numeric_limits< double >;
   static constexpr double decimal[] = {
      0,
      -0.0,
      1,
      -1,
      0.5,
      1e-9,
      1.7e9,
      1e15,
      1e300,
      -1e300,
      Limits::infinity(),
      -Limits::infinity(),
      Limits::quiet_NaN(),
      Limits::denorm_min() };
   char fresh[8];
   // The whole, where it can be one number.
   const bool one = bytes.size() == 1 || bytes.size() == 2 || bytes.size() == 4 || bytes.size() == 8;
   const std::size_t size = one && !dice.oneIn( 4 ) ? bytes.size() : std::size_t( 1 ) << dice.below( 4 );
   if ( bytes.size() < size )
      return;
   const std::size_t place = dice.below( bytes.size() - size + 1 );
   if ( size == 8 && dice.oneIn( 2 ) )
      std::memcpy( fresh, &dice.oneOf( decimal ), size );
   else if ( dice.oneIn( 4 ) )
      // As another number here.
      bytes.copy( fresh, size, dice.below( bytes.size() - size + 1 ) );
   else {
      const std::uint64_t number = dice.oneIn( 4 ) ? dice.below( 256 ) : dice.oneOf( edge );
      std::memcpy( fresh, &number, size );
   }
   bytes.replace( place, size, fresh, size );
}

} // namespace Fuzz
