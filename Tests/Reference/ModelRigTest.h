#pragma once

#include "Tests/Reference/Model.h"

#include <gtest/gtest.h>

#include <algorithm>

/// Purpose: tells the model stories in few words.
namespace Reference {

constexpr double startTime = 1000;
constexpr Intf et1 = 0;
constexpr Intf et2 = 1;
constexpr Intf bond1 = 2;
constexpr Intf vlan10 = 3;
constexpr Intf et1sub = 4;
constexpr Unit u1 = 0;
constexpr Unit u2 = 1;
constexpr Profile quick = 0; ///< drains at the first quiet sample
constexpr Profile slow = 1;  ///< needs three of them

/// Tells the model a story in which the plug-in runs, two profiles are there and the links are up. Unit U has group U.
class ModelTest : public testing::Test {
 protected:
   ModelTest() : model_( world() ) {
      for ( const Profile profile : { quick, slow } ) {
         Event made = of( EventKind::profileMade );
         made.profile = profile;
         made.thresholdKbps = 100;
         made.loadInterval = profile == quick ? 0 : 12;
         made.maxDelay = 1000;
         tell( made );
      }
      for ( const Intf intf : { et1, et2, bond1, vlan10, et1sub } ) {
         tellOf( EventKind::linkUp, intf );
         tellOf( EventKind::entryMade, intf );
         select( intf, slow );
      }
      for ( const Unit unit : { u1, u2 } )
         tellGroup( EventKind::groupMade, unit );
      for ( const Intf intf : { et1, et2 } )
         octets( intf, 0, 0 );
      tell( of( EventKind::start ) );
   }

   static World world() {
      World world;
      world.intfs = {
         { IntfKind::ethernet },
         { IntfKind::ethernet },
         { IntfKind::portChannel },
         { IntfKind::vlan, 10 },
         { IntfKind::subInterface } };
      world.units = world.groups = world.profiles = 2;
      world.start = startTime;
      return world;
   }
   static Event of( EventKind kind ) {
      Event event;
      event.kind = kind;
      return event;
   }
   void tell( const Event & event ) { model_.apply( event ); }
   void tellOf( EventKind kind, Intf intf ) {
      Event event = of( kind );
      event.intf = intf;
      tell( event );
   }
   void tellGroup( EventKind kind, Group group, Intf intf = none, Unit unit = none ) {
      Event event = of( kind );
      event.group = group;
      event.intf = intf;
      event.unit = unit;
      tell( event );
   }
   void tellUnit( EventKind kind, Unit unit, int number = none ) {
      Event event = of( kind );
      event.unit = unit;
      event.number = number;
      tell( event );
   }
   void tellStage( EventKind kind, StageClass stageClass, Unit unit, int generation ) {
      Event event = of( kind );
      event.stageClass = stageClass;
      event.unit = unit;
      event.number = generation;
      event.value = 1;
      event.other = 1;
      tell( event );
   }
   void select( Intf intf, Profile profile ) {
      Event cause = of( EventKind::selectionCause );
      cause.intf = intf;
      cause.number = 2;
      tell( cause );
      Event selection = of( EventKind::selection );
      selection.intf = intf;
      selection.profile = profile;
      tell( selection );
   }
   void shutdownIs( Profile profile, bool shutdown ) {
      Event event = of( EventKind::shutdown );
      event.profile = profile;
      event.shutdown = shutdown;
      tell( event );
   }
   void defaultNameIs( Profile profile ) {
      Event event = of( EventKind::defaultName );
      event.profile = profile;
      tell( event );
   }
   void maxDelayIs( Profile profile, double maxDelay ) {
      Event event = of( EventKind::maxDelay );
      event.profile = profile;
      event.maxDelay = maxDelay;
      tell( event );
   }
   void octets( Intf intf, std::uint64_t in, std::optional< std::uint64_t > out ) {
      Event event = of( EventKind::octets );
      event.intf = intf;
      event.in = in;
      event.out = out;
      tell( event );
   }
   /// Lets time go on, after which the port will have carried so much more in both directions.
   void carry( Intf intf, std::uint64_t more, double seconds ) {
      carried_[intf] += more;
      octets( intf, carried_[intf], carried_[intf] );
      go( seconds );
   }
   void go( double seconds ) {
      Event event = of( EventKind::time );
      event.to = now_ += seconds;
      tell( event );
   }
   void turn() { tell( of( EventKind::turn ) ); }
   void join( Unit unit, Intf intf ) {
      Event event = of( EventKind::entryGroup );
      event.intf = intf;
      event.group = unit;
      tell( event );
      tellGroup( EventKind::groupIntf, unit, intf );
      tellGroup( EventKind::mapping, unit, none, unit );
      turn();
   }
   void leave( Unit unit, Intf intf ) {
      Event event = of( EventKind::entryGroupGone );
      event.intf = intf;
      event.group = unit;
      tell( event );
   }
   void begin( StageClass stageClass, Unit unit, int generation ) {
      tellUnit( EventKind::unitMade, unit );
      tellUnit( EventKind::unitState, unit, stageClass == StageClass::enter ? 2 : 5 );
      tellUnit( EventKind::unitGeneration, unit, generation );
      Event instance = of( EventKind::unitInstance );
      instance.unit = unit;
      instance.stageClass = stageClass;
      instance.number = generation;
      tell( instance );
      tellStage( EventKind::progressMade, stageClass, unit, generation );
      tellStage( EventKind::stageStatus, stageClass, unit, generation );
      tellStage( EventKind::completionMade, stageClass, unit, generation );
      tellStage( EventKind::stage, stageClass, unit, generation );
   }
   void enter( Unit unit, int generation ) { begin( StageClass::enter, unit, generation ); }
   void inMaintenance( Unit unit, int generation ) {
      tellUnit( EventKind::unitState, unit, 3 );
      tellStage( EventKind::progressGone, StageClass::enter, unit, generation );
   }

   const Published & published() const { return model_.published(); }
   const std::vector< Decision > & decisions() const { return model_.decisions(); }
   const Record & record( Intf intf ) const { return published().records.at( intf ); }
   bool complete( Unit unit, int generation, StageClass stageClass = StageClass::enter ) const {
      return published().complete.count( { stageClass, unit, generation } ) != 0;
   }
   std::uint32_t counter( std::size_t place ) const { return published().counters.at( place ); }
   /// Whether the last event has decided this now.
   bool decided( Decision::Kind kind, int who, int other = none ) const {
      const auto & all = model_.decisions();
      return std::find( all.begin(), all.end(), Decision{ kind, who, other, now_ } ) != all.end();
   }

 private:
   Model model_;
   double now_ = startTime;
   std::map< Intf, std::uint64_t > carried_;
};

} // namespace Reference
