# shellcheck shell=bash
# Sourced by stories after World.sh: a unit of links that carry addresses, routes and traffic, and what such stories have
# in common. The other ends of the links are in the namespace "$world-peers". The caller defines
#
#   _makeLinks           makes the links; _link and _addressed help
#   _configOf KEYS...    prints the profiles, groups and units of maintd.yaml
#   ports                the links of the unit, which are to be shut and to come back
#
# shellcheck disable=SC2034,SC2154
settle=6      # seconds
loadInterval=10
period=5      # of samples, seconds
rate=2000000  # of the traffic, bits per second
ports=
lateText="not all of its links are back yet"
saidLate=0    # how often, of the ways back before
declare -A number # of a link that has addresses: they are 10.0.NUMBER.1 and 2001:db8:NUMBER::1, the peer's end in 2

# _inWorlds "NAME [VARIABLE=VALUE...] COMMAND..." ...: plays each in a world of its own that has the links, all at once.
# The variables are set before the links are made.
_inWorlds() {
   local what all=()
   for what in "$@"; do
      all+=("${what%% *} _withLinks ${what#* }")
   done
   _sideBySide "${all[@]}"
}
_withLinks() {
   while [[ $1 == *=* ]]; do
      declare -g "$1"
      shift
   done
   # shellcheck disable=SC2154
   trap 'echo "ended in ${FUNCNAME[*]}${what:+, waiting: $what}"; exit 143' TERM
   peers=$world-peers
   ip netns add "$ns" && ip netns add "$peers" || fail "cannot make the namespaces"
   _makeOutside
   _makeLinks
   _until 30 "the addresses are there" _addressesAreThere
   _routesThatNeedAddresses
   _addresses > before
   ip -n "$ns" -rcvbuf 8388608 -o monitor link >> monitor &
   "$@"
}

# ---- links

