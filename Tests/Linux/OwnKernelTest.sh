#!/bin/bash
# Stories of the agent on a switch with port-channels and VLANs: the programs themselves on the links of a real kernel,
# with real traffic, in real time. Played in a kernel that has all of it: OwnKernel.sh bash OwnKernelTest.sh BUILD NAME.
#
# A world, the switch in the middle, each line a wire:
#
#    peers               switch                        peers, far
#    p1 ---------------- et1                            et1, bond0 and vlan10 are the unit
#    pbond: p2a p2b p2c -- bond0: m1 m2 m3
#    p3 ---------------- et3 \
#                             br0 (filters VLANs) with vlan10 on top
#    fbond: f1 f2 ------ bond1: m4 m5 /
set -uo pipefail
build=$(cd "$1" && pwd)
folder=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=Tools/testing.sh
. "$folder/../../Tools/testing.sh"
# shellcheck source=Tests/Linux/World.sh
. "$folder/World.sh"
# shellcheck source=Tests/Linux/Links.sh
. "$folder/Links.sh"

ports="et1 bond0 vlan10"
lag=bond0        # the port-channel with addresses
mode=802.3ad
lacpRate=fast
rate=1000000
flows=12         # enough for each member to have some

# A process takes its time to begin in such a kernel, so one answers all questions about a world (look.py), and waiting
# needs none. One processor has to do for all, the agents too.
pause=0.4
_looks() {
   mkfifo questions answers nothing
   exec {questions}<> questions {answers}<> answers {nothing}<> nothing
   ip netns exec "$ns" python3 "$folder/look.py" "$PWD/run/control.sock" < questions > answers &
}
_ask() {
   local answer
   echo "$*" >&"$questions"
   IFS= read -rt 30 answer <&"$answers" || fail "nobody looks"
   echo "$answer"
}
_fact() { _ask fact "$@"; }
_time() { _ask time "$@"; }
_octets() { _ask octets "$@"; }
_isUp() { [ "$(_ask up "$1")" = true ]; }
# Neither `ip monitor` nor a link is to miss anything when the machine is busy.
echo 16777216 > /proc/sys/net/core/rmem_max
echo 100000 > /proc/sys/net/core/netdev_max_backlog
_sleep() { read -rt "$1" -u "$nothing" || true; }

# ---- links

_in() { ip -n "$@" || fail "ip -n $*"; }

