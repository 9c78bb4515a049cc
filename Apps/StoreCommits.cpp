#include "Apps/StoreCommits.h"

#include <utility>

namespace Apps {

StoreCommits::StoreCommits(
   Cog::Scheduler & scheduler, const Vel::Ptr< Cog::TimerWheel > & wheel, Ledger::Persistence & persistence,
   Ledger::FallbackEngine & fallback )
   : scheduler_( scheduler ), persistence_( persistence ), fallback_( fallback ) {
   tick_.is( wheel, this ).hasNotificationActiveIs( true );
}

bool StoreCommits::commit() {
   const Stored now = commitNow();
   if ( now.kept )
      letGo( waitForKept_ );
   problem_ = now.problem;
   if ( problem_.empty() ) {
      failedSince_ = 0;
      lostSince_.reset();
      letGo( waitForStored_ );
      return true;
   }
   const double time = scheduler_.currentTime();
   if ( failedSince_ == 0 )
      failedSince_ = time;
   if ( now.allKept )
      lostSince_.reset();
   else if ( !lostSince_ )
      lostSince_ = time;
   if ( !waitForKept_.empty() )
      problem_ += "; links that are to be shut wait for one of them";
   if ( !waitForKept_.empty() || !waitForStored_.empty() )
      tick_->timeMinIs( time + retryAfter );
   return !lostSince_ || time > *lostSince_;
}

StoreCommits::Stored StoreCommits::commitNow() {
   const Ledger::Status committed = persistence_.commit();
   const Ledger::Status settled = fallback_.settle();
   Stored result;
   // The runtime store may be what has failed.
   result.kept = committed.ok() || fallback_.committed();
   result.allKept = committed.ok();
   result.problem = committed.ok() ? settled.text() : committed.text();
   if ( !settled.ok() && fallback_.committed() )
      result.problem += "; what it lacks is kept in " + fallback_.file() + " meanwhile";
   return result;
}

void StoreCommits::wait( std::vector< Task > & waiting, Task call ) {
   waiting.push_back( std::move( call ) );
   // There must be a turn that commits, also if this one is past that.
   scheduler_.effectIs( [] {} );
}

void StoreCommits::letGo( std::vector< Task > & waiting ) {
   for ( Task & call : std::exchange( waiting, {} ) )
      scheduler_.effectIs( std::move( call ) );
}

} // namespace Apps
