#!/usr/bin/env bash
# Whether Tools/bench tells by its exit status what its table tells.
set -uo pipefail
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"

# _bench NAME OURS STATUS: a program that measures 10 ns as the floor, may take twice that, and ends so.
_bench() {
   file "bin/$1" << SH
#!/bin/sh
cat << 'CSV'
name,iterations,real_time,cpu_time,time_unit,bytes_per_second,items_per_second,label,error_occurred,error_message
"$1/floor_median",5,10,10,ns,,,,,
"$1/ours_median",5,$2,$2,ns,,,"at most 2.0 x",,
CSV
exit $3
SH
   chmod +x "bin/$1"
}

passesWhenAllKeepTheirLimits() {
   _bench aBench 15 0
   _bench bBench 20 0
   run "$tools/bench" .
   passes
   says aBench
   says bBench
   saysNot MISSED
}
failsWhenOneMissesItsLimit() {
   _bench aBench 21 0
   _bench bBench 15 0
   run "$tools/bench" .
   fails
   says MISSED
   says bBench
}
failsWhenAProgramDoes() {
   _bench aBench 15 3
   _bench bBench 15 0
   run "$tools/bench" .
   fails
   says 'bin/aBench failed'
   says bBench
}
failsWithoutAnyProgram() {
   run "$tools/bench" .
   fails
}

runTest "$@"
