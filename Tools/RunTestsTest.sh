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

tellsOfATestWhenItEnds() {
   _tests first=0
   cat >> CTestTestfile.cmake << 'CMAKE'
add_test( second sh -c "for i in $(seq 100); do grep -q 'first .*Passed' told && exit; sleep 0.1; done; exit 1" )
CMAKE
   "$tools/run-tests" > told 2>&1
   status=$? output=$(cat told)
   passes
   says '100% tests passed, 0 tests failed out of 2'
}

runTest "${1:-}"
