#!/bin/bash
# Stories of what an operator sees on a terminal while a unit drains: the programs themselves, on the simulated switch, in
# virtual time, in the window of a terminal multiplexer.
# TerminalTest.sh BUILD-FOLDER NAME runs the function NAME in an empty folder of its own.
set -uo pipefail
build=$(cd "$1" && pwd)
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/../../Tools/testing.sh"
# shellcheck source=Tests/Agent/OneAgent.sh
. "$(dirname "${BASH_SOURCE[0]}")/OneAgent.sh"
command -v tmux > /dev/null || {
   echo "skipped: terminals: needs the package tmux"
   exit 77
}

prompt='^bash-[0-9.]+[$#]'
# Without a sign of a multiplexer: of that, maintctl tells in a line of its own.
_tmux() { env -u TMUX -u STY tmux -S "$here/tmux" -f /dev/null "$@"; }

# An agent, and a shell in a window of so many columns and rows.
_begin() {
   cat > maintd.yaml <<'YAML'
version: 1
switch: simulated
settle: 10s
profiles:
  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true, shutdown-max-delay: 5m}
default-profile: fast
groups:
  uplinks: {interfaces: [et1, et2, et3]}
  others: {interfaces: [et4]}
units:
  u1: {groups: [uplinks]}
  u2: {groups: [others]}
simulated:
  clock: virtual
  ports: {et1: {}, et2: {}, et3: {}, et4: {}}
YAML
   _agent
   _ctl simulated traffic et1 --in 5Mbps --out 1Mbps > /dev/null
   _tmux new-session -d -x "$1" -y "$2" "env -u NO_COLOR -u TMUX LC_ALL=${locale:-C.UTF-8} bash --norc --noprofile"
   _types "set -b; ctl() { '$build/bin/maintctl' --socket run/control.sock \"\$@\"; }; clear"
   _until "$prompt$"
}
_agent() {
   _start
   trap '_tmux kill-server 2> /dev/null; kill -9 $agent 2> /dev/null; rm -rf "$here"' EXIT
}
_types() { _tmux send-keys -l "$1" && _tmux send-keys Enter; }
_presses() { _tmux send-keys "$1"; }
_resize() { _tmux resize-window -x "$1" -y "$2"; }
_look() { output=$(_tmux capture-pane -p) status=0; }
# Waits until a line of the window matches.
_until() {
   local end=$((SECONDS + 30))
   while [ $SECONDS -lt $end ]; do
      _look
      grep -qE -- "$1" <<< "$output" && return
      sleep 0.05
   done
   fail "the window should have shown in time: $1"
}
# Waits until a line of what goes into the files "lines" and "errors" matches.
_untilLines() {
   local end=$((SECONDS + 30))
   while [ $SECONDS -lt $end ]; do
      output=$(cat lines errors 2> /dev/null)
      grep -qE -- "$1" <<< "$output" && return
      sleep 0.05
   done
   fail "it should have said in time: $1"
}
# What the terminal says of itself: cursor_flag, alternate_on, wrap_flag, ...
_is() {
   local value
   value=$(_tmux display-message -p "#{$1}")
   [ "$value" = "$2" ] || fail "$1 should be $2, not $value"
}
# The shell has its terminal back as it was, be it that the shell itself has put it right.
_isGivenBack() {
   _is cursor_flag 1
   _is wrap_flag 1
   _is alternate_on 0
   _types 'stty -a | grep -o -- "-\?echo\b"'
   _until '^echo$'
}
_shows() {
   _look
   grep -qE -- "$1" <<< "$output" || fail "the window should show: $1"
}
_showsNot() {
   _look
   ! grep -qE -- "$1" <<< "$output" || fail "the window should not show: $1"
}

drawsADrainBelowWhatWasThere() {
   _begin 100 24
   _types "ctl enter u1 --wait; echo ended with \$?"
   _until '^u1 +entering +░+ +0/3 '
   _is cursor_flag 0
   _is alternate_on 0
   _shows "$prompt ctl enter u1 --wait"
   _until '^  et1 '
   _advance 20s
   _until '^u1 +entering +█+.*░+ +2/3 '
   _until '^  et1 +5.00 Mbps > 100 kbps '
   _showsNot '^  et2 '
   _ctl simulated traffic et1 --to 0bps > /dev/null
   _advance 60s
   _until '^ended with 0$'
   _shows '^u1 +maintenance +█+ +3/3 '
   _shows '^u1 is under maintenance after '
   [ "$(grep -c '^u1 ' <<< "$output")" -eq 2 ] || fail "there should be one picture and one message"
   _isGivenBack
}

fitsATerminalThatIsResized() {
   _begin 100 24
   _types "ctl enter u1 --wait"
   _until '^  et1 .*100 kbps'
   for size in '44 9' '160 40' '30 4' '80 24'; do
      # shellcheck disable=SC2086
      _resize $size
      _until '^u1 +entering'
      columns=${size% *}
      [ "$columns" -lt 80 ] || _until '^  et1 .*100 kbps'
      [ "$columns" -ge 48 ] || _showsNot '100 kbps'
      # Nothing of the frames before is left below or beside the one there is.
      [ "$(grep -c '^u1 ' <<< "$output")" -eq 1 ] || fail "there should be one picture at $size"
   done
   _presses C-c
   _until '^maintctl: u1: interrupted'
   _isGivenBack
}

