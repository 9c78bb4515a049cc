# shellcheck shell=bash
# Sourced by tests that need routers, after Tools/testing.sh: FRR's zebra and bgpd in the network namespaces of a test.
#
# A router is known by its run folder, which holds its sockets, logs, configuration and process ids. The daemons are
# children of the caller and use nothing of the system but the user frr, so routers in many namespaces stand side by
# side. Whoever deletes a namespace kills what runs in it first, and with that its router.
frrDaemons=/usr/lib/frr

# Ends the test as skipped where FRR is not installed.
_frrIsThere() {
   [ -x $frrDaemons/zebra ] && [ -x $frrDaemons/bgpd ] && command -v vtysh > /dev/null && return
   echo "skipped: routers: needs the package frr"
   exit 77
}

# _frrStart NAMESPACE FOLDER < CONFIGURATION: a router in this namespace, its daemons answering and configured with what
# is read (as "show running-config" would print it). FOLDER is made; its path is absolute and short (sockets), and it
# lies directly in the test's own folder, which is opened so that the user frr gets there.
_frrStart() {
   local folder=$2
   mkdir "$folder" && chmod go+x "$(dirname "$folder")" || fail "cannot make the router's folder"
   cat > "$folder/frr.conf"
   : > "$folder/none.conf"
   : > "$folder/vtysh.conf"
   chown -R frr:frr "$folder"
   _frrDaemon "$1" "$folder" zebra
   _frrUntil "$folder" zebra test -S "$folder/zserv.api"
   _frrDaemon "$1" "$folder" bgpd
   _frrUntil "$folder" zebra _frrAnswers "$folder" zebra
   _frrUntil "$folder" bgpd _frrAnswers "$folder" bgpd
   run vtysh --config_dir "$folder" --vty_socket "$folder" -f "$folder/frr.conf"
   if [ "$status" -ne 0 ] || grep -q '^%\|^line [0-9]' <<< "$output"; then
      fail "the router should take its configuration"
   fi
}

# _frrDaemon NAMESPACE FOLDER zebra|bgpd: this one alone, without a configuration.
_frrDaemon() {
   # All that keeps FRR to the folder; no port for telnet.
   ip netns exec "$1" "$frrDaemons/$3" -P 0 --vty_socket "$2" -z "$2/zserv.api" -i "$2/$3.pid" -f "$2/none.conf" \
      --log "file:$2/$3.log" > "$2/$3.out" 2>&1 < /dev/null &
   echo $! > "$2/$3.child"
   disown # the shell has nothing to say when it is killed
}

# _frrKill FOLDER DAEMON...: without a word to its neighbours.
_frrKill() {
   local folder=$1 daemon pid
   shift
   for daemon in "$@"; do
      pid=$(cat "$folder/$daemon.child")
      while kill -9 "$pid" 2> /dev/null; do
         sleep 0.02
      done
   done
}

# _frr FOLDER COMMAND...: what vtysh prints for these commands, one after the other.
_frr() {
   local folder=$1 commands=() command
   shift
   for command in "$@"; do
      commands+=(-c "$command")
   done
   vtysh --config_dir "$folder" --vty_socket "$folder" "${commands[@]}"
}

# _frrEstablished FOLDER COUNT [vrf VRF]: so many sessions of an instance of BGP are up, each family counted.
_frrEstablished() {
   [ "$(_frr "$1" "show bgp ${*:3} summary json" 2> /dev/null | grep -c '"state":"Established"')" -ge "$2" ]
}

_frrAnswers() {
   vtysh --config_dir "$1" --vty_socket "$1" -d "$2" -c 'show version' > /dev/null 2>&1
}
# _frrUntil FOLDER DAEMON CONDITION...
_frrUntil() {
   local end=$((SECONDS + 30)) folder=$1 daemon=$2
   shift 2
   until "$@"; do
      kill -0 "$(cat "$folder/$daemon.child")" 2> /dev/null && [ $SECONDS -lt $end ] ||
         output=$(cat "$folder/$daemon.out" "$folder/$daemon.log" 2> /dev/null) fail "$daemon should have begun to answer"
      sleep 0.1
   done
}
