# The parts that run in the guest, and the table of their results. Sourced by inside.sh, never run.

. "$here/../volume/parts.sh"
bin=/mnt/build/bin

# Locks and handles. All other tests behave the same on a local disk.
readonly handle_cases='VuFileLock*:VuFileOpen*:VuFileClose*:VuFileCopy*:VuFileRename*:VuFileChmodW*:VuFileStat*'
# Without the cases for behaviour that only Windows enforces. The crowd cases are similar to shared-crowd, which
# also checks from the other host.
readonly process_cases='DocumentsUnderProcesses.*:IndexUnderProcesses.*:FileLocks.*:HandleCopies.*'
readonly crowd_cases='*.FindsEverything*:*.KeepsEveryAcknowledged*'

all_parts=(doctor first-use api_tests multi_tests shared-crowd shared-crowd-spread shared-crowd-noticed shared-killed-writer
  shared-killed-writer-noticed shared-cut-short shared-cut-long shared-server-restart)
# Further parts for NFS. The second list takes six minutes and is omitted with --quick.
nfs_parts=(full-disk)
long_nfs_parts=(shared-cost)

# Parts that are known to fail on SMB. ./dev shared reports when one of them passes.
fails_today() {
  case $share in
    smb) echo api_tests ;;
    ksmbd) echo shared-killed-writer ;;
  esac
}
# What the doctor reports as missing there. It knows the first from the kind of mount, and tests the second.
missing_today() { [ "$share" = nfs ] || echo locks-per-handle locks-between-hosts; }
# The cases of api_tests that are known to fail.
cases_that_fail_today() { [ "$share" != smb ] || echo VuFileChmodW; }
# Parts that may fail: it is chance whether two programs access a file while a lock is lost.
may_fail() {
  [ "$share" = nfs ] || echo shared-crowd shared-crowd-spread shared-cut-short shared-cut-long shared-server-restart
}

results=()
wrong=""
among() { case " ${*:2} " in *" $1 "*) return 0 ;; *) return 1 ;; esac; }

# note_result PART STATUS: records the result of a part. 1: failed; 77: cannot run here; any other code is that of a
# crashed program, which is never expected.
note_result() {
  local result expected=passed
  case $2 in
    0) result=passed ;;
    1) result=failed ;;
    77) result="not run" ;;
    *) result="crashed with $2" ;;
  esac
  ! among "$1" $(fails_today) || expected=failed
  if [ "$result $expected" = "failed failed" ]; then
    result="failed, as expected"
  elif [ "$result" = failed ] && among "$1" $(may_fail); then
    result="failed, as it may"
  elif [ "$result" != "$expected" ]; then
    [ "$result" != passed ] || result="passed, expected to fail"
    wrong="$wrong $1"
  fi
  results+=("$(printf '| %-28s | %-36s | %5d s |' "$1" "$result" "$((SECONDS - began))")")
}

# If locks are lost, some cases would wait for ever.
process_filter() {
  case $share in
    nfs) echo "$process_cases${quick:+:-$crowd_cases}" ;;
    *) echo 'FileLocks.*' ;;
  esac
}

run_part() {
  local -a less=()
  began=$SECONDS
  case $1 in
    doctor) judge_doctor ;;
    first-use) run_first_use ;;
    api_tests) judge_api_tests ;;
    multi_tests) run_tests multi_tests "$(process_filter)" ;;
    full-disk)
      [ -z "$quick" ] || less=(--count 60)
      VU_SMALL_DISK=/mnt/small-a VU_SMALL_DISK_SERVER=/srv/small run_suite full-disk "${less[@]}"
      ;;
    shared-crowd | shared-crowd-spread) [ -z "$quick" ] || less=(--count 80) ;;&
    shared-crowd-noticed) [ -z "$quick" ] || less=(--count 8) ;;&
    shared-killed-writer) [ -z "$quick" ] || less=(--count 4) ;;&
    shared-cut-* | shared-server-restart) [ -z "$quick" ] || less=(--count 40) ;;&
    shared-*) run_suite "$1" "${less[@]}" ;;
  esac
}

# Checks the arguments of run_all.
check_words() {
  local part all="${all_parts[*]} ${nfs_parts[*]} ${long_nfs_parts[*]}"
  [ "${1-}" != --quick ] || shift
  for part in "$@"; do
    among "$part" $all || die "./dev shared: unknown part '$part'; use [--quick] and any of: $all"
  done
}

# The doctor must report exactly what is missing.
judge_doctor() {
  local said missing
  say "stgctl doctor --shared"
  said=$(NO_COLOR=1 "$bin/stgctl" doctor --shared "$VU_SHARED_A" --peer "$VU_SHARED_B")
  printf '%s\n' "$said"
  missing=$(awk '$2 == "yes" { held++ } $2 == "MISSING" { printf "%s%s", sep, $1; sep = " "; held++ }
         END { if (held != 10) printf "%s%d checks instead of 10", sep, held }' <<<"$said")
  [ "$missing" = "$(missing_today)" ] || say "the doctor reports '$missing' as missing, expected '$(missing_today)'"
  [ "$missing" = "$(missing_today)" ] && note_result doctor 0 || note_result doctor 1
}

# If some cases are known to fail, no others may fail.
judge_api_tests() {
  local expected report=$VU_SHARED_DIR/local/api_tests.log
  expected=$(cases_that_fail_today)
  run_tests api_tests "$handle_cases"
  [ -n "$expected" ] || return 0
  ! grep -a '^\[  FAILED  \] [A-Z].*\.' "$report" | grep -qv "$expected" || wrong="$wrong api_tests"
}

# A tree on the share. If locks do not belong to handles, its first use and the doctor must both report that.
run_first_use() {
  local status=0 said=$VU_SHARED_DIR/local/first-use.log root=$VU_SHARED_A/first-use
  say "the first use of a tree on the share"
  mkdir -p "$root"
  echo text >"$VU_SHARED_DIR/local/note.kdf"
  {
    "$bin/stgctl" --root "$root" init -y &&
      "$bin/stgctl" --root "$root" --owner anna --trace xs put "$VU_SHARED_DIR/local/note.kdf" -y &&
      "$bin/stgctl" --root "$root" --owner anna cat note.kdf >/dev/null || status=1
    "$bin/stgctl" --root "$root" doctor --try-locks "$VU_SHARED_A" || [ $? -eq 4 ] || status=1
  } >"$said" 2>&1
  grep -E 'network-shares|^locks ' "$said" || true
  # Both the library and the doctor, or neither.
  case $share in
    nfs) ! grep -q network-shares "$said" || status=1 ;;
    *) [ "$(grep -c network-shares "$said")" -ge 2 ] || status=1 ;;
  esac
  [ "$status" -eq 0 ] || cat "$said"
  note_result first-use "$status"
}

# run_all [--quick] [PART...]
run_all() {
  local part
  quick=""
  if [ "${1-}" = --quick ]; then
    quick=yes
    shift
  fi
  if [ $# -eq 0 ]; then
    set -- "${all_parts[@]}"
    [ "$share" != nfs ] || set -- "$@" "${nfs_parts[@]}"
    [ "$share" != nfs ] || [ -n "$quick" ] || set -- "$@" "${long_nfs_parts[@]}"
  fi
  for part in "$@"; do run_part "$part"; done
  say "on $share, Linux $(uname -r)"
  printf '| %-28s | %-36s | %7s |\n' part result time
  printf '|---|---|--:|\n'
  printf '%s\n' "${results[@]}"
  [ -z "$wrong" ] || die "not as expected:$wrong"
}
