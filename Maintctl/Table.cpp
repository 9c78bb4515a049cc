#include "Maintctl/Table.h"

#include "Maintctl/Line.h"
#include "Maintctl/Text.h"

#include <algorithm>
#include <cassert>

namespace Maintctl {

namespace {

/// Columns that words are broken into, where they must be.
constexpr std::size_t fewestForWords = 24;
/// Blanks more before what is below.
constexpr std::size_t furtherIn = 4;

/// Lines, each but the first behind so many blanks; the last not ended.
std::string joined( const std::vector< std::string > & lines, std::size_t blanks ) {
   std::string result;
   for ( const std::string & line : lines )
      result += ( result.empty() ? "" : "\n" + std::string( blanks, ' ' ) ) + line;
   return result;
}

} // namespace

void Table::row( std::vector< std::string > cells ) {
   assert( cells.size() == columns_.size() );
   for ( std::string & cell : cells )
      cell = cell.empty() ? nothing : printable( cell );
   rows_.push_back( std::move( cells ) );
}

std::vector< std::size_t > Table::widths() const {
   std::vector< std::size_t > widths;
   for ( std::size_t i = 0; i < columns_.size(); ++i ) {
      widths.push_back( columns( columns_[i].heading ) );
      for ( const auto & row : rows_ )
         widths[i] = std::max( widths[i], columns( row[i] ) );
   }
   return widths;
}

/// What the last column of a line has to have: words are not broken.
std::size_t Table::leastWidth( std::size_t column, std::size_t width ) const {
   std::size_t longest = fewestForWords;
   for ( const auto & row : rows_ )
      for ( std::size_t at = 0, end = 0; at < row[column].size(); at = end + 1 ) {
         end = std::min( row[column].find( ' ', at ), row[column].size() );
         longest = std::max( longest, columns( row[column].substr( at, end - at ) ) );
      }
   return std::min( width, longest );
}

std::vector< Table::Part >
Table::parts( const std::vector< std::size_t > & widths, std::size_t indent, std::size_t room ) const {
   std::vector< Part > parts{ { 0, 0, indent } };
   std::size_t used = indent;
   for ( std::size_t i = 0; i < widths.size(); ++i ) {
      const bool last = i + 1 == widths.size();
      const std::size_t needed = last ? leastWidth( i, widths[i] ) : widths[i];
      const bool first = i == parts.back().begin;
      if ( !first && used + 2 + needed > room ) {
         parts.push_back( { i, i, indent + furtherIn } );
         used = indent + furtherIn;
      } else if ( !first )
         used += 2;
      used += widths[i];
      parts.back().end = i + 1;
   }
   return parts;
}

std::string Table::text( std::size_t indent, std::size_t room ) const {
   const std::vector< std::size_t > widths = this->widths();
   const std::vector< Part > parts = this->parts( widths, indent, room );
   std::string result;
   const auto end = [&result] {
      result.erase( result.find_last_not_of( ' ' ) + 1 );
      result += '\n';
   };
   const auto add = [&]( const Cells & cells ) {
      for ( const Part & part : parts ) {
         result.append( part.indent, ' ' );
         std::size_t used = part.indent;
         for ( std::size_t i = part.begin; i < part.end; ++i ) {
            const bool right = columns_[i].align == Align::right;
            const std::size_t gap = i > part.begin ? 2 : 0, blanks = widths[i] - columns( cells[i] );
            result.append( gap + ( right ? blanks : 0 ), ' ' );
            used += gap;
            if ( !right && i + 1 == part.end && used < room && columns( cells[i] ) > room - used ) {
               result += joined( wrapped( cells[i], room - used, endless, true ), used );
               break;
            }
            result.append( cells[i] ).append( right ? 0 : blanks, ' ' );
            used += widths[i];
         }
         end();
      }
   };
   Cells headings;
   for ( const Column & column : columns_ )
      headings.push_back( column.heading );
   add( headings );
   std::for_each( rows_.begin(), rows_.end(), add );
   return result;
}

void Sheet::line( std::string name, std::string value ) {
   lines_.emplace_back( std::move( name ) + ":", value.empty() ? nothing : printable( value ) );
}

std::string Sheet::text( std::size_t room ) const {
   std::size_t width = 0;
   for ( const auto & [name, value] : lines_ )
      width = std::max( width, columns( name ) );
   std::string result;
   for ( const auto & [name, value] : lines_ )
      result += hanging( name + std::string( width + 2 - columns( name ), ' ' ), value, room );
   return result;
}

std::string hanging( std::string_view head, std::string_view text, std::size_t room ) {
   const std::string begin = printable( head ), rest = printable( text );
   const std::size_t indent = columns( begin );
   if ( indent + columns( rest ) <= room )
      return begin + rest + "\n";
   if ( indent + fewestForWords <= room )
      return begin + joined( wrapped( rest, room - indent, endless, true ), indent ) + "\n";
   return room > furtherIn
             ? joined( wrapped( begin + rest, room - furtherIn, endless, true ), furtherIn ) + "\n"
             : begin + rest + "\n";
}

} // namespace Maintctl
