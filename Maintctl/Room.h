#pragma once

#include <cstddef>

/// Purpose: how long a line of data may be.
namespace Maintctl {

class Display;

/// Room of whoever can take lines of any length, in columns.
inline constexpr std::size_t endless = ~std::size_t( 0 );

/// Columns that a line may have there. Who reads from a pipe or a file gets whole lines.
std::size_t roomOn( Display & display );

} // namespace Maintctl
