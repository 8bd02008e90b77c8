#!/usr/bin/env bash
# One replicated volume of GlusterFS on this machine, mounted twice: lab/volume/volume.sh <verb> [...]
# For ./dev shared (lab/volume/shared.sh), which runs it in namespaces of its own: there it has the network ports, the process
# ids and the folders of the daemons to itself, whatever else this machine serves. VU_SHARED_DIR names its scratch folder.
#
#   start                     the daemon, three bricks, the volume with the recommended settings
#   reset                     all settings of the volume as the engine has them by itself
#   recommend                 the recommended settings
#   set OPTION VALUE          one setting
#   mount a|b [none|kept|OPTION...]
#                             mounts the volume at .../a or .../b, with the recommended mount options, which keep
#                             no answers; with answers kept for a second; or with these options
#   unmount a|b
#   cut-off a|b               ends the process that serves a mount, as a crash would
#   kill-brick N              ends the process of brick 1, 2 or 3
#   start-bricks              starts those that do not run
#   wait-healed               until no brick owes another one anything
#   compare-bricks            whether the three hold the same files with the same bytes
#   round-trips               to the bricks since the last time: "NAME COUNT" of each kind
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"

folder=${VU_SHARED_DIR:?names the scratch folder}
volume=tree
bricks=3

# What docs/shared-storage.md recommends, and what for.
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

# The command line of the engine; its answers are of interest when it fails only.
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
  # The first answer comes when the bricks are connected.
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

# The daemon that heals looks by itself every ten minutes; this has it look now.
heals() {
  gluster --mode=script volume heal "$volume" >/dev/null 2>&1 || true
  nothing_is_owed
}

verb_wait-healed() { until_true 1200 "the bricks are healed" heals; }

# Names, kinds, sizes and bytes; what the engine keeps for itself lies in .glusterfs.
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

# Each brick tells what came since it was last asked; a line of it ends in the count and the operation's name. As
# round trips: what changes or locks something, and every look-up, goes to all bricks at once, what only reads goes
# to one; and no client waits until a brick lets go of what it holds.
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
declare -F "verb_$verb" >/dev/null || die "lab/volume/volume.sh knows no '$verb'"
"verb_$verb" "$@"
