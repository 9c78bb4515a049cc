#!/usr/bin/env bash
# Whether Tools/bench tells by its exit status what its table tells.
set -uo pipefail
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"

# _tree: one with a list of rows, which is standard input.
_tree() {
   mkdir -p Tools Bench
   cp "$tools/bench" Tools/bench
   cat > Bench/rows.txt
}
_header=name,iterations,real_time,cpu_time,time_unit,bytes_per_second,items_per_second,label,error_occurred,error_message
# _program NAME STATUS: one that prints standard input behind the header, and ends so.
_program() {
   file "bin/$1" << SH
#!/bin/sh
cat << 'CSV'
$_header
$(cat)
CSV
exit $2
SH
   chmod +x "bin/$1"
}
# _bench NAME OURS STATUS: a program that measures 10 ns as the floor, may take twice that, and ends so.
_bench() {
   [ -e Bench/rows.txt ] || _tree < /dev/null
   echo "$1: $1" >> Bench/rows.txt
   _program "$1" "$3" << CSV
"$1/floor_median",5,10,10,ns,,,,,
"$1/ours_median",5,$2,$2,ns,,,"at most 2.0 x",,
CSV
}

passesWhenAllKeepTheirLimits() {
   _bench aBench 15 0
   _bench bBench 20 0
   run Tools/bench .
   passes
   says aBench
   says bBench
   saysNot MISSED
}
failsWhenOneMissesItsLimit() {
   _bench aBench 21 0
   _bench bBench 15 0
   run Tools/bench .
   fails
   says MISSED
   says bBench
}
failsWhenAProgramDoes() {
   _bench aBench 15 3
   _bench bBench 15 0
   run Tools/bench .
   fails
   says 'bin/aBench failed'
   says bBench
}
failsWithoutAnyProgram() {
   _tree <<< "aBench: a"
   run Tools/bench .
   fails
}
# A program that ends a benchmark in an error ends with 0 itself, and may have measured some runs of it before.
failsWhenABenchmarkHasEndedInAnError() {
   _bench aBench 15 0
   echo "bBench: b" >> Bench/rows.txt
   _program bBench 0 << 'CSV'
"b/floor_median",5,10,10,ns,,,,,
"b/ours",,,,,,,,true,"links, ""all"" of them, are missing"
"b/ours",,,,,,,,true,"links, ""all"" of them, are missing"
"b/ours_median",5,15,15,ns,,,"at most 2.0 x",,
CSV
   run Tools/bench .
   fails
   says 'FAILED: b/ours: links, all of them, are missing'
   [ "$(grep -c FAILED <<< "$output")" -eq 1 ] || fail "should have said it once"
   saysNot MISSED
   run Tools/bench . b
   fails
}
takesLinesOfALogForNoRows() {
   _bench aBench 15 0
   sed -i '/floor_median/i [2026-11-22] [info] u goes into maintenance, as "x_median" has asked' bin/aBench
   run Tools/bench .
   passes
   saysNot maintenance
   echo "bBench: b" >> Bench/rows.txt
   _program bBench 0 << 'CSV'
"b/ours",,,,,,,,true,"links are missing"
[2026-11-22] [info] u goes into maintenance
CSV
   run Tools/bench .
   fails
   [ "$(grep -c FAILED <<< "$output")" -eq 1 ] || fail "one benchmark has ended in an error"
}
failsWhenOneSideOfARowIsMissing() {
   local side
   for side in floor ours; do
      _bench aBench 15 0
      sed -i "/$side/d" bin/aBench
      run Tools/bench .
      fails
      says 'MISSED: not both are there'
   done
}
failsWhenNobodyMeasuresARowAnyMore() {
   _bench aBench 15 0
   echo "aBench: another one" >> Bench/rows.txt
   run Tools/bench .
   fails
   says 'another one'
   says 'MISSED: aBench has not measured it'
   run Tools/bench . aBench
   passes # who asks for some gets some
}
failsWhenARowIsNotListed() {
   _bench aBench 15 0
   _bench bBench 15 0
   sed -i /bBench/d Bench/rows.txt
   run Tools/bench .
   fails
   says 'NOT LISTED'
}
failsWhenNothingIsCalledThat() {
   _tree <<< "aBench: a"
   _program aBench 0 < /dev/null
   run Tools/bench . nonsense
   fails
   says 'nothing has been measured'
}
failsWithoutItsList() {
   _bench aBench 15 0
   rm Bench/rows.txt
   run Tools/bench .
   fails
   says 'there are no rows in'
}
passesWithoutTheRowsOfAProgramThatSkipsThem() {
   _bench aBench 15 0
   echo "bBench: b" >> Bench/rows.txt
   _program bBench 0 <<< "skipped: b: needs more rights"
   run Tools/bench .
   passes
   says 'skipped: b: needs more rights'
   echo "aBench: another one" >> Bench/rows.txt
   run Tools/bench .
   fails # it is not that program's
}
tellsKnownMissesFromNewOnes() {
   _bench aBench 25 0
   sed -i 's/$/ | at most 3 x/' Bench/rows.txt
   run Tools/bench .
   passes
   says 'at most 2.0 x  MISSED, as is known: at most 3 x'
   _bench aBench 31 0
   sed -i 2d Bench/rows.txt
   run Tools/bench .
   fails
   says 'MISSED, and more than is known: at most 3 x'
}
saysWhenAKnownMissKeepsItsLimit() {
   _bench aBench 15 0
   sed -i 's/$/ | at most 3 x/' Bench/rows.txt
   run Tools/bench .
   passes
   saysNot MISSED
   says 'kept this time; known to miss it: at most 3 x'
}

runTest "$@"
