#!/bin/bash
# Stories of the agent on real links: the programs themselves, with pairs of links in network namespaces of their own and
# real traffic over them, in real time. LinuxTest.sh BUILD-FOLDER NAME runs the function NAME in an empty folder of its
# own; the worlds of one test run side by side. Skipped (77) where namespaces cannot be made.
set -uo pipefail
build=$(cd "$1" && pwd)
folder=$(dirname "${BASH_SOURCE[0]}")
# shellcheck source=Tools/testing.sh
. "$folder/../../Tools/testing.sh"
# shellcheck source=Tests/Linux/World.sh
. "$folder/../Linux/World.sh"
# shellcheck source=Tests/Linux/Links.sh
. "$folder/../Linux/Links.sh"

ports="et1 et2 et3 et4" # their other ends are p1 to p4

_makeLinks() {
   local n
   for n in 1 2 3 4; do
      _plainLink $n
   done
}
_plainLink() {
   _link "et$1" "p$1"
   _addressed "et$1" "p$1" "$1"
}
# _configOf [PROFILE-KEYS]: behind the watching a stage keeps the routes that it finds in the file seen.
_configOf() {
   printf '#!/bin/sh\n{ ip route; ip -6 route; } > %s/seen\n' "$PWD" > look
   chmod +x look
   cat << YAML
profiles:
  fast: {threshold: 100kbps, load-interval: 10s, ${1:-shutdown: true}}
default-profile: fast
groups:
  uplinks: {interfaces: [et1, et2, et3, et4, later]}
stages:
  look: {exit: $PWD/look}
units:
  u1: {groups: [uplinks], exit: [drainwatch, look]}
YAML
}
_theStageBehindHasSeenAllRoutes() {
   output=$(_thatOutlast < seen | diff routes -) && return
   grep -qF "$lateText" log || fail "a stage should find the routes as they were"
}

# ---- the stories

# et4 is busy for 8 s of the way: it drains after et3, however long the agent takes to start.
_enters() {
   local briefly
   _routesOfAll > routes
   _config "${1:-}"
   _traffic et1 in "${2:-120}"
   _traffic et2 out "${2:-120}"
   _traffic et4 in 120
   briefly=${traffic[-1]}
   _start
   _ctlPasses enter u1 --reason upgrade
   { sleep 8 && kill "$briefly"; } 2> /dev/null &
}

_drains() {
   _writesNews
   _enters
   _ratesAreRight 5 "et1 in" "et2 out"
   _is units/u1 state entering || fail "the unit should not complete while traffic flows"
   for link in et1 et2; do
      _shows $link false up
      _is interfaces/$link consecutive-drained-samples 0 || fail "$link should not be quiet"
   done
   for link in et3 et4; do
      _shows $link true down
      _isDown $link || fail "the idle $link should have been shut"
   done
   _trafficEnds
   _isUnderMaintenance
   for link in et1 et2; do
      _hasDrainedOnTime $link
      _holds "$maintenanceSince - $(_time interfaces/$link state-time) < $settle + 2.5" "the unit completes at once"
   done
   _isBackToNormal
   _theStageBehindHasSeenAllRoutes
   _eachLinkHasMovedOnceEachWay
   _wasLateWithReasonOnly
}

_shutsBusyLinks() {
   local link took
   _writesNews
   _enters "shutdown: true, shutdown-max-delay: 30s"
   _isUnderMaintenance
   for link in et1 et2; do
      took="($(_time interfaces/$link state-time) - $(_time interfaces/$link start-time))"
      _holds "$took >= 30 && $took - $period < 30" "$link is shut on the first sample at or after 30 s"
      _is interfaces/$link consecutive-drained-samples 0 || fail "$link should never have been quiet"
   done
   _isBackToNormal
   _eachLinkHasMovedOnceEachWay
   _wasLateWithReasonOnly
}

_touchesNothing() {
   _enters "shutdown: false" 12
   _ctlPasses wait u1 --for=maintenance --timeout 60s
   for link in $ports; do
      _shows "$link" false up
   done
   _addressesAreBack || fail "addresses and routes should be as they were"
   _ctlPasses exit u1 --wait --timeout 60s
   _addressesAreBack || fail "addresses and routes should be as they were"
   output=$(_moves)
   saysNothing
}

