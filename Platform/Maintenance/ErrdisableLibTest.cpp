#include "Platform/Maintenance/ErrdisableLib.h"

#include <gtest/gtest.h>

namespace {

const Wire::EthIntfId et1( "et1" );

struct ErrdisableLibTest : testing::Test {
   Vel::Ptr< Ledger::EntityManager > em =
      Vel::make< Ledger::EntityManager >( []( std::function< void() > ) {} );

   void causeIs() {
      em->entityIs( "interface/errdisable/cause/flood", "Errdisable::CauseStatus" );
      em->entityIs( "interface/errdisable/causegroup/flood", "Errdisable::CauseGroup" );
   }
   void init() {
      ErrdisableLib::ErrdisableCauseGroupInit(
         em, "flood", false, "Interface has been flooded.", false, true, true, true,
         Errdisable::CauseGroupType::interfaceCause, Errdisable::CauseGroupPriority::normal, "flooded" );
   }
   Vel::Ptr< Errdisable::CauseStatus > status() const {
      return Vel::ptrCast< Errdisable::CauseStatus >( em->getEntity( "interface/errdisable/cause/flood" ) );
   }
   Vel::Ptr< Errdisable::CauseGroup > group() const {
      return Vel::ptrCast< Errdisable::CauseGroup >(
         em->getEntity( "interface/errdisable/causegroup/flood" ) );
   }
};

TEST_F( ErrdisableLibTest, fillsCauseAndGroup ) {
   causeIs();
   init();
   EXPECT_EQ( "flood", status()->name() );
   EXPECT_EQ( "flood", status()->causeGroupName() );
   EXPECT_EQ( "flood", group()->causeName() );
   EXPECT_EQ( "Interface has been flooded.", group()->description() );
   EXPECT_EQ( "flooded", group()->statusText() );
   EXPECT_EQ( Errdisable::CauseGroupType::interfaceCause, group()->type() );
   EXPECT_EQ( Errdisable::CauseGroupPriority::normal, group()->priority() );
   EXPECT_FALSE( group()->configurable() );
   EXPECT_FALSE( group()->recoveryEnabled() );
   EXPECT_TRUE( group()->detectionEnabled() );
   EXPECT_TRUE( group()->linkDown() );
   EXPECT_TRUE( group()->visible() );
}

TEST_F( ErrdisableLibTest, putsEachArgumentInItsPlace ) {
   causeIs();
   for ( unsigned only = 0; only < 5; ++only ) {
      SCOPED_TRACE( only );
      const auto is = [only]( unsigned place ) { return place == only; };
      ErrdisableLib::ErrdisableCauseGroupInit(
         em, "flood", is( 0 ), "description", is( 1 ), is( 2 ), is( 3 ), is( 4 ),
         Errdisable::CauseGroupType( 7 ), Errdisable::CauseGroupPriority( 8 ), "status" );
      EXPECT_EQ( is( 0 ), group()->configurable() );
      EXPECT_EQ( is( 1 ), group()->recoveryEnabled() );
      EXPECT_EQ( is( 2 ), group()->detectionEnabled() );
      EXPECT_EQ( is( 3 ), group()->linkDown() );
      EXPECT_EQ( is( 4 ), group()->visible() );
   }
   EXPECT_EQ( "description", group()->description() );
   EXPECT_EQ( "status", group()->statusText() );
   EXPECT_EQ( Errdisable::CauseGroupType( 7 ), group()->type() );
   EXPECT_EQ( Errdisable::CauseGroupPriority( 8 ), group()->priority() );
   EXPECT_EQ( "flood", status()->causeGroupName() );
}

TEST_F( ErrdisableLibTest, keepsTheInterfacesThatAreHeldDown ) {
   causeIs();
   status()->intfStatusIs( et1, 1700000000.0 );
   init();
   init();
   ASSERT_TRUE( status()->intfStatus( et1 ) );
   EXPECT_EQ( 1700000000.0, *status()->intfStatus( et1 ) );
   EXPECT_EQ( 1u, status()->intfStatuss() );
}

TEST_F( ErrdisableLibTest, isSilentTheSecondTime ) {
   struct Observer {
      struct VelGroup final : Vel::ReactorTo< Observer, Errdisable::CauseGroup > {
         using ReactorTo::ReactorTo;
         void onDescription() override { ++sm()->changes; }
         void onLinkDown() override { ++sm()->changes; }
      };
      Vel::Watch< VelGroup > group;
      unsigned changes = 0;
   } observer;
   causeIs();
   init();
   observer.group.is( group(), &observer ).hasNotificationActiveIs( true );
   init();
   EXPECT_EQ( 0u, observer.changes );
}

TEST_F( ErrdisableLibTest, leavesAbsentEntitiesAbsent ) {
   init();
   EXPECT_EQ( 0u, em->entitys() );
}

TEST_F( ErrdisableLibTest, namesThePathsOfACause ) {
   EXPECT_EQ( "interface/errdisable/cause/flood", ErrdisableLib::causeStatusPath( "flood" ) );
   EXPECT_EQ( "interface/errdisable/causegroup/flood", ErrdisableLib::causeGroupPath( "flood" ) );
}

} // namespace
