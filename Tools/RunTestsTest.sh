#!/usr/bin/env bash
# Whether Tools/run-tests counts what was skipped and tells of failures.
set -uo pipefail
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"

# _tests NAME=STATUS...: what ctest finds here.
_tests() {
   local each
   for each in "$@"; do
      echo "add_test( ${each%=*} sh -c \"exit ${each#*=}\" )"
      echo "set_tests_properties( ${each%=*} PROPERTIES SKIP_RETURN_CODE 77 )"
   done > CTestTestfile.cmake
}

countsWhatWasSkipped() {
   _tests passes=0 cannot=77 mayNot=77
   run "$tools/run-tests"
   passes
   says '100% tests passed, 0 tests failed out of 3, 2 skipped'
   says 'cannot (Skipped)'
}
saysThatNothingWasSkipped() {
   _tests passes=0
   run "$tools/run-tests"
   passes
   says '100% tests passed, 0 tests failed out of 1, 0 skipped'
}
endsAsCtestDoes() {
   _tests passes=0 breaks=3 cannot=77
   run "$tools/run-tests" --output-on-failure
   [ "$status" -eq 8 ] || fail "should have ended with 8"
   says '67% tests passed, 1 tests failed out of 3, 1 skipped'
   says 'breaks (Failed)'
}

runTest "${1:-}"
