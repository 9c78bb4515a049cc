#include "MaintenancePlugin/UnitsTest.h"

#include <functional>
#include <set>

namespace MaintenanceMode {
namespace {

struct DrainWatchSmDebugCountersTest : UnitsTest {};

const char * const names[] = {
   "numMaintEnter",
   "numMaintExit",
   "numMaintExitNoUnitMon",
   "numMaintEnterUnitMonPresent",
   "numMaintExitInMaintModeEnter",
   "numNotifyStageCompletion",
   "numUnitStatusDel",
   "numNoVlanStatus",
   "numNoIntfCounter",
   "numNoNotifyNoStageInput",
   "numNoNotifyActiveStageMismatch",
   "numNoNotifyAlreadyNotified",
   "numNoNotifyNoUnitStatus",
   "numIntfMonInitialStatePassive",
   "numStartIntfMonInUnits",
   "numStopIntfMonInUnits",
   "numIntfMonProfileChange",
   "numIntfMonProfileDelete",
   "numIntfMonPendingProfileResolved",
   "numIntfMonDefProfileUpdate",
   "numIntfMonIntfNotSupported",
   "numIntfMonNoIntfStatus",
   "numIntfMonIntfOperNotUp" };

TEST_F( DrainWatchSmDebugCountersTest, beginAtZeroInTheirOrder ) {
   const auto counters = Vel::make< DrainWatchSmDebugCounters >();
   const auto & attributes = counters->typeInfo().attributes();
   ASSERT_EQ( std::size( names ), attributes.size() );
   for ( std::size_t i = 0; i < attributes.size(); ++i ) {
      EXPECT_STREQ( names[i], attributes[i].name );
      EXPECT_EQ( 0u, *static_cast< Vel::U32 * >( attributes[i].raw( *counters ) ) );
   }
}

/// Each has an operation that adds and one that sets, and both reach it alone.
TEST_F( DrainWatchSmDebugCountersTest, eachIsRaisedSetAndReadByItsOwnOperations ) {
   using Counters = DrainWatchSmDebugCounters;
   struct Operations {
      const char * name;
      void ( *raise )( Counters &, Vel::U32 );
      void ( *set )( Counters &, Vel::U32 );
      Vel::U32 ( *value )( const Counters & );
   };
#define OPERATIONS( counter )                                                                                \
   Operations {                                                                                              \
#      counter,                                                                                              \
         []( Counters & c,                                                                                   \
             Vel::U32                                                                                        \
                n ) { c.counter##Inc( n ); },                                                                \
                                           [](                                                               \
                                              Counters & c,                                                  \
                                              Vel::U32                                                       \
                                                 n ) { c.counter##Is( n ); },                                \
                                                                           [](                               \
                                                                              const Counters &               \
                                                                                 c ) { return c.counter(); } \
   }
   const Operations operations[] = {
      OPERATIONS( numMaintEnter ),
      OPERATIONS( numMaintExit ),
      OPERATIONS( numMaintExitNoUnitMon ),
      OPERATIONS( numMaintEnterUnitMonPresent ),
      OPERATIONS( numMaintExitInMaintModeEnter ),
      OPERATIONS( numNotifyStageCompletion ),
      OPERATIONS( numUnitStatusDel ),
      OPERATIONS( numNoVlanStatus ),
      OPERATIONS( numNoIntfCounter ),
      OPERATIONS( numNoNotifyNoStageInput ),
      OPERATIONS( numNoNotifyActiveStageMismatch ),
      OPERATIONS( numNoNotifyAlreadyNotified ),
      OPERATIONS( numNoNotifyNoUnitStatus ),
      OPERATIONS( numIntfMonInitialStatePassive ),
      OPERATIONS( numStartIntfMonInUnits ),
      OPERATIONS( numStopIntfMonInUnits ),
      OPERATIONS( numIntfMonProfileChange ),
      OPERATIONS( numIntfMonProfileDelete ),
      OPERATIONS( numIntfMonPendingProfileResolved ),
      OPERATIONS( numIntfMonDefProfileUpdate ),
      OPERATIONS( numIntfMonIntfNotSupported ),
      OPERATIONS( numIntfMonNoIntfStatus ),
      OPERATIONS( numIntfMonIntfOperNotUp ) };
#undef OPERATIONS
   ASSERT_EQ( std::size( names ), std::size( operations ) );
   const auto counters = Vel::make< Counters >();
   const CounterChanges changes( *counters );
   for ( const Operations & counter : operations ) {
      SCOPED_TRACE( counter.name );
      counter.set( *counters, 5 );
      counter.raise( *counters, 1 );
      EXPECT_EQ( Vel::text( counter.name, " 6" ), changes.text() );
      EXPECT_EQ( 6u, counter.value( *counters ) );
      counter.set( *counters, 2 );
      EXPECT_EQ( 2u, counter.value( *counters ) );
      counter.set( *counters, 0 );
   }
}

// ---- what each of them counts

/// Where one event counts in several of them, all of these are named.
struct Event {
   const char * counter;
   const char * what;
   const char * moved;
   std::function< void( PluginRig & ) > given;
   std::function< void( PluginRig & ) > when;
};

const Wire::IntfId et1 = PluginRig::port( "et1" );
const Wire::IntfId vlan10 = PluginRig::vlan( "vlan10", 10 );

void nothing( PluginRig & ) {}

/// The unit u1 with et1, full of traffic; not entered.
void unitOfABusyPort( PluginRig & rig ) {
   rig.linkIs( et1 );
   rig.trafficIs( et1, { 1e9, 1e9 } );
   rig.unitIs( "u1", { et1 } );
   rig.settle();
}
void enteredUnit( PluginRig & rig ) {
   unitOfABusyPort( rig );
   rig.enter( "u1" );
}
/// u1 is in maintenance and has no interface.
void emptyUnitInMaintenance( PluginRig & rig ) {
   rig.unitIs( "u1", {} );
   rig.enter( "u1" );
   rig.entered( "u1" );
}
void enterOfGeneration( PluginRig & rig, const char * instanceName ) {
   rig.root->doStageForInstance( "maintEnter", "drainwatch", instanceName );
}
void exitOfGeneration( PluginRig & rig, const char * instanceName ) {
   rig.root->doStageForInstance( "maintExit", "drainwatch", instanceName );
}
void completion( PluginRig & rig ) {
   rig.root->notifyStageCompletion( "u1", 7, Maintenance::Unit::MaintenanceOp::enter );
}

const Event events[] = {
   { "numMaintEnter", "an enter of a busy unit", "numMaintEnter 1", unitOfABusyPort,
     []( PluginRig & rig ) { rig.enter( "u1" ); } },
   { "numMaintExit", "an exit", "numMaintExit 1, numNotifyStageCompletion 1", emptyUnitInMaintenance,
     []( PluginRig & rig ) { rig.exit( "u1" ); } },
   { "numMaintExit", "an exit that the framework does not list", "numMaintExit 1, numNoNotifyNoStageInput 1",
     emptyUnitInMaintenance, []( PluginRig & rig ) { exitOfGeneration( rig, "u1#9" ); } },
   { "numMaintExitNoUnitMon", "an exit of a unit that is not monitored",
     "numMaintExit 1, numMaintExitNoUnitMon 1, numNotifyStageCompletion 1",
     []( PluginRig & rig ) { rig.unit( "u1" ); }, []( PluginRig & rig ) { rig.exit( "u1" ); } },
   { "numMaintEnterUnitMonPresent", "a second enter, which releases a busy interface and reports an exit",
     "numMaintEnter 1, numMaintExit 1, numMaintEnterUnitMonPresent 1, numNoNotifyNoStageInput 2",
     []( PluginRig & rig ) {
        unitOfABusyPort( rig );
        enterOfGeneration( rig, "u1#3" );
     },
     []( PluginRig & rig ) { enterOfGeneration( rig, "u1#4" ); } },
   { "numMaintExitInMaintModeEnter", "an exit during an enter, which releases a busy interface",
     "numMaintExit 1, numMaintExitInMaintModeEnter 1, numNoNotifyNoStageInput 2", enteredUnit,
     []( PluginRig & rig ) { exitOfGeneration( rig, "u1#2" ); } },
   { "numNotifyStageCompletion", "a completion", "numNotifyStageCompletion 1",
     []( PluginRig & rig ) {
        rig.unit( "u1" );
        UnitsTest::listInstance( rig.enterClass, "u1#7" );
     },
     completion },
   { "numUnitStatusDel", "a unit's status is deleted: its interface is released, its exit reported",
     "numUnitStatusDel 1, numNoNotifyNoStageInput 1, numNoNotifyNoUnitStatus 1", enteredUnit,
     []( PluginRig & rig ) { rig.unitStatusDir->statusDel( "u1" ); } },
   { "numNoVlanStatus", "the first look at a VLAN without status", "numMaintEnter 1, numNoVlanStatus 1",
     []( PluginRig & rig ) {
        rig.linkIs( vlan10 );
        rig.unitIs( "u1", { vlan10 } );
        rig.settle();
     },
     []( PluginRig & rig ) { rig.enter( "u1" ); } },
   { "numNoVlanStatus", "a sample of a VLAN without status", "numNoVlanStatus 1",
     []( PluginRig & rig ) {
        rig.linkIs( vlan10 );
        rig.unitIs( "u1", { vlan10 } );
        rig.enter( "u1" );
        rig.advance( 1 );
     },
     []( PluginRig & rig ) { rig.advance( 4 ); } },
   { "numNoIntfCounter", "the first look at a port without counters", "numMaintEnter 1, numNoIntfCounter 1",
     []( PluginRig & rig ) {
        unitOfABusyPort( rig );
        rig.countersDel( et1 );
     },
     []( PluginRig & rig ) { rig.enter( "u1" ); } },
   { "numNoIntfCounter", "a sample of a port without counters", "numNoIntfCounter 1",
     []( PluginRig & rig ) {
        enteredUnit( rig );
        rig.countersDel( et1 );
        rig.advance( 1 );
     },
     []( PluginRig & rig ) { rig.advance( 4 ); } },
   { "numNoIntfCounter", "a port whose counters of the present are missing", "numNoIntfCounter 1",
     []( PluginRig & rig ) {
        rig.linkIs( et1 );
        rig.unitIs( "u1", { et1 } );
        rig.enter( "u1" );
        rig.phyCounterDir->intfCounterDir( et1 )->counterDel( "current" );
        rig.advance( 1 );
     },
     []( PluginRig & rig ) { rig.advance( 4 ); } },
   { "numNoNotifyNoStageInput", "a completion without instance", "numNoNotifyNoStageInput 1",
     []( PluginRig & rig ) { rig.unit( "u1" ); }, completion },
   { "numNoNotifyActiveStageMismatch", "a completion of a stage that is not on",
     "numNoNotifyActiveStageMismatch 1",
     []( PluginRig & rig ) {
        rig.unit( "u1" );
        rig.enterClass.progressDir->progressIs( "u1#7" );
     },
     completion },
   { "numNoNotifyNoUnitStatus", "a completion for a unit that has gone", "numNoNotifyNoUnitStatus 1",
     []( PluginRig & rig ) { UnitsTest::listInstance( rig.enterClass, "u1#7" ); }, completion },
   { "numIntfMonInitialStatePassive",
     "an interface that joins a unit in maintenance; it is drained and reported",
     "numNotifyStageCompletion 1, numIntfMonInitialStatePassive 1, numStartIntfMonInUnits 1",
     []( PluginRig & rig ) {
        emptyUnitInMaintenance( rig );
        rig.linkIs( et1 );
        rig.settle();
        rig.groupMemberIs( "u1", et1 );
     },
     []( PluginRig & rig ) { rig.root->startIntfMonInUnits( et1 ); } },
   { "numStartIntfMonInUnits", "a start that leads nowhere", "numStartIntfMonInUnits 1", nothing,
     []( PluginRig & rig ) { rig.root->startIntfMonInUnits( et1 ); } },
   { "numStopIntfMonInUnits", "a stop of what is in no unit", "numStopIntfMonInUnits 1", nothing,
     []( PluginRig & rig ) { rig.root->stopIntfMonInUnits( et1 ); } },
   { "numIntfMonProfileChange", "a monitor is given another profile", "numIntfMonProfileChange 1",
     []( PluginRig & rig ) {
        enteredUnit( rig );
        rig.profileIs( "q", 100, 10, false, 0 );
     },
     []( PluginRig & rig ) {
        rig.root->intfMon( et1 )->intfProfileIs( rig.intfProfileStatusDir->status( "q" ) );
     } },
   { "numIntfMonProfileDelete", "the profile of a monitor is deleted", "numIntfMonProfileDelete 1",
     enteredUnit, []( PluginRig & rig ) { rig.profileDel( "p" ); } },
   { "numIntfMonPendingProfileResolved", "the profile that a monitor waits for is added",
     "numIntfMonProfileChange 1, numIntfMonPendingProfileResolved 1",
     []( PluginRig & rig ) {
        enteredUnit( rig );
        rig.selectIs( et1, "late" );
     },
     []( PluginRig & rig ) { rig.profileIs( "late", 100, 10, false, 0 ); } },
   { "numIntfMonDefProfileUpdate", "another default for a monitor that uses it",
     "numIntfMonProfileChange 1, numIntfMonDefProfileUpdate 1",
     []( PluginRig & rig ) {
        enteredUnit( rig );
        rig.profileIs( "q", 100, 10, false, 0 );
     },
     []( PluginRig & rig ) { rig.defaultProfileIs( "q" ); } },
   { "numIntfMonIntfNotSupported", "an unsupported interface of a unit; nothing is left to wait for",
     "numMaintEnter 1, numNotifyStageCompletion 1, numIntfMonIntfNotSupported 1",
     []( PluginRig & rig ) {
        rig.unitIs( "u1", { Wire::SubIntfId( "et1.1" ) } );
        rig.settle();
     },
     []( PluginRig & rig ) { rig.enter( "u1" ); } },
   { "numIntfMonIntfNotSupported", "an unsupported interface comes up", "numIntfMonIntfNotSupported 1",
     nothing,
     []( PluginRig & rig ) {
        rig.linkIs( Wire::SubIntfId( "po1.1", Wire::IntfId::Kind::portChannel ) );
        rig.settle();
     } },
   { "numIntfMonNoIntfStatus", "an interface of a unit has no status; nothing is left to wait for",
     "numMaintEnter 1, numNotifyStageCompletion 1, numIntfMonNoIntfStatus 1",
     []( PluginRig & rig ) {
        rig.unitIs( "u1", { et1 } );
        rig.settle();
     },
     []( PluginRig & rig ) { rig.enter( "u1" ); } },
   { "numIntfMonIntfOperNotUp", "an interface of a unit is down; nothing is left to wait for",
     "numMaintEnter 1, numNotifyStageCompletion 1, numIntfMonIntfOperNotUp 1",
     []( PluginRig & rig ) {
        rig.linkIs( et1, false );
        rig.unitIs( "u1", { et1 } );
        rig.settle();
     },
     []( PluginRig & rig ) { rig.enter( "u1" ); } },
   { "numNoNotifyAlreadyNotified", "a completion that was reported before", "numNotifyStageCompletion 1",
     []( PluginRig & rig ) {
        rig.unit( "u1" );
        UnitsTest::listInstance( rig.enterClass, "u1#7" );
        completion( rig );
     },
     completion } };

TEST_F( DrainWatchSmDebugCountersTest, eachRisesByOneWithItsEventAndNoOtherMoves ) {
   std::set< Vel::String > provoked;
   for ( const Event & event : events ) {
      SCOPED_TRACE( event.what );
      PluginRig world;
      world.profileIs( "p", 100, 10, false, 0 );
      world.defaultProfileIs( "p" );
      world.start();
      event.given( world );
      const CounterChanges changes( world.counters() );
      event.when( world );
      EXPECT_EQ( event.moved, changes.text() );
      provoked.insert( event.counter );
   }
   for ( const char * name : names )
      EXPECT_TRUE( provoked.count( name ) ) << name;
}

/// Repeats are not filtered, so there is nothing to count.
TEST_F( DrainWatchSmDebugCountersTest, repeatsAreNeverCountedAsSuch ) {
   for ( const auto & intf : { et1, et2 } )
      rig.linkIs( intf );
   rig.unitIs( "u1", { et1, et2 } );
   rig.unitIs( "u2", { et2 } );
   rig.start();
   for ( int cycle = 0; cycle < 2; ++cycle ) {
      for ( const char * unitName : { "u1", "u2" } )
         rig.enter( unitName );
      rig.advance( 30 );
      for ( const char * unitName : { "u1", "u2" } ) {
         rig.root->notifyStageCompletion( unitName, rig.unit( unitName ).genId(), MaintenanceOp::enter );
         rig.entered( unitName );
      }
      rig.advance( 30 );
      for ( const char * unitName : { "u1", "u2" } ) {
         rig.exit( unitName );
         rig.root->notifyStageCompletion( unitName, rig.unit( unitName ).genId(), MaintenanceOp::exit );
         rig.exited( unitName );
      }
   }
   EXPECT_GE( rig.counters().numNotifyStageCompletion(), 12u );
   EXPECT_EQ( 0u, rig.counters().numNoNotifyAlreadyNotified() );
}

} // namespace
} // namespace MaintenanceMode