_makeLinks() {
   _looks
   far=$world-far
   ip netns add "$far" || fail "cannot make the namespace"
   "_make${shape:-Switch}"
}
_makeSwitch() {
   _link et1 p1
   _addressed et1 p1 1
   _above et1 1
   _makePortChannel
   _makeBridge
   _hostOn et3 p3
   _link m4 f1
   _link m5 f2
   _in "$peers" link set f1 netns "$far"
   _in "$peers" link set f2 netns "$far"
   _bond "$ns" bond1 "$mode" m4 m5
   _bond "$far" fbond "$mode" f1 f2
   _hostOn bond1
   _in "$far" address add 10.0.3.3/24 dev fbond
   _in "$far" link set fbond up
   _vlan 10
   _addressed vlan10 p3 3
}
# The port-channel with addresses, of three members.
_makePortChannel() {
   local n
   for n in 1 2 3; do
      _link "m$n" "p2$n"
   done
   if [ "$mode" = team ]; then
      _team "$ns" "$lag" m1 m2 m3
      _team "$peers" plag p21 p22 p23
   else
      _bond "$ns" "$lag" "$mode" m1 m2 m3
      _bond "$peers" plag "$mode" p21 p22 p23
   fi
   _addressed "$lag" plag 2
   _above "$lag" 2
   _until 30 "the members are together" _areTogether "$ns" "$lag" 3
   _until 30 "the members are together" _areTogether "$peers" plag 3
}
_bond() { # NAMESPACE NAME MODE MEMBER...
   local in=$1 name=$2 options="miimon 100 xmit_hash_policy layer3+4" member
   [ "$3" != 802.3ad ] || options+=" lacp_rate $lacpRate"
   # shellcheck disable=SC2086
   _in "$in" link add "$name" type bond mode "$3" $options
   shift 3
   for member; do
      _joins "$in" "$member" "$name"
   done
}
_areTogether() { # NAMESPACE NAME COUNT: so many members of the port-channel share the traffic
   [ "$mode" != 802.3ad ] || [[ $(ip -n "$1" -d link show "$2") == *"ad_num_ports $3 "* ]]
}
_joins() { # NAMESPACE MEMBER PORT-CHANNEL
   _in "$1" link set "$2" down
   _in "$1" link set "$2" master "$3"
   _in "$1" link set "$2" up
}
_team() { # NAMESPACE NAME MEMBER...
   local in=$1 name=$2 member
   _in "$in" link add "$name" type team
   ip netns exec "$in" python3 "$folder/teamMode.py" "$name" roundrobin || fail "cannot set the mode of $name"
   shift 2
   for member; do
      _joins "$in" "$member" "$name"
   done
}
# With an address of its own: otherwise it has the lowest one of its ports, and whenever that changes, the kernel forgets the
# neighbours of what is on top of the bridge.
_makeBridge() {
   _in "$ns" link add br0 address 02:00:00:00:0b:00 type bridge vlan_filtering 1
   _in "$ns" link set br0 up
}
# _hostOn PORT [PEER]: the port is in the bridge, in VLAN 10 only, which is not tagged on it.
_hostOn() {
   [ $# -eq 1 ] || _link "$1" "$2"
   _in "$ns" link set "$1" master br0
   bridge -n "$ns" vlan del dev "$1" vid 1
   bridge -n "$ns" vlan add dev "$1" vid 10 pvid untagged || fail "cannot put $1 into VLAN 10"
   _in "$ns" link set "$1" up
}
_vlan() { # ID
   bridge -n "$ns" vlan add dev br0 vid "$1" self || fail "cannot put the bridge into VLAN $1"
   _in "$ns" link add link br0 name "vlan$1" type vlan id "$1"
}
_configOf() { # [PROFILE-KEYS]
   cat << YAML
profiles:
  fast: {threshold: 100kbps, load-interval: ${loadInterval}s, ${1:-shutdown: true}}
default-profile: fast
groups:
  uplinks: {interfaces: [et1, et2, $lag]}
  tenants: {vlans: [10, 100-163]}
units:
  u1: {groups: [uplinks, tenants]}
YAML
}

# ---- traffic

# Inside VLAN 10, from the host on et3 to the one on bond1.
_vlanTraffic() { # SECONDS
   ip netns exec "$peers" "$build/bin/UdpTrafficTest" 10.0.3.3 "$rate" "$1" > sent-vlan10-in &
   vlanTraffic=$!
   ln -sf sent-vlan10-in sent-vlan10-out
}
# From the host on et3 to the switch itself: of the members, that port alone is busy.
_hostTraffic() { # SECONDS
   ip netns exec "$peers" "$build/bin/UdpTrafficTest" 10.0.3.1 "$rate" "$1" > sent-vlan10-host &
   vlanTraffic=$!
}
_vlanTrafficEnds() {
   kill "$vlanTraffic"
   quietSince=$(date +%s.%N)
}
_carries() { # DIRECTION LINK...: each has carried more than a tenth of a second's traffic
   local direction=$1 link
   shift
   for link; do
      _holds "$(_octets "$link" "$direction") > $rate / 80" "$link carries some of the traffic"
   done
}

# ---- stories

_enters() { # [PROFILE-KEYS]
   _config "${1:-}"
   _start
   _ctlPasses enter u1 --reason upgrade
}
_isBusy() { # LINK...
   local link
   _is units/u1 state entering || fail "the unit should not complete while traffic flows"
   for link; do
      _shows "$link" false up
      _is "interfaces/$link" consecutive-drained-samples 0 || fail "$link should not be quiet"
   done
}
_isShut() { # LINK...
   local link
   for link; do
      _until $((loadInterval + 20)) "$link is shut" _isDown "$link"
      _until 10 "$link is shown shut" _is "interfaces/$link" state under-maint
      _hasDrainedOnTime "$link"
      _shows "$link" true down
   done
}
_isNot() { ! _is "$@"; }
_isQuiet() { # LINK [DIRECTION]: next to nothing in a second
   local before
   before=$(_octets "$1" "${2:-tx}")
   _sleep 1
   [ $(($(_octets "$1" "${2:-tx}") - before)) -lt $((rate / 80)) ]
}
_areUp() { # LINK...
   local link
   for link; do
      _isUp "$link" || fail "$link should be up"
   done
}

# Ports, port-channels and VLAN interfaces in one unit, with traffic on each; one member of the VLAN is busy for longer.
_drains() { # RATES
   _traffic et1 in 240
   _traffic "$lag" out 240 "$flows"
   _vlanTraffic 240
   _enters
   _ratesAreRight "$1" "et1 in" "$lag out" "vlan10 in" "vlan10 out"
   _carries tx m1 m2 m3
   # What is switched inside the VLAN is counted by the members' counters only, once the bridge has learned where the
   # receiver is: it forgets that when a port goes down, and sends to all until the receiver has said something.
   _until 20 "the bridge sees none of it" _isQuiet br0 rx
   _isQuiet vlan10 rx || fail "the VLAN device should see none of it"
   # shellcheck disable=SC2086
   _isBusy $ports
   inVlan=$vlanTraffic
   _hostTraffic 240
   kill "$inVlan"
   _trafficEnds
   # The VLAN device counts no Ethernet headers that it receives, the port does.
   ln -sf sent-vlan10-host sent-vlan10-in
   last=$(_fact interfaces/vlan10 last-sample-time)
   _until $((3 * period)) "the next sample" _isNot interfaces/vlan10 last-sample-time "$last"
   _ratesAreRight 2 "vlan10 in"
   _isShut et1 "$lag"
   _isBusy vlan10
   _until 20 "the VLAN's other member is quiet" _isQuiet bond1
   _isBusy vlan10
   # A port-channel is shut where it is one, not at its members.
   _areUp m1 m2 m3
   _vlanTrafficEnds
   _isShut vlan10
   _areUp br0 et3 bond1
   _isUnderMaintenance
   _holds "$maintenanceSince - $(_time interfaces/vlan10 state-time) < $settle + 2.5" "the unit completes at once"
   _isBackToNormal
   _eachLinkHasMovedOnceEachWay
}

# A port-channel that has all the unit's traffic.
_drainsPortChannel() {
   _traffic "$lag" in 240 "$flows"
   _traffic "$lag" out 240 "$flows"
   _enters
   _ratesAreRight 3 "$lag in" "$lag out"
   _carries tx m1 m2 m3
   _carries rx m1 m2 m3
   _isBusy "$lag"
   _trafficEnds
   _isShut "$lag"
   _areUp m1 m2 m3
   _isUnderMaintenance
   _isBackToNormal
   _eachLinkHasMovedOnceEachWay
}

# A member leaves and comes back while traffic flows, and once more while the port-channel is getting quiet.
_losesAndRegainsAMember() {
   _traffic "$lag" in 240 "$flows"
   _enters
   _ratesAreRight 3 "$lag in"
   _leaves m2
   _ratesAreRight 3 "$lag in"
   _isBusy "$lag"
   _joins "$ns" m2 "$lag"
   _ratesAreRight 5 "$lag in"
   _isBusy "$lag"
   _trafficEnds
   _until 15 "it gets quiet" _is "interfaces/$lag" consecutive-drained-samples 1
   _leaves m2
   _joins "$ns" m2 "$lag"
   _isShut "$lag"
   _isUnderMaintenance
   _isBackToNormal
   _eachLinkHasMovedOnceEachWay
}
_leaves() { _in "$ns" link set "$1" nomaster; }

# A member goes for good while the port-channel is shut.
_losesAMemberWhileShut() {
   _enters
   _isUnderMaintenance
   _in "$ns" link del m2
   sleep $((2 * period)) # of samples; nothing is to happen in them
   _is units/u1 state maintenance || fail "the unit should still be under maintenance"
   _isUnderMaintenance
   _isBackToNormal
   _is "interfaces/$lag" link-state up || fail "$lag should be up with the two members that are left"
   _eachLinkHasMovedOnceEachWay
}

# VLANs 100 to 163 on eight ports, two ports each. Traffic in one of them keeps those busy that share a port with it.
_makeVlans() {
   local id
   ports=
   _makeBridge
   for id in 0 1 2 3 4 5 6 7; do
      _link "v$id" "h$id"
      _in "$ns" link set "v$id" master br0
      _in "$ns" link set "v$id" up
      _in "$peers" link set "h$id" up
   done
   for ((id = 100; id < 164; ++id)); do
      ports+=" vlan$id"
      echo "vlan add dev br0 vid $id self"
      echo "vlan add dev v$((id % 8)) vid $id"
      echo "vlan add dev v$(((id + 1) % 8)) vid $id"
   done > members
   for ((id = 100; id < 164; ++id)); do
      echo "link add link br0 name vlan$id type vlan id $id"
      echo "link set vlan$id up"
   done > devices
   bridge -n "$ns" -batch members && ip -n "$ns" -batch devices || fail "cannot make the VLANs"
   # Hosts in VLAN 104, which is on v0 and v1.
   _in "$peers" link set h1 netns "$far"
   _in "$far" link set h1 up
   _hostIn "$peers" h0 104 10.0.3.2
   _hostIn "$far" h1 104 10.0.3.3
}
_hostIn() { # NAMESPACE LINK VLAN ADDRESS
   _in "$1" link add link "$2" name "$2.$3" type vlan id "$3"
   _in "$1" address add "$4/24" dev "$2.$3"
   _in "$1" link set "$2.$3" up
}
_drainsVlans() {
   local link
   _vlanTraffic 240
   _enters
   # On v0 or v1: every VLAN whose number, divided by 8, leaves 7, 0 or 1.
   _until 60 "the VLANs on the other ports are shut" _hasDrained 40
   sleep $((2 * period))
   _is units/u1 drained 40 || fail "only the VLANs on other ports should have drained"
   for link in $ports; do
      case $((${link#vlan} % 8)) in
      0 | 1 | 7) _isUp "$link" || fail "$link should be up" ;;
      *) _isDown "$link" || fail "$link should be down" ;;
      esac
   done
   _vlanTrafficEnds
   _ctlPasses wait u1 --for=maintenance --timeout 60s
   _count '"shut": true' 64
   _count '"link-state": "down"' 64
   _areUp br0 v0 v1
   _ctlPasses exit u1 --wait --timeout 60s
   _until 20 "all links are up" _allUp
   _eachLinkHasMovedOnceEachWay
}
_count() { # TEXT COUNT: so many interfaces of the unit show it
   run _ctl -j show interfaces u1
   passes
   [ "$(grep -cF -- "$1" <<< "$output")" -eq "$2" ] || fail "$2 interfaces should show $1"
}

# A port that its administrator has set down stays down.
_respectsTheAdministrator() {
   _in "$ns" link add et2 type dummy
   _in "$ns" link set et2 down
   _enters
   _isUnderMaintenance
   _isBackToNormal
   _isDown et2 || fail "et2 should still be down"
   _eachLinkHasMovedOnceEachWay
}

# In the middle of a drain, what passes a VLAN interface cannot be counted any more, while there is traffic.
_waitsForWhatCannotBeCounted() {
   _vlanTraffic 240
   _enters
   _isWatched vlan10
   # A tagged device has no counters of its own.
   _in "$ns" link add et7 type dummy
   _in "$ns" link set et7 up
   _in "$ns" link add link et7 name et7.5 type vlan id 5
   _in "$ns" link set et7.5 up
   _in "$ns" link set et7.5 master br0
   bridge -n "$ns" vlan add dev et7.5 vid 10 || fail "cannot put et7.5 into VLAN 10"
   _waitsFor vlan10 "its member \"et7.5\" cannot be counted"
   _in "$ns" link set et7.5 nomaster
   _isWatched vlan10
   _in "$ns" link set br0 type bridge vlan_filtering 0
   _waitsFor vlan10 "bridge \"br0\" does not filter VLANs"
   _in "$ns" link set br0 type bridge vlan_filtering 1
   _isWatched vlan10
   _vlanTrafficEnds
   _isUnderMaintenance
   _isBackToNormal
   _eachLinkHasMovedOnceEachWay
}
_isWatched() { # LINK
   _until 20 "$1 is watched" _is "interfaces/$1" state enter-maint
   _is units/u1 state entering || fail "the unit should not complete while traffic flows"
}
_waitsFor() { # LINK REASON: for longer than the unit needs to settle
   _until 10 "$1 is not counted" _is "interfaces/$1" state null
   _until 30 "all others have drained" _hasDrained 2
   _sleep $((settle + 3))
   _is units/u1 state entering || fail "the unit should not complete while nobody can count $1"
   run _ctl explain u1
   passes
   says "is up, and nobody can say what it carries: $2"
}

# A bridge that is set up sets up its VLAN interfaces as well, also one that is shut.
_outlastsABounceOfItsBridge() {
   _enters
   _isUnderMaintenance
   _in "$ns" link set br0 down
   _sleep 1
   _in "$ns" link set br0 up
   _until 10 "vlan10 is shut again" _isDown vlan10
   _sleep $period
   _isUnderMaintenance
   _is interfaces/vlan10 drift null || fail "nobody has set vlan10 up"
   _isBackToNormal
   output=$(_moves)
   [ "$(grep -c vlan10 <<< "$output")" -eq 4 ] || fail "vlan10 should have gone down, up with its bridge, down and up"
   # The next time it goes down with its bridge while it is watched.
   _ctlPasses enter u1 --reason upgrade
   _until 20 "vlan10 is watched" _is interfaces/vlan10 state enter-maint
   _in "$ns" link set br0 down
   _until 10 "vlan10 is seen down" _is interfaces/vlan10 link-state down
   _is interfaces/vlan10 drift null || fail "nobody has set vlan10 down"
   _in "$ns" link set br0 up
   _until 10 "vlan10 is seen up" _is interfaces/vlan10 link-state up
   ! grep -q "somebody else" log || fail "nobody else has set a link"
}

# The same while there is no agent; what an administrator does meanwhile is told from it.
_outlastsABounceWithoutAnAgent() {
   _enters
   _isUnderMaintenance
   _kill KILL
   _in "$ns" link set br0 down
   _in "$ns" link set br0 up
   _until 10 "vlan10 has come up with its bridge" _isUp vlan10
   _start
   _until 10 "vlan10 is shut again" _isDown vlan10
   _isUnderMaintenance
   _is interfaces/vlan10 drift null || fail "nobody has set vlan10 up"
   _kill KILL
   _in "$ns" link set vlan10 up
   _start
   _until 10 "vlan10 is shown as raised" _is interfaces/vlan10 drift raised
   _sleep $period
   _isUp vlan10 || fail "what somebody has raised should be left up"
   _in "$ns" link set vlan10 down
   _until 10 "vlan10 is seen down" _is interfaces/vlan10 link-state down
}

# The agent is killed on the way back, when what was down above the port-channel is down again and a route still waits for
# a carrier. What is set in between stays so.
_isKilledWhileItGivesBack() {
   _enters
   _isUnderMaintenance
   _carrierOfPeers down
   _ctlPasses exit u1
   _until 20 "$lag is up" _isUp "$lag"
   _until 10 "$lag.78 is down again" _isDown "$lag.78"
   # What was before an answer is kept when it comes; the agent hears of the device before it takes the second question.
   _fact units/u1 state > /dev/null
   _fact units/u1 state > /dev/null
   [ -z "$(_waitingRoute)" ] || fail "the route should wait for a carrier"
   _kill KILL
}
_carrierOfPeers() { # up|down
   local member
   for member in p21 p22 p23; do
      _in "$peers" link set "$member" "$1"
   done
}
_waitingRoute() { ip -n "$ns" -6 route show "2001:db8:20${number[$lag]}::/64" dev "$lag"; }
_hasItsRoute() { [ -n "$(_waitingRoute)" ]; }
_leavesUpWhatIsRaisedMeanwhile() {
   _isKilledWhileItGivesBack
   _in "$ns" link set "$lag.78" up
   _start
   _carrierOfPeers up
   _ctlPasses wait u1 --for=normal --timeout 60s
   _until 30 "the route is back" _hasItsRoute
   _isUp "$lag.78" || fail "what somebody has raised should be up"
}
_leavesDownWhatIsLoweredMeanwhile() {
   _isKilledWhileItGivesBack
   _in "$ns" link set "$lag" down
   _start
   _carrierOfPeers up
   _ctlPasses wait u1 --for=normal --timeout 60s
   _isDown "$lag" || fail "what somebody has set down should be down"
   _in "$ns" link set "$lag" up
   _until 30 "the route is back" _hasItsRoute
   _areUp "$lag"
}

_rounds() { # COUNT COMMAND...
   local count=$1
   shift
   while [ $((count--)) -gt 0 ]; do
      : > monitor
      "$@"
      _kill TERM
   done
}

# The agent is killed at the POINTs: entering, draining (one link shut), shut (the port-channel too), settling,
# maintenance, exiting.
_isKilledAt() { # POINT...
   local points=" $* "
   _traffic "$lag" out 240 "$flows"
   _vlanTraffic 240
   _enters
   _killAt entering entering
   _until 30 "et1 is shut" _isDown et1
   _killAt draining entering
   _trafficEnds
   _until 40 "$lag is shut" _isDown "$lag"
   _killAt shut entering
   _isBusy vlan10
   _vlanTrafficEnds
   _until 40 "the unit settles" _settles
   _killAt settling entering
   _isUnderMaintenance
   _killAt maintenance maintenance
   _ctlPasses exit u1
   _killAt exiting "exiting normal"
   _isBackToNormal
   _eachLinkHasMovedOnceEachWay
}
_killAt() { # POINT STATES
   [[ $points != *" $1 "* ]] || _killAndRestart "$2"
}

# Members leave, join, go and come for minutes while traffic flows.
_membersComeAndGo() { # SECONDS
   local end=$((SECONDS + $1)) n
   _traffic "$lag" in 1000 "$flows"
   _enters
   _ratesAreRight 3 "$lag in"
   RANDOM=1
   while [ $SECONDS -lt $end ]; do
      n=$((RANDOM % 3 + 1))
      case $((RANDOM % 3)) in
      0)
         _leaves "m$n"
         _sleep $((RANDOM % 8))
         _joins "$ns" "m$n" "$lag"
         ;;
      1)
         _in "$ns" link del "m$n"
         _sleep $((RANDOM % 8))
         _link "m$n" "p2$n"
         _joins "$peers" "p2$n" plag
         _joins "$ns" "m$n" "$lag"
         ;;
      2)
         _in "$ns" link set "m$n" down
         _sleep $((RANDOM % 8))
         _in "$ns" link set "m$n" up
         ;;
      esac
      _isUp "$lag" || fail "$lag should not have been shut"
      _is units/u1 state entering || fail "the unit should not complete while traffic flows"
   done
   _ratesAreRight 3 "$lag in"
   _trafficEnds
   _isShut "$lag"
   _isUnderMaintenance
   _isBackToNormal
   _eachLinkHasMovedOnceEachWay
}

