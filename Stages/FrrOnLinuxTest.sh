#!/bin/bash
# The stage command frr-graceful-shutdown with real routers. FrrOnLinuxTest.sh NAME runs the function NAME in an empty
# folder of its own.
#
#         s         s, t: two ways between a and b, of equal cost; s is to be left. BGP to a without addresses on the
#       / | \       link, to b with; c is in the system of s.
#      a  c  b
#       \   /       192.0.2.N/32, fd00:N::1/128: a 1, b 2, c 3
#         t
set -uo pipefail
stages=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=Tools/testing.sh
. "$stages/../Tools/testing.sh"
# shellcheck source=Tests/Linux/World.sh
. "$stages/../Tests/Linux/World.sh"
# shellcheck source=Tests/Linux/Frr.sh
. "$stages/../Tests/Linux/Frr.sh"

_routers() {
   local node pids=() pid
   for node in s t a b c; do
      ip netns add "$world-$node" && ip -n "$world-$node" link set lo up || fail "cannot make the namespaces"
   done
   _destination a 1
   _destination b 2
   _destination c 3
   _cable s a && _cable s b && _cable s c && _cable t a && _cable t b || fail "cannot make the links"
   chmod go+x ..
   for node in s t a b c; do
      (_routing $node | _frrStart "$world-$node" "$PWD/$node") > $node.start 2>&1 &
      pids+=($!)
   done
   for pid in "${pids[@]}"; do
      wait "$pid" || output=$(cat ./*.start) fail "a router should start"
   done
   _until 60 "a has two ways to b" _areWays a 192.0.2.2 "to-s to-t"
   _until 60 "a has two ways to b (IP version 6)" _areWays a fd00:2::1 "to-s to-t"
   _until 60 "b has two ways to a" _areWays b 192.0.2.1 "to-s to-t"
   _until 60 "c has a way to b" _areWays c 192.0.2.2 to-s
}
_destination() { # NODE NUMBER
   ip -n "$world-$1" address add "192.0.2.$2/32" dev lo
   ip -n "$world-$1" address add "fd00:$2::1/128" dev lo
}
_cable() { # SPINE NODE
   local subnet=10.$(printf '%d.%d' "'$1" "'$2")
   ip -n "$world-$1" link add "to-$2" type veth peer name "to-$1" netns "$world-$2" &&
      ip -n "$world-$1" address add "$subnet.1/30" dev "to-$2" && ip -n "$world-$2" address add "$subnet.2/30" dev "to-$1" &&
      ip -n "$world-$1" link set "to-$2" up && ip -n "$world-$2" link set "to-$1" up
}
_routing() { # NODE
   local far=to-s,to-t neighbour
   echo "no zebra nexthop kernel enable"
   case $1 in
   s) far=to-a,10.115.98.2,to-c ;;
   t) far=to-a,10.116.98.2 ;;
   b) far=10.115.98.1,10.116.98.1 ;;
   c) far=to-s ;;
   esac
   case $1 in
   a) echo "router bgp 65001" ;;
   b) echo "router bgp 65002" ;;
   *) echo "router bgp 65000" ;;
   esac
   echo " bgp router-id 10.0.0.$(printf %d "'$1")"
   echo " no bgp ebgp-requires-policy"
   echo " timers bgp 3 9"
   for neighbour in ${far//,/ }; do
      case $1$neighbour in
      sto-c | cto-s) echo " neighbor $neighbour interface remote-as internal" ;;
      *to-*) echo " neighbor $neighbour interface remote-as external" ;;
      *) echo " neighbor $neighbour remote-as external" ;;
      esac
   done
   for family in ipv4 ipv6; do
      echo " address-family $family unicast"
      for neighbour in ${far//,/ }; do
         echo "  neighbor $neighbour activate"
         [ "$1" != s ] || echo "  neighbor $neighbour next-hop-self"
      done
      [ $family = ipv6 ] || _network "$1" 192.0.2.N/32
      [ $family = ipv4 ] || _network "$1" fd00:N::1/128
      echo "  maximum-paths 4"
      echo " exit-address-family"
   done
   echo "exit"
}
_network() {
   case $1 in
   a) echo "  network ${2/N/1}" ;;
   b) echo "  network ${2/N/2}" ;;
   c) echo "  network ${2/N/3}" ;;
   esac
}

# The ways of a route, as the kernel has it.
_ways() { # NODE DESTINATION
   local family=-4
   [[ $2 != *:* ]] || family=-6
   ip -n "$world-$1" $family -oneline route show "$2" | grep -o 'dev [^ ]*' | cut -d ' ' -f 2 | sort -u | xargs
}
_areWays() { [ "$(_ways "$1" "$2")" = "$3" ]; } # NODE DESTINATION WAYS
_haveWays() { # WAYS: for all that has two
   _until 20 "a: $1" _areWays a 192.0.2.2 "$1"
   _until 20 "a: $1 (IP version 6)" _areWays a fd00:2::1 "$1"
   _until 20 "b: $1" _areWays b 192.0.2.1 "$1"
}
_sees() { _frr "$1" "show bgp ipv4 unicast $2" | grep -q "$3"; } # NODE PREFIX TEXT
_seesNot() { ! _sees "$@"; }
_isOn() { [ "$(_frr s 'show running-config' | grep -c '^ *bgp graceful-shutdown')" -eq "$1" ]; }

# _stage enter|exit RECORDED [OPTION...]: on s
_stage() {
   run _stageRuns "$@"
   record=$(grep '^{' <<< "$output")
}
_stageRuns() { "$stages/frr-graceful-shutdown" "$1" --vty-socket "$PWD/s" "${@:3}" <<< "{\"recorded\":$2}"; }
_configures() { # COMMAND...
   run _frr s "configure terminal" "$@"
   passes
   saysNot "%"
}

# ---- stories

_steersAndBack() {
   _routers
   touch now
   _stage enter null
   passes
   says '{"instances":["router bgp 65000"]}'
   says "BGP 65000: told to-a, to-c, 10.115.98.2"
   # What has been sent is there at once, but for the time that the neighbour takes to work on it.
   _haveWays to-t
   _until 5 "a is told the mark" _sees a 192.0.2.2/32 "Community: graceful-shutdown"
   _until 5 "c is told the last preference" _sees c 192.0.2.2/32 "localpref 0,"
   _stage exit "$record"
   passes
   says "BGP 65000: graceful shutdown turned off"
   _haveWays "to-s to-t"
   _until 5 "a is told no mark" _seesNot a 192.0.2.2/32 graceful-shutdown
   _until 5 "c is told a preference" _sees c 192.0.2.2/32 "localpref 100,"
   _isOn 0 || fail "it should be off"
   output=$(find s /etc/frr -name '*.conf*' -newer now)
   saysNothing
}

_respectsWhatIsOn() {
   _router
   _configures "router bgp 65000" "bgp graceful-shutdown"
   _configures "router bgp 65000 vrf red" "bgp router-id 10.0.0.1"
   _stage enter null
   passes
   says '{"instances":["router bgp 65000 vrf red"]}'
   says "BGP 65000: graceful shutdown is on already"
   _isOn 2 || fail "it should be on in both"
   _stage exit "$record"
   passes
   _isOn 1 || fail "it should be on where it was"
   _configures "router bgp 65000" "no bgp graceful-shutdown"
   _configures "bgp graceful-shutdown"
   _stage enter null
   passes
   says '{"instances":[]}'
   _stage exit "$record"
   passes
   _isOn 1 || fail "it should be on for all"
}
# One router alone: s.
_router() {
   ip netns add "$world-s" && ip -n "$world-s" link set lo up || fail "cannot make the namespace"
   chmod go+x ..
   _frrStart "$world-s" "$PWD/s" <<< "router bgp 65000"
}

_needsCommunities() {
   _routers
   _configures "router bgp 65000" "no neighbor to-a send-community"
   _stage enter null
   fails
   says 'no communities are sent to to-a, so graceful shutdown would not reach there ("neighbor to-a send-community")'
   _isOn 0 || fail "nothing should be changed"
   # To c no communities need to be sent.
   _configures "router bgp 65000" "neighbor to-a send-community" "no neighbor to-c send-community all"
   _stage enter null
   passes
   _until 5 "c is told the last preference" _sees c 192.0.2.2/32 "localpref 0,"
}

# With all that s sends marked by others, there is nothing that could be sent again on the way back.
_goesWithOthers() {
   _routers
   for node in a b c; do
      _frr $node "configure terminal" "router bgp $(_frr $node 'show running-config' | awk '/^router bgp/ { print $3 }')" \
         "bgp graceful-shutdown"
   done
   _until 20 "all is marked" _sendsTheLastChoice
   _stage enter null
   passes
   _stage exit "$record"
   passes
   _isOn 0 || fail "it should be off"
}
_sendsTheLastChoice() {
   local told
   told=$(_frr s "show bgp ipv4 unicast neighbors to-a advertised-routes json" \
      "show bgp ipv6 unicast neighbors to-a advertised-routes json")
   [ "$(grep -c '"path":' <<< "$told")" -gt 2 ] && [ "$(grep -c '"path":' <<< "$told")" -eq "$(grep -c '"locPrf":0,' <<< "$told")" ]
}

_failsWithoutRouters() {
   _router
   _configures "no router bgp 65000"
   _stage enter null
   fails
   says 'bgpd has no "router bgp" in its running configuration'
   kill -STOP "$(cat s/bgpd.child)"
   _stage enter null
   fails
   says "vtysh has not ended after 10 s"
   _frrKill "$PWD/s" bgpd
   _stage enter null
   fails
   says 'failed to connect to any daemons'
}

_findsThePathSpace() {
   local space=$world each pid
   mkdir -p /run/frr
   for each in /run/frr/maint-*; do # what a run has left that was killed itself
      pid=${each#*/maint-}
      [ ! -d "$each" ] || kill -0 "${pid%%-*}" 2> /dev/null || rm -r "$each"
   done
   ip netns add "$world-s"
   _frrStart "$world-s" "/run/frr/$space" <<< "router bgp 65000"
   run "$stages/frr-graceful-shutdown" enter -N "$space" < /dev/null
   rm -r "/run/frr/$space"
   passes
   says "BGP 65000: graceful shutdown turned on"
}

