#include "Agent/Control/ControlApiRigTest.h"

#include <nlohmann/json.hpp>

/// Plans that are asked for, and what an enter does with them.
namespace Agent {

using Maintenance::Unit::UnitState;
using nlohmann::json;

class ControlApiPlan : public ControlApiRig {
 protected:
   void blockedBy( const std::string & text ) {
      planned.blocked = true;
      planned.findings =
         json::array( { { { "code", "last-path" }, { "severity", "blocking" }, { "text", text } },
                        { { "code", "no-steering" }, { "severity", "warning" }, { "text", "nobody" } } } )
            .dump();
      planned.overridden = "last-path: " + text;
   }
   using Asked = std::vector< std::string >;
};

TEST_F( ControlApiPlan, isAnsweredAsTheAgentGivesIt ) {
   planned.plan = "{\"unit\": \"u1\"}\n";
   EXPECT_EQ( planned.plan, got( "units/u1/plan" ) );
   EXPECT_EQ( planned.plan, got( "units/u1/plan?session=192.0.2.7" ) );
   EXPECT_EQ( ( Asked{ "plan u1 []", "plan u1 [192.0.2.7]" } ), asked );
}

TEST_F( ControlApiPlan, canBeAskedForOverTheWeb ) {
   local = false;
   EXPECT_EQ( 200, ask( "GET", "/api/v1/units/u1/plan" ) );
   EXPECT_EQ( Asked{ "plan u1 [] over the web" }, asked );
}

TEST_F( ControlApiPlan, isRefusedForWhatMakesNoSense ) {
   EXPECT_EQ( 404, ask( "GET", "/api/v1/units/u9/plan" ) );
   EXPECT_EQ( 400, ask( "GET", "/api/v1/units/u1/plan?sesion=192.0.2.7" ) );
   EXPECT_EQ( 400, ask( "GET", "/api/v1/units/u1/plan?session=" ) );
   EXPECT_EQ( 400, ask( "GET", "/api/v1/units/u1/plan?session=192.0.2.7&session=192.0.2.8" ) );
   EXPECT_EQ( Asked(), asked );
   planRefusal = Api::Error{ Api::ErrorCode::badRequest, "no address", "session" };
   EXPECT_EQ( 400, ask( "GET", "/api/v1/units/u1/plan?session=x" ) );
   EXPECT_EQ( 400, post( "units/u1/enter", R"({"session": "x"})" ) );
   EXPECT_EQ( ( Asked{ "plan u1 [x]", "plan u1 [x] to begin" } ), asked );
}

TEST_F( ControlApiPlan, isLookedAtBeforeAnEnter ) {
   EXPECT_EQ( 202, post( "units/u1/enter", R"({"reason": "upgrade", "session": "192.0.2.7"})" ) );
   EXPECT_EQ( ( Asked{ "plan u1 [192.0.2.7] to begin", "enter u1 [upgrade] ann" } ), asked );
}

TEST_F( ControlApiPlan, thatBlocksRefusesAnEnterWithItsFindings ) {
   blockedBy( "no other way" );
   EXPECT_EQ( 428, post( "units/u1/enter", R"({"reason": "upgrade"})" ) );
   EXPECT_EQ( "needs-force \"u1\"", refused() );
   const json error = json::parse( reply.body ).at( "error" );
   EXPECT_EQ( "no other way", error.at( "message" ) );
   EXPECT_EQ( json::parse( planned.findings ), error.at( "findings" ) );
   EXPECT_EQ( Asked{ "plan u1 [] to begin" }, asked );
}

TEST_F( ControlApiPlan, thatBlocksIsOverriddenByForceAndWrittenDown ) {
   blockedBy( "no other way" );
   EXPECT_EQ( 202, post( "units/u1/enter", R"({"reason": "upgrade", "force": true})" ) );
   EXPECT_EQ(
      ( Asked{ "plan u1 [] to begin", "enter u1 [upgrade] ann although last-path: no other way" } ), asked );
}

TEST_F( ControlApiPlan, needsAReasonWithForce ) {
   EXPECT_EQ( 400, post( "units/u1/enter", R"({"force": true})" ) );
   EXPECT_EQ( "bad-request \"reason\"", refused() );
   EXPECT_EQ( 400, post( "units/u1/enter", R"({"force": true, "reason": ""})" ) );
   EXPECT_EQ( 400, post( "units/u1/enter", R"({"force": "yes", "reason": "x"})" ) );
   EXPECT_EQ( Asked(), asked );
}

TEST_F( ControlApiPlan, isOverriddenByNothingWhenItDoesNotBlock ) {
   EXPECT_EQ( 202, post( "units/u1/enter", R"({"reason": "upgrade", "force": true})" ) );
   EXPECT_EQ( ( Asked{ "plan u1 [] to begin", "enter u1 [upgrade] ann" } ), asked );
}

TEST_F( ControlApiPlan, isNotMadeWhereNothingWouldBegin ) {
   blockedBy( "no other way" );
   for ( const UnitState state :
         { UnitState::enterInProgress, UnitState::maintenance, UnitState::exitInProgress } ) {
      rig.unit( "u1" ).stateIs( state );
      EXPECT_EQ( 202, post( "units/u1/enter" ) );
   }
   EXPECT_EQ( Asked( 3, "enter u1 [] ann" ), asked );
}

TEST_F( ControlApiPlan, doesNotBlockAUnitThatSomebodyElseHasEnteredMeanwhile ) {
   blockedBy( "no other way" );
   whilePlanning = [this] { rig.unit( "u1" ).stateIs( UnitState::enterInProgress ); };
   EXPECT_EQ( 202, post( "units/u1/enter" ) );
   EXPECT_EQ( ( Asked{ "plan u1 [] to begin", "enter u1 [] ann" } ), asked );
}

TEST_F( ControlApiPlan, beginsNothingWhenAnExitWasAskedForMeanwhile ) {
   bool exited = false;
   whilePlanning = [&] {
      if ( !std::exchange( exited, true ) ) {
         EXPECT_EQ( 202, post( "units/u1/exit" ) );
      }
   };
   EXPECT_EQ( 409, post( "units/u1/enter" ) );
   EXPECT_EQ( "conflict \"u1\"", refused() );
   EXPECT_EQ( ( Asked{ "plan u1 [] to begin", "exit u1 [] ann" } ), asked );
   EXPECT_EQ( 202, post( "units/u1/enter" ) );
}

TEST_F( ControlApiPlan, thatIsLateBeginsNothing ) {
   planned.late = true;
   EXPECT_EQ( 503, post( "units/u1/enter" ) );
   EXPECT_EQ( "unavailable \"u1\"", refused() );
   EXPECT_NE(
      std::string::npos,
      reply.body.find( "the plan took so long that whoever asked may have given up; nothing has begun" ) );
   EXPECT_EQ( Asked{ "plan u1 [] to begin" }, asked );
   EXPECT_EQ( planned.plan, got( "units/u1/plan" ) );
}

TEST_F( ControlApiPlan, doesNotHideARefusalOfTheEnter ) {
   refusal = Api::Error{ Api::ErrorCode::unavailable, "degraded", "store" };
   EXPECT_EQ( 503, post( "units/u1/enter" ) );
   EXPECT_EQ( "unavailable \"store\"", refused() );
}

TEST_F( ControlApiPlan, isOfNoConcernToAnExit ) {
   blockedBy( "no other way" );
   EXPECT_EQ( 202, post( "units/u1/exit" ) );
   EXPECT_EQ( 400, post( "units/u1/exit", R"({"force": true, "reason": "x"})" ) );
   EXPECT_EQ( Asked{ "exit u1 [] ann" }, asked );
}

} // namespace Agent
