# What runs in the guest, and the table at its end. Sourced by inside.sh, never run.

. "$here/../volume/parts.sh"
bin=/mnt/build/bin

# Locks and handles; the rest of the tests asks nothing of a share that a disk does not show.
readonly handle_cases='VuFileLock*:VuFileOpen*:VuFileClose*:VuFileCopy*:VuFileRename*:VuFileChmodW*:VuFileStat*'
# Without the cases that hold what Windows alone enforces. The crowds among them are like shared-crowd, which
# looks from the other host, too.
readonly process_cases='DocumentsUnderProcesses.*:IndexUnderProcesses.*:FileLocks.*:HandleCopies.*'
readonly crowd_cases='*.FindsEverything*:*.KeepsEveryAcknowledged*'

all_parts=(doctor first-use api_tests multi_tests shared-crowd shared-crowd-spread shared-crowd-noticed shared-killed-writer
  shared-killed-writer-noticed shared-cut-short shared-cut-long shared-server-restart)
# What is asked of the share that is of use; the second one takes six minutes, so it is not quick.
nfs_parts=(full-disk)
long_nfs_parts=(shared-cost)

# What fails on a share of SMB today: ./dev shared says when one of these has gone.
fails_today() {
  case $share in
    smb) echo api_tests ;;
    ksmbd) echo shared-killed-writer ;;
  esac
}
# What the doctor misses there. The first one it knows by the kind of mount, the second one it tries.
missing_today() { [ "$share" = nfs ] || echo locks-per-handle locks-between-hosts; }
# The cases of api_tests that fail there.
cases_that_fail_today() { [ "$share" != smb ] || echo VuFileChmodW; }
# What may fail there: whether two programs meet while a lock is lost is chance.
may_fail() {
  [ "$share" = nfs ] || echo shared-crowd shared-crowd-spread shared-cut-short shared-cut-long shared-server-restart
}

results=()
wrong=""
among() { case " ${*:2} " in *" $1 "*) return 0 ;; *) return 1 ;; esac; }

# Called when a part has ended: note_result PART STATUS. 1 says that something was wrong, 77 that it cannot run
# here; any other code is the end of a program that broke down, which nobody expects.
note_result() {
  local result expected=passed
  case $2 in
    0) result=passed ;;
    1) result=failed ;;
    77) result="not run" ;;
    *) result="broke down with $2" ;;
  esac
  ! among "$1" $(fails_today) || expected=failed
  if [ "$result $expected" = "failed failed" ]; then
    result="failed, as expected"
  elif [ "$result" = failed ] && among "$1" $(may_fail); then
    result="failed, as it may"
  elif [ "$result" != "$expected" ]; then
    [ "$result" != passed ] || result="passed, and was expected to fail"
    wrong="$wrong $1"
  fi
  results+=("$(printf '| %-28s | %-36s | %5d s |' "$1" "$result" "$((SECONDS - began))")")
}

# Where locks are lost a case may wait for ever for a turn that never comes.
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

# Whether there are such parts; the words of run_all.
check_words() {
  local part all="${all_parts[*]} ${nfs_parts[*]} ${long_nfs_parts[*]}"
  [ "${1-}" != --quick ] || shift
  for part in "$@"; do
    among "$part" $all || die "./dev shared: there is no part '$part' for a share; there are: --quick first, $all"
  done
}

# The doctor has to miss what is missing, no more and no less.
judge_doctor() {
  local said missing
  say "stgctl doctor --shared"
  said=$(NO_COLOR=1 "$bin/stgctl" doctor --shared "$VU_SHARED_A" --peer "$VU_SHARED_B")
  printf '%s\n' "$said"
  missing=$(awk '$2 == "yes" { held++ } $2 == "MISSING" { printf "%s%s", sep, $1; sep = " "; held++ }
         END { if (held != 10) printf "%s%d checks instead of 10", sep, held }' <<<"$said")
  [ "$missing" = "$(missing_today)" ] || say "the doctor misses '$missing', and should '$(missing_today)'"
  [ "$missing" = "$(missing_today)" ] && note_result doctor 0 || note_result doctor 1
}

# Where cases fail today, no others may.
judge_api_tests() {
  local expected report=$VU_SHARED_DIR/local/api_tests.log
  expected=$(cases_that_fail_today)
  run_tests api_tests "$handle_cases"
  [ -n "$expected" ] || return 0
  ! grep -a '^\[  FAILED  \] [A-Z].*\.' "$report" | grep -qv "$expected" || wrong="$wrong api_tests"
}

# A tree on the share: its first use says so where locks do not belong to handles, and so does the doctor.
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
  # The library and the doctor, or nobody.
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
