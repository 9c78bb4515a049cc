# shellcheck shell=bash
# The first half of SystemdGuest.sh: from a machine without the packages to a unit under maintenance.
step "a switch with links, of which the machine itself sets up one of a unit and another way"
cat > /etc/network/interfaces << 'IFUPDOWN'
auto et1
iface et1 inet static
   pre-up ip link add et1 type dummy
   address 192.0.2.1/24
   up ip route add 198.51.100.0/24 dev et1 metric 10
auto et3
iface et3 inet static
   pre-up ip link add et3 type dummy
   address 203.0.113.1/24
   up ip route add 198.51.100.0/24 dev et3 metric 500
IFUPDOWN
modprobe dummy || fail "no links can be made"
modprobe bonding || fail "no bond can be made"
ip link del bond0 2> /dev/null
makeOtherLinks
systemctl restart networking || fail "the machine should set up its links"
isUp et1 || fail "et1 should be up"
watchLinks

step "install, as the README says"
adduser --quiet --disabled-password --gecos "" newcomer || fail "no user"
cd /share/first || fail "there should be packages"
types /share/install
cd /
getent passwd maintd > /dev/null || fail "there should be the user maintd"
is "what starts with the machine" enabled "$(systemctl is-enabled maintd)"
is "what runs before there is a configuration" inactive "$(service ActiveState)"
run systemctl start maintd
[ "$status" -ne 0 ] || fail "nothing should start without a configuration"
# Whoever has looked at it before he has written anything is not kept from it afterwards.
echo "version: 2" > /etc/maintd/maintd.yaml
run systemctl start maintd
[ "$status" -ne 0 ] || fail "nothing should start with a wrong configuration"
is "how it has ended" 78 "$(service ExecMainStatus)"

step "use it for the first time, as the README says"
cp /share/maintd.yaml /etc/maintd/maintd.yaml
run maintctl validate /etc/maintd/maintd.yaml
passes
types /share/use lookAtLinks
unitIs normal || fail "the unit should be normal again"
run maintctl -j operations
is "who has asked" "newcomer newcomer" "$(python3 -c 'import json, sys
print( *[operation[ "by" ] for operation in json.load( sys.stdin )] )' <<< "$output")"

step "what runs is as it should be"
run maintctl show agent
passes
says "ok"
until_ 60 "its status is told" isTold "units: 1 normal"
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
cat >> /etc/maintd/maintd.yaml << 'YAML'
stages:
  routes:
    enter: /usr/lib/maintd/stages/kernel-routes enter --metric 1000
    exit: /usr/lib/maintd/stages/kernel-routes exit
    steers: true
enter: [routes, drainwatch]
exit: [drainwatch, routes]
YAML
run maintctl reload
passes
ip monitor route > /tmp/routes &
run maintctl enter spine-a --reason "look at a stage" --wait --timeout 120s
passes
grep -qE "^198.51.100.0/24 dev et1 .*metric 1010" /tmp/routes || fail "the route should have moved: $(cat /tmp/routes)"
run maintctl exit spine-a --wait --timeout 120s
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
: > /tmp/links
run maintctl plan spine-a
passes
says "et1"
is "the links that have moved" "" "$(movedSince mark0)"

step "drain a unit"
run maintctl enter spine-a --reason "replace the line card" --wait --timeout 120s
passes
unitIs maintenance || fail "the unit should be under maintenance"
isDown et1 || fail "et1 should be shut"
isDown et2 || fail "et2 should be shut"
until_ 60 "its status is told" isTold "units: 1 maintenance"

step "reload"
sed -i 's/threshold: 100kbps/threshold: 200kbps/' /etc/maintd/maintd.yaml
profileIs 200000 && fail "it should not have that threshold yet"
run systemctl reload maintd
passes
until_ 60 "it has the other threshold" profileIs 200000
run maintctl -j operations
is "what it was, and whose the signal" "reload done maintd" "$(python3 -c 'import json, sys
last = json.load( sys.stdin )[ 0 ]
print( last[ "kind" ], last[ "state" ], last[ "by" ] )' <<< "$output")"
is "who has asked for what is under way" root "$(unit by)"

step "upgrade while links are held down"
pid=$(service MainPID)
settled mark1
grep -qE "et1: .*state DOWN|et1: <BROADCAST,NOARP>" /tmp/links || fail "et1's shutdown should have been told: $(cat /tmp/links)"
: > /tmp/links
run dpkg -i /share/second/*.deb
passes
until_ 60 "the new one runs" runsAgain "$pid"
is "the version of the package" "$(dpkg-deb -f /share/second/maintd_*.deb Version)" "$(dpkg-query -W -f '${Version}' maintd)"
unitIs maintenance || fail "the unit should still be under maintenance"
is "why" "replace the line card" "$(unit reason)"
is "the links that have moved" "" "$(movedSince mark2)"
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
is "the links that have moved" "" "$(movedSince mark3)"

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
