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

# Runs "$@" with its output in a log file; shows the end of the log when it fails.
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
    tail -n 40 "$log" >&2
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
