#!/bin/bash
# Stories of the agent on real links: the programs themselves, with pairs of links in network namespaces of their own and
# real traffic over them, in real time. LinuxTest.sh BUILD-FOLDER NAME runs the function NAME in an empty folder of its
# own; the worlds of one test run side by side. Skipped (77) where namespaces cannot be made.
set -uo pipefail
build=$(cd "$1" && pwd)
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/../../Tools/testing.sh"
# shellcheck source=Tests/Linux/World.sh
. "$(dirname "${BASH_SOURCE[0]}")/../Linux/World.sh"

settle=6      # seconds
period=5      # of samples, seconds
rate=2000000  # of the traffic, bits per second
ports="et1 et2 et3 et4"

# ---- a world: links et1 to et4, whose other ends p1 to p4 are in a namespace beside it

_inWorlds() { # "NAME COMMAND..." ...
   local what all=()
   for what in "$@"; do
      all+=("${what%% *} _withLinks ${what#* }")
   done
   _sideBySide "${all[@]}"
}
_withLinks() {
   _links
   "$@"
}
_links() {
   local n
   ip netns add "$ns" && ip netns add "$ns-peers" || fail "cannot make the namespaces"
   for n in 1 2 3 4; do
      _link $n
   done
   _until 15 "the addresses are there" _addressesAreThere
   for n in 1 2 3 4; do
      _routeThatNeedsTheAddress $n
   done
   _addresses > before
   ip -n "$ns" -o monitor link > monitor &
}
_link() {
   ip -n "$ns" link add "et$1" type veth peer name "p$1" netns "$ns-peers" &&
      ip -n "$ns-peers" address add "10.0.$1.2/24" dev "p$1" &&
      ip -n "$ns-peers" link set "p$1" up &&
      ip -n "$ns" address add "10.0.$1.1/24" dev "et$1" &&
      ip -n "$ns" address add "2001:db8:$1::1/64" dev "et$1" &&
      ip -n "$ns" link set "et$1" up &&
      ip -n "$ns" route add "10.1.$1.0/24" via "10.0.$1.2" src "10.0.$1.1" metric 50 &&
      ip -n "$ns" -6 route add "2001:db8:10$1::/64" via "2001:db8:$1::2" || fail "cannot make the link et$1"
}
# The kernel takes it only when it knows that nobody else has the address, which is a second or two after that is set.
_routeThatNeedsTheAddress() {
   ip -n "$ns" -6 route add "2001:db8:20$1::/64" via "2001:db8:$1::2" src "2001:db8:$1::1" ||
      fail "cannot make a route over et$1"
}
_addressesAreThere() { [ -z "$(ip -n "$ns" -6 -o address show tentative)" ]; }
# Addresses and routes of all links, as far as they are meant to outlast a shutdown.
_addresses() {
   ip -n "$ns" -br address show scope global | awk '/^et/ { sub( /@.*/, "", $1 ); $2 = ""; print }' | sort
   { ip -n "$ns" route; ip -n "$ns" -6 route; } | grep -v '^fe80\|^ff00\|^multicast' | sed 's/ *$//' | sort
}
_addressesAreBack() { output=$(_addresses | diff before -); }

