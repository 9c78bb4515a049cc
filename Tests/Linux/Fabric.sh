# shellcheck shell=bash
# Sourced by what plays on a fabric, after World.sh and Frr.sh: two leaves, two spines, a host behind each leaf, and one
# behind spine 1 that has no other way. Every node is a network namespace ($world-NODE) with FRR's zebra and bgpd in it if
# it is a router; BGP between leaves and spines, equal-cost paths through both spines, flows spread over them.
#
#            spine1 --- host3      ports go by what is at their other end: to-spine1, to-host1, ...
#            /    \
#       leaf1      leaf2           10.1.N.0/24    behind leaf N; host N is .10. Behind spine 1: 10.1.3.0/24
#       /  \      /   \            10.9.SL.0/31   spine S (.0) and leaf L (.1)
#   host1   spine2   host2
#
# The agent's namespace ($ns) is that of spine 1.
# shellcheck disable=SC2034
routers="spine1 spine2 leaf1 leaf2"
nodes="$routers host1 host2 host3"
flows=64

# ---- nodes, links, routing

_fabric() {
   local node spine leaf
   ns=$world-spine1 unit=spine1
   for node in $nodes; do
      ip netns add "$world-$node" && ip -n "$world-$node" link set lo up || fail "cannot make the namespace of $node"
   done
   for node in $routers; do
      # The way back of a flow need not be the way there.
      _in "$node" sysctl -qw net.ipv4.ip_forward=1 net.ipv4.fib_multipath_hash_policy=1 \
         net.ipv4.conf.all.rp_filter=0 net.ipv4.conf.default.rp_filter=0 || fail "cannot make $node a router"
   done
   for leaf in 1 2; do
      for spine in 1 2; do
         _cable spine$spine "10.9.$spine$leaf.0/31" leaf$leaf "10.9.$spine$leaf.1/31"
      done
      _cable leaf$leaf "10.1.$leaf.1/24" host$leaf "10.1.$leaf.10/24"
   done
   _cable spine1 10.1.3.1/24 host3 10.1.3.10/24
   for node in 1 2 3; do
      ip -n "$world-host$node" route add default via "10.1.$node.1" || fail "host$node has no way out"
   done
   # Routers start all at once: each waits for its daemons. The user frr has to get to their folders.
   local pids=() pid
   chmod go+x . .. || fail "cannot open the folder"
   for node in $routers; do
      (_routing "$node" | _frrStart "$world-$node" "$PWD/$node") > "$node.start" 2>&1 &
      pids+=($!)
   done
   for pid in "${pids[@]}"; do
      wait "$pid" || output=$(cat ./*.start) fail "a router should start"
   done
   _until 60 "both spines carry between the leaves" _bothSpinesAreUsed
   _until 10 "host3 is known" _routeIs leaf2 10.1.3.0/24 to-spine1
   _watchShifts
}
_in() { ip netns exec "$world-$1" "${@:2}"; } # NODE COMMAND...
# _cable NODE ADDRESS NODE ADDRESS
_cable() {
   ip -n "$world-$1" link add "to-$3" type veth peer name "to-$1" netns "$world-$3" &&
      ip -n "$world-$1" address add "$2" dev "to-$3" && ip -n "$world-$3" address add "$4" dev "to-$1" &&
      ip -n "$world-$1" link set "to-$3" up && ip -n "$world-$3" link set "to-$1" up ||
      fail "cannot connect $1 and $3"
}
_routing() {
   local number=${1: -1} neighbour
   echo "hostname $1"
   # FRR 8.4 shares groups of next hops between routes and keeps them for a while; when a link has gone down and is up
   # again, the kernel has taken its next hop out of the group, and FRR does not put it back.
   echo "no zebra nexthop kernel enable"
   case $1 in
   spine*)
      echo "router bgp 65000"
      # Nobody is told of a way before the kernel has it.
      echo " bgp suppress-fib-pending"
      echo " bgp router-id 10.9.0.$number"
      for neighbour in 1 2; do
         _neighbour "10.9.$number$neighbour.1" "6510$neighbour" "leaf$neighbour"
      done
      ;;
   leaf*)
      echo "router bgp 6510$number"
      echo " bgp router-id 10.9.1.$number"
      for neighbour in 1 2; do
         _neighbour "10.9.$neighbour$number.0" 65000 "spine$neighbour"
      done
      ;;
   esac
   echo " no bgp ebgp-requires-policy"
   echo " timers bgp 3 9"
   echo " address-family ipv4 unicast"
   case $1 in
   spine1) echo "  network 10.1.3.0/24" ;;
   leaf*) echo "  network 10.1.$number.0/24" ;;
   esac
   echo "  maximum-paths 2"
   echo " exit-address-family"
   echo "exit"
}
_neighbour() { # ADDRESS AUTONOMOUS-SYSTEM NAME
   echo " neighbor $1 remote-as $2"
   echo " neighbor $1 description $3"
   echo " neighbor $1 timers connect 1"
}

# The ports that a leaf's route has, in alphabetical order.
_routePorts() { # LEAF PREFIX
   ip -n "$world-$1" -o route show "$2" proto bgp | grep -o 'dev [^ ]*' | sort | cut -d ' ' -f 2 | tr '\n' ' '
}
_routeIs() { [ "$(_routePorts "$1" "$2")" = "$3 " ]; } # LEAF PREFIX PORTS
_leavesUse() { _routeIs leaf1 10.1.2.0/24 "$1" && _routeIs leaf2 10.1.1.0/24 "$1"; } # PORTS
_bothSpinesAreUsed() { _leavesUse "to-spine1 to-spine2"; }
_spine1IsAvoided() { _leavesUse to-spine2; }

# ---- shifts: each time that a leaf sends the traffic another way, as its kernel has it

_watchShifts() {
   local leaf
   for leaf in 1 2; do
      TZ=UTC nice -n -10 ip -n "$world-leaf$leaf" -ts -o monitor route > "routes-leaf$leaf" 2>&1 < /dev/null &
      disown
   done
}
# Lines "SECONDS-SINCE-1970 LEAF PORTS" in the order of time.
_shifts() {
   local leaf other
   for leaf in 1 2; do
      other=$((3 - leaf))
      _portsInTime "10.1.$other.0/24" "to-spine1 to-spine2" < "routes-leaf$leaf" | while read -r time ports; do
         echo "$(date -u -d "$time" +%s.%N) leaf$leaf $ports"
      done
   done | sort -n
}
# _portsInTime PREFIX FIRST-PORTS < what `ip -ts -o monitor route` prints: lines "TIME PORTS" for each change of ports.
_portsInTime() {
   awk -v prefix="$1" -v last="$2" '
      {
         time = substr( $1, 2, index( $1, "]" ) - 2 )
         sub( /^\[[^]]*\] */, "" )
         gone = sub( /^Deleted /, "" )
         if ( $1 != prefix ) next
         n = 0
         for ( i = 1; i < NF; ++i ) if ( $i == "dev" ) port[ ++n ] = $( i + 1 )
         if ( n == 2 && port[ 1 ] > port[ 2 ] ) { swap = port[ 1 ]; port[ 1 ] = port[ 2 ]; port[ 2 ] = swap }
         ports = gone || n == 0 ? "none" : n == 1 ? port[ 1 ] : port[ 1 ] " " port[ 2 ]
         if ( ports != last ) print time, ports
         last = ports
      }'
}

