#include "Agent/Insight/Insight.h"

#include "Platform/Vel/Clock.h"

#include <cmath>
#include <utility>

namespace Agent {

namespace {

/// Seconds by which an expected time must differ from the published one to be published.
constexpr double etaStep = 1;

} // namespace

/// One that has a record, or had one until this turn.
struct Insight::Interface {
   struct VelRecord final : Vel::ReactorTo< Interface, Maintenance::MonIntfStatus > {
      using ReactorTo::ReactorTo;
      void onProfileName() override { sm()->noteChange(); }
      void onLastSampleTime() override {
         sm()->sampled = true;
         sm()->noteChange();
      }
      void onState() override { sm()->noteChange(); }
      void onSpikeUnderMaint() override { sm()->noteChange(); }
   };

   Interface( Insight * room, const Maintenance::MonIntfStatus & watched, Classifier known )
      : insight( room ), classifier( std::move( known ) ) {
      record.is( Vel::Ptr< const Maintenance::MonIntfStatus >( &watched ), this )
         .hasNotificationActiveIs( true );
   }
   void noteChange() { insight->noteChange( *this ); }

   Insight * const insight;
   Classifier classifier;
   Vel::Watch< VelRecord > record;
   Vel::Ptr< IntfInsight > published; ///< null: not yet
   bool shut = false;
   bool sampled = false; ///< since it was looked at last
   bool changed = false; ///< stands in the list of those that have
   bool gone = false;
   bool waits = false;
   Waiting::iterator waiting; ///< if it does
};

Insight::Insight( Vel::Ptr< const Cog::TimerWheel > wheel, Model model ) : model_( std::move( model ) ) {
   const double now = Vel::System::currentTime();
   records_.is( model_.monIntfStatusDir, this ).hasNotificationActiveIs( true );
   cause_.is( model_.cause, this ).hasNotificationActiveIs( true );
   wakeup_.is( std::move( wheel ), this ).hasNotificationActiveIs( true );
   for ( const auto & [intf, kept] : model_.insightDir->intfRange() )
      if ( !model_.monIntfStatusDir->monIntfStatus( intf ) )
         model_.insightDir->intfDel( intf );
   for ( const auto & [intf, record] : model_.monIntfStatusDir->monIntfStatusRange() ) {
      const IntfInsight * kept = model_.insightDir->intf( intf );
      watch(
         *record, kept ? Classifier( now, kept->reason(), kept->since() )
                       : Classifier( now, Reason::aboveThreshold, record->startTime() ) );
   }
}

Insight::~Insight() = default;

void Insight::handleRecord( const Wire::IntfId & intf ) {
   depart( intf );
   if ( const auto * record = model_.monIntfStatusDir->monIntfStatus( intf ) )
      watch( *record, Classifier( record->startTime() ) );
}

void Insight::handleCause( const Wire::IntfId & intf ) {
   const auto found = interfaces_.find( intf );
   if ( found == interfaces_.end() )
      return;
   found->second->shut = model_.cause->intfStatus( intf ) != nullptr;
   noteChange( *found->second );
}

void Insight::noteChange( Interface & interface ) {
   if ( !std::exchange( interface.changed, true ) )
      changed_.push_back( &interface );
}

void Insight::watch( const Maintenance::MonIntfStatus & record, Classifier classifier ) {
   auto & made = interfaces_[record.intfId()];
   made = std::make_unique< Interface >( this, record, std::move( classifier ) );
   made->shut = model_.cause->intfStatus( record.intfId() ) != nullptr;
   noteChange( *made );
}

void Insight::depart( const Wire::IntfId & intf ) {
   auto found = interfaces_.extract( intf );
   if ( !found )
      return;
   Interface & interface = *found.mapped();
   interface.record.hasNotificationActiveIs( false );
   interface.gone = true;
   waitsIs( interface, false );
   departed_.push_back( std::move( found.mapped() ) );
}

void Insight::turnEnds() {
   if ( changed_.empty() && departed_.empty() && waiting_.empty() )
      return;
   const double now = Vel::System::currentTime();
   lastProfile_ = nullptr;
   for ( const auto & departed : departed_ )
      model_.insightDir->intfDel( departed->record->entity()->intfId() );
   for ( Interface * changed : changed_ )
      if ( !changed->gone )
         conclude( *changed, now );
   changed_.clear();
   departed_.clear();
   while ( !waiting_.empty() && waiting_.front()->classifier.starvedAt() <= now )
      conclude( *waiting_.front(), now );
   if ( !waiting_.empty() && wakeTime_ <= now )
      wakeup_->timeMinIs( wakeTime_ = waiting_.front()->classifier.starvedAt() );
}

void Insight::conclude( Interface & interface, double now ) {
   const Maintenance::MonIntfStatus & record = *interface.record->entity();
   const Classifier::Inputs inputs = this->inputs( interface );
   interface.changed = false;
   const bool sampled = std::exchange( interface.sampled, false );
   if ( sampled )
      interface.classifier.sample(
         record.lastSampleTime(), record.curRates().inBitsRate, record.curRates().outBitsRate,
         inputs.threshold );
   const Classifier::Conclusion & conclusion = interface.classifier.conclude( now, inputs );
   publish( interface, conclusion );
   const bool waits = isConcluded( conclusion.reason );
   if ( sampled && waits && interface.waits )
      waiting_.splice( waiting_.end(), waiting_, interface.waiting );
   else
      waitsIs( interface, waits );
}

void Insight::waitsIs( Interface & interface, bool waits ) {
   if ( waits == std::exchange( interface.waits, waits ) )
      return;
   if ( waits )
      interface.waiting = waiting_.insert( waiting_.end(), &interface );
   else
      waiting_.erase( interface.waiting );
}

Classifier::Inputs Insight::inputs( const Interface & interface ) {
   const Maintenance::MonIntfStatus & record = *interface.record->entity();
   Classifier::Inputs result;
   result.state = record.state();
   result.stateTime = record.stateTime();
   result.shut = interface.shut;
   result.spike = record.spikeUnderMaint();
   result.quietSamples = record.numConsecutiveDrainedSamples();
   if ( const auto * profile = this->profile( record.profileName() ) ) {
      result.threshold = profile->drainWatchThresholdInKbps() * 1000;
      result.loadInterval = profile->drainWatchLoadInterval();
   }
   return result;
}

const IntfMaintenanceProfile::Status * Insight::profile( const Vel::String & name ) {
   if ( !lastProfile_ || lastProfile_->name() != name )
      lastProfile_ = model_.intfProfileStatusDir->status( name );
   return lastProfile_;
}

/// What is new is published when it is whole.
void Insight::publish( Interface & interface, const Classifier::Conclusion & conclusion ) {
   const Wire::IntfId & intf = interface.record->entity()->intfId();
   Vel::Ptr< IntfInsight > & insight = interface.published;
   if ( !insight )
      insight = model_.insightDir->intf( intf );
   const bool isNew = !insight;
   if ( isNew )
      insight = Vel::make< IntfInsight >( intf );
   insight->sinceIs( conclusion.since );
   const double eta = insight->eta();
   if ( std::abs( conclusion.eta - eta ) > etaStep || ( conclusion.eta > 0 ) != ( eta > 0 ) )
      insight->etaIs( conclusion.eta );
   insight->trendIs( conclusion.trend );
   insight->reasonIs( conclusion.reason );
   if ( isNew )
      model_.insightDir->intfPut( intf, insight );
}

} // namespace Agent
