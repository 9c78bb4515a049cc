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

_inFabrics() { # "NAME COMMAND..." ...
   _frrIsThere
   local what all=()
   for what in "$@"; do
      all+=("${what%% *} _withFabric ${what#* }")
   done
   _sideBySide "${all[@]}"
}
_withFabric() {
   _fabric
   "$@"
}

# ---- the stories

_enters() {
   [ -e maintd.yaml ] || _configOfSpine1
   _start
   _ctlPasses enter spine1 --reason "replace the line card"
}
_isShut() { # PORT...
   local port
   for port in "$@"; do
      _shows "$port" true down
      _isDown "$port" || fail "$port should be down"
      _is "interfaces/$port" state under-maint || fail "$port should be under maintenance"
   done
}
_comesBack() {
   local port
   _ctlPasses exit spine1 --wait --timeout 60s
   _until 30 "the leaves use both spines again" _bothSpinesAreUsed
   for port in to-leaf1 to-leaf2; do
      _isUp "$port" || fail "$port should be up"
      _until 15 "$port is seen up" _is "interfaces/$port" link-state up
      _shows "$port" false up
   done
   run _frr "$PWD/spine1" "show running-config"
   says "neighbor"
   saysNot "graceful-shutdown"
   _until 15 "the agent is well" _isWell
}
# What the leaves did, one line a shift.
_shiftsWere() {
   output=$(_shifts)
   [ "$(cut -d ' ' -f 2- <<< "$output" | sort)" = "$([ $# -eq 0 ] || printf '%s\n' "$@" | sort)" ] || fail "the shifts should be: $*"
}
# Of what FILE tells: enough was sent, and hardly anything lost.
_lostHardlyAnything() { # FILE BITS-PER-SECOND
   local way
   output=$(_aboutLosses "$1")
   for way in there back; do
      _holds "$(_sum "$1" $way bps) > 0.95 * $2" "as much was sent as was meant to be"
      _holds "$(_sum "$1" $way overruns) == 0" "the receiver kept up, so that each loss is the fabric's"
      _holds "$(_sum "$1" $way lost) < 0.001 * $(_sum "$1" $way sent)" "less than 0.1 % was lost"
   done
   [ -z "$(_lossesFarFromShifts "$1")" ] || fail "packets were lost more than 100 ms away from a shift"
}

_isTakenOutAndPutBack() {
   local away since
   _flowsBegin flows host1 host2 $flows $rate 240
   _until 20 "both spines carry" _allCarry $((rate / 20))
   _enters
   _until 30 "the leaves avoid spine 1" _spine1IsAvoided
   _ctlPasses wait spine1 --for=maintenance --timeout 60s
   _isShut to-leaf1 to-leaf2
   away=$(_shifts | tail -n 1 | cut -d ' ' -f 1)
   since=$(_time units/spine1 since)
   output=$(_shifts)
   _holds "$since - $away <= $loadInterval + $settle + 15" "the unit completes soon after the shift"
   # Two samples that are all quiet at least, and a second for those who were told first.
   _holds "$since - $away >= $loadInterval + $settle - 1" "the unit completes when the ports were seen quiet long enough"
   _shiftsWere "leaf1 to-spine2" "leaf2 to-spine2"
   _rates 1 > rates
   output=$(cat rates)
   [ "$(awk -v least=$((rate / 2)) '/^spine2/ && $3 > least && $4 > least' rates | wc -l)" -eq 2 ] ||
      fail "spine 2 should carry everything"
   _comesBack
   _until 20 "both spines carry again" _allCarry $((rate / 20))
   _flowsEnd flows
   _shiftsWere "leaf1 to-spine2" "leaf2 to-spine2" "leaf1 to-spine1 to-spine2" "leaf2 to-spine1 to-spine2"
   _lostHardlyAnything flows $rate
}

