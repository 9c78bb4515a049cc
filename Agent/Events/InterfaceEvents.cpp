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

namespace {

const Vel::String starvedText = stringValue( Reason::starved );

} // namespace

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
   : writer_( writer ),
     model_( std::move( model ) ),
     hooks_( std::move( hooks ) ),
     pace_( std::move( wheel ) ) {
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
   const auto * const record = model_.monIntfStatusDir->monIntfStatus( intf );
   if ( const ToldInterface * const told = model_.told->interface( intf ) )
      seen( intf, &Dampers::watched, record != nullptr, !told->state().empty() );
   watch( recordReactors_, intf, record, this );
}

void InterfaceEvents::watchInsight( const Wire::IntfId & intf ) {
   changed_.insert( intf );
   watch( insightReactors_, intf, model_.insightDir->intf( intf ), this );
}

/// Only what is configured is told of. A status that is put anew, as all are when the agent starts, is no change.
void InterfaceEvents::linkChanged( const Wire::IntfId & intf ) {
   const ToldInterface * const told = model_.told->interface( intf );
   if ( !told && !model_.intfToGroupDir->intfToGroup( intf ) )
      return;
   changed_.insert( intf );
   const auto * const status = model_.allIntfStatusDir->intfStatus( intf );
   const bool known = !status || status->operStatus() != Interface::operUnknown;
   if ( told && !told->link().empty() && known )
      seen( intf, &Dampers::link, linkOf( intf ), told->link() );
}

/// Told once for each unit that it violates.
void InterfaceEvents::violation( const Wire::IntfId & intf ) {
   changed_.insert( intf );
   if ( const ToldInterface * const told = model_.told->interface( intf ) )
      seen( intf, &Dampers::spike, spikes( intf ), told->spike() );
}

void InterfaceEvents::allChanged() {
   for ( const auto & [intf, entry] : model_.intfToGroupDir->intfToGroupRange() )
      changed_.insert( intf );
   for ( const auto & [intf, told] : model_.told->interfaceRange() )
      changed_.insert( intf );
}

