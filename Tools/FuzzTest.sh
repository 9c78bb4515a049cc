#!/usr/bin/env bash
# Whether Tools/fuzz tells of what fuzzers find, and of those that have not run.
set -uo pipefail
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"

# A tree with one target, which is a script: standard input.
_target() {
   mkdir -p Tools Fuzz/corpus/Thing build/bin
   cp "$tools/fuzz" Tools/fuzz
   echo seed > Fuzz/corpus/Thing/one
   {
      echo '#!/bin/bash'
      cat
   } > build/bin/ThingFuzz
   chmod +x build/bin/ThingFuzz
}

passesWhenNothingIsFound() {
   _target <<< 'printf "#2\tINITED cov: 7\nstat::number_of_executed_units: 12\n" >&2'
   run Tools/fuzz --build build --seconds 10
   passes
   says 'Thing: cov: 7, 12 runs'
}
failsWithWhatIsFound() {
   _target <<< 'echo INITED; echo "broken: a promise"; exit 77'
   run Tools/fuzz --build build --seconds 10 Thing
   fails
   says 'broken: a promise'
   says 'build/found'
}
failsWhenAFuzzerHasNotBegun() {
   _target <<< 'exit 0'
   run Tools/fuzz --build build Thing
   fails
   says 'has not begun'
}
givesTheSeedsTheTimeAndTheDictionary() {
   _target <<< 'echo INITED; echo "$@" > arguments'
   mkdir Fuzz/dictionaries
   echo '"word"' > Fuzz/dictionaries/Thing.dict
   run Tools/fuzz --build build --seconds 10 --seed 3 Thing
   passes
   output=$(cat arguments)
   says '-max_total_time=10'
   says '-seed=3'
   says "-dict=$PWD/Fuzz/dictionaries/Thing.dict"
   says " $PWD/Fuzz/corpus/Thing"
}
leavesTheSeedsAsTheyAre() {
   _target <<< 'echo INITED; for last; do before=$folder folder=$last; done; echo new > "$before/new"'
   run Tools/fuzz --build build Thing
   passes
   [ "$(ls Fuzz/corpus/Thing)" = one ] || fail "the seeds should be those of before"
}
isSkippedWhereNothingIsBuilt() {
   _target <<< ''
   rm build/bin/ThingFuzz
   run Tools/fuzz --build build Thing
   [ "$status" -eq 77 ] || fail "should have been skipped"
   says 'skipped: fuzzing: '
}
failsWithoutSeeds() {
   _target <<< 'echo INITED'
   rm Fuzz/corpus/Thing/one
   run Tools/fuzz --build build Thing
   fails
   says 'no seeds'
}

runTest "${1:-}"
