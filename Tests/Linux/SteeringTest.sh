#!/bin/bash
# Stories of the agent with the stage commands that we ship, on real links with real routes and traffic of which every
# packet is accounted for. SteeringTest.sh BUILD-FOLDER NAME runs the function NAME in an empty folder of its own; the
# worlds of one test run side by side. Skipped (77) where namespaces cannot be made.
#
# The unit has et1 and et2 of the three links to a neighbour; what comes back comes over et3. FRR is in FabricTest.sh.
set -uo pipefail
build=$(cd "$1" && pwd)
folder=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
stages=$folder/../../Stages
# shellcheck source=Tools/testing.sh
. "$folder/../../Tools/testing.sh"
# shellcheck source=Tests/Linux/World.sh
. "$folder/World.sh"

_links() {
   local n
   peer=$world-peer
   ip netns add "$ns" && ip netns add "$peer" || fail "cannot make the namespaces"
   for n in "$ns" "$peer"; do
      ip -n "$n" link set lo up
      ip netns exec "$n" sysctl -qw net.ipv4.conf.all.rp_filter=0 net.ipv4.conf.default.rp_filter=0
   done
   for n in 1 2 3; do
      ip -n "$ns" link add et$n type veth peer name p$n netns "$peer"
      ip -n "$ns" address add 10.0.$n.1/24 dev et$n && ip -n "$peer" address add 10.0.$n.2/24 dev p$n
      ip -n "$ns" address add fd00:$n::1/64 dev et$n && ip -n "$peer" address add fd00:$n::2/64 dev p$n
      ip -n "$peer" link set p$n up && ip -n "$ns" link set et$n up || fail "cannot make a link"
   done
   ip -n "$ns" address add 10.7.0.1/32 dev lo
   ip -n "$peer" address add 10.8.0.1/32 dev lo
   _until 30 "the addresses are there" _addressesAreThere
   ip -n "$peer" route add 10.7.0.1 via 10.0.3.1
   _add 10.8.0.0/16 via 10.0.1.2
   _add 10.8.0.0/16 via 10.0.3.2 metric 50
   _add 10.9.0.0/16 nexthop via 10.0.3.2 weight 9 nexthop via 10.0.1.2 weight 5 nexthop via 10.0.2.2 weight 7
   _add 10.14.0.0/16 nexthop via 10.0.1.2 nexthop via 10.0.2.2
   _add fd08::/16 via fd00:2::2
   _add fd09::/16 nexthop via fd00:1::2 nexthop via fd00:3::2
   _routes > before
}
_addressesAreThere() { [ -z "$(ip -n "$ns" -6 -o address show tentative)" ]; }
_add() {
   local family=-4
   [[ $1 != *:* ]] || family=-6
   ip -n "$ns" $family route add "$@" || fail "cannot add a route: $*"
}
_routes() {
   local family
   for family in -4 -6; do
      ip -n "$ns" $family -oneline -details route
   done | sed 's/ linkdown//g; s/ dead//g' | sort
}
_areBack() { output=$(diff before <(_routes)); }

# _config ENTER-COMMAND EXIT-COMMAND [ON-FAILURE]
_config() {
   cat > maintd.yaml << YAML
version: 1
switch: linux
settle: 2s
profiles:
  fast: {threshold: 100kbps, load-interval: 5s, shutdown: true}
default-profile: fast
stages:
  steer:
    enter: $1
    exit: $2
    timeout: 40s
    on-failure: ${3:-abort}
    steers: true
groups:
  uplinks: {interfaces: [et1, et2]}
units:
  u1: {groups: [uplinks], enter: [steer, drainwatch], exit: [drainwatch, steer]}
YAML
}

_flowsBegin() {
   "$build/bin/Flows" "$ns" 10.7.0.1 "$peer" 10.8.0.1 16 8000000 120 > flows 2>&1 &
   flows=$!
   _until 20 "traffic flows" grep -q '^now there [1-9][0-9]* [1-9]' flows
}
# LINK sends at least a tenth of a second's traffic from now on.
_carries() {
   local sent
   sent=$(_octetsOut "$1")
   _until 20 "$1 carries the traffic" _hasSent "$1" $((sent + 100000))
}
_hasSent() { [ "$(_octetsOut "$1")" -ge "$2" ]; }
_octetsOut() { ip netns exec "$ns" cat "/sys/class/net/$1/statistics/tx_bytes"; }
_noPacketIsLost() {
   kill -TERM "$flows"
   wait "$flows"
   output=$(tail -n 3 flows)
   # What the receiver was too slow to take was not lost on the way.
   [ "$(awk '$2 == "sent" && $3 > 1000 && $7 == $9 { print $1 }' flows | xargs)" = "there back" ] ||
      fail "no packet should be lost, either way"
}

# ---- stories

_steersByRoutes() {
   _links
   _config "$stages/kernel-routes enter" "$stages/kernel-routes exit"
   _flowsBegin
   _carries et1
   _start
   _ctlPasses enter u1 --wait --timeout 60s
   for link in et1 et2; do
      _shows $link true down
      _isDown $link || fail "$link should be down"
   done
   _carries et3
   _ctlPasses exit u1 --wait --timeout 60s
   _carries et1
   _areBack || fail "all routes should be as they were"
   _until 15 "the agent is well" _isWell
   _noPacketIsLost
}

# The agent is killed when the first routes are moved, and when the first are moved back.
_isKilledWhileItSteers() {
   _links
   cat > ip << 'IP'
#!/bin/bash
[[ " $* " != *" -batch "* ]] || sleep 1
exec ip "$@"
IP
   chmod +x ip
   _config "$stages/kernel-routes enter --ip $PWD/ip" "$stages/kernel-routes exit --ip $PWD/ip"
   _start
   _ctlPasses enter u1
   _until 30 "the first routes are moved" _isMoved
   _kill
   _start
   _until 20 "the stage is run again" _hasRunAgain 1
   _ctlPasses wait u1 --for=maintenance --timeout 90s
   output=$(ip -n "$ns" -oneline route)
   says "10.9.0.0/16 via 10.0.3.2 dev et3"
   _ctlPasses exit u1
   _until 60 "the first routes are back" _isMovedBack
   _kill
   _start
   _until 20 "the stage is run again" _hasRunAgain 2
   _ctlPasses wait u1 --for=normal --timeout 90s
   _areBack || fail "all routes should be as they were"
}
_hasRunAgain() { [ "$(grep -c 'u1/steer: runs again: ' log)" -eq "$1" ]; }
_isMoved() { _routes | grep -q 'metric 100000'; }
_isMovedBack() { _routes | grep -q '10.8.0.0/16 via 10.0.1.2 dev et1 proto boot scope global $'; }

# A stage that fails takes the unit back, and what is shown says why.
_goesBackWhenItCannotSteer() {
   _links
   _add 10.8.0.0/16 via 10.0.3.2 metric 100000
   _routes > before
   _config "$stages/kernel-routes enter" "$stages/kernel-routes exit"
   _start
   _ctlPasses enter u1
   _ctlPasses wait u1 --for=normal --timeout 60s
   _areBack || fail "no route should be changed"
   for link in et1 et2; do
      _shows $link false up
   done
   run _ctl show unit u1
   says "there is a route with metric 100000 already"
}

# ---- tests

steersByRoutesWithoutLosingAPacket() { _sideBySide "routes _steersByRoutes"; }
goesOnSteeringAfterAKill() { _sideBySide "kills _isKilledWhileItSteers"; }
goesBackWhenItCannotSteer() { _sideBySide "fails _goesBackWhenItCannotSteer"; }

runTest "$2"
