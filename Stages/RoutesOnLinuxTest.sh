#!/bin/bash
# The stage command kernel-routes on a real kernel: three links to a neighbour, of which the unit has et1 and et2.
# RoutesOnLinuxTest.sh NAME runs the function NAME in an empty folder of its own.
set -uo pipefail
stages=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=Tools/testing.sh
. "$stages/../Tools/testing.sh"
# shellcheck source=Tests/Linux/World.sh
. "$stages/../Tests/Linux/World.sh"

unitInterfaces='"interfaces":[{"name":"et1"},{"name":"et2"}]'

_links() {
   local n
   ip netns add "$ns" && ip netns add "$ns-peer" || fail "cannot make the namespaces"
   for n in 1 2 3; do
      ip -n "$ns" link add et$n type veth peer name p$n netns "$ns-peer"
      ip -n "$ns-peer" link set p$n up
      ip -n "$ns" link set et$n up
      ip -n "$ns" address add 10.0.$n.1/24 dev et$n
      ip -n "$ns" address add fd00:$n::1/64 dev et$n nodad
   done
}
_add() { ip -n "$ns" "$1" route add "${@:2}" || fail "cannot add route: $*"; }
_routesOfAllKinds() {
   _add -4 10.8.0.0/16 via 10.0.1.2
   _add -4 10.8.0.0/16 via 10.0.3.2 metric 50
   _add -4 10.9.0.0/16 nexthop via 10.0.3.2 weight 9 nexthop via 10.0.1.2 weight 5 nexthop via 10.0.2.2 weight 7
   _add -4 10.10.0.0/16 nexthop via 10.0.1.2 nexthop via 10.0.3.2 weight 3
   _add -4 10.11.0.0/16 via 10.99.0.1 dev et2 onlink proto static src 10.0.2.1 mtu lock 1400 advmss 1300 initcwnd 20 \
      rto_min 200ms quickack 1 congctl reno tos 0x10 metric 7
   _add -4 10.12.0.0/16 via inet6 fd00:1::2 dev et1
   _add -4 10.13.0.0/16 dev et1 scope link
   _add -4 10.14.0.0/16 nexthop via 10.0.1.2 nexthop via 10.0.2.2
   _add -4 default via 10.0.1.2 proto dhcp metric 100
   _add -6 fd08::/16 via fd00:1::2
   _add -6 fd08::/16 via fd00:3::2 metric 2000
   _add -6 fd09::/16 nexthop via fd00:1::2 weight 5 nexthop via fd00:2::2 weight 7 nexthop via fd00:3::2 weight 9
   _add -6 fd10::/16 via fe80::1 dev et1 pref high mtu 1300 hoplimit 3 metric 77
   _add -6 fd11::/16 dev et2
   _add -6 fd12::/16 from fd00:5::/64 via fd00:2::2
   _add -6 default via fd00:2::2
}
_count=14 # of them that go through the unit's interfaces

# _routes [TABLE]: all routes in full, a line each, in a fixed order.
_routes() {
   local family
   for family in -4 -6; do
      ip -n "$ns" $family -oneline -details route show table "${1:-main}" 2> /dev/null
   done | sed 's/ linkdown//g; s/ dead//g; s/ expires [0-9]*sec//' | sort
}
_same() { # FILE WHAT
   output=$(diff "$1" <(_routes "${3:-main}")) || fail "$2"
}
_way() { ip -n "$ns" route get "$1" | sed -n 's/.* dev \([^ ]*\) .*/\1/p'; }
_goes() { # DESTINATION LINK
   [ "$(_way "$1")" = "$2" ] || output=$(ip -n "$ns" route get "$1") fail "$1 should be reached over $2"
}

# _stage enter|exit MORE-JSON [OPTION...]
_stage() {
   run _stageRuns "$@"
   record=$(grep '^{' <<< "$output" | tail -n 1)
}
_stageRuns() {
   ip netns exec "$ns" "$stages/kernel-routes" "$1" "${@:3}" <<< "{$unitInterfaces$2}"
}
_enters() {
   _stage enter "" "$@"
   passes
   recorded=$record
}
_exits() {
   _stage exit ",\"recorded\":$recorded" "$@"
   passes
}

# ---- stories

_givesBack() {
   _links
   _routesOfAllKinds
   _routes > before
   _enters
   says "raised the metric of $_count routes by 100000"
   says 'left alone: 6 of protocol "kernel"'
   _goes 10.8.0.1 et3
   _goes 10.9.0.1 et3
   _goes 10.10.0.1 et3
   _goes fd08::1 et3
   _goes fd09::1 et3
   output=$(_routes | grep 'dev et[12]' | grep -v 'proto kernel\|metric 10[01]...') && fail "all should be raised"
   _exits
   says "gave back the metric of $_count routes"
   _same before "all routes should be as they were"
   _exits
   _same before "a second exit should change nothing"
}