# POINT: entering, shut (right after the first link was), draining (one link shut), settling, maintenance, exiting (some
# routes are not back yet). SIGNAL: not KILL but another.
_isKilled() {
   signal=${2:-KILL}
   _enters
   [ "$1" = entering ] && _killAndRestart entering
   _until 30 "et3 is shut" _isDown et3
   [ "$1" = shut ] && _killAndRestart entering
   _until 5 "et3 is shown shut" _is interfaces/et3 state under-maint
   _isUp et4 || fail "only one link should be shut"
   [ "$1" = draining ] && sleep 1 && _killAndRestart entering
   _until 30 "et4 is shut" _isDown et4
   _is units/u1 state entering || fail "the unit should not complete while traffic flows"
   _trafficEnds
   if [ "$1" = settling ]; then
      _until 40 "the unit settles" _settles
      _killAndRestart entering
   fi
   _isUnderMaintenance
   [ "$1" = maintenance ] && _killAndRestart maintenance
   if [ "$1" = exiting ]; then
      _ctlPasses exit u1
      # The kernel takes some routes only when it knows that nobody else has the address, after a second or two. On a busy
      # machine the next agent may come when it knows that already: then all is back before its first answer.
      _killAndRestart "exiting normal"
   fi
   _isBackToNormal
   _theStageBehindHasSeenAllRoutes
   _eachLinkHasMovedOnceEachWay
}

# The disk of the agent's state is full from before the first link is shut until after the next agent has started. SIGNAL.
_isKilledOnAFullDisk() {
   signal=$1
   mkdir state
   mount -t tmpfs -o size=8m none state || fail "a small file system should be mounted"
   trap '_emptyWorld "$world"; umount -l state' EXIT
   _enters
   head -c 100M /dev/zero > state/fill 2> /dev/null
   _until 30 "et3 is shut" _isDown et3
   _until 30 "et4 is shut" _isDown et4
   _until 10 "et4 is shown shut" _is interfaces/et4 state under-maint
   [ -s run/unstored ] || fail "what the state folder lacks should be in the runtime folder"
   _killAndRestart entering
   _isWell && fail "the agent should say that it cannot write its state"
   rm state/fill
   _until 20 "the agent is well again" _isWell
   [ -e run/unstored ] && fail "the state folder should have it all"
   _trafficEnds
   _isUnderMaintenance
   _isBackToNormal
   _eachLinkHasMovedOnceEachWay
}

# The plan before the button: nothing is entered as long as that cuts somebody off.
_refusesToCutOff() {
   # A network behind et1 loses its other way, and the session is of a host on et1 itself.
   ip -n "$ns" route del 10.1.1.0/24 metric 2048
   run _ctl plan u1 --session 10.0.1.2
   passes
   says "blocking  last-path "
   says " 10.1.1.0/24 has no other way than et1"
   says "blocking  lock-out "
   says "the way to 10.0.1.2, from where this session comes, leaves through et1 only"
   _isRefused "10.1.1.0/24 has no other way than et1"
   _alsoOutside 10.1.1.0/24
   _isRefused "the way to 10.0.1.2, from where this session comes, leaves through et1 only" --session 10.0.1.2
   _alsoOutside 10.0.1.0/24
   run _ctl plan u1 --session 10.0.1.2
   passes
   saysNot blocking
   _is units/u1 state normal || fail "the unit should not have been entered"
   _addresses > before
}
_isRefused() { # FINDING [ARGUMENT...]
   run _ctl enter u1 --reason upgrade "${@:2}"
   [ "$status" -eq 5 ] || fail "should have ended with 5"
   says "blocking: $1"
   [ "$(grep -c blocking <<< "$output")" -eq 1 ] || fail "nothing else should be against it"
}

# Under maintenance, links are raised by somebody else, by hand and without an agent.
_isReleasedByHand() {
   _config
   _start
   _refusesToCutOff
   _ctlPasses enter u1 --session 10.0.1.2 --reason upgrade --wait --timeout 60s
   _isUnderMaintenance
   run _ctl release et3
   [ "$status" -eq 5 ] || fail "should have ended with 5"
   _ctlPasses release et3 --force
   _until 10 "et3 is up" _isUp et3
   _until 10 "et3 is seen up" _is interfaces/et3 link-state up
   ip -n "$ns" link set et4 up
   _until 10 "et4 is seen up" _is interfaces/et4 link-state up
   _shows et4 true up
   _shows et1 true down
   _is units/u1 state maintenance || fail "the unit should still be under maintenance"
   _kill
   run _maintdReleasesAll
   passes
   says "released et1"
   _allUp || fail "all links should be up"
   _addressesAreBack || fail "addresses and routes should be back"
   run _maintdReleasesAll
   passes
   says "no link was held"
}
_maintdReleasesAll() { (_maintd --release-all --plugin-dir /nonexistent); }

