#pragma once

#include "Maintctl/Drawing.h"

/// Purpose: how interfaces are drawn: a row each, or one in full. Owner: draw().
namespace Maintctl {

/// The columns that rows of interfaces share.
class IntfLayout {
 public:
   IntfLayout() = default;
   /// \param indent  blanks before each row
   IntfLayout(
      const std::vector< const IntfPicture * > & interfaces, std::size_t indent, std::size_t columns );

   Line heading() const;
   /// The first so many, those of one urgency by their names: who is slower than whom changes with every look. The
   /// last line says how many there are more.
   Lines lines( const std::vector< IntfPicture > & slowestFirst, std::size_t most, bool utf8 ) const;
   bool hasCurves() const { return curve_ > 0; }

 private:
   /// \param hidden  how many more there are; 0: nothing is said
   Line line( const IntfPicture & intf, std::size_t hidden, bool utf8 ) const;

   std::size_t indent_ = 0, columns_ = 0;
   std::size_t name_ = 0, curve_ = 0;     ///< columns; 0: not shown
   bool threshold_ = false, eta_ = false; ///< shown
};

/// Rows under a heading.
Lines interfaceList( const Picture & picture, Size size, bool utf8 );
/// What is known of the first interface, and its curves over several rows.
Lines interfaceInFull( const Picture & picture, Size size, bool utf8 );

/// Whether rows as wide as this have curves.
bool listShowsCurves( const Picture & picture, std::size_t columns );
Line curveLegend( double stepSeconds, bool utf8 );

} // namespace Maintctl
