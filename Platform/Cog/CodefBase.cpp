#include "Platform/Cog/CodefBase.h"

#include <algorithm>
#include <limits>

namespace Cog {

namespace {
constexpr double never = std::numeric_limits< double >::infinity();
}

class CodefBase::Run {
 public:
   explicit Run( CodefBase & codef ) : codef_( &codef ), startTime_( codef.liveTime() ) {
      codef.run_ = this;
      codef.timeMin_ = never;
      ++codef.dispatchCount_;
   }
   ~Run() {
      if ( !codef_ )
         return;
      codef_->run_ = nullptr;
      codef_->timeUsed_ += codef_->liveTime() - startTime_;
      if ( codef_->backlogSize() != 0 ) {
         ++codef_->yieldBeforeFinishingCount_;
         codef_->timeMin_ = 0;
      } else {
         codef_->warm_ = true;
         if ( codef_->updatesSeen_ > codef_->updatesProcessed_ )
            codef_->updatesCoalesced_ = codef_->updatesSeen_ - codef_->updatesProcessed_;
      }
   }
   Run( const Run & ) = delete;
   Run & operator=( const Run & ) = delete;

   double startTime() const { return startTime_; }
   void processedInc( Vel::U64 amount ) {
      if ( codef_ )
         codef_->updatesProcessed_ += amount;
   }
   /// The codef is being destroyed by what it runs.
   void codefDel() { codef_ = nullptr; }

 private:
   CodefBase * codef_;
   double startTime_;
};

CodefBase::CodefBase( Vel::Ptr< Vel::Clock > clock ) : clock_( std::move( clock ) ), timeMin_( never ) {
   Vel::validPtr( clock_ )->drivenIs( *this, Vel::Clock::Phase::tasks );
}

CodefBase::~CodefBase() {
   if ( run_ )
      run_->codefDel();
   clock_->drivenDel( *this );
}

void CodefBase::clockReactorTimeMinIs( double absoluteSeconds ) {
   VEL_ASSERT( absoluteSeconds == absoluteSeconds, "!std::isnan( absoluteSeconds )" );
   timeMin_ = absoluteSeconds;
}

void CodefBase::backlogQuantumIs( double seconds ) {
   VEL_ASSERT( seconds >= 0, "seconds >= 0" );
   backlogQuantum_ = seconds;
}

void CodefBase::run( double ) {
   Run run( *this );
   run.processedInc( processBacklog( run.startTime() ) );
}

} // namespace Cog