# Links go, come back and come for the first time.
_followsLinks() {
   local ports="et1 et2 et4"
   _config
   _start
   _traffic et1 in 18
   _ctlPasses enter u1 --reason upgrade
   _until 30 "et3 is shut" _isDown et3
   ip -n "$ns" link del et3
   _until 10 "et3 has gone" _is units/u1 total 3
   _is units/u1 state entering || fail "the unit should still be entering"
   _plainLink 3
   _until 15 "the addresses are there" _addressesAreThere
   _routeThatNeedsTheAddress et3
   ip -n "$ns" link add later type veth peer name p5 netns "$peers"
   ip -n "$peers" link set p5 up
   ip -n "$ns" link set later up
   _until 10 "the new link is watched" _is interfaces/later state enter-maint
   _until 10 "et3 is watched again" _is interfaces/et3 state enter-maint
   _shows et3 false up
   ports="et1 et2 et3 et4 later"
   _isUnderMaintenance
   ip -n "$ns" link del later
   ports="et1 et2 et3 et4"
   _isBackToNormal
}

# Others set links before and during a maintenance, also while there is no agent. What they wanted last holds at its end.
_leavesLinksToOthers() {
   ip -n "$ns" link set et2 down
   _config
   _start
   _ctlPasses enter u1 --reason upgrade --wait --timeout 60s
   _is units/u1 total 3 || fail "et2 should not be waited for"
   _drifts et1 null et2 null et3 null et4 null || fail "nothing should have drifted yet"
   for link in et3 et4; do
      ip -n "$ns" link set $link up
      _until 10 "$link is seen raised" _is interfaces/$link drift raised
   done
   ip -n "$ns" link set et4 down
   _until 10 "et4 is seen lowered" _is interfaces/et4 drift lowered
   run _ctl show interfaces u1
   grep -q '^et3 *ethernet *up *yes *raised ' <<< "$output" || fail "should show that et3 was raised"
   _kill
   ip -n "$ns" link set et1 up
   _start
   _until 10 "et1 is seen raised" _is interfaces/et1 drift raised
   _drifts et1 raised et2 null et3 raised et4 lowered || fail "drift should outlast the agent"
   _isUp et1 && _isUp et3 && _isDown et4 || fail "the agent should fight nobody"
   _is units/u1 state maintenance || fail "the unit should still be under maintenance"
   _ctlPasses exit u1 --wait --timeout 60s
   for link in et1 et3; do
      _until 15 "$link is seen up" _is interfaces/$link link-state up
      _isUp $link || fail "$link should be up"
   done
   _isDown et2 || fail "et2 was down before and should be left so"
   _isDown et4 || fail "et4 was set down by somebody else and should be left so"
   _until 10 "nothing has drifted" _drifts et1 null et2 null et3 null et4 null
   _until 20 "addresses and routes are back" _onlyMissing "et2\\|et4"
   # Each change is one line; what is still so is said again by the agent that was started in between.
   _logsTimes 2 "et3: somebody else has set it up while we hold it down"
   _logsTimes 1 "et1: somebody else has set it up while we hold it down"
   _logsTimes 1 "et4: somebody else has set it up while we hold it down"
   _logsTimes 1 "et4: somebody else has set it down"
   _logsTimes 1 "et4: stays down"
   _logsTimes 0 "et2: "
}
_onlyMissing() { # PATTERN
   output=$(_addresses | diff before - | grep '^<' | grep -v "$1")
   [ -z "$output" ]
}
_drifts() { # LINK DRIFT...
   while [ $# -gt 0 ]; do
      _is "interfaces/$1" drift "$2" || return 1
      shift 2
   done
}
_logsTimes() { # COUNT TEXT
   local count
   count=$(grep -c -F "$2" log)
   [ "$count" -eq "$1" ] || output=$(cat log) fail "the log should say $1 times, not $count: $2"
}

# The agent stands still while more happens than the kernel keeps for it.
_makesUpForLostNews() {
   _config
   _start
   ip -n "$ns" link add later type veth peer name other
   ip -n "$ns" link set later up
   _until 10 "the new link is seen" _is interfaces/later link-state down
   _is agent switch-overruns 0 || fail "nothing should have been lost yet"
   kill -STOP "$agent"
   awk 'BEGIN { for ( i = 0; i < 10000; ++i ) print "link set other up\nlink set other down"; print "link set other up" }' |
      ip -n "$ns" -batch - || fail "cannot set the link"
   ip -n "$ns" link set et3 down
   ip -n "$ns" link del et4
   kill -CONT "$agent"
   _until 30 "the loss is made up for" _is agent switch-overruns 1
   _is interfaces/later link-state up || fail "later should be seen up"
   _is interfaces/et3 link-state down || fail "et3 should be seen down"
   [ -z "$(_fact interfaces/et4 link-state)" ] || fail "et4 should have gone"
   ip -n "$ns" link set et3 up
   _until 10 "news come again" _is interfaces/et3 link-state up
   _is agent switch-overruns 1 || fail "one loss should be counted once"
   _logsTimes 1 "news of links were lost"
   run _ctl show agent
   grep -q '^Switch: *linux, 1 overrun$' <<< "$output" || fail "should show the overrun"
   _isWell || fail "the agent should be well"
}

# It may be root, and have no right to set links.
_watchesWithoutTheRightToSetLinks() {
   asWhom=(setpriv --bounding-set=-net_admin --inh-caps=-net_admin)
   _config
   _start
   _until 10 "it is in the log" grep -q "no link can be set up or down: the agent lacks the right to administer" log
   run _ctl show agent
   says "no link can be set up or down"
   ! _isWell || fail "the agent should not be well"
   _is interfaces/et1 link-state up || fail "et1 should be seen"
   _until 30 "counters are read" _hasRate et1
   _ctlPasses enter u1 --reason upgrade
   _until 40 "et1 has drained" _is interfaces/et1 state under-maint
   _is interfaces/et1 shut-problem "Operation not permitted" || fail "et1 should say why it is not shut"
   _isUp et1 || fail "et1 should be up"
   _kill
   asWhom=()
   _start
   _until 20 "et1 is shut" _isDown et1
   _until 20 "with the right, the agent is well" _isWell
}

# Plans of several units, from several places, with and without something that speaks against them.
_changesNothingByPlans() {
   ip -n "$ns" route del 10.1.1.0/24 metric 2048
   settle=1
   _configOf() {
      cat << YAML
profiles:
  now: {threshold: 100kbps, load-interval: 1s, shutdown: true, shutdown-max-delay: 0s}
default-profile: now
groups:
  a: {interfaces: [et1]}
  b: {interfaces: [et2]}
  rest: {interfaces: [outside]}
units:
  u1: {groups: [a]}
  u2: {groups: [b]}
  both: {groups: [a, b]}
YAML
   }
   _config
   _start
   run ip netns exec "$ns" python3 -B "$folder/manyPlans.py" "$build/bin/maintctl"
   passes
   saysNothing
}

# ---- tests

drainsRealLinksAndBringsThemBack() {
   _inWorlds "drains _drains" "busy _shutsBusyLinks" "watches _touchesNothing"
}
goesOnAfterAKillAtEachPointOfTheStory() {
   _inWorlds "entering _isKilled entering" "shut _isKilled shut" "draining _isKilled draining" \
      "settling _isKilled settling" "maintenance _isKilled maintenance" "exiting _isKilled exiting" \
      "stopped _isKilled draining TERM"
}
goesOnAfterAnEndWhileTheDiskIsFull() {
   _inWorlds "killed _isKilledOnAFullDisk KILL" "stopped _isKilledOnAFullDisk TERM"
}
refusesToCutOffFollowsLinksAndReleasesThemByHand() {
   _inWorlds "byHand _isReleasedByHand" "links _followsLinks"
}
saysWhenItHasNoRightToSetLinks() {
   _inWorlds "right _watchesWithoutTheRightToSetLinks"
}
leavesToOthersWhatTheyDo() {
   _inWorlds "others _leavesLinksToOthers" "lost _makesUpForLostNews"
}
aThousandPlansChangeNothing() {
   _inWorlds "plans _changesNothingByPlans"
}

runTest "$2"
