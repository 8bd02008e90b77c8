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
    smb) echo doctor api_tests ;;
    ksmbd) echo doctor shared-killed-writer ;;
  esac
}
# What may fail there: whether two programs meet while a lock is lost is chance.
may_fail() {
  [ "$share" = nfs ] || echo shared-crowd shared-crowd-spread shared-cut-short shared-cut-long shared-server-restart
}

results=()
wrong=""
among() { case " ${*:2} " in *" $1 "*) return 0 ;; *) return 1 ;; esac; }

# Called when a part has ended: note_result PART STATUS; 77 says that it cannot run here.
note_result() {
  local result expected=passed
  case $2 in
    0) result=passed ;;
    77) result="not run" ;;
    *) result=failed ;;
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
    doctor) run_doctor ;;
    first-use) run_first_use ;;
    api_tests) run_tests api_tests "$handle_cases" ;;
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
    *) die "there is no part '$1' for a share; there are: ${all_parts[*]} ${nfs_parts[*]} ${long_nfs_parts[*]}" ;;
  esac
}

# A tree on the share: its first use says so where locks do not belong to handles, and so does the doctor.
run_first_use() {
  local status=0 said=$VU_SHARED_DIR/local/first-use.log root=$VU_SHARED_A/first-use
  say "the first use of a tree on the share"
  mkdir -p "$root"
  {
    "$bin/stgctl" --root "$root" init -y
    echo text >"$VU_SHARED_DIR/local/note.kdf"
    "$bin/stgctl" --root "$root" --owner anna --trace xs put "$VU_SHARED_DIR/local/note.kdf" -y
    "$bin/stgctl" --root "$root" doctor --try-locks "$VU_SHARED_A"
  } >"$said" 2>&1 || status=$?
  grep -E 'network-shares|^locks ' "$said" || true
  case $share in
    nfs) ;;
    # Both have to speak, and the doctor's exit code is that of a problem.
    *) [ "$status" -eq 4 ] && [ "$(grep -c network-shares "$said")" -ge 2 ] && status=0 || status=1 ;;
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
  printf '%s\n' "${results[@]}"
  [ -z "$wrong" ] || die "not as expected:$wrong"
}
