#include "MaintenancePlugin/PluginRig.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

struct DrainWatchSmDump : testing::Test {
   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );

   DrainWatchSmDump() {
      rig.profileIs( "p", 100, 10, true, 1000 );
      rig.defaultProfileIs( "p" );
      rig.cause->causeGroupNameIs( "maintenance-shutdown" );
   }
   Vel::String dumped( unsigned indent ) {
      return PluginRig::written( [&]( int fd ) { rig.root->dump( fd, indent ); } );
   }
   /// What the child writes when it is asked itself.
   template < class Child >
   static Vel::String dumpedBy( const Child & child, unsigned indent ) {
      return PluginRig::written( [&]( int fd ) { child->dump( fd, indent ); } );
   }
   /// The root's own lines up to the monitors, with its present values.
   Vel::String ownLines() {
      const auto & c = rig.counters();
      const auto & root = *rig.root;
      return Vel::text(
         "DrainWatchSm:\n"
         "  initialized : true\n"
         "  numMaintEnter: ",
         c.numMaintEnter(),
         "\n"
         "  numMaintExit: ",
         c.numMaintExit(),
         "\n"
         "  numMaintExitInMaintModeEnter: ",
         c.numMaintExitInMaintModeEnter(),
         "\n"
         "  numMaintExitNoUnitMon: ",
         c.numMaintExitNoUnitMon(),
         "\n"
         "  numMaintEnterUnitMonPresent: ",
         c.numMaintEnterUnitMonPresent(),
         "\n"
         "  numNotifyStageCompletion: ",
         c.numNotifyStageCompletion(),
         "\n"
         "  numUnitStatusDel: ",
         c.numUnitStatusDel(),
         "\n"
         "  numNoVlanStatus: ",
         c.numNoVlanStatus(),
         "\n"
         "  numNoIntfCounter: ",
         c.numNoIntfCounter(),
         "\n"
         "  numNoNotifyNoStageInput: ",
         c.numNoNotifyNoStageInput(),
         "\n"
         "  numNoNotifyActiveStageMismatch: ",
         c.numNoNotifyActiveStageMismatch(),
         "\n"
         "  numNoNotifyAlreadyNotified: 0\n"
         "  numNoNotifyNoUnitStatus: ",
         c.numNoNotifyNoUnitStatus(),
         "\n"
         "  numIntfMonInitialStatePassive: ",
         c.numIntfMonInitialStatePassive(),
         "\n"
         "  numStartIntfMonInUnits: ",
         c.numStartIntfMonInUnits(),
         "\n"
         "  numStopIntfMonInUnits: ",
         c.numStopIntfMonInUnits(),
         "\n"
         "  numIntfMonProfileChange: ",
         c.numIntfMonProfileChange(),
         "\n"
         "  numIntfMonProfileDelete: ",
         c.numIntfMonProfileDelete(),
         "\n"
         "  numIntfMonPendingProfileResolved: ",
         c.numIntfMonPendingProfileResolved(),
         "\n"
         "  numIntfMonDefProfileUpdate: ",
         c.numIntfMonDefProfileUpdate(),
         "\n"
         "  numIntfMonIntfNotSupported: ",
         c.numIntfMonIntfNotSupported(),
         "\n"
         "  numIntfMonNoIntfStatus: ",
         c.numIntfMonNoIntfStatus(),
         "\n"
         "  numIntfMonIntfOperNotUp: ",
         c.numIntfMonIntfOperNotUp(),
         "\n"
         "  refCount: ",
         root.getRefCount(),
         "\n"
         "  Num unitMon entries: ",
         root.unitMons(),
         "\n"
         "  Num intfMon entries: ",
         root.intfMons(),
         "\n"
         "  Num unitMonIntfInput entries: ",
         root.unitMonIntfInput()->unitIntfInputs(),
         "\n"
         "  Num unitDrainedIntf entries: ",
         root.unitDrainedIntf()->unitIntfInputs(), "\n" );
   }
   /// Two units that share an interface, one of the interfaces shut.
   void busyWorld() {
      for ( const auto & intf : { et1, et2 } )
         rig.linkIs( intf );
      rig.trafficIs( et2, { 1e9, 1e9 } );
      rig.unitIs( "u1", { et1, et2 } );
      rig.unitIs( "u2", { et2 } );
      rig.start();
      rig.enter( "u1" );
      rig.enter( "u2" );
      rig.advance( 17.5 );
   }
};

