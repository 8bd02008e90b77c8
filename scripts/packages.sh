#!/usr/bin/env bash
# Installs the missing Debian packages of the sets with apt-get, as root or through sudo: scripts/packages.sh <set...>
# Sets: native (build and test for Linux), windows (cross-build for Windows, Wine), windows-clang (Clang for
# Windows), windows-ucrt (compilers for the runtime of Windows 10), bench (benchmarks), docs (the site of reference
# and guides), package (packages for Debian and Windows), report (a browser for the client's report), coverage,
# mutants (mutation tests), valgrind, tidy (static analysis), fresh (a minimal Debian), guest (an emulated machine),
# shared (a network file system), fuzz (Clang with its fuzzer).
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# Header-only libraries; scripts/stage-headers.sh copies them for the Windows build.
client=(libcli11-dev nlohmann-json3-dev libfmt-dev libxxhash-dev)
# For tests of the C interface: with another standard library, from Python, and of its ABI.
borders=(libc++-dev libc++abi-dev python3 python3-pytest abigail-tools)
# clang: checks of the exported headers, and programs of another compiler. e2fsprogs and xfsprogs: file systems for
# the suites that simulate a power failure. fish and zsh: tests of the completion.
native=(cmake ninja-build g++ clang pkg-config googletest libpoco-dev libutfcpp-dev "${client[@]}"
  e2fsprogs xfsprogs fish zsh "${borders[@]}")
# ca-certificates, bzip2, xz-utils and patch: to fetch and unpack Debian's source package of POCO.
windows=(cmake ninja-build googletest libutfcpp-dev "${client[@]}" g++-mingw-w64-x86-64-posix wine locales
  wine64 ca-certificates bzip2 xz-utils patch)
windows_clang=(clang lld)
windows_ucrt=(g++-mingw-w64-ucrt64)
bench=(libbenchmark-dev libsqlite3-dev liblmdb-dev valgrind gnuplot-nox)
docs=(doxygen python3)
# openssl and osslsigncode: to test signing with a temporary certificate.
package=(debhelper dpkg-dev lintian mmdebstrap nsis zip unzip openssl osslsigncode)
# The service of glusterfs-server is not used; lab/volume/shared.sh starts a separate daemon.
shared=(glusterfs-server glusterfs-client iproute2)
report=(chromium fonts-dejavu-core)
coverage=(clang llvm)
mutants=(patch rsync)
tidy=(clang clang-tidy libc++-dev python3)
fresh=(debootstrap)
guest=(debootstrap e2fsprogs qemu-system-x86)
valgrind=(valgrind)
# libclang-rt-dev: the sanitizers and the fuzzer. llvm: function names in a report.
fuzz=(cmake ninja-build clang libclang-rt-dev llvm)

wanted=()
for set in "$@"; do
  case $set in
    native) wanted+=("${native[@]}") ;;
    windows) wanted+=("${windows[@]}") ;;
    windows-clang) wanted+=("${windows_clang[@]}") ;;
    windows-ucrt)
      release=$(. /etc/os-release 2>/dev/null && echo "${VERSION_ID:-99}")
      [ "${release%%.*}" -ge 13 ] ||
        die "no compiler for the runtime of Windows 10 in Debian $release: use Debian 13, or the preset mingw"
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
    *) die "unknown package set '$set': use native, windows, windows-clang, windows-ucrt, bench, docs, package, report, coverage, mutants, valgrind, shared, tidy, fresh, guest or fuzz" ;;
  esac
done

command -v dpkg-query >/dev/null && command -v apt-get >/dev/null ||
  die "no apt-get on this system: use Debian, or build with CMake directly (see CMakePresets.json)"

missing() {
  local package
  for package in $(printf '%s\n' "${wanted[@]}" | sort -u); do
    case $(dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null || true) in
      # Installed; the first letter is the wish, such as "h" after "apt-mark hold".
      ?i*) ;;
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
    die "packages are missing, and sudo is too: run 'apt-get install ${packages[*]}' as root"
  as_root=(sudo)
fi
# Messages in English, because the loop below reads them.
apt=("${as_root[@]}" env -u LANGUAGE LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive
  apt-get -y -q -o DPkg::Lock::Timeout=900)

log=$BUILD/packages.log
mkdir -p "$BUILD"
[ ! -t 1 ] || printf '== packages: installing %d ...' "${#packages[@]}"
wanted_count=${#packages[@]}

# One attempt. apt-get waits for the lock of dpkg, but not for the lock of the package lists; the loop below does.
attempt() {
  {
    echo "--- ${packages[*]}"
    echo "--- apt-get update"
    "${apt[@]}" update || echo "(the update failed; the existing package lists are used)"
    echo "--- apt-get install"
    "${apt[@]}" install --no-install-recommends "${packages[@]}"
  } >"$log" 2>&1
}

for try in 1 2 3 4 5 6; do
  if attempt; then
    mapfile -t packages < <(missing)
    [ "${#packages[@]}" -eq 0 ] || die "apt-get did not install ${packages[*]}: see $log"
    [ ! -t 1 ] || printf '\r\033[K'
    say "packages: $wanted_count installed with their dependencies, $SECONDS s"
    exit 0
  fi
  grep -q -e 'Could not get lock' -e 'Unable to acquire' "$log" || break
  say "another program uses apt; next try in 10 s ($try of 6 failed)"
  sleep 10
done
lines_that_matter "$log" >&2
die "apt-get cannot install ${packages[*]}: check the network and the package sources and run this again (log: $log)"
