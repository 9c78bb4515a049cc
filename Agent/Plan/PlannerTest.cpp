#include "Agent/Plan/PlanJson.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>

/// What of the planner needs no agent around it; the rest is in the stories of the whole agent.
namespace Agent {

namespace {

SampleCurve curve( const std::vector< float > & in, const std::vector< float > & out ) {
   return { 0, 5, in, out };
}

} // namespace

TEST( PlanHigh, isWhatIsNotExceededForNinetyFivePercentOfTheTime ) {
   std::vector< float > rates;
   for ( int i = 1; i <= 120; ++i )
      rates.push_back( static_cast< float >( i * 7 % 121 ) ); // 1 to 120 in no order
   EXPECT_EQ( ( PlanRates{ 114, 114 } ), Planner::high( curve( rates, rates ) ) );
   EXPECT_EQ( ( PlanRates{ 3, 8 } ), Planner::high( curve( { 3 }, { 8 } ) ) );
}

TEST( PlanHigh, leavesOutTheHighestOfEachTwenty ) {
   for ( const auto & [values, expected] :
         { std::pair( 1, 1 ), { 19, 19 }, { 20, 19 }, { 21, 20 }, { 39, 38 }, { 40, 38 }, { 41, 39 } } ) {
      SCOPED_TRACE( values );
      std::vector< float > rates;
      for ( int i = values; i > 0; --i )
         rates.push_back( static_cast< float >( i ) );
      // A gap, however long, is no traffic that is known.
      rates.insert( rates.begin() + values / 2, 100, std::numeric_limits< float >::quiet_NaN() );
      const auto high = static_cast< double >( expected );
      EXPECT_EQ( ( PlanRates{ high, high } ), Planner::high( curve( rates, rates ) ) );
   }
}

TEST( PlanHigh, leavesOutStepsOfWhichNothingIsKnown ) {
   const float unknown = std::numeric_limits< float >::quiet_NaN();
   EXPECT_EQ(
      ( PlanRates{ 2, 5 } ),
      Planner::high( curve( { unknown, 2, unknown, 1 }, { unknown, 5, unknown, 4 } ) ) );
   EXPECT_EQ( std::nullopt, Planner::high( curve( { unknown, unknown }, { unknown, unknown } ) ) );
   EXPECT_EQ( std::nullopt, Planner::high( curve( {}, {} ) ) );
}

TEST( PlanHigh, isKnownOfTheStepsOfWhichBothDirectionsAre ) {
   const float unknown = std::numeric_limits< float >::quiet_NaN();
   EXPECT_EQ( 10, Planner::highSeconds( curve( { unknown, 2, 3, 1 }, { unknown, 5, unknown, 4 } ) ) );
   EXPECT_EQ( 0, Planner::highSeconds( curve( {}, {} ) ) );
   // Those at both ends lie in the ten minutes in part only.
   const std::vector< float > all( 121, 1.0F );
   EXPECT_EQ( 600, Planner::highSeconds( curve( all, all ) ) );
}

TEST( Session, isReadFromWhatShellsAreTold ) {
   struct Row {
      const char * text;
      const char * address; ///< null: it is none
      const char * link;
   };
   for ( const Row & row :
         { Row{ "192.0.2.7", "192.0.2.7", "" }, Row{ "2001:db8::7", "2001:db8::7", "" },
           Row{ "::ffff:192.0.2.7", "192.0.2.7", "" }, Row{ "fe80::7%et1", "fe80::7", "et1" },
           Row{ "", nullptr, "" }, Row{ "host", nullptr, "" }, Row{ "192.0.2", nullptr, "" },
           Row{ "fe80::7%", nullptr, "" }, Row{ "192.0.2.7%et1", nullptr, "" },
           Row{ "::ffff:192.0.2.7%et1", nullptr, "" }, Row{ "192.0.2.7 ", nullptr, "" } } ) {
      SCOPED_TRACE( row.text );
      const auto session = sessionFrom( row.text );
      ASSERT_EQ( row.address != nullptr, session.has_value() );
      if ( !session )
         continue;
      EXPECT_EQ( row.address, session->address );
      EXPECT_EQ( row.link, session->link );
      EXPECT_EQ( session->address + ( *row.link ? "%et1" : "" ), stringValue( *session ) );
   }
}

TEST( Session, mayBeToldWithItsNearEnd ) {
   EXPECT_EQ( ( Session{ "192.0.2.7", "", "192.0.2.1" } ), sessionFrom( "192.0.2.7,192.0.2.1" ) );
   EXPECT_EQ( ( Session{ "fe80::7", "et1", "fe80::1" } ), sessionFrom( "fe80::7%et1,fe80::1%et1" ) );
   EXPECT_EQ( "192.0.2.7", stringValue( *sessionFrom( "192.0.2.7,::ffff:192.0.2.1" ) ) );
   for ( const char * none : { "192.0.2.7,", ",192.0.2.1", "192.0.2.7,x", "192.0.2.7,192.0.2.1,192.0.2.1" } )
      EXPECT_EQ( std::nullopt, sessionFrom( none ) ) << none;
}

TEST( PlanJson, leavesNothingOut ) {
   Plan plan;
   plan.facts.unit = "u1";
   plan.facts.state = "normal";
   PlanInterface & interface = plan.facts.interfaces.emplace_back();
   interface.name = "et\xff";
   interface.notWatched = "does not exist";
   plan.findings = {
      { "degraded", PlanSeverity::blocking, {}, "too many", { { "out", 1 } } },
      { "already-shut", PlanSeverity::info, { "et1" }, "shut", {} } };
   const auto json = nlohmann::json::parse( planJson( plan, 0 ) );
   EXPECT_EQ( "1970-01-01T00:00:00.000Z", json.at( "time" ) );
   EXPECT_TRUE( json.at( "session" ).is_null() );
   EXPECT_TRUE( json.at( "needs-force" ).get< bool >() );
   EXPECT_EQ( "et\xEF\xBF\xBD", json.at( "interfaces" ).at( 0 ).at( "name" ) );
   EXPECT_EQ( "not-watched", json.at( "interfaces" ).at( 0 ).at( "action" ) );
   EXPECT_TRUE( json.at( "interfaces" ).at( 0 ).at( "current" ).at( "in-bps" ).is_null() );
   EXPECT_EQ( 0, json.at( "interfaces" ).at( 0 ).at( "high" ).at( "known-seconds" ) );
   EXPECT_TRUE( json.at( "findings" ).at( 0 ).at( "interfaces" ).is_null() );
   EXPECT_EQ( 1, json.at( "findings" ).at( 0 ).at( "numbers" ).at( "out" ) );
   EXPECT_EQ( "info", json.at( "findings" ).at( 1 ).at( "severity" ) );
   EXPECT_EQ( json.at( "findings" ), nlohmann::json::parse( findingsJson( plan.findings ) ) );
   // Where an enter would begin nothing, it takes no force.
   plan.facts.state = "entering";
   EXPECT_FALSE( nlohmann::json::parse( planJson( plan, 0 ) ).at( "needs-force" ).get< bool >() );
}

} // namespace Agent
