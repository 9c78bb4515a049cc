#include "Platform/Model/IntfMaintenanceProfile.h"

namespace IntfMaintenanceProfile {

namespace {
const Vel::TypeRegistration< StatusDir > statusDirType;
}

} // namespace IntfMaintenanceProfile
