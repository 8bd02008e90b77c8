# Functions of ./dev and the scripts; sourced, never run.
# Sets ROOT (the project's folder), BUILD (results), DEPS (prepared dependencies) and JOBS (parallel jobs).

set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BUILD=$ROOT/build
DEPS=$BUILD/deps
JOBS=$(nproc 2>/dev/null || echo 2)

say() { printf '== %s\n' "$*"; }

die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# Prints at most three lines of a log that show why a command failed: errors of the compiler, linker, CMake or apt;
# without such errors the last lines.
lines_that_matter() {
  awk '
    { sub(/\r$/, "") }
    /^[ \t]*$/ { next }
    { last[seen++ % 3] = $0 }
    # The pattern excludes "-Werror: ", a flag of a command line.
    /^CMake Error/ { follow = 3 }
    follow > 0 || /(^|[^-a-zA-Z])([Ee]rror|ERROR|fatal): |^E: |undefined reference|No space left/ {
      if (follow > 0) follow--
      if (found < 3) matter[found++] = $0
    }
    END {
      if (found == 0) {
        found = seen < 3 ? seen : 3
        for (i = 0; i < found; i++) matter[i] = last[(seen - found + i) % 3]
      }
      for (i = 0; i < found; i++) print substr(matter[i], 1, 300)
    }' "$1"
}

# Runs a command with its output in a log file. After a failure it prints the cause and ends the script.
# quietly <log file> <name of the work, for the error message> <command...>
quietly() {
  local log=$1 what=$2
  shift 2
  mkdir -p "$(dirname "$log")"
  # A server that outlives the command must not inherit the lock of the step.
  if ! (
    [ -z "${step_lock-}" ] || exec {step_lock}>&-
    "$@"
  ) >"$log" 2>&1; then
    lines_that_matter "$log" >&2
    die "$what failed: see the output in $log"
  fi
}

# Prints a short hash over the contents of the files. A missing file is an error.
content_key() { cat -- "$@" | sha256sum | cut -c1-16; }

# Takes the exclusive lock of a named step; a second process waits for it. The system releases the lock at the end
# of the process, so an interrupted run leaves no stale lock.
enter_step() {
  mkdir -p "$DEPS"
  exec {step_lock}>"$DEPS/.lock-$1"
  flock "$step_lock"
}

# Prints the machine's package sources for another Debian release, one per line, the main archive first. Example:
# "http://deb.debian.org/debian/ trixie".
# package_sources <bookworm|trixie>
package_sources() {
  local here
  here=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
  {
    apt-get indextargets --format '$(REPO_URI) $(RELEASE)' 'Created-By: Packages' 2>/dev/null |
      sed -nE "s/ $here(-updates|-security)?\$/ $1\1/p"
    echo "http://deb.debian.org/debian/ $1"
  } | awk '!seen[$0]++ { print ($2 ~ /-/), NR, $0 }' | sort -k1,1n -k2,2n | cut -d' ' -f3-
}