# ---- tests

portChannel="shape=PortChannel ports=bond0"

drainsPortsPortChannelsAndVlans() {
   _inWorlds "lacp rate=8000000 _drains 3" "xor mode=balance-xor $portChannel _drainsPortChannel" \
      "team mode=team lag=team0 shape=PortChannel ports=team0 _drainsPortChannel"
}
followsMembersAndAdministrators() {
   _inWorlds "regains $portChannel _losesAndRegainsAMember" "deleted $portChannel _losesAMemberWhileShut" \
      "administrator $portChannel _respectsTheAdministrator" "vlans shape=Vlans _drainsVlans"
}
waitsForWhatCannotBeCounted() {
   _inWorlds "uncounted _waitsForWhatCannotBeCounted"
}
shutsAVlanInterfaceAgainThatItsBridgeHasRaised() {
   _inWorlds "bounce _outlastsABounceOfItsBridge" "unseen _outlastsABounceWithoutAnAgent"
}
leavesToOthersWhatTheySetWhileItIsAwayOnTheWayBack() {
   _inWorlds "raised $portChannel _leavesUpWhatIsRaisedMeanwhile" \
      "lowered $portChannel _leavesDownWhatIsLoweredMeanwhile"
}
goesOnAfterAKillAtEachPointOfTheStory() {
   _inWorlds "kills _isKilledAt entering draining shut settling maintenance exiting"
}

longDrainsAgainAndAgainOverLongIntervals() {
   _inWorlds "lacp loadInterval=30 settle=20 _rounds 3 _drains 6" \
      "slow lacpRate=slow loadInterval=30 settle=20 $portChannel _rounds 3 _drainsPortChannel"
}
longGoesOnAfterAKillAtEachPointAlone() {
   local worlds="" point
   for point in entering draining shut settling maintenance exiting; do
      for signal in KILL TERM; do
         worlds+="$point-$signal signal=$signal _isKilledAt $point"$'\n'
      done
   done
   # Not all at once: one processor has to do for them.
   while read -r first && read -r second && read -r third; do
      _inWorlds "$first" "$second" "$third"
   done <<< "$worlds"
}
longFollowsMembersThatComeAndGo() {
   _inWorlds "lacp $portChannel _membersComeAndGo 240" "xor mode=balance-xor $portChannel _membersComeAndGo 240" \
      "team mode=team lag=team0 shape=PortChannel ports=team0 _membersComeAndGo 240"
}

# What they have been at when time runs out.
trap 'wait; tail -n 20 -- "$here"/*.out "$here"/*/log; exit 124' TERM
runTest "$2"
