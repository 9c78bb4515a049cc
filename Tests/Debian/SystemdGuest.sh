# shellcheck shell=bash
# Runs as root in the Debian that SystemdTest.sh starts: the life of the packages as an operator lives it. In /share:
# first and second, two versions of the packages, and maintd.yaml, the first configuration of the README.
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
unit() { maintctl -j show unit spine-a | python3 -c "import json, sys; print( json.load( sys.stdin )[ '$1' ] )"; }
isUp() { [[ $(ip -o link show "$1") == *[\<,]UP[,\>]* ]]; }
isDown() { ! isUp "$1"; }
unitIs() { [ "$(unit state)" = "$1" ]; }
isRunning() { [ "$(service ActiveState)" = active ] && maintctl show agent > /dev/null 2>&1; }
marked() { grep -q " $1:" /tmp/links; }
# All that has been told of links by now is in /tmp/links.
settled() {
   ip link add "$1" type dummy || fail "no link to mark the time"
   until_ 20 "what is told of links is written down" marked "$1"
   ip link del "$1"
}
profileIs() { maintctl -j show profiles | grep -q "$1"; }
ofRoot() { find /var/lib/maintd /run/maintd -user root; }

runsAgain() { [ "$(service MainPID)" != "$1" ] && isRunning; }

step "a switch with three links"
modprobe dummy || fail "no links can be made"
modprobe bonding || fail "no bond can be made"
ip link del bond0 2> /dev/null
for link in et1 et2; do
   ip link add $link type dummy || fail "no link"
   ip link set $link up
done
ip link add bond0 type bond
ip address add 192.0.2.1/24 dev et1
ip link set lo up
# Whatever is done to a link from here on.
ip monitor link > /tmp/links &

