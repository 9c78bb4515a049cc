#include "Agent/Control/SampleAnswers.h"

#include "Agent/Control/ControlApiRigTest.h"
#include "Agent/Control/KnownSamplesRig.h"
#include "Agent/Control/RequestRig.h"

#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

class SampleAnswers : public Agent::ControlApiRig {
 protected:
   SampleAnswers() {
      commands.samples = &samples;
      api = std::make_unique< Agent::ControlApi >( rig.model(), commands );
   }
   json shown( const std::string & query ) { return json::parse( got( "samples?" + query ) ); }
   std::string refusedFor( const std::string & query, int status = 400 ) {
      EXPECT_EQ( status, ask( "GET", "/api/v1/samples?" + query ) ) << reply.body;
      return refused();
   }
   Agent::KnownSamples samples;
};

TEST_F( SampleAnswers, areTheRatesAtEqualStepsAndNullWhereNothingIsKnown ) {
   EXPECT_EQ(
      json::parse( R"({"step-seconds":5,"start":"2023-11-14T23:13:00.000Z","interfaces":{"et1":{
         "in-bps":[null,5003,10005,15008],"out-bps":[null,9999999827968,9999999827968,9999999827968]}}})" ),
      shown( "interface=et1&last=20" ) );
   EXPECT_EQ( std::pair( rig.now - 20, rig.now ), samples.asked );
}

TEST_F( SampleAnswers, areOfAllInterfacesThatAreNamedOrOfAUnit ) {
   const json named = shown( "interface=et9&interface=et1&interface=et9&last=5" );
   EXPECT_EQ(
      R"({"et1":{"in-bps":[null],"out-bps":[null]},"et9":{"in-bps":[null],"out-bps":[null]}})",
      named.at( "interfaces" ).dump() );
   const json ofUnit = shown( "unit=u1&last=5" ).at( "interfaces" );
   EXPECT_EQ( 3u, ofUnit.size() );
   EXPECT_TRUE( ofUnit.contains( "vlan10" ) );
}

TEST_F( SampleAnswers, areOfAnHourUnlessToldOtherwise ) {
   shown( "interface=et1" );
   EXPECT_EQ( std::pair( rig.now - 3600, rig.now ), samples.asked );
   EXPECT_EQ( 60, shown( "interface=et1&last=2h" ).at( "step-seconds" ) );
   EXPECT_EQ( std::pair( rig.now - 7200, rig.now ), samples.asked );
   shown( "interface=et1&last=604800" );
   EXPECT_EQ( rig.now - 604800, samples.asked.first );
}

TEST_F( SampleAnswers, endWhenTheyAreAskedToInWallTime ) {
   // Wall time is an hour ahead of the clock here.
   shown( "interface=et1&last=10&until=2023-11-14T23:00:00Z" );
   EXPECT_EQ( std::pair( rig.now - 810, rig.now - 800 ), samples.asked );
   shown( "interface=et1&last=10&until=2033-11-14T23:00:00Z" );
   EXPECT_EQ( std::pair( rig.now - 10, rig.now ), samples.asked );
}

TEST_F( SampleAnswers, areThereForInterfacesThatWereOnceAndThatMayCome ) {
   EXPECT_EQ( 1u, shown( "interface=old1&last=5" ).at( "interfaces" ).size() );
   commands.groups = [] {
      return std::map< std::string, Agent::ControlCommands::Group >{ { "g", { {}, { "et77" } } } };
   };
   api = std::make_unique< Agent::ControlApi >( rig.model(), commands );
   EXPECT_EQ( 1u, shown( "interface=et77&last=5" ).at( "interfaces" ).size() );
}

TEST_F( SampleAnswers, areRefusedForWhatIsNotThere ) {
   EXPECT_EQ( R"(not-found "et77")", refusedFor( "interface=et1&interface=et77", 404 ) );
   EXPECT_EQ( R"(not-found "nowhere")", refusedFor( "unit=nowhere", 404 ) );
   EXPECT_EQ( "not-found null", refusedFor( "interface=", 404 ) );
}

