#!/usr/bin/env bash
# One replicated volume of GlusterFS on this machine, mounted twice: lab/volume/volume.sh <verb> [...]
# Used by ./dev shared (lab/volume/shared.sh), in separate namespaces: its network ports, process ids and daemon folders
# cannot collide with those of the machine. VU_SHARED_DIR is its scratch folder.
#
#   start                     starts the daemon, three bricks, and the volume with the recommended settings
#   reset                     resets all settings of the volume to the engine's defaults
#   recommend                 applies the recommended settings
#   set OPTION VALUE          changes one setting
#   mount a|b [none|kept|OPTION...]
#                             mounts the volume at .../a or .../b. none: the recommended options, without caches;
#                             kept: caches that keep answers for a second; or with these options
#   unmount a|b
#   cut-off a|b               kills the process that serves a mount
#   kill-brick N              kills the process of brick 1, 2 or 3
#   start-bricks              starts the bricks that do not run
#   wait-healed               waits until the bricks have no changes left to copy to each other
#   compare-bricks            fails unless the three bricks have the same files with the same bytes
#   round-trips               prints "NAME COUNT" for each kind of call to the bricks, since the last time
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"

folder=${VU_SHARED_DIR:?must name the scratch folder}
volume=tree
bricks=3

# The settings that docs/shared-storage.md recommends.
recommended_settings=(
  performance.quick-read=off
  performance.io-cache=off
  performance.stat-prefetch=off
  performance.readdir-ahead=off
  performance.write-behind=off
  performance.open-behind=off
  performance.read-ahead=off
  client.strict-locks=on
)
recommended_mount=(--attribute-timeout=0 --entry-timeout=0 --auto-invalidation=on)
kept_mount=(--attribute-timeout=1 --entry-timeout=1 --auto-invalidation=on)

# Runs a command of the engine. Its output is printed only if it fails.
ask() {
  local answer
  answer=$(gluster --mode=script "$@" 2>&1) || {
    printf '%s\n' "$answer" >&2
    die "gluster $* failed"
  }
}

# until_true <tenths of a second> <what, for the error line> <command...>
until_true() {
  local left=$1 what=$2
  shift 2
  until "$@"; do
    left=$((left - 1))
    [ "$left" -gt 0 ] || die "waited too long: $what"
    sleep 0.1
  done
}

daemon_answers() { gluster --mode=script volume list >/dev/null 2>&1; }

bricks_are_online() {
  [ "$(gluster --mode=script volume status "$volume" --xml 2>/dev/null |
    grep -A6 "<path>$folder/brick" | grep -c '<status>1</status>')" -eq "$bricks" ]
}

brick_list() {
  local i
  for ((i = 1; i <= bricks; ++i)); do echo "$(hostname):$folder/brick$i/data"; done
}

apply_recommended() {
  local each
  local -a words=()
  for each in "${recommended_settings[@]}"; do words+=("${each%%=*}" "${each#*=}"); done
  ask volume set "$volume" "${words[@]}"
}

verb_start() {
  local i
  local -a list
  for ((i = 1; i <= bricks; ++i)); do mkdir -p "$folder/brick$i"; done
  mkdir -p "$folder/a" "$folder/b" /var/log/glusterfs/bricks
  glusterd --log-level=WARNING --pid-file="$folder/glusterd.pid"
  until_true 300 "the daemon answers" daemon_answers
  mapfile -t list < <(brick_list)
  ask volume create "$volume" replica "$bricks" "${list[@]}" force
  ask volume set "$volume" diagnostics.brick-log-level WARNING diagnostics.client-log-level WARNING
  apply_recommended
  ask volume start "$volume"
  until_true 300 "the bricks are online" bricks_are_online
  ask volume profile "$volume" start
}

verb_reset() {
  ask volume reset "$volume"
  ask volume set "$volume" diagnostics.brick-log-level WARNING diagnostics.client-log-level WARNING
  gluster --mode=script volume profile "$volume" start >/dev/null 2>&1 || true
}

