#include "Platform/Ledger/Cell.h"

#include "Platform/Vel/Text.h"

namespace Cell {

Vel::String path( const Vel::String & path, unsigned cell ) {
   return Vel::text( "cell/", cell ? cell : thisCell, "/", path );
}

} // namespace Cell
