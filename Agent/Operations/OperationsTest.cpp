#include "Agent/Operations/Operations.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace Agent {

namespace {

using Maintenance::Unit::UnitState;

/// Units u1 and u2, normal, and stages that do what they are asked.
class OperationsTest : public testing::Test {
 protected:
   OperationsTest() {
      for ( const char * unit : { "u1", "u2" } ) {
         units->statusIs( unit )->stateIs( UnitState::normal );
         runs->unitRunIs( unit );
      }
      start();
   }
   void start( Vel::U32 mostKept = OperationDir::mostKept ) {
      operations = std::make_unique< Operations >(
         Operations::Model{ units, runs, dir }, [this] { return wallTime; }, mostKept );
   }

   static Operations::Request enterOf( const Vel::String & unit ) {
      return { OperationKind::enter, unit, "ann", "swap" };
   }
   static Operations::Request exitOf( const Vel::String & unit ) {
      return { OperationKind::exit, unit, "bob", "" };
   }
   static Operations::Request
   keyed( Operations::Request request, const Vel::String & key, Vel::U64 print = 1 ) {
      request.key = key;
      request.fingerprint = print;
      return request;
   }

   Operations::Answer ask( const Operations::Request & request ) {
      return operations->ask( request, [&]( Vel::U32 id ) -> Operations::Carried {
         ++carried;
         auto & status = *units->status( request.unitName );
         const bool enter = request.kind == OperationKind::enter;
         const bool isSo =
            enter ? status.state() == UnitState::enterInProgress || status.state() == UnitState::maintenance
                  : status.state() == UnitState::normal || status.state() == UnitState::exitInProgress;
         if ( enter && status.state() == UnitState::exitInProgress )
            return { Api::Error{ Api::ErrorCode::conflict, "not now", request.unitName } };
         if ( isSo )
            return { std::nullopt, changesTimes, "what was set for " + request.unitName + " has changed" };
         runs->unitRun( request.unitName )->operationIs( id );
         status.stateIs( enter ? UnitState::enterInProgress : UnitState::exitInProgress );
         return {};
      } );
   }
   /// What is done at once.
   Operations::Answer release( const Vel::String & key = "", bool changes = true ) {
      return operations->ask(
         keyed( { OperationKind::release, "u1", "ann", "" }, key ), [&]( Vel::U32 ) -> Operations::Carried {
            ++carried;
            return { std::nullopt, changes, "u1 is released" };
         } );
   }
   void reached( const Vel::String & unit, UnitState state ) {
      units->status( unit )->stateIs( state );
      operations->look();
   }
   /// "enter u1 cancelled by 2: text"
   std::string told( Vel::U32 id ) const {
      const Operation * const o = dir->operation( id );
      return !o ? "none"
                : stringValue( o->kind() ) + " " + o->unitName() + " " + stringValue( o->state() ) +
                     ( o->endedBy() ? Vel::text( " by ", o->endedBy() ) : "" ) +
                     ( o->text().empty() ? "" : ": " + o->text() );
   }

