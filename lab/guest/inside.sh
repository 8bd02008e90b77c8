#!/usr/bin/env bash
# The first process of the guest, started by guest.sh. It creates a server and two hosts "a" and "b" that mount its
# share. Each host is a network namespace with its own address and name. Both mounts are in one mount namespace, so
# the suites for two mounts run unchanged. At the end it switches the machine off.
#
# With a verb, the script is the control program of the suites:
#   cut a|b SECONDS        disconnects the host from the network for this time
#   restart-server         stops the server and starts it again
#   mount a|b [none|kept], unmount a|b
#                          none: the host caches nothing; kept: it caches the server's answers for a second
#   round-trips            prints "NAME COUNT" for each kind, of both hosts, since the last call
#   lease                  prints how many seconds the server keeps the locks of a host that does not respond
set -uo pipefail

export PATH=/usr/sbin:/usr/bin:/sbin:/bin
export HOME=/root LC_ALL=C.UTF-8
self=${BASH_SOURCE[0]}
here=$(dirname "$self")
readonly lease=15 # seconds; also how long an NFS server waits after its start

say() { printf '== %s\n' "$*"; }
die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# ---- the machine ----------------------------------------------------------------------------------

start_machine() {
  mountpoint -q /sys || mount -t sysfs sysfs /sys
  [ -c /dev/null ] || mount -t devtmpfs dev /dev
  mkdir -p /dev/pts /dev/shm
  mount -t devpts devpts /dev/pts
  mount -t tmpfs -o mode=1777 shm /dev/shm
  mount -t tmpfs -o mode=755 run /run
  mount -t tmpfs -o mode=1777 tmp /tmp
  ln -sfn /proc/self/fd /dev/fd
  mkdir -p /mnt/build /mnt/run /srv/tree /srv/small /mnt/a /mnt/b /mnt/small-a /mnt/small-b /run/lock
  mount -t 9p -o trans=virtio,version=9p2000.L,ro,msize=262144,cache=loose build /mnt/build
  mount -t 9p -o trans=virtio,version=9p2000.L,msize=262144 run /mnt/run
  mount /dev/vdb /srv/tree && mount /dev/vdc /srv/small || die "cannot mount the server's disks"
  hostname server
  ip link set lo up
}

# The network: a bridge that connects the hosts and the server.
start_network() {
  local host number=1
  ip link add net type bridge
  ip address add 10.77.0.1/24 dev net
  ip link set net up
  for host in a b; do
    number=$((number + 1))
    ip netns add "$host"
    ip link add "to-$host" type veth peer name eth0 netns "$host"
    ip link set "to-$host" master net up
    ip -n "$host" link set lo up
    ip -n "$host" address add "10.77.0.$number/24" dev eth0
    ip -n "$host" link set eth0 up
    # An NFS server identifies a host by its name.
    touch "/run/uts-$host"
    unshare --uts="/run/uts-$host" hostname "host-$host"
  done
}

# as_host a|b <command...>: runs the command with the host's network and name, and all mounts.
as_host() {
  local host=$1
  shift
  nsenter --net="/run/netns/$host" --uts="/run/uts-$host" "$@"
}

# ---- the shares -----------------------------------------------------------------------------------

start_nfs() {
  modprobe nfsd
  mountpoint -q /proc/fs/nfsd || mount -t nfsd nfsd /proc/fs/nfsd
  mkdir -p /var/lib/nfs/rpc_pipefs /var/lib/nfs/v4recovery
  mountpoint -q /var/lib/nfs/rpc_pipefs || mount -t rpc_pipefs sunrpc /var/lib/nfs/rpc_pipefs
  printf '%s\n' '/srv *(rw,fsid=0,no_root_squash,no_subtree_check,sync)' \
    '/srv/tree *(rw,no_root_squash,no_subtree_check,sync)' \
    '/srv/small *(rw,no_root_squash,no_subtree_check,sync)' >/etc/exports
  # No delegations: if one is returned during a lock call, the client of Linux 6.1 loses that lock (EIO).
  echo 0 >/proc/sys/fs/leases-enable
  echo "$lease" >/proc/fs/nfsd/nfsv4leasetime
  echo "$lease" >/proc/fs/nfsd/nfsv4gracetime
  pidof nfsdcld >/dev/null || nfsdcld || true
  exportfs -ra || die "cannot export the folders"
  rpc.nfsd --no-nfs-version 3 --nfs-version 4.2 --no-udp 8 || die "the NFS server does not start"
  pidof rpc.mountd >/dev/null || rpc.mountd --no-nfs-version 3 || die "rpc.mountd does not start"
}
stop_nfs() {
  rpc.nfsd 0
  [ "$(cat /proc/fs/nfsd/threads)" = 0 ] || die "the NFS server does not stop"
}
mount_nfs() {
  local -A options=([none]=noac,lookupcache=none [kept]=actimeo=1)
  as_host "$1" mount -t nfs4 -o "vers=4.2,${options[$3]}" "10.77.0.1:/$2" "$4"
}
# Without SEQUENCE, which renews a lease: no program waits for it.
calls_nfs() {
  awk '/^device / { counts = $5 ~ "^/mnt/[ab]$" }
       counts && $1 ~ /^[A-Z_]+:$/ && $1 != "SEQUENCE:" { sub(":", "", $1); print $1, $2 }' /proc/self/mountstats
}

