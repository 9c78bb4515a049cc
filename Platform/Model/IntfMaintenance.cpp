#include "Platform/Model/IntfMaintenance.h"

namespace IntfMaintenance {

namespace {
const Vel::TypeRegistration< IntfToGroupDir > intfToGroupDirType;
}

} // namespace IntfMaintenance