leavesTheOperationAndTheTerminalAloneWhenInterrupted() {
   _begin 80 24
   _types "ctl enter u1 --wait; echo ended with \$?"
   _until '^  et1 '
   _types 'typed while it draws'
   _presses C-c
   _until '^ended with 130$'
   _shows '^u1 +entering'
   _showsNot 'typed while it draws'
   _isGivenBack
   _ctlSays '"state": "entering"' -j show unit u1
}

givesTheTerminalBackWhenItIsTerminated() {
   _begin 80 24
   for command in "show --watch" "enter u1 --wait"; do
      _types "clear; sh -c 'echo \$\$ > pid; exec $build/bin/maintctl --socket run/control.sock $command'; echo ${command%% *} ended with \$?"
      _until '^u1 '
      kill -TERM "$(cat pid)"
      _until "^${command%% *} ended with 143$"
      _isGivenBack
   done
}

# On a terminal where nobody puts right what the program leaves behind.
givesTheTerminalBackWithoutAShell() {
   _begin 80 24
   for what in interrupted terminated stopped; do
      for command in "enter u1 --wait" "show --watch" "show unit u1 --watch"; do
         # shellcheck disable=SC2086
         run env -u NO_COLOR TERM=xterm LC_ALL=C.UTF-8 python3 "$(dirname "$tools")/Tests/Agent/terminal.py" "$what" u1 \
            "$build/bin/maintctl" --socket run/control.sock $command
         [ "$status" -eq 0 ] || fail "$command, $what"
         says 'given back'
      done
   done
}

givesTheTerminalToTheShellWhileItIsStopped() {
   _begin 80 24
   _types "ctl show --watch"
   _until '^2 units '
   for _ in 1 2; do
      _is alternate_on 1
      _is cursor_flag 0
      _presses C-z
      _until 'Stopped'
      _isGivenBack
      _types 'clear; fg'
      _until '^2 units '
   done
   _presses C-c
   _until "$prompt$"
   _isGivenBack
}

watchesAllUnitsOnAScreenOfItsOwn() {
   _begin 100 24
   _types "ctl show --watch; echo ended with \$?"
   _until '^2 units .* UTC$'
   _is alternate_on 1
   _is cursor_flag 0
   _shows '^u2 +normal'
   _ctl enter u2 --reason "new optics" > /dev/null
   _until '^u2 +entering .*new optics$'
   _resize 60 10
   _until '^u2 +entering '
   _ctl exit u2 > /dev/null
   _until '^u2 +normal '
   _presses C-c
   _until '^ended with 130$'
   _showsNot '^u2 '
   _isGivenBack
}

saysSinceWhenTheAgentIsAwayAndGoesOn() {
   _begin 100 24
   _ctl enter u1 > /dev/null
   _types "ctl show unit u1 --watch"
   _until '^  et1 '
   _kill KILL
   _until '^stale since [0-9:]+ UTC: the agent cannot be reached'
   _shows '^  et1 '
   _is cursor_flag 0
   _agent
   _until '^Unit u1 .* UTC$'
   _showsNot 'stale'
   _advance 20s
   _until '^u1 .* 2/3|^u1 .* 3/3'
   _presses C-c
   _until "$prompt$"
   _isGivenBack
}

goesOnWaitingForAnAgentThatIsKilled() {
   _begin 100 24
   _types "ctl enter u2 --wait; echo ended with \$?"
   _until '^u2 +entering'
   _kill KILL
   _until '^stale since '
   _agent
   for ((i = 0; i < 6; ++i)); do _advance 10s; done
   _until '^ended with 0$'
   _showsNot 'stale'
   _isGivenBack
}

beginsCurvesWithTheSamplesOfTheAgent() {
   _begin 100 24
   _advance 60s
   _types "ctl show interfaces u1 --watch"
   _until '^et1 +5.00 Mbps .* (▁|▂|▃|▄|▅|▆|▇|█){10}'
   _presses C-c
   _until "$prompt$"
}

saysLinesInTheBackground() {
   _begin 100 24
   _types "ctl enter u1 --wait & sleep 1; echo; echo running"
   _until '^u1 entering: 0 of 3 drained'
   _until '^running$'
   _showsNot '░'
   _types 'typed meanwhile'
   _until 'typed meanwhile'
   _advance 20s
   _until 'u1 entering: 2 of 3 drained'
   _types 'clear; fg'
   _until '^u1 +entering +█+.*░+ +2/3 '
   _presses C-c
   _until '^maintctl: u1: interrupted'
   _isGivenBack
}

