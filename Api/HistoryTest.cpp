#include "Api/History.h"

#include "Api/Error.h"

#include <gtest/gtest.h>

namespace {

TEST( History, readsAListWithWhatHasNotHappenedAsNothing ) {
   const auto list = Api::readMaintenances(
      R"([{"id":7,"unit":"a","generation":3,"outcome":"open","began":"2023-11-14T22:13:20.000Z","in-maintenance":null,
         "by":"ann","counts":{"interfaces":5,"drained":3,"forced":1,"spikes":2}}])" );
   ASSERT_EQ( 1u, list.size() );
   EXPECT_EQ( 7u, list[0].id );
   EXPECT_EQ( "a", list[0].unit );
   EXPECT_EQ( "open", list[0].outcome );
   EXPECT_EQ( 1700000000, list[0].began );
   EXPECT_FALSE( list[0].inMaintenance );
   EXPECT_FALSE( list[0].ended );
   EXPECT_EQ( "ann", list[0].by );
   EXPECT_EQ( 5u, list[0].interfaces );
   EXPECT_EQ( 3u, list[0].drained );
   EXPECT_EQ( 1u, list[0].forced );
   EXPECT_EQ( 2u, list[0].spikes );
}

TEST( History, readsARecordWithItsStagesAndInterfaces ) {
   const auto record = Api::readMaintenanceRecord(
      R"({"id":1,"unit":"a","outcome":"completed","interfaces-left-out":2,
         "stages":[{"way":"enter","name":"steer","state":"failed","began":"2023-11-14T22:13:20.000Z","failure":"no"}],
         "interfaces":[{"name":"et1","profile":{"name":"fast","threshold-bps":1e5,"load-interval-seconds":10,
            "shutdown":true,"shutdown-max-delay-seconds":null},"shutdown":"forced","peak-in-bps":3e5,
            "reasons":[{"time":"2023-11-14T22:13:25.000Z","code":"stalled","rate-bps":310000}],"reasons-left-out":4,
            "total-spikes":9,"spikes":[{"began":"2023-11-14T22:14:00.000Z","ended":null,"peak-bps":2e5}],
            "drift":[{"time":"2023-11-14T22:15:00.000Z","what":null}],
            "curve":{"start":"2023-11-14T22:12:20.000Z","step-seconds":5,"in-bps":[1,null],"out-bps":[2,3]}}]})" );
   EXPECT_EQ( 2u, record.interfacesLeftOut );
   ASSERT_EQ( 1u, record.stages.size() );
   EXPECT_EQ( "steer", record.stages[0].name );
   EXPECT_EQ( "no", record.stages[0].failure );
   ASSERT_EQ( 1u, record.interfaces.size() );
   const Api::PastInterface & et1 = record.interfaces[0];
   EXPECT_EQ( "fast", et1.profile );
   EXPECT_EQ( 1e5, et1.thresholdBps );
   EXPECT_EQ( "forced", et1.shutdownKind );
   EXPECT_FALSE( et1.drained );
   EXPECT_EQ( 3e5, et1.peakInBps );
   ASSERT_EQ( 1u, et1.reasons.size() );
   EXPECT_EQ( "stalled", et1.reasons[0].code );
   EXPECT_EQ( 310000, et1.reasons[0].rateBps );
   EXPECT_EQ( 4u, et1.reasonsLeftOut );
   EXPECT_EQ( 9u, et1.totalSpikes );
   ASSERT_EQ( 1u, et1.spikes.size() );
   EXPECT_FALSE( et1.spikes[0].ended );
   ASSERT_EQ( 1u, et1.drift.size() );
   EXPECT_FALSE( et1.drift[0].what );
   EXPECT_EQ( 5, et1.curveStepSeconds );
   EXPECT_EQ( ( std::vector< std::optional< double > >{ 1, std::nullopt } ), et1.curveInBps );
   EXPECT_EQ( ( std::vector< std::optional< double > >{ 2, 3 } ), et1.curveOutBps );
}

TEST( History, interfaceWithoutProfileAndCurveIsRead ) {
   const auto record = Api::readMaintenanceRecord(
      R"({"id":1,"unit":"a","outcome":"open","interfaces":[{"name":"et1","profile":null,"curve":null}]})" );
   ASSERT_EQ( 1u, record.interfaces.size() );
   EXPECT_FALSE( record.interfaces[0].profile );
   EXPECT_TRUE( record.interfaces[0].curveInBps.empty() );
}

TEST( History, answerOfAnotherShapeIsRefusedWithWhatIsWrong ) {
   for ( const auto & [text, what] :
         { std::pair( "nonsense", "no JSON" ), std::pair( "{}", "a list is missing" ),
           std::pair( R"([{"id":"x","unit":"a","outcome":"open"}])", "\"id\" is no counter" ),
           std::pair( R"([{"id":1,"unit":"a"}])", "\"outcome\" is missing" ) } ) {
      SCOPED_TRACE( text );
      try {
         Api::readMaintenances( text );
         ADD_FAILURE() << "it was taken";
      } catch ( const Api::Error & error ) {
         EXPECT_NE( std::string::npos, error.message.find( what ) ) << error.message;
      }
   }
   EXPECT_THROW(
      Api::readMaintenanceRecord(
         R"({"id":1,"unit":"a","outcome":"open","interfaces":[{"name":"et1","curve":{"in-bps":["x"]}}]})" ),
      Api::Error );
}

} // namespace
