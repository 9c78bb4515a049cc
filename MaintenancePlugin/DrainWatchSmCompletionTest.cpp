#include "MaintenancePlugin/UnitsTest.h"

namespace MaintenanceMode {
namespace {

// ---- completion

struct DrainWatchSmCompletion : UnitsTest {};

/// The checks come in their order: what fails behind the first failing one is not looked at.
TEST_F( DrainWatchSmCompletion, isRefusedWhereItHasNoPlace ) {
   struct Case {
      const char * what;
      MaintenanceOp op;
      bool instance, listed, running, unit;
      const char * trace;
      const char * counter;
   };
   const char * const noInstance = "notifyStageCompletion: No instance found for genId 7 unitName u1";
   const char * const notActive = "notifyStageCompletion: Unit u1, genId 7 - DrainWatch not among active "
                                  "stages. Not notifying ";
   const char * const noUnit =
      "notifyStageCompletion: Unit u1 ,genId 7does not exit in unit status directory";
   const char * const countNoInstance = "numNoNotifyNoStageInput 1";
   const char * const countNotActive = "numNoNotifyActiveStageMismatch 1";
   const char * const countNoUnit = "numNoNotifyNoUnitStatus 1";
   const auto enter = MaintenanceOp::enter;
   const auto exit = MaintenanceOp::exit;
   for ( const Case & c : {
            Case{ "nothing at all", enter, false, false, false, false, noInstance, countNoInstance },
            Case{ "nothing at exit", exit, false, false, false, false, noInstance, countNoInstance },
            Case{ "no instance", enter, false, false, false, true, noInstance, countNoInstance },
            Case{ "no exit instance", exit, false, false, false, true, noInstance, countNoInstance },
            Case{ "another stage", enter, true, false, false, true, notActive, countNotActive },
            Case{ "another stage at exit", exit, true, false, false, true, notActive, countNotActive },
            Case{ "stage not on", enter, true, true, false, true, notActive, countNotActive },
            Case{ "stage not on, no unit", exit, true, true, false, false, notActive, countNotActive },
            Case{ "no unit", enter, true, true, true, false, noUnit, countNoUnit },
            Case{ "no unit at exit", exit, true, true, true, false, noUnit, countNoUnit },
         } ) {
      SCOPED_TRACE( c.what );
      PluginRig world;
      PluginRig::StageClass & stageClass = c.op == enter ? world.enterClass : world.exitClass;
      // Neighbours that would do: the instance of the other operation, another generation, another unit.
      listInstance( c.op == enter ? world.exitClass : world.enterClass, "u1#7" );
      listInstance( stageClass, "u1#8" );
      world.unit( "u2" );
      if ( c.instance ) {
         auto * progress = stageClass.progressDir->progressIs( "u1#7" );
         progress->stageStatusIs( "other", Stage::stageRunning );
         if ( c.listed )
            progress->stageStatusIs( stageName, c.running ? Stage::stageRunning : Stage::stageInactive );
      }
      if ( c.unit )
         world.unit( "u1" );
      world.start();
      const CounterChanges changes( world.counters() );
      UnitSequence sequence( world );
      world.root->notifyStageCompletion( "u1", 7, c.op );
      EXPECT_EQ( ( Lines{ c.trace, c.counter } ), sequence.lines() );
      EXPECT_EQ( Lines{}, sequence.logged() );
      EXPECT_EQ( c.counter, changes.text() );
      EXPECT_EQ( 0u, world.enterClass.agentStatus->completes() );
      EXPECT_EQ( 0u, world.exitClass.agentStatus->completes() );
   }
}

TEST_F( DrainWatchSmCompletion, isReportedToTheHelperOfItsOperationAndThenCounted ) {
   rig.unit( "u1" );
   listInstance( rig.enterClass, "u1#7" );
   listInstance( rig.exitClass, "u1#9" );
   rig.start();
   const CounterChanges changes( rig.counters() );
   UnitSequence sequence( rig );
   rig.root->notifyStageCompletion( "u1", 7, MaintenanceOp::enter );
   rig.root->notifyStageCompletion( "u1", 9, MaintenanceOp::exit );
   EXPECT_EQ(
      ( Lines{
         "notifyStageCompletion: Unit - u1, genId 7, op 1, stage drainwatch ", "enter complete u1#7",
         "numNotifyStageCompletion 1", "notifyStageCompletion: Unit - u1, genId 9, op 2, stage drainwatch ",
         "exit complete u1#9", "numNotifyStageCompletion 2" } ),
      sequence.lines() );
   EXPECT_EQ(
      ( Lines{
         "Notifying stage completion - unit u1 ,genId 7, stage drainwatch, op 1",
         "Notifying stage completion - unit u1 ,genId 9, stage drainwatch, op 2" } ),
      sequence.logged() );
   EXPECT_EQ( "numNotifyStageCompletion 2", changes.text() );
   EXPECT_TRUE( complete( rig.enterClass, "u1#7" ) );
   EXPECT_TRUE( complete( rig.exitClass, "u1#9" ) );
   EXPECT_EQ( 1u, rig.enterClass.agentStatus->completes() );
   EXPECT_EQ( 1u, rig.exitClass.agentStatus->completes() );
}

TEST_F( DrainWatchSmCompletion, mayBeOfAStageThatIsOverButStillSet ) {
   rig.unit( "u1" );
   listInstance( rig.enterClass, "u1#7" );
   rig.enterClass.progressDir->progress( "u1#7" )->stageStatusIs( stageName, Stage::stageComplete );
   listInstance( rig.enterClass, "u1#8" );
   rig.enterClass.progressDir->progress( "u1#8" )->stageStatusIs( stageName, 9 );
   rig.start();
   for ( const Vel::U32 genId : { 7u, 8u } )
      rig.root->notifyStageCompletion( "u1", genId, MaintenanceOp::enter );
   EXPECT_TRUE( complete( rig.enterClass, "u1#7" ) );
   EXPECT_TRUE( complete( rig.enterClass, "u1#8" ) );
}

TEST_F( DrainWatchSmCompletion, isCountedAgainWhenItIsRepeatedAndStaysOneEntry ) {
   rig.unit( "u1" );
   listInstance( rig.enterClass, "u1#7" );
   rig.start();
   const CounterChanges changes( rig.counters() );
   rig.root->notifyStageCompletion( "u1", 7, MaintenanceOp::enter );
   Vel::TraceCapture traces;
   rig.root->notifyStageCompletion( "u1", 7, MaintenanceOp::enter );
   EXPECT_EQ(
      1u, traces.count( "doStageCompleteForInstance:  stageClass=maintEnter, stage=drainwatch, "
                        "instanceName=u1#7" ) );
   EXPECT_EQ( "numNotifyStageCompletion 2", changes.text() );
   EXPECT_EQ( 1u, rig.enterClass.agentStatus->completes() );
}

TEST_F( DrainWatchSmCompletion, endsQuietlyAfterItsChecksOnceTheHelperIsReleased ) {
   rig.unit( "u1" );
   for ( PluginRig::StageClass * stageClass : { &rig.enterClass, &rig.exitClass } )
      listInstance( *stageClass, "u1#7" );
   rig.start();
   rig.root->maintEnterStageHelperDel();
   rig.root->maintExitStageHelperDel();
   const CounterChanges changes( rig.counters() );
   UnitSequence sequence( rig );
   for ( const auto op : { MaintenanceOp::enter, MaintenanceOp::exit } )
      rig.root->notifyStageCompletion( "u1", 7, op );
   EXPECT_EQ( Lines{}, sequence.lines() );
   EXPECT_EQ( Lines{}, sequence.logged() );
   EXPECT_EQ( "", changes.text() );
   // The checks come first: they count without a helper too.
   rig.root->notifyStageCompletion( "u1", 8, MaintenanceOp::enter );
   EXPECT_EQ( "numNoNotifyNoStageInput 1", changes.text() );
}

TEST_F( DrainWatchSmCompletion, withoutProgressFindsNoInstance ) {
   rig.unit( "u1" );
   rig.enterClass.progressDir = nullptr;
   rig.exitClass.progressDir = nullptr;
   rig.start();
   const CounterChanges changes( rig.counters() );
   for ( const auto op : { MaintenanceOp::enter, MaintenanceOp::exit } )
      rig.root->notifyStageCompletion( "u1", 7, op );
   EXPECT_EQ( "numNoNotifyNoStageInput 2", changes.text() );
}

TEST_F( DrainWatchSmCompletion, withoutTheUnitsDirectoryFindsNoUnit ) {
   rig.unit( "u1" );
   listInstance( rig.enterClass, "u1#7" );
   rig.start();
   rig.root->unitStatusDirDel();
   const CounterChanges changes( rig.counters() );
   rig.root->notifyStageCompletion( "u1", 7, MaintenanceOp::enter );
   EXPECT_EQ( "numNoNotifyNoUnitStatus 1", changes.text() );
}

// ---- the collection of unit monitors

struct DrainWatchSmUnitMon : UnitsTest {
   Vel::Ptr< UnitIntfInput > monIntf = Vel::make< UnitIntfInput >( "u1" );
   Vel::Ptr< UnitIntfInput > drainedIntf = Vel::make< UnitIntfInput >( "u1" );
   Vel::Ptr< UnitIntfInput > other = Vel::make< UnitIntfInput >( "u2" );

