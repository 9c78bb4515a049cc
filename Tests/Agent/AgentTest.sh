#!/bin/bash
# Stories of the agent as an operator meets it: the programs themselves, on the simulated switch, in virtual time.
# AgentTest.sh BUILD-FOLDER NAME runs the function NAME in an empty folder of its own.
set -uo pipefail
build=$(cd "$1" && pwd)
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/../../Tools/testing.sh"
# shellcheck source=Tests/Agent/OneAgent.sh
. "$(dirname "${BASH_SOURCE[0]}")/OneAgent.sh"

_config() {
   cat > maintd.yaml <<YAML
version: 1
switch: simulated
settle: 10s
profiles:
  fast:  {threshold: 100kbps, load-interval: 10s, shutdown: true, shutdown-max-delay: 5m}
  watch: {threshold: 1Mbps, load-interval: 10s}
default-profile: fast
groups:
  uplinks: {interfaces: [et1, et2, missing]}
  tenants: {vlans: [10], profile: watch}
units:
  u1: {groups: [uplinks, tenants]}
${1:-}
simulated:
  clock: virtual
  ports: {et1: {}, et2: {}, et3: {}}
  vlans: {10: {name: vlan10, members: [et3]}}
YAML
}

drainsAUnitAndBringsItBack() {
   _config
   _start
   _ctl simulated traffic et1 --in 5Mbps --out 1Mbps > /dev/null
   run _ctl enter u1 --reason upgrade
   passes
   _advance 60s
   _ctlSays '"state": "entering"' -j show unit u1
   _ctlSays '"drained": 2' -j show unit u1
   _ctl simulated traffic et1 --in 0bps --out 0bps > /dev/null
   _advance 15s
   _ctlSays '"drained": 3' -j show unit u1
   _ctlSays '"state": "entering"' -j show unit u1
   _advance 12s
   _ctlSays '"state": "maintenance"' -j show unit u1
   _ctlSays '"reason": "upgrade"' -j show unit u1
   _ctlSays '"link-state": "down"' -j show interface et1
   _ctlSays '"link-state": "up"' -j show interface vlan10
   run _ctl exit u1
   passes
   _advance 1s
   _ctlSays '"state": "normal"' -j show unit u1
   run _ctl show interfaces
   passes
   _ctlSays '"shut": false' -j show interface et1
}

# The same story, with the agent ended in the given way at a point of it.
_storyWith() {
   _config
   _start
   _ctl simulated traffic et1 --in 5Mbps --out 1Mbps > /dev/null
   _ctl enter u1 > /dev/null
   [ "$2" = entering ] && _restart "$1" && _ctl simulated traffic et1 --in 5Mbps --out 1Mbps > /dev/null
   _advance 60s
   _ctlSays '"drained": 2' -j show unit u1
   _ctlSays '"shut": true' -j show interface et2
   [ "$2" = draining ] && _restart "$1"
   _ctl simulated traffic et1 --in 0bps --out 0bps > /dev/null
   _advance 15s
   [ "$2" = settling ] && _restart "$1"
   _advance 30s
   _ctlSays '"state": "maintenance"' -j show unit u1
   if [ "$2" = maintenance ]; then
      _restart "$1"
      _advance 1s
      _ctlSays '"state": "maintenance"' -j show unit u1
      _ctlSays '"drained": 3' -j show unit u1
      _ctlSays '"link-state": "down"' -j show interface et1
      _ctlSays '"shut": true' -j show interface et2
   fi
   _ctl exit u1 > /dev/null
   [ "$2" = exiting ] && _restart "$1"
   _advance 1s
   _ctlSays '"state": "normal"' -j show unit u1
   _ctlSays '"shut": false' -j show interface et1
}
goesOnAfterAKillWhileEntering() { _storyWith KILL entering; }
goesOnAfterAKillWhileDraining() { _storyWith KILL draining; }
goesOnAfterAKillWhileSettling() { _storyWith KILL settling; }
goesOnAfterAKillUnderMaintenance() { _storyWith KILL maintenance; }
goesOnAfterAKillWhileExiting() { _storyWith KILL exiting; }
goesOnAfterAStopUnderMaintenance() { _storyWith TERM maintenance; }
goesOnAfterAStopWhileDraining() { _storyWith TERM draining; }

