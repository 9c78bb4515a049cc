#include "Tests/Reference/Model.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace Reference;

namespace {

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

TEST_F( ModelTest, drainsOnTheLastSampleOfTheInterval ) {
   join( u1, et1 );
   enter( u1, 3 );
   EXPECT_EQ( published().entering, std::set< Intf >{ et1 } );
   go( 5 );
   go( 5 );
   EXPECT_EQ( record( et1 ).state, MonState::enterMaint );
   EXPECT_FALSE( complete( u1, 3 ) );
   go( 5 );
   EXPECT_EQ( record( et1 ).state, MonState::underMaint );
   EXPECT_EQ( record( et1 ).stateTime, startTime + 15 );
   EXPECT_EQ( record( et1 ).consecutiveDrained, 3u );
   EXPECT_EQ( published().intfMonitors.at( et1 ).timer, startTime + 25 );
   EXPECT_TRUE( complete( u1, 3 ) );
   EXPECT_TRUE( decided( Decision::Kind::under, et1 ) );
   EXPECT_TRUE( decided( Decision::Kind::drained, et1, u1 ) );
   EXPECT_TRUE( decided( Decision::Kind::completed, u1, 3 ) );
   EXPECT_EQ( decisions().size(), 3u );
}

TEST_F( ModelTest, trafficAtTheThresholdBeginsTheIntervalAnew ) {
   join( u1, et1 );
   enter( u1, 3 );
   go( 10 );
   EXPECT_EQ( record( et1 ).consecutiveDrained, 2u );
   carry( et1, 62500, 5 ); // 100 kbit/s
   EXPECT_EQ( record( et1 ).cur, ( Rates{ 1e5, 1e5, startTime + 15 } ) );
   EXPECT_EQ( record( et1 ).consecutiveDrained, 0u );
   EXPECT_EQ( record( et1 ).abovePre, 1u );
   EXPECT_EQ( published().units.at( u1 ).aggregateIn, 100000u );
   go( 10 );
   EXPECT_FALSE( complete( u1, 3 ) );
   EXPECT_EQ( published().units.at( u1 ).aggregateIn, 0u );
   go( 5 );
   EXPECT_TRUE( complete( u1, 3 ) );
}

TEST_F( ModelTest, eachTickOfALongStepHasItsOwnTime ) {
   join( u1, et1 );
   enter( u1, 3 );
   go( 40.5 );
   EXPECT_EQ( record( et1 ).stateTime, startTime + 15 );
   EXPECT_EQ( record( et1 ).totalSamples, 5u );
   EXPECT_EQ( record( et1 ).lastSampleTime, startTime + 35 );
   EXPECT_EQ( published().intfMonitors.at( et1 ).timer, startTime + 45 );
}

TEST_F( ModelTest, timersFireAtTheFirstTickThatIsNotEarly ) {
   join( u1, et1 );
   go( 0.25 );
   enter( u1, 3 );
   go( 5.5 );
   EXPECT_EQ( record( et1 ).totalSamples, 0u );
   go( 0.25 );
   EXPECT_EQ( record( et1 ).totalSamples, 1u );
   EXPECT_EQ( record( et1 ).lastSampleTime, startTime + 6 );
}

TEST_F( ModelTest, busyInterfaceIsShutWhenTheLongestDelayIsOver ) {
   shutdownIs( slow, true );
   maxDelayIs( slow, 10 );
   join( u1, et1 );
   enter( u1, 3 );
   carry( et1, 1000000, 5 );
   EXPECT_TRUE( published().shut.empty() );
   carry( et1, 1000000, 5 );
   EXPECT_EQ( published().shut, ( std::map< Intf, double >{ { et1, startTime + 10 } } ) );
   EXPECT_EQ( record( et1 ).state, MonState::underMaint );
   EXPECT_FALSE( published().intfMonitors.at( et1 ).timer );
   EXPECT_TRUE( complete( u1, 3 ) );
   EXPECT_EQ( published().units.at( u1 ).aggregateOut, 1600000u );
}

TEST_F( ModelTest, interfaceWithoutDelayIsShutWhenItIsFirstWatched ) {
   shutdownIs( slow, true );
   maxDelayIs( slow, 0 );
   join( u1, et1 );
   enter( u1, 3 );
   EXPECT_EQ( published().shut.count( et1 ), 1u );
   EXPECT_TRUE( published().entering.empty() );
   EXPECT_EQ( published().unitMonitors.at( u1 ).drained, std::set< Intf >{ et1 } );
   EXPECT_TRUE( complete( u1, 3 ) );
}

TEST_F( ModelTest, sharedInterfaceDrainsForBothUnitsAndStaysWatchedForTheSecond ) {
   join( u1, et1 );
   join( u2, et1 );
   enter( u1, 3 );
   go( 15 );
   enter( u2, 7 );
   EXPECT_TRUE( complete( u2, 7 ) );
   EXPECT_EQ( published().intfMonitors.at( et1 ).dependents, ( std::set< Unit >{ u1, u2 } ) );
   inMaintenance( u1, 3 );
   begin( StageClass::exit, u1, 4 );
   EXPECT_TRUE( complete( u1, 4, StageClass::exit ) );
   EXPECT_EQ( record( et1 ).state, MonState::underMaint );
   EXPECT_EQ( published().unitMonitors.count( u1 ), 0u );
   inMaintenance( u2, 7 );
   begin( StageClass::exit, u2, 8 );
   EXPECT_TRUE( published().records.empty() );
   EXPECT_TRUE( published().under.empty() );
   EXPECT_TRUE( published().intfMonitors.empty() );
}

TEST_F( ModelTest, firstUnitToLeaveADownInterfaceStopsItForAll ) {
   shutdownIs( slow, true );
   join( u1, et1 );
   join( u2, et1 );
   enter( u1, 3 );
   enter( u2, 3 );
   go( 15 );
   tellOf( EventKind::linkDown, et1 );
   turn();
   EXPECT_EQ( published().unitMonitors.at( u2 ).monitored.count( et1 ), 1u );
   inMaintenance( u1, 3 );
   begin( StageClass::exit, u1, 4 );
   EXPECT_EQ( record( et1 ).state, MonState::stopped );
   EXPECT_TRUE( published().shut.empty() );
   EXPECT_EQ( published().under, std::set< Intf >{ et1 } );
   EXPECT_FALSE( published().intfMonitors.at( et1 ).timer );
   EXPECT_TRUE( decided( Decision::Kind::stopped, et1 ) );
   EXPECT_TRUE( decided( Decision::Kind::released, et1 ) );
}

TEST_F( ModelTest, restartGoesOnWithTheRecordThatIsThere ) {
   join( u1, et1 );
   join( u2, et2 );
   enter( u1, 3 );
   enter( u2, 3 );
   go( 10 );
   const Record before = record( et1 );
   tell( of( EventKind::crash ) );
   EXPECT_TRUE( published().intfMonitors.empty() );
   EXPECT_EQ( record( et1 ), before );
   tellUnit( EventKind::unitState, u2, 0 );
   tell( of( EventKind::start ) );
   EXPECT_EQ( record( et1 ), before );
   EXPECT_EQ( published().records.count( et2 ), 0u );
   EXPECT_TRUE( decided( Decision::Kind::entering, et1 ) );
   EXPECT_TRUE( decided( Decision::Kind::joined, et1, u1 ) );
   go( 5 );
   EXPECT_TRUE( complete( u1, 3 ) );
}

TEST_F( ModelTest, restartCompletesAnExitThatWasUnderWay ) {
   join( u1, et1 );
   enter( u1, 3 );
   go( 15 );
   inMaintenance( u1, 3 );
   tell( of( EventKind::crash ) );
   begin( StageClass::exit, u1, 4 );
   tell( of( EventKind::start ) );
   EXPECT_TRUE( complete( u1, 4, StageClass::exit ) );
   EXPECT_TRUE( published().records.empty() );
   EXPECT_EQ( published().counters[5], 0u );
}

TEST_F( ModelTest, restartForgetsCompletionsOfInstancesThatHaveGone ) {
   join( u1, et1 );
   enter( u1, 3 );
   go( 15 );
   tell( of( EventKind::crash ) );
   tellStage( EventKind::completionGone, StageClass::enter, u1, 3 );
   EXPECT_TRUE( complete( u1, 3 ) );
   tellUnit( EventKind::unitState, u1, 0 );
   tell( of( EventKind::start ) );
   EXPECT_FALSE( complete( u1, 3 ) );
}

TEST_F( ModelTest, anotherProfileKeepsTheRunOfQuietSamples ) {
   join( u1, et1 );
   enter( u1, 3 );
   go( 6 );
   select( et1, quick );
   EXPECT_EQ( record( et1 ).profile, slow );
   turn();
   EXPECT_EQ( record( et1 ).profile, quick );
   EXPECT_EQ( record( et1 ).consecutiveDrained, 1u );
   EXPECT_EQ( published().intfMonitors.at( et1 ).timer, startTime + 11 );
   EXPECT_EQ( counter( 16 ), 1u );
   go( 5 );
   EXPECT_TRUE( complete( u1, 3 ) );
}

TEST_F( ModelTest, deletedProfileIsHeldUntilAnotherOneIsSelected ) {
   join( u1, et1 );
   enter( u1, 3 );
   Event gone = of( EventKind::profileGone );
   gone.profile = slow;
   tell( gone );
   EXPECT_EQ( counter( 17 ), 1u );
   Event made = of( EventKind::profileMade );
   made.profile = slow;
   made.thresholdKbps = 0;
   tell( made );
   EXPECT_EQ( counter( 18 ), 0u );
   go( 15 );
   EXPECT_TRUE( complete( u1, 3 ) ) << "still by the values of the one that has gone";
}

TEST_F( ModelTest, shutdownSwitchedOffUnderMaintenanceReleasesAtOnce ) {
   shutdownIs( slow, true );
   join( u1, et1 );
   enter( u1, 3 );
   go( 17 );
   EXPECT_EQ( published().shut.at( et1 ), startTime + 15 );
   shutdownIs( slow, false );
   EXPECT_TRUE( decided( Decision::Kind::released, et1 ) );
   EXPECT_EQ( published().intfMonitors.at( et1 ).timer, startTime + 27 );
   shutdownIs( slow, true );
   EXPECT_EQ( published().shut.at( et1 ), startTime + 17 );
   EXPECT_FALSE( published().intfMonitors.at( et1 ).timer );
}

TEST_F( ModelTest, violationCountsEverySampleAndTheSpikeStays ) {
   join( u1, et1 );
   enter( u1, 3 );
   go( 15 );
   inMaintenance( u1, 3 );
   carry( et1, 1000000, 10 );
   carry( et1, 1000000, 10 );
   EXPECT_EQ( published().units.at( u1 ).violating, std::set< Intf >{ et1 } );
   EXPECT_EQ( published().units.at( u1 ).totalViolations, 2u );
   go( 10 );
   EXPECT_TRUE( published().units.at( u1 ).violating.empty() );
   EXPECT_EQ( published().units.at( u1 ).totalViolations, 2u );
   EXPECT_TRUE( record( et1 ).spike );
   EXPECT_EQ( published().spikes, std::set< Intf >{ et1 } );
   EXPECT_EQ( record( et1 ).abovePost, 2u );
   EXPECT_EQ( record( et1 ).consecutiveDrained, 3u );
}

TEST_F( ModelTest, portChannelSumsAndVlanTakesTheBusiest ) {
   for ( const Intf port : { et1, et2 } ) {
      Event member = of( EventKind::lagMember );
      member.intf = port;
      member.other = bond1;
      tell( member );
      Event vlanMember = of( EventKind::vlanMember );
      vlanMember.intf = port;
      vlanMember.number = 10;
      if ( port == et1 )
         tellUnit( EventKind::vlanMade, none, 10 );
      tell( vlanMember );
   }
   join( u1, bond1 );
   join( u1, vlan10 );
   enter( u1, 3 );
   EXPECT_EQ( record( bond1 ).lastSampleTime, 0 );
   octets( et2, 2500, std::nullopt );
   carry( et1, 1250, 5 );
   EXPECT_EQ( record( bond1 ).cur, ( Rates{ 6000, 2000, startTime + 5 } ) );
   EXPECT_EQ( record( vlan10 ).cur, ( Rates{ 4000, 2000, startTime + 5 } ) );
   EXPECT_EQ( published().units.at( u1 ).aggregateIn, 10000u );
   EXPECT_EQ( published().units.at( u1 ).aggregateOut, 4000u );
}

TEST_F( ModelTest, interfaceLeavesAtOnceAndJoinsThroughTheBacklog ) {
   join( u1, et1 );
   enter( u1, 3 );
   EXPECT_FALSE( complete( u1, 3 ) );
   leave( u1, et1 );
   EXPECT_TRUE( decided( Decision::Kind::left, et1, u1 ) );
   EXPECT_TRUE( complete( u1, 3 ) );
   EXPECT_TRUE( published().records.empty() );
   Event back = of( EventKind::entryGroup );
   back.intf = et1;
   back.group = u1;
   tell( back );
   EXPECT_EQ( published().backlog, std::set< Intf >{ et1 } );
   EXPECT_TRUE( published().records.empty() );
   turn();
   EXPECT_EQ( published().unitMonitors.at( u1 ).monitored, std::set< Intf >{ et1 } );
   EXPECT_TRUE( published().backlog.empty() );
}

TEST_F( ModelTest, unloadLetsGoOfEverythingAndCompletesNothing ) {
   shutdownIs( slow, true );
   join( u1, et1 );
   join( u1, et2 );
   enter( u1, 3 );
   go( 10 );
   carry( et2, 1000000, 5 );
   EXPECT_EQ( published().shut.count( et1 ), 1u );
   EXPECT_NE( published().units.at( u1 ).aggregateIn, 0u );
   tell( of( EventKind::unload ) );
   EXPECT_TRUE( published().shut.empty() );
   EXPECT_TRUE( published().records.empty() );
   EXPECT_TRUE( published().entering.empty() );
   EXPECT_TRUE( published().under.empty() );
   EXPECT_TRUE( published().complete.empty() );
   EXPECT_EQ( published().units.at( u1 ).aggregateIn, 0u );
}

} // namespace
