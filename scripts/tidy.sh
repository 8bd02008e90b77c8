#!/usr/bin/env bash
# Analyses sources without building them:
#
#   scripts/tidy.sh windows    runs clang-tidy with cmake/windows.clang-tidy over the sources that only the Windows
#                              build compiles and over the C interface
#   scripts/tidy.sh msvc       runs Clang with its warnings about non-standard C++ over the library and the client in
#                              the Windows build; finds code that Visual Studio rejects
#   scripts/tidy.sh includes   runs Clang with libc++ over the library and the client; finds a missing #include that
#                              the headers of GCC's C++ library hide
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$ROOT"

# Writes the compile commands of a preset, one for each source, to build/tidy-<preset>/once. Precompiled headers are
# off, because they hide a missing #include.
# commands_of <preset> <definitions...>
commands_of() {
  local folder=$BUILD/tidy-$1
  quietly "$folder.log" "configuring $1" cmake --preset "$1" -B "$folder" \
    -D CMAKE_DISABLE_PRECOMPILE_HEADERS=ON -D VU_CCACHE=OFF "${@:2}"
  mkdir -p "$folder/once"
  python3 - "$folder/compile_commands.json" "$folder/once/compile_commands.json" <<'PYTHON'
import json, sys
once = {}
for entry in json.load(open(sys.argv[1])):
    # A source may be compiled for the shipped library and for the tests. Prefer the shipped library.
    if entry["file"] not in once or "testable" in once[entry["file"]]["command"]:
        once[entry["file"]] = entry
json.dump(list(once.values()), open(sys.argv[2], "w"))
PYTHON
}

tidy_windows() {
  commands_of mingw-clang
  local -a sources
  # volumes_test.cpp is excluded: it counts bytes in signed numbers, which the check for conversions reports.
  mapfile -t sources < <({
    git grep -l '#include <windows.h>' -- '*.cpp'
    git ls-files '*_windows.cpp' 'api/*.cpp' 'lab/kit/*.cpp'
  } | grep -v '/volumes_test.cpp$' | sort -u)
  [ "${#sources[@]}" -gt 0 ] || die "git finds no source for Windows: run this in a clone of the repository"
  say "clang-tidy over ${#sources[@]} sources for Windows (minutes)"
  local log=$BUILD/tidy-windows.txt
  printf '%s\n' "${sources[@]}" | xargs -P "$JOBS" -n 1 clang-tidy --quiet -p "$BUILD/tidy-mingw-clang/once" \
    --config-file=cmake/windows.clang-tidy >"$log" 2>"$log.err" || {
    grep -E ' (error|warning): ' "$log" | sort -u >&2
    die "clang-tidy reports the faults above: see $log"
  }
  say "clang-tidy reports no fault in ${#sources[@]} sources"
}

# Writes <log>.list: for each source of the library and the client a command that only checks its syntax. The command
# writes a file in <log>.d: "source: NAME", the compiler's messages, and "failed" if there was an error.
# readings_of <preset> <log> <flags>
readings_of() {
  rm -rf "$2.d"
  mkdir "$2.d"
  python3 - "$BUILD/tidy-$1/once/compile_commands.json" "$ROOT" "$3" "$2.d" >"$2.list" <<'PYTHON'
import json, re, shlex, sys
commands, root, flags, folder = sys.argv[1:]
rooms = ("api", "client/admin", "client/stgctl", "file", "index", "platform", "storage")
folders = tuple(f"{root}/{room}/" for room in rooms)
for number, entry in enumerate(json.load(open(commands))):
    source = entry["file"]
    if source.endswith(".cpp") and source.startswith(folders):
        command = re.sub(r" -o \S+ -c ", f" -fsyntax-only {flags} ", entry["command"])
        name = shlex.quote(f"source: {source[len(root) + 1:]}")
        print(f"exec >{shlex.quote(f'{folder}/{number}')} 2>&1; echo {name};"
              f" cd {shlex.quote(entry['directory'])} && {command} || {{ echo failed; exit 1; }}")
PYTHON
  [ -s "$2.list" ] || die "no compile command of the library in $BUILD/tidy-$1: delete the folder and run this again"
}

