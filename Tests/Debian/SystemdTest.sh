#!/bin/bash
# The packages on a Debian of their own: a small one is made by debootstrap, started in user-mode Linux with systemd as its
# init, and SystemdGuest.sh is run in it, which installs, starts, drains, upgrades and purges.
#
#   SystemdTest.sh BUILD-FOLDER NAME
#
# BUILD-FOLDER is a build without sanitizers; the Debian is kept there, since it takes a minute to fetch. 77: it cannot run
# here, and the line that is printed says why.
set -uo pipefail
build=$(cd "$1" && pwd)
folder=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$folder/../.." && pwd)
# shellcheck source=Tools/testing.sh
. "$root/Tools/testing.sh"

# What the packages depend on, and what the script uses. Debootstrap does not look behind names that are provided.
packages=systemd,systemd-sysv,dbus,adduser,python3,iproute2,kmod,libcurl4,libfmt9,liblmdb0,libmicrohttpd12,libmnl0,libspdlog1.10,libyaml-cpp0.7
# It is made anew when this file has changed.
base=$build/debian-$(cksum < "$folder/SystemdTest.sh" | cut -d ' ' -f 1).img
# Less than the test may take, with what is made before, so that it is us who end the kernel.
limit=900

_skip() {
   echo "skipped: a Debian of its own: $1"
   exit 77
}

_makeBase() {
   [ "$(id -u)" -eq 0 ] || _skip "only root may make one"
   kernel=$(command -v linux.uml) || _skip "there is no linux.uml; the package user-mode-linux has it"
   command -v debootstrap > /dev/null || _skip "there is no debootstrap"
   [ ! -e "$base" ] || return
   rm -f "$build"/debian-*.img
   # From where this machine has its own packages.
   local mirror
   mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Codename: bookworm' 2> /dev/null | head -n 1)
   # What it mounts goes with it.
   run unshare --mount debootstrap --variant=minbase --include="$packages" bookworm tree ${mirror:+"$mirror"}
   [ "$status" -eq 0 ] || _skip "debootstrap failed: ${output##*$'\n'}"
   # What runs in it is the host's business: a script in a folder that both see.
   cat > tree/etc/systemd/system/guest.service << 'UNIT'
[Unit]
After=network.target dbus.service systemd-logind.service
[Service]
Type=oneshot
ExecStart=/usr/local/sbin/guest
UNIT
   cat > tree/usr/local/sbin/guest << 'GUEST'
#!/bin/bash
share=$(tr ' ' '\n' < /proc/cmdline | sed -n 's/^MAINT_RUN=//p')
mkdir -p /share /lib/modules
mount -t hostfs -o "$share" share /share
mount -t hostfs -o /usr/lib/uml/modules modules /lib/modules
timeout --kill-after=5 1100 bash /share/script > /share/output 2>&1
echo $? > /share/status
sync
systemctl --no-block poweroff
GUEST
   chmod +x tree/usr/local/sbin/guest
   mkdir -p tree/etc/systemd/system/multi-user.target.wants
   ln -s ../guest.service tree/etc/systemd/system/multi-user.target.wants/guest.service
   echo switch > tree/etc/hostname
   echo "/dev/ubda / ext4 defaults 0 1" > tree/etc/fstab
   rm -rf tree/var/cache/apt/archives/*.deb
   truncate -s 1500M base.img
   mkfs.ext4 -q -F -d tree base.img || fail "no file system can be made"
   mv base.img "$base"
   rm -rf tree
}

# Two versions of the packages, of which the second is the first again under a higher number.
_makePackages() {
   mkdir share
   run "$root/Tools/deb" "$build" share/first
   passes
   mkdir share/second
   local package
   for package in share/first/*.deb; do
      rm -rf tree
      dpkg-deb -R "$package" tree || fail "it cannot be unpacked"
      sed -i -E 's/^(Version: .*)/\1+next/; s/^(Depends: .*\(= [^)]*)\)/\1+next)/' tree/DEBIAN/control
      dpkg-deb -Zgzip -b tree share/second > /dev/null || fail "it cannot be packed again"
   done
   # The configuration that a new user finds first.
   awk '/^## A first configuration/ { here = 1 } here && /^```$/ { exit } here && text { print } /^```yaml/ && here { text = 1 }' \
      "$root/README.md" > share/maintd.yaml
   grep -q '^version: 1' share/maintd.yaml || fail "the README should have a first configuration"
   cp "$folder/SystemdGuest.sh" share/script
}

pid=
_boot() {
   local here=$PWD shown end
   mkdir uml
   : > share/output
   setsid "$kernel" mem=768M "ubd0=$here/changes,$base" root=/dev/ubda rw init=/lib/systemd/systemd "uml_dir=$here/uml/" \
      con=null con0=null,fd:1 ssl=null panic=-1 systemd.show_status=0 "MAINT_RUN=$here/share" \
      < /dev/null > console 2>&1 &
   pid=$!
   trap 'kill -KILL -- -$pid 2> /dev/null; rm -rf "$here"' EXIT
   tail -c +1 -f -s 0.2 --pid=$pid share/output &
   shown=$!
   end=$((SECONDS + limit))
   while kill -0 $pid 2> /dev/null && [ $SECONDS -lt $end ]; do
      # It need not take itself down nicely once it has said how it went.
      [ ! -s share/status ] || { sleep 2; break; }
      sleep 0.5
   done
   kill -KILL -- -$pid 2> /dev/null
   wait $pid $shown 2> /dev/null
   output=$(tail -n 60 console | tr -d '\r')
   status=$(cat share/status 2> /dev/null)
   [ -n "$status" ] || fail "it has not come to its end; the console:"
   [ "$status" -eq 0 ] || fail "the story failed; the console:"
}

longInstallsStartsUpgradesAndPurges() {
   _makeBase
   _makePackages
   export TMPDIR=$PWD
   _boot
}

runTest "$2"
