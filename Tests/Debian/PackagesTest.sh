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
   mkdir packages
   touch packages/maintd_0.0.1_amd64.deb packages/other_1_amd64.deb
   PATH=$PWD/lacking:$PATH run "$root/Tools/deb" "$build" packages
   passes
   [ ! -e packages/maintd_0.0.1_amd64.deb ] || fail "there should be the newest ones only"
   [ -e packages/other_1_amd64.deb ] || fail "what is not ours should be left alone"
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
   local path package
   for path in maintd/usr/sbin/maintd maintd/lib/systemd/system/maintd.service maintd/etc/maintd \
      maintd/usr/share/doc/maintd/examples/maintd.yaml maintd/usr/share/man/man8/maintd.8.gz \
      maintd/usr/share/doc/maintd/HOOKS.md maintd/usr/share/doc/maintd/STAGES.md maintd/usr/share/doc/maintd/ADAPTERS.md \
      maintd/usr/share/man/man5/maintd.yaml.5.gz maintd/usr/lib/maintd/stages/kernel-routes maintd/usr/lib/maintd/http-hook \
      maintctl/usr/bin/maintctl maintctl/usr/share/man/man1/maintctl.1.gz \
      maintd-plugin-drainwatch/usr/lib/maintd/libDrainWatchPlugin.so \
      maintd-plugin-dev/usr/include/maintd/Platform/Maintenance/PluginBase.h \
      maintd-plugin-dev/usr/share/doc/maintd-plugin-dev/examples/UnitJournal/UnitJournal.cpp; do
      [ -e "$path" ] || fail "there should be $path"
   done
   # Its pages lead to each other and to the schemas.
   local page link
   for page in maintd/usr/share/doc/maintd/*.md; do
      for link in $(grep -o '](\([^)#]*\)' "$page" | sed 's/^](//; /^http/ d' | sort -u); do
         [ -e "${page%/*}/$link" ] || fail "$page leads to $link, which is not there"
      done
   done
   output=$(find . -path ./packages -prune -o \( -name '*Test*' -o -name '*Rig*' \) -print)
   saysNothing
   output=$(grep -rlF "$root" maintd maintctl maintd-plugin-drainwatch maintd-plugin-dev)
   saysNothing

   # What can be run is what Tests/Agent/EveryVerbTest.py knows the exit statuses of: another program has to come there too.
   output=$(find maintd maintctl maintd-plugin-drainwatch maintd-plugin-dev -path '*/DEBIAN' -prune -o \
      -type f -perm /111 ! -name '*.so*' -print | sort)
   [ "$output" = "maintctl/usr/bin/maintctl
maintd/usr/lib/maintd/http-hook
maintd/usr/lib/maintd/stages/frr-graceful-shutdown
maintd/usr/lib/maintd/stages/kernel-routes
maintd/usr/lib/maintd/stages/wait
maintd/usr/sbin/maintd" ] || fail "these programs should be there, and no others"

   # Each says under which licence it may be used. The text of that one is on every Debian, and so is not packed again; that
   # of what the page is built from is.
   output=$(cat "$root/debian/copyright")
   says "License: Apache-2.0"
   local common=/usr/share/common-licenses/Apache-2.0
   says "$common"
   [ ! -e maintd/usr/share/doc/maintd/LICENSE ] || fail "the licence should not be packed"
   diff -w "$root/LICENSE" $common > differs || fail "the licence should be the one that it is called: $(cat differs)"
   sed -n 's/^.*Copyright (c) //p' "$root/Web/dist/licences.txt" > holders
   [ -s holders ] || fail "it should be known whose the parts of the page are"
   while IFS= read -r path; do
      says "$path"
   done < holders
   for package in maintd maintctl maintd-plugin-drainwatch maintd-plugin-dev; do
      cmp "$root/debian/copyright" "$package/usr/share/doc/$package/copyright" || fail "$package should say its licence"
   done

   # Nothing in them can be redirected once they run, and what runs over a buffer or the stack ends them.
   for path in maintd/usr/sbin/maintd maintd/usr/lib/maintd/libmaintplatform.so maintctl/usr/bin/maintctl \
      maintd-plugin-drainwatch/usr/lib/maintd/libDrainWatchPlugin.so; do
      output=$path:$(readelf --wide --file-header --program-headers --dynamic "$path")
      says "DYN ("
      says "GNU_RELRO"
      says "BIND_NOW"
      output=$path:$(readelf --wide --dyn-syms "$path")
      says "__stack_chk_fail"
      says "_chk@GLIBC"
      [ "$(dpkg --print-architecture)" != amd64 ] || [ "$(LC_ALL=C grep -aoP '\xf3\x0f\x1e\xfa' "$path" | wc -l)" -gt 100 ] ||
         fail "$path should mark where jumps may lead"
   done

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
   passes
   saysNot "maintd.service:"
   # It can tell.
   sed -i 's/^Restart=/Frobnicate=yes\n&/' maintd.service
   run systemd-analyze verify --man=no ./maintd.service
   says "maintd.service:"
   says "Frobnicate"
}

