#include "Platform/Model/IntfGroup.h"

namespace IntfGroup {

namespace {
const Vel::TypeRegistration< StatusDir > statusDirType;
}

} // namespace IntfGroup