   /// Without its entries in the root's directories a monitor could not be released in the ordinary way.
   void inDirectories() {
      rig.root->unitMonIntfInput()->unitIntfInputPut( "u1", monIntf );
      rig.root->unitDrainedIntf()->unitIntfInputPut( "u1", drainedIntf );
   }
   Vel::String refusal(
      DrainWatchSm * root, const Vel::Ptr< UnitIntfInput > & mon,
      const Vel::Ptr< UnitIntfInput > & drained ) {
      try {
         rig.root->unitMonIs( "u1", 9, root, mon, drained );
      } catch ( const Vel::NameInUse & error ) {
         return error.what();
      }
      return "not refused";
   }
   static Vel::String text( const char * attribute, const char * newValue, const char * current ) {
      return Vel::text(
         "Reinstantiating the pointer interface where constructor parameter attribute ", attribute,
         " has a different value of ", newValue, " than the current value of ", current, " not allowed" );
   }
};

TEST_F( DrainWatchSmUnitMon, isBuiltFromItsFiveValuesInsertedAndSwitchedOn ) {
   rig.start();
   inDirectories();
   const auto made = rig.root->unitMonIs( "u1", 3, rig.root.get(), monIntf, drainedIntf );
   EXPECT_EQ( made.get(), rig.root->unitMon( "u1" ) );
   EXPECT_EQ( 1u, rig.root->unitMons() );
   EXPECT_EQ( "u1", made->unitName() );
   EXPECT_EQ( 3u, made->genId() );
   EXPECT_EQ( rig.root.get(), made->rootSm() );
   EXPECT_EQ( monIntf, made->monIntf() );
   EXPECT_EQ( drainedIntf, made->drainedIntf() );
   EXPECT_TRUE( made->initialized() );
   Vel::TraceCapture traces;
   drainedIntf->intfIs( et1, true );
   drainedIntf->intfDel( et1 );
   EXPECT_EQ( 2u, traces.count( "handleDrainedIntf: unit u1" ) );
}

TEST_F( DrainWatchSmUnitMon, isTheOneThatIsThereWithTheNewGeneration ) {
   rig.start();
   inDirectories();
   const auto first = rig.root->unitMonIs( "u1", 3, rig.root.get(), monIntf, drainedIntf );
   const auto second = rig.root->unitMonIs( "u1", 4, rig.root.get(), monIntf, drainedIntf );
   EXPECT_EQ( first, second );
   EXPECT_EQ( 4u, first->genId() );
   EXPECT_EQ( 1u, rig.root->unitMons() );
}

TEST_F( DrainWatchSmUnitMon, isRefusedIfItWasBuiltFromOtherObjects ) {
   rig.start();
   inDirectories();
   rig.root->unitMonIs( "u1", 3, rig.root.get(), monIntf, drainedIntf );
   const char * const u1 = "MaintenanceMode::UnitIntfInput u1";
   const char * const u2 = "MaintenanceMode::UnitIntfInput u2";
   EXPECT_EQ(
      text( "_rootSm", "null", "MaintenanceMode::DrainWatchSm" ), refusal( nullptr, monIntf, drainedIntf ) );
   EXPECT_EQ( text( "_monIntf", u2, u1 ), refusal( rig.root.get(), other, drainedIntf ) );
   EXPECT_EQ( text( "_drainedIntf", u2, u1 ), refusal( rig.root.get(), monIntf, other ) );
   EXPECT_EQ( text( "_drainedIntf", "null", u1 ), refusal( rig.root.get(), monIntf, nullptr ) );
   EXPECT_EQ( text( "_rootSm", "null", "MaintenanceMode::DrainWatchSm" ), refusal( nullptr, other, other ) );
   EXPECT_EQ( text( "_monIntf", u2, u1 ), refusal( rig.root.get(), other, other ) );
   EXPECT_EQ( 3u, rig.root->unitMon( "u1" )->genId() );
}

TEST_F( DrainWatchSmUnitMon, preparesToDieOnceHoweverItIsReleased ) {
   rig.start();
   for ( const char * unitName : { "u1", "u2", "u3" } )
      rig.root->handleUnitMaintenanceEnter( unitName, 1 );
   Vel::TraceCapture traces;
   rig.root->unitMonDel( "u2" );
   EXPECT_EQ( 1u, traces.count( "prepareToDie: unit u2, genId 1" ) );
   rig.root->unitMonDel( "u2" );
   rig.root->unitMonDelAll();
   for ( const char * unitName : { "u1", "u2", "u3" } ) {
      SCOPED_TRACE( unitName );
      EXPECT_EQ( 1u, traces.count( Vel::text( "prepareToDie: unit ", unitName ) ) );
   }
   EXPECT_EQ( 0u, rig.root->unitMons() );
}

} // namespace
} // namespace MaintenanceMode
