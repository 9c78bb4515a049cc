# shellcheck shell=bash
# Runs as root in the Debian that SystemdTest.sh starts: the life of the packages as an operator lives it. In /share:
# first and second, two versions of the packages; install, maintd.yaml and use, what the README tells a new user to type
# and to write. It runs twice: with 75 it asks for the machine to be started again, and then goes on under maintenance.
set -uo pipefail
export PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive

step() { echo "-- $1"; }
fail() {
   echo "FAILED: $1"
   echo "${output:-}"
   systemctl status --no-pager --full maintd 2>&1 | tail -n 20
   journalctl --no-pager -u maintd -n 40 2>&1
   exit 1
}
run() {
   status=0
   output=$("$@" 2>&1 < /dev/null) || status=$?
}
passes() { [ "$status" -eq 0 ] || fail "should have ended with 0, not $status"; }
says() { grep -qF -- "$1" <<< "$output" || fail "should have said: $1"; }
is() { # WHAT EXPECTED FOUND
   [ "$2" = "$3" ] || fail "$1 should be '$2', not '$3'"
}
until_() { # SECONDS WHAT COMMAND...
   local end=$((SECONDS + $1)) what=$2
   shift 2
   until "$@"; do
      [ $SECONDS -lt $end ] || fail "it should have come about in time: $what"
      sleep 0.3
   done
}
service() { systemctl show --value -p "$1" maintd; }
isTold() { [ "$(service StatusText)" = "$1" ]; } # with what feeds the watchdog, so a little later
unit() { maintctl -j show unit spine-a | python3 -c "import json, sys; print( json.load( sys.stdin )[ '$1' ] )"; }
isUp() { [[ $(ip -o link show "$1") == *[\<,]UP[,\>]* ]]; }
isDown() { ! isUp "$1"; }
unitIs() { [ "$(unit state)" = "$1" ]; }
isRunning() { [ "$(service ActiveState)" = active ] && maintctl show agent > /dev/null 2>&1; }
marked() { grep -q " $1:" /tmp/links; }
# All that has been told of links by now is in /tmp/links.
settled() {
   ip link add "$1" type dummy || fail "no link to mark the time"
   until_ 60 "what is told of links is written down" marked "$1"
   ip link del "$1"
}
profileIs() { maintctl -j show profiles | grep -q "$1"; }
ofRoot() { find /var/lib/maintd /run/maintd -user root; }

# types FILE: what a new user types, line by line; what begins with sudo is root's.
types() {
   local line
   while IFS= read -r line; do
      echo "   \$ $line"
      case $line in
      *--watch*) # until Ctrl-C
         setpriv --reuid=newcomer --regid=newcomer --init-groups bash -c "exec $line" > /tmp/watched 2>&1 &
         until_ 60 "it shows the unit" grep -q spine-a /tmp/watched
         kill -INT $! || fail "it should have gone on"
         ;;
      sudo\ *)
         run env USER=newcomer bash -c "${line#sudo }"
         passes
         ;;
      *)
         run runuser -u newcomer -- bash -c "$line"
         passes
         ;;
      esac
      "${2:-true}" "$line"
   done < "$1"
}

watchLinks() { # whatever is done to a link from here on
   : > /tmp/links
   ip monitor link >> /tmp/links &
   until_ 60 "links are watched" markedAnew
}
markedAnew() {
   ip link add mark type dummy && ip link del mark
   sleep 0.3
   marked mark
}
movedSince() { # MARK: of our links
   settled "$1"
   grep -E '(et1|et2|bond0)' /tmp/links
}
hasFailed() { [ "$(service ActiveState)" = failed ]; }
# The number of a store, in the record of its head: 12 bytes under the key H.
storeNumberIs() {
   python3 - "$1" << 'PY'
import re, sys
path = "/var/lib/maintd/state.mdb"
with open(path, "r+b") as file:
    old = file.read()
    new, found = re.subn(rb"(\x0c\0\0\0\0\0\x01\0H)....(?=.{8})",
                         lambda head: head[1] + int(sys.argv[1]).to_bytes(4, "little"), old, flags=re.DOTALL)
    assert found and len(new) == len(old), "there should be a head"
    file.seek(0)
    file.write(new)
PY
}

runsAgain() { [ "$(service MainPID)" != "$1" ] && isRunning; }

makeOtherLinks() {
   ip link add et2 type dummy && ip link set et2 up && ip link add bond0 type bond || fail "no links"
}
# What a new user is shown before he has changed anything: each interface of the first configuration, what will be done to
# it and why, and what speaks against it.
planIsWhole() {
   is "the first line" "spine-a is normal; an enter goes through drainwatch" "$(sed 's/; this session.*//; q' <<< "$output")"
   is "the head" "INTERFACE IN OUT 95% IN 95% OUT THRESHOLD PROFILE WILL BE" \
      "$(sed -n '3{ s/  */ /g; s/ 95% OF//; p; }' <<< "$output")"
   is "the interfaces" "bond0 et1 et2" "$(sed -n '4,/^$/s/ .*//p' <<< "$output" | xargs)"
   local intf
   for intf in et1 et2; do
      grep -qE "^$intf .* 100 kbps  fast: named by group uplinks  shut when drained, after 5m00s at the latest\$" <<< "$output" ||
         fail "it should say what becomes of $intf"
   done
   grep -qE "^bond0 .* 100 kbps  fast: named by group uplinks  not watched: it has no members with counters\$" <<< "$output" ||
      fail "it should say that bond0 has no members"
   grep -qE "^warning +no-steering +no stage of the unit says that it steers traffic away" <<< "$output" ||
      fail "it should say that nobody moves the traffic"
   grep -qE "^blocking" <<< "$output" && fail "nothing should block it"
   return 0
}
lookAtLinks() { # LINE: what has just been typed
   case $1 in
   maintctl\ plan*) planIsWhole ;;
   maintctl\ enter*) isDown et1 && isDown et2 || fail "the links should be shut" ;;
   maintctl\ exit*) isUp et1 && isUp et2 || fail "the links should be up" ;;
   esac
}

if [ ! -e /etc/maintd/maintd.yaml ]; then
   # shellcheck source=Tests/Debian/SystemdGuestBefore.sh
   . /share/before
   # What is written is to be there afterwards.
   sync
   exit 75
fi
# shellcheck source=Tests/Debian/SystemdGuestAfter.sh
. /share/after
