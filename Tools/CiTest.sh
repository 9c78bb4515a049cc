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