start_smb() {
  mkdir -p /run/samba /var/lib/samba/private /var/log/samba
  cat >/etc/samba/smb.conf <<'CONF'
[global]
  workgroup = LAB
  server role = standalone server
  disable netbios = yes
  smb ports = 445
  load printers = no
  log level = 0
[tree]
  path = /srv/tree
  read only = no
[small]
  path = /srv/small
  read only = no
CONF
  printf 'lab\nlab\n' | smbpasswd -s -a root >/dev/null || die "the server has no user"
  smbd -D || die "the SMB server does not start"
}
stop_smb() { pkill -x smbd; while pgrep -x smbd >/dev/null; do sleep 0.1; done; }

start_ksmbd() {
  modprobe ksmbd
  mkdir -p /etc/ksmbd
  cat >/etc/ksmbd/ksmbd.conf <<'CONF'
[global]
	workgroup = LAB
[tree]
	path = /srv/tree
	read only = no
[small]
	path = /srv/small
	read only = no
CONF
  [ -s /etc/ksmbd/ksmbdpwd.db ] || ksmbd.adduser -a root -p lab >/dev/null || die "the server has no user"
  ksmbd.mountd || die "the SMB server does not start"
}
stop_ksmbd() {
  ksmbd.control -s
  while pgrep -x ksmbd.mountd >/dev/null; do sleep 0.1; done
}

mount_smb() {
  local -A options=([none]=cache=none,actimeo=0 [kept]=actimeo=1)
  modprobe cifs
  as_host "$1" mount -t cifs -o "vers=3.1.1,ip=10.77.0.1,username=root,password=lab,${options[$3]}" \
    "//10.77.0.1/$2" "$4"
}
calls_smb() {
  awk '/^[0-9]+\) / { counts = $2 ~ /tree$/ }
       counts && $3 == "total" { sub(":", "", $1); print $1, $2 }' /proc/fs/cifs/Stats
}

mount_ksmbd() { mount_smb "$@"; }
calls_ksmbd() { calls_smb; }

# mount_share a|b [none|kept]: mounts the tree and the small disk.
mount_share() {
  local try
  for try in 1 2 3 4 5 6; do
    "mount_$share" "$1" tree "${2:-none}" "/mnt/$1" && break
    [ "$try" -lt 6 ] || die "cannot mount the share on host $1"
    sleep 1
  done
  mountpoint -q "/mnt/small-$1" || "mount_$share" "$1" small none "/mnt/small-$1" ||
    die "cannot mount the small disk on host $1"
}
unmount_share() { umount -f -l "/mnt/$1"; }

# ---- verbs of the suites --------------------------------------------------------------------------

verb_cut() {
  ip link set "to-$1" down || die "cannot disconnect host $1 from the network"
  sleep "$2"
  ip link set "to-$1" up || die "cannot connect host $1 to the network again"
}
verb_restart-server() {
  "stop_$share"
  "start_$share"
}
verb_mount() { mount_share "$@"; }
verb_unmount() { unmount_share "$1"; }
verb_lease() { echo "$lease"; }
# After a new mount the counts begin at 0.
verb_round-trips() {
  "calls_$share" | awk '{ sum[$1] += $2 } END { for (name in sum) print name, sum[name] }' >/run/calls
  touch /run/calls.before
  awk 'NR == FNR { before[$1] = $2; next }
       { since = $2 - before[$1]; if (since < 0) since = $2 } since > 0 { print $1, since }' \
    /run/calls.before /run/calls
  mv /run/calls /run/calls.before
}

# The first process of any other machine, for example of a container, must not reach the end of this script.
if [ $$ -ne 1 ] || ! grep -qw init=/first /proc/cmdline; then
  share=${VU_SHARED_ON:?}
  verb=${1:?a verb}
  shift
  declare -F "verb_$verb" >/dev/null || die "inside.sh: unknown verb '$verb'"
  "verb_$verb" "$@"
  exit
fi

# ---- the run --------------------------------------------------------------------------------------

work() {
  start_machine
  mapfile -t words </mnt/run/words
  share=${words[0]}
  export VU_SHARED_ON=$share VU_SHARED_DIR=/tmp/shared VU_SHARED_CONTROL="bash $self"
  export VU_SHARED_A=/mnt/a VU_SHARED_B=/mnt/b
  mkdir -p "$VU_SHARED_DIR/local"
  start_network
  "start_$share"
  mount_share a
  mount_share b
  say "$share is mounted on both hosts, $(cut -d. -f1 /proc/uptime) s after the machine's start"
  . "$here/parts.sh"
  run_all "${words[@]:1}"
}

# Switches the machine off, whatever the result is.
main() {
  (work)
  echo $? >/mnt/run/status
  sync
  umount /mnt/run
  echo o >/proc/sysrq-trigger
  while true; do :; done
}
main