step "install"
run dpkg -i /share/first/*.deb
passes
getent passwd maintd > /dev/null || fail "there should be the user maintd"
is "what starts with the machine" enabled "$(systemctl is-enabled maintd)"
is "what runs before there is a configuration" inactive "$(service ActiveState)"
run systemctl start maintd
[ "$status" -ne 0 ] || fail "nothing should start without a configuration"

step "configure and start"
cp /share/maintd.yaml /etc/maintd/maintd.yaml
run maintctl validate /etc/maintd/maintd.yaml
passes
run systemctl start maintd
passes
# The command above waits until the agent says that it is ready, so it answers at once.
run maintctl show agent
passes
says "ok"
is "its status" "units: 1 normal" "$(service StatusText)"
pid=$(service MainPID)
is "its user" maintd "$(ps -o user= -p "$pid" 2> /dev/null || stat -c %U "/proc/$pid")"
is "its capabilities" 0000000000001000 "$(sed -n 's/^CapEff:\t//p' "/proc/$pid/status")"
is "those it could ever have" 0000000000001000 "$(sed -n 's/^CapBnd:\t//p' "/proc/$pid/status")"
is "new privileges" 1 "$(sed -n 's/^NoNewPrivs:\t//p' "/proc/$pid/status")"
is "the owner of the socket" "maintd:maintd 660" "$(stat -c '%U:%G %a' /run/maintd/control.sock)"
run systemd-analyze security --no-pager --threshold=20 maintd
passes
echo "   $(grep Overall <<< "$output")"

step "whoever is in the group may, others may not"
adduser --quiet --disabled-password --gecos "" somebody && adduser --quiet somebody maintd
run setpriv --reuid=somebody --regid=somebody --init-groups maintctl show units
passes
run setpriv --reuid=nobody --regid=nogroup --clear-groups maintctl show units
is "the exit status" 3 "$status"

step "a stage moves a route away, and back"
ip route add 198.51.100.0/24 dev et1 metric 10 || fail "no route"
cat >> /etc/maintd/maintd.yaml << 'YAML'
stages:
  routes:
    enter: /usr/lib/maintd/stages/kernel-routes enter --metric 1000
    exit: /usr/lib/maintd/stages/kernel-routes exit
enter: [routes, drainwatch]
exit: [drainwatch, routes]
YAML
run maintctl reload
passes
ip monitor route > /tmp/routes &
run maintctl enter spine-a --reason "look at a stage" --wait --timeout 120s
passes
grep -qE "^198.51.100.0/24 dev et1 .*metric 1010" /tmp/routes || fail "the route should have moved: $(cat /tmp/routes)"
run maintctl exit spine-a --wait --timeout 60s
passes
output=$(ip route show 198.51.100.0/24)
says "dev et1"
says "metric 10 "

step "root releases all links by hand, and the service starts afterwards"
systemctl stop maintd
rm -f /run/maintd/fastlog /run/maintd/lock
run maintd --release-all
passes
says "no link was held"
is "what root has left there" "" "$(ofRoot)"
systemctl start maintd || fail "it should start"
run maintctl show agent
passes
says "ok"

step "plan"
cp /tmp/links /tmp/before
run maintctl plan spine-a
passes
says "et1"
settled mark0
is "the links that have moved" "" "$(comm -13 <(sort /tmp/before) <(sort /tmp/links) | grep -E '(et1|et2|bond0)')"

step "drain a unit"
run maintctl enter spine-a --reason "replace the line card" --wait --timeout 120s
passes
unitIs maintenance || fail "the unit should be under maintenance"
isDown et1 || fail "et1 should be shut"
isDown et2 || fail "et2 should be shut"
is "its status" "units: 1 maintenance" "$(until_ 20 "it says so" eval 'service StatusText | grep -q maintenance'; service StatusText)"

step "reload"
sed -i 's/threshold: 100kbps/threshold: 200kbps/' /etc/maintd/maintd.yaml
profileIs 200000 && fail "it should not have that threshold yet"
run systemctl reload maintd
passes
until_ 20 "it has the other threshold" profileIs 200000

step "upgrade while links are held down"
pid=$(service MainPID)
settled mark1
grep -qE "et1: .*state DOWN|et1: <BROADCAST,NOARP>" /tmp/links || fail "et1's shutdown should have been told: $(cat /tmp/links)"
: > /tmp/links
run dpkg -i /share/second/*.deb
passes
until_ 30 "the new one runs" runsAgain "$pid"
is "the version of the package" "$(dpkg-deb -f /share/second/maintd_*.deb Version)" "$(dpkg-query -W -f '${Version}' maintd)"
unitIs maintenance || fail "the unit should still be under maintenance"
is "why" "replace the line card" "$(unit reason)"
settled mark2
is "the links that have moved" "" "$(grep -E '(et1|et2|bond0)' /tmp/links)"
isDown et1 || fail "et1 should still be shut"
run maintctl dump
passes

step "it aborts, and is started again"
pid=$(service MainPID)
kill -ABRT "$pid"
until_ 60 "it runs again" runsAgain "$pid"
unitIs maintenance || fail "the unit should still be under maintenance"

step "it hangs, and is started again"
mkdir -p /run/systemd/system/maintd.service.d
printf '[Service]\nWatchdogSec=4\n' > /run/systemd/system/maintd.service.d/watchdog.conf
systemctl daemon-reload
systemctl restart maintd || fail "it should start"
pid=$(service MainPID)
before=$(service NRestarts)
sleep 8 # two watchdogs long
is "who runs, as long as its loop turns" "$pid" "$(service MainPID)"
kill -STOP "$pid"
until_ 60 "it runs again" runsAgain "$pid"
[ "$(service NRestarts)" -gt "$before" ] || fail "systemd should have started it again"
unitIs maintenance || fail "the unit should still be under maintenance"
settled mark3
is "the links that have moved" "" "$(grep -E '(et1|et2|bond0)' /tmp/links)"

step "a removal that cannot raise the links leaves the agent running"
cp /usr/sbin/maintd /usr/sbin/maintd.real
cat > /tmp/cannot << 'SH'
#!/bin/sh
case "$*" in
*--release-all*) exit 3 ;;
*) exec /usr/sbin/maintd.real "$@" ;;
esac
SH
chmod 755 /tmp/cannot
mount --bind /tmp/cannot /usr/sbin/maintd || fail "no other program can be put in its place"
run dpkg --remove --force-depends maintd
[ "$status" -ne 0 ] || fail "it should not have been removed"
says "stays installed, because it still holds links"
until_ 60 "it runs again" isRunning
unitIs maintenance || fail "the unit should still be under maintenance"
isDown et1 || fail "et1 should still be shut"
systemctl stop maintd
umount /usr/sbin/maintd
rm /usr/sbin/maintd.real
systemctl start maintd || fail "it should start"

step "purge: the links are released first, and it says so"
run dpkg --purge maintd-plugin-dev maintd-plugin-drainwatch maintctl maintd
passes
says "released et1"
says "released et2"
says "unit spine-a is not normal (maintenance), and stays so"
says "unit spine-a: what its stage routes has done stays; it has recorded {"
output=$(ip route show 198.51.100.0/24)
says "metric 1010"
settled mark4
grep -q "et1: <.*,UP" /tmp/links || fail "et1's raise should have been told: $(cat /tmp/links)"
isUp et1 || fail "et1 should be up again"
isUp et2 || fail "et2 should be up again"
[[ $(ip -o address show et1) == *192.0.2.1/24* ]] || fail "et1 should have its address again"
[ ! -e /var/lib/maintd ] || fail "the state should be gone"
[ ! -e /run/maintd ] || fail "the runtime folder should be gone"
[ ! -e /usr/lib/maintd ] || fail "the plug-ins should be gone"
[ -e /etc/maintd/maintd.yaml ] || fail "the operator's own configuration is not ours to remove"
is "the service" not-found "$(systemctl show --value -p LoadState maintd)"
echo "-- done"
