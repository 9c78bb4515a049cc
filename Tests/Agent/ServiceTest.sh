#!/bin/bash
# Stories of the agent under what starts it: its own supervisor, and a service manager that it tells how it is.
# ServiceTest.sh BUILD-FOLDER NAME runs the function NAME in an empty folder of its own.
set -uo pipefail
build=$(cd "$1" && pwd)
folder=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=Tools/testing.sh
. "$folder/../../Tools/testing.sh"
# shellcheck source=Tests/Agent/OneAgent.sh
. "$folder/OneAgent.sh"

_config() {
   cat > maintd.yaml <<YAML
version: 1
switch: simulated
profiles:
  fast: {threshold: 100kbps, load-interval: 10s}
default-profile: fast
groups:
  uplinks: {interfaces: [et1]}
units:
  u1: {groups: [uplinks]}
simulated:
  clock: real
  ports: {et1: {}}
YAML
}

_maintd() {
   exec "$build/bin/maintd" --config maintd.yaml --state-dir "$PWD/state" --runtime-dir "$PWD/run" \
      --plugin-dir "$build/lib" "$@"
}
_fact() { # MEMBER of what the agent says of itself; empty: it does not answer
   _ctl -j show agent 2> /dev/null | python3 -c "import json, sys; print( json.load( sys.stdin ).get( '$1' ) )" 2> /dev/null
}
_until() { # WHAT COMMAND...
   local what=$1 end=$((SECONDS + 60))
   shift
   until "$@"; do
      [ $SECONDS -lt $end ] || {
         output=$(cat log) status=
         fail "it should have come about in time: $what"
      }
      sleep 0.1
   done
}
_is() { [ "$(_fact "$1")" = "$2" ]; }
_isGone() { ! kill -0 "$1" 2> /dev/null; }
_cleansUp() { # of a process whose id is in $supervisor
   trap 'agent=$(_fact pid); kill -9 $supervisor $agent 2> /dev/null; rm -rf "$here"' EXIT
}

# An agent that aborts is started again, and again, with its units where they were; asked to end, both end.
startsAnAbortedAgentAgain() {
   _config
   (_maintd --foreground --supervise) > log 2>&1 < /dev/null &
   supervisor=$!
   _cleansUp
   _until "the agent answers" _is restarts 0
   _is restart-reason None || fail "nothing has been restarted yet"
   _ctl enter u1 > /dev/null || fail "cannot enter"
   first=$(_fact pid)
   [ "$first" != "$supervisor" ] || fail "the agent should be a process of its own"
   kill -ABRT "$first"
   _until "it is started again" _is restarts 1
   _is restart-reason "ended by signal 6 (Aborted)" || fail "it should say why"
   [ "$(_fact pid)" != "$first" ] || fail "it should be another process"
   _ctlSays '"state": "entering"' -j show unit u1
   _ctlSays "Restarts:       1; the one before ended by signal 6 (Aborted)" show agent
   kill -KILL "$(_fact pid)"
   _until "it is started again" _is restarts 2
   agent=$(_fact pid)
   kill -TERM "$supervisor"
   wait "$supervisor"
   status=$? output=$(cat log)
   passes
   says "the agent ended by signal 6 (Aborted); it is started again in 1 s, restart 1"
   says "the agent ended by signal 9 (Killed); it is started again in 2 s, restart 2"
   _isGone "$agent" || fail "the agent should have ended, too"
}

# In the background: whoever starts it is told when an agent runs, and what is wrong if none does.
goesToTheBackgroundWithItsAgent() {
   _config
   (_maintd --supervise) > log 2>&1 < /dev/null
   status=$? output=$(cat log)
   passes
   agent=$(_fact pid)
   supervisor=$(ps -o ppid= -p "$agent" | tr -d ' ')
   _cleansUp
   [ "$(readlink "/proc/$supervisor/exe")" = "$(readlink "/proc/$agent/exe")" ] || fail "its parent should be its supervisor"
   [ "$(readlink "/proc/$supervisor/cwd")" = / ] || fail "the supervisor should have left the folder"
   kill -ABRT "$agent"
   _until "it is started again" _is restarts 1
   agent=$(_fact pid)
   kill -TERM "$supervisor"
   _until "the supervisor has ended" _isGone "$supervisor"
   _until "the agent has ended" _isGone "$agent"
}

endsWhenTheFirstAgentCannotStart() {
   echo "version: 2" > maintd.yaml
   for how in --foreground ""; do
      # shellcheck disable=SC2086
      run eval "(_maintd --supervise $how)"
      [ "$status" -eq 78 ] || fail "it should have ended with 78"
      says "unknown version"
   done
}

# Whoever starts it in the background must not wait for what never comes.
endsWhenTheFirstAgentDiesBeforeItRuns() {
   _config
   for how in --foreground ""; do
      # The first byte that the agent writes to a file ends it; what it prints goes into a pipe.
      # shellcheck disable=SC2086
      run eval "(ulimit -f 0; _maintd --supervise $how)"
      fails
      says "the agent ended by signal 25 (File size limit exceeded) before it has started"
   done
}

releasesLinksWithoutASupervisor() {
   _config
   run eval "(_maintd --supervise --release-all)"
   [ "$status" -eq 2 ] || fail "it should be wrong usage"
   run eval "(_maintd --release-all)"
   passes
   says "no link was held ($PWD/state)"
   says "there is no folder $PWD/state, so nothing is known of links that are held"
   mkdir state
   run eval "(_maintd --release-all)"
   passes
   output=$(grep 'there is no folder' <<< "$output")
   saysNothing
}

