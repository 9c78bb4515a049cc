#!/usr/bin/env bash
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"

# A tree with what the check looks at, and nothing wrong with it.
_tree() {
   local path
   for path in CMakeLists.txt debian/changelog docs/VERSIONS.md Platform/Maintenance/PluginInterface.h \
      Platform/Ledger/FallbackEngine.cpp Platform/Ledger/Records.h \
      Platform/FastLog/Layout.h Agent/Samples/SampleBlocks.cpp Config/Reader.cpp Api/Names.h; do
      file "$path" <"$tools/../$path"
   done
}

_finds() { # TEXT
   run "$tools/check-version" .
   fails
   says "$1"
   [ "$(wc -l <<<"$output")" -eq 1 ] || fail "should have found one thing"
}

takesATreeThatIsRight() {
   _tree
   run "$tools/check-version" .
   passes
   saysNothing
}

findsAChangelogOfAnotherVersion() {
   _tree
   sed -i 's/^project( drainwatch VERSION [0-9.]*/project( drainwatch VERSION 7.8.9/' CMakeLists.txt
   _finds "debian/changelog:1: begins with "
   says "the project's version is 7.8.9"
}

findsEachNumberThatHasRisen() {
   _tree
   local change
   for change in 'Platform/Maintenance/PluginInterface.h:PLUGIN_INTERFACE 1:PLUGIN_INTERFACE 2' \
      'Platform/Ledger/Records.h:storeSchema = 1:storeSchema = 2' 'Platform/FastLog/Layout.h:version = 1:version = 2' \
      'Platform/Ledger/FallbackEngine.cpp:fileForm = 2:fileForm = 3' \
      'Agent/Samples/SampleBlocks.cpp:maintd samples 1:maintd samples 2' \
      'Config/Reader.cpp:program reads version 1:program reads version 2' 'Api/Names.h:"/api/v1":"/api/v2"'; do
      IFS=: read -r path from to <<<"$change"
      sed -i "s|$from|$to|" "$path"
      _finds "$path has '$(grep -o '[0-9]*' <<<"$to" | tail -1)'"
      sed -i "s|$to|$from|" "$path"
   done
}

findsANumberThatIsNoLongerThere() {
   _tree
   sed -i '/storeSchema/d' Platform/Ledger/Records.h
   run "$tools/check-version" .
   fails
   says "Platform/Ledger/Records.h: no number of the state store, runtime store"
}

runTest "$@"