void InterfaceEvents::compareDrift() {
   for ( const auto & [intf, told] : model_.told->interfaceRange() ) {
      const Vel::String drift = hooks_.drift( intf );
      seen( intf, &Dampers::drift, drift, told->drift() );
      if ( drift != told->drift() )
         changed_.insert( intf );
   }
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

Vel::String InterfaceEvents::linkOf( const Wire::IntfId & intf ) const {
   const auto * const status = model_.allIntfStatusDir->intfStatus( intf );
   return !status ? "gone" : status->operStatus() == Interface::operUp ? "up" : "down";
}

/// Whether it is watched, and violates the threshold of a unit under maintenance.
bool InterfaceEvents::spikes( const Wire::IntfId & intf ) const {
   if ( !model_.monIntfStatusDir->monIntfStatus( intf ) )
      return false;
   for ( const std::string & unit : unitsOf( intf ) )
      if ( const auto * const status = model_.unitStatusDir->status( unit ) )
         if ( status->intfsViolatingTrafficThreshold( intf ) )
            return true;
   return false;
}

// ---- what is told

void InterfaceEvents::look() {
   const double now = hooks_.now();
   for ( const Wire::IntfId & intf : pace_.begin( now ) )
      changed_.insert( intf );
   if ( std::exchange( driftChanged_, false ) )
      compareDrift();
   if ( changed_.empty() )
      return;
   for ( const Wire::IntfId & intf : std::exchange( changed_, {} ) )
      lookAt( intf );
   writer_.tell();
   if ( std::exchange( left_, false ) )
      std::erase_if( damped_, [&]( const auto & entry ) {
         const auto & [link, drift, watched, spike, starved, membership] = entry.second;
         return link.quiet( now ) && drift.quiet( now ) && watched.quiet( now ) && spike.quiet( now ) &&
                starved.quiet( now ) && membership.quiet( now );
      } );
   pace_.end();
}

/// All that is there when the log begins has joined long ago.
bool InterfaceEvents::mayTellMembership( const Wire::IntfId & intf ) {
   return writer_.silent() || pace_.mayTell( intf, damped_[intf].membership ) > 0;
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
   lookAtDrift( of );
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
   // If it comes back, it is compared with what is told of it then.
   Dampers & dampers = damped_[of.intf];
   dampers.link.valueDel();
   dampers.drift.valueDel();
   dampers.watched.valueDel();
   dampers.spike.valueDel();
   dampers.starved.valueDel();
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
   const Vel::String link = linkOf( of.intf ), from = of.told.link();
   // What is found at first is no change; a link that has no status yet is not known.
   if ( from.empty() ) {
      if ( model_.allIntfStatusDir->intfStatus( of.intf ) )
         of.told.linkIs( link );
      return;
   }
   seen( of.intf, &Dampers::link, link, from );
   const auto it = damped_.find( of.intf );
   if ( link == from && ( it == damped_.end() || it->second.link.changes() == 0 ) )
      return;
   const Vel::U32 changes = pace_.mayTell( of.intf, it->second.link );
   if ( changes == 0 )
      return;
   of.told.linkIs( link );
   writer_.write(
      of.about( "link", InterfaceWords::link( of.name, link, changes ) ),
      { { "link-state", link }, { "changes", changes } } );
}

/// A link that flaps takes its record along each time. Other changes do not come back by themselves.
void InterfaceEvents::lookAtRecord( const Present & of ) {
   const auto * const record = model_.monIntfStatusDir->monIntfStatus( of.intf );
   const Vel::String state = record ? monStateText( record->state() ) : "", from = of.told.state();
   seen( of.intf, &Dampers::watched, record != nullptr, !from.empty() );
   const auto it = damped_.find( of.intf );
   if ( state == from && ( it == damped_.end() || it->second.watched.changes() == 0 ) )
      return;
   Damper & damper = damped_[of.intf].watched;
   const bool betweenStates = state != from && !state.empty() && !from.empty();
   const Vel::U32 changes = betweenStates ? damper.changes() + 1 : pace_.mayTell( of.intf, damper );
   if ( changes == 0 )
      return;
   damper.changesDel();
   of.told.stateIs( state );
   const bool forced =
      state == "under-maint" && model_.cause->intfStatus( of.intf ) && hooks_.forced( of.intf );
   json more{
      { "state", InterfaceWords::orNull( state ) },
      { "from", InterfaceWords::orNull( from ) },
      { "forced", forced } };
   if ( changes > 1 )
      more["changes"] = changes;
   writer_.write(
      of.about(
         "state", InterfaceWords::stateSentence( of.name, state ) + InterfaceWords::afterChanges( changes ) ),
      more );
}

void InterfaceEvents::lookAtReason( const Present & of ) {
   const IntfInsight * const insight = model_.insightDir->intf( of.intf );
   const auto * const record = model_.monIntfStatusDir->monIntfStatus( of.intf );
   const Vel::String reason = insight && record ? stringValue( insight->reason() ) : "",
                     from = of.told.reason();
   const bool starved = reason == starvedText, wasStarved = from == starvedText;
   // Before it is told that it is watched, or is not any more, nothing is told of why it waits.
   const auto dampers = damped_.find( of.intf );
   if ( dampers != damped_.end() && dampers->second.watched.changes() > 0 )
      return;
   seen( of.intf, &Dampers::starved, starved, wasStarved );
   if ( reason == from )
      return;
   Vel::U32 changes = 0;
   if ( reason.empty() ) {
      of.told.reasonIs( reason );
      if ( const auto it = damped_.find( of.intf ); it != damped_.end() )
         it->second.starved.changesDel();
      return;
   }
   // All other reasons stay for a while by themselves.
   if ( starved != wasStarved ) {
      changes = pace_.mayTell( of.intf, damped_[of.intf].starved );
      if ( changes == 0 )
         return;
   }
   of.told.reasonIs( reason );
   const auto * const profile = model_.intfProfileStatusDir->status( profileOf( of.intf ) );
   json numbers = InterfaceWords::rates( *record );
   numbers["threshold-bps"] = profile ? json( profile->drainWatchThresholdInKbps() * 1000 ) : json( nullptr );
   numbers["reason"] = reason;
   numbers["from"] = InterfaceWords::orNull( from );
   if ( changes > 0 )
      numbers["changes"] = changes;
   writer_.write(
      of.about(
         "reason", InterfaceWords::reasonSentence( of.name, insight->reason(), from, *record, profile ) ),
      numbers );
}

void InterfaceEvents::lookAtShutdown( const Present & of ) {
   const bool shut = model_.cause->intfStatus( of.intf ) != nullptr;
   if ( shut != of.told.shut() ) {
      of.told.shutIs( shut );
      const bool forced = shut && hooks_.forced( of.intf );
      if ( shut ) {
         EventWriter::About about = of.about(
            "shut", of.name + ( forced ? " is to be shut although it has not drained: its time is over"
                                       : " is to be shut: it has drained" ) );
         about.wrong = forced;
         writer_.write( about, { { "forced", forced } } );
      } else
         writer_.write( of.about( "released", of.name + " is released" ) );
   }
}

void InterfaceEvents::lookAtDrift( const Present & of ) {
   const Vel::String drift = hooks_.drift( of.intf );
   seen( of.intf, &Dampers::drift, drift, of.told.drift() );
   if ( drift == of.told.drift() )
      return;
   const Vel::U32 changes = pace_.mayTell( of.intf, damped_[of.intf].drift );
   if ( changes == 0 )
      return;
   of.told.driftIs( drift );
   writer_.write(
      of.about( "drift", InterfaceWords::driftSentence( of.name, drift ) ),
      { { "drift", InterfaceWords::orNull( drift ) }, { "changes", changes } } );
}

void InterfaceEvents::lookAtSpike( const Present & of ) {
   const auto * const record = model_.monIntfStatusDir->monIntfStatus( of.intf );
   const bool spike = spikes( of.intf );
   seen( of.intf, &Dampers::spike, spike, of.told.spike() );
   // To and fro while it was held back is told when it stays otherwise.
   if ( spike == of.told.spike() )
      return;
   const Vel::U32 changes = pace_.mayTell( of.intf, damped_[of.intf].spike );
   if ( changes == 0 )
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
