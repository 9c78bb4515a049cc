#!/bin/bash
# Stories of stages that commands carry out: the programs themselves and real processes, on the simulated switch, in
# virtual time.
# StagesTest.sh BUILD-FOLDER NAME runs the function NAME in an empty folder of its own.
set -uo pipefail
build=$(cd "$1" && pwd)
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/../../Tools/testing.sh"
# shellcheck source=Tests/Agent/OneAgent.sh
. "$(dirname "${BASH_SOURCE[0]}")/OneAgent.sh"

# _config [STAGE-LINES] [LISTS]: one unit, whose stage is ./steer unless the lines say otherwise.
_config() {
   local stage="  steer: {enter: $PWD/steer enter, exit: $PWD/steer exit}"
   local lists=$'enter: [steer, drainwatch]\nexit: [drainwatch, steer]'
   cat > maintd.yaml <<YAML
version: 1
switch: simulated
settle: 5s
profiles: {fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}}
default-profile: fast
groups: {uplinks: {interfaces: [et1]}}
units: {u1: {groups: [uplinks]}}
stages:
${1:-$stage}
${2:-$lists}
simulated:
  clock: virtual
  ports: {et1: {}}
YAML
}

# _stage: a command of the shell lines in standard input, in which $here is the folder of the story, $input what it was
# told, and said() keeps a line in the file said.
_stage() {
   {
      echo '#!/bin/bash'
      echo "here=$PWD"
      # shellcheck disable=SC2016
      echo 'input=$(cat); said() { echo "$*" >> "$here/said"; }; said "$1 $input"'
      cat
   } > steer
   chmod +x steer
}
_untilSaid() {
   local end=$((SECONDS + 30))
   while [ $SECONDS -lt $end ]; do
      grep -qF -- "$1" said 2> /dev/null && return
      sleep 0.05
   done
   output=$(cat said log) status=0
   fail "the command should have got here: $1"
}
_said() { grep -qF -- "$1" said || { output=$(cat said) status=0; fail "the command should have said: $1"; }; }
_logged() { grep -qF -- "$1" log || { output=$(cat log) status=0; fail "the log should have: $1"; }; }
_gone() {
   if ! [[ $1 =~ ^[0-9]+$ ]]; then
      output=$1 status=0
      fail "this should be the number of a process"
   fi
   local end=$((SECONDS + 30))
   while [ $SECONDS -lt $end ]; do
      grep -qs '^State:[[:space:]]*[^Z[:space:]]' "/proc/$1/status" || return 0
      sleep 0.05
   done
   output=$(cat "/proc/$1/status") status=0
   fail "process $1 should have ended"
}
_toMaintenance() {
   run _ctl enter u1 --reason swap
   passes
   _untilCtlSays '"stage": "drainwatch"' -j show unit u1
   _advance 30s
   _ctlSays '"state": "maintenance"' -j show unit u1
}

steersBeforeItWatchesAndBringsBackWhatWasRecorded() {
   _stage <<'SH'
case $1 in
enter)
   echo "turning the traffic"
   echo '{"metric":20}'
   IFS= read -r safe <&"$MAINTD_KEPT_FD" || exit 1
   said "applied, told with '$safe'"
   echo careful >&2 ;;
esac
SH
   _config
   _start
   _toMaintenance
   _said "applied, told with ''"
   _said '"interfaces":[{'
   _said '"name":"et1"'
   _said '"reason":"swap","recorded":null,"rerun":false,"stage":"steer","unit":"u1"}'
   _logged "u1/steer: turning the traffic"
   _logged "u1/steer: careful"
   run _ctl exit u1 --wait
   passes
   _said 'exit {'
   _said '"recorded":{"metric":20}'
   _ctlSays '"state": "normal"' -j show unit u1
   _ctlSays "drainwatch  complete" show unit u1
}

