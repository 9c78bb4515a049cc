#!/usr/bin/env bash
# The demonstration, as somebody sees it who types `make demo`: DemoTest.sh BUILD-FOLDER NAME.
set -uo pipefail
build=$(cd "$1" && pwd)
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=Tools/testing.sh
. "$root/Tools/testing.sh"

# Its time is real: traffic fades within seconds as on a switch. It needs no rights, so root shows it as somebody without.
showsAPageAndRunsToItsEnd() {
   local demo address='' page='' somebody=()
   if [ "$(id -u)" -eq 0 ]; then
      somebody=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
      "${somebody[@]}" test -x "$build/bin/maintd" -a -x "$root/Tools/demo" -a -w "${TMPDIR:-/tmp}" || {
         echo "skipped: the demonstration without rights: nobody but root may read $root, $build or write to ${TMPDIR:-/tmp}"
         somebody=()
      }
   fi
   (cd / && exec "${somebody[@]}" "$root/Tools/demo" "$build") > told 2>&1 < /dev/null &
   demo=$!
   # The address is there before the agent; both are as soon as it samples.
   while kill -0 "$demo" 2> /dev/null && [ -z "$page" ]; do
      address=$(head -n 1 told | grep -o 'http://127[^ ]*/')
      [ -z "$address" ] || page=$(curl -s --retry 100 --retry-connrefused --retry-delay 0 --max-time 20 "$address")
   done
   status=0
   wait "$demo" || status=$?
   output=$(cat told)
   passes
   says "Both units are normal again. Done."
   _part 3
   _row et1 'down *yes .* under-maint .* 0 bps *0 bps'
   _row pc1 'down *yes .* under-maint .* 0 bps *0 bps'
   _part 5
   _row vlan10 'up *no .* under-maint .* [45][0-9]\.[0-9] Mbps .* yes .*traffic is back since'
   _part 7
   _row et1 'up *no .* [34][0-9][0-9] Mbps *[34][0-9][0-9] Mbps'
   _row et2 'up *no .* [89][0-9]\.[0-9] Mbps *[67][0-9]\.[0-9] Mbps'
   _row pc1 'up *no .* [34][0-9][0-9] Mbps *[34][0-9][0-9] Mbps'
   _row vlan10 'up *no .* [23][0-9]\.[0-9] Mbps *[12][0-9]\.[0-9] Mbps'
   output=$(cat told)
   saysNot $'\e' # it is no terminal
   output=$page
   says "<title>"
   saysNot '"error"'
}
_part() { # the output behind that number, as far as the next one
   output=$(awk -v number="$1." '/^[0-9]\. / { inside = $1 == number } inside' told)
}
_row() { grep -Eq "^$1 .* $2" <<< "$output" || fail "the row of $1 should have been: $2"; }

# A build whose agent is idle and whose command says what is in the files of the folder `said`; nobody sleeps.
_build() {
   mkdir -p bin said
   file bin/maintd <<< 'exec tail -f /dev/null > /dev/null'
   file bin/sleep <<< ''
   file bin/maintctl << 'SH'
shift 2 # --socket and where
said=$(dirname "$0")/../said
case $* in exit\ spine-a*) sed -i "s/yes/no/; s/50.0/${back:-30.0}/" "$said/show interface vlan10" ;; esac
cat "$said/$*" 2> /dev/null || true
SH
   sed -i '1i #!/bin/bash' bin/*
   chmod +x bin/*
   printf '"state": "normal"\n"state": "normal"\n' > "said/-j show units"
   echo "vlan10" > "said/show interfaces spine-a"
   echo "Unit: spine-a" > "said/show unit spine-a"
   _says et1 no '400 Mbps' '380 Mbps'
   _says et2 no '90.0 Mbps' '70.0 Mbps'
   _says pc1 no '420 Mbps' '400 Mbps'
   # Of the spike nothing is left when the units are back.
   _says vlan10 yes '50.0 Mbps' '20.0 Mbps'
}
_says() { printf 'Rates:           in %s, out %s\nSpike:           %s\n' "$3" "$4" "$2" > "said/show interface $1"; }
_demo() { PATH=$PWD/bin:$PATH run "$root/Tools/demo" .; }

endsWellWhenAllIsShown() {
   _build
   _demo
   passes
   says "Both units are normal again. Done."
}
failsWhenTheSpikeIsNotShown() {
   _build
   _says vlan10 no '50.0 Mbps' '20.0 Mbps'
   _demo
   fails
   says "should have come about by now: vlan10 has a spike"
   saysNot "6. "
}
failsWhenTheTrafficDoesNotReturn() {
   local link
   for link in et1 pc1; do
      _build
      _says $link no '0 bps' '390 Mbps'
      _failsAtTheEnd
      _build
      _says $link no '410 Mbps' '0 bps'
      _failsAtTheEnd
   done
   _build
   back=50.0 _failsAtTheEnd # what was shown before
}
_failsAtTheEnd() {
   _demo
   fails
   says "should have come about by now: all links carry their traffic again"
}

runTest "$2"
