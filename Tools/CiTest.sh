#!/usr/bin/env bash
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"

_treeWhoseTestRuns() {
   mkdir .ci
   cp "$tools/../.ci/run" .ci/run
   printf 'test:\n\t@%s\n' "$1" >Makefile
}

endsWithTheSummaryOfAPassedRun() {
   _treeWhoseTestRuns 'echo "100% tests passed, 0 tests failed out of 3"'
   run .ci/run
   passes
   [ "$(tail -n 1 <<<"$output")" = "100% tests passed, 0 tests failed out of 3" ] || fail "summary should be last"
}

endsWithTheSummaryOfAFailedRun() {
   _treeWhoseTestRuns 'echo "67% tests passed, 1 tests failed out of 3"; echo "1 - a.b (Failed)"; exit 8'
   run .ci/run
   [ "$status" -ne 0 ] || fail "should have failed"
   [ "$(tail -n 2 <<<"$output" | head -n 1)" = "67% tests passed, 1 tests failed out of 3" ] ||
      fail "summary should be last"
   [ "$(tail -n 1 <<<"$output")" = "1 - a.b (Failed)" ] || fail "the failed tests should be last"
}

saysBeforeTheSummaryWhereTheOutputOfAFailedTestBeginsAndEnds() {
   cat > lines <<'LINES'
1/3 Test  #1: a.passes .......   Passed    0.02 sec
      Start  2: a.fails
2/3 Test #12: a.fails ........***Failed    0.10 sec
first of a.fails

LINES
   seq 2 98 >> lines
   cat >> lines <<'LINES'
last of a.fails
      Start  3: a.isShort
3/3 Test #13: a.isShort ......***Timeout   9.10 sec
all of a.isShort

33% tests passed, 2 tests failed out of 3

The following tests FAILED:
LINES
   _treeWhoseTestRuns 'cat lines; exit 8'
   run .ci/run
   [ "$status" -ne 0 ] || fail "should have failed"
   cat > expected <<'LINES'
ci: a.fails:
   first of a.fails
   2
   3
   4
   5
   6
   7
   8
   9
   10
   ...
   90
   91
   92
   93
   94
   95
   96
   97
   98
   last of a.fails
ci: a.isShort:
   all of a.isShort
33% tests passed, 2 tests failed out of 3

The following tests FAILED:
LINES
   output=$(tail -n 27 <<<"$output" | diff expected -) || fail "the output should be said again"
}

saysWhatAFailedTestPrintedAlsoOfARunThatIsCutOff() {
   _treeWhoseTestRuns 'echo "1/2 Test  #1: a.b .......***Failed    0.02 sec"; printf "%0300d\n" 7; exit 8'
   run .ci/run
   [ "$status" -ne 0 ] || fail "should have failed"
   [ "$(grep -A 1 '^ci: a\.b:$' <<<"$output" | tail -n 1)" = "   $(printf '%0200d' 0)" ] ||
      fail "the beginning of its long line should be said"
}

namesBeforeTheSummaryWhatTheMachineCannotRun() {
   _treeWhoseTestRuns 'echo "1/2 Test  #1: Page.a .......***Skipped   0.02 sec"; echo "2/2 Test #22: b.c ... Passed 1.00 sec"; \
      echo "100% tests passed, 0 tests failed out of 2, 1 skipped"'
   run .ci/run
   passes
   [ "$(tail -n 3 <<<"$output" | tr '\n' '|')" = \
      "ci: NOT PROVEN HERE, since this machine cannot run these tests:|   Page.a|100% tests passed, 0 tests failed out of 2, 1 skipped|" ] ||
      fail "what was skipped should stand before the summary"
}

saysThatNoTestRanWhenTheBuildFails() {
   _treeWhoseTestRuns 'echo "error: no such thing"; exit 1'
   run .ci/run
   [ "$status" -ne 0 ] || fail "should have failed"
   [ "$(tail -n 1 <<<"$output")" = "ci: failed before the tests could run" ] || fail "that should be last"
}

runTest "$@"
