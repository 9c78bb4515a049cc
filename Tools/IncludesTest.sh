#!/usr/bin/env bash
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"

# Low <- High, Low <- Side/Deep; <lib/> belongs to High, <json/> to High's sources, <gtest/> to tests.
_edges() {
   printf '%s\n' 'Low:' 'High: Low' 'Side: ' 'Side/Deep: Low' 'tests: Side' 'Low tests: Side/Deep' \
      '<sys/>: anywhere' '<lib/>: High' '<json/> not in headers: High' '<gtest/>: tests' "$@" |
      file Tools/include-edges.txt
   file Low/Low.h </dev/null
   file Side/Side.h </dev/null
   file Side/Deep/Deep.h </dev/null
}

_check() {
   run "$tools/check-includes" .
}

acceptsEdgesThatAreListed() {
   _edges
   printf '%s\n' '#include "Low/Low.h"' '#include <lib/lib.h>' '#include <vector>' '#include <sys/types.h>' \
      '#include <unistd.h>' | file High/High.h
   printf '%s\n' '#include "High/High.h"' '#include <json/json.hpp>' | file High/High.cpp
   _check
   passes
   saysNothing
}

namesFileAndLineOfAnEdgeThatIsNotListed() {
   _edges
   file High/High.h </dev/null
   printf '%s\n' '// text' '#include <vector>' '  #  include "High/High.h"' | file Low/Bad.cpp
   _check
   fails
   says 'Low/Bad.cpp:3: Low may not include High ("High/High.h")'
}

tellsAFolderFromTheOneItStandsIn() {
   _edges
   file Side/Bad.h <<<'#include "Side/Deep/Deep.h"'
   _check
   fails
   says 'Side/Bad.h:1: Side may not include Side/Deep'
}

expandsAStarToTheFoldersUnderIt() {
   _edges 'Top: Side/*'
   printf '%s\n' '#include "Side/Deep/Deep.h"' '#include "Side/Side.h"' | file Top/Top.h
   _check
   fails
   says 'Top/Top.h:2: Top may not include Side '
   saysNot 'Top/Top.h:1:'
}

refusesAPathThatIsNotFromTheRoot() {
   _edges
   file Low/Bad.h <<<'#include "Low.h"'
   _check
   fails
   says 'Low/Bad.h:1: "Low.h" is no file of this tree'
}

refusesAFolderWithoutALine() {
   _edges
   file Nowhere/Bad.h </dev/null
   _check
   fails
   says 'Nowhere/Bad.h:1: its folder has no line in Tools/include-edges.txt'
}

refusesACircleOfHeaders() {
   _edges
   file Low/A.h <<<'#include "Low/B.h"'
   printf '\n#include "Low/C.h"\n' | file Low/B.h
   file Low/C.h <<<'#include "Low/A.h"'
   _check
   fails
   says 'Low/C.h:1: circle: Low/A.h -> Low/B.h -> Low/C.h -> Low/A.h'
}

refusesACircleInTheList() {
   _edges 'Ring: Loop' 'Loop: Ring'
   _check
   fails
   says 'Tools/include-edges.txt:11: circle: Ring -> Loop -> Ring'
}

refusesAListThatNamesAFolderItDoesNotHave() {
   _edges 'Top: Lwo'
   _check
   fails
   says "Tools/include-edges.txt:11: 'Lwo' has no line of its own"
}

givesTestsWhatTheListGivesThem() {
   _edges
   printf '%s\n' '#include "Side/Side.h"' '#include "Side/Deep/Deep.h"' '#include <gtest/gtest.h>' |
      file Low/LowTest.cpp
   file High/HighTest.cpp <<<'#include "Side/Deep/Deep.h"'
   _check
   fails
   says 'High/HighTest.cpp:1: High may not include Side/Deep'
   saysNot 'Low/LowTest.cpp'
}

keepsTestsToTheirFoldersEdges() {
   _edges
   file High/High.h </dev/null
   file Low/LowTest.cpp <<<'#include "High/High.h"'
   _check
   fails
   says 'Low/LowTest.cpp:1: Low may not include High'
}

keepsTestHeadersOutOfTheProduct() {
   _edges
   file Low/LowTest.h </dev/null
   file Low/Low.cpp <<<'#include "Low/LowTest.h"'
   file Low/LowTest.cpp <<<'#include "Low/LowTest.h"'
   _check
   fails
   says 'Low/Low.cpp:1: only tests may include "Low/LowTest.h"'
   saysNot 'Low/LowTest.cpp:1'
}

refusesALibraryInTheWrongFolder() {
   _edges
   file Low/Bad.cpp <<<'#include <lib/lib.h>'
   file Low/Worse.cpp <<<'#include <gtest/gtest.h>'
   _check
   fails
   says 'Low/Bad.cpp:1: Low may not include <lib/lib.h>'
   says 'Low/Worse.cpp:1: Low may not include <gtest/gtest.h>'
}

refusesALibraryInAHeader() {
   _edges
   file High/Bad.h <<<'#include <json/json.hpp>'
   _check
   fails
   says 'High/Bad.h:1: no header may include <json/json.hpp>'
}

refusesALibraryThatNobodyChose() {
   _edges
   file Low/Bad.cpp <<<'#include <boost/any.hpp>'
   _check
   fails
   says 'Low/Bad.cpp:1: <boost/any.hpp> belongs to a library that Tools/include-edges.txt does not name'
}

refusesAnIncludeThatNamesNoFile() {
   _edges
   file Low/Bad.cpp <<<'#include WHICH'
   _check
   fails
   says 'Low/Bad.cpp:1: names no file'
}

passesOverCommentsAndStrings() {
   _edges
   printf '%s\n' '/*' '#include "High/High.h"' '*/' '// #include "High/High.h"' 'auto t = R"x(' \
      '#include "High/High.h" )"' ')x";' | file Low/Good.cpp
   _check
   passes
}

findsAnIncludeAfterCommentsAndStrings() {
   _edges
   printf '%s\n' "char q = '\"'; // /*" 'auto u = "/* \" //"; auto n = 1'"'"'000; /* x */' '#include "High/High.h"' |
      file Low/Bad.cpp
   _check
   fails
   says 'Low/Bad.cpp:3:'
}

theReadmeNamesEveryFolderOfTheList() {
   run awk -F: 'FNR == NR { readme = readme $0; next }
      /^[A-Z]/ && $1 !~ / / && !index( readme, "`" $1 "`" )' "$tools/../README.md" "$tools/include-edges.txt"
   saysNothing
}

# What all rooms of the agent may include is said once.
theReadmeShowsWhichRoomsOfTheAgentIncludeEachOther() {
   run awk -F': +' 'FNR == NR { readme = readme $0; next }
      /^Agent\// && $1 !~ / / {
         n = split( $2, list, " " )
         for ( i = 1; i <= n; ++i )
            if ( list[ i ] ~ /^Agent\// && list[ i ] != "Agent/Model" && !index( readme, $1 " --> " list[ i ] ) )
               print $1 " --> " list[ i ]
      }' "$tools/../README.md" "$tools/include-edges.txt"
   saysNothing
}

runTest "$@"
