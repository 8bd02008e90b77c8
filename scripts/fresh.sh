#!/usr/bin/env bash
# Runs the two commands of the README as a new user on a new machine:
#
#   scripts/fresh.sh <bookworm|trixie> [demo|test]...     without a command: both
#
# Creates a minimal Debian below build/fresh, with a user that may use sudo and a clone of the last commit. The folder
# remains until the next run. The mounts and processes are in namespaces: they end with this script, even if it is killed.
# It uses the machine's network, package sources and proxy. Needs root or sudo.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly user=maria

# ---- inside: start of the machine -----------------------------------------------------------------

# Mounts the file systems of a machine, makes <root> the root folder, and runs the command as the user.
# boot <root> <command...>
boot() {
  local root=$1
  shift
  mount --make-rprivate /
  mount --bind "$root" "$root"
  mount -t proc -o nosuid,nodev,noexec proc "$root/proc"
  mount -t sysfs -o ro,nosuid,nodev,noexec sysfs "$root/sys"
  mount -t tmpfs -o nosuid,mode=755 dev "$root/dev"
  local device
  for device in null zero full random urandom tty; do
    touch "$root/dev/$device"
    mount --bind "/dev/$device" "$root/dev/$device"
  done
  mkdir "$root/dev/pts" "$root/dev/shm"
  mount -t devpts -o nosuid,noexec,newinstance,gid=5,mode=620,ptmxmode=666 devpts "$root/dev/pts"
  mount -t tmpfs -o nosuid,nodev,mode=1777 shm "$root/dev/shm"
  mount -t tmpfs -o nosuid,nodev,mode=755 run "$root/run"
  mount -t tmpfs -o nosuid,nodev,mode=1777 tmp "$root/tmp"
  ln -s pts/ptmx "$root/dev/ptmx"
  ln -s /proc/self/fd "$root/dev/fd"
  ln -s /proc/self/fd/0 "$root/dev/stdin"
  ln -s /proc/self/fd/1 "$root/dev/stdout"
  ln -s /proc/self/fd/2 "$root/dev/stderr"
  cd "$root"
  mkdir -p old
  pivot_root . old
  umount -l /old
  rmdir /old
  # An empty environment: no compiler cache and no settings of the caller.
  exec env -i TERM="${TERM:-dumb}" PATH=/usr/local/bin:/usr/bin:/bin HOME=/home/$user \
    setpriv --reuid=1000 --regid=1000 --init-groups --reset-env \
    bash -c 'cd ~/project && exec "$@"' - "$@"
}

if [ "${1-}" = --boot ]; then
  boot "${@:2}"
fi

# ---- outside: creating the machine ----------------------------------------------------------------

suite=${1:?bookworm or trixie}
shift
case $suite in
  bookworm | trixie) ;;
  *) die "unknown Debian '$suite': use bookworm or trixie" ;;
esac
for command in "$@"; do
  case $command in
    demo | test) ;;
    *) die "unknown command '$command': use demo or test" ;;
  esac
done
[ $# -gt 0 ] || set -- demo test

if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || die "creating and mounting a Debian needs root, and sudo is missing: run this as root"
  # Otherwise root would own build/, and no other command could write there.
  mkdir -p "$DEPS"
  exec sudo "${BASH_SOURCE[0]}" "$suite" "$@"
fi
unshare --mount --pid --fork true 2>/dev/null ||
  die "unshare fails, so nothing can be mounted here: in a container, run it privileged"

fresh=$BUILD/fresh
root=$fresh/$suite
mkdir -p "$fresh/packages"
enter_step "fresh-$suite"

main=$(package_sources "$suite" | sed -n '1s/ .*//p')

say "a fresh Debian ($suite) in $root"
rm -rf --one-file-system "$root"
quietly "$fresh/$suite-debootstrap.log" "creating a minimal Debian" debootstrap --variant=minbase \
  --include=git,sudo --cache-dir="$fresh/packages" "$suite" "$root" "$main"

package_sources "$suite" | sed 's/^/deb /; s/$/ main/' >"$root/etc/apt/sources.list"
apt-config dump | grep -E '^Acquire::(Check-|(http|https|ftp)::Proxy|Retries)' \
  >"$root/etc/apt/apt.conf.d/90machine" || true
cp -L /etc/resolv.conf "$root/etc/resolv.conf"
printf '127.0.0.1 localhost %s\n' "$suite" >"$root/etc/hosts"
echo "$suite" >"$root/etc/hostname"
chroot "$root" useradd --uid 1000 --create-home --shell /bin/bash "$user"
echo "$user ALL=(ALL) NOPASSWD: ALL" >"$root/etc/sudoers.d/$user"

[ -z "$(git -C "$ROOT" status --porcelain)" ] || say "note: this runs the last commit, without your uncommitted changes"
git -c safe.directory='*' clone -q "file://$ROOT" "$root/home/$user/project"
chown -R 1000:1000 "$root/home/$user"

# Elapsed seconds, then CPU seconds in user and system mode.
TIMEFORMAT='%R %U %S'
failed=()
results=()
for command in "$@"; do
  log=$fresh/$suite-$command.log
  say "./dev $command, as $user on $suite (log: $log)"
  status=0
  {
    time (
      exec {step_lock}>&-
      exec unshare --mount --pid --fork --kill-child "${BASH_SOURCE[0]}" --boot "$root" "./dev" "$command"
    ) 2>&1 | tee "$log" || status=$?
  } 2>"$fresh/time"
  read -r clock user_time system_time <"$fresh/time" || true
  results+=("$(printf '%-5s on %s: %s, %.0f s elapsed, %.0f s of CPU' "$command" "$suite" \
    "$([ "$status" -eq 0 ] && echo passed || echo FAILED)" "$clock" \
    "$(echo "$user_time $system_time" | awk '{ print $1 + $2 }')")")
  [ "$status" -eq 0 ] || failed+=("$command")
done
for result in "${results[@]}"; do say "$result"; done
[ "${#failed[@]}" -eq 0 ] || die "failed on $suite: ${failed[*]}; see the logs $fresh/$suite-*.log"
