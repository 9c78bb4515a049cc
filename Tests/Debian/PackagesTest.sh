#!/bin/bash
# The Debian packages, and what a build installs, without a machine of their own: PackagesTest.sh BUILD-FOLDER NAME.
# BUILD-FOLDER is a build without sanitizers. What only a running system can show is in SystemdTest.sh.
set -uo pipefail
build=$(cd "$1" && pwd)
folder=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$folder/../.." && pwd)
# shellcheck source=Tools/testing.sh
. "$root/Tools/testing.sh"

_packages() { # the packages in ./packages, unpacked in folders by their names
   # Packing what is built needs nothing of what building did.
   mkdir lacking
   printf '#!/bin/sh\necho "Unmet build dependencies: $*" >&2\nexit 1\n' > lacking/dpkg-checkbuilddeps
   chmod +x lacking/dpkg-checkbuilddeps
   PATH=$PWD/lacking:$PATH run "$root/Tools/deb" "$build" packages
   passes
   local package
   for package in maintd maintctl maintd-plugin-drainwatch maintd-plugin-dev; do
      dpkg-deb -R "packages/${package}_"*.deb "$package" || fail "there should be the package $package"
   done
}
_field() { sed -n "s/^$2: //p" "$1/DEBIAN/control"; }

packagesAreMadeWithoutFaults() {
   _packages
   # What it says of the tree's own build flags is for whoever builds.
   run lintian --allow-root --fail-on error,warning --tag-display-limit 0 packages/*.changes
   passes
   saysNot "E: "
   saysNot "W: "

   # The version and the interface are those of the code.
   local version number
   version=$("$build/bin/maintd" --version | sed 's/maintd //')
   number=$(sed -n 's/^#define MAINT_PLUGIN_INTERFACE //p' "$root/Platform/Maintenance/PluginInterface.h")
   output=$(_field maintd Version) && [ "$output" = "$version" ] || fail "the package's version should be $version"
   output=$(_field maintd Provides) && says "maintd-plugin-interface-$number"
   output=$(_field maintd-plugin-drainwatch Depends) && says "maintd-plugin-interface-$number"

   # What somebody looks for is there, and nothing that only we need.
   local path
   for path in maintd/usr/sbin/maintd maintd/lib/systemd/system/maintd.service maintd/etc/maintd \
      maintd/usr/share/doc/maintd/examples/maintd.yaml maintd/usr/share/man/man8/maintd.8.gz \
      maintd/usr/share/man/man5/maintd.yaml.5.gz maintd/usr/lib/maintd/stages/kernel-routes maintd/usr/lib/maintd/http-hook \
      maintctl/usr/bin/maintctl maintctl/usr/share/man/man1/maintctl.1.gz \
      maintd-plugin-drainwatch/usr/lib/maintd/libDrainWatchPlugin.so \
      maintd-plugin-dev/usr/include/maintd/Platform/Maintenance/PluginBase.h \
      maintd-plugin-dev/usr/share/doc/maintd-plugin-dev/examples/UnitJournal/UnitJournal.cpp; do
      [ -e "$path" ] || fail "there should be $path"
   done
   output=$(find . -path ./packages -prune -o \( -name '*Test*' -o -name '*Rig*' \) -print)
   saysNothing
   output=$(grep -rlF "$root" maintd/usr/lib/maintd maintd-plugin-dev maintd/usr/share maintd/lib)
   saysNothing

   # Programs of the packages run where they are unpacked together.
   mkdir whole && cp -r maintd/usr maintctl/usr maintd-plugin-drainwatch/usr whole
   run whole/usr/bin/maintctl --version
   passes
   run whole/usr/sbin/maintd --version
   passes
}

serviceIsHardened() {
   cp "$root/debian/maintd.service" .
   run systemd-analyze security --offline=true --threshold=20 --no-pager ./maintd.service
   passes
   says "Overall exposure level for maintd.service: "
   # It can fail: without its walls the same is refused.
   sed -i '/^Protect/d; /^SystemCallFilter/d; /^CapabilityBoundingSet/d' maintd.service
   run systemd-analyze security --offline=true --threshold=20 --no-pager ./maintd.service
   fails
}

serviceHasNoUnknownKeys() {
   sed "s,/usr/sbin/maintd,$build/bin/maintd,; /^Documentation=/d" "$root/debian/maintd.service" > maintd.service
   run systemd-analyze verify --man=no ./maintd.service
   saysNot "maintd.service:"
}

# The example of the development package is built as its CMakeLists.txt says, and an agent loads it.
exampleIsBuiltAndLoaded() {
   # shellcheck source=Tests/Agent/OneAgent.sh
   . "$root/Tests/Agent/OneAgent.sh"
   DESTDIR=$PWD/there cmake --install "$build" --prefix /opt/maintd > log 2>&1 || fail "cannot install"
   local prefix=$PWD/there/opt/maintd
   cp -r "$prefix/share/doc/maintd-plugin-dev/examples/UnitJournal" example
   run env -u DESTDIR cmake -S example -B example/build -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror"
   passes
   run cmake --build example/build
   passes
   run cmake --install example/build
   passes
   [ -e "$(echo "$prefix"/lib*/maintd/libUnitJournalPlugin.so)" ] || fail "it should be with the other plug-ins"

   cat > maintd.yaml <<YAML
version: 1
switch: simulated
settle: 1s
profiles:
  fast: {threshold: 100kbps, load-interval: 5s}
default-profile: fast
groups:
  uplinks: {interfaces: [et1]}
units:
  u1: {groups: [uplinks]}
simulated:
  clock: virtual
  ports: {et1: {}}
YAML
   plugins=$(echo "$prefix"/lib*/maintd)
   _start
   _ctlSays "Unit journal" dump
   says "  u1: normal, 0 changes"
   _ctlSays '"state": "ok"' -j show agent
   _ctl enter u1 > /dev/null
   _advance 60s
   _ctlSays "  u1: maintenance, 2 changes" dump
   output=$(cat log)
   says "UNIT_STATE_CHANGE: Unit u1: maintenance (was enterInProgress)"

   # One for another interface is a problem that is shown, and nothing else.
   _kill TERM
   sed -i 's/maintd plug-in interface [0-9]/maintd plug-in interface 9/' "$plugins/libUnitJournalPlugin.so"
   _start
   _ctlSays "libUnitJournalPlugin.so: it was built for interface 9, this agent has " show agent
   _ctlSays "Drain Watch information" dump
   saysNot "Unit journal"
   _ctlSays '"state": "maintenance"' -j show unit u1
}

runTest "$2"
