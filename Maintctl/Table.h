#pragma once

#include "Maintctl/Room.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Maintctl {

/// Purpose: aligned columns under headings. Two blanks between columns, none at the end of a line; what is too long
/// widens its column, nothing is cut.
///
/// Where a line has no room for all columns, each row goes on below, further in, all rows at the same column. The last
/// column of a line may be broken between its words; it stays aligned.
class Table {
 public:
   enum class Align { left, right };
   struct Column {
      std::string heading;
      Align align = Align::left;
   };

   explicit Table( std::vector< Column > columns ) : columns_( std::move( columns ) ) {}

   /// As many cells as there are columns; an empty one is shown as `-`, what could fool a terminal made visible.
   void row( std::vector< std::string > cells );
   bool empty() const { return rows_.empty(); }

   /// The heading and the rows, each line ended.
   /// \param indent  blanks before each line
   /// \param room  columns of whoever reads it, so that no terminal breaks words
   std::string text( std::size_t indent = 0, std::size_t room = endless ) const;

 private:
   using Cells = std::vector< std::string >;
   /// What stands on one line of a row.
   struct Part {
      std::size_t begin, end; ///< columns
      std::size_t indent;
   };
   std::vector< std::size_t > widths() const;
   std::vector< Part >
   parts( const std::vector< std::size_t > & widths, std::size_t indent, std::size_t room ) const;
   std::size_t leastWidth( std::size_t column, std::size_t width ) const;

   std::vector< Column > columns_;
   std::vector< std::vector< std::string > > rows_;
};

/// One thing in full: `name:  value` lines, the values aligned; empty ones are shown as `-`.
class Sheet {
 public:
   void line( std::string name, std::string value );
   /// \param room  as of a table: longer values go on below, aligned
   std::string text( std::size_t room = endless ) const;

 private:
   std::vector< std::pair< std::string, std::string > > lines_;
};

/// `head` and `text` as one printable line, ended; where that has no room, words go on below `text`, or below `head` if
/// that takes most of the room.
std::string hanging( std::string_view head, std::string_view text, std::size_t room );
inline std::string paragraph( std::string_view text, std::size_t room ) { return hanging( "", text, room ); }

} // namespace Maintctl
