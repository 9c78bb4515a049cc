#include "Api/Samples.h"

#include "Api/Error.h"
#include "Api/Names.h"

#include <gtest/gtest.h>

namespace {

using Rates = std::vector< std::optional< double > >;

TEST( Samples, areTakenWithTheirGaps ) {
   const Api::Samples samples = Api::readSamples( R"({"step-seconds":5,"start":"2023-11-14T22:13:20.000Z",
      "interfaces":{"et1":{"in-bps":[1,null,2.5],"out-bps":[0,null,3]},"et2":{"in-bps":[],"out-bps":[]}}})" );
   EXPECT_EQ( samples.stepSeconds, 5 );
   EXPECT_EQ( samples.start, 1700000000 );
   ASSERT_EQ( samples.interfaces.size(), 2 );
   EXPECT_EQ( samples.interfaces.at( "et1" ).inBps, ( Rates{ 1, {}, 2.5 } ) );
   EXPECT_EQ( samples.interfaces.at( "et1" ).outBps, ( Rates{ 0, {}, 3 } ) );
   EXPECT_EQ( samples.interfaces.at( "et2" ).inBps, Rates{} );
}

TEST( Samples, mayBeNone ) {
   EXPECT_TRUE( Api::readSamples( R"({"step-seconds":5,"start":null,"interfaces":{}})" ).interfaces.empty() );
}

TEST( Samples, thatMakeNoSenseAreRefusedWithTheReason ) {
   const struct {
      const char * json;
      const char * complaint;
   } rows[] = {
      { "[", "it is no JSON" },
      { "[]", "\"step-seconds\" is missing" },
      { R"({"step-seconds":0})", "\"step-seconds\" is no time span" },
      { R"({"step-seconds":5,"start":7})", "\"start\" is no time" },
      { R"({"step-seconds":5,"start":"2023-11-14T22:13:20Z","interfaces":[]})",
        "\"interfaces\" is no object" },
      { R"({"step-seconds":5,"start":"2023-11-14T22:13:20Z","interfaces":{"et1":[]}})",
        "\"in-bps\" is missing" },
      { R"({"step-seconds":5,"start":"2023-11-14T22:13:20Z","interfaces":{"et1":{"in-bps":1}}})",
        "\"in-bps\" is no list" },
      { R"({"step-seconds":5,"start":"2023-11-14T22:13:20Z","interfaces":{"et1":{"in-bps":["1"]}}})",
        "\"in-bps\" holds something else than numbers" } };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.json );
      try {
         Api::readSamples( row.json );
         ADD_FAILURE() << "it was taken";
      } catch ( const Api::Error & error ) {
         EXPECT_EQ( error.message, std::string( "the agent's answer makes no sense: " ) + row.complaint );
      }
   }
}

TEST( Path, ofSamplesNamesTheInterfaces ) {
   EXPECT_EQ(
      Api::Path::samplesOf( { "et1", "a b" }, 600 ),
      "/api/v1/samples?last=600&interface=et1&interface=a%20b" );
}

} // namespace
