#include "Agent/History/TimesRecorder.h"

#include <gtest/gtest.h>

namespace Agent {
namespace {

using Maintenance::Unit::UnitState;

class TimesRecorderTest : public testing::Test {
 protected:
   TimesRecorderTest() {
      units->statusIs( "u1" )->stateIs( UnitState::enterInProgress );
      history->recordIs( 1, "u1" )->endedIs( 5 );
      history->recordIs( 2, "u2" );
      history->recordIs( 3, "u1" );
   }
   void state( UnitState state ) { units->status( "u1" )->stateIs( state ); }
   void set() {
      UnitTimes & times = *dir->unitIs( "u1" );
      times.deadlineIs( 100 );
      times.restoreIs( true );
      times.revertAtIs( 500 );
   }
   HistoryRecord & record( Vel::U32 id = 3 ) { return *history->record( id ); }

   Vel::Ptr< Maintenance::Unit::StatusDir > units = Vel::make< Maintenance::Unit::StatusDir >();
   Vel::Ptr< UnitTimesDir > dir = Vel::make< UnitTimesDir >();
   Vel::Ptr< HistoryDir > history = Vel::make< HistoryDir >();
   TimesRecorder recorder{ { units, dir, history } };
};

TEST_F( TimesRecorderTest, whatIsSetIsWrittenDownInTheOpenRecordOfItsUnit ) {
   set();
   EXPECT_EQ( 100, record().deadline() );
   EXPECT_TRUE( record().restore() );
   EXPECT_EQ( 0, record().overrun() );
   EXPECT_EQ( 500, record().revertAt() );
   for ( const Vel::U32 other : { 1u, 2u } ) {
      EXPECT_EQ( 0, record( other ).deadline() );
      EXPECT_EQ( 0, record( other ).revertAt() );
   }
}

TEST_F( TimesRecorderTest, whatIsSetAnewTakesItsPlace ) {
   set();
   dir->unit( "u1" )->overrunIs( 101 );
   EXPECT_EQ( 101, record().overrun() );
   dir->unit( "u1" )->overrunIs( 0 );
   dir->unit( "u1" )->deadlineIs( 300 );
   dir->unit( "u1" )->revertAtIs( 0 );
   EXPECT_EQ( 300, record().deadline() );
   EXPECT_EQ( 0, record().overrun() );
   EXPECT_EQ( 0, record().revertAt() );
}

TEST_F( TimesRecorderTest, whatHasServedItsPurposeStays ) {
   set();
   state( UnitState::maintenance );
   dir->unit( "u1" )->deadlineIs( 0 );
   dir->unit( "u1" )->restoreIs( false );
   EXPECT_EQ( 100, record().deadline() );
   EXPECT_TRUE( record().restore() );
   state( UnitState::exitInProgress );
   dir->unitDel( "u1" );
   EXPECT_EQ( 100, record().deadline() );
   EXPECT_EQ( 500, record().revertAt() );
}

TEST_F( TimesRecorderTest, aDeadlineThatWasMissedStaysWhenItIsTakenAway ) {
   set();
   UnitTimes & times = *dir->unit( "u1" );
   times.overrunIs( 101 );
   times.deadlineIs( 0 );
   times.overrunIs( 0 );
   times.restoreIs( false );
   EXPECT_EQ( 100, record().deadline() );
   EXPECT_EQ( 101, record().overrun() );
   EXPECT_TRUE( record().restore() );
   dir->unitDel( "u1" );
   EXPECT_EQ( 101, record().overrun() );
   // What is taken up after a start is the same.
   const TimesRecorder next( { units, dir, history } );
   EXPECT_EQ( 101, record().overrun() );
   set();
   EXPECT_EQ( 0, record().overrun() ) << "another one takes its place";
}

TEST_F( TimesRecorderTest, whatIsTakenAwayGoes ) {
   set();
   dir->unitDel( "u1" );
   EXPECT_EQ( 0, record().deadline() );
   EXPECT_EQ( 0, record().revertAt() );
   set();
   state( UnitState::maintenance );
   dir->unit( "u1" )->revertAtIs( 0 );
   EXPECT_EQ( 0, record().revertAt() );
   EXPECT_EQ( 100, record().deadline() );
}

} // namespace
} // namespace Agent