TEST_F( SampleAnswers, areRefusedForArgumentsThatMakeNoSense ) {
   for ( const auto & [query, why] : std::initializer_list< std::pair< const char *, const char * > >{
            { "", R"(either "interface" or "unit" says whose samples are asked for)" },
            { "interface=et1&unit=u1", R"(either "interface" or "unit" says whose samples are asked for)" },
            { "unit=u1&unit=u2", R"("unit" is given more than once)" },
            { "interface=et1&last=5&last=6", R"("last" is given more than once)" },
            { "interface=et1&last=0", R"("last" is out of range: above 0 and up to 7 days)" },
            { "interface=et1&last=-5", R"("last" is out of range: above 0 and up to 7 days)" },
            { "interface=et1&last=nan", R"("last" is out of range: above 0 and up to 7 days)" },
            { "interface=et1&last=604801", R"("last" is out of range: above 0 and up to 7 days)" },
            { "interface=et1&last=", R"("last" is neither a number of seconds nor a time: )" },
            { "interface=et1&last=5x", R"("last" is neither a number of seconds nor a time: )" },
            { "interface=et1&until=noon", R"("until" is no time like 2026-03-01T12:00:00Z)" },
            { "interface=et1&step=5", R"(there is no parameter "step")" } } ) {
      SCOPED_TRACE( query );
      EXPECT_EQ( 0u, refusedFor( query ).find( "bad-request" ) );
      EXPECT_EQ(
         0u, json::parse( reply.body ).at( "error" ).at( "message" ).get< std::string >().find( why ) )
         << reply.body;
   }
}

TEST_F( SampleAnswers, areRefusedWhereTheyAreTooMany ) {
   std::string query = "last=1h";
   for ( int i = 0; i < 209; ++i ) {
      const Wire::EthIntfId intf( "x" + std::to_string( i ) );
      rig.interfaces->intfStatusIs( intf );
      query += "&interface=x" + std::to_string( i );
      if ( i == 207 ) {
         EXPECT_EQ( 208u, shown( query ).at( "interfaces" ).size() );
      }
   }
   EXPECT_EQ( 0u, refusedFor( query ).find( "bad-request" ) );
}

TEST_F( SampleAnswers, readAFewFilesATurnAndTakeTurnsWithEachOther ) {
   std::string query, answered;
   for ( int i = 0; i < 200; ++i ) {
      rig.interfaces->intfStatusIs( Wire::EthIntfId( "x" + std::to_string( i ) ) );
      query += "&interface=x" + std::to_string( i );
   }
   EXPECT_EQ( 200u, shown( "last=5" + query ).at( "interfaces" ).size() );
   EXPECT_EQ( ( 200 + Agent::SampleAnswers::filesPerTurn - 1 ) / Agent::SampleAnswers::filesPerTurn, turns );
   shown( "last=1h" + query );
   EXPECT_EQ( 200 * 720 / Agent::SampleAnswers::stepsPerTurn + 1, turns ) << "long ones cost more";
   // Who asks for little does not wait for who asks for much.
   for ( const char * each : { "many", "one" } ) {
      Agent::HttpRequest request = Agent::requestOf( "GET", "/api/v1/samples" );
      request.query.emplace( "last", "1h" );
      for ( int i = 0; i < ( std::string( each ) == "many" ? 200 : 1 ); ++i )
         request.query.emplace( "interface", "x" + std::to_string( i ) );
      api->handle( request, [&, each]( const Agent::HttpReply & got ) {
         EXPECT_EQ( 200, got.status );
         answered += each + std::string( " " );
      } );
   }
   samples.files = 0;
   for ( const auto & call : std::exchange( later, {} ) )
      call();
   EXPECT_EQ( "one ", answered );
   EXPECT_LE( samples.files, Agent::SampleAnswers::filesPerTurn );
   while ( !later.empty() )
      for ( const auto & call : std::exchange( later, {} ) )
         call();
   EXPECT_EQ( "one many ", answered );
}

