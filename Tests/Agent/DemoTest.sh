#!/usr/bin/env bash
# The demonstration, as somebody sees it who types `make demo`: DemoTest.sh BUILD-FOLDER NAME.
set -uo pipefail
build=$(cd "$1" && pwd)
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=Tools/testing.sh
. "$root/Tools/testing.sh"

# Its time is real: traffic fades within seconds as on a switch.
showsAPageAndRunsToItsEnd() {
   "$root/Tools/demo" "$build" > told 2>&1 < /dev/null &
   local demo=$! address= page=
   # The address is there before the agent; both are as soon as it samples.
   while kill -0 "$demo" 2> /dev/null && [ -z "$page" ]; do
      address=$(head -n 1 told | grep -o 'http://127[^ ]*/')
      [ -z "$address" ] || page=$(curl -s --retry 100 --retry-connrefused --retry-delay 0 --max-time 20 "$address")
   done
   status=0
   wait "$demo" || status=$?
   output=$(cat told)
   passes
   says "Both units are normal again. Done."
   output=$page
   says "<title>"
   saysNot '"error"'
}

runTest "$2"