# _link LINK PEER: two ends of a wire. They are down.
_link() {
   ip -n "$ns" link add "$1" type veth peer name "$2" netns "$peers" || fail "cannot make the link $1"
}
_makeOutside() {
   _link outside poutside
   ip -n "$peers" address add 10.0.9.2/24 dev poutside &&
      ip -n "$peers" link set poutside up &&
      ip -n "$ns" address add 10.0.9.1/24 dev outside &&
      ip -n "$ns" address add 2001:db8:9::1/64 dev outside nodad &&
      ip -n "$ns" link set outside up || fail "cannot set up the link outside"
}
# _alsoOutside DESTINATION: what has a way gets another one, which is taken when the first has gone.
_alsoOutside() {
   local hop=10.0.9.2
   [[ $1 != *:* ]] || hop=2001:db8:9::2
   ip -n "$ns" route replace "$1" via $hop metric 2048 || fail "cannot make another way to $1"
}
# _addressed LINK PEER NUMBER: both ends are up and have addresses, and routes go over them.
_addressed() {
   number[$1]=$3
   ip -n "$peers" address add "10.0.$3.2/24" dev "$2" &&
      ip -n "$peers" link set "$2" up &&
      ip -n "$ns" address add "10.0.$3.1/24" dev "$1" &&
      ip -n "$ns" address add "2001:db8:$3::1/64" dev "$1" &&
      ip -n "$ns" link set "$1" up &&
      ip -n "$ns" route add "10.1.$3.0/24" via "10.0.$3.2" src "10.0.$3.1" metric 50 &&
      ip -n "$ns" neighbour add "10.0.$3.77" lladdr 02:00:00:00:00:77 nud permanent dev "$1" &&
      ip -n "$ns" -6 neighbour add proxy "2001:db8:$3::77" dev "$1" &&
      ip -n "$ns" -6 route add "2001:db8:10$3::/64" via "2001:db8:$3::2" || fail "cannot set up the link $1"
   _alsoOutside "10.1.$3.0/24"
   _alsoOutside "2001:db8:10$3::/64"
}
# The kernel takes a route with a source only when it knows that nobody else has that address, which is a second or two
# after it is set.
_routesThatNeedAddresses() {
   local link
   for link in "${!number[@]}"; do
      _routeThatNeedsTheAddress "$link"
   done
}
_routeThatNeedsTheAddress() {
   local n=${number[$1]}
   ip -n "$ns" -6 route add "2001:db8:20$n::/64" via "2001:db8:$n::2" src "2001:db8:$n::1" ||
      fail "cannot make a route over $1"
   _alsoOutside "2001:db8:20$n::/64"
}
_addressesAreThere() { [ -z "$(ip -n "$ns" -6 -o address show tentative)" ]; }
# _above LINK NUMBER: VLAN devices on it, one that is up and has what a link may lose, and one that is set down.
_above() {
   ip -n "$ns" link add link "$1" name "$1.77" type vlan id 77 &&
      ip -n "$ns" link add link "$1" name "$1.78" type vlan id 78 &&
      ip -n "$ns" link set "$1.77" up &&
      ip -n "$ns" address add "2001:db8:30$2::1/64" dev "$1.77" nodad &&
      ip -n "$ns" address add "2001:db8:31$2::1/64" dev "$1.78" nodad &&
      ip -n "$ns" neighbour add "10.7.$2.7" lladdr 02:00:00:00:00:77 nud permanent dev "$1.77" &&
      ip -n "$ns" route add "10.7.$2.0/24" dev "$1.77" &&
      ip -n "$ns" -6 route add "2001:db8:32$2::/64" via "2001:db8:30$2::2" || fail "cannot make what is above $1"
   _alsoOutside "2001:db8:32$2::/64"
}
# What all links have, as far as it is meant to outlast a shutdown.
_addresses() {
   ip -n "$ns" -o link show up | grep -o '[^ ]*[.]7[78]@' | sort
   { ip -n "$ns" neighbour show nud permanent; ip -n "$ns" neighbour show proxy
      ip -n "$ns" -6 neighbour show proxy; } | sort
   ip -n "$ns" -br address show scope global | awk 'NF > 2 { sub( /@.*/, "", $1 ); $2 = ""; print }' | sort
   _routesOfAll
}
_routesOfAll() { { ip -n "$ns" route; ip -n "$ns" -6 route; } | _thatOutlast; }
# Those of the routes in standard input.
_thatOutlast() { grep -v '^fe80\|^ff00\|^multicast' | sed 's/ *$//' | sort; }
_addressesAreBack() { output=$(_addresses | diff before -); }

_allUp() {
   local link
   for link in $ports; do
      _isUp "$link" || return 1
   done
}
# Every time that a link of the unit was set up or down, in order: "et1 down".
_moves() {
   awk -v ports="$ports" '
      BEGIN { n = split( ports, list ); for ( i = 1; i <= n; ++i ) ours[ list[ i ] ] }
      $1 == "Deleted" { next }
      {
         name = $2; sub( /[@:].*/, "", name ); up = /[<,]UP[,>]/
         if ( !( name in ours ) ) next
         if ( up == ( name in down ) ) print name ( up ? " up" : " down" )
         if ( up ) delete down[ name ]; else down[ name ]
      }' monitor
}
_eachLinkHasMovedOnceEachWay() {
   local link expected=
   for link in $ports; do
      expected+="$link down"$'\n'"$link up"$'\n'
   done
   output=$(_moves)
   [ "$(sort <<< "$output")" = "$(sort <<< "${expected%$'\n'}")" ] ||
      fail "each link should have moved once down and once up"
}

# ---- traffic

traffic=()
# _traffic LINK DIRECTION SECONDS [FLOWS]: traffic at the rate, "in" or "out" as the agent sees it. Ends by itself.
_traffic() {
   local from=$ns to=10.0.${number[$1]}.2 link=$1 direction=$2
   shift 2
   [ "$direction" = out ] || from=$peers to=10.0.${number[$link]}.1
   ip netns exec "$from" "$build/bin/UdpTrafficTest" "$to" "$rate" "$@" > "sent-$link-$direction" &
   traffic+=($!)
}
_trafficEnds() {
   kill "${traffic[@]}" 2> /dev/null
   traffic=()
   quietSince=$(date +%s.%N)
}