# As a user of its own with one capability, which is what the agent's service is; FRR lets its group in.
_worksAsTheServiceDoes() {
   local command=$PWD/stages/frr-graceful-shutdown
   _router
   chmod go+x .
   mkdir stages
   cp "$stages/frr-graceful-shutdown" "$stages"/*.py stages
   run _stageOfTheService --clear-groups enter null
   fails
   _isOn 0 || fail "nothing should be changed"
   run _stageOfTheService --groups=frrvty enter null
   passes
   says '{"instances":["router bgp 65000"]}'
   _isOn 1 || fail "it should be on"
   run _stageOfTheService --groups=frrvty exit '{"instances":["router bgp 65000"]}'
   passes
   _isOn 0 || fail "it should be off"
}
_stageOfTheService() { # GROUPS enter|exit RECORDED
   setpriv --reuid=nobody --regid=nogroup "$1" --no-new-privs --bounding-set=-all,+net_admin \
      --inh-caps=-all,+net_admin --ambient-caps=-all,+net_admin \
      "$command" "$2" --vty-socket "$PWD/s" <<< "{\"recorded\":$3}"
}

# ---- tests

steersTheTrafficAwayAndBack() { _with "steers _steersAndBack"; }
respectsWhatIsOnAlready() { _with "on _respectsWhatIsOn"; }
needsCommunitiesTowardsOtherSystems() { _with "communities _needsCommunities"; }
goesTogetherWithOthers() { _with "others _goesWithOthers"; }
saysWhatIsWrongWithTheRouter() { _with "wrong _failsWithoutRouters"; }
worksAsTheServiceDoes() { _with "service _worksAsTheServiceDoes"; }
findsTheRouterOfAPathSpace() { _with "space _findsThePathSpace"; }
_with() {
   _frrIsThere
   _sideBySide "$@"
}

runTest "$1"
