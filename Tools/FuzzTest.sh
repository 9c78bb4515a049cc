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

# What a fuzzer says that has run two seeds, and so many inputs in all.
_says='_says() { printf "#2\tINITED cov: 7\nstat::number_of_executed_units: $1\n" >&2; }
'

passesWhenNothingIsFound() {
   _target <<< "$_says _says 1002"
   run Tools/fuzz --build build --seconds 10
   passes
   says 'Thing: cov: 7, 1002 runs'
}
passesWithTheSeedsAloneWhenThatIsAskedFor() {
   _target <<< "$_says _says 2"
   run Tools/fuzz --build build
   passes
   says 'Thing: cov: 7, 2 runs'
}
# A busy machine: a thousand inputs besides the seeds it is, however long that takes, in the same run from the beginning.
goesOnUntilEnoughHasBeenRun() {
   _target << SH
$_says
for last; do before=\$folder folder=\$last; done
ls "\$before" >> left
echo new > "\$before/new"
echo "\$@" >> arguments
case "\$*" in *-runs=1002*) _says 1002 ;; *) _says 1001 ;; esac
SH
   run Tools/fuzz --build build --seconds 10 --seed 3
   passes
   says 'Thing: cov: 7, 1002 runs'
   saysNot 1001
   output=$(sed -n 1p arguments)
   says '-max_total_time=10 '
   saysNot '-runs'
   output=$(sed -n 2p arguments)
   says '-max_total_time=300 '
   says '-seed=3 '
   [ "$(wc -l < arguments)" -eq 2 ] || fail "should have run twice"
   output=$(cat left)
   saysNothing # of what the first of the two has come upon
}
failsWhenNotEnoughCanBeRun() {
   _target <<< "$_says _says 1001"
   run Tools/fuzz --build build --seconds 10
   fails
   says 'Thing: 999 runs besides the seeds in 300 seconds'
}
failsWithWhatIsFoundWhileItGoesOn() {
   _target <<< "$_says"' case "$*" in *-runs=*) echo "broken: a promise"; exit 77 ;; *) _says 100 ;; esac'
   run Tools/fuzz --build build --seconds 10
   fails
   says 'broken: a promise'
   saysNot 'besides the seeds'
}
failsWithWhatIsFound() {
   _target <<< 'echo INITED; echo "broken: a promise"; exit 77'
   run Tools/fuzz --build build --seconds 10 Thing
   fails
   says 'broken: a promise'
   says 'build/found'
}
failsWhenAFuzzerHasNotBegun() {
   _target <<< 'echo "stat::number_of_executed_units: 0"'
   run Tools/fuzz --build build Thing
   fails
   says 'has not begun'
}
givesTheSeedsTheTimeAndTheDictionary() {
   _target <<< "$_says"' _says 1002; echo "$@" > arguments'
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
   _target <<< "$_says"' _says 2; for last; do before=$folder folder=$last; done; echo new > "$before/new"'
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
