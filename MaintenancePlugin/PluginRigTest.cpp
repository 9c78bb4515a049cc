#include "MaintenancePlugin/PluginRig.h"
#include "MaintenancePlugin/Recorded.h"
#include "Platform/Model/StageWritesTest.h"

#include <gtest/gtest.h>

#include <algorithm>

/// The world of the tests keeps to what the framework and the switch promise.
namespace MaintenanceMode {
namespace {

/// What is told of the interfaces' status and causes and, between them, the traces of the backlog.
struct LinkSequence : Sequence {
   explicit LinkSequence( PluginRig & rig ) : Sequence( "IntfStatusSm" ) {
      cause_.is( rig.cause, this ).hasNotificationActiveIs( true );
      status_.is( Vel::Ptr( rig.allIntfStatusDir->intfStatus( PluginRig::port( "et1" ) ) ), this )
         .hasNotificationActiveIs( true );
   }
   struct VelCause final : Vel::ReactorTo< LinkSequence, Errdisable::CauseStatus > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const Wire::IntfId & intf ) override {
         sm()->note( entity()->intfStatus( intf ) ? "shut" : "released" );
      }
   };
   struct VelStatus final : Vel::ReactorTo< LinkSequence, Interface::IntfStatus > {
      using ReactorTo::ReactorTo;
      void onOperStatus() override { sm()->note( entity()->operStatus() ); }
   };
   /// Only these lines, in the order in which they were noted.
   Lines those( const Lines & wanted ) {
      Lines result;
      for ( const Vel::String & line : lines() )
         if ( std::find( wanted.begin(), wanted.end(), line ) != wanted.end() )
            result.push_back( line );
      return result;
   }

 private:
   Vel::Watch< VelCause > cause_;
   Vel::Watch< VelStatus > status_;
};

struct RigLinks : testing::Test {
   const Wire::IntfId et1 = PluginRig::port( "et1" );

   /// A unit has shut the interface.
   void shutByUnit( PluginRig & rig ) {
      rig.profileIs( "p", 100, 10, true, 0 );
      rig.defaultProfileIs( "p" );
      rig.linkIs( et1 );
      rig.unitIs( "u1", { et1 } );
      rig.start();
      rig.enter( "u1" );
      rig.settle();
      ASSERT_TRUE( rig.shut( et1 ) );
   }
};

TEST_F( RigLinks, keepTheirStatusWhileTheyAreShutAndAfterwards ) {
   PluginRig rig;
   rig.linkIs( et1 );
   LinkSequence sequence( rig );
   rig.cause->intfStatusIs( et1, rig.now() );
   rig.settle();
   rig.advance( 20 );
   rig.cause->intfStatusDel( et1 );
   rig.settle();
   rig.advance( 20 );
   EXPECT_EQ( ( Lines{ "shut", "released" } ), sequence.lines() );
   EXPECT_EQ( Interface::operUp, rig.allIntfStatusDir->intfStatus( et1 )->operStatus() );
}

TEST_F( RigLinks, mayFallInOneChangeInALaterEventThanTheEntryThatShutsThem ) {
   PluginRig rig( PluginRig::ShutLinks::goDown );
   rig.linkIs( et1 );
   LinkSequence sequence( rig );
   rig.cause->intfStatusIs( et1, rig.now() );
   EXPECT_EQ( ( Lines{ "shut" } ), sequence.lines() );
   EXPECT_EQ( Interface::operUp, rig.allIntfStatusDir->intfStatus( et1 )->operStatus() );
   rig.settle();
   EXPECT_EQ( ( Lines{ "shut", "operDown" } ), sequence.lines() );
}

TEST_F( RigLinks, thatHaveFallenComeBackInOneChangeInALaterEventBeforeTheBacklogLooksAtThem ) {
   PluginRig rig( PluginRig::ShutLinks::goDown );
   shutByUnit( rig );
   ASSERT_EQ( Interface::operDown, rig.allIntfStatusDir->intfStatus( et1 )->operStatus() );
   LinkSequence sequence( rig );
   rig.exit( "u1" );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( Interface::operDown, rig.allIntfStatusDir->intfStatus( et1 )->operStatus() );
   rig.settle();
   EXPECT_EQ(
      ( Lines{ "released", "operUp", "processBacklog: intf et1" } ),
      sequence.those( { "shut", "released", "operUp", "operDown", "processBacklog: intf et1" } ) );
}

/// A unit's way through both stage classes.
struct RigStages : testing::Test {
   RigStages() {
      writes.unitIs( &rig.unit( "u1" ) );
      writes.classIs( "enter", rig.enterClass.progressDir, rig.enterClass.completionStatus );
      writes.classIs( "exit", rig.exitClass.progressDir, rig.exitClass.completionStatus );
   }
   PluginRig rig;
   Stage::StageWrites writes;
};

TEST_F( RigStages, beginWithEverythingBeforeTheStageItself ) {
   rig.enter( "u1" );
   EXPECT_EQ(
      ( Lines{
         "state enterInProgress",
         "generation 1",
         "enter instance \"u1#1\"",
         "enter: + u1#1",
         "enter: status of drainwatch 1",
         "enter: completion status + u1#1",
         "enter: stage drainwatch",
      } ),
      writes.taken() );
}

TEST_F( RigStages, endTheEnterBeforeTheExitBegins ) {
   rig.enter( "u1" );
   rig.entered( "u1" );
   writes.taken();
   rig.exit( "u1" );
   EXPECT_EQ(
      ( Lines{
         "enter: - u1#1",
         "enter: completion status - u1#1",
         "state exitInProgress",
         "generation 2",
         "enter instance \"\"",
         "exit instance \"u1#2\"",
         "exit: + u1#2",
         "exit: status of drainwatch 1",
         "exit: completion status + u1#2",
         "exit: stage drainwatch",
      } ),
      writes.taken() );
}

} // namespace
} // namespace MaintenanceMode
