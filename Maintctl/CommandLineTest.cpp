#include "Maintctl/CommandLine.h"

#include <gtest/gtest.h>

namespace Maintctl {

namespace {

template < class Kind >
Kind commandOf( const std::vector< std::string > & words ) {
   const Parsed parsed = parse( words, "1.2.3" );
   const auto * invocation = std::get_if< Invocation >( &parsed );
   const Kind * command = invocation ? std::get_if< Kind >( &invocation->command ) : nullptr;
   if ( !command ) {
      ADD_FAILURE() << "not taken, or as another command";
      return {};
   }
   return *command;
}

Invocation invocationOf( const std::vector< std::string > & words ) {
   const Parsed parsed = parse( words, "1.2.3" );
   if ( const auto * error = std::get_if< UsageError >( &parsed ) )
      ADD_FAILURE() << error->failure.message;
   return std::get< Invocation >( parsed );
}

/// What is said of a command line that makes no sense.
std::string complaintOf( const std::vector< std::string > & words ) {
   const Parsed parsed = parse( words, "1.2.3" );
   const auto * error = std::get_if< UsageError >( &parsed );
   if ( !error )
      return "(taken)";
   EXPECT_EQ( error->failure.status, ExitStatus::usage );
   EXPECT_EQ( error->failure.code, "usage" );
   return error->failure.message;
}

std::string helpOf( const std::vector< std::string > & words ) {
   const Parsed parsed = parse( words, "1.2.3" );
   const auto * information = std::get_if< Information >( &parsed );
   return information ? information->text : "";
}

TEST( CommandLine, defaultsToTheInstalledAgentAndTextForPeople ) {
   const Invocation invocation = invocationOf( { "dump" } );
   EXPECT_FALSE( invocation.json );
   EXPECT_TRUE( invocation.progress );
   EXPECT_EQ( invocation.socket, "/run/maintd/control.sock" );
}

TEST( CommandLine, takesTheOptionsOfAllVerbsBeforeAndBehindTheVerb ) {
   for ( const std::vector< std::string > & words :
         { std::vector< std::string >{ "-j", "--socket", "/s", "--no-progress", "show", "unit", "a" },
           { "show", "--json", "unit", "--socket=/s", "a", "--no-progress" },
           { "show", "unit", "a", "-j", "--no-progress", "--socket", "/s" } } ) {
      const Invocation invocation = invocationOf( words );
      EXPECT_TRUE( invocation.json );
      EXPECT_FALSE( invocation.progress );
      EXPECT_EQ( invocation.socket, "/s" );
      EXPECT_EQ( std::get< Show >( invocation.command ).name, "a" );
   }
}

TEST( CommandLine, takesEnterAndExit ) {
   const auto enter = commandOf< Operate >( { "enter", "a" } );
   EXPECT_EQ( enter.operation, Operate::Operation::enter );
   EXPECT_EQ( enter.units, std::vector< std::string >{ "a" } );
   EXPECT_FALSE( enter.reason );
   EXPECT_FALSE( enter.wait );
   EXPECT_FALSE( enter.timeout );
   const auto exit =
      commandOf< Operate >( { "exit", "a", "--reason", "new optics", "--wait", "--timeout", "1m30s" } );
   EXPECT_EQ( exit.operation, Operate::Operation::exit );
   EXPECT_EQ( exit.reason, "new optics" );
   EXPECT_TRUE( exit.wait );
   EXPECT_EQ( exit.timeout->seconds(), 90 );
}

TEST( CommandLine, takesSeveralUnitsWithKeyAndPairs ) {
   const auto enter = commandOf< Operate >(
      { "enter", "a", "--with", "x=1", "b", "--request-key", "k", "--with=y=2=3", "c" } );
   EXPECT_EQ( enter.units, ( std::vector< std::string >{ "a", "b", "c" } ) );
   EXPECT_EQ( enter.requestKey, "k" );
   EXPECT_EQ( enter.with, ( std::map< std::string, std::string >{ { "x", "1" }, { "y", "2=3" } } ) );
   for ( const auto & [pair, complaint] :
         { std::pair( "x", "--with: \"x\" is not KEY=VALUE" ),
           std::pair( "=x", "--with: \"=x\" is not KEY=VALUE" ) } )
      EXPECT_EQ( complaintOf( { "exit", "a", "--with", pair } ), complaint );
   EXPECT_EQ(
      complaintOf( { "exit", "a", "--with", "x=1", "--with", "x=2" } ), "--with: \"x\" is given twice" );
   EXPECT_NE( complaintOf( { "enter", "a", "" } ), "(taken)" );
   EXPECT_NE( complaintOf( { "enter", "a", "--request-key", "" } ), "(taken)" );
}

TEST( CommandLine, takesOperations ) {
   const auto operations =
      commandOf< ShowOperations >( { "operations", "a", "--state", "done", "--limit", "5" } );
   EXPECT_EQ( operations.unit, "a" );
   EXPECT_EQ( operations.state, "done" );
   EXPECT_EQ( operations.limit, 5u );
   EXPECT_EQ( commandOf< ShowOperations >( { "operations" } ).limit, 20u );
   EXPECT_EQ( commandOf< ShowOperation >( { "operation", "7" } ).id, 7u );
   EXPECT_NE( complaintOf( { "operations", "--state", "over" } ), "(taken)" );
   EXPECT_NE( complaintOf( { "operation", "x" } ), "(taken)" );
}

TEST( CommandLine, waitsIfThereIsATimeout ) {
   EXPECT_TRUE( commandOf< Operate >( { "enter", "a", "--timeout", "5m" } ).wait );
}

TEST( CommandLine, takesWait ) {
   const auto wait = commandOf< Wait >( { "wait", "a", "--for=normal", "--timeout", "0s" } );
   EXPECT_EQ( wait.unit, "a" );
   EXPECT_EQ( wait.until, Operate::Operation::exit );
   EXPECT_EQ( wait.timeout->seconds(), 0 );
   EXPECT_EQ( commandOf< Wait >( { "wait", "a", "--for", "maintenance" } ).until, Operate::Operation::enter );
}

TEST( CommandLine, takesWhatCanBeShown ) {
   using What = Show::What;
   const struct {
      std::vector< std::string > words;
      What what;
      std::string name;
   } rows[] = {
      { { "units" }, What::units, "" },
      { { "unit", "a" }, What::unit, "a" },
      { { "interfaces" }, What::interfaces, "" },
      { { "interfaces", "a" }, What::interfaces, "a" },
      { { "interface", "et1" }, What::interface, "et1" },
      { { "profiles" }, What::profiles, "" },
      { { "groups" }, What::groups, "" },
      { { "counters" }, What::counters, "" },
      { { "agent" }, What::agent, "" } };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.words[0] );
      std::vector< std::string > words = row.words;
      words.insert( words.begin(), "show" );
      const auto show = commandOf< Show >( words );
      EXPECT_EQ( show.what, row.what );
      EXPECT_EQ( show.name, row.name );
   }
}

