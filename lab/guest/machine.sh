# Makes the guest's disk, kernel and first programs, once. Sourced by guest.sh, never run.

# Debian's release in the guest: the machine's own, or the one that VU_GUEST_SUITE names. The tools of ksmbd in
# Debian 12 do not speak with Debian 12's kernel: each share is "BAD_NETWORK_NAME".
suite=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
[ "$share" != ksmbd ] || suite=trixie
suite=${VU_GUEST_SUITE:-$suite}
case $suite in
  bookworm | trixie) ;;
  *) die "./dev shared: VU_GUEST_SUITE is '$suite'; the guest is Debian's bookworm or trixie" ;;
esac
folder=$BUILD/guest/$suite-$share
disk=$folder/disk.img
packages=(linux-image-amd64 initramfs-tools zstd iproute2 kmod procps libstdc++6)
case $share in
  nfs) packages+=(nfs-kernel-server nfs-common) ;;
  smb) packages+=(samba cifs-utils) ;;
  ksmbd) packages+=(ksmbd-tools cifs-utils) ;;
esac

# The shared libraries of a program that no Debian has by itself.
libraries_of() {
  ldd "$1" | sed -n 's/.* => \(\/.*\) (0x.*/\1/p' | grep -vF "$BUILD/" |
    grep -vE '/(libc|libm|libstdc\+\+|libgcc_s)\.so' | sort -u
}

# make_root FOLDER LIBRARY...
make_root() {
  local root=$1 main
  shift
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
    'apt-get update && apt-get install -y --no-install-recommends "$@"' - "${packages[@]}"
  # The programs come from the machine that runs the guest, and so do their libraries.
  cp -L "$@" "$root/usr/local/lib/"
  chroot "$root" ldconfig
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
  key=$(content_key "$ROOT/lab/guest/machine.sh" "${libraries[@]}")
  [ "$(cat "$folder/.complete" 2>/dev/null)" != "$key" ] || return 0
  enter_step "guest-$suite-$share"
  [ "$(cat "$folder/.complete" 2>/dev/null)" != "$key" ] || return 0
  mkdir -p "$BUILD/guest"
  exec {in_use}>"$BUILD/guest/.in-use-$suite-$share"
  flock -n "$in_use" || die "another run uses the guest in $folder, which has to be made anew: wait for its end"
  say "a guest with Debian's kernel in $folder (once for each kind of share, some minutes)"
  rm -rf --one-file-system "$folder"
  mkdir -p "$folder"
  make_root "$root" "${libraries[@]}"
  cp "$root"/boot/vmlinuz-* "$folder/vmlinuz"
  cp "$root"/boot/initrd.img-* "$folder/initrd"
  quietly "$folder/disk.log" "making the guest's disk" mke2fs -q -t ext4 -d "$root" "$disk" 3G
  rm -rf --one-file-system "$root"
  echo "$key" >"$folder/.complete"
}