# ---- the agent

# _config [KEYS...]: what _configOf makes of them.
_config() {
   {
      cat << YAML
version: 1
switch: linux
settle: ${settle}s
YAML
      _configOf "$@"
   } > maintd.yaml
}

# ---- pieces of stories

# Each link of the unit is shut, and the unit has settled after the last one.
_isUnderMaintenance() {
   local link last=0
   _ctlPasses wait "$unit" --for=maintenance --timeout 60s
   for link in $ports; do
      _shows "$link" true down
      _isDown "$link" || fail "$link should be down"
      _is "interfaces/$link" state under-maint || fail "$link should be under maintenance"
      last=$(echo "$last $(_time "interfaces/$link" state-time)" | awk '{ print ( $1 > $2 ? $1 : $2 ) }')
   done
   # Kept for at least the settle time after the last link, and not for longer than it takes to see that.
   maintenanceSince=$(_time "units/$unit" since)
   _holds "$maintenanceSince - $last >= $settle" "the unit settles"
}
_isBackToNormal() {
   _ctlPasses exit "$unit" --wait --timeout 60s
   _areBackByNow
   _isAllBack
   saidLate=$(_countLate)
}
# All that the links have is there as soon as the unit is normal, unless the agent has said of this way back that it is
# late.
_areBackByNow() {
   _allUp && _addressesAreBack && return
   [ "$(_countLate)" -gt "$saidLate" ] || fail "links, addresses and routes should be back by now"
   grep -F "$lateText" log
}
_countLate() { grep -cF "$lateText" log || true; }