showsWhatRunsAndForHowLong() {
   _stage <<'SH'
read -r _ < "$here/go"
SH
   mkfifo go
   _config "  steer: {enter: $PWD/steer enter, timeout: 90s}"
   _start
   _ctl enter u1 > /dev/null
   _untilSaid 'enter {'
   _advance 12s
   _ctlSays "stage steer; its command has run for 12s of at most 1m30s" explain u1
   _ctlSays "runs $PWD/steer enter, for at most 1m30s; if it fails, the unit goes back" explain u1
   _ctlSays '"limit-seconds": 90.0' -j show unit u1
   _ctlSays "drainwatch  pending" show unit u1
   echo > go
   _untilCtlSays '"stage": "drainwatch"' -j show unit u1
   _ctlSays "steer       complete" show unit u1
}

takesTheUnitBackWhenAStageFails() {
   _stage <<'SH'
[ "$1" = exit ] || { echo "no such neighbor" >&2; exit 3; }
SH
   _config
   _start
   _ctl enter u1 > /dev/null
   _untilCtlSays '"state": "normal"' -j show unit u1
   _ctlSays '"reason": "stage steer failed: ended with 3: no such neighbor"' -j show unit u1
   _ctlSays '"by": "maintd"' -j show unit u1
   _said 'exit {'
   _logged "u1/steer: failed: ended with 3: no such neighbor"
   run _ctl enter u1 --wait
   [ "$status" -eq 4 ] || fail "should have ended with 4"
   says "stage steer failed: ended with 3: no such neighbor"
}

writesDownAMaintenanceThatAStageHasEnded() {
   _stage <<'SH'
[ "$1" = exit ] || { echo "no such neighbor" >&2; exit 3; }
SH
   _config
   _start
   _ctl enter u1 --reason swap > /dev/null
   _untilCtlSays '"state": "normal"' -j show unit u1
   _ctlSays '"outcome": "aborted"' -j history
   _ctlSays '"in-maintenance": null' -j history
   run _ctl report 1
   passes
   says ": swap"
   says "by maintd: stage steer failed: ended with 3: no such neighbor"
   says "  enter  steer       failed "
   says "exit stage steer is complete"
   says "normal, aborted"
   # It stands as it is after a kill, and the next one is another.
   local before=$output
   _restart KILL
   run _ctl report 1
   [ "$output" = "$before" ] || fail "should have been told as before:"$'\n'"$before"
   _stage <<< 'exit 0'
   _toMaintenance
   _ctlSays '"outcome": "open"' -j history
   _ctlSays '"outcome": "aborted"' -j history
}

goesOnWhereAFailureDoesNotMatter() {
   _stage <<'SH'
[ "$1" = exit ] || kill -SEGV $$
SH
   _config "  steer: {enter: $PWD/steer enter, on-failure: continue}"
   _start
   _toMaintenance
   _ctlSays "failed: was ended by signal 11 (SIGSEGV); the next stage began all the same" show unit u1
   _ctlSays '"state": "ok"' -j show agent
}

goesOnBackWhenAStageFailsThereAndSaysSoUntilTheNextEnter() {
   _stage <<'SH'
[ "$1" = enter ] || { echo nobody there >&2; exit 1; }
echo '{"metric":20}'
SH
   _config
   _start
   _toMaintenance
   run _ctl exit u1 --wait
   passes
   says "u1: stage steer failed: ended with 1: nobody there; the next stage began all the same"
   [[ "${output##*$'\n'}" == "u1 is normal after "*"s; stage steer failed: ended with 1: nobody there" ]] ||
      fail "the last line should tell of the failure"
   _ctlSays "unit u1 went back although stage steer failed: ended with 1: nobody there" show agent
   _logged 'u1/steer: had recorded: {"metric":20}'
   _restart KILL
   _ctlSays "unit u1 went back although stage steer failed: ended with 1: nobody there" show agent
   _ctl enter u1 > /dev/null
   _ctlSays '"problems": []' -j show agent
}

