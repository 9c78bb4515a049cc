#!/bin/bash
# Runs a command in a Linux kernel of its own, with bonding, teams, VLANs and filtering bridges, whatever the machine's
# kernel has: Debian's user-mode Linux, an ordinary process, up in two to three seconds.
#
#   OwnKernel.sh [--limit SECONDS] [--memory MEGABYTES] COMMAND [ARGUMENT...]
#
# The command's output and exit status are passed on as they are. It finds the machine's files where they are, but may
# not change them (name them by absolute paths); it is root, in an empty folder in memory, with no link but a loopback;
# OwnKernelInit.sh loads the modules. What it puts into $MAINT_RESULTS is copied to the folder in which this was called.
#
# 77: it cannot run here, and the one line that is printed says why. 1: the kernel has crashed or has not come to an
# end within the limit (default 240 s of wall time); then its last messages are printed. They are also if the command
# fails. It is sent SIGTERM shortly before.
#
# Several may run at once. Nothing of it outlasts this script, also when that is killed.
#
# Tests are made of it in CMake: maint_kernel_test() (CMake/Maint.cmake) for programs of unit tests, and in
# Tests/CMakeLists.txt for stories of the agent, whose helpers are in World.sh.
set -uo pipefail
folder=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
limit=240 memory=512
while :; do
   case ${1:-} in
   --limit) limit=$2 ;;
   --memory) memory=$2 ;;
   *) break ;;
   esac
   shift 2
done
commandLimit=$((limit - limit / 10 - 5))
[ $# -gt 0 ] || {
   echo "usage: OwnKernel.sh [--limit SECONDS] [--memory MEGABYTES] COMMAND [ARGUMENT...]" >&2
   exit 2
}

skip() {
   echo "skipped: a kernel with bonding and VLANs: $1"
   exit 77
}
[ "$(id -u)" -eq 0 ] || skip "only root may make links in it"
kernel=$(command -v linux.uml) || skip "there is no linux.uml; the package user-mode-linux has it"
[ -e "/usr/lib/uml/modules/$("$kernel" --version)/modules.dep" ] || skip "$kernel has no modules here"
command -v modprobe > /dev/null || skip "there is no modprobe; the package kmod has it"

# Its name has no blanks, whatever the name of the folder we are in: the kernel's command line knows no quotes.
run=$(mktemp -d /tmp/maint-kernel-XXXXXXXX) || exit 1
mkdir "$run/results" "$run/uml"
cp "$folder/OwnKernelInit.sh" "$run/init"
chmod +x "$run/init"
printf '%q ' "$@" > "$run/command"
: > "$run/output"

# The kernel's memory is a file. It goes where ours go if the machine's folder for such files is small, as containers'
# are.
shared=$(df --output=avail -k /dev/shm 2> /dev/null | tail -n 1)
[ "${shared:-0}" -ge $((memory * 1024)) ] || export TMPDIR=$run

# Ends all processes of the kernel, which are one group, and waits until they have gone.
endKernel() {
   local i
   for ((i = 0; i < 20; ++i)); do
      kill -KILL -- "-$1" 2> /dev/null || return
      sleep 0.1
   done
}
pid=
# shellcheck disable=SC2317
ends() {
   [ -z "$pid" ] || endKernel "$pid"
   rm -rf "$run"
}
trap ends EXIT
trap 'exit 143' TERM
trap 'exit 130' INT

# Clears up when we cannot, since we were killed: the other end of what it reads from is open as long as we are there.
# It is nobody's child, or it would be killed along with us.
mkfifo "$run/alive" && exec 4<> "$run/alive" || exit 1
# shellcheck disable=SC2016
setsid -f bash -c "$(declare -f endKernel)"'
   read -r pid
   cat
   [ ! -d "$0" ] || { endKernel "$pid"; rm -rf "$0"; }' "$run" < "$run/alive" > /dev/null 2>&1 4>&-

# A console for the kernel's messages and a serial line for the command's output, so that neither gets into the other.
setsid "$kernel" "mem=${memory}M" rootfstype=hostfs rootflags=/ ro "init=$run/init" \
   "uml_dir=$run/uml/" con=null con0=null,fd:1 ssl=null ssl0=null,fd:3 oops=panic panic=-1 loglevel=5 \
   "MAINT_RUN=$run" "MAINT_LIMIT=$commandLimit" < /dev/null > "$run/console" 2>&1 3> "$run/output" 4>&- &
pid=$!
disown $pid
echo $pid >&4
tail -c +1 -f -s 0.2 --pid=$pid "$run/output" 4>&- & # the command's output as it comes
shown=$!

timedOut=
end=$((SECONDS + limit))
while kill -0 $pid 2> /dev/null; do
   if [ $SECONDS -ge $end ]; then
      timedOut=1
      break
   fi
   sleep 0.1
done
endKernel $pid
wait $shown

kernelSays() {
   echo "---- the kernel's last messages"
   tail -n 60 "$run/console" | tr -d '\r'
}
[ -z "$(ls -A "$run/results")" ] || cp -r "$run/results/." .
if [ -n "$timedOut" ]; then
   echo "FAILED: has not ended within $limit s"
   kernelSays
   exit 1
fi
status=$(cat "$run/status" 2> /dev/null)
if [ -z "$status" ] || grep -qE 'Kernel panic|Oops|BUG:' "$run/console"; then
   echo "FAILED: the kernel has crashed"
   kernelSays
   exit 1
fi
[ "$status" -ne 124 ] || echo "FAILED: has not ended within $commandLimit s"
[ "$status" -eq 0 ] || [ "$status" -eq 77 ] || kernelSays
exit "$status"
