#include "Agent/Control/ControlApiRigTest.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

/// What docs/api.md says of metrics, against what the agent answers.
namespace Agent {

namespace {

using Maintenance::Unit::UnitState;

constexpr char head[] = "| metric | type | unit | labels | meaning |";

class MetricsDocument : public ControlApiRig {
 protected:
   /// A world in which each metric has a sample.
   void SetUp() override {
      rig.unit( "u1" ).stateIs( UnitState::enterInProgress );
      rig.unit( "u1" ).aggTrafficRateIs( { 2000, 1500, now } );
      rig.runs->unitRun( "u1" )->deadlineIs( now + 100 );
      UnitTimes & times = *rig.times->unitIs( "u1" );
      times.deadlineIs( now + 90 );
      times.revertAtIs( now + 600 );
      progress = { "drainwatch", 1, 0, std::nullopt, 10, "" };
      progress.stages = { { "steer", "complete", now - 9, "/bin/a", 60, "", true, false } };
      auto & record = rig.record( rig.et2, Maintenance::monIntfStateEnterMaint );
      rig.sample( record, 800, 1600, 3 );
      auto & insight = *rig.insights->intfIs( rig.et2 );
      insight.sinceIs( now - 20 );
      insight.etaIs( now + 40 );
      insight.reasonIs( Reason::timing );
      facts.countersRead = now - 2;
      facts.started = now - 1000;
      facts.restarts = 1;
      facts.hooks = { { "desk", true, 5, 2, 3, 4, 17, "" } };
      counted = Vel::make< Counted >();
   }

   static std::string unitOf( const std::string & name ) {
      const auto ends = [&]( const char * end ) { return name.ends_with( end ); };
      return ends( "_timestamp_seconds" )                     ? "Unix time"
             : ends( "_bytes_per_second" )                    ? "bytes/s"
             : ends( "_seconds" ) || ends( "_seconds_total" ) ? "s"
                                                              : "";
   }
   /// The table of an answer, in its order.
   static std::string tableOf( const std::string & answer ) {
      std::vector< std::string > names;
      std::map< std::string, std::string > helps, types, labels;
      std::istringstream lines( answer );
      for ( std::string line; std::getline( lines, line ); ) {
         std::istringstream words( line );
         std::string hash, word, name, rest;
         if (
            line.starts_with( "# " ) && words >> hash >> word >> name &&
            std::getline( words >> std::ws, rest ) ) {
            ( word == "HELP" ? helps : types )[name] = rest;
            if ( word == "HELP" )
               names.push_back( name );
         } else if ( line.starts_with( "maint_" ) ) {
            addLabels( line, labels[line.substr( 0, line.find_first_of( "{ " ) )] );
         }
      }
      std::string table = std::string( head ) + "\n|---|---|---|---|---|\n";
      for ( const std::string & name : names ) {
         EXPECT_TRUE( labels.count( name ) ) << name << " has no sample here";
         table += "| `" + name + "` | " + types[name] + " | " + unitOf( name ) + " | " + labels[name] +
                  " | " + helps[name] + " |\n";
      }
      return table;
   }
   static void addLabels( const std::string & sample, std::string & labels ) {
      const std::size_t begin = sample.find( '{' ), end = sample.rfind( '}' );
      if ( begin == std::string::npos || !labels.empty() )
         return;
      std::istringstream pairs( sample.substr( begin + 1, end - begin - 1 ) );
      for ( std::string pair; std::getline( pairs, pair, ',' ); )
         labels += ( labels.empty() ? "`" : ", `" ) + pair.substr( 0, pair.find( '=' ) ) + "`";
   }
   static std::string tableOfDocument() {
      std::ostringstream all;
      all << std::ifstream( MAINT_API_DOCUMENT ).rdbuf();
      const std::string text = all.str();
      const std::size_t begin = text.find( head );
      if ( begin == std::string::npos )
         return "";
      return text.substr( begin, text.find( "\n\n", begin ) + 1 - begin );
   }
};

TEST_F( MetricsDocument, tellsOfEachMetricAsTheAgentDoes ) {
   EXPECT_EQ( 200, ask( "GET", "/metrics" ) );
   EXPECT_EQ( tableOf( reply.body ), tableOfDocument() );
}

} // namespace

} // namespace Agent
