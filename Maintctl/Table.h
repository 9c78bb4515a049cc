#pragma once

#include <string>
#include <vector>

namespace Maintctl {

/// Purpose: aligned columns under headings. Two blanks between columns, none at the end of a line; what is too long
/// widens its column, nothing is cut.
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
   std::string text( std::size_t indent = 0 ) const;

 private:
   std::vector< Column > columns_;
   std::vector< std::vector< std::string > > rows_;
};

/// One thing in full: `name:  value` lines, the values aligned; empty ones are shown as `-`.
class Sheet {
 public:
   void line( std::string name, std::string value );
   std::string text() const;

 private:
   std::vector< std::pair< std::string, std::string > > lines_;
};

} // namespace Maintctl