# _traffic LINK DIRECTION SECONDS: traffic at the rate, "in" or "out" as the agent sees it. Ends by itself.
_traffic() {
   local n=${1#et}
   if [ "$2" = in ]; then
      ip netns exec "$ns-peers" "$build/bin/UdpTrafficTest" "10.0.$n.1" $rate "$3" &
   else
      ip netns exec "$ns" "$build/bin/UdpTrafficTest" "10.0.$n.2" $rate "$3" &
   fi
   traffic+=($!)
}
_trafficEnds() {
   kill "${traffic[@]}" 2> /dev/null
   quietSince=$(date +%s.%N)
}
_allUp() {
   local link
   for link in $ports; do
      _isUp "$link" || return 1
   done
}
# Every time that a link was set up or down, in order: "et1 down".
_moves() {
   awk '
      $1 == "Deleted" { next }
      {
         name = $2; sub( /[@:].*/, "", name ); up = /[<,]UP[,>]/
         if ( up == ( name in down ) ) print name ( up ? " up" : " down" )
         if ( up ) delete down[ name ]; else down[ name ]
      }' monitor
}

# ---- the agent

# _config [PROFILE-KEYS]
_config() {
   cat > maintd.yaml << YAML
version: 1
switch: linux
settle: ${settle}s
profiles:
  fast: {threshold: 100kbps, load-interval: 10s, ${1:-shutdown: true}}
default-profile: fast
groups:
  uplinks: {interfaces: [et1, et2, et3, et4, later]}
units:
  u1: {groups: [uplinks]}
YAML
}
# ---- the story, in pieces

_enters() {
   _config "${1:-}"
   traffic=()
   _traffic et1 in "${2:-120}"
   _traffic et2 out "${2:-120}"
   _traffic et4 in 8
   _start
   _ctlPasses enter u1 --reason upgrade
}
_isUnderMaintenance() {
   local link last=0
   _ctlPasses wait u1 --for=maintenance --timeout 60s
   for link in $ports; do
      _shows "$link" true down
      _isDown "$link" || fail "$link should be down"
      _is "interfaces/$link" state under-maint || fail "$link should be under maintenance"
      last=$(echo "$last $(_time "interfaces/$link" state-time)" | awk '{ print ( $1 > $2 ? $1 : $2 ) }')
   done
   # Kept for at least the settle time after the last link, and not for longer than it takes to see that.
   maintenanceSince=$(_time units/u1 since)
   _holds "$maintenanceSince - $last >= $settle" "the unit settles"
}
_isBackToNormal() {
   _ctlPasses exit u1 --wait --timeout 60s
   _isAllBack
}
_isAllBack() {
   local link
   _until 20 "all links are up" _allUp
   _until 20 "addresses and routes are back" _addressesAreBack
   for link in $ports; do
      _until 15 "$link is seen up" _is "interfaces/$link" link-state up
      _shows "$link" false up
   done
   _until 15 "the agent is well" _isWell
}
_eachLinkHasMovedOnceEachWay() {
   local link expected=
   for link in $ports; do
      expected+="$link down"$'\n'"$link up"$'\n'
   done
   output=$(_moves)
   [ "$(sort <<< "$output")" = "${expected%$'\n'}" ] || fail "each link should have moved once down and once up"
}

# The rates of et1 and et2, from as many samples, each within 1 % of what is sent: the middle one, since the machine may
# be too busy for an even pace now and then.
_ratesAreRight() { # SAMPLES
   local last="" now
   : > in; : > out
   while [ "$(wc -l < in)" -lt "$1" ]; do
      _until $((3 * period)) "the next sample" _nextSample
      last=$now
      _fact interfaces/et1 in-bps >> in
      _fact interfaces/et2 out-bps >> out
   done
   for direction in in out; do
      output=$(cat $direction)
      _holds "$(sort -n $direction | sed -n "$((($1 + 1) / 2))p") / $rate - 1 < 0.01" "rate $direction is not above"
      _holds "$(sort -n $direction | sed -n "$((($1 + 1) / 2))p") / $rate - 1 > -0.01" "rate $direction is not below"
   done
}
_nextSample() {
   now=$(_fact interfaces/et2 samples)
   [ "$now" != "$last" ] && [ "$now" != null ] && [ "${now:-0}" -gt 0 ]
}

_drains() {
   _enters
   _ratesAreRight 5
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
      # The first sample with which ten seconds are quiet: the second one that is all quiet.
      _is interfaces/$link consecutive-drained-samples 2 || fail "$link should have drained on its second quiet sample"
      _holds "$(_time interfaces/$link state-time) - $quietSince < 3 * $period + 1" "$link drains at once"
      _holds "$(_time interfaces/$link state-time) - $quietSince > 2 * $period - 1" "$link is quiet long enough"
      _holds "$maintenanceSince - $(_time interfaces/$link state-time) < $settle + 2.5" "the unit completes at once"
   done
   _isBackToNormal
   _eachLinkHasMovedOnceEachWay
}

_shutsBusyLinks() {
   local link took
   _enters "shutdown: true, shutdown-max-delay: 30s"
   _isUnderMaintenance
   for link in et1 et2; do
      took="($(_time interfaces/$link state-time) - $(_time interfaces/$link start-time))"
      _holds "$took >= 30 && $took - $period < 30" "$link is shut on the first sample at or after 30 s"
      _is interfaces/$link consecutive-drained-samples 0 || fail "$link should never have been quiet"
   done
   _isBackToNormal
   _eachLinkHasMovedOnceEachWay
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
      _addressesAreBack && fail "the routes should not be back yet"
      _killAndRestart "exiting normal"
   fi
   _isBackToNormal
   _eachLinkHasMovedOnceEachWay
}
# _killAndRestart STATES: the unit is in one of these afterwards, from the first answer on, and no link has moved.
_killAndRestart() {
   local state drained moves
   _kill "$signal"
   sleep 0.5 # what the agent had asked for is told by then
   moves=$(_moves)
   drained=$(ip -n "$ns" -o link show | grep -c '^[0-9]*: et[^<]*<BROADCAST,MULTICAST>')
   sleep 1
   [ "$moves" = "$(_moves)" ] || output=$(_moves) fail "no link should move without an agent"
   _start
   state=$(_fact units/u1 state)
   [[ " $1 " = *" $state "* ]] || fail "the unit should be $1, is $state"
   if [[ " $1 " = *" exiting "* ]]; then
      return
   fi
   _until 10 "what has drained is still drained" _hasDrained "$drained"
   sleep 1
   _is units/u1 state "$1" || fail "the unit should still be $1"
   [ "$moves" = "$(_moves)" ] || output=$(_moves) fail "no link should move with the new agent"
}
_hasDrained() { [ "$(_fact units/u1 drained)" -ge "$1" ]; }

# Under maintenance, links are raised by somebody else, by hand and without an agent.
_isReleasedByHand() {
   _config
   _start
   _ctlPasses enter u1 --wait --timeout 60s
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
   _allUp || fail "all links should be up"
   _addressesAreBack || fail "addresses and routes should be back"
   run _maintdReleasesAll
   passes
}
_maintdReleasesAll() { (_maintd --release-all --plugin-dir /nonexistent); }

# Links go, come back and come for the first time.
_followsLinks() {
   local ports="et1 et2 et4"
   _config
   _start
   _traffic et1 in 18
   _ctlPasses enter u1
   _until 30 "et3 is shut" _isDown et3
   ip -n "$ns" link del et3
   _until 10 "et3 has gone" _is units/u1 total 3
   _is units/u1 state entering || fail "the unit should still be entering"
   _link 3
   _until 15 "the addresses are there" _addressesAreThere
   _routeThatNeedsTheAddress 3
   ip -n "$ns" link add later type veth peer name p5 netns "$ns-peers"
   ip -n "$ns-peers" link set p5 up
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

# ---- tests

drainsRealLinksAndBringsThemBack() {
   _inWorlds "drains _drains" "busy _shutsBusyLinks" "watches _touchesNothing"
}
goesOnAfterAKillAtEachPointOfTheStory() {
   _inWorlds "entering _isKilled entering" "shut _isKilled shut" "draining _isKilled draining" \
      "settling _isKilled settling" "maintenance _isKilled maintenance" "exiting _isKilled exiting" \
      "stopped _isKilled draining TERM"
}
followsLinksAndReleasesThemByHand() {
   _inWorlds "byHand _isReleasedByHand" "links _followsLinks"
}

runTest "$2"