timesGoOnFromWhatIsWrittenDownAfterABootWithAClockThatIsBehind() {
   _config
   _start
   _ctl enter u1 > /dev/null
   _advance 60s
   _ctlSays '"state": "maintenance"' -j show unit u1
   _advance 2h
   # Nothing but the history knows of this when the runtime folder is gone.
   _ctl simulated traffic et3 --in 5Mbps --out 5Mbps > /dev/null
   _advance 20s
   _ctlSays '"spikes": 1' -j history
   _kill KILL
   rm -r run
   _start
   _advance 60s
   _ctl exit u1 > /dev/null
   _advance 5s
   _untilCtlSays '"outcome": "completed"' -j history
   run _ctl -j report 1
   passes
   output=$(python3 -c '
import json, sys
record = json.load(sys.stdin)
spike = next(i for i in record["interfaces"] if i["name"] == "vlan10")["spikes"][0]
times = [spike["began"], spike["ended"] or record["exit-began"], record["exit-began"], record["ended"]]
print("in order" if times == sorted(times) and spike["began"] < record["exit-began"] else times)' <<< "$output")
   says "in order"
}

bringsAUnitBackOfItsOwnAccordAlsoAfterAKill() {
   _config
   _start
   run _ctl enter u1 --reason upgrade --deadline 5s --revert-after 10m
   passes
   _advance 60s
   _ctlSays '"state": "maintenance"' -j show unit u1
   _ctlSays 'u1 is not under maintenance within 5s, and goes on' events
   _ctlSays 'Goes back:' show unit u1
   _restart KILL
   _ctlSays '"state": "maintenance"' -j show unit u1
   _advance 11m
   _ctlSays '"state": "normal"' -j show unit u1
   _ctlSays 'by maintd: reverts after 10m, as ' report 1
   run _ctl enter u1 --deadline 0s
   [ "$status" = 2 ] || fail "$status is no usage error"
}

endsWithZeroWhenItIsTerminated() {
   _config
   _start
   kill -TERM "$agent"
   wait "$agent"
   status=$? output=
   passes
}

usesTheLastAcceptedConfigurationWhenTheFileIsBroken() {
   _config
   _start
   _kill TERM
   echo "nonsense: [" >> maintd.yaml
   _start
   _ctlSays '"state": "last-accepted"' -j show agent
   _ctlSays '"state": "degraded"' -j show agent
   run _ctl enter u1
   passes
}

doesNotStartWithABrokenConfigurationAndNoneBefore() {
   echo "version: 2" > maintd.yaml
   run "$build/bin/maintd" --foreground --config maintd.yaml --state-dir "$PWD/state" --runtime-dir "$PWD/run"
   [ "$status" -eq 78 ] || fail "it should have ended with 78"
   says "maintd.yaml:1:10: error:"
   says "profiles"
}

saysThatAFolderCannotBeMade() {
   _config
   for folder in none/state maintd.yaml/state; do
      run "$build/bin/maintd" --foreground --config maintd.yaml --state-dir "$PWD/$folder" --runtime-dir "$PWD/run"
      fails
      says "folder $PWD/$folder: cannot create it: No"
   done
}

refusesASecondAgentOnTheSameStateFolder() {
   _config
   _start
   run "$build/bin/maintd" --foreground --config maintd.yaml --state-dir "$PWD/state" --runtime-dir "$PWD/run2"
   fails
   says "$PWD/state"
   says "$agent"
}

refusesASecondAgentOnTheSameRuntimeFolder() {
   _config
   _start
   run "$build/bin/maintd" --foreground --config maintd.yaml --state-dir "$PWD/state2" --runtime-dir "$PWD/run"
   fails
   says "$PWD/run"
   says "$agent"
   _ctlSays '"state": "ok"' -j show agent
}

leavesAFileAloneThatIsNoSocket() {
   _config
   mkdir run
   echo precious > run/control.sock
   run "$build/bin/maintd" --foreground --config maintd.yaml --state-dir state --runtime-dir run --plugin-dir "$build/lib"
   fails
   says "run/control.sock: is not a socket"
   [ "$(cat run/control.sock)" = precious ] || fail "the file is changed"
}

goesToTheBackgroundAndAnswersByThen() {
   _config
   run "$build/bin/maintd" --config maintd.yaml --state-dir state --runtime-dir run --socket "$PWD/s" --plugin-dir "$build/lib"
   passes
   agent=$(cat state/lock)
   trap 'kill -9 $agent 2> /dev/null; rm -rf "$here"' EXIT
   run "$build/bin/maintctl" --socket "$PWD/s" -j show agent
   passes
   says "\"pid\": $agent"
   [ "$(readlink "/proc/$agent/cwd")" = / ] || fail "it stays in the folder that it was started in"
   [ "$(readlink "/proc/$agent/fd/2")" = /dev/null ] || fail "it keeps the terminal"
   # The log is not beside this socket; the agent says where it is.
   run "$build/bin/maintctl" --socket "$PWD/s" fastlog
   passes
   says DrainWatchSmLoader
   # The names of files are good in another folder too.
   run "$build/bin/maintctl" --socket "$PWD/s" reload
   passes
   kill "$agent"
   for ((i = 0; i < 200; ++i)); do
      kill -0 "$agent" 2> /dev/null || return 0
      sleep 0.05
   done
   fail "it does not end"
}

saysByItsStatusThatItDoesNotStartInTheBackground() {
   _config
   sed -i 's/^version: 1/version: 9/' maintd.yaml
   run "$build/bin/maintd" --config maintd.yaml --state-dir state --runtime-dir run --plugin-dir "$build/lib"
   [ "$status" -eq 78 ] || fail "it should have ended with 78"
   says "maintd.yaml:1:10: error: "
}

endsWithTwoWhenItIsUsedWrongly() {
   local wrong
   for wrong in --nonsense "--trace x=10" "--trace x" "--config"; do
      # shellcheck disable=SC2086
      run "$build/bin/maintd" $wrong
      [ "$status" -eq 2 ] || fail "maintd $wrong should have ended with 2"
   done
   for wrong in "" nonsense show "show nonsense" enter "wait u1" "wait u1 --for=lunch" "enter u1 --timeout 5" release "validate a b"; do
      # shellcheck disable=SC2086
      run _ctl $wrong
      [ "$status" -eq 2 ] || fail "maintctl $wrong should have ended with 2"
   done
}

waitsAndTimesOutAsTheTableSays() {
   _config
   _start
   run _ctl wait u1 --for=normal --timeout 0s
   passes
   run _ctl wait u1 --for=maintenance --timeout 0s
   [ "$status" -eq 4 ] || fail "should have ended with 4"
   run _ctl -j enter u1 --wait --timeout 0s
   [ "$status" -eq 4 ] || fail "should have ended with 4"
   says '"code": "timed-out"'
   _ctlSays '"state": "entering"' -j show unit u1
   _advance 60s
   run _ctl enter u1 --wait
   passes
   says "u1 is under maintenance"
   run _ctl wait u1 --for=maintenance
   passes
   run _ctl exit u1 --timeout 1m --reason ready
   _advance 1s
   run _ctl exit u1 --wait
   passes
}

readsTheConfigurationAgainWhenItIsHungUp() {
   _config
   _start
   _config '  u2: {groups: [tenants]}'
   kill -HUP "$agent"
   for ((i = 0; i < 200; ++i)); do
      _ctl show unit u2 > /dev/null 2>&1 && return
      sleep 0.05
   done
   fail "u2 does not appear"
}

logsWhichTracesThereAreNone() {
   _config
   _start --trace Nonesuch=9 --trace DrainWatchSm=4 --trace '*=0'
   [ "$(grep -c "there is no trace facility" log)" -eq 1 ] || fail "one name should be wrong"
   grep -q "warning.* --trace: there is no trace facility Nonesuch so far; there are .*, DrainWatchSm, DrainWatchSmLoader, " log ||
      fail "it should say which name is wrong, and which there are"
}

logsWhatOfAConfigurationHasNoEffect() {
   local warning="warning: redundancy group \"both\" guards nothing"
   _config "redundancy-groups: {both: {units: [u1]}}"
   _start
   [ "$(grep -cF "maintd.yaml:13:21: $warning" log)" -eq 1 ] || fail "it should be in the log once"
   # A file that is not taken says nothing; one that is taken says it again.
   sed -i 's/^settle: 10s/settle: 10/' maintd.yaml
   run _ctl reload
   fails
   [ "$(grep -cF "$warning" log)" -eq 1 ] || fail "it should be in the log once"
   sed -i 's/^settle: 10/settle: 20s/' maintd.yaml
   run _ctl reload
   passes
   [ "$(grep -cF "$warning" log)" -eq 2 ] || fail "it should be in the log again"
   _config
   run _ctl reload
   passes
   [ "$(grep -c "warning: " log)" -eq 2 ] || fail "nothing is left to warn of"
}

tellsWhatConfigurationItRunsWith() {
   _config
   _start
   _ctlSays '"state": "accepted"' -j show agent
   sed -i 's/^settle: 10s/settle: 10/' maintd.yaml
   run _ctl reload
   fails
   says "maintd.yaml:3:9: error: "
   _ctlSays '"state": "last-accepted"' -j show agent
   run curl -sS --unix-socket run/control.sock http://agent/healthz
   says '"status":"degraded"'
   _restart TERM
   _ctlSays '"state": "last-accepted"' -j show agent
   _config
   run _ctl reload
   passes
   _ctlSays '"state": "accepted"' -j show agent
}

releasesALinkByForce() {
   _config
   _start
   _ctl enter u1 > /dev/null
   _advance 60s
   _ctlSays '"link-state": "down"' -j show interface et1
   run _ctl -j release et1
   [ "$status" -eq 5 ] || fail "should have ended with 5"
   says '"code": "needs-force"'
   run _ctl release et1 --force
   passes
   says "et1 is released"
   _advance 1s
   _ctlSays '"link-state": "up"' -j show interface et1
   _ctlSays '"link-state": "down"' -j show interface et2
}

warnsBeforeAnEnterAndTakesForce() {
   _config "  u2: {groups: [uplinks]}
redundancy-groups:
  both: {units: [u1, u2]}"
   echo '  routes: [{to: 10.0.0.0/8, via: [et1]}, {to: 192.0.0.0/8, via: [et3]}]' >> maintd.yaml
   _start
   _advance 20s
   unset SSH_CLIENT
   export SSH_CONNECTION="10.1.2.3 40000 10.0.0.1 22"
   run _ctl plan u1
   passes
   says "blocking  last-path    10.0.0.0/8 has no other way than et1"
   says "blocking  lock-out     the way to 10.1.2.3, from where this session comes, leaves through et1 only"
   says "an enter takes --force and --reason"
   run _ctl plan u1 --session 192.0.2.1
   passes
   says "from 192.0.2.1"
   grep -q lock-out <<< "$output" && fail "nobody is locked out"
   run _ctl enter u1 --reason upgrade --wait
   [ "$status" -eq 5 ] || fail "should have ended with 5"
   says "blocking: 10.0.0.0/8 has no other way than et1"
   says "maintctl: u1: this takes --force and --reason"
   _ctlSays '"state": "normal"' -j show unit u1
   run _ctl -j enter u1
   [ "$status" -eq 5 ] || fail "should have ended with 5"
   says '"code": "lock-out"'
   run _ctl enter u1 --force
   [ "$status" -eq 2 ] || fail "should have ended with 2"
   run _ctl enter u1 --force --reason "fire in the rack"
   passes
   run _ctl enter u1
   passes
   run _ctl enter u2
   [ "$status" -eq 5 ] || fail "should have ended with 5"
   says "of redundancy group both no more than 1 may be out, and u1 is already"
   run _ctl report 1
   passes
   says "Forced although"
   says "last-path: 10.0.0.0/8 has no other way than et1"
   run _ctl plan u3
   fails
}

explainsWhatAUnitWaitsFor() {
   _config
   _start
   _ctl simulated traffic et1 --to 5Mbps > /dev/null
   _ctl enter u1 > /dev/null
   _advance 30s
   run _ctl explain u1
   passes
   says "u1 is entering, stage drainwatch; it waits for 1 interface."
   says "5.00 Mbit/s, threshold 100 kbit/s"
   says "does not exist"
}

namesAStateFolderThatCannotBeWritten() {
   _config
   touch state
   run "$build/bin/maintd" --foreground --config maintd.yaml --state-dir "$PWD/state" --runtime-dir "$PWD/run"
   fails
   says "$PWD/state"
}

runsWithoutAPluginAndRefusesToEnter() {
   _config
   mkdir none
   plugins=$PWD/none
   _start
   _ctlSays '"state": "missing"' -j show agent
   run _ctl enter u1
   fails
   says "libDrainWatchPlugin.so: No such file or directory"
}

answersAsTheTableSays() {
   _config
   _start
   run _ctl exit u1
   passes
   run _ctl enter nobody
   fails
   says "there is no unit nobody"
   run _ctl enter u1
   passes
   run _ctl enter u1
   passes
   run _ctl release et1
   [ "$status" -eq 5 ] || fail "should have ended with 5"
   run _ctl release et1 --force
   fails
   says "we do not hold et1"
   run _ctl exit u1
   passes
}

saysWhenThereIsNoAgent() {
   mkdir run
   run _ctl show units
   [ "$status" -eq 3 ] || fail "should have ended with 3"
}

refusesARequestThatIsTooLarge() {
   _config
   _start
   head -c 70000 /dev/zero | tr '\0' x > body
   run curl -sS --unix-socket run/control.sock -X POST --data-binary @body http://agent/api/v1/units/u1/enter
   passes
   says '"code":"too-large"'
   _ctlSays '"state": "normal"' -j show unit u1
}

survivesARequestThatIsCutInHalf() {
   _config
   _start
   for ((i = 0; i < 5; ++i)); do
      printf 'POST /api/v1/units/u1/enter HTTP/1.1\r\nHost: a\r\nContent-Length: 100\r\n\r\n{"reas' |
         timeout 1 "$build/bin/SendTest" run/control.sock
   done
   _ctlSays '"state": "normal"' -j show unit u1
}

keepsTheRunningConfigurationWhenAReloadIsRefused() {
   _config
   _start
   _ctl enter u1 > /dev/null
   sed -i 's/^  u1:.*/  u2: {groups: [uplinks]}/' maintd.yaml
   run _ctl reload
   fails
   says "unit u1 is not normal"
   echo "nonsense: 1" >> maintd.yaml
   run _ctl reload
   fails
   says "nonsense"
   _ctlSays '"name": "u1"' -j show units
}

appliesAReload() {
   _config
   _start
   _config '  u2: {groups: [tenants]}'
   run _ctl reload
   passes
   _ctlSays '"name": "u2"' -j show units
   run _ctl reload
   passes
}

# Somebody follows what happens while the agent is stopped and killed: every event comes once, in order.
tellsEveryEventOnceOverRestarts() {
   _config
   _start
   "$build/bin/maintctl" --socket "$PWD/run/control.sock" -j events --follow --after 0 > followed &
   local reader=$! how
   for how in TERM KILL TERM; do
      _ctl enter u1 > /dev/null
      _advance 60s
      _restart "$how"
      _ctl exit u1 > /dev/null
      _advance 5s
   done
   run _ctl -j events --after 0
   passes
   local last
   last=$(sed -n 's/^  "last": \([0-9]*\).*/\1/p' <<< "$output")
   [ "${last:-0}" -gt 40 ] || fail "too little has happened"
   for ((i = 0; i < 600; ++i)); do
      grep -q "^{\"sequence\":$last," followed && break
      sleep 0.05
   done
   kill -INT "$reader"
   wait "$reader"
   status=$?
   [ $status -eq 130 ] || fail "an interrupted reader should have ended with 130, not $status"
   output=$(sed -n 's/^{"sequence":\([0-9]*\),.*/\1/p' followed | head -n "$last")
   [ "$output" = "$(seq 1 "$last")" ] || fail "not every event once and in order, up to $last"
   output=$(cat followed)
   says '"what":"stopped"'
   says '"killed":true'
   says '"text":"u1 is under maintenance"'
}

# As on a disk that is full: only the first pages of the stores can be written.
saysWhenItCannotStoreThatItHasEnded() {
   _config
   trap '' XFSZ
   _start
   trap - XFSZ
   prlimit --pid "$agent" --fsize=8192
   kill "$agent"
   wait "$agent"
   status=$? output=$(cat log)
   [ $status -eq 1 ] || fail "should have ended with 1"
   says "what happened last, and that the agent has ended, is not stored: "
}

showsWhatHasHappened() {
   _config
   _start
   _ctl enter u1 --reason optics > /dev/null
   run _ctl events
   passes
   says "the agent starts"
   says "u1 goes into maintenance, as $(id -un) has asked: optics"
   run _ctl events --after 1 --last 1
   passes
   says "     2  "
   run _ctl events --after x
   [ "$status" -eq 2 ] || fail "should have ended with 2"
}

endsAStreamWhenTheAgentEnds() {
   _config
   _start
   : > stream
   curl -sSN --unix-socket run/control.sock 'http://agent/api/v1/events?after=0&rates=1' > stream &
   local reader=$!
   for ((i = 0; i < 600; ++i)); do
      grep -q '"started"' stream && break
      sleep 0.05
   done
   kill -TERM "$agent"
   wait "$reader"
   status=$? output=$(cat stream)
   passes
   says '"what":"stopped"'
}

writesItsDiagnosticText() {
   _config
   _start
   _ctlSays 'Drain Watch information' dump
   _ctlSays 'initialized : true' dump
   _ctlSays '"num-maint-enter": 0' -j show counters
   run _ctl fastlog
   passes
   says "DrainWatchSmLoader"
}

runTest "$2"