TEST( CommandLine, takesWhatCanBeWatched ) {
   using What = Show::What;
   const struct {
      std::vector< std::string > words;
      What what;
      const char * name;
      unsigned interval;
   } rows[] = {
      { { "show", "--watch" }, What::units, "", 1 },
      { { "show", "--watch", "--interval", "5s" }, What::units, "", 5 },
      { { "show", "units", "--watch", "--interval=1m" }, What::units, "", 60 },
      { { "show", "--watch", "units" }, What::units, "", 1 },
      { { "show", "unit", "a", "--watch" }, What::unit, "a", 1 },
      { { "show", "unit", "--watch", "a" }, What::unit, "a", 1 },
      { { "show", "interfaces", "--watch" }, What::interfaces, "", 1 },
      { { "show", "interfaces", "a", "--watch" }, What::interfaces, "a", 1 },
      { { "show", "interface", "et1", "--watch", "-j" }, What::interface, "et1", 1 } };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( testing::PrintToString( row.words ) );
      const Show show = commandOf< Show >( row.words );
      EXPECT_EQ( show.what, row.what );
      EXPECT_EQ( show.name, row.name );
      EXPECT_TRUE( show.watch );
      EXPECT_EQ( show.interval.seconds(), row.interval );
   }
   EXPECT_FALSE( commandOf< Show >( { "show", "units" } ).watch );
}

