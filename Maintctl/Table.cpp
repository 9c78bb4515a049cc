#include "Maintctl/Table.h"

#include "Maintctl/Text.h"

#include <algorithm>
#include <cassert>

namespace Maintctl {

void Table::row( std::vector< std::string > cells ) {
   assert( cells.size() == columns_.size() );
   for ( std::string & cell : cells )
      cell = cell.empty() ? nothing : printable( cell );
   rows_.push_back( std::move( cells ) );
}

std::string Table::text( std::size_t indent ) const {
   std::vector< std::string > headings;
   std::vector< std::size_t > widths;
   for ( std::size_t i = 0; i < columns_.size(); ++i ) {
      headings.push_back( columns_[i].heading );
      widths.push_back( columns( columns_[i].heading ) );
      for ( const auto & row : rows_ )
         widths[i] = std::max( widths[i], columns( row[i] ) );
   }
   std::string result;
   const auto add = [&]( const std::vector< std::string > & cells ) {
      result.append( indent, ' ' );
      for ( std::size_t i = 0; i < cells.size(); ++i ) {
         const bool right = columns_[i].align == Align::right;
         const std::size_t blanks = widths[i] - columns( cells[i] );
         result.append( ( i ? 2 : 0 ) + ( right ? blanks : 0 ), ' ' ).append( cells[i] );
         result.append( right ? 0 : blanks, ' ' );
      }
      result.erase( result.find_last_not_of( ' ' ) + 1 );
      result += '\n';
   };
   add( headings );
   std::for_each( rows_.begin(), rows_.end(), add );
   return result;
}

void Sheet::line( std::string name, std::string value ) {
   lines_.emplace_back( std::move( name ) + ":", value.empty() ? nothing : printable( value ) );
}

std::string Sheet::text() const {
   std::size_t width = 0;
   for ( const auto & [name, value] : lines_ )
      width = std::max( width, columns( name ) );
   std::string result;
   for ( const auto & [name, value] : lines_ )
      result += name + std::string( width - columns( name ) + 2, ' ' ) + value + "\n";
   return result;
}

} // namespace Maintctl