# read_all <log>: runs the commands of <log>.list; fails when the compiler reports an error in any source.
read_all() {
  local status=0
  say "$(wc -l <"$1.list") sources (minutes)"
  xargs -P "$JOBS" -d '\n' -n 1 sh -c <"$1.list" || status=$?
  cat "$1.d"/* >"$1"
  return "$status"
}

tidy_msvc() {
  commands_of mingw-clang
  local log=$BUILD/tidy-msvc.txt
  readings_of mingw-clang "$log" "-fms-extensions -Wmicrosoft -Wpedantic -Wgnu -Wvla -Wc99-extensions -Wc++20-designator -Wreorder-init-list -Wextra-semi -Wsign-compare -Wnewline-eof"
  read_all "$log" || {
    grep -E ' error: ' "$log" | sort -u >&2
    die "Visual Studio would reject the code above: see $log"
  }
  say "found no code that Visual Studio is known to reject"
}

# Prints the pattern of the errors that come from gaps of this version of libc++.
known_gaps() {
  local version gaps="'make_unique_for_overwrite'"
  version=$(clang++ -stdlib=libc++ -std=c++20 -x c++ -E -dM -include version /dev/null |
    sed -n 's/^#define _LIBCPP_VERSION //p')
  [[ $version =~ ^[0-9]+$ ]] || die "cannot read the version of libc++: does clang++ find its headers?"
  [ "$version" -ge 190000 ] || gaps+="|'atomic_ref'"
  # No algorithms of ranges, no memory resources, no three-way comparison of strings and vectors.
  [ "$version" -ge 160000 ] ||
    gaps+="|in namespace 'std::ranges'|'memory_resource' file|three-way comparison|synth_three_way"
  echo "$gaps"
}

tidy_includes() {
  commands_of linux -D CMAKE_CXX_COMPILER=clang++ -D CMAKE_CXX_FLAGS=-stdlib=libc++
  local log=$BUILD/tidy-includes.txt gaps status=0 source failed=0 partly=0 named wrong=""
  gaps=$(known_gaps)
  readings_of linux "$log" ""
  read_all "$log" || status=$?
  # These errors have no other cause than a missing #include or a gap. All others may follow from a gap.
  named="undeclared identifier|unknown (type|class)|named '[^']*' in namespace 'std|file not found"
  while IFS= read -r source; do
    failed=$((failed + 1))
    if ! grep -q ' error: ' "$source"; then
      wrong+="$(head -n 1 "$source"): the compiler failed without an error"$'\n'
    elif grep -qE " error: .*($gaps)" "$source"; then
      partly=$((partly + 1))
      wrong+=$(grep -E " error: .*($named)" "$source" | grep -vE "$gaps" || true)$'\n'
    else
      wrong+=$(grep ' error: ' "$source")$'\n'
    fi
  done < <(grep -lx failed "$log.d"/*)
  wrong=$(sort -u <<<"$wrong" | sed '/^$/d')
  [ -z "$wrong" ] || {
    printf '%s\n' "$wrong" >&2
    die "the compiler reports the errors above; most come from a missing #include: see $log"
  }
  [ "$status" -eq 0 ] || [ "$failed" -gt 0 ] || die "the sources cannot be read: see $log"
  [ "$partly" -eq 0 ] ||
    say "note: $partly sources use what this version of libc++ lacks; they are checked only in part"
  say "no #include is missing"
}

case ${1-} in
  windows) tidy_windows ;;
  msvc) tidy_msvc ;;
  includes) tidy_includes ;;
  *) die "unknown check '${1-}': use windows, msvc or includes" ;;
esac
