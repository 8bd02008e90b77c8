# Creates the guest's disk and kernel, once. Sourced by guest.sh, never run.

# Debian's release in the guest: that of this machine, or VU_GUEST_SUITE. In Debian 12 the ksmbd tools do not work
# with the kernel: each share is "BAD_NETWORK_NAME".
suite=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
[ "$share" != ksmbd ] || suite=trixie
suite=${VU_GUEST_SUITE:-$suite}
case $suite in
  bookworm | trixie) ;;
  *) die "./dev shared: VU_GUEST_SUITE is '$suite'; use bookworm or trixie" ;;
esac
folder=$BUILD/guest/$suite-$share
disk=$folder/disk.img
packages=(linux-image-amd64 initramfs-tools zstd iproute2 kmod procps libstdc++6)
case $share in
  nfs) packages+=(nfs-kernel-server nfs-common) ;;
  smb) packages+=(samba cifs-utils) ;;
  ksmbd) packages+=(ksmbd-tools cifs-utils) ;;
esac

# The shared libraries of a program that a minimal Debian lacks.
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
  quietly "$folder/debootstrap.log" "creating a minimal Debian" debootstrap --variant=minbase \
    --cache-dir="$BUILD/fresh/packages" "$suite" "$root" "$main"
  package_sources "$suite" | sed 's/^/deb /; s/$/ main/' >"$root/etc/apt/sources.list"
  apt-config dump | grep -E '^Acquire::(Check-|(http|https|ftp)::Proxy|Retries)' \
    >"$root/etc/apt/apt.conf.d/90machine" || true
  cp -L /etc/resolv.conf "$root/etc/resolv.conf"
  # Packages start no services during the installation.
  printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"
  chmod +x "$root/usr/sbin/policy-rc.d"
  quietly "$folder/packages.log" "installing the guest's packages" \
    env DEBIAN_FRONTEND=noninteractive chroot "$root" sh -c \
    'apt-get update && apt-get install -y --no-install-recommends "$@"' - "${packages[@]}"
  # The tested programs are those of this machine, so they need its libraries.
  cp -L "$@" "$root/usr/local/lib/"
  chroot "$root" ldconfig
  # The first process. The rest of its work is in inside.sh, which is not on the disk.
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

# The guest is complete if the file .complete exists.
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
  flock -n "$in_use" || die "the guest in $folder must be created again, but another run uses it: wait for its end"
  say "creating a guest with Debian's kernel in $folder (once for each kind of share, some minutes)"
  rm -rf --one-file-system "$folder"
  mkdir -p "$folder"
  make_root "$root" "${libraries[@]}"
  cp "$root"/boot/vmlinuz-* "$folder/vmlinuz"
  cp "$root"/boot/initrd.img-* "$folder/initrd"
  quietly "$folder/disk.log" "creating the guest's disk" mke2fs -q -t ext4 -d "$root" "$disk" 3G
  rm -rf --one-file-system "$root"
  echo "$key" >"$folder/.complete"
}
