#!/usr/bin/env bash
# Runs the suites on a network share in a guest: an emulated machine (qemu) with Debian's kernel, because the
# kernel here may lack the clients of network shares. For ./dev shared --on nfs|smb|ksmbd:
#   lab/guest/guest.sh BIN nfs|smb|ksmbd [--quick] [PART...]    BIN: the folder of the built programs
# The guest is created once in build/guest. Each run starts from the same disk and discards its changes. The guest
# has only an internal network: a server and two hosts in namespaces (inside.sh). VU_GUEST_SUITE selects another
# release of Debian; it must not be older than this machine's.
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"

cannot() {
  printf './dev shared: not run: %s\n' "$1" >&2
  exit 77
}

bin=${1:?the folder of the programs}
share=${2:?nfs, smb or ksmbd}
case $share in
  nfs | smb | ksmbd) ;;
  *) die "./dev shared: unknown share '$share'; use nfs, smb or ksmbd" ;;
esac
shift
here=$(dirname "${BASH_SOURCE[0]}")
(. "$here/parts.sh" && check_words "${@:2}")
. "$(dirname "${BASH_SOURCE[0]}")/machine.sh"

# run_guest <BIN> <words for inside.sh...>
run_guest() {
  local bin=$1
  shift
  run=$(mktemp -d "$folder/run-XXXXXX")
  trap 'rm -rf "$run"' EXIT
  printf '%s\n' "$@" >"$run/words"
  # The server's disks are new for each run. The second one is small, for the full-disk suite.
  truncate -s 2G "$run/tree.img"
  truncate -s 5M "$run/small.img"
  mke2fs -q -t ext4 "$run/tree.img"
  mke2fs -q -t ext4 -O ^has_journal -m 0 -b 1024 -N 4096 "$run/small.img"
  # qemu ends with this script in any case.
  setpriv --pdeathsig KILL qemu-system-x86_64 -accel tcg,thread=multi -cpu max -smp 2 -m 2048 -no-reboot -nic none \
    -display none -monitor none -serial stdio \
    -kernel "$folder/vmlinuz" -initrd "$folder/initrd" \
    -append "console=ttyS0 root=/dev/vda rw init=/first quiet loglevel=3 panic=-1 net.ifnames=0" \
    -drive "file=$disk,if=virtio,format=raw,snapshot=on" \
    -drive "file=$run/tree.img,if=virtio,format=raw,cache=unsafe" \
    -drive "file=$run/small.img,if=virtio,format=raw,cache=unsafe" \
    -virtfs "local,path=$bin/..,mount_tag=build,security_model=none,readonly=on" \
    -virtfs "local,path=$ROOT/lab,mount_tag=lab,security_model=none,readonly=on" \
    -virtfs "local,path=$run,mount_tag=run,security_model=none" </dev/null |
    sed -u 's|\r||g' | tee "$folder/console.log"
  [ -f "$run/status" ] || die "the guest ended too early; see $folder/console.log"
  return "$(cat "$run/status")"
}

[ "$(id -u)" -eq 0 ] || cannot "it needs root to create the guest's disk"
for tool in qemu-system-x86_64 debootstrap mke2fs; do
  command -v "$tool" >/dev/null || cannot "'$tool' is not installed (scripts/packages.sh guest)"
done
(make_guest "$bin")
# No other run creates the guest again while it is in use.
exec {in_use}>"$BUILD/guest/.in-use-$suite-$share"
flock -s "$in_use"
run_guest "$bin" "$@"
