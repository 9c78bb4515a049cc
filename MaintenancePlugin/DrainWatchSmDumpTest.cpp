#include "MaintenancePlugin/DumpTest.h"

namespace MaintenanceMode {
namespace {

struct DrainWatchSmDump : DumpTest {
   DrainWatchSmDump() { rig.cause->causeGroupNameIs( "maintenance-shutdown" ); }
};

TEST_F( DrainWatchSmDump, ofAFreshRootIsAllZeros ) {
   rig.start();
   EXPECT_EQ(
      counted( R"(DrainWatchSm:
  initialized : true
  numMaintEnter: 0
  numMaintExit: 0
  numMaintExitInMaintModeEnter: 0
  numMaintExitNoUnitMon: 0
  numMaintEnterUnitMonPresent: 0
  numNotifyStageCompletion: 0
  numUnitStatusDel: 0
  numNoVlanStatus: 0
  numNoIntfCounter: 0
  numNoNotifyNoStageInput: 0
  numNoNotifyActiveStageMismatch: 0
  numNoNotifyAlreadyNotified: 0
  numNoNotifyNoUnitStatus: 0
  numIntfMonInitialStatePassive: 0
  numStartIntfMonInUnits: 0
  numStopIntfMonInUnits: 0
  numIntfMonProfileChange: 0
  numIntfMonProfileDelete: 0
  numIntfMonPendingProfileResolved: 0
  numIntfMonDefProfileUpdate: 0
  numIntfMonIntfNotSupported: 0
  numIntfMonNoIntfStatus: 0
  numIntfMonIntfOperNotUp: 0
  refCount: #
  Num unitMon entries: 0
  Num intfMon entries: 0
  Num unitMonIntfInput entries: 0
  Num unitDrainedIntf entries: 0
  Dumping UnitMonSms:
  Dumping IntfMonSms:
  IntfStatusSm codef details:
  bookmark: 
  backlogSize: 0
  backlogQuantum: 0.010000
  updatesSeen: 0
  updatesProcessed: 0
  warm: false
  updatesCoalesced: 0
  timeUsed: 0.000000
  dispatchCount: 0
  yieldBeforeFinishingCount: 0
  MonIntfStatusDir:
    Num monIntfStatus entries: 0
    Num monIntfEnterMaint : 0
    Num monIntfUnderMaint : 0
    Num monIntfSpikeUnderMaint : 0
  Interfaces shutdown for maintenance:
    causeGroup: maintenance-shutdown
    num intfs: 0
)" ),
      dumped( 0 ) );
}

TEST_F( DrainWatchSmDump, ofAFreshRootIndentsTheSectionsButNotItsOwnLines ) {
   rig.start();
   EXPECT_EQ(
      counted( R"(DrainWatchSm:
  initialized : true
  numMaintEnter: 0
  numMaintExit: 0
  numMaintExitInMaintModeEnter: 0
  numMaintExitNoUnitMon: 0
  numMaintEnterUnitMonPresent: 0
  numNotifyStageCompletion: 0
  numUnitStatusDel: 0
  numNoVlanStatus: 0
  numNoIntfCounter: 0
  numNoNotifyNoStageInput: 0
  numNoNotifyActiveStageMismatch: 0
  numNoNotifyAlreadyNotified: 0
  numNoNotifyNoUnitStatus: 0
  numIntfMonInitialStatePassive: 0
  numStartIntfMonInUnits: 0
  numStopIntfMonInUnits: 0
  numIntfMonProfileChange: 0
  numIntfMonProfileDelete: 0
  numIntfMonPendingProfileResolved: 0
  numIntfMonDefProfileUpdate: 0
  numIntfMonIntfNotSupported: 0
  numIntfMonNoIntfStatus: 0
  numIntfMonIntfOperNotUp: 0
  refCount: #
  Num unitMon entries: 0
  Num intfMon entries: 0
  Num unitMonIntfInput entries: 0
  Num unitDrainedIntf entries: 0
  Dumping UnitMonSms:
  Dumping IntfMonSms:
            IntfStatusSm codef details:
            bookmark: 
            backlogSize: 0
            backlogQuantum: 0.010000
            updatesSeen: 0
            updatesProcessed: 0
            warm: false
            updatesCoalesced: 0
            timeUsed: 0.000000
            dispatchCount: 0
            yieldBeforeFinishingCount: 0
            MonIntfStatusDir:
              Num monIntfStatus entries: 0
              Num monIntfEnterMaint : 0
              Num monIntfUnderMaint : 0
              Num monIntfSpikeUnderMaint : 0
            Interfaces shutdown for maintenance:
              causeGroup: maintenance-shutdown
              num intfs: 0
)" ),
      dumped( 10 ) );
}

TEST_F( DrainWatchSmDump, saysWhetherTheRootIsInitialised ) {
   rig.start();
   rig.root->initializedIs( false );
   EXPECT_EQ( 0u, dumped( 0 ).find( "DrainWatchSm:\n  initialized : false\n" ) );
   rig.root->initializedIs( true );
}

TEST_F( DrainWatchSmDump, countsTheUnitsOfEachDirectoryAndTheInterfacesOfEachSet ) {
   rig.start();
   rig.root->unitMonIntfInput()->unitIntfInputIs( "u1" );
   rig.root->unitMonIntfInput()->unitIntfInputIs( "u2" );
   rig.root->unitDrainedIntf()->unitIntfInputIs( "u1" );
   const auto & dir = *rig.monIntfStatusDir;
   for ( const char * name : { "a", "b", "c", "d" } )
      rig.monIntfStatusDir->monIntfStatusIs( PluginRig::port( name ) );
   for ( const char * name : { "a", "b", "c" } )
      rig.monIntfStatusDir->monIntfEnterMaintIs( PluginRig::port( name ), true );
   for ( const char * name : { "a", "b" } )
      rig.monIntfStatusDir->monIntfUnderMaintIs( PluginRig::port( name ), true );
   rig.monIntfStatusDir->monIntfSpikeUnderMaintIs( PluginRig::port( "a" ), true );
   const Vel::String text = dumped( 0 );
   EXPECT_EQ( 4u, dir.monIntfStatuss() );
   for ( const char * line :
         { "\n  Num unitMonIntfInput entries: 2\n", "\n  Num unitDrainedIntf entries: 1\n",
           "\n    Num monIntfStatus entries: 4\n", "\n    Num monIntfEnterMaint : 3\n",
           "\n    Num monIntfUnderMaint : 2\n", "\n    Num monIntfSpikeUnderMaint : 1\n" } )
      EXPECT_NE( Vel::String::npos, text.find( line ) ) << line;
}

TEST_F( DrainWatchSmDump, printsEveryCounterUnderItsOwnName ) {
   rig.start();
   const auto & info = rig.counters().typeInfo();
   Vel::U32 value = 100;
   std::vector< Vel::String > lines;
   for ( const auto & attribute : info.attributes() ) {
      *static_cast< Vel::U32 * >( attribute.raw( rig.counters() ) ) = ++value;
      lines.push_back( Vel::text( "\n  ", attribute.name, ": ", value, "\n" ) );
   }
   ASSERT_EQ( 23u, lines.size() );
   const Vel::String text = dumped( 0 );
   for ( const auto & line : lines )
      EXPECT_NE( Vel::String::npos, text.find( line ) ) << line;
}

TEST_F( DrainWatchSmDump, ofARootWithoutTrackerGoesOnWithTheRecords ) {
   rig.start();
   rig.root->intfStatusSmDel();
   EXPECT_NE( Vel::String::npos, dumped( 0 ).find( "  Dumping IntfMonSms:\n  MonIntfStatusDir:\n" ) );
}

TEST_F( DrainWatchSmDump, ofARootWithoutRecordsAndCausePrintsZeros ) {
   rig.monIntfStatusDir = nullptr;
   rig.cause = nullptr;
   rig.start();
   const Vel::String text = dumped( 0 );
   EXPECT_NE(
      Vel::String::npos, text.find( "  MonIntfStatusDir:\n"
                                    "    Num monIntfStatus entries: 0\n"
                                    "    Num monIntfEnterMaint : 0\n"
                                    "    Num monIntfUnderMaint : 0\n"
                                    "    Num monIntfSpikeUnderMaint : 0\n"
                                    "  Interfaces shutdown for maintenance:\n"
                                    "    causeGroup: \n"
                                    "    num intfs: 0\n" ) );
}

} // namespace
} // namespace MaintenanceMode