_saysWhatCannotMove() {
   _links
   _add -4 10.8.0.0/16 via 10.0.1.2
   _add -4 10.9.0.0/16 via 10.0.1.2
   _add -4 10.9.0.0/16 via 10.0.3.2 metric 7
   _enters
   says "10.8.0.0/16 via 10.0.1.2 dev et1 metric 100000: the only route there"
   saysNot "10.9.0.0/16 via"
}

# Each destination is always covered: the new route is there before the old one goes, on both ways.
_makesBeforeItBreaks() {
   _links
   _routesOfAllKinds
   ip -n "$ns" -oneline monitor route >> monitor 2>&1 &
   monitor=$!
   _until 20 "the monitor listens" _isMonitored
   : > monitor
   _enters
   _exits
   ip -n "$ns" route add 10.77.0.0/16 dev et3
   _until 20 "all is told" grep -q 10.77.0.0 monitor
   kill $monitor
   output=$(grep -v '10.77\|proto kernel\|10.66' monitor | awk '
      {
         gone = $1 == "Deleted"; dst = gone ? $2 : $1
         there[ dst ] += gone ? -1 : 1
         if ( gone && there[ dst ] < 0 ) print "was not covered at: " $0
         seen[ dst ]++
      }
      END { for ( dst in seen ) n++; print n " destinations" }')
   says "13 destinations"
   saysNot "was not covered"
}
_isMonitored() {
   ip -n "$ns" route add 10.66.0.0/16 dev et3
   ip -n "$ns" route del 10.66.0.0/16 dev et3
   grep -q 10.66.0.0 monitor
}

_shuts() {
   ip -n "$ns" link set et1 down
   ip -n "$ns" link set et2 down
   ip -n "$ns" link set et1 up
   ip -n "$ns" link set et2 up
}
# Links that are shut lose their routes; the agent sets them again some time after it has raised the links.
_waitsForRoutesOfLinks() {
   local family
   _links
   _routesOfAllKinds
   _routes > before
   _enters
   for family in -4 -6; do
      ip -n "$ns" $family route save > saved$family
   done
   _shuts
   (
      sleep 1
      for n in 1 2; do
         ip -n "$ns" address add fd00:$n::1/64 dev et$n nodad
      done
      for family in -4 -6; do
         # What is there already is refused.
         for _ in 1 2 3; do
            ip netns exec "$ns" ip $family route restore < saved$family
         done
      done
   ) > /dev/null 2>&1 &
   _exits
   says "gave back the metric of $_count routes"
   _same before "all routes should be as they were"
}

# Nobody gives them back within the time: whoever reads "is back" would believe it.
_failsWithoutRoutesOfLinks() {
   _links
   _add -4 10.8.0.0/16 via 10.0.1.2
   _add -4 10.9.0.0/16 nexthop via 10.0.3.2 nexthop via 10.0.2.2
   _add -4 10.10.0.0/16 via 10.0.3.2
   _add -6 fd09::/16 nexthop via fd00:1::2 nexthop via fd00:2::2
   _enters
   _shuts
   _stage exit ",\"recorded\":$recorded" --timeout 1
   fails
   says "10.8.0.0/16 via 10.0.1.2 dev et1 metric 100000: has not come back since et1 was down"
   says "10.9.0.0/16 via 10.0.2.2 dev et2 metric 100000: has not come back since et2 was down"
   says "fd09::/16 via fd00:1::2 dev et1, via fd00:2::2 dev et2 metric 101024: has not come back since et1 was down"
   says "(and 2 more)"
   # With the links that are down still, and half of a route there.
   ip -n "$ns" link set et2 down
   ip -n "$ns" address add fd00:1::1/64 dev et1 nodad
   _add -4 10.8.0.0/16 via 10.0.1.2
   _add -6 fd09::/16 via fd00:1::2 metric 101024
   _stage exit ",\"recorded\":$recorded" --timeout 1
   fails
   says "10.9.0.0/16 via 10.0.2.2 dev et2 metric 100000: et2 is down"
   says "metric 101024: et2 is down"
   says "(and 1 more)"
   saysNot "10.8.0.0/16"
}
_passesWithoutLinksThatAreGone() {
   _links
   _add -4 10.8.0.0/16 via 10.0.1.2
   _add -4 10.9.0.0/16 via 10.0.1.2
   _enters
   ip -n "$ns" link del et1
   _exits --timeout 1
   says "10.8.0.0/16 via 10.0.1.2 dev et1 metric 100000: somebody else has changed it or taken it away"
   ip -n "$ns" link add et1 type veth peer name p1 netns "$ns-peer"
   ip -n "$ns" link set et1 up
   _exits --timeout 1
   says "10.8.0.0/16 via 10.0.1.2 dev et1 metric 100000: somebody else has changed it or taken it away"
}

_leavesAloneWhatOthersChange() {
   _links
   _add -4 10.1.0.0/16 via 10.0.1.2
   _add -4 10.2.0.0/16 via 10.0.1.2
   _add -4 10.3.0.0/16 via 10.0.1.2
   _add -4 10.4.0.0/16 nexthop via 10.0.1.2 nexthop via 10.0.3.2
   _add -4 10.5.0.0/16 via 10.0.2.2
   _enters
   ip -n "$ns" route add 10.1.0.0/16 via 10.0.3.2
   ip -n "$ns" route del 10.2.0.0/16 via 10.0.1.2 metric 100000
   ip -n "$ns" route replace 10.3.0.0/16 via 10.0.2.2 metric 100000
   ip -n "$ns" route replace 10.4.0.0/16 nexthop via 10.0.3.2 nexthop via 10.0.3.3
   _exits --timeout 1
   says "10.1.0.0/16 via 10.0.1.2 dev et1 metric 0: there is another one now: 10.1.0.0/16 via 10.0.3.2 dev et3"
   says "10.2.0.0/16 via 10.0.1.2 dev et1 metric 100000: somebody else has changed it or taken it away"
   says "10.3.0.0/16 via 10.0.1.2 dev et1 metric 100000: somebody else has changed it or taken it away"
   says "gave back the metric of 2 routes"
   output=$(ip -n "$ns" -oneline route | grep -v kernel | sort | tr -s ' \t\\' ' ')
   [ "$output" = "10.1.0.0/16 via 10.0.3.2 dev et3 
10.3.0.0/16 via 10.0.2.2 dev et2 metric 100000 
10.4.0.0/16 nexthop via 10.0.3.2 dev et3 weight 1 nexthop via 10.0.3.3 dev et3 weight 1 nexthop via 10.0.1.2 dev et1 weight 1 
10.5.0.0/16 via 10.0.2.2 dev et2 " ] || fail "the changes should be left, and the rest be given back"
}

# Killed at each change that it makes, before or after it, and run again: nothing is lost on the way there or back.
_isKilledAtEachChange() { # enter|exit before|after
   local at=1
   _links
   _routesOfAllKinds
   _routes > before
   _killsAt
   while :; do
      recorded=null
      [ "$1" = enter ] || _enters
      echo "$at $2" > changes
      _stage "$1" ",\"recorded\":$recorded" --ip "$PWD/ip"
      [ "$status" -ne 0 ] || break
      [ "$1" = exit ] || recorded=${record:-null}
      [ "$1" = exit ] || _entersAgain
      _exits
      _same before "all routes should be as they were after a kill at change $at"
      at=$((at + 1))
   done
   # Adding and taking away, for each version of IP.
   [ $at -eq 5 ] || output=$at fail "there should have been four changes"
}
_entersAgain() {
   _stage enter ",\"rerun\":true,\"recorded\":$recorded"
   passes
   recorded=$record
   _goes 10.8.0.1 et3
   output=$(grep -o '"dst"' <<< "$recorded" | wc -l)
   [ "$output" -eq $_count ] || fail "all should be recorded"
}
# An ip that counts changes down in a file, and at 0 kills who has started it, before or after it has made the change.
_killsAt() {
   cat > ip << 'IP'
#!/bin/bash
[[ " $* " == *" -batch "* ]] || exec ip "$@"
read -r at when < "$(dirname "$0")/changes"
echo "$((at - 1)) $when" > "$(dirname "$0")/changes"
[ "$at $when" != "1 before" ] || { kill -9 $PPID; exit 1; }
ip "$@"
status=$?
[ "$at $when" != "1 after" ] || kill -9 $PPID
exit $status
IP
   chmod +x ip
}

_takesTables() {
   _links
   _add -4 10.8.0.0/16 via 10.0.1.2
   _add -4 10.8.0.0/16 via 10.0.1.2 table 77
   _routes > main
   _routes 77 > 77
   _enters --table 77 --metric 5
   _same main "the main table should not be touched"
   output=$(_routes 77)
   says "unicast 10.8.0.0/16 via 10.0.1.2 dev et1 proto boot scope global metric 5"
   _exits
   _same 77 "the table should be as it was" 77
}

_takesProtocols() {
   _links
   _add -4 10.8.0.0/16 via 10.0.1.2 proto bgp
   _add -4 10.9.0.0/16 via 10.0.1.2 proto static
   _enters
   says 'left alone: 1 of protocol "bgp"'
   says "raised the metric of 1 route by"
   _exits
   _enters --protocol bgp
   says "raised the metric of 1 route by"
   output=$(_routes)
   says "10.8.0.0/16 via 10.0.1.2 dev et1 proto bgp scope global metric 100000"
   says "10.9.0.0/16 via 10.0.1.2 dev et1 proto static scope global "
   _exits
}

_takesNexthopObjects() {
   _links
   ip -n "$ns" nexthop add id 7 via 10.0.1.2 dev et1 || fail "the kernel should know next hops"
   _add -4 10.8.0.0/16 nhid 7
   _routes > before
   _enters
   output=$(_routes)
   says "10.8.0.0/16 nhid 7 via 10.0.1.2 dev et1 proto boot scope global metric 100000"
   _exits
   _same before "the route should be as it was"
}

_refuses() { # TEXT
   _routes > before
   _stage enter ""
   fails
   says "$1; nothing was changed"
   [ -z "$record" ] || fail "should have recorded nothing"
   _same before "nothing should have been changed"
}
_refusesWhatIsTaken() {
   _links
   _add -4 10.8.0.0/16 via 10.0.1.2
   _add -4 10.8.0.0/16 via 10.0.3.2 metric 100000
   _refuses "10.8.0.0/16 via 10.0.1.2 dev et1 metric 0: there is a route with metric 100000 already (--metric)"
}
_refusesTheHighest() {
   _links
   _add -4 10.8.0.0/16 via 10.0.1.2 metric 4294967295
   _refuses "its metric cannot be raised so far, only to 4294967295"
}
_refusesWhatExpires() {
   _links
   _add -6 fd08::/16 via fd00:1::2 expires 1000
   _refuses "cannot be given back: expires"
}
_refusesRoutesOverLinksThatAreDown() {
   _links
   _add -4 10.8.0.0/16 nexthop via 10.0.1.2 nexthop via 10.0.2.2
   ip -n "$ns" link set et2 down
   _refuses "et2 is down, so it could not be given back"
}
_refusesToPartGroups() {
   _links
   ip -n "$ns" nexthop add id 7 via 10.0.1.2 dev et1
   ip -n "$ns" nexthop add id 8 via 10.0.3.2 dev et3
   ip -n "$ns" nexthop add id 9 group 7/8
   _add -4 10.8.0.0/16 nhid 9
   _refuses "next hops of a group (nhid) cannot be parted"
}

_movesThousands() {
   local n
   _links
   for n in $(seq 0 1999); do
      echo "route add 10.$((16 + n / 256)).$((n % 256)).0/24 via 10.0.1.2"
   done | ip -n "$ns" -batch - || fail "cannot add routes"
   _routes > before
   _enters
   says "raised the metric of 2000 routes"
   _exits
   _same before "all routes should be as they were"
}

# ---- tests

givesBackEachRouteAsItWas() { _sideBySide "all _givesBack"; }
saysWhichTrafficDoesNotMove() { _sideBySide "only _saysWhatCannotMove"; }
setsTheNewRouteBeforeItTakesTheOld() { _sideBySide "order _makesBeforeItBreaks"; }
waitsForTheRoutesOfLinksThatWereShut() { _sideBySide "shut _waitsForRoutesOfLinks"; }
failsWhenTheRoutesOfLinksThatWereShutStayAway() {
   _sideBySide "away _failsWithoutRoutesOfLinks" "gone _passesWithoutLinksThatAreGone"
}
leavesAloneWhatOthersHaveChanged() { _sideBySide "others _leavesAloneWhatOthersChange"; }
losesNothingWhenItIsKilled() {
   _sideBySide "beforeEnter _isKilledAtEachChange enter before" "afterEnter _isKilledAtEachChange enter after" \
      "beforeExit _isKilledAtEachChange exit before" "afterExit _isKilledAtEachChange exit after"
}
takesTheTablesThatItIsTold() { _sideBySide "tables _takesTables"; }
takesTheProtocolsThatItIsTold() { _sideBySide "protocols _takesProtocols"; }
takesNextHopsThatAreObjects() { _sideBySide "nexthops _takesNexthopObjects"; }
refusesWhatItCouldNotGiveBack() {
   _sideBySide "taken _refusesWhatIsTaken" "highest _refusesTheHighest" "expires _refusesWhatExpires" \
      "down _refusesRoutesOverLinksThatAreDown" "group _refusesToPartGroups"
}
movesThousandsOfRoutes() { _sideBySide "many _movesThousands"; }

runTest "$1"
