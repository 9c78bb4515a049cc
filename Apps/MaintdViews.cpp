#include "Apps/MaintdViews.h"

namespace Apps {

Maintd::Views::Views( Maintd & agent )
   : insight(
        agent.wheel_, Agent::Insight::Model{
                         agent.entities_->monIntfStatusDir, agent.entities_->intfProfileStatusDir,
                         agent.entities_->cause, agent.entities_->insightDir } ) {}

} // namespace Apps
