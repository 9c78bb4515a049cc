#include "Agent/Commands/Protocol.h"

#include <gtest/gtest.h>

namespace {

using Agent::CommandInput;

CommandInput input() {
   CommandInput result;
   result.unit = "spine-a";
   result.generation = 7;
   result.stage = "steer";
   result.reason = "swap \"it\"";
   result.by = "ann";
   result.interfaces = R"([{"name":"et1"}])";
   return result;
}

TEST( CommandProtocol, tellsAllInOneObjectOnOneLine ) {
   EXPECT_EQ(
      R"({"by":"ann","generation":7,"interfaces":[{"name":"et1"}],"operation":"enter","reason":"swap \"it\"",)"
      R"("recorded":null,"rerun":false,"stage":"steer","unit":"spine-a"})"
      "\n",
      Agent::inputText( input() ) );
}

TEST( CommandProtocol, givesBackWhatWasRecordedAndSaysWhatIsUnknown ) {
   CommandInput exit = input();
   exit.enter = false;
   exit.reason = exit.by = "";
   exit.recorded = R"({"was":{"on":false},"n":1e3})";
   exit.rerun = true;
   EXPECT_EQ(
      R"({"by":null,"generation":7,"interfaces":[{"name":"et1"}],"operation":"exit","reason":null,)"
      R"("recorded":{"n":1000.0,"was":{"on":false}},"rerun":true,"stage":"steer","unit":"spine-a"})"
      "\n",
      Agent::inputText( exit ) );
}

TEST( CommandProtocol, showsAReasonThatIsNoText ) {
   CommandInput odd = input();
   odd.reason = "\xff";
   EXPECT_NE( std::string::npos, Agent::inputText( odd ).find( "\"reason\":\"\ufffd\"" ) );
}

TEST( CommandProtocol, leavesNothingOfTheAgentsEnvironment ) {
   EXPECT_EQ(
      ( std::vector< std::string >{
         "MAINTD_RUN=spine-a#7/steer", "MAINTD_UNIT=spine-a", "MAINTD_GENERATION=7", "MAINTD_OPERATION=enter",
         "MAINTD_STAGE=steer", "MAINTD_KEPT_FD=3",
         "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "LANG=C.UTF-8" } ),
      Agent::commandEnvironment( input() ) );
}

TEST( CommandProtocol, recordsObjectsOnly ) {
   std::string deep = "{\"a\":";
   for ( int i = 0; i < 100; ++i )
      deep += "[";
   const std::string veryDeep = "{\"a\":" + std::string( 200'000, '[' );
   for ( const auto & [line, problem] : std::vector< std::pair< std::string, std::string > >{
            { "{}", "" },
            { R"({"a": [1, {"b": null}]}  )", "" },
            { R"({"a": 1)", "is no JSON object" },
            { R"({"a": 1} x)", "is no JSON object" },
            { "{a: 1}", "is no JSON object" },
            { "{\"a\": \"\xff\"}", "is no JSON object" },
            { R"({"a": NaN})", "is no JSON object" },
            { deep, "is nested more than 64 deep" },
            { veryDeep, "is nested more than 64 deep" } } ) {
      SCOPED_TRACE( line.substr( 0, 100 ) );
      EXPECT_EQ( problem, Agent::recordProblem( line ) );
   }
}

} // namespace
