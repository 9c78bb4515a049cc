#include "Apps/StoreCommits.h"

#include <utility>

namespace Apps {

bool StoreCommits::commit() {
   const auto status = persistence_.commit();
   if ( status.ok() ) {
      failedSince_ = 0;
      problem_.clear();
      for ( Task & call : std::exchange( waiting_, {} ) )
         scheduler_.effectIs( std::move( call ) );
      return true;
   }
   const double now = scheduler_.currentTime();
   const bool first = failedSince_ == 0;
   if ( first )
      failedSince_ = now;
   problem_ = status.text();
   return !first && now > failedSince_;
}

void StoreCommits::whenStored( Task call ) {
   waiting_.push_back( std::move( call ) );
   // There must be a turn that commits, also if this one is past that.
   scheduler_.effectIs( [] {} );
}

} // namespace Apps