TEST_F( SampleAnswers, comeFirstForWhoeverAsksOnThisMachine ) {
   std::string answered;
   const auto ask = [&]( const char * who, bool local, int interfaces ) {
      Agent::HttpRequest request = Agent::requestOf( "GET", "/api/v1/samples?last=5" );
      request.local = local;
      for ( int i = 0; i < interfaces; ++i )
         request.query.emplace( "interface", "x" + std::to_string( i ) );
      api->handle( request, [&, who]( const Agent::HttpReply & ) { answered += who + std::string( " " ); } );
   };
   for ( int i = 0; i < 200; ++i )
      rig.interfaces->intfStatusIs( Wire::EthIntfId( "x" + std::to_string( i ) ) );
   const auto turn = [&] {
      for ( const auto & call : std::exchange( later, {} ) )
         call();
   };
   for ( int i = 0; i < 20; ++i )
      ask( "web", false, 200 );
   turn();
   ask( "machine", true, 2 );
   turn();
   EXPECT_EQ( "machine ", answered );
   while ( !later.empty() )
      turn();
   EXPECT_EQ( 8u + 20 * 4, answered.size() );
}

TEST_F( SampleAnswers, areNotPutTogetherAnyMoreWhenTheApiIsGone ) {
   api->handle( Agent::requestOf( "GET", "/api/v1/samples?unit=u1" ), []( const auto & ) { FAIL(); } );
   api.reset();
   for ( const auto & call : std::exchange( later, {} ) )
      call();
}

TEST_F( SampleAnswers, giveAnInterfaceThatNobodyMonitorsItsRates ) {
   Interface::IntfRates rates;
   rates.inBitsRate = 1234;
   rates.outBitsRate = 5678;
   samples.rates_ = { { rig.et1, rates }, { rig.et2, rates } };
   const json et1 = json::parse( got( "interfaces/et1" ) );
   EXPECT_EQ( 1234, et1.at( "in-bps" ) );
   EXPECT_EQ( 5678, et1.at( "out-bps" ) );
   EXPECT_EQ( nullptr, json::parse( got( "interfaces/et9" ) ).at( "in-bps" ) );
   // A record counts as soon as it has a sample.
   auto & record = rig.record( rig.et2, Maintenance::monIntfStateEnterMaint );
   EXPECT_EQ( 1234, json::parse( got( "interfaces/et2" ) ).at( "in-bps" ) );
   rig.sample( record, 7, 8, 0 );
   EXPECT_EQ( 7, json::parse( got( "interfaces/et2" ) ).at( "in-bps" ) );
}

TEST_F( SampleAnswers, giveAnInterfaceThatIsShutOrStarvedItsRatesOfNow ) {
   Interface::IntfRates rates;
   rates.inBitsRate = 1234;
   rates.outBitsRate = 5678;
   samples.rates_ = { { rig.et1, rates } };
   for ( const auto & intf : { rig.et1, rig.et2 } ) {
      rig.sample( rig.record( intf, Maintenance::monIntfStateEnterMaint ), 7, 8, 0 );
      rig.insight( intf, Agent::Reason::starved );
   }
   const auto shown = [&]( const char * name ) {
      const json intf = json::parse( got( std::string( "interfaces/" ) + name ) );
      return json{ intf.at( "in-bps" ), intf.at( "out-bps" ), intf.at( "reason" ).at( "rate-bps" ) };
   };
   now = rig.now - 2 + samples.freshFor;
   EXPECT_EQ( ( json{ 7, 8, 8 } ), shown( "et1" ) );
   now += 0.001;
   EXPECT_EQ( ( json{ 1234, 5678, 5678 } ), shown( "et1" ) ) << "what it carried last says nothing of now";
   EXPECT_EQ( ( json{ nullptr, nullptr, nullptr } ), shown( "et2" ) ) << "nobody samples it";
   now = rig.now;
   rig.cause->intfStatusIs( rig.et1, now );
   EXPECT_EQ( ( json{ 1234, 5678, 5678 } ), shown( "et1" ) ) << "its monitoring has ended with the shutdown";
}

TEST_F( SampleAnswers, areRefusedIfNobodySamples ) {
   commands.samples = nullptr;
   api = std::make_unique< Agent::ControlApi >( rig.model(), commands );
   EXPECT_EQ( 0u, refusedFor( "interface=et1", 503 ).find( "unavailable" ) );
   EXPECT_EQ( nullptr, json::parse( got( "interfaces/et1" ) ).at( "in-bps" ) );
}

} // namespace
