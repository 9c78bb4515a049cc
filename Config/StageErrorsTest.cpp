#include "Config/ErrorRowsTest.h"

namespace {

const std::string steer = good + "stages: {steer: {enter: /bin/true, exit: /bin/true}}\n";

TEST( StageErrors, reportsStagesThatAreNotDefinedWell ) {
   expectErrors(
      { { good + "stages: {steer: {timeout: 5s}}\n",
          { "f:4:10: error: stage \"steer\" needs a command for \"enter\", \"exit\" or both" } },
        { good + "stages: {drainwatch: {enter: /bin/true}}\n",
          { "f:4:10: error: \"drainwatch\" is a stage already; choose another name" } },
        { good + "stages: {a b: {enter: /bin/true}}\n",
          { "f:4:10: error: \"a b\" is not a valid name; a name has 1 to 63 letters, digits, \".\", \"_\" or "
            "\"-\" and begins with a letter or digit" } },
        { good + "stages: {steer: {entr: /bin/true, exit: /bin/true}}\n",
          { "f:4:18: error: unknown key \"entr\" in a stage; did you mean \"enter\"?" } },
        { good + "stages: {steer: {enter: [/bin/true]}}\n",
          { "f:4:25: error: \"enter\" must be a command, not a list" } },
        { good + "stages: {steer: {enter: steer}}\n",
          { "f:4:25: error: command \"steer\" begins with \"steer\", which is no absolute path; write where "
            "the "
            "program is, for example /usr/local/sbin/steer" } },
        { good + "stages:\n"
                 "  steer:\n"
                 "    exit: /bin/true && /bin/false\n",
          { "f:6:11: error: command \"/bin/true && /bin/false\" has &, and no shell runs a command; put it "
            "in "
            "'...' if it is text, or write /bin/sh -c '...'" } },
        { good + "stages: {steer: {enter: /bin/true, timeout: 0s, on-failure: abrt}}\n",
          { "f:4:45: error: \"0s\" is out of range; a stage gets at least 1s",
            "f:4:61: error: \"on-failure\" must be abort or continue, not \"abrt\"; did you mean "
            "\"abort\"?" } },
        { good + "stages: {steer: {enter: /bin/true, steer: yes}}\n",
          { "f:4:36: error: unknown key \"steer\" in a stage; did you mean \"steers\"?" } },
        { good + "stages: {steer: {enter: /bin/true, steers: yes}}\n",
          { "f:4:44: error: \"steers\" must be true or false, not \"yes\"" } },
        { good + "stages: {steer: {exit: /bin/true, steers: true}}\n",
          { "f:4:43: error: stage \"steer\" has no command for \"enter\" that could steer" } },
        { good + "stages: {steer: {enter: /bin/true, timeout: 60}}\n",
          { "f:4:45: error: \"60\" has no unit; write 60s, 60m or 60h" } },
        { good + "stages: [steer]\nenter: [steer, drainwatch]\n",
          { "f:4:9: error: \"stages\" must be a map of stages, not a list" } } } );
}

TEST( StageErrors, reportsListsThatNameNoStageOrOneTwice ) {
   expectErrors(
      { { steer + "enter: [stear, drainwatch]\n",
          { "f:5:9: error: unknown stage \"stear\"; did you mean \"steer\"?" } },
        { steer + "enter: [steer, drainwatch, steer]\n",
          { "f:5:28: error: \"steer\" is listed twice; it is already at f:5:9" } },
        { steer + "units: {u: {exit: [drainwatch, steeer]}}\n",
          { "f:5:32: error: unknown stage \"steeer\"; did you mean \"steer\"?" } } } );
}

TEST( StageErrors, reportsAWayBackThatLeavesLinksShut ) {
   const std::string nothing =
      "stage \"drainwatch\" is in the list \"enter\" and not in the list \"exit\"; nothing "
      "else lets go of the links that it shuts";
   expectErrors(
      { { steer + "exit: [steer]\n", { "f:5:7: error: " + nothing } },
        { steer + "units:\n"
                  "  u: {exit: [steer]}\n",
          { "f:6:13: error: " + nothing } },
        { steer + "enter: [steer]\n"
                  "exit: [steer]\n"
                  "units:\n"
                  "  u: {enter: [drainwatch]}\n",
          { "f:8:3: error: " + nothing } } } );
}

TEST( StageErrors, reportsAWayBackThatUndoesNotEverything ) {
   const std::string notUndone = "stage \"steer\" is in the list \"enter\" and not in the list \"exit\"; its "
                                 "command for \"exit\" would not undo what it has done";
   expectErrors(
      { { steer + "enter: [steer, drainwatch]\n", { "f:5:8: error: " + notUndone } },
        { steer + "enter: [steer, drainwatch]\nexit: [drainwatch]\n", { "f:6:7: error: " + notUndone } },
        { steer + "units:\n"
                  "  u: {enter: [steer, drainwatch]}\n",
          { "f:6:3: error: " + notUndone } },
        { steer + "units:\n"
                  "  u: {enter: [steer, drainwatch], exit: [drainwatch]}\n",
          { "f:6:41: error: " + notUndone } } } );
}

TEST( StageErrors, takesStagesThatLeaveNothingToUndo ) {
   const auto result =
      Config::parse( good + "stages: {tell: {enter: /bin/true}}\nenter: [tell, drainwatch]\n", "f" );
   EXPECT_EQ( std::vector< std::string >(), textsOf( result ) );
}

TEST( StageErrors, reportsTheWayBackOfOneUnitBesideAWrongNameInAnother ) {
   expectErrors(
      { { steer + "units:\n"
                  "  u: {enter: [stear, drainwatch]}\n"
                  "  v: {exit: [steer]}\n",
          { "f:6:15: error: unknown stage \"stear\"; did you mean \"steer\"?",
            "f:7:13: error: stage \"drainwatch\" is in the list \"enter\" and not in the list \"exit\"; "
            "nothing else lets go of the links that it shuts" } },
        { steer + "enter: drainwatch\n"
                  "units: {v: {exit: [steer]}}\n",
          { "f:5:8: error: \"enter\" must be a list of stages, not a single value" } } } );
}

TEST( StageErrors, takesUnitsThatAreNotWatchedAtAll ) {
   const auto result = Config::parse( steer + "enter: [steer]\nexit: [steer]\n", "f" );
   EXPECT_EQ( std::vector< std::string >(), textsOf( result ) );
}

TEST( StageErrors, givesCommandsTheirDefaults ) {
   const auto result = Config::parse( good + "stages: {s: {exit: /bin/a 'b c'}}\n", "f" );
   ASSERT_TRUE( result );
   const Config::CommandStage & stage = result.configuration->stages.at( "s" );
   EXPECT_TRUE( stage.enter.empty() );
   EXPECT_EQ( ( std::vector< std::string >{ "/bin/a", "b c" } ), stage.exit.words() );
   EXPECT_EQ( 60u, stage.timeout.seconds() );
   EXPECT_EQ( Config::OnFailure::abort, stage.onFailure );
   EXPECT_FALSE( stage.steers );
}

} // namespace