_skip() {
   echo "skipped: $1"
   exit 77
}
# What root does in between must not keep the service from its own files afterwards.
leavesNothingOfRootsInTheFoldersOfTheService() {
   [ "$(id -u)" -eq 0 ] || _skip "files of root among those of the service: only root has them"
   _config
   _start
   _ctl enter u1 > /dev/null || fail "cannot enter"
   _kill KILL
   chmod 755 .
   setpriv --reuid=nobody --clear-groups test -r "$PWD/maintd.yaml" ||
      _skip "files of root among those of the service: nobody but root may read ${TMPDIR:-/tmp}"
   chown -R nobody: state run
   rm -rf run/fastlog run/lock state/lock
   run eval "(_maintd --release-all)"
   passes
   output=$(find state run -user root)
   saysNothing
   # An agent that root starts to have a look goes on as its owner, too.
   rm -rf run
   (_maintd --foreground) > log 2>&1 < /dev/null &
   supervisor=$!
   _cleansUp
   _until "the agent answers" _is pid "$supervisor"
   [ "$(stat -c %U "/proc/$supervisor")" = nobody ] || fail "it should run as nobody"
   _ctlSays '"state": "entering"' -j show unit u1
   output=$(find state run -user root)
   saysNothing
}

# Its log of events is there for whoever looks into a failure, and must not be one.
goesOnWithoutTheFileOfItsFastLog() {
   _config
   mkdir -p run/fastlog/full
   _start
   _ctlSays '"what": "fastlog"' -j show agent
   _ctlSays u1 show units
}

_takesPort() { # makes $port, and keeps it until $holder ends
   python3 -c '
import signal, socket
end = socket.socket()
end.bind( ( "127.0.0.1", 0 ) )
end.listen()
print( end.getsockname()[ 1 ], flush=True )
signal.pause()
' > port &
   holder=$!
   _until "somebody has a port" [ -s port ]
   port=$(cat port)
}
_pageIsThere() { curl -sf "http://127.0.0.1:$port/" > /dev/null; }
_isWithoutProblems() { [ "$(_fact problems)" = "[]" ]; }

# Units do not wait for the page: while somebody else has its address, it is tried again.
goesOnWithoutItsPageUntilThereIsRoomForIt() {
   _config
   _takesPort
   echo "listen: {web: \"127.0.0.1:$port\"}" >> maintd.yaml
   _start
   trap 'kill -9 $agent $holder 2> /dev/null; rm -rf "$here"' EXIT
   _ctlSays '"what": "web"' -j show agent
   _ctlSays "127.0.0.1:$port" -j show agent
   run _ctl enter u1
   passes
   kill -9 "$holder"
   _until "the page is there" _pageIsThere
   _until "it is no problem any more" _isWithoutProblems
}

# The journal has a time of its own, and reads the priority of each line in front of it.
tellsTheJournalHowBadItIs() {
   _config
   echo "nonsense: 1" > broken.yaml
   : > log
   (JOURNAL_STREAM=$(stat -c %d:%i log) _maintd --foreground) >> log 2>&1 < /dev/null &
   supervisor=$!
   _cleansUp
   _until "the agent answers" _is state ok
   cp broken.yaml maintd.yaml
   kill -HUP "$supervisor"
   _until "it says what is wrong" grep -q "^<3>.*maintd.yaml" log
   grep -q "^<6>maintd .* is running" log || fail "it should say so as information: $(cat log)"
   # That of somebody else is not ours.
   run eval "(JOURNAL_STREAM=1:1 _maintd --foreground --nonsense)"
   saysNot "<3>"
   says "maintd: "
}

_heard() { grep -qF -- "$1" heard; }
_isReadyAgain() { [ "$(grep -c READY=1 heard)" -ge 2 ]; }

# Everything a service manager is told of an agent's life.
tellsTheServiceManager() {
   _config
   python3 -c '
import socket, sys
end = socket.socket( socket.AF_UNIX, socket.SOCK_DGRAM )
end.bind( "notify" )
print( "listens", flush=True )
while True:
    print( end.recv( 4096 ).decode(), flush=True )
' > heard &
   listener=$!
   trap 'kill -9 $listener $agent 2> /dev/null; rm -rf "$here"' EXIT
   _until "somebody listens" _heard listens
   (NOTIFY_SOCKET=$PWD/notify WATCHDOG_USEC=4000000 _maintd --foreground) > log 2>&1 < /dev/null &
   agent=$!
   _until "it is ready" _heard READY=1
   run _ctl show agent
   passes # it answers from the moment it says so
   _until "it says what it does" _heard "STATUS=units: 1 normal"
   _until "it feeds the watchdog" _heard WATCHDOG=1
   _ctl enter u1 > /dev/null
   _until "it says what it does now" _heard "STATUS=units: 1 entering"
   _ctl reload > /dev/null || fail "cannot reload"
   _until "it says that it reads its configuration" _heard RELOADING=1
   _until "it is ready again" _isReadyAgain
   kill -TERM "$agent"
   wait "$agent"
   _until "it says that it ends" _heard STOPPING=1
}

runTest "$2"