# ---- traffic

# _flowsBegin FILE HOST HOST FLOWS BITS-PER-SECOND SECONDS: each way between the two; FILE tells of every packet.
_flowsBegin() {
   : > "$1"
   "$build/bin/Flows" "$world-$2" "$(_addressOf "$2")" "$world-$3" "$(_addressOf "$3")" "$4" "$5" "$6" > "$1" 2>&1 &
   flowsOf[$1]=$!
   _until 20 "traffic flows" grep -q '^now there [1-9][0-9]* [1-9]' "$1"
}
declare -A flowsOf
_addressOf() { echo "10.1.${1#host}.10"; }
_flowsEnd() { # FILE
   kill -TERM "${flowsOf[$1]}" 2> /dev/null
   wait "${flowsOf[$1]}" || output=$(tail -n 5 "$1") fail "the traffic should have ended by itself"
}
# _sum FILE DIRECTION KEY: of the summary at the end.
_sum() {
   awk -v way="$2" -v key="$3" '
      $1 == way && $2 == "sent" { for ( i = 2; i < NF; i += 2 ) if ( $i == key ) print $( i + 1 ) }' "$1"
}

# The losses in FILE that are more than 100 ms away from each shift.
_lossesFarFromShifts() {
   _shifts > shifts
   awk 'from == "shifts" { at[ ++n ] = $1 }
        from == "flows" && $1 == "lost" {
           for ( i = 1; i <= n; ++i ) if ( $4 - at[ i ] <= 0.1 && at[ i ] - $4 <= 0.1 ) next
           print
        }' from=shifts shifts from=flows "$1"
}
# What there is to know when packets were lost.
_aboutLosses() { # FILE
   echo "shifts:"
   _shifts
   echo "links that dropped packets:"
   _drops
   echo "traffic:"
   grep -v '^now' "$1" | head -n 40
}