TEST_F( DrainWatchSmDump, ofAFreshRootIsAllZeros ) {
   rig.start();
   EXPECT_EQ(
      Vel::text(
         "DrainWatchSm:\n"
         "  initialized : true\n"
         "  numMaintEnter: 0\n"
         "  numMaintExit: 0\n"
         "  numMaintExitInMaintModeEnter: 0\n"
         "  numMaintExitNoUnitMon: 0\n"
         "  numMaintEnterUnitMonPresent: 0\n"
         "  numNotifyStageCompletion: 0\n"
         "  numUnitStatusDel: 0\n"
         "  numNoVlanStatus: 0\n"
         "  numNoIntfCounter: 0\n"
         "  numNoNotifyNoStageInput: 0\n"
         "  numNoNotifyActiveStageMismatch: 0\n"
         "  numNoNotifyAlreadyNotified: 0\n"
         "  numNoNotifyNoUnitStatus: 0\n"
         "  numIntfMonInitialStatePassive: 0\n"
         "  numStartIntfMonInUnits: 0\n"
         "  numStopIntfMonInUnits: 0\n"
         "  numIntfMonProfileChange: 0\n"
         "  numIntfMonProfileDelete: 0\n"
         "  numIntfMonPendingProfileResolved: 0\n"
         "  numIntfMonDefProfileUpdate: 0\n"
         "  numIntfMonIntfNotSupported: 0\n"
         "  numIntfMonNoIntfStatus: 0\n"
         "  numIntfMonIntfOperNotUp: 0\n"
         "  refCount: ",
         rig.root->getRefCount(),
         "\n"
         "  Num unitMon entries: 0\n"
         "  Num intfMon entries: 0\n"
         "  Num unitMonIntfInput entries: 0\n"
         "  Num unitDrainedIntf entries: 0\n"
         "  Dumping UnitMonSms:\n"
         "  Dumping IntfMonSms:\n",
         dumpedBy( rig.root->intfStatusSm(), 2 ),
         "  MonIntfStatusDir:\n"
         "    Num monIntfStatus entries: 0\n"
         "    Num monIntfEnterMaint : 0\n"
         "    Num monIntfUnderMaint : 0\n"
         "    Num monIntfSpikeUnderMaint : 0\n"
         "  Interfaces shutdown for maintenance:\n"
         "    causeGroup: maintenance-shutdown\n"
         "    num intfs: 0\n" ),
      dumped( 0 ) );
   EXPECT_GT( rig.root->getRefCount(), 0u );
}

TEST_F( DrainWatchSmDump, hasTheMonitorsAndShutdownsInTheirPlaces ) {
   busyWorld();
   const DrainWatchSm & root = *rig.root;
   const double since = *rig.cause->intfStatus( et1 );
   char shut[100];
   std::snprintf( shut, sizeof shut, "et1 at %f (%fs ago)\n", since, rig.now() - since );
   EXPECT_EQ(
      Vel::text(
         ownLines(), "  Dumping UnitMonSms:\n", dumpedBy( root.unitMon( "u1" ), 2 ),
         dumpedBy( root.unitMon( "u2" ), 2 ), "  Dumping IntfMonSms:\n", dumpedBy( root.intfMon( et1 ), 2 ),
         dumpedBy( root.intfMon( et2 ), 2 ), dumpedBy( root.intfStatusSm(), 2 ),
         "  MonIntfStatusDir:\n"
         "    Num monIntfStatus entries: 2\n"
         "    Num monIntfEnterMaint : 1\n"
         "    Num monIntfUnderMaint : 1\n"
         "    Num monIntfSpikeUnderMaint : 0\n"
         "  Interfaces shutdown for maintenance:\n"
         "    causeGroup: maintenance-shutdown\n"
         "    num intfs: 1\n"
         "      ",
         shut ),
      dumped( 0 ) );
   EXPECT_GT( rig.now() - since, 0.0 );
}

TEST_F( DrainWatchSmDump, indentsTheSectionsButNotItsOwnLines ) {
   busyWorld();
   const DrainWatchSm & root = *rig.root;
   const Vel::String text = dumped( 10 );
   EXPECT_EQ( 0u, text.find( ownLines() + "  Dumping UnitMonSms:\n            Unit: u1\n" ) );
   const Vel::String at12( 12, ' ' ), at14( 14, ' ' ), at16( 16, ' ' );
   const double since = *rig.cause->intfStatus( et1 );
   char shut[100];
   std::snprintf( shut, sizeof shut, "et1 at %f (%fs ago)\n", since, rig.now() - since );
   EXPECT_EQ(
      Vel::text(
         ownLines(), "  Dumping UnitMonSms:\n", dumpedBy( root.unitMon( "u1" ), 12 ),
         dumpedBy( root.unitMon( "u2" ), 12 ), "  Dumping IntfMonSms:\n", dumpedBy( root.intfMon( et1 ), 12 ),
         dumpedBy( root.intfMon( et2 ), 12 ), dumpedBy( root.intfStatusSm(), 12 ), at12,
         "MonIntfStatusDir:\n", at14, "Num monIntfStatus entries: 2\n", at14, "Num monIntfEnterMaint : 1\n",
         at14, "Num monIntfUnderMaint : 1\n", at14, "Num monIntfSpikeUnderMaint : 0\n", at12,
         "Interfaces shutdown for maintenance:\n", at14, "causeGroup: maintenance-shutdown\n", at14,
         "num intfs: 1\n", at16, shut ),
      text );
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

struct DrainWatchSmDebugCountersTest : testing::Test {};

TEST_F( DrainWatchSmDebugCountersTest, beginAtZeroInTheirOrder ) {
   const auto counters = Vel::make< DrainWatchSmDebugCounters >();
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
   const auto & attributes = counters->typeInfo().attributes();
   ASSERT_EQ( std::size( names ), attributes.size() );
   for ( std::size_t i = 0; i < attributes.size(); ++i ) {
      EXPECT_STREQ( names[i], attributes[i].name );
      EXPECT_EQ( 0u, *static_cast< Vel::U32 * >( attributes[i].raw( *counters ) ) );
   }
   counters->numMaintEnterInc( 2 );
   counters->numMaintEnterInc( 1 );
   EXPECT_EQ( 3u, counters->numMaintEnter() );
   counters->numMaintEnterIs( 9 );
   EXPECT_EQ( 9u, counters->numMaintEnter() );
}

} // namespace
} // namespace MaintenanceMode