# _writesNews: from now on, what happens to links, addresses and routes is written down with its time.
_writesNews() { TZ=UTC ip -n "$ns" -rcvbuf 8388608 -o -ts monitor link address route >> news & }
# The agent has called no link late that had all it was to have: on a busy machine it may take longer than the agent is
# willing to wait, but then something of the link has come after that.
_wasLateWithReasonOnly() {
   # All that has happened is written when this is, which comes last.
   ip -n "$ns" address add 10.0.9.3/32 dev outside || fail "cannot set another address"
   _until 60 "the news are written" grep -qF 10.0.9.3 news
   output=$(curl -s --max-time 20 --unix-socket run/control.sock "http://agent/api/v1/events/recent?limit=4096" |
      python3 -B "${BASH_SOURCE[0]%/*}/late.py" news 2>&1)
   saysNothing
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

# _ratesAreRight COUNT "LINK DIRECTION"...: over so many samples in a row, each of these rates is within 1 % of what was
# sent meanwhile. Over some more if need be: on a busy machine, samples are taken a little later than they say, now and
# then, which makes one rate too high and the next one too low.
_ratesAreRight() {
   local count most what
   local -A seen=() seenTimes=()
   rm -f sampled-*
   # The first sample only says when the next one begins.
   count=$(($1 + 1)) most=$(($1 + 9))
   shift
   while :; do
      _until $(((count + 2) * 3 * period)) "$count samples of each" _areSampled $count "$@"
      for what in "$@"; do
         _isRight "$what" && continue
         count=$((count + 2))
         [ $count -le $most ] || fail "the rate of $what is wrong"
         continue 2
      done
      return
   done
}
_isRight() { # "LINK DIRECTION"
   local error
   error=$(_errorOf "sent-${1/ /-}" "sampled-${1/ /-}")
   output="sent, sampled and error of $1:"$'\n'$(tail -n 3 "sent-${1/ /-}"; cat "sampled-${1/ /-}"; echo "$error")
   awk "BEGIN { exit !( $error < 0.01 && $error > -0.01 ) }"
}
# Each has a line for each sample: when it was taken, in seconds, and the rate since the one before.
_areSampled() { # COUNT "LINK DIRECTION"...
   local count=$1 missing=0 what link when line
   shift
   for what in "$@"; do
      link=${what% *} when=$(_fact "interfaces/${what% *}" last-sample-time)
      if [[ -n $when && $when != null && $when != "${seen[$what]:-}" ]]; then
         line="$(_time "interfaces/$link" last-sample-time) $(_fact "interfaces/$link" "${what#* }-bps")"
         # All of it is of one sample.
         if _is "interfaces/$link" last-sample-time "$when"; then
            echo "$line" >> "sampled-${what/ /-}"
            seen[$what]=$when seenTimes[$what]=$((${seenTimes[$what]:-0} + 1))
         fi
      fi
      [ "${seenTimes[$what]:-0}" -ge "$count" ] || missing=1
   done
   [ $missing -eq 0 ]
}
# By how much the sampled rates but the first are off: all of them together, or the middle one if that is off by less,
# since a member that joins is not counted in its first sample.
_errorOf() { # SENT SAMPLED
   awk '
      # What had been sent by then.
      function sent( time,   low, high, middle ) {
         low = 1; high = n
         while ( high - low > 1 ) {
            middle = int( ( low + high ) / 2 )
            if ( when[ middle ] <= time ) low = middle; else high = middle
         }
         return octets[ low ] + ( octets[ high ] - octets[ low ] ) * ( time - when[ low ] ) / ( when[ high ] - when[ low ] )
      }
      FNR == NR { if ( NF == 2 ) { when[ ++n ] = $1; octets[ n ] = $2 } next }
      FNR == 1 { first = $1 }
      FNR > 1 {
         counted += $2 * ( $1 - last ) / 8
         error = $2 / ( ( sent( $1 ) - sent( last ) ) * 8 / ( $1 - last ) ) - 1
         for ( i = ++count; i > 1 && errors[ i - 1 ] > error; --i ) errors[ i ] = errors[ i - 1 ]
         errors[ i ] = error
      }
      { last = $1 }
      END {
         all = counted / ( sent( last ) - sent( first ) ) - 1
         middle = errors[ int( ( count + 1 ) / 2 ) ]
         print( all * all < middle * middle ? all : middle )
      }' "$1" "$2"
}
# _hasDrainedOnTime LINK: on the first quiet sample with which the load interval is quiet.
_hasDrainedOnTime() {
   local samples=$(((loadInterval + period - 1) / period))
   _is "interfaces/$1" consecutive-drained-samples $samples || fail "$1 should have drained on quiet sample $samples"
   _holds "$(_time "interfaces/$1" state-time) - $quietSince < ($samples + 1) * $period + 1" "$1 drains at once"
   _holds "$(_time "interfaces/$1" state-time) - $quietSince > $samples * $period - 1" "$1 is quiet long enough"
}

# _killAndRestart STATES: the unit is in one of these afterwards, from the first answer on, and no link has moved, or none
# down if the unit is on its way back.
_killAndRestart() {
   local state drained moves
   _kill "${signal:-KILL}"
   sleep 0.5 # what the agent had asked for is told by then
   moves=$(_moves)
   drained=$(_countDown)
   sleep 1
   [ "$moves" = "$(_moves)" ] || output=$(_moves) fail "no link should move without an agent"
   _start
   state=$(_fact "units/$unit" state)
   [[ " $1 " = *" $state "* ]] || fail "the unit should be $1, is $state"
   if [[ " $1 " = *" exiting "* ]]; then
      sleep 1
      output=$(_moves)
      [[ $output = "$moves"* && ${output#"$moves"} != *" down"* ]] ||
         fail "no link should be set down on the way back: before the new agent there was $moves"
      return
   fi
   _until 10 "what has drained is still drained" _hasDrained "$drained"
   sleep 1
   _is "units/$unit" state "$1" || fail "the unit should still be $1"
   [ "$moves" = "$(_moves)" ] || output=$(_moves) fail "no link should move with the new agent"
}
_countDown() {
   local link count=0
   for link in $ports; do
      _isUp "$link" || count=$((count + 1))
   done
   echo $count
}
_hasDrained() { [ "$(_fact "units/$unit" drained)" -ge "$1" ]; }