saysThatAnAgentHangs() {
   _begin 100 24
   _types "ctl show --watch"
   _until '^2 units '
   kill -STOP "$agent"
   _until '^stale since [0-9:]+ UTC: the agent cannot be reached: no answer within 5s'
   kill -CONT "$agent"
   _until '^2 units .* UTC$'
   _presses C-c
   _until "$prompt$"
   _isGivenBack
}

drawsOnlyAsciiWhereThereIsNothingElse() {
   locale=C _begin 100 24
   _types "ctl enter u1 --wait"
   _until '^u1 +entering +\[\.+\] +0/3 '
   _until '^  et1 '
   [ -z "$(LC_ALL=C grep '[^ -~]' <<< "$output")" ] || fail "there should be nothing but ASCII"
   _presses C-c
}

drawsWithoutColoursIfTheyAreNotWanted() {
   _begin 100 24
   _ctl enter u1 > /dev/null
   _types "ctl show --watch"
   _until '^u1 +entering'
   output=$(_tmux capture-pane -p -e)
   says $'\033['
   _presses C-c
   _until "$prompt$"
   _types "clear; NO_COLOR=1 ctl show --watch"
   _until '^u1 +entering'
   output=$(_tmux capture-pane -p -e)
   saysNot $'\033['
   _presses C-c
   _until "$prompt$"
}

# Each of these takes the drawing of progress away.
saysLinesWhereNothingIsToBeDrawn() {
   _begin 100 24
   _ctl enter u1 > /dev/null
   for how in "NO_COLOR=1 ctl" "TERM=dumb ctl" "ctl --no-progress" "ctl -j"; do
      _types "clear; $how wait u1 --for=maintenance --timeout 0s; echo '$how' ended with \$?"
      _until "^$how ended with 4$"
      _showsNot '░'
      case $how in
      *-j) _shows '"code": "timed-out"' ;;
      *) _shows '^u1 entering: ' ;;
      esac
   done
   for how in "TERM=dumb ctl" "ctl --no-progress"; do
      _types "clear; $how show --watch"
      _until '^20[0-9T:-]+Z u1 entering: '
      _showsNot '░'
      _presses C-c
      _until "^(\^C)?${prompt#^}$"
   done
}

saysLinesIntoAPipe() {
   _begin 80 24
   _ctl enter u1 > /dev/null
   "$build/bin/maintctl" --socket run/control.sock show --watch > lines 2> errors &
   local watcher=$!
   _untilLines '^20[0-9T:-]+Z u1 entering: 0 of 3 drained'
   _untilLines '^20[0-9T:-]+Z u2 normal'
   _advance 20s
   _untilLines '^20[0-9T:-]+Z u1 entering: 2 of 3 drained'
   _kill KILL
   _untilLines 'the agent cannot be reached'
   _agent
   _untilLines 'the agent is back'
   kill -INT $watcher
   wait $watcher
   status=$?
   [ $status -eq 130 ] || fail "should have ended with 130"
   saysNot $'\033'
   [ "$(grep -c ' u2 normal' <<< "$output")" -eq 1 ] || fail "what does not change should be said once"
}

saysTheProgressOfAnEnterIntoAPipe() {
   _begin 80 24
   "$build/bin/maintctl" --socket run/control.sock enter u1 --wait 2> >(cat > errors) | cat > lines &
   _untilLines '^u1 entering: 0 of 3 drained'
   _advance 20s
   _untilLines '^u1 entering: 2 of 3 drained'
   _ctl simulated traffic et1 --to 0bps > /dev/null
   _advance 60s
   _untilLines '^u1 is under maintenance after '
   saysNot $'\033'
   saysNot $'\r'
   saysNot '░'
   output=$(cat lines)
   [ "$(wc -l < lines)" -eq 1 ] || fail "progress should not be where the data is"
}

drawsWhereMessagesGoWhereverDataGoes() {
   _begin 100 24
   _types "ctl enter u1 --wait > said; echo ended with \$?"
   _until '^u1 +entering +░+ +0/3 '
   _presses C-c
   _until '^ended with 130$'
   _isGivenBack
   _types "clear; ctl wait u1 --for=maintenance --timeout 0s 2> said; echo ended with \$?"
   _until '^ended with 4$'
   _showsNot '░'
   output=$(cat said)
   saysNot $'\033'
   says 'u1 entering: 0 of 3 drained'
}

saysDocumentsIntoAPipe() {
   _begin 80 24
   "$build/bin/maintctl" --socket run/control.sock -j show unit u1 --watch > lines 2> errors &
   local watcher=$!
   local end=$((SECONDS + 30))
   until [ -s lines ] || [ $SECONDS -ge $end ]; do sleep 0.05; done
   _ctl enter u1 > /dev/null
   until grep -q entering lines || [ $SECONDS -ge $end ]; do sleep 0.05; done
   kill -INT $watcher
   wait $watcher
   run python3 -c 'import json, sys
documents = [json.loads(line) for line in open("lines")]
print("states:", documents[0]["state"], documents[-1]["state"])'
   passes
   says "states: normal entering"
   output=$(cat errors)
   saysNothing
}

runTest "$2"
