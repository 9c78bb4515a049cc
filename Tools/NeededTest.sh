#!/usr/bin/env bash
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"

# _library NAME [LIBRARY ...]: NAME.so in this folder, which needs those.
_library() {
   local name=$1
   shift
   echo 'int x;' >x.cpp
   g++ -shared -fPIC -o "lib$name.so" x.cpp -L. -Wl,--no-as-needed "${@/#/-l}" || fail "could not build $name"
}

acceptsThePlatformAndTheStandardLibrary() {
   _library maintplatform
   _library plugin maintplatform
   run "$tools/check-needed" libplugin.so
   passes
   saysNothing
}

namesWhatShouldNotBeNeeded() {
   _library foreign
   _library other
   _library plugin foreign other
   run "$tools/check-needed" libplugin.so
   fails
   says "libplugin.so may not need libforeign.so"
   says "libplugin.so may not need libother.so"
   saysNot "libstdc++"
}

acceptsSanitizersOnlyWhenTold() {
   _library plugin asan
   run "$tools/check-needed" libplugin.so
   fails
   says "may not need libasan.so"
   run "$tools/check-needed" --sanitizers libplugin.so
   passes
}

refusesWhatItCannotRead() {
   run "$tools/check-needed" no-such-library.so
   fails
   file text.so <<<'no library'
   run "$tools/check-needed" text.so
   fails
}

runTest "$@"
