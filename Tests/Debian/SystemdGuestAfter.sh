# shellcheck shell=bash
# The second half of SystemdGuest.sh: the machine has been started again with a unit under maintenance.
step "the links are held down that the machine has set up, and those that come late"
until_ 60 "it runs" isRunning
unitIs maintenance || fail "the unit should still be under maintenance"
is "why" "replace the line card" "$(unit reason)"
is "what the machine has done" active "$(systemctl is-active networking)"
until_ 60 "et1 is shut" isDown et1
modprobe bonding
ip link del bond0 2> /dev/null
makeOtherLinks
until_ 60 "et2 is shut" isDown et2
watchLinks

step "and come back as the machine has set them up"
run maintctl exit spine-a --wait --timeout 120s
passes
isUp et1 || fail "et1 should be up"
isUp et2 || fail "et2 should be up"
[[ $(ip -o address show et1) == *192.0.2.1/24* ]] || fail "et1 should have its address"
output=$(ip route show 198.51.100.0/24)
says "dev et1"
says "metric 10 "
run maintctl enter spine-a --reason "the other line card" --wait --timeout 120s
passes

step "downgrade to one that does not know this store: it ends for good, says why, and touches nothing"
settled mark5
: > /tmp/links
# It is the same program under another version, so the store is made to be of another number.
systemctl stop maintd
storeNumberIs 2
run dpkg -i /share/first/*.deb
is "the version of the package" "$(dpkg-deb -f /share/first/maintd_*.deb Version)" "$(dpkg-query -W -f '${Version}' maintd)"
run systemctl start maintd
[ "$status" -ne 0 ] || fail "it should not start"
until_ 60 "it is given up" hasFailed
is "how it has ended" 65 "$(service ExecMainStatus)"
output=$(journalctl --no-pager -u maintd -p err -n 3)
says "state store /var/lib/maintd/state.mdb: was written by a newer version of this program (format 2; this one reads 1)"
restarts=$(service NRestarts)
sleep 5 # more than two restarts of a service that is started again
is "how often it was started again" "$restarts" "$(service NRestarts)"
is "what runs" failed "$(service ActiveState)"
is "the links that have moved" "" "$(movedSince mark6)"
isDown et1 || fail "et1 should still be shut"

step "the way back"
storeNumberIs 1
run dpkg -i /share/second/*.deb
passes
run systemctl start maintd
passes
unitIs maintenance || fail "the unit should still be under maintenance"
is "the links that have moved" "" "$(movedSince mark7)"

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

step "installed again it begins anew, with the configuration that is there"
run dpkg -i /share/second/*.deb
passes
run systemctl start maintd
passes
unitIs normal || fail "the unit should be normal"
isUp et1 || fail "et1 should be up"
run dpkg --purge maintd-plugin-dev maintd-plugin-drainwatch maintctl maintd
passes
says "no link was held"
echo "-- done"
