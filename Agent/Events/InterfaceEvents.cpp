#include "Agent/Events/InterfaceEvents.h"

#include "Agent/Events/InterfaceWords.h"
#include "Agent/Events/Watching.h"
#include "Agent/Model/StateText.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <utility>

namespace Agent {

using Maintenance::Profile::ProfileType;
using nlohmann::json;

/// An interface that is looked at.
struct InterfaceEvents::Present {
   Wire::IntfId intf;
   std::string name;
   std::set< std::string > units; ///< of now, or of before if it has none now
   ToldInterface & told;

   EventWriter::About about( const char * what, std::string text ) const {
      return { EventType::interface, name, what, units, std::move( text ) };
   }
};

InterfaceEvents::InterfaceEvents(
   EventWriter & writer, Vel::Ptr< Cog::TimerWheel > wheel, Model model, Hooks hooks )
   : writer_( writer ), model_( std::move( model ) ), hooks_( std::move( hooks ) ) {
   wakeup_.is( wheel, this ).hasNotificationActiveIs( true );
   linksReactor_.is( model_.allIntfStatusDir, this ).hasNotificationActiveIs( true );
   groupsReactor_.is( model_.intfToGroupDir, this ).hasNotificationActiveIs( true );
   recordsReactor_.is( model_.monIntfStatusDir, this ).hasNotificationActiveIs( true );
   insightsReactor_.is( model_.insightDir, this ).hasNotificationActiveIs( true );
   causeReactor_.is( model_.cause, this ).hasNotificationActiveIs( true );
   for ( const auto & [intf, status] : model_.allIntfStatusDir->intfStatusRange() )
      watch( linkReactors_, intf, status.get(), this );
   for ( const auto & [intf, record] : model_.monIntfStatusDir->monIntfStatusRange() )
      watch( recordReactors_, intf, record.get(), this );
   for ( const auto & [intf, insight] : model_.insightDir->intfRange() )
      watch( insightReactors_, intf, insight.get(), this );
}

// ---- what has changed

void InterfaceEvents::watchLink( const Wire::IntfId & intf ) {
   linkChanged( intf );
   watch( linkReactors_, intf, model_.allIntfStatusDir->intfStatus( intf ), this );
}

void InterfaceEvents::watchRecord( const Wire::IntfId & intf ) {
   changed_.insert( intf );
   watch( recordReactors_, intf, model_.monIntfStatusDir->monIntfStatus( intf ), this );
}

void InterfaceEvents::watchInsight( const Wire::IntfId & intf ) {
   changed_.insert( intf );
   watch( insightReactors_, intf, model_.insightDir->intf( intf ), this );
}

/// Only what is configured is told of.
void InterfaceEvents::linkChanged( const Wire::IntfId & intf ) {
   if ( !model_.intfToGroupDir->intfToGroup( intf ) && !model_.told->interface( intf ) )
      return;
   damped_[intf].link.change();
   changed_.insert( intf );
}

void InterfaceEvents::violation( const Wire::IntfId & intf ) {
   damped_[intf].spike.change();
   changed_.insert( intf );
}

void InterfaceEvents::allChanged() {
   for ( const auto & [intf, entry] : model_.intfToGroupDir->intfToGroupRange() )
      changed_.insert( intf );
   for ( const auto & [intf, told] : model_.told->interfaceRange() )
      changed_.insert( intf );
}

void InterfaceEvents::compareDrift() {
   for ( const auto & [intf, told] : model_.told->interfaceRange() )
      if ( hooks_.drift( intf ) != told->drift() )
         changed_.insert( intf );
}

// ---- what there is

std::set< std::string > InterfaceEvents::unitsOf( const Wire::IntfId & intf ) const {
   std::set< std::string > result;
   if ( const auto * const entry = model_.intfToGroupDir->intfToGroup( intf ) )
      for ( const auto & [group, none] : entry->groupRange() )
         if ( const auto * const mapping = model_.groupToUnitDir->groupToUnit( group ) )
            for ( const auto & [unit, none2] : mapping->unitNameRange() )
               result.insert( unit );
   return result;
}

std::string InterfaceEvents::profileOf( const Wire::IntfId & intf ) const {
   const auto * const entry = model_.intfToGroupDir->intfToGroup( intf );
   if ( !entry )
      return "";
   const auto & key = entry->selectedProfileKey( ProfileType::interfaceProfile );
   return key.name == Maintenance::Profile::defaultProfileName ? model_.defaultIntfProfile->profileName()
                                                               : key.name;
}

bool InterfaceEvents::violates( const Wire::IntfId & intf ) const {
   for ( const std::string & unit : unitsOf( intf ) )
      if ( const auto * const status = model_.unitStatusDir->status( unit ) )
         if ( status->intfsViolatingTrafficThreshold( intf ) )
            return true;
   return false;
}

// ---- what is told

void InterfaceEvents::look() {
   const double now = hooks_.now();
   while ( !heldBack_.empty() && heldBack_.begin()->first <= now )
      changed_.insert( heldBack_.extract( heldBack_.begin() ).value().second );
   if ( std::exchange( driftChanged_, false ) )
      compareDrift();
   if ( changed_.empty() )
      return;
   if ( std::exchange( second_, std::floor( now ) ) != std::floor( now ) )
      directTurns_ = 0;
   direct_ = false;
   for ( const Wire::IntfId & intf : std::exchange( changed_, {} ) )
      lookAt( intf );
   writer_.tell();
   directTurns_ += direct_;
   if ( std::exchange( left_, false ) )
      std::erase_if( damped_, [&]( const auto & entry ) {
         const auto & [link, spike, membership] = entry.second;
         return link.quiet( now ) && spike.quiet( now ) && membership.quiet( now );
      } );
   wakeup_->timeMinIs( heldBack_.empty() ? Cog::Timer::never : heldBack_.begin()->first );
}

bool InterfaceEvents::mayTell( const Wire::IntfId & intf, Damper & damper ) {
   const double now = hooks_.now();
   const bool atTick = now == std::floor( now );
   if ( now >= damper.notBefore() && !direct_ && !atTick && directTurns_ >= directTurns )
      damper.waitUntil( std::floor( now ) + 1 );
   if ( now < damper.notBefore() ) {
      heldBack_.emplace( damper.notBefore(), intf );
      return false;
   }
   direct_ = true;
   damper.told( now );
   // What is held back is told together.
   damper.waitUntil( std::ceil( damper.notBefore() ) );
   return true;
}

/// All that is there when the log begins has joined long ago.
bool InterfaceEvents::mayTellMembership( const Wire::IntfId & intf ) {
   return writer_.silent() || mayTell( intf, damped_[intf].membership );
}

void InterfaceEvents::lookAt( const Wire::IntfId & intf ) {
   ToldInterface * told = model_.told->interface( intf );
   const bool configured = model_.intfToGroupDir->intfToGroup( intf );
   if ( !told && ( !configured || !mayTellMembership( intf ) ) )
      return;
   const bool joins = !told;
   if ( joins )
      told = model_.told->interfaceIs( intf );
   const std::set< std::string > units = unitsOf( intf );
   const Present of{
      intf, std::string( intf.name() ), units.empty() ? InterfaceWords::split( told->units() ) : units,
      *told };
   if ( joins )
      lookAtJoin( of );
   else if ( configured )
      lookAtMembership( of );
   lookAtRecord( of );
   lookAtReason( of );
   lookAtShutdown( of );
   lookAtSpike( of );
   lookAtLink( of );
   if ( !configured && mayTellMembership( intf ) )
      lookAtLeave( of );
}

void InterfaceEvents::lookAtJoin( const Present & of ) {
   writer_.write( of.about( "joined", of.name + " is in " + InterfaceWords::list( of.units ) + " now" ) );
   of.told.unitsIs( InterfaceWords::joined( of.units ) );
   of.told.profileIs( profileOf( of.intf ) );
}

/// The last that is told of it.
void InterfaceEvents::lookAtLeave( const Present & of ) {
   writer_.write( of.about(
      "left", of.name + " has left " + InterfaceWords::list( of.units ) +
                 ( model_.allIntfStatusDir->intfStatus( of.intf ) ? "" : ": it does not exist any more" ) ) );
   model_.told->interfaceDel( of.intf );
   left_ = true;
}

void InterfaceEvents::lookAtMembership( const Present & of ) {
   const std::set< std::string > units = unitsOf( of.intf );
   if ( const auto before = InterfaceWords::split( of.told.units() ); before != units ) {
      of.told.unitsIs( InterfaceWords::joined( units ) );
      writer_.write(
         of.about( "moved", of.name + " is in " + InterfaceWords::list( units ) + " now" ),
         { { "from", before } } );
   }
   const Vel::String profile = profileOf( of.intf ), from = of.told.profile();
   if ( profile == from )
      return;
   of.told.profileIs( profile );
   EventWriter::About about =
      of.about( "selected", of.name + " runs under profile " + profile + " now, not " + from );
   about.type = EventType::profile;
   writer_.write( about, { { "profile", profile }, { "from", from } } );
}

void InterfaceEvents::lookAtLink( const Present & of ) {
   const auto * const status = model_.allIntfStatusDir->intfStatus( of.intf );
   const Vel::String link = !status ? "gone" : status->operStatus() == Interface::operUp ? "up" : "down";
   // What is found at first is no change; a link that has no status yet is not known.
   if ( of.told.link().empty() ) {
      if ( status )
         of.told.linkIs( link );
      if ( const auto it = damped_.find( of.intf ); it != damped_.end() )
         it->second.link.changesDel();
      return;
   }
   const auto it = damped_.find( of.intf );
   const Vel::U32 changes = it == damped_.end() ? 0 : it->second.link.changes();
   const bool differs = link != of.told.link();
   if ( ( !differs && changes < 2 ) || !mayTell( of.intf, damped_[of.intf].link ) )
      return;
   of.told.linkIs( link );
   writer_.write(
      of.about( "link", InterfaceWords::link( of.name, link, changes ) ),
      { { "link-state", link }, { "changes", std::max( changes, 1u ) } } );
}

void InterfaceEvents::lookAtRecord( const Present & of ) {
   const auto * const record = model_.monIntfStatusDir->monIntfStatus( of.intf );
   const Vel::String state = record ? monStateText( record->state() ) : "", from = of.told.state();
   if ( state == from )
      return;
   of.told.stateIs( state );
   writer_.write(
      of.about( "state", InterfaceWords::stateSentence( of.name, state ) ),
      { { "state", InterfaceWords::orNull( state ) }, { "from", InterfaceWords::orNull( from ) } } );
}

void InterfaceEvents::lookAtReason( const Present & of ) {
   const IntfInsight * const insight = model_.insightDir->intf( of.intf );
   const auto * const record = model_.monIntfStatusDir->monIntfStatus( of.intf );
   const Vel::String reason = insight && record ? stringValue( insight->reason() ) : "",
                     from = of.told.reason();
   if ( reason == from )
      return;
   of.told.reasonIs( reason );
   if ( reason.empty() )
      return;
   const auto * const profile = model_.intfProfileStatusDir->status( profileOf( of.intf ) );
   json numbers = InterfaceWords::rates( *record );
   numbers["threshold-bps"] = profile ? json( profile->drainWatchThresholdInKbps() * 1000 ) : json( nullptr );
   numbers["reason"] = reason;
   numbers["from"] = InterfaceWords::orNull( from );
   writer_.write(
      of.about( "reason", InterfaceWords::reasonSentence( of.name, insight->reason(), *record, profile ) ),
      numbers );
}

void InterfaceEvents::lookAtShutdown( const Present & of ) {
   const bool shut = model_.cause->intfStatus( of.intf ) != nullptr;
   if ( shut != of.told.shut() ) {
      of.told.shutIs( shut );
      const bool forced = shut && hooks_.forced( of.intf );
      if ( shut )
         writer_.write(
            of.about(
               "shut", of.name + ( forced ? " is shut although it has not drained: its time is over"
                                          : " is shut: it has drained" ) ),
            { { "forced", forced } } );
      else
         writer_.write( of.about( "released", of.name + " is released" ) );
   }
   const Vel::String drift = hooks_.drift( of.intf );
   if ( drift == of.told.drift() )
      return;
   of.told.driftIs( drift );
   writer_.write(
      of.about( "drift", InterfaceWords::driftSentence( of.name, drift ) ),
      { { "drift", InterfaceWords::orNull( drift ) } } );
}

void InterfaceEvents::lookAtSpike( const Present & of ) {
   const auto * const record = model_.monIntfStatusDir->monIntfStatus( of.intf );
   const bool spike = record && violates( of.intf );
   if ( spike == of.told.spike() ) {
      // To and fro while it was held back; it is told when it stays otherwise.
      return;
   }
   Damper & damper = damped_[of.intf].spike;
   const Vel::U32 changes = std::max( damper.changes(), 1u );
   if ( !mayTell( of.intf, damper ) )
      return;
   of.told.spikeIs( spike );
   json numbers =
      record ? InterfaceWords::rates( *record ) : json{ { "in-bps", nullptr }, { "out-bps", nullptr } };
   numbers["changes"] = changes;
   if ( spike )
      writer_.write(
         of.about(
            "spike-begin", of.name + " carries traffic again: " + InterfaceWords::ratesText( *record ) ),
         numbers );
   else
      writer_.write(
         of.about( "spike-end", of.name + " carries no traffic above its threshold any more" ), numbers );
}

} // namespace Agent
