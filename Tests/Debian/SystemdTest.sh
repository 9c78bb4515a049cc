#!/bin/bash
# The packages on a Debian of their own: a small one is made by debootstrap, started in user-mode Linux with systemd as its
# init, and SystemdGuest.sh is run in it, which installs, starts, drains, upgrades, starts the machine again under
# maintenance, downgrades and purges.
#
#   SystemdTest.sh BUILD-FOLDER NAME
#
# BUILD-FOLDER is a build without sanitizers; the Debian and its packages are kept there, since they take minutes to fetch.
# 77: it cannot run here, and the line that is printed says why.
set -uo pipefail
build=$(cd "$1" && pwd)
folder=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$folder/../.." && pwd)
# shellcheck source=Tools/testing.sh
. "$root/Tools/testing.sh"

# What the packages depend on, and what the script uses. Debootstrap does not look behind names that are provided.
packages=systemd,systemd-sysv,dbus,adduser,ifupdown,python3,iproute2,kmod,libcurl4,libfmt9,liblmdb0,libmicrohttpd12,libmnl0,libspdlog1.10,libyaml-cpp0.7
# Less than the test may take, so that it is us who end the kernel. All boots together, and what is made before.
limit=1300

_skip() {
   echo "skipped: a Debian of its own: $1"
   exit 77
}

_makeBase() {
   [ "$(id -u)" -eq 0 ] || _skip "only root may make one"
   kernel=$(command -v linux.uml) || _skip "there is no linux.uml; the package user-mode-linux has it"
   command -v debootstrap > /dev/null || _skip "there is no debootstrap"
   # It is made anew when this function has changed, or what is installed there.
   base=$build/debian-$({ declare -f _makeBase && echo "$packages"; } | cksum | cut -d ' ' -f 1).img
   [ ! -e "$base" ] || return
   rm -f "$build"/debian-*.img
   mkdir -p "$build/debian-packages"
   # From where this machine has its own packages.
   local mirror
   mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Codename: bookworm' 2> /dev/null | head -n 1)
   # What it mounts goes with it.
   run unshare --mount debootstrap --variant=minbase --cache-dir="$build/debian-packages" --include="$packages" bookworm tree ${mirror:+"$mirror"}
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
mkdir -p /share
mount -t hostfs -o "$share" share /share
timeout --kill-after=5 1100 bash /share/script >> /share/output 2>&1
echo $? > /share/status
systemctl --no-block poweroff
GUEST
   chmod +x tree/usr/local/sbin/guest
   mkdir -p tree/lib/modules
   mkdir -p tree/etc/systemd/system/multi-user.target.wants
   ln -s ../guest.service tree/etc/systemd/system/multi-user.target.wants/guest.service
   echo switch > tree/etc/hostname
   printf '%s\n' "/dev/ubda / ext4 defaults 0 1" "modules /lib/modules hostfs /usr/lib/uml/modules 0 0" > tree/etc/fstab
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
   cp "$folder/SystemdGuest.sh" share/script
   cp "$folder/SystemdGuestBefore.sh" share/before
   cp "$folder/SystemdGuestAfter.sh" share/after
}

# What a new user finds: the first configuration, and the lines to type.
_takeFromReadme() {
   local lines='/^    [a-z]/ { print substr( $0, 5 ) }'
   _section "Installation" | awk "$lines" | sed '1,/^cd /d' > share/install
   grep -q '^sudo apt-get install ./maintd_' share/install || fail "the README should say how it is installed"
   _section "A first configuration" | awk '/^```$/ { exit } text { print } /^```yaml/ { text = 1 }' > share/maintd.yaml
   grep -q '^version: 1' share/maintd.yaml || fail "the README should have a first configuration"
   _section "A first configuration" | awk "$lines" > share/use
   for output in "sudo systemctl start maintd" "maintctl plan " "maintctl enter " "maintctl exit "; do
      grep -q "^$output" share/use || fail "the README should say how it is used first"
   done
}
_section() { awk -v title="## $1" '/^## / { here = $0 == title } here { print }' "$root/README.md"; }

pid= shown=
_boot() {
   local here=$PWD
   mkdir -p uml
   rm -f share/status
   setsid "$kernel" mem=768M "ubd0=$here/changes,$base" root=/dev/ubda rw init=/lib/systemd/systemd "uml_dir=$here/uml/" \
      con=null con0=null,fd:1 ssl=null panic=-1 systemd.show_status=0 "MAINT_RUN=$here/share" \
      < /dev/null > console 2>&1 4>&- &
   pid=$!
   echo $pid >&4
   trap 'kill -KILL -- -$pid 2> /dev/null; rm -rf "$here"' EXIT
   while kill -0 $pid 2> /dev/null && [ $SECONDS -lt $limit ]; do
      # It need not take itself down nicely once it has said how it went, unless it is to be started again.
      if [ -s share/status ] && [ "$(cat share/status)" -ne $again ]; then
         break
      fi
      sleep 0.5
   done
   kill -KILL -- -$pid 2> /dev/null
   wait $pid 2> /dev/null
   output=$(tail -n 60 console | tr -d '\r')
   status=$(cat share/status 2> /dev/null)
}
# What the script ends with that wants the machine to be started again; it goes on where it finds itself.
again=75
_bootUntilItEnds() {
   local boots=0
   # Clears up when we cannot, since we were killed: the other end of what it reads from is open as long as we are there.
   mkfifo alive && exec 4<> alive || fail "no pipe"
   # shellcheck disable=SC2016
   setsid -f bash -c '
      while read -r pid; do last=$pid; done
      [ ! -d "$0" ] || { kill -KILL -- "-$last"; sleep 1; rm -rf "$0"; }' "$PWD" < alive > /dev/null 2>&1 4>&-
   : > share/output
   tail -c +1 -f -s 0.2 --pid=$$ share/output 4>&- &
   shown=$!
   status=$again
   while [ "$status" = $again ] && [ $SECONDS -lt $limit ]; do
      boots=$((boots + 1))
      _boot
   done
   sleep 0.5 # it shows what is left
   kill $shown 2> /dev/null
   [ -n "$status" ] || fail "it has not come to its end; the console:"
   [ "$status" -eq 0 ] || fail "the story failed; the console:"
   [ $boots -eq 2 ] || fail "the machine should have been started twice, not $boots times"
}

longInstallsStartsUpgradesAndPurges() {
   _makeBase
   _makePackages
   _takeFromReadme
   export TMPDIR=$PWD
   _bootUntilItEnds
}

runTest "$2"
