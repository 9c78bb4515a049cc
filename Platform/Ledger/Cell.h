#pragma once

#include "Platform/Vel/String.h"

/// Purpose: paths that belong to one cell of a switch that has several.
namespace Cell {

/// The id of the cell that this process runs in. There is one.
constexpr unsigned thisCell = 1;

/// The path within a cell: path( "stage/x", 2 ) is "cell/2/stage/x". Cell 0 stands for this process's own.
Vel::String path( const Vel::String & path, unsigned cell );

} // namespace Cell
