#include "Apps/MaintdEntities.h"

#include <spdlog/spdlog.h>

/// How the times that are set for maintenances are kept.
namespace Apps {

void Maintd::makeTimes() {
   times_ = std::make_unique< Agent::Times >(
      loop_, wheel_, Agent::Times::Model{ entities_->unitStatusDir, entities_->unitTimesDir },
      Agent::Times::Hooks{
         [this]( const Vel::String & unit, const Vel::String & reason, bool tooLate ) {
            takeBack( unit, reason, tooLate ? reason : "" );
         },
         [this] { return moment(); }, []( const Vel::String & line ) { spdlog::warn( "{}", line ); } } );
}

Agent::Moment Maintd::moment() const {
   const MaintdBoot & boot = world_.boot ? *world_.boot : boot_;
   return { boot.id, now() - boot.began, now(), wallTime( now() ) };
}

} // namespace Apps
