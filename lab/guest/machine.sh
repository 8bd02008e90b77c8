# Makes the guest's disk, kernel and first programs, once. Sourced by guest.sh, never run.

suite=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
folder=$BUILD/guest/$suite
disk=$folder/disk.img
# Server and clients; and what the library's programs link.
packages=(linux-image-amd64 initramfs-tools zstd nfs-kernel-server nfs-common samba cifs-utils iproute2 kmod
  procps)

# The packages that hold the shared libraries of a program, without those that every Debian has.
libraries_of() {
  ldd "$1" | awk '$3 ~ /^\// { print $3 }' | grep -v "^$BUILD" | xargs -r -n 1 readlink -f |
    sed 's|^/usr/lib/|/lib/|; p; s|^|/usr|' | xargs -r dpkg-query -S 2>/dev/null | cut -d: -f1 | sort -u
}

make_root() {
  local root=$1 main
  main=$(package_sources "$suite" | sed -n '1s/ .*//p')
  mkdir -p "$BUILD/fresh/packages"
  quietly "$folder/debootstrap.log" "making a minimal Debian" debootstrap --variant=minbase \
    --cache-dir="$BUILD/fresh/packages" "$suite" "$root" "$main"
  package_sources "$suite" | sed 's/^/deb /; s/$/ main/' >"$root/etc/apt/sources.list"
  apt-config dump | grep -E '^Acquire::(Check-|(http|https|ftp)::Proxy|Retries)' \
    >"$root/etc/apt/apt.conf.d/90machine" || true
  cp -L /etc/resolv.conf "$root/etc/resolv.conf"
  # Nothing is started while it is installed.
  printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"
  chmod +x "$root/usr/sbin/policy-rc.d"
  quietly "$folder/packages.log" "installing the guest's packages" \
    env DEBIAN_FRONTEND=noninteractive chroot "$root" sh -c \
    'apt-get update && apt-get install -y --no-install-recommends "$@"' - "${packages[@]}" "${@:2}"
  # The first process: what it does beyond this is not on the disk (inside.sh).
  cat >"$root/first" <<'FIRST'
#!/bin/bash
mount -t proc proc /proc
modprobe 9pnet_virtio
mkdir -p /mnt/lab
mount -t 9p -o trans=virtio,version=9p2000.L,ro,msize=262144 lab /mnt/lab
exec bash /mnt/lab/guest/inside.sh
FIRST
  chmod +x "$root/first"
  rm -f "$root"/var/cache/apt/archives/*.deb
}

# Complete only when its stamp is there.
make_guest() {
  local key root=$folder/root
  local -a libraries
  mapfile -t libraries < <(libraries_of "$1/api_tests")
  key=$(content_key "$ROOT/lab/guest/machine.sh")-${libraries[*]}
  [ "$(cat "$folder/.complete" 2>/dev/null)" != "$key" ] || return 0
  enter_step guest
  [ "$(cat "$folder/.complete" 2>/dev/null)" != "$key" ] || return 0
  say "a guest with Debian's kernel in $folder (once, some minutes)"
  rm -rf --one-file-system "$folder"
  mkdir -p "$folder"
  make_root "$root" "${libraries[@]}"
  cp "$root"/boot/vmlinuz-* "$folder/vmlinuz"
  cp "$root"/boot/initrd.img-* "$folder/initrd"
  quietly "$folder/disk.log" "making the guest's disk" mke2fs -q -t ext4 -d "$root" "$disk" 3G
  rm -rf --one-file-system "$root"
  echo "$key" >"$folder/.complete"
}
