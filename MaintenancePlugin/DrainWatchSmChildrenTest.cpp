#include "MaintenancePlugin/PluginRig.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

struct DrainWatchSmChildren : testing::Test {
   PluginRig rig;
   /// The parameter that the call is refused for.
   template < class Call >
   static Vel::String refused( Call call ) {
      try {
         call();
      } catch ( const Vel::NameInUse & error ) {
         const Vel::String text = error.what();
         const Vel::String begin =
            "Reinstantiating the pointer interface where constructor parameter attribute ";
         EXPECT_EQ( 0u, text.find( begin ) );
         return text.substr( begin.size(), text.find( ' ', begin.size() ) - begin.size() );
      }
      return "not refused";
   }
};

TEST_F( DrainWatchSmChildren, aChildThatIsAskedForAgainIsTheOneThatIsThere ) {
   rig.start();
   DrainWatchSm & root = *rig.root;
   EXPECT_EQ( root.counters(), root.countersIs() );
   EXPECT_EQ( root.monIntfDir(), root.monIntfDirIs() );
   EXPECT_EQ( root.unitMonIntfInput(), root.unitMonIntfInputIs() );
   EXPECT_EQ( root.unitDrainedIntf(), root.unitDrainedIntfIs() );
   EXPECT_EQ( root.timerWheel(), root.timerWheelIs( rig.clock, 1000, 1800, true, 1024 ) );
   EXPECT_EQ(
      root.maintEnterStageHelper(),
      root.maintEnterStageHelperIs(
         "maintEnter", rig.enterClass.progressDir, rig.enterClass.completionStatus,
         rig.enterClass.agentConfig, rig.enterClass.agentStatus, &root ) );
   EXPECT_EQ(
      root.maintExitStageHelper(), root.maintExitStageHelperIs(
                                      "maintExit", rig.exitClass.progressDir, rig.exitClass.completionStatus,
                                      rig.exitClass.agentConfig, rig.exitClass.agentStatus, &root ) );
   EXPECT_EQ(
      root.intfStatusSm(), root.intfStatusSmIs(
                              rig.clock, rig.allIntfStatusDir, rig.intfToGroupDir, rig.groupToUnitDir,
                              root.unitMonIntfInput(), rig.intfGroupStatusDir, &root ) );
   EXPECT_EQ(
      root.intfRateAggSm(),
      root.intfRateAggSmIs( root.monIntfDir(), rig.monIntfStatusDir, rig.unitStatusDir ) );
}

/// The first of its values, in the order of the constructor, that is another one is named.
TEST_F( DrainWatchSmChildren, aChildIsRefusedIfItWasBuiltFromOtherValues ) {
   rig.start();
   DrainWatchSm & root = *rig.root;
   EXPECT_EQ( "_clock", refused( [&] { root.timerWheelIs( nullptr, 100, 1, false, 1 ); } ) );
   EXPECT_EQ( "_tickMsecs", refused( [&] { root.timerWheelIs( rig.clock, 100, 1, false, 1 ); } ) );
   EXPECT_EQ( "_initialMaxTicks", refused( [&] { root.timerWheelIs( rig.clock, 1000, 1, false, 1 ); } ) );
   EXPECT_EQ( "_preserveOrder", refused( [&] { root.timerWheelIs( rig.clock, 1000, 1800, false, 1 ); } ) );
   EXPECT_EQ( "_defaultBucketSize", refused( [&] { root.timerWheelIs( rig.clock, 1000, 1800, true, 1 ); } ) );

   const auto helper =
      [&]( const char * stageClass, bool progress, bool status, bool config, bool agent, bool self ) {
         const auto & e = rig.enterClass;
         return refused( [&] {
            root.maintEnterStageHelperIs(
               stageClass, progress ? Vel::Ptr< const Stage::ProgressDir >( e.progressDir ) : nullptr,
               status ? Vel::Ptr< const Stage::CompletionStatusDir >( e.completionStatus ) : nullptr,
               config ? e.agentConfig : nullptr, agent ? e.agentStatus : nullptr, self ? &root : nullptr );
         } );
      };
   EXPECT_EQ( "_stageClass", helper( "maintExit", false, false, false, false, false ) );
   EXPECT_EQ( "_progressDir", helper( "maintEnter", false, false, false, false, false ) );
   EXPECT_EQ( "_maintStageCompletionStatus", helper( "maintEnter", true, false, false, false, false ) );
   EXPECT_EQ( "_agentConfig", helper( "maintEnter", true, true, false, false, false ) );
   EXPECT_EQ( "_agentStatus", helper( "maintEnter", true, true, true, false, false ) );
   EXPECT_EQ( "_root", helper( "maintEnter", true, true, true, true, false ) );

   const auto tracker =
      [&]( bool clock, bool links, bool members, bool mapping, bool input, bool groups, bool self ) {
         return refused( [&] {
            root.intfStatusSmIs(
               clock ? Vel::Ptr< Vel::Clock >( rig.clock ) : nullptr,
               links ? Vel::Ptr< const Interface::AllIntfStatusDir >( rig.allIntfStatusDir ) : nullptr,
               members ? Vel::Ptr< const IntfMaintenance::IntfToGroupDir >( rig.intfToGroupDir ) : nullptr,
               mapping ? Vel::Ptr< const Maintenance::GroupToUnitDir >( rig.groupToUnitDir ) : nullptr,
               input ? root.unitMonIntfInput() : root.unitDrainedIntf(),
               groups ? Vel::Ptr< const IntfGroup::StatusDir >( rig.intfGroupStatusDir ) : nullptr,
               self ? &root : nullptr );
         } );
      };
   EXPECT_EQ( "_clock", tracker( false, false, false, false, false, false, false ) );
   EXPECT_EQ( "_allIntfStatusDir", tracker( true, false, false, false, false, false, false ) );
   EXPECT_EQ( "_intfToGroupDir", tracker( true, true, false, false, false, false, false ) );
   EXPECT_EQ( "_groupToUnitDir", tracker( true, true, true, false, false, false, false ) );
   EXPECT_EQ( "_unitMonIntfInput", tracker( true, true, true, true, false, false, false ) );
   EXPECT_EQ( "_intfGroupStatusDir", tracker( true, true, true, true, true, false, false ) );
   EXPECT_EQ( "_drainWatchSm", tracker( true, true, true, true, true, true, false ) );

   const auto aggregator = [&]( bool dir, bool records, bool units ) {
      return refused( [&] {
         root.intfRateAggSmIs(
            dir ? Vel::Ptr< const MonitoredIntfDir >( root.monIntfDir() ) : nullptr,
            records ? Vel::Ptr< const Maintenance::MonIntfStatusDir >( rig.monIntfStatusDir ) : nullptr,
            units ? rig.unitStatusDir : nullptr );
      } );
   };
   EXPECT_EQ( "_monIntfDir", aggregator( false, false, false ) );
   EXPECT_EQ( "_monIntfStatusDir", aggregator( true, false, false ) );
   EXPECT_EQ( "_unitStatusDir", aggregator( true, true, false ) );
}

} // namespace
} // namespace MaintenanceMode
