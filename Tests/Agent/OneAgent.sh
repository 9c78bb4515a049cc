# shellcheck shell=bash
# Sourced by stories of the programs, after Tools/testing.sh: one agent with ./maintd.yaml in the folder of the story.
#
# The caller has set $build, the build folder. $agent is the agent's process.

_ctl() { "$build/bin/maintctl" --socket "$PWD/run/control.sock" "$@"; }

# _start [OPTION...]: starts the agent and waits until it answers.
_start() {
   "$build/bin/maintd" --foreground --config maintd.yaml --state-dir "$PWD/state" --runtime-dir "$PWD/run" \
      --plugin-dir "${plugins:-$build/lib}" "$@" > log 2>&1 < /dev/null &
   agent=$!
   trap 'kill -9 $agent 2> /dev/null; rm -rf "$here"' EXIT
   for ((i = 0; i < 600; ++i)); do
      _ctl show agent > /dev/null 2>&1 && return
      kill -0 "$agent" 2> /dev/null || break
      sleep 0.05
   done
   output=$(cat log) status=1
   fail "the agent does not answer"
}
_kill() {
   kill "-$1" "$agent" 2> /dev/null
   wait "$agent" 2> /dev/null
}
_restart() {
   _kill "$1"
   _start
}
_advance() { _ctl simulated advance "$1" > /dev/null || fail "cannot advance"; }
_ctlSays() {
   local text=$1
   shift
   run _ctl "$@"
   passes
   says "$text"
}
# Waits until maintctl, called so, says the text.
_untilCtlSays() {
   local text=$1 end=$((SECONDS + 30))
   shift
   while [ $SECONDS -lt $end ]; do
      run _ctl "$@"
      grep -qF -- "$text" <<< "$output" && return
      sleep 0.05
   done
   output=$output$'\n'$(cat log)
   fail "it should have said in time: $text"
}