# _octets: "NODE PORT IN OUT" of the spines' ports and of hosts 1 and 2.
_octets() {
   local node
   for node in spine1 spine2 host1 host2; do
      _in $node awk -v node=$node -F '[: ]+' '/^ *to-leaf/ { sub( /^ */, "" ); print node, $1, $2, $10 }' /proc/net/dev
   done
}
# _rates SECONDS: "NODE PORT IN OUT" in bits per second, over so long.
_rates() {
   local before
   before=$(_octets; echo "time $EPOCHREALTIME")
   sleep "$1"
   { echo "$before"; _octets; echo "time $EPOCHREALTIME"; } | awk '
      $1 == "time" { if ( began ) for ( i = 1; i <= n; ++i ) {
                        split( line[ i ], v, " " )
                        port = v[ 1 ] " " v[ 2 ]
                        perSecond = 8 / ( $2 - began )
                        printf "%s %.0f %.0f\n", port, ( v[ 3 ] - in_[ port ] ) * perSecond, ( v[ 4 ] - out[ port ] ) * perSecond
                     }
                     began = $2; next }
      began { line[ ++n ] = $0; next }
      { in_[ $1 " " $2 ] = $3; out[ $1 " " $2 ] = $4 }'
}
# Every port of both spines carries at least this much each way. How evenly flows are spread is a matter of chance.
_allCarry() {
   _rates 1 > rates
   [ "$(awk -v least="$1" '/^spine/ && $3 >= least && $4 >= least' rates | wc -l)" -eq 4 ]
}

# What the kernels of the nodes dropped on their links: packets that were lost in the fabric and not at its ends.
_drops() {
   local node
   for node in $nodes; do
      _in "$node" awk -v node="$node" -F '[: ]+' '
         /to-/ { sub( /^ */, "" ); if ( $5 + $13 ) print node, $1, "in", $5, "out", $13 }' /proc/net/dev
   done
}

# ---- the agent of spine 1

threshold=10kbps # above what routers say to each other with nothing to carry: about 1 kbit/s
loadInterval=10  # seconds
settle=5
stages=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../Stages" && pwd)

_configOfSpine1() {
   cat > maintd.yaml << YAML
version: 1
switch: linux
settle: ${settle}s
profiles:
  fabric: {threshold: $threshold, load-interval: ${loadInterval}s, shutdown: true}
default-profile: fabric
groups:
  fabric: {interfaces: [to-leaf1, to-leaf2]}
units:
  spine1: {groups: [fabric]}
stages:
  steer:
    enter: "'$stages/frr-graceful-shutdown' enter --vty-socket $PWD/spine1"
    exit: "'$stages/frr-graceful-shutdown' exit --vty-socket $PWD/spine1"
    timeout: 30s
    steers: true
enter: [steer, drainwatch]
exit:  [drainwatch, steer]
YAML
}
