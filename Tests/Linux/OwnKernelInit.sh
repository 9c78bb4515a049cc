#!/bin/bash
# The first process of the kernel that OwnKernel.sh starts. The root is the machine's, read only: whatever is to be
# written goes to memory.
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 HOME=/run/home TMPDIR=/run/tmp
export MAINT_RESULTS=/run/host/results
exec > /dev/console 2>&1
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t tmpfs run /run
mkdir -p /run/home /run/tmp /run/lock /run/netns /run/host /run/modules/lib/modules /dev/shm
mount -t tmpfs shm /dev/shm
ln -sf /proc/self/fd /dev/fd
ln -sf fd/0 /dev/stdin
ln -sf fd/1 /dev/stdout
ln -sf fd/2 /dev/stderr
# The one folder of the machine's that is written to.
mount -t hostfs -o "$MAINT_RUN" host /run/host

# Modules are where this machine's kernel does not look for them; what is asked for later is found there, too.
mount --bind /usr/lib/uml/modules /run/modules/lib/modules
printf '#!/bin/sh\nexec modprobe -d /run/modules "$@"\n' > /run/modules/modprobe
chmod +x /run/modules/modprobe
echo /run/modules/modprobe > /proc/sys/kernel/modprobe
for module in ipv6 bonding team team_mode_loadbalance team_mode_roundrobin 8021q bridge veth dummy sch_netem; do
   modprobe -d /run/modules $module || echo "the module $module cannot be loaded"
done
# Bonding makes one by itself.
ip link del bond0 2> /dev/null
ip link set lo up

stty -F /dev/ttyS0 raw -echo
mkdir /run/tmp/here
cd /run/tmp/here || exit
# Not straight to the serial line, for which programs would draw and colour. Ended a little before the kernel would be,
# so that it can tell what it has been waiting for.
setsid timeout --kill-after=5 "$MAINT_LIMIT" bash -c "$(cat "/run/host/command")" < /dev/null 2>&1 |
   cat > /dev/ttyS0
echo "${PIPESTATUS[0]}" > /run/host/status
sync
echo o > /proc/sysrq-trigger
sleep 30
