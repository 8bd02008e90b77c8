#!/usr/bin/env bash
# Reads sources without building them:
#
#   scripts/tidy.sh windows    clang-tidy, by cmake/windows.clang-tidy, over every source that only Windows compiles and
#                              over the C interface, as the Windows build sees them
#   scripts/tidy.sh msvc       Clang over the library and the client as the Windows build sees them, with what it knows of
#                              Visual Studio: extensions of either compiler, arrays and initialisers that are no C++
#   scripts/tidy.sh includes   Clang with libc++ over the library and the client: an #include that GCC's C++ library
#                              makes superfluous is missed there
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$ROOT"

# The commands of a preset, one for each source, in build/tidy-<preset>/once. Without precompiled headers: those would
# hide what a source forgets to include.
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
    # The shipped library's before that of the tests, which is built of the same sources.
    if entry["file"] not in once or "testable" in once[entry["file"]]["command"]:
        once[entry["file"]] = entry
json.dump(list(once.values()), open(sys.argv[2], "w"))
PYTHON
}

tidy_windows() {
  commands_of mingw-clang
  local -a sources
  # Not the one that fills a disk: it counts in numbers with a sign, far below their end.
  mapfile -t sources < <({
    git grep -l '#include <windows.h>' -- '*.cpp'
    git ls-files '*_windows.cpp' 'api/*.cpp' 'lab/kit/*.cpp'
  } | grep -v '/volumes_test.cpp$' | sort -u)
  [ "${#sources[@]}" -gt 0 ] || die "there are no sources for Windows"
  say "clang-tidy over ${#sources[@]} sources for Windows (minutes)"
  local log=$BUILD/tidy-windows.txt
  printf '%s\n' "${sources[@]}" | xargs -P "$JOBS" -n 1 clang-tidy --quiet -p "$BUILD/tidy-mingw-clang/once" \
    --config-file=cmake/windows.clang-tidy >"$log" 2>"$log.err" || {
    grep -E ' (error|warning): ' "$log" | sort -u >&2
    die "clang-tidy complains; all of it is in $log"
  }
  say "no complaint about ${#sources[@]} sources"
}

# Writes <log>.list: for each source of the library and the client a command that reads it alone.
# readings_of <preset> <log> <flags>
readings_of() {
  python3 - "$BUILD/tidy-$1/once/compile_commands.json" "$ROOT" "$3" >"$2.list" <<'PYTHON'
import json, re, sys
rooms = ("api", "client/admin", "client/stgctl", "file", "index", "platform", "storage")
for entry in json.load(open(sys.argv[1])):
    source = entry["file"]
    if source.endswith(".cpp") and source.startswith(tuple(f"{sys.argv[2]}/{room}/" for room in rooms)):
        command = re.sub(r" -o \S+ -c ", f" -fsyntax-only {sys.argv[3]} ", entry["command"])
        print(f"cd {entry['directory']} && {command}")
PYTHON
  [ -s "$2.list" ] || die "there are no commands in $BUILD/tidy-$1"
}

# read_all <log> : its exit code tells whether the compiler found fault with any.
read_all() {
  say "$(wc -l <"$1.list") sources (minutes)"
  xargs -P "$JOBS" -d '\n' -n 1 sh -c <"$1.list" >"$1" 2>&1
}

tidy_msvc() {
  commands_of mingw-clang
  local log=$BUILD/tidy-msvc.txt
  readings_of mingw-clang "$log" "-fms-extensions -Wmicrosoft -Wpedantic -Wgnu -Wvla -Wc99-extensions -Wc++20-designator -Wreorder-init-list -Wextra-semi -Wsign-compare -Wnewline-eof"
  read_all "$log" || {
    grep -E ' error: ' "$log" | sort -u >&2
    die "sources are no C++ as Visual Studio has it; all of it is in $log"
  }
  say "nothing that Visual Studio is known to refuse"
}

tidy_includes() {
  commands_of linux -D CMAKE_CXX_COMPILER=clang++ -D CMAKE_CXX_FLAGS=-stdlib=libc++
  local log=$BUILD/tidy-includes.txt
  readings_of linux "$log" ""
  # What older versions of it do not have yet is no missing #include; nor is any other kind of complaint.
  read_all "$log" || true
  local -a missing
  mapfile -t missing < <(grep -E ' error: .*(no (member|template|type) named|unknown (type|class)|undeclared|undefined template|incomplete type|file not found)' \
    "$log" | grep -v -e "'atomic_ref'" -e "'make_unique_for_overwrite'" | sort -u)
  [ "${#missing[@]}" -eq 0 ] || {
    printf '%s\n' "${missing[@]}" >&2
    die "sources lack an #include; all of it is in $log"
  }
  say "no #include is missing"
}

case ${1-} in
  windows) tidy_windows ;;
  msvc) tidy_msvc ;;
  includes) tidy_includes ;;
  *) die "scripts/tidy.sh knows windows, msvc and includes, not '${1-}'" ;;
esac