_waitsForAHostWithoutAnotherWay() {
   local samples
   _flowsBegin flows host1 host3 8 2000000 240
   _enters
   _until 60 "to-leaf2 is shut" _isDown to-leaf2
   _until 10 "to-leaf2 is shown shut" _is interfaces/to-leaf2 state under-maint
   _isShut to-leaf2
   samples=$(_fact interfaces/to-leaf1 samples)
   _until 60 "three more samples" _hasSamples to-leaf1 $((samples + 3))
   _is units/spine1 state entering || fail "the unit should not complete while host 3 is busy"
   _shows to-leaf1 false up
   run _ctl explain spine1
   passes
   says "it waits for 1 interface"
   grep -qE '^to-leaf1 +enter-maint +[12]\.[0-9]+ Mbps +[12]\.[0-9]+ Mbps +10\.0 kbps ' <<< "$output" ||
      fail "should have said that it waits for to-leaf1, with its rates and the threshold"
   saysNot "to-leaf2 "
   _flowsEnd flows
   output=$(_aboutLosses flows)
   _holds "$(_sum flows there lost) + $(_sum flows back lost) == 0" "host 3 loses nothing"
   _ctlPasses wait spine1 --for=maintenance --timeout 60s
   _isShut to-leaf1 to-leaf2
   _comesBack
}
_hasSamples() { [ "$(_fact "interfaces/$1" samples)" -ge "$2" ]; }

# The agent dies while the stage that moves the traffic is at work.
_isKilledWhileItSteers() {
   _flowsBegin flows host1 host2 $flows $rate 240
   _enters
   _until 10 "the traffic is steered" grep -q 'spine1/steer: .* turned on$' log
   _kill KILL
   _start
   _ctlPasses wait spine1 --for=maintenance --timeout 60s
   output=$(cat log)
   grep -q 'spine1/steer: runs again: ' log || fail "the stage should have been run again"
   _spine1IsAvoided || fail "the leaves should avoid spine 1"
   _isShut to-leaf1 to-leaf2
   _comesBack
   _until 20 "both spines carry again" _allCarry $((rate / 20))
   _flowsEnd flows
   _shiftsWere "leaf1 to-spine2" "leaf2 to-spine2" "leaf1 to-spine1 to-spine2" "leaf2 to-spine1 to-spine2"
   _lostHardlyAnything flows $rate
}

# No traffic is moved away, so nothing is shut, and the unit is back by itself.
_cannotBeSteered() {
   _flowsBegin flows host1 host2 $flows $rate 240
   _configOfSpine1
   sed -i 's|--vty-socket [^ "]*|--vty-socket /nonexistent|' maintd.yaml
   _enters
   run _ctl wait spine1 --for=maintenance --timeout 60s
   [ "$status" -eq 4 ] || fail "the unit should not come under maintenance"
   _ctlPasses wait spine1 --for=normal --timeout 60s
   run _ctl show unit spine1
   says "stage steer failed"
   _isUp to-leaf1 && _isUp to-leaf2 || fail "nothing should be shut"
   _flowsEnd flows
   _shiftsWere
   _lostHardlyAnything flows $rate
}

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
takesASpineOutAndPutsItBackWithoutLoss() {
   _inFabrics "both _isTakenOutAndPutBack" "single _waitsForAHostWithoutAnotherWay"
}
goesOnWhenItIsKilledOrCannotSteer() {
   _inFabrics "killed _isKilledWhileItSteers" "alone _cannotBeSteered"
}

# The demonstration is made of the same pieces.
longDemonstrationEndsWell() {
   _frrIsThere
   _namespacesCanBeMade
   run "$tools/demo-linux" "$build"
   passes
   says "Spine 1 was out of service and is back"
}
tellsWhoIsNotRootWhatToType() {
   mkdir bin
   printf '#!/bin/sh\necho 1000\n' > bin/id
   chmod +x bin/id
   PATH=$PWD/bin:$PATH run "$tools/demo-linux" "$build"
   fails
   says "sudo $(cd "$tools/.." && pwd)/Tools/demo-linux $build"
}

runTest "$2"