   Vel::Ptr< Maintenance::Unit::StatusDir > units = Vel::make< Maintenance::Unit::StatusDir >();
   Vel::Ptr< UnitRunDir > runs = Vel::make< UnitRunDir >();
   Vel::Ptr< OperationDir > dir = Vel::make< OperationDir >();
   std::unique_ptr< Operations > operations;
   double wallTime = 1000;
   unsigned carried = 0;
   bool changesTimes = false;
};

TEST_F( OperationsTest, anEnterIsAnOperationUntilTheUnitIsUnderMaintenance ) {
   Operations::Request request = enterOf( "u1" );
   request.with = "ticket=17\n";
   const auto answer = ask( request );
   EXPECT_FALSE( answer.refused );
   EXPECT_EQ( 1u, answer.operation );
   EXPECT_TRUE( answer.changed );
   EXPECT_FALSE( answer.repeated );
   EXPECT_EQ( "enter u1 running", told( 1 ) );
   EXPECT_EQ( "ann", dir->operation( 1 )->by() );
   EXPECT_EQ( "swap", dir->operation( 1 )->reason() );
   EXPECT_EQ( "ticket=17\n", dir->operation( 1 )->with() );
   EXPECT_EQ( 1000, dir->operation( 1 )->begun() );
   operations->look();
   EXPECT_EQ( 0, dir->operation( 1 )->ended() );
   wallTime = 1060;
   reached( "u1", UnitState::maintenance );
   EXPECT_EQ( "enter u1 done: u1 is under maintenance", told( 1 ) );
   EXPECT_EQ( 1060, dir->operation( 1 )->ended() );
}

TEST_F( OperationsTest, whatIsSoOrOnItsWayIsAnsweredWithTheOperationThatMadeItSo ) {
   ask( enterOf( "u1" ) );
   for ( const UnitState state : { UnitState::enterInProgress, UnitState::maintenance } ) {
      reached( "u1", state );
      const auto again = ask( enterOf( "u1" ) );
      EXPECT_EQ( 1u, again.operation );
      EXPECT_FALSE( again.changed );
   }
   EXPECT_EQ( 1u, dir->operations() );
   const auto never = ask( exitOf( "u2" ) );
   EXPECT_FALSE( never.refused );
   EXPECT_EQ( 0u, never.operation );
   EXPECT_FALSE( never.changed );
}

TEST_F( OperationsTest, anExitCancelsAnEnterThatIsNotDone ) {
   ask( enterOf( "u1" ) );
   EXPECT_EQ( 2u, ask( exitOf( "u1" ) ).operation );
   EXPECT_EQ( "enter u1 cancelled by 2: cancelled by operation 2, for bob", told( 1 ) );
   EXPECT_EQ( "exit u1 running", told( 2 ) );
   reached( "u1", UnitState::normal );
   EXPECT_EQ( "exit u1 done: u1 is normal", told( 2 ) );
}

TEST_F( OperationsTest, anExitDoesNotCancelAnEnterThatIsDoneInTheSameTurn ) {
   ask( enterOf( "u1" ) );
   units->status( "u1" )->stateIs( UnitState::maintenance );
   ask( exitOf( "u1" ) );
   EXPECT_EQ( "enter u1 done: u1 is under maintenance", told( 1 ) );
}

TEST_F( OperationsTest, whatTheAgentTakesBackForAFailureHasFailed ) {
   ask( enterOf( "u1" ) );
   Operations::Request request = exitOf( "u1" );
   request.failure = "stage steer has failed";
   ask( request );
   EXPECT_EQ( "enter u1 failed by 2: stage steer has failed", told( 1 ) );
}

TEST_F( OperationsTest, whatIsRefusedIsNoOperationAndTakesNoNumber ) {
   ask( enterOf( "u1" ) );
   ask( exitOf( "u1" ) );
   const auto refused = ask( keyed( enterOf( "u1" ), "k" ) );
   EXPECT_EQ( Api::ErrorCode::conflict, refused.refused->code );
   EXPECT_EQ( 2u, refused.operation );
   EXPECT_EQ( 2u, dir->lastId() );
   EXPECT_EQ( 2u, dir->operations() );
   reached( "u1", UnitState::normal );
   EXPECT_EQ( 3u, ask( keyed( enterOf( "u1" ), "k" ) ).operation ) << "what was refused is not remembered";
}

TEST_F( OperationsTest, aChangeThatBeginsNothingIsAnOperationThatIsDone ) {
   ask( enterOf( "u1" ) );
   changesTimes = true;
   const auto answer = ask( enterOf( "u1" ) );
   EXPECT_EQ( 2u, answer.operation );
   EXPECT_TRUE( answer.changed );
   EXPECT_EQ( "enter u1 running", told( 1 ) );
   EXPECT_EQ( "enter u1 done: what was set for u1 has changed", told( 2 ) );
   changesTimes = false;
   EXPECT_EQ( 1u, ask( enterOf( "u1" ) ).operation );
}

TEST_F( OperationsTest, theSameKeyGivesTheSameOperationAlsoWhenAllIsOverAndAfterARestart ) {
   const auto request = keyed( enterOf( "u1" ), "change-1" );
   EXPECT_FALSE( operations->repeated( request ) );
   EXPECT_TRUE( ask( request ).changed );
   EXPECT_EQ( 1u, operations->repeated( request )->operation );
   reached( "u1", UnitState::maintenance );
   ask( exitOf( "u1" ) );
   reached( "u1", UnitState::normal );
   start();
   const unsigned before = carried;
   const auto again = ask( request );
   EXPECT_FALSE( again.refused );
   EXPECT_EQ( 1u, again.operation );
   EXPECT_FALSE( again.changed );
   EXPECT_TRUE( again.repeated );
   EXPECT_EQ( before, carried ) << "the unit was entered again";
}

TEST_F( OperationsTest, aKeyIsNotUsedTwiceForDifferentRequests ) {
   ask( keyed( enterOf( "u1" ), "k" ) );
   const Operations::Request rows[] = {
      keyed( enterOf( "u2" ), "k" ), keyed( exitOf( "u1" ), "k" ), keyed( enterOf( "u1" ), "k", 2 ) };
   for ( const auto & other : rows ) {
      const auto answer = ask( other );
      ASSERT_TRUE( answer.refused );
      EXPECT_EQ( Api::ErrorCode::conflict, answer.refused->code );
      EXPECT_EQ(
         "the request key k was used for another request, that of operation 1", answer.refused->message );
      EXPECT_EQ( 1u, answer.operation );
   }
   EXPECT_EQ( 1u, carried );
   Operations::Request other = keyed( enterOf( "u1" ), "k" );
   other.by = "bob";
   EXPECT_TRUE( ask( other ).repeated ) << "who asks is no part of what is asked for";
}

TEST_F( OperationsTest, aKeyThatChangedNothingChangesNothingLater ) {
   const auto request = keyed( exitOf( "u1" ), "k" );
   EXPECT_EQ( 0u, ask( request ).operation );
   ask( enterOf( "u1" ) );
   const auto again = ask( request );
   EXPECT_TRUE( again.repeated );
   EXPECT_EQ( 0u, again.operation );
   EXPECT_EQ( "enter u1 running", told( 1 ) );
   EXPECT_EQ(
      "the request key k was used for another request",
      ask( keyed( enterOf( "u1" ), "k" ) ).refused->message );
}

TEST_F( OperationsTest, dropsTheOldestThatHaveEndedAndNeverTheirNumbers ) {
   start( 3 );
   ask( enterOf( "u2" ) );
   for ( unsigned i = 0; i < 3; ++i ) {
      ask( enterOf( "u1" ) );
      reached( "u1", UnitState::maintenance );
      ask( exitOf( "u1" ) );
      reached( "u1", UnitState::normal );
   }
   EXPECT_EQ( 4u, dir->operations() );
   EXPECT_EQ( "enter u2 running", told( 1 ) );
   EXPECT_EQ( "none", told( 4 ) );
   EXPECT_EQ( "exit u1 done: u1 is normal", told( 5 ) );
   EXPECT_EQ( 7u, dir->lastId() );
   start( 3 );
   EXPECT_EQ( 8u, ask( enterOf( "u1" ) ).operation );
   EXPECT_EQ( "exit u1 done: u1 is normal", told( 5 ) ) << "what runs does not count";
}

TEST_F( OperationsTest, dropsTheOldestKeys ) {
   start( 2 );
   for ( const char * key : { "b", "c", "a" } )
      ask( keyed( exitOf( "u1" ), key ) );
   start( 2 );
   EXPECT_FALSE( operations->repeated( keyed( exitOf( "u1" ), "b" ) ) );
   EXPECT_TRUE( operations->repeated( keyed( exitOf( "u1" ), "c" ) ) );
   ask( keyed( exitOf( "u1" ), "d" ) );
   EXPECT_FALSE( operations->repeated( keyed( exitOf( "u1" ), "c" ) ) );
   EXPECT_TRUE( operations->repeated( keyed( exitOf( "u1" ), "a" ) ) );
}

TEST_F( OperationsTest, keepsTheBeginningOfALongReasonInWholeCharacters ) {
   Operations::Request request = enterOf( "u1" );
   request.reason = std::string( 1023, 'x' ) + "\xc3\xa4 and more";
   ask( request );
   EXPECT_EQ( std::string( 1023, 'x' ), dir->operation( 1 )->reason() );
}

TEST_F( OperationsTest, whatIsDoneAtOnceIsAnOperationThatIsDoneAndNoneOfTheUnitOfThatName ) {
   ask( enterOf( "u1" ) );
   const auto answer = release( "k" );
   EXPECT_EQ( 2u, answer.operation );
   EXPECT_TRUE( answer.changed );
   EXPECT_EQ( "release u1 done: u1 is released", told( 2 ) );
   EXPECT_EQ( "enter u1 running", told( 1 ) );
   const auto again = release( "k" );
   EXPECT_EQ( 2u, again.operation );
   EXPECT_TRUE( again.repeated );
   EXPECT_EQ( 2u, carried );
   const auto nothing = release( "", false );
   EXPECT_EQ( 0u, nothing.operation );
   EXPECT_FALSE( nothing.changed );
}

TEST_F( OperationsTest, anOperationOfAUnitThatIsGoneHasFailed ) {
   ask( enterOf( "u1" ) );
   units->statusDel( "u1" );
   start();
   operations->look();
   EXPECT_EQ( "enter u1 failed: u1 is not configured any more", told( 1 ) );
}

TEST_F( OperationsTest, whatHasComeToItsEndIsDoneAlsoIfAReloadTakesItsUnitAwayInTheSameTurn ) {
   ask( enterOf( "u1" ) );
   units->status( "u1" )->stateIs( UnitState::maintenance );
   operations->ask( { OperationKind::reload, "", "ann", "" }, [&]( Vel::U32 ) -> Operations::Carried {
      units->statusDel( "u1" );
      return { std::nullopt, true, "unit \"u1\" removed" };
   } );
   operations->look();
   EXPECT_EQ( "enter u1 done: u1 is under maintenance", told( 1 ) );
   EXPECT_EQ( "reload  done: unit \"u1\" removed", told( 2 ) );
}

TEST( Pairs, areLinesAndBack ) {
   const Pairs pairs{ { "a", "" }, { "b", "x=y" }, { "c", "\xc3\xa4 b" } };
   EXPECT_EQ( "a=\nb=x=y\nc=\xc3\xa4 b\n", pairLines( pairs ) );
   EXPECT_EQ( pairs, pairsOf( pairLines( pairs ) ) );
   EXPECT_TRUE( pairsOf( "" ).empty() );
}

} // namespace

} // namespace Agent