endsACommandAtItsLimitWithAllThatItHasStarted() {
   _stage <<'SH'
[ "$1" = enter ] || exit 0
trap '' TERM
sleep 1000 &
said "started $!"
wait
SH
   _config "  steer: {enter: $PWD/steer enter, timeout: 5s}"
   _start
   _ctl enter u1 > /dev/null
   _untilSaid started
   # Limits fall on the whole seconds of the clock.
   _advance 6s
   _ctlSays '"stage": "steer"' -j show unit u1
   _advance 2s
   _untilCtlSays '"state": "normal"' -j show unit u1
   _ctlSays "stage steer failed: ran into its limit of 5 s" show unit u1
   _gone "$(sed -n 's/^started //p' said)"
}

endsTheCommandBeforeItGoesBack() {
   _stage <<'SH'
[ "$1" = enter ] || { kill -0 "$(cat "$here/pid")" 2> /dev/null && said "still there"; exit 0; }
echo $$ > "$here/pid"
trap 'said asked; echo "{\"half\":true}"; exit 1' TERM
said waits
while :; do sleep 0.1; done
SH
   _config
   _start
   _ctl enter u1 > /dev/null
   _untilSaid waits
   run _ctl exit u1 --reason stop
   passes
   _untilCtlSays '"state": "normal"' -j show unit u1
   _said asked
   _said '"recorded":{"half":true},"rerun":false'
   run cat said
   saysNot "still there"
   _ctlSays '"reason": "stop"' -j show unit u1
}

# The agent is killed in an enter command, before or after it has recorded something.
_killed() {
   _stage <<'SH'
[ "$1" = enter ] || exit 0
[ -e "$here/second" ] && exit 0
sleep 1000 &
said "started $!"
case $(cat "$here/when") in
before) ;;
after) echo '{"metric":20}'; read -r _ <&3 || said "changed nothing" ;;
esac
said waits
wait
said never
SH
   echo "$1" > when
   _config
   _start
   _ctl enter u1 > /dev/null
   _untilSaid waits
   _kill KILL
   touch second
   _start
   # What is left of the first run is ended, and looked for again.
   _advance 2s
   _untilCtlSays '"stage": "drainwatch"' -j show unit u1
   _gone "$(sed -n 's/^started //p' said)"
   run cat said
   says '"rerun":true'
   saysNot never
   [ "$(grep -c '^enter' said)" -eq 2 ] || fail "the command should have been run twice"
}
runsACommandAgainThatHadRecordedNothing() {
   _killed before
   says '"recorded":null,"rerun":true'
}
runsACommandAgainWithWhatItHadRecorded() {
   _killed after
   says '"recorded":{"metric":20},"rerun":true'
}

doesNotRunACommandAgainThatHasEnded() {
   _stage < /dev/null
   _config
   _start
   _toMaintenance
   _restart KILL
   _advance 10s
   _ctlSays '"state": "maintenance"' -j show unit u1
   [ "$(grep -c '^enter' said)" -eq 1 ] || fail "the command should have been run once"
}

goesBackThroughAStageThatIsNotConfiguredAnyMore() {
   _stage <<'SH'
echo '{"metric":20}'
SH
   _config
   _start
   _toMaintenance
   _config "  other: {enter: /bin/true}" "enter: [drainwatch]"
   run _ctl reload
   passes
   says 'stage "other" added'
   says 'stage "steer" removed'
   _restart KILL
   run _ctl exit u1 --wait
   passes
   _said 'exit {'
   _said '"recorded":{"metric":20}'
}

takesAChangedCommandWithItsNextStart() {
   _stage < /dev/null
   _config
   _start
   _toMaintenance
   _config "  steer: {enter: /bin/false, exit: $PWD/steer back}"
   run _ctl reload
   passes
   run _ctl exit u1 --wait
   passes
   _said 'back {'
}

isNotKeptWaitingByOneThatNeverStopsTalking() {
   _stage <<'SH'
[ "$1" = exit ] || exec yes
SH
   _config
   _start
   _ctl enter u1 > /dev/null
   _untilSaid 'enter {'
   _ctlSays '"stage": "steer"' -j show unit u1
   _ctl exit u1 > /dev/null
   _untilCtlSays '"state": "normal"' -j show unit u1
   _logged "u1/steer: says more than is logged"
   [ "$(grep -c 'u1/steer: y' log)" -le 2000 ] || fail "the log should not have all of it"
}

