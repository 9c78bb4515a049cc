# shellcheck shell=bash
# Sourced by the *Test.sh files beside the tools. A test is a function of such a file (helpers begin with an
# underscore); `FooTest.sh NAME` runs it in an empty folder of its own, and Tools/CMakeLists.txt makes each one a ctest
# test.
set -uo pipefail
# shellcheck disable=SC2034
tools=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

# run COMMAND...: keeps what it printed in $output and how it ended in $status.
run() {
   status=0
   output=$("$@" 2>&1 </dev/null) || status=$?
}

fail() {
   printf 'FAILED: %s\nstatus %s, output:\n%s\n' "$1" "$status" "$output"
   exit 1
}

passes() { [ "$status" -eq 0 ] || fail "should have ended with 0"; }
fails() { [ "$status" -eq 1 ] || fail "should have ended with 1"; }
says() { grep -qF -- "$1" <<<"$output" || fail "should have said: $1"; }
saysNot() { ! grep -qF -- "$1" <<<"$output" || fail "should not have said: $1"; }
saysNothing() { [ -z "$output" ] || fail "should have said nothing"; }

# file PATH: writes standard input there, and makes its folder.
file() {
   mkdir -p "$(dirname "$1")"
   cat >"$1"
}

runTest() {
   [ "$(type -t "${1:-}")" = function ] || {
      echo "no test named '${1:-}'" >&2
      exit 2
   }
   here=$(mktemp -d)
   trap 'rm -rf "$here"' EXIT
   cd "$here" || exit 2
   "$1"
}