# _remove STATUS: what the package does before it is removed, with an agent that ends so with --release-all. What it is
# called with, and what is asked of systemd, comes into ./done; `inside`, if it is set, is where systemd runs the agent.
_remove() {
   mkdir -p stubs manager
   : > done
   printf '#!/bin/sh\necho "maintd $*" >> done\nexit %s\n' "$1" > stubs/maintd
   printf '#!/bin/sh\necho "nsenter $1" >> done\nshift 2\nexec "$@"\n' > stubs/nsenter
   printf '#!/bin/sh\necho "$1 $2" >> done\n' > stubs/deb-systemd-invoke
   cat > stubs/systemctl << 'STUB'
#!/bin/sh
case "$*" in
*ExecStart*) echo "{ path=/usr/sbin/maintd ; argv[]=/usr/sbin/maintd --foreground${arguments:-} ; ignore_errors=no ; pid=0 }" ;;
*NetworkNamespacePath*) echo "${network:-}" ;;
is-active*) [ -n "${runs:-}" ] ;;
esac
STUB
   chmod +x stubs/*
   sed "s,^agent=.*,agent=$PWD/stubs/maintd,; s,^manager=.*,manager=$PWD/manager," "$root/debian/maintd.prerm" > prerm
   run env PATH="$PWD/stubs:$PATH" runs="${runs:-}" arguments="${arguments:-}" network="${network:-}" sh prerm remove
   did=$(cat done)
}
_did() { # LINES: exactly this was done
   [ "$did" = "$1" ] || fail "should have done '$1', not '$did'"
}

removalReleasesLinksFirst() {
   runs=yes _remove 0
   passes
   _did "stop maintd.service
maintd --release-all"
   # Also where nobody supervises services.
   rmdir manager
   mkdir elsewhere
   sed -i "s,^manager=.*,manager=$PWD/none," prerm
   : > done
   run env PATH="$PWD/stubs:$PATH" sh prerm remove
   passes
   did=$(cat done)
   _did "maintd --release-all"
}

removalLooksWhereTheServiceHasItsLinks() {
   arguments=" --state-dir /srv/state --runtime-dir /srv/run" network=/run/netns/switch _remove 0
   passes
   _did "stop maintd.service
nsenter --net=/run/netns/switch
maintd --state-dir /srv/state --runtime-dir /srv/run --release-all"
}

removalFailsWhileLinksAreHeldAndTheAgentGoesOn() {
   local status_
   for status_ in 3 4; do
      runs=yes _remove $status_
      fails
      says "stays installed"
      _did "stop maintd.service
maintd --release-all
start maintd.service"
      runs='' _remove $status_
      fails
      _did "stop maintd.service
maintd --release-all"
   done
}

# A package that never ran properly holds nothing, and must be able to go.
removalGoesOnWhenNobodyCanTellWhatIsHeld() {
   local status_
   for status_ in 2 127 134; do
      runs=yes _remove $status_
      passes
      says "cannot tell whether it holds links (its status is $status_)"
   done
}

# The agent itself says then whether it does not know its links, or has raised all and could not write that down.
removalLeavesToTheAgentWhatHasFailed() {
   runs=yes _remove 1
   passes
   says "maintd: see above. Links that it has left down stay so: ip link set LINK up"
   saysNot "cannot tell"
}

upgradeAsksNothing() {
   _remove 3
   : > done
   run env PATH="$PWD/stubs:$PATH" sh prerm upgrade 9.9
   passes
   did=$(cat done)
   _did ""
}

_configured() { # configure|triggered: what the package does then comes into $did
   run env PATH="$PWD/stubs:$PATH" sh postinst "$1"
   passes
   did=$(cat done)
   : > done
}

# An agent that runs is started again for plug-ins, and once for all that come together with it.
agentIsStartedAgainForPluginsOnly() {
   mkdir stubs manager plugins plugins/stages
   printf '#!/bin/sh\necho "$1 $2" >> done\n' > stubs/deb-systemd-invoke
   printf '#!/bin/sh\n' > stubs/adduser
   chmod +x stubs/*
   sed "s,^manager=.*,manager=manager,; s,^plugins=.*,plugins=plugins,; s,^seen=.*,seen=seen," \
      "$root/debian/maintd.postinst" > postinst
   : > done
   echo one > plugins/libOne.so
   _configured configure
   _configured triggered
   _did ""
   echo new > plugins/stages/wait
   _configured triggered
   _did ""
   echo two > plugins/libTwo.so
   _configured triggered
   _did "try-restart maintd.service"
   _configured triggered
   _did ""
   rm plugins/*.so
   _configured triggered
   _did "try-restart maintd.service"
}

# Without packages, whoever has the programs has the text of their licence, too.
isInstalledWithItsLicence() {
   DESTDIR=$PWD/there cmake --install "$build" --prefix /opt/maintd > log 2>&1 || fail "cannot install"
   cmp "$root/LICENSE" there/opt/maintd/share/doc/drainwatch/LICENSE || fail "the licence should be installed"
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

   # So is one of the same interface that was built with other headers.
   _kill TERM
   cp "$plugins/libUnitJournalPlugin.so" good.so
   sed -i 's/, headers ..../, headers 0000/' "$plugins/libUnitJournalPlugin.so"
   _start
   _ctlSays "libUnitJournalPlugin.so: it was built with other headers than this agent" show agent
   _ctlSays "Drain Watch information" dump
   saysNot "Unit journal"
   cp good.so "$plugins/libUnitJournalPlugin.so"

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