# What a command is told of so many is far more than a pipe holds.
tellsACommandOfThousandsOfInterfacesAndWaitsForNoneThatDoesNotListen() {
   local names
   names=$(seq -s, -f 'et%g' 8000)
   cat > reads <<SH
#!/bin/sh
echo "told of \$(grep -o '"name":' | wc -l)"
SH
   cat > deaf <<SH
#!/bin/sh
echo "deaf \$\$" >> "$PWD/said"
exec sleep 1000
SH
   chmod +x reads deaf
   {
      echo $'version: 1\nswitch: simulated\nsettle: 5s\nprofiles: {fast: {threshold: 100kbps, load-interval: 10s}}'
      echo $'default-profile: fast\nsimulated:\n  clock: virtual\n  ports:'
      seq -f '    et%g: {}' 8000
      echo "groups: {all: {interfaces: [$names]}}"
      echo "stages: {deaf: {enter: $PWD/deaf}, reads: {enter: $PWD/reads}}"
      echo 'units:'
      echo '  u1: {groups: [all], enter: [deaf, drainwatch], exit: [drainwatch]}'
      echo '  u2: {groups: [all], enter: [reads, drainwatch], exit: [drainwatch]}'
   } > maintd.yaml
   _start
   _ctl enter u1 > /dev/null
   _ctl enter u2 > /dev/null
   _untilCtlSays '"stage": "drainwatch"' -j show unit u2
   _logged "u2/reads: told of 8000"
   _ctlSays '"stage": "deaf"' -j show unit u1
   _untilSaid deaf
   run _ctl exit u1
   passes
   _untilCtlSays '"state": "normal"' -j show unit u1
   _gone "$(sed -n 's/^deaf //p' said)"
}

saysWhyACommandCannotBeRun() {
   _config "  steer: {enter: $PWD/missing enter}"
   _start
   _ctl enter u1 > /dev/null
   _untilCtlSays 'stage steer failed: ended with 127: cannot be run: No such file or directory' show unit u1
}

raisesLinksWithoutAnyStage() {
   _stage < /dev/null
   _config
   _start
   _toMaintenance
   _kill KILL
   run "$build/bin/maintd" --release-all --config maintd.yaml --state-dir "$PWD/state" --runtime-dir "$PWD/run"
   passes
   run cat said
   saysNot 'exit {'
}

# The stage in the guide does what the guide says.
guideHasAStageThatWorks() {
   unshare -n true 2> /dev/null || {
      echo "skipped: network namespaces: cannot be made by this user"
      exit 77
   }
   sed -n '/^```sh$/,/^```$/p' "$tools/../docs/STAGES.md" | sed '1d;$d' > steer
   cat > inside <<'SH'
set -e
ip link add d0 type veth peer name d1
ip link set d1 up; ip link set d0 up; ip addr add 10.0.0.2/24 dev d0
ip route add default via 10.0.0.1 dev d0 metric 20
_step() { echo "-- $1"; shift; "$@" || echo "failed"; ip route show default; }
_step gone sh steer enter < <(echo '{"recorded":null}') 3< /dev/null
_step enter sh steer enter < <(echo '{"recorded":null}') 3< <(echo)
_step again sh steer enter < <(echo '{"recorded":{"metric":20}}') 3< <(echo)
_step exit sh steer exit < <(echo '{"recorded":{"metric":20}}')
_step twice sh steer exit < <(echo '{"recorded":{"metric":20}}')
_step nothing sh steer exit < <(echo '{"recorded":null}')
SH
   run unshare -n bash inside
   passes
   local up='default via 10.0.0.1 dev d0 metric 20' down='default via 10.0.0.1 dev d0 metric 5000'
   sed 's/ $//' <<< "$output" > had
   printf '%s\n' '-- gone' '{"metric":20}' failed "$up" '-- enter' '{"metric":20}' "$down" '-- again' '{"metric":20}' \
      "$down" '-- exit' "$up" '-- twice' "$up" '-- nothing' "$up" > wanted
   run diff wanted had
   passes
}

runTest "$2"
