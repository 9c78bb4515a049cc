#include "Platform/Vel/Ptr.h"

namespace Vel {

void PtrInterface::velDestroy() const {
   // A destructor may hand out counted pointers to its object; with the count far from zero they come and go
   // without destroying it again.
   countWord_ = ( countWord_ & ~countMask ) | ( 1u << 28 );
   delete this;
}

} // namespace Vel
