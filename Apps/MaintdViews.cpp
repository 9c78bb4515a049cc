#include "Apps/MaintdViews.h"

namespace Apps {

Maintd::Views::Views( Maintd & agent ) { static_cast< void >( agent ); }

} // namespace Apps
