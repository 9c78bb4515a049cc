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
   const Session from = session.value_or( Session() );
   switch_.routesAsk(
      { from.address, from.at, from.link },
      [self = self_, unit, session, purpose, asked = scheduler_->currentTime(),
       planned = std::move( planned )]( const DataPlane::RouteAnswer & answer ) {
         if ( !*self )
            return;
         Job job{ unit, session, purpose, asked, { planned }, answer };
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
   if ( jobs_.front().plan || beginsNothing( jobs_.front() ) || gather( jobs_.front() ) ) {
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

/// Whether all is there that takes several turns.
bool Planner::gather( Job & job ) {
   if ( !job.unread ) {
      question( job );
   } else {
      const double now = scheduler_->currentTime();
      for ( unsigned left = curvesPerTurn; left > 0 && !job.unread->empty(); --left ) {
         const std::string name = std::move( job.unread->front() );
         job.unread->pop_front();
         if ( !samples_.has( name ) )
            continue;
         const SampleCurve curve = samples_.curve( name, now - highRange, now );
         job.high[name] = { std::nullopt, high( curve ), highSeconds( curve ) };
      }
      askSpeeds( job );
   }
   return job.unread->empty() && job.unasked.empty();
}

void Planner::question( Job & job ) {
   const PlanFacts facts = factsOf( job );
   PlanQuestions questions = questionsOf( facts );
   job.begun = scheduler_->currentTime();
   job.unread.emplace();
   for ( const PlanInterface & interface : facts.interfaces )
      job.unread->push_back( interface.name );
   job.unread->insert( job.unread->end(), questions.loads.begin(), questions.loads.end() );
   if ( job.unread->size() > mostCurves )
      job.unread->resize( mostCurves );
   job.unasked.assign( questions.speeds.begin(), questions.speeds.end() );
}

/// Ports are asked again for the next reading, since they may have agreed on another speed by then.
void Planner::askSpeeds( Job & job ) {
   if ( speedsOf_.lock() != job.routes.table ) {
      speeds_.clear();
      speedsOf_ = job.routes.table;
   }
   // What is not known by then is not waited for.
   if ( scheduler_->currentTime() - job.begun >= DataPlane::Switch::routePatience )
      job.unasked.clear();
   for ( const double begun = scheduler_->liveTime();
         !job.unasked.empty() && scheduler_->liveTime() - begun <= speedQuantum; job.unasked.pop_front() ) {
      const std::string & port = job.unasked.front();
      const auto [at, isNew] = speeds_.try_emplace( port );
      if ( isNew )
         at->second = switch_.portSpeed( port );
      if ( at->second )
         job.speeds.emplace( port, *at->second );
   }
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

double Planner::highSeconds( const SampleCurve & curve ) {
   double seconds = 0;
   for ( std::size_t i = 0; i < curve.in.size(); ++i )
      if ( std::isfinite( curve.in[i] ) && std::isfinite( curve.out[i] ) )
         seconds += curve.step;
   return std::min( seconds, highRange );
}

std::optional< PlanRates > Planner::current( const Wire::IntfId & intf ) const {
   const auto rates = samples_.rate( intf );
   if ( !rates || !std::isfinite( rates->inBitsRate ) || !std::isfinite( rates->outBitsRate ) )
      return std::nullopt;
   return PlanRates{ rates->inBitsRate, rates->outBitsRate };
}

} // namespace Agent
