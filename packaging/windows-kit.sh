#!/usr/bin/env bash
# Creates the kit for a real Windows and tests it under Wine: packaging/windows-kit.sh. The kit is one ZIP with the
# library, all test programs and their runner. The results are below build/package/kit.
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"
cd "$ROOT"

work=$BUILD/package/kit
version=$(sed -n 's/^project(vu_storage VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
name=vu_storage-$version-windows-kit
tree=$work/$name
programs=(kit kernel_tests kernel_long_paths kernel_code_page_932 kernel_code_page_1252 kernel_code_page_65001
  unit_tests api_tests c_interface_tests cpp_layer_tests multi_tests admin_tests stgctl_tests fuzz_replay reliability
  storage_bench_plain stgctl)

build() {
  say "building the programs of the kit"
  quietly "$work/configure.log" "configuring" cmake --preset mingw -D VU_BUILD_BENCH=ON
  quietly "$work/build.log" "building" cmake --build --preset mingw --parallel "$JOBS" --target vu_storage "${programs[@]}"
}

stage() {
  say "assembling the kit"
  rm -rf "$tree" "$work/$name.zip"
  mkdir -p "$tree/bin"
  local program
  for program in "${programs[@]}"; do
    cp "build/mingw/bin/$program.exe" "$tree/bin/"
  done
  cp build/mingw/bin/*.dll "$tree/bin/"
  cp -r lab/fuzz/corpus "$tree/bin/"
  x86_64-w64-mingw32-strip --strip-debug "$tree"/bin/*.exe "$tree"/bin/vu_storage.dll
  sed 's/$/\r/' packaging/kit-run.cmd >"$tree/run.cmd"
  sed 's/$/\r/' packaging/kit-README.txt >"$tree/README.txt"
  (cd "$work" && zip -q -X -r "$name.zip" "$name") || die "cannot create $work/$name.zip: see above"
}

# Runs the kit in a folder with a difficult name: blanks and letters beyond ASCII.
try_it() {
  say "running the kit under Wine (several minutes)"
  local where="$work/try/Käthes Ordner, mit Leerzeichen (2)"
  rm -rf "$work/try"
  mkdir -p "$where"
  (cd "$where" && unzip -q "$work/$name.zip") || die "cannot unpack $work/$name.zip: see above"
  VU_KIT_QUIET=1 timeout -k 10 5400 scripts/wine.sh "Z:${where//\//\\}\\$name\\run.cmd" \
    >"$work/try.log" 2>&1 </dev/null || echo "run.cmd ended with $?" >>"$work/try.log"
  tr '\r' '\n' <"$work/try.log" | grep -a '^\[.*\(passed\|failed\|skipped\)' || true
  python3 packaging/kit_check.py "$where/$name" docs/porting.md || die "the kit fails under Wine: see $work/try.log"
  cp "$where/$name/report.html" "$where/$name/report.json" "$work/"
}

mkdir -p "$work"
build
stage
try_it
rm -rf "$work/try"
say "the kit: $work/$name.zip; its report under Wine: $work/report.html"
