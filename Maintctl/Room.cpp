#include "Maintctl/Room.h"

#include "Maintctl/Display.h"

namespace Maintctl {

std::size_t roomOn( Display & display ) {
   return display.abilities().terminal ? display.size().columns : endless;
}

} // namespace Maintctl
