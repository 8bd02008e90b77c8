# Shared by ./dev and the scripts beside this file; sourced, never run.
# Sets ROOT (the project's folder) and BUILD (where every artefact goes).

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

# The lines of a log that tell what went wrong, three at most: a compiler's, linker's, CMake's or apt's
# complaints, else its last words.
lines_that_matter() {
  awk '
    { sub(/\r$/, "") }
    /^[ \t]*$/ { next }
    { last[seen++ % 3] = $0 }
    # The flag -Werror of a command line is none.
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

# Runs "$@" with its output in a log file; shows what went wrong when it fails.
# quietly <log file> <what it is, for the error line> <command...>
quietly() {
  local log=$1 what=$2
  shift 2
  mkdir -p "$(dirname "$log")"
  # A server that the command leaves behind must not keep the step locked.
  if ! (
    [ -z "${step_lock-}" ] || exec {step_lock}>&-
    "$@"
  ) >"$log" 2>&1; then
    lines_that_matter "$log" >&2
    die "$what failed; the whole output is in $log"
  fi
}

# Prints a short hash over the contents of the named files (a missing one is an error).
content_key() { cat -- "$@" | sha256sum | cut -c1-16; }

# One process at a time in a named step; a second one waits for the first to end.
# The lock goes with the process, so an interrupted run leaves nothing behind.
enter_step() {
  mkdir -p "$DEPS"
  exec {step_lock}>"$DEPS/.lock-$1"
  flock "$step_lock"
}

# The machine's own package sources with another Debian's name in place of its own, one a line:
# "http://deb.debian.org/debian/ trixie". The first is the archive itself.
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
