#pragma once

#include "Maintctl/Line.h"
#include "Maintctl/Picture.h"

/// Purpose: from a picture to the lines that show it. Pure: the same picture and style give the same lines.
namespace Maintctl {

struct Size {
   std::size_t columns = 80, rows = 24;

   friend bool operator==( const Size &, const Size & ) = default;
};

/// The lines are never more than the rows, nor longer than the columns. What does not fit is left out, the least
/// pressing first, and the lines say how much that is.
/// \param utf8  the terminal can show more than ASCII
Lines draw( const Picture & picture, Size size, bool utf8 );

} // namespace Maintctl