TEST( CommandLine, takesTheVerbsOfDiagnosis ) {
   EXPECT_EQ( commandOf< Explain >( { "explain", "a" } ).unit, "a" );
   commandOf< Dump >( { "dump" } );
   EXPECT_FALSE( commandOf< ShowFastLog >( { "fastlog" } ).file );
   const auto fastLog =
      commandOf< ShowFastLog >( { "fastlog", "--file", "/f", "--last", "20", "--run", "2" } );
   EXPECT_EQ( fastLog.file, "/f" );
   EXPECT_EQ( fastLog.lastLines, 20 );
   EXPECT_EQ( fastLog.run, 2 );
   EXPECT_TRUE( commandOf< Trace >( { "trace" } ).levels.empty() );
   EXPECT_EQ(
      commandOf< Trace >( { "trace", "DrainWatch=9", "A=B=0", "Cog=off", "Vel=-1" } ).levels,
      ( std::vector< std::pair< std::string, int > >{
         { "DrainWatch", 9 }, { "A=B", 0 }, { "Cog", -1 }, { "Vel", -1 } } ) );
   EXPECT_FALSE( commandOf< Release >( { "release", "et1" } ).force );
   const auto release = commandOf< Release >( { "release", "et1", "--force" } );
   EXPECT_EQ( release.interface, "et1" );
   EXPECT_TRUE( release.force );
   EXPECT_EQ( commandOf< Validate >( { "validate", "/f" } ).file, "/f" );
   EXPECT_EQ( commandOf< Validate >( { "validate" } ).file, "/etc/maintd/maintd.yaml" );
   commandOf< Reload >( { "reload" } );
}

TEST( CommandLine, takesTheVerbsOfTheSimulatedSwitch ) {
   const auto both = commandOf< SimulatedTraffic >( { "simulated", "traffic", "et1", "--to", "1.5Mbps" } );
   EXPECT_EQ( both.interface, "et1" );
   EXPECT_EQ( both.in.bps(), 1500000 );
   EXPECT_EQ( both.out.bps(), 1500000 );
   EXPECT_FALSE( both.ramp );
   const auto each = commandOf< SimulatedTraffic >(
      { "simulated", "traffic", "et1", "--in", "1kbps", "--out", "0bps", "--ramp", "30s" } );
   EXPECT_EQ( each.in.bps(), 1000 );
   EXPECT_EQ( each.out.bps(), 0 );
   EXPECT_EQ( each.ramp->seconds(), 30 );
   EXPECT_TRUE( commandOf< SimulatedLink >( { "simulated", "link", "et1", "up" } ).up );
   EXPECT_FALSE( commandOf< SimulatedLink >( { "simulated", "link", "et1", "down" } ).up );
   EXPECT_EQ( commandOf< SimulatedAdvance >( { "simulated", "advance", "2m" } ).by.seconds(), 120 );
}

TEST( CommandLine, saysWhatMakesNoSense ) {
   const struct {
      std::vector< std::string > words;
      std::string complaint;
   } rows[] = {
      { {}, "a command is missing; \"maintctl --help\" lists them" },
      { { "-j" }, "a command is missing; \"maintctl --help\" lists them" },
      { { "show", "profiles", "--watch" }, "--watch: is for units and interfaces" },
      { { "show", "--watch", "agent" }, "--watch: is for units and interfaces" },
      { { "show", "--watch", "--interval", "0s" }, "--interval: must be at least 1s" },
      { { "show", "--watch", "--interval", "5" }, "--interval: \"5\" has no unit; write 5s, 5m or 5h" },
      { { "show", "units", "--interval", "5s" }, "--interval requires --watch" },
      { { "show", "--interval", "5s", "untis" }, "unknown command \"show untis\"; did you mean \"units\"?" },
      { { "show" }, "a command is missing after \"show\"; \"maintctl show --help\" lists them" },
      { { "enter" }, "UNIT is required" },
      { { "enter", "" }, "UNIT: is empty" },
      { { "plan", "a", "b" }, "The following argument was not expected: b" },
      { { "enter", "a", "--now" }, "unknown option \"--now\"" },
      { { "enter", "a", "--raeson=fan" }, "unknown option \"--raeson\"; did you mean \"--reason\"?" },
      { { "report", "x" }, "ID: \"x\" is no number from 1 to 4294967295" },
      { { "report", "0" }, "ID: \"0\" is no number from 1 to 4294967295" },
      { { "operation", "1.5" }, "ID: \"1.5\" is no number from 1 to 4294967295" },
      { { "events", "--after=-1" }, "--after: \"-1\" is no number from 0 to 18446744073709551615" },
      { { "events", "--last", "5000" }, "--last: \"5000\" is no number from 1 to 4096" },
      { { "history", "--limit", "0" }, "--limit: \"0\" is no number from 1 to 1000" },
      { { "plan", "a", "--session", "foo" }, "--session: \"foo\" is no address" },
      { { "enter", "a", "--reason" }, "--reason: 1 required TEXT missing" },
      { { "wait", "a" }, "--for is required" },
      { { "wait", "a", "--for=drained" }, "--for: drained not in {maintenance,normal}" },
      { { "wait", "a", "--for=normal", "--timeout", "5" },
        "--timeout: \"5\" has no unit; write 5s, 5m or 5h" },
      { { "show", "unit" }, "UNIT is required" },
      { { "trace", "Cog" }, "NAME=LEVEL: \"Cog\" is no NAME=LEVEL with a level of 0 to 9, or off" },
      { { "trace", "Cog=10" }, "NAME=LEVEL: \"Cog=10\" is no NAME=LEVEL with a level of 0 to 9, or off" },
      { { "trace", "=1" }, "NAME=LEVEL: \"=1\" is no NAME=LEVEL with a level of 0 to 9, or off" },
      { { "simulated", "traffic", "et1" }, "--to, or --in and --out is required" },
      { { "simulated", "traffic", "et1", "--in", "1bps" }, "--in requires --out" },
      { { "simulated", "traffic", "et1", "--to", "5" },
        "--to: \"5\" has no unit; write 5bps, 5kbps, 5Mbps or 5Gbps" },
      { { "simulated", "link", "et1", "on" }, "STATE: on not in {up,down}" },
      { { "simulated", "advance" }, "TIME is required" } };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( testing::PrintToString( row.words ) );
      EXPECT_EQ( complaintOf( row.words ), row.complaint );
   }
}

