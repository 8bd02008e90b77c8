#!/usr/bin/env bash
# Creates the Debian packages, checks them with lintian, installs them in a new minimal Debian, and builds and runs
# programs there: packaging/debian.sh. The packages are in build/package/debian/packages.
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"
cd "$ROOT"

work=$BUILD/package/debian
packages=$work/packages
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)

version=$(sed -n 's/^project(vu_storage VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
grep -q "^vu-storage ($version) " packaging/debian/changelog ||
  die "packaging/debian/changelog lacks version $version of CMakeLists.txt: add an entry for it"

make_packages() {
  local source=$work/build/vu-storage-$version
  rm -rf "$work/build" "$packages"
  mkdir -p "$source" "$packages"
  # Copies tracked files, and new files that git does not ignore; no build results.
  git ls-files -z --cached --others --exclude-standard | tar -c --null -T - | tar -x -C "$source"
  cp -r packaging/debian "$source/debian"
  say "building the Debian packages (some minutes)"
  quietly "$work/build.log" "building the Debian packages" \
    env -C "$source" DEB_BUILD_OPTIONS="parallel=$JOBS noautodbgsym" dpkg-buildpackage -b -us -uc
  mv "$work"/build/*.deb "$work"/build/*.changes "$work"/build/*.buildinfo "$packages"
  say "lintian"
  lintian --fail-on error,warning "$packages"/*.changes || die "lintian reports the faults above: correct packaging/debian"
}

# The packages depend on the libraries of the Debian that built them.
suite=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
[ -n "$suite" ] || die "/etc/os-release names no release of Debian: create the packages on Debian 12 or 13"

# Runs "$@" in the Debian in which the packages are installed.
inside() { "${as_root[@]}" env -u LD_LIBRARY_PATH LC_ALL=C.UTF-8 chroot "$work/root" "$@"; }

make_root() {
  say "a clean Debian ($suite, once per run)"
  "${as_root[@]}" rm -rf "$work/root"
  quietly "$work/root.log" "creating a clean Debian" "${as_root[@]}" mmdebstrap --variant=apt \
    --include=g++,cmake,ninja-build,pkg-config,python3 "$suite" "$work/root"
}

install_and_try() {
  say "installing the packages in it"
  "${as_root[@]}" cp -L /etc/resolv.conf "$work/root/etc/resolv.conf"
  "${as_root[@]}" mkdir -p "$work/root/try"
  "${as_root[@]}" cp "$packages"/*.deb "$work/root/try"
  "${as_root[@]}" cp -r tests/consumer tests/border "$work/root/try"
  quietly "$work/install.log" "installing the packages" inside sh -c \
    'apt-get -q update && DEBIAN_FRONTEND=noninteractive apt-get -y -q install --no-install-recommends /try/*.deb'
  local kind multiarch
  multiarch=$(inside g++ -print-multiarch)
  for kind in cmake pkg-config command-line c c-cmake python; do
    inside cmake -D KIND=$kind -D COMPILER=/usr/bin/g++ -D PREFIX=/usr -D "LIBDIR=lib/$multiarch" \
      -D SCRATCH=/try/scratch -P /try/consumer/run.cmake || die "the program '$kind' of tests/consumer does not work with the packages: see above"
  done
  [ "$(inside stgctl --version)" = "stgctl $version" ] || die "the installed 'stgctl --version' does not print $version"
  local file
  for file in doc/vu-storage-doc/site/index.html doc/vu-storage-doc/examples/hello_classes.cpp \
    doc/vu-storage-doc/licences/doxygen-jquery.txt doc/libvu-storage1/licences/{utfcpp,xxhash}.txt \
    doc/stgctl/licences/{cli11,fmt,nlohmann-json,utfcpp,xxhash}.txt bash-completion/completions/stgctl \
    zsh/vendor-completions/_stgctl fish/vendor_completions.d/stgctl.fish; do
    inside test -f "/usr/share/$file" || die "no package contains /usr/share/$file: add it to packaging/debian/rules"
  done
  quietly "$work/example.log" "building an example of vu-storage-doc" inside sh -c \
    'g++ -std=c++17 /usr/share/doc/vu-storage-doc/examples/hello.cpp -o /try/hello -lvu_storage && cd /try && ./hello'
  # Without -B: Python writes its cache beside the package, and the removal must remove it.
  quietly "$work/python.log" "importing the Python package" inside env PYTHONPATH=/usr/share/vu_storage/python \
    python3 -c 'import vu_storage'
  inside test -d /usr/share/vu_storage/python/vu_storage/__pycache__ || die "Python wrote no cache: correct this test"
  say "removing the packages"
  quietly "$work/remove.log" "removing the packages" inside apt-get -y -q purge libvu-storage1 libvu-storage-dev \
    stgctl vu-storage-doc
  local left
  left=$(inside find /usr /etc /var/lib -path /var/lib/apt -prune -o \
    '(' -iname '*vu?storage*' -o -name 'stgctl*' ')' -print) ||
    die "cannot search $work/root for files that are left: see above"
  [ -z "$left" ] || die "files are left after the packages were removed: $left"
}

make_packages
make_root
install_and_try
python3 packaging/sbom.py write --kind debian --version "$version" "$packages" "$packages/vu-storage-$version.spdx.json"
python3 packaging/sbom.py check "$packages" "$packages/vu-storage-$version.spdx.json"
"${as_root[@]}" rm -rf "$work/root"
say "Debian packages: $packages"
