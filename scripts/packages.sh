#!/usr/bin/env bash
# Installs what Debian offers and is missing: scripts/packages.sh <set...>
# Sets: native (build and test for Linux), windows (cross-build for Windows and run under Wine), windows-clang
# (Clang beside it), windows-ucrt (compilers for the runtime of Windows 10),
# bench (yardsticks and tools of the benchmarks), docs (the site of reference and guides), package (packages
# for Debian and Windows), report (a browser that opens the client's report), coverage (what tests execute),
# mutants (defects put into a copy of the sources), valgrind,
# tidy (what reads sources), fresh (a minimal Debian), guest (an emulated machine), shared (a network file system),
# fuzz (Clang with its fuzzer).
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# Header-only for what is built here; the Windows build gets copies of them.
client=(libcli11-dev nlohmann-json3-dev libfmt-dev libxxhash-dev)
# What tries the C interface from other sides: another standard library, Python, the stored ABI.
borders=(libc++-dev libc++abi-dev python3 python3-pytest abigail-tools)
# clang reads the exported headers, and builds programs beyond the C interface.
# The last two make the file systems whose power is cut.
native=(cmake ninja-build g++ clang pkg-config googletest libpoco-dev libutfcpp-dev "${client[@]}"
  e2fsprogs xfsprogs "${borders[@]}")
# The last four fetch and unpack a source package.
windows=(cmake ninja-build googletest libutfcpp-dev "${client[@]}" g++-mingw-w64-x86-64-posix wine locales
  wine64 ca-certificates bzip2 xz-utils patch)
windows_clang=(clang lld)
windows_ucrt=(g++-mingw-w64-ucrt64)
bench=(libbenchmark-dev libsqlite3-dev liblmdb-dev valgrind gnuplot-nox)
docs=(doxygen python3)
# The last two sign what is tried, with a certificate that is made for it.
package=(debhelper dpkg-dev lintian mmdebstrap nsis zip unzip openssl osslsigncode)
# Its service stays as the package leaves it; what is run is a daemon of our own (lab/volume/shared.sh).
shared=(glusterfs-server glusterfs-client iproute2)
report=(chromium fonts-dejavu-core)
coverage=(clang llvm)
mutants=(patch rsync)
tidy=(clang clang-tidy libc++-dev python3)
fresh=(debootstrap)
guest=(debootstrap e2fsprogs qemu-system-x86)
valgrind=(valgrind)

# The last one names functions in a report.
fuzz=(cmake ninja-build clang-14 libclang-rt-14-dev llvm-14)

wanted=()
for set in "$@"; do
  case $set in
    native) wanted+=("${native[@]}") ;;
    windows) wanted+=("${windows[@]}") ;;
    windows-clang) wanted+=("${windows_clang[@]}") ;;
    windows-ucrt)
      release=$(. /etc/os-release 2>/dev/null && echo "${VERSION_ID:-99}")
      [ "${release%%.*}" -ge 13 ] || die "g++-mingw-w64-ucrt64 is missing: Debian has it from 13 on, and this is $release"
      wanted+=("${windows_ucrt[@]}")
      ;;
    bench) wanted+=("${bench[@]}") ;;
    docs) wanted+=("${docs[@]}") ;;
    package) wanted+=("${package[@]}") ;;
    report) wanted+=("${report[@]}") ;;
    coverage) wanted+=("${coverage[@]}") ;;
    mutants) wanted+=("${mutants[@]}") ;;
    valgrind) wanted+=("${valgrind[@]}") ;;
    shared) wanted+=("${shared[@]}") ;;
    tidy) wanted+=("${tidy[@]}") ;;
    fresh) wanted+=("${fresh[@]}") ;;
    guest) wanted+=("${guest[@]}") ;;
    fuzz) wanted+=("${fuzz[@]}") ;;
    *) die "scripts/packages.sh knows no package set '$set'; it knows native, windows, windows-clang, windows-ucrt, bench, docs, package, report, coverage, mutants, valgrind, shared, tidy, fresh, guest and fuzz" ;;
  esac
done

command -v dpkg-query >/dev/null && command -v apt-get >/dev/null ||
  die "this needs Debian's apt-get, which is not here; build with CMake by hand (see CMakePresets.json)"

missing() {
  local package
  for package in $(printf '%s\n' "${wanted[@]}" | sort -u); do
    case $(dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null || true) in
      ii*) ;;
      *) echo "$package" ;;
    esac
  done
}

mapfile -t packages < <(missing)
[ "${#packages[@]}" -gt 0 ] || exit 0
enter_step packages
mapfile -t packages < <(missing)
[ "${#packages[@]}" -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null ||
    die "packages are missing and there is no sudo; as root: apt-get install ${packages[*]}"
  as_root=(sudo)
fi
apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -y -q -o DPkg::Lock::Timeout=900)

log=$BUILD/packages.log
mkdir -p "$BUILD"
# What is being installed is in the log.
[ ! -t 1 ] || printf '== packages: installing %d ...' "${#packages[@]}"
wanted_count=${#packages[@]}

# One attempt; apt-get waits for dpkg's lock by itself, but not for that of the package lists.
attempt() {
  {
    echo "--- ${packages[*]}"
    echo "--- apt-get update"
    "${apt[@]}" update || echo "(the update failed; going on with the lists that are there)"
    echo "--- apt-get install"
    "${apt[@]}" install --no-install-recommends "${packages[@]}"
  } >"$log" 2>&1
}

for try in 1 2 3 4 5 6; do
  if attempt; then
    mapfile -t packages < <(missing)
    [ "${#packages[@]}" -eq 0 ] || die "apt-get left these packages out: ${packages[*]}; see $log"
    [ ! -t 1 ] || printf '\r\033[K'
    say "packages: $wanted_count installed, with what they need, $SECONDS s"
    exit 0
  fi
  grep -q -e 'Could not get lock' -e 'Unable to acquire' "$log" || break
  say "another program is using apt; waiting (try $try of 6)"
  sleep 10
done
lines_that_matter "$log" >&2
die "apt-get could not install ${packages[*]}; check the network and the package sources, then run this again (log: $log)"