TEST( CommandLine, suggestsTheVerbThatWasProbablyMeant ) {
   EXPECT_EQ( complaintOf( { "entr", "a" } ), "unknown command \"entr\"; did you mean \"enter\"?" );
   EXPECT_EQ(
      complaintOf( { "--socket", "/s", "explian", "a" } ),
      "unknown command \"explian\"; did you mean \"explain\"?" );
   EXPECT_EQ( complaintOf( { "show", "unts" } ), "unknown command \"show unts\"; did you mean \"units\"?" );
   EXPECT_EQ( complaintOf( { "fly" } ), "unknown command \"fly\"" );
   EXPECT_EQ(
      complaintOf( { "show", "history" } ),
      "unknown command \"show history\"; did you mean \"maintctl history\"?" );
}

TEST( CommandLine, knowsFromTheWordsAloneThatJsonWasAskedFor ) {
   const Parsed parsed = parse( { "entr", "a", "-j" }, "1.2.3" );
   EXPECT_TRUE( std::get< UsageError >( parsed ).json );
   EXPECT_FALSE( std::get< UsageError >( parse( { "entr", "a" }, "1.2.3" ) ).json );
}

TEST( CommandLine, listsEveryVerbInItsHelp ) {
   const std::string help = helpOf( { "--help" } );
   for ( const char * verb :
         { "enter", "exit", "wait", "show", "explain", "dump", "fastlog", "trace", "release", "validate",
           "reload", "simulated" } )
      EXPECT_NE( help.find( "\n  " + std::string( verb ) + " " ), std::string::npos ) << verb;
   const std::string showHelp = helpOf( { "show", "--help" } );
   for ( const char * what :
         { "units", "unit", "interfaces", "interface", "profiles", "groups", "counters", "agent" } )
      EXPECT_NE( showHelp.find( "\n  " + std::string( what ) + " " ), std::string::npos ) << what;
   const std::string simulatedHelp = helpOf( { "simulated", "--help" } );
   for ( const char * what : { "traffic", "link", "advance" } )
      EXPECT_NE( simulatedHelp.find( "\n  " + std::string( what ) + " " ), std::string::npos ) << what;
}

TEST( CommandLine, listsEveryExitStatusInItsHelp ) {
   const std::string help = helpOf( { "-h" } );
   for ( const char * status :
         { "0  done", "1  refused", "2  wrong usage", "3  the agent", "4  timed out", "5  needs --force",
           "130  interrupted" } )
      EXPECT_NE( help.find( status ), std::string::npos ) << status;
}

TEST( CommandLine, saysItsVersion ) {
   const Parsed parsed = parse( { "--version" }, "1.2.3" );
   EXPECT_EQ( std::get< Information >( parsed ).text, "maintctl 1.2.3\n" );
   const Parsed asJson = parse( { "-j", "--version" }, "1.2.3" );
   EXPECT_EQ( std::get< Information >( asJson ).value, "1.2.3" );
   EXPECT_TRUE( std::get< Information >( asJson ).json );
   EXPECT_TRUE( std::get< Information >( parse( { "-jh" }, "1.2.3" ) ).json );
   EXPECT_TRUE( std::get< UsageError >( parse( { "-jx" }, "1.2.3" ) ).json );
   EXPECT_FALSE( std::get< Information >( parse( { "-h" }, "1.2.3" ) ).json );
}

} // namespace
} // namespace Maintctl
