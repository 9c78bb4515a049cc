#!/usr/bin/env bash
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"

_tree() {
   cp "$tools/../.clang-format" .
   file Folder/Good.h <<<'int good( int );'
}

acceptsAFormattedTree() {
   _tree
   run "$tools/check-format" .
   passes
   saysNothing
}

namesFileAndLineOfAnUnformattedFile() {
   _tree
   printf '%s\n' 'int good( int );' 'int  bad(int);' | file Folder/Bad.h
   run "$tools/check-format" .
   fails
   says "Folder/Bad.h:2:"
   says "make format"
}

fixesWhatItFinds() {
   _tree
   file Folder/Bad.cpp <<<'int  bad(int);'
   run "$tools/check-format" --fix .
   passes
   [ "$(cat Folder/Bad.cpp)" = 'int bad( int );' ] || fail "should have formatted Bad.cpp"
}

leavesWhatWasBuiltAlone() {
   _tree
   file build/dev/Generated.h <<<'int  bad(int);'
   run "$tools/check-format" .
   passes
}

refusesAnotherVersion() {
   _tree
   printf '%s\n' '#!/bin/sh' 'echo "Debian clang-format version 15.0.6"' | file bin/clang-format
   chmod +x bin/clang-format
   PATH="$PWD/bin:$PATH" run "$tools/check-format" .
   fails
   says "needs clang-format 14 (make deps), found: 15"
}

runTest "$@"
