#!/bin/bash
# Stories of a spine that is taken out of a fabric and put back, with traffic of which every packet is accounted for.
# FabricTest.sh BUILD-FOLDER NAME runs the function NAME in an empty folder of its own; the worlds of one test run side by
# side. Skipped (77) where namespaces cannot be made or FRR is missing.
set -uo pipefail
build=$(cd "$1" && pwd)
folder=$(dirname "${BASH_SOURCE[0]}")
# shellcheck source=Tools/testing.sh
. "$folder/../../Tools/testing.sh"
# shellcheck source=Tests/Linux/World.sh
. "$folder/World.sh"
# shellcheck source=Tests/Linux/Frr.sh
. "$folder/Frr.sh"
# shellcheck source=Tests/Linux/Fabric.sh
. "$folder/Fabric.sh"

rate=20000000 # bits per second, each way

# What the other stories rest on: each loss is seen, with its time, and told from those around a shift.
_countsEachLoss() {
   local node began ended missing=0 first far
   for node in host1 middle host2; do
      ip netns add "$world-$node" && ip -n "$world-$node" link set lo up || fail "cannot make the namespace of $node"
   done
   for node in 1 2; do
      _cable host$node "10.1.$node.10/24" middle "10.1.$node.1/24"
      ip -n "$world-host$node" route add default via "10.1.$node.1" || fail "host$node has no way out"
   done
   _in middle sysctl -qw net.ipv4.ip_forward=1
   _flowsBegin flows host1 host2 $flows $((rate / 4)) 60
   began=$EPOCHREALTIME
   ip -n "$world-middle" route add blackhole 10.1.2.10
   # Three times, which are a second apart, so that some are lost long after others.
   for _ in 1 2 3; do
      _until 20 "packets are lost" _moreIsMissing
   done
   ip -n "$world-middle" route del blackhole 10.1.2.10
   ended=$EPOCHREALTIME
   _flowsEnd flows
   output=$(grep -v '^now' flows | head)
   [ "$(grep -c '^lost there' flows)" -eq "$(_sum flows there lost)" ] || fail "each loss should be told"
   _holds "$(_sum flows there lost) >= $missing" "what the black hole took is lost"
   _holds "$(_sum flows there sent) - $(_sum flows there received) == $(_sum flows there lost)" "all is accounted for"
   _holds "$(_sum flows back lost) == 0 && $(_sum flows back received) == $(_sum flows back sent)" "the way back is free"
   [ -z "$(awk -v began="$began" -v ended="$ended" '$1 == "lost" && ( $4 < began || $4 > ended )' flows)" ] ||
      fail "nothing should be lost before or after"
   [ "$(awk '$1 == "lost" { print $3 }' flows | sort -u | wc -l)" -eq $flows ] || fail "each flow should have lost something"
   first=$(awk '$1 == "lost" { print $4; exit }' flows)
   _shifts() { echo "$first leaf1 to-spine2"; }
   far=$(_lossesFarFromShifts flows | wc -l)
   _holds "$far > 0 && $far < $(_sum flows there lost)" "only losses soon after the shift are near it"
   _shifts() { :; }
   [ "$(_lossesFarFromShifts flows | wc -l)" -eq "$(_sum flows there lost)" ] || fail "without a shift each loss is far from it"
}

_moreIsMissing() {
   local now
   now=$(tail -n 1 flows | awk '/^now/ { print $3 - $4 }')
   [ "${now:-0}" -ge $((missing + 50)) ] && missing=$now
}

# ---- tests

seesEachLossAndWhenItWas() {
   _sideBySide "losses _countsEachLoss"
}
findsWhenARouteTakesOtherPorts() {
   _portsInTime 10.1.2.0/24 "to-spine1 to-spine2" > shifts << 'ROUTES'
[2026-11-21T14:52:54.1] 10.1.2.0/24 proto bgp metric 20 \	nexthop via 10.9.21.0 dev to-spine2 weight 1 \	nexthop via 10.9.11.0 dev to-spine1 weight 1
[2026-11-21T14:52:54.2] 10.1.2.0/24 via 10.9.21.0 dev to-spine2 proto bgp metric 20
[2026-11-21T14:52:54.3] 10.1.2.0/24 via 10.9.21.0 dev to-spine2 proto bgp metric 30
[2026-11-21T14:52:56.4] Deleted 10.1.3.0/24 via 10.9.11.0 dev to-spine1 proto bgp metric 20 linkdown
[2026-11-21T14:52:57.5] Deleted 10.1.2.0/24 via 10.9.21.0 dev to-spine2 proto bgp metric 30
[2026-11-21T14:53:05.6] 10.1.2.0/24 proto bgp metric 20 \	nexthop via 10.9.11.0 dev to-spine1 weight 1 \	nexthop via 10.9.21.0 dev to-spine2 weight 1
ROUTES
   output=$(cat shifts)
   [ "$output" = "2026-11-21T14:52:54.2 to-spine2
2026-11-21T14:52:57.5 none
2026-11-21T14:53:05.6 to-spine1 to-spine2" ] || fail "three changes should have been found"
}
runTest "$2"