verb_recommend() { apply_recommended; }
verb_set() { ask volume set "$volume" "$1" "$2"; }

is_mounted() { mountpoint -q "$folder/$1"; }

verb_mount() {
  local at=$1
  local -a options
  shift
  case ${1:-none} in
    none) options=("${recommended_mount[@]}") ;;
    kept) options=("${kept_mount[@]}") ;;
    *) options=("$@") ;;
  esac
  glusterfs --volfile-server="$(hostname)" --volfile-id="$volume" --log-level=WARNING \
    --log-file="/var/log/glusterfs/mount-$at.log" --pid-file="$folder/mount-$at.pid" "${options[@]}" "$folder/$at"
  until_true 300 "$at is mounted" is_mounted "$at"
  # The mount responds when the bricks are connected.
  until_true 300 "$at answers" stat -t "$folder/$at" >/dev/null
}

is_gone() { ! kill -0 "$1" 2>/dev/null; }

# end_process <file with its id> <signal>
end_process() {
  local id
  id=$(cat "$1")
  kill "-$2" "$id" 2>/dev/null || true
  until_true 300 "process $id ends" is_gone "$id"
  rm -f "$1"
}

verb_unmount() {
  umount -l "$folder/$1" 2>/dev/null || true
  [ ! -s "$folder/mount-$1.pid" ] || end_process "$folder/mount-$1.pid" TERM
}

verb_cut-off() { end_process "$folder/mount-$1.pid" KILL; }

brick_process_file() { echo /var/run/gluster/vols/$volume/*"brick$1-data.pid"; }

verb_kill-brick() { end_process "$(brick_process_file "$1")" KILL; }

verb_start-bricks() {
  ask volume start "$volume" force
  until_true 300 "the bricks are online" bricks_are_online
}

nothing_is_owed() {
  local told
  told=$(gluster --mode=script volume heal "$volume" info 2>/dev/null) || return 1
  [ "$(grep -c '^Number of entries: 0$' <<<"$told")" -eq "$bricks" ]
}

# Starts the healing now; the daemon only does it every ten minutes.
heals() {
  gluster --mode=script volume heal "$volume" >/dev/null 2>&1 || true
  nothing_is_owed
}

verb_wait-healed() { until_true 1200 "the bricks are healed" heals; }

# Names, kinds, sizes and bytes, without the engine's own files in .glusterfs.
brick_content() {
  (cd "$folder/brick$1/data" &&
    find . -path ./.glusterfs -prune -o -type f -print0 | sort -z | xargs -0r sha256sum &&
    find . -path ./.glusterfs -prune -o ! -type f -printf '%y %p\n' | sort)
}

verb_compare-bricks() {
  local i sum first=""
  for ((i = 1; i <= bricks; ++i)); do
    sum=$(brick_content "$i" | sha256sum)
    [ -n "$first" ] || first=$sum
    [ "$sum" = "$first" ] || die "brick $i differs from brick 1"
  done
  echo "$(brick_content 1 | wc -l) names, the same in all $bricks"
}

# Each brick reports its calls since the last report. The lines end in the count and the name of the call. Converted to
# round trips: a change, a lock or a look-up goes to all bricks at once, a read goes to one brick, and no client waits
# for a release.
verb_round-trips() {
  gluster --mode=script volume profile "$volume" info incremental |
    awk -v bricks="$bricks" '
      BEGIN { split("READ STAT FSTAT READDIR READDIRP ACCESS STATFS GETXATTR", names)
              for (i in names) of_one[names[i]] }
      $NF ~ /^(RELEASE|RELEASEDIR|FORGET)$/ { next }
      $NF ~ /^[A-Z]+$/ && $(NF-1) ~ /^[0-9]+$/ && NF == 9 { sum[$NF] += $(NF-1) }
      END { for (name in sum) print name, sum[name] / (name in of_one ? 1 : bricks) }' | sort
}

verb=${1:?a verb}
shift
declare -F "verb_$verb" >/dev/null || die "lab/volume/volume.sh: unknown verb '$verb'"
"verb_$verb" "$@"
