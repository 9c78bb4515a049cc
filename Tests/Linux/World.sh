# shellcheck shell=bash
# Sourced by stories on real links, after Tools/testing.sh: worlds of network namespaces, and the agent in one of them.
#
# The caller has set $build, the build folder. Each world is played in a folder of its own, side by side with others, and
# leaves nothing behind:
#   $world   what the names of all its namespaces begin with: "maint-PID-NAME"
#   $ns      the namespace of the agent; $world unless the story says otherwise
#   $unit    the unit that the story is about
#   $pause   between two looks at what is waited for, seconds
unit=u1
pause=0.1
# From where a session comes is what the story says.
unset SSH_CONNECTION SSH_CLIENT

# ---- worlds

# _sideBySide "NAME COMMAND..." ...: plays each in a world of its own, all at once. Skipped (77) where namespaces cannot
# be made.
_sideBySide() {
   _namespacesCanBeMade
   _sweep
   local pids=() names=() failed=0 i what
   for what in "$@"; do
      # shellcheck disable=SC2086
      _play $what > "${what%% *}.out" 2>&1 &
      pids+=($!) names+=("${what%% *}")
   done
   for i in "${!pids[@]}"; do
      wait "${pids[$i]}" && continue
      failed=1
      echo "---- ${names[$i]}"
      cat "${names[$i]}.out"
   done
   [ $failed -eq 0 ] || exit 1
}
_play() (
   name=$1
   shift
   world=maint-$$-$name
   # shellcheck disable=SC2034
   ns=$world
   mkdir "$name" && cd "$name" || exit 1
   trap '_emptyWorld "$world"' EXIT
   # shellcheck disable=SC2034
   status=0 output=
   "$@"
)
_namespacesCanBeMade() {
   ip netns add "maint-$$-probe" 2> /dev/null && ip netns del "maint-$$-probe" && return
   echo "skipped: stories on real links: they need the right to make network namespaces"
   exit 77
}
# _namespacesOf WORLD
_namespacesOf() { ip netns list 2> /dev/null | awk -v w="$1" '$1 == w || index( $1, w "-" ) == 1 { print $1 }'; }
_emptyWorld() {
   local each
   for each in $(_namespacesOf "$1"); do
      _emptyNamespace "$each"
   done
}
_emptyNamespace() {
   local pids
   pids=$(ip netns pids "$1" 2> /dev/null)
   # shellcheck disable=SC2086
   [ -z "$pids" ] || kill -9 $pids 2> /dev/null
   ip netns del "$1" 2> /dev/null
}
# What a run has left that was killed itself.
_sweep() {
   local each pid
   ip netns list 2> /dev/null | sed -n 's/^\(maint-[0-9]*-[^ ]*\).*/\1/p' | while read -r each; do
      pid=${each#maint-}
      kill -0 "${pid%%-*}" 2> /dev/null || _emptyNamespace "$each"
   done
}

# ---- waiting and comparing

# _until SECONDS WHAT COMMAND...: waits for the command to succeed.
_until() {
   local end=$((SECONDS + $1)) what=$2
   shift 2
   until "$@"; do
      [ $SECONDS -lt $end ] || fail "has not come true in time: $what"
      _sleep "$pause"
   done
}
_sleep() { sleep "$1"; }
# _holds EXPRESSION WHAT: over numbers.
_holds() {
   awk "BEGIN { exit !( $1 ) }" || fail "should hold: $2: $1"
}

# ---- links of the agent's namespace

_isUp() {
   local pattern='[<,]UP[,>]'
   [[ $(ip -n "$ns" -o link show "$1") =~ $pattern ]]
}
_isDown() { ! _isUp "$1"; }

# ---- the agent; its files are in the folder of the world

asWhom=() # the command with which the agent becomes somebody else; none
_maintd() { # [ARGUMENT...]; becomes the agent
   exec ip netns exec "$ns" "${asWhom[@]}" "$build/bin/maintd" --config maintd.yaml --state-dir "$PWD/state" \
      --runtime-dir "$PWD/run" "$@"
}
_start() {
   (_maintd --foreground --plugin-dir "$build/lib") >> log 2>&1 < /dev/null &
   agent=$!
   _until 60 "the agent answers" _answers
}
_answers() {
   kill -0 "$agent" 2> /dev/null || output=$(cat log) fail "the agent has ended"
   [ -n "$(_fact "units/$unit" state)" ]
}
_kill() { # [SIGNAL]
   kill "-${1:-KILL}" "$agent"
   wait "$agent" 2> /dev/null
}
_ctl() { "$build/bin/maintctl" --socket "$PWD/run/control.sock" "$@"; }
_ctlPasses() {
   run _ctl "$@"
   passes
}
# _fact PATH KEY: the value of a key, without quotes; empty if the agent does not answer. Of a unit, not of its stages.
_fact() {
   local answer pattern="\"$2\": *(\"([^\"]*)\"|[^],}[:space:]]*)"
   answer=$(curl -s --max-time 20 --unix-socket run/control.sock "http://agent/api/v1/$1")
   answer=${answer/\"stages\":\[*\],\"state\"/\"state\"}
   if [[ $answer =~ $pattern ]]; then
      echo "${BASH_REMATCH[2]:-${BASH_REMATCH[1]//\"/}}"
   fi
}
_is() { [ "$(_fact "$1" "$2")" = "$3" ]; }
# Not while the agent does not answer either.
_hasRate() { [[ $(_fact "interfaces/$1" in-bps) =~ ^[0-9] ]]; } # LINK
_time() { date -d "$(_fact "$1" "$2")" +%s.%N; }
_settles() { [ "$(_fact "units/$unit" settling-since)" != null ]; }
_isWell() { _ctl show agent | grep -q '^State: *ok$'; }
_shows() { # LINK SHUT LINK-STATE
   _is "interfaces/$1" shut "$2" || fail "$1: shut should be $2"
   _is "interfaces/$1" link-state "$3" || fail "$1: link-state should be $3"
}
