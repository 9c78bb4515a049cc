#!/bin/bash
# Whether OwnKernel.sh, and what stories share, keep their promises. HarnessTest.sh NAME runs the function NAME in an empty folder of its own.
set -uo pipefail
folder=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=Tools/testing.sh
. "$folder/../../Tools/testing.sh"

_ownKernel() { bash "$folder/OwnKernel.sh" "$@"; }
_runsHere() {
   [ "$status" -ne 77 ] || {
      echo "$output"
      exit 77
   }
}
# The processes of a kernel, whose command lines name its folder.
_kernelsOf() { # FOLDER
   grep -ls "[i]nit=$1/init" /proc/[0-9]*/cmdline
}

passesOutputAndStatusOnAndChangesNoFiles() {
   touch there
   run _ownKernel bash -c "echo out; echo err >&2; touch $PWD/there || echo untouched; ls /sys/module
      echo kept > \$MAINT_RESULTS/result; exit 3"
   _runsHere
   [ "$status" -eq 3 ] || fail "should have ended with 3"
   says out
   says err
   says untouched
   for module in bonding team 8021q bridge; do
      says "$module"
   done
   [ "$(cat result)" = kept ] || fail "the result should be here"
}
tellsACrash() {
   run _ownKernel bash -c 'echo begun; echo c > /proc/sysrq-trigger; sleep 60'
   _runsHere
   [ "$status" -eq 1 ] || fail "should have ended with 1"
   says begun
   says 'the kernel has crashed'
   says 'Kernel panic'
}
endsAtItsLimit() {
   run _ownKernel --limit 40 bash -c "trap 'echo waited for more' TERM; echo begun; sleep 100 & wait"
   _runsHere
   [ "$status" -eq 124 ] || fail "should have ended with 124"
   says begun
   says 'waited for more'
   says 'has not ended within 31 s'
}
endsWhatDoesNotEndAtItsLimit() {
   run _ownKernel --limit 8 bash -c "trap '' TERM; sleep 100"
   _runsHere
   [ "$status" -eq 1 ] || fail "should have ended with 1"
   says 'has not ended within 8 s'
}
leavesNothingWhenItIsKilled() {
   local harness run i
   run _ownKernel true
   _runsHere
   passes
   bash "$folder/OwnKernel.sh" sleep 100 > log 2>&1 &
   harness=$!
   for ((i = 0; i < 100; ++i)); do
      run=$(tr '\0' ' ' < "/proc/$(pgrep -P "$harness" linux.uml | head -n 1)/cmdline" | grep -oE 'init=[^ ]*/init')
      run=${run#init=} run=${run%/init}
      [ -z "$run" ] || break
      sleep 0.1
   done 2> /dev/null
   [ -n "$run" ] || output=$(cat log) fail "should have begun"
   kill -KILL $harness
   for ((i = 0; i < 100; ++i)); do
      [ -d "$run" ] || break
      sleep 0.1
   done
   output=$(_kernelsOf "$run")
   saysNothing
   [ ! -d "$run" ] || fail "its folder should have gone"
}
saysWhatIsMissing() {
   # shellcheck disable=SC2123
   local PATH=$PWD/bin
   /bin/mkdir bin
   /bin/ln -s /bin/bash /bin/id /bin/dirname /bin/cat bin/
   run _ownKernel true
   PATH=/usr/bin:/bin
   [ "$status" -eq 77 ] || fail "should have ended with 77"
   says 'skipped: '
}
hasARateOnlyWhenTheAgentTellsOne() {
   # shellcheck source=Tests/Linux/World.sh
   . "$folder/World.sh"
   curl() { printf '%s' "$output"; }
   status=0
   for output in '' 'null' '{"in-bps": null, "out-bps": 5}'; do
      ! _hasRate et1 || fail "should have no rate"
   done
   for output in '{"in-bps": 0, "out-bps": null}' '{"in-bps": 8000.5}'; do
      _hasRate et1 || fail "should have a rate"
   done
}

runTest "$1"
