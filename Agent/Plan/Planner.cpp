#include "Agent/Plan/Planner.h"

#include "Agent/Model/StateText.h"
#include "Agent/Plan/Topology.h"

#include <algorithm>
#include <cmath>

namespace Agent {

Planner::Planner(
   Vel::Ptr< Cog::Scheduler > scheduler, DataPlane::Switch & theSwitch, const SampleSource & samples,
   Model model, Hooks hooks )
   : scheduler_( std::move( scheduler ) ),
     switch_( theSwitch ),
     samples_( samples ),
     model_( std::move( model ) ),
     hooks_( std::move( hooks ) ),
     looks_( std::make_shared< const int >() ),
     webLooks_( std::make_shared< const int >() ),
     self_( std::make_shared< Planner * >( this ) ) {}

Planner::~Planner() { *self_ = nullptr; }

const std::shared_ptr< const int > & Planner::looksOf( PlanPurpose purpose ) const {
   return purpose == PlanPurpose::lookOverWeb ? webLooks_ : looks_;
}

bool Planner::isBusy( PlanPurpose purpose ) const {
   const long most = purpose == PlanPurpose::lookOverWeb ? mostLookingOverWeb : mostLooking;
   return purpose != PlanPurpose::begin && looksOf( purpose ).use_count() - 1 >= most;
}

void Planner::plan(
   const std::string & unit, const std::optional< Session > & session, PlanPurpose purpose,
   Planned planned ) {
   if ( purpose != PlanPurpose::begin )
      planned = [planned = std::move( planned ), look = looksOf( purpose )]( const Plan & plan ) {
         planned( plan );
      };
   // What goes over one link only has no route of its own.
   const bool routed = session && session->link.empty();
   switch_.routesAsk(
      { routed ? session->address : "", routed ? session->at : "" },
      [self = self_, unit, session, purpose, asked = scheduler_->currentTime(),
       planned = std::move( planned )]( const DataPlane::RouteAnswer & answer ) {
         if ( !*self )
            return;
         Job job{ unit, session, purpose, asked, { planned }, answer, std::nullopt };
         if ( session && !session->link.empty() )
            job.routes.way = { "", false, stringValue( *session ), { { { session->link } } } };
         ( *self )->enqueue( std::move( job ) );
         ( *self )->workSoon();
      } );
}

/// What begins by a plan never shares one: the plan after it finds it begun.
void Planner::enqueue( Job job ) {
   const auto same = std::find_if( jobs_.begin(), jobs_.end(), [&]( const Job & each ) {
      return job.purpose != PlanPurpose::begin && each.purpose == job.purpose && !each.plan &&
             each.unit == job.unit && each.session == job.session && each.routes.table == job.routes.table;
   } );
   if ( same != jobs_.end() ) {
      same->planned.push_back( std::move( job.planned.front() ) );
      return;
   }
   const auto lessUrgent = std::find_if(
      jobs_.begin(), jobs_.end(), [&]( const Job & each ) { return each.purpose > job.purpose; } );
   jobs_.insert( lessUrgent, std::move( job ) );
}

void Planner::workSoon() {
   if ( std::exchange( working_, true ) )
      return;
   scheduler_->post( [self = self_] {
      if ( *self )
         ( *self )->work();
   } );
}

void Planner::work() {
   working_ = false;
   if ( jobs_.empty() )
      return;
   if ( jobs_.front().plan || beginsNothing( jobs_.front() ) || readCurves( jobs_.front() ) ) {
      Job job = std::move( jobs_.front() );
      jobs_.pop_front();
      if ( !job.plan )
         job.plan = planOf( job );
      for ( std::size_t left = toldPerTurn; left > 0 && !job.planned.empty(); --left ) {
         const Planned planned = std::move( job.planned.front() );
         job.planned.pop_front();
         planned( *job.plan );
      }
      if ( !job.planned.empty() )
         jobs_.push_front( std::move( job ) );
   }
   if ( !jobs_.empty() )
      workSoon();
}

/// Somebody else was quicker.
bool Planner::beginsNothing( const Job & job ) const {
   return job.purpose == PlanPurpose::begin && !isNormal( job.unit );
}

Plan Planner::planOf( const Job & job ) const {
   const double now = scheduler_->currentTime();
   Plan plan{ now, now - job.asked, {}, {}, {} };
   if ( beginsNothing( job ) )
      return plan;
   plan.facts = factsOf( job );
   plan.findings = judge( plan.facts );
   if ( job.purpose != PlanPurpose::begin )
      plan.text = hooks_.text( plan );
   return plan;
}

/// Whether all are read.
bool Planner::readCurves( Job & job ) {
   if ( !job.unread ) {
      const PlanFacts facts = factsOf( job );
      job.unread.emplace();
      for ( const PlanInterface & interface : facts.interfaces )
         job.unread->push_back( interface.name );
      for ( const std::string & name : interfacesInQuestion( facts ) )
         job.unread->push_back( name );
      if ( job.unread->size() > mostCurves )
         job.unread->resize( mostCurves );
      return job.unread->empty();
   }
   const double now = scheduler_->currentTime();
   for ( unsigned left = curvesPerTurn; left > 0 && !job.unread->empty(); --left ) {
      const std::string name = std::move( job.unread->front() );
      job.unread->pop_front();
      if ( samples_.has( name ) )
         job.high[name] = high( samples_.curve( name, now - highRange, now ) );
   }
   return job.unread->empty();
}

std::optional< PlanRates > Planner::high( const SampleCurve & curve ) {
   const auto percentile = []( std::vector< float > rates ) -> std::optional< double > {
      std::erase_if( rates, []( float rate ) { return !std::isfinite( rate ); } );
      if ( rates.empty() )
         return std::nullopt;
      const std::size_t rank = ( rates.size() * 95 + 99 ) / 100;
      const auto at = rates.begin() + static_cast< std::ptrdiff_t >( rank - 1 );
      std::nth_element( rates.begin(), at, rates.end() );
      return *at;
   };
   const auto in = percentile( curve.in ), out = percentile( curve.out );
   if ( !in || !out )
      return std::nullopt;
   return PlanRates{ *in, *out };
}

std::optional< PlanRates > Planner::current( const Wire::IntfId & intf ) const {
   const auto rates = samples_.rate( intf );
   if ( !rates || !std::isfinite( rates->inBitsRate ) || !std::isfinite( rates->outBitsRate ) )
      return std::nullopt;
   return PlanRates{ rates->inBitsRate, rates->outBitsRate };
}

} // namespace Agent
