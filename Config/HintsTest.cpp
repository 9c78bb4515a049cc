#include "Config/ErrorRowsTest.h"

namespace {

/// Without anything to warn of.
const std::string members = good + "groups: {a: {interfaces: [et1]}, b: {vlans: [10]}, empty: {}}\n"
                                   "units: {u: {groups: [a]}, v: {groups: [empty, b]}}\n";

/// A file, named f, that is accepted, and all that it is warned of.
void expectWarnings( const std::vector< ErrorRow > & rows ) {
   for ( const ErrorRow & row : rows ) {
      SCOPED_TRACE( row.text );
      const Config::Result result = Config::parse( row.text, "f" );
      EXPECT_TRUE( result );
      EXPECT_EQ( std::vector< std::string >(), textsOf( result ) );
      EXPECT_EQ( row.errors, warningsOf( result ) );
   }
}

std::string profiles( const std::string & text ) {
   return "version: 1\nprofiles: {" + text + "}\ndefault-profile: p\n";
}

TEST( Hints, areNotGivenWhereAllHasAnEffect ) { expectWarnings( { { good, {} }, { members, {} } } ); }

TEST( Hints, areNotGivenOfAFileWithErrors ) {
   const Config::Result result = Config::parse( good + "units: {u: {}}\ncolour: red\n", "f" );
   EXPECT_FALSE( result );
   EXPECT_EQ( std::vector< std::string >(), warningsOf( result ) );
}

TEST( Hints, tellOfADelayOfAShutdownThatDoesNotCome ) {
   const std::string p = "p: {threshold: 1kbps, load-interval: 1s";
   expectWarnings(
      { { profiles( p + ", shutdown-max-delay: 5m}" ),
          { "f:2:53: warning: \"shutdown-max-delay\" does nothing without shutdown: true" } },
        { profiles( p + ", shutdown: false, shutdown-max-delay: 0s}" ),
          { "f:2:70: warning: \"shutdown-max-delay\" does nothing without shutdown: true" } },
        { profiles( p + ", shutdown: true, shutdown-max-delay: 5m}" ), {} } } );
}

TEST( Hints, tellOfProfilesThatNoGroupNames ) {
   const std::string two =
      profiles( "p: {threshold: 1kbps, load-interval: 1s}, q: {threshold: 1kbps, load-interval: 1s}" );
   expectWarnings(
      { { two, { "f:2:54: warning: profile \"q\" is not used: no group names it" } },
        { two + "groups: {g: {interfaces: [et1], profile: q}}\n", {} } } );
}

TEST( Hints, tellOfStagesThatNoUnitGoesThrough ) {
   const std::string stage = members + "stages: {s: {enter: /bin/true, exit: /bin/true}}\n";
   expectWarnings(
      { { stage, { "f:6:10: warning: stage \"s\" is not used: it is in no \"enter\" and in no \"exit\"" } },
        { stage + "enter: [s, drainwatch]\nexit: [drainwatch, s]\n", {} } } );
}

TEST( Hints, areNotGivenOfAStageThatIsInOneListOnly ) {
   const auto units = []( const std::string & lists ) {
      return "groups: {a: {interfaces: [et1]}}\nunits: {u: {groups: [a], " + lists + "}}\n";
   };
   const std::string enters = good + "stages: {s: {enter: /bin/true}}\n";
   const std::string exits = good + "stages: {s: {exit: /bin/true}}\n";
   expectWarnings(
      { { enters + "enter: [s, drainwatch]\n", {} },
        { exits + "exit: [drainwatch, s]\n", {} },
        { enters + units( "enter: [s, drainwatch]" ), {} },
        { exits + units( "exit: [drainwatch, s]" ), {} } } );
}

TEST( Hints, tellOfUnitsWithoutInterfaces ) {
   const std::string what = " has no interfaces: nothing is watched when it is put into maintenance";
   expectWarnings(
      { { good + "groups: {empty: {}}\nunits: {u: {groups: [empty]}, v: {}}\n",
          { "f:5:9: warning: unit \"u\"" + what, "f:5:31: warning: unit \"v\"" + what } } } );
}

TEST( Hints, tellOfRedundancyGroupsThatGuardNothing ) {
   const auto group = []( const std::string & text ) {
      return members + "redundancy-groups: {g: {" + text + "}}\n";
   };
   expectWarnings(
      { { group( "units: [u, v]" ), {} },
        { group( "units: [u]" ),
          { "f:6:21: warning: redundancy group \"g\" guards nothing: it has one unit, and no other that "
            "stands in for it" } },
        { group( "units: []" ),
          { "f:6:21: warning: redundancy group \"g\" guards nothing: it has no unit" } },
        { group( "units: [u, v], max-out: 2" ),
          { "f:6:49: warning: redundancy group \"g\" lets all of its 2 units be out at a time; \"max-out\" "
            "is "
            "less than their number" } },
        { group( "units: [u, v], max-out: 3" ),
          { "f:6:49: warning: redundancy group \"g\" lets all of its 2 units be out at a time; \"max-out\" "
            "is "
            "less than their number" } },
        { group( "units: [u, v], max-out: 1" ), {} } } );
}

TEST( Hints, tellOfMomentsThatNeverCome ) {
   const std::string none = good + "units: {u: {}}\n";
   const std::string hook = "hooks: {h: {at: [enter, drained, shut, spike], command: /bin/true";
   const std::string ofNone = " never comes: the units of the hook have no interfaces";
   expectWarnings(
      { { members + hook + "}}\n",
          { "f:6:34: warning: the moment \"shut\" never comes: no profile has shutdown: true" } },
        { none + hook + ", units: [u]}}\n",
          { "f:4:9: warning: unit \"u\" has no interfaces: nothing is watched when it is put into "
            "maintenance",
            "f:5:25: warning: the moment \"drained\"" + ofNone,
            "f:5:34: warning: the moment \"shut\"" + ofNone,
            "f:5:40: warning: the moment \"spike\"" + ofNone } },
        { good + "groups: {a: {interfaces: [et1]}}\nunits: {u: {groups: [a]}, v: {}}\n"
                 "hooks: {h: {at: [drained], command: /bin/true, units: [u, v]}}\n",
          { "f:5:27: warning: unit \"v\" has no interfaces: nothing is watched when it is put into "
            "maintenance" } },
        { profiles( "p: {threshold: 1kbps, load-interval: 1s}, q: {threshold: 1kbps, load-interval: 1s, "
                    "shutdown: true}" ) +
             "groups: {g: {interfaces: [et1], profile: q}}\n" + hook + "}}\n",
          {} } } );
}

} // namespace
