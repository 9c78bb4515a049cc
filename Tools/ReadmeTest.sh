#!/usr/bin/env bash
# Whether README.md tells first what somebody wants to know first who has never heard of this.
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"
tree=$tools/..

beginsWithWhatAReaderWantsToKnowFirst() {
   run grep -oE '^## .*|<img src=' "$tree/README.md"
   passes
   [ "$(head -n 6 <<<"$output" | paste -sd '|')" = \
      '<img src=|## Two commands|## Installation|## A first configuration|## What it does|## The house' ] ||
      fail "a picture of a drain, the two commands, installation, a first configuration, what it does, the house"
}
showsPicturesThatAreThere() {
   run grep -oE '(src|srcset)="[^"]+"|!\[[^]]*\]\([^)]+\)' "$tree/README.md"
   passes
   local each
   for each in $(sed -E 's/.*"(.+)"|.*\((.+)\)/\1\2/' <<<"$output"); do
      [ -s "$tree/$each" ] || fail "there is no $each"
   done
}

runTest "${1:-}"
