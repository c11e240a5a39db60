#!/bin/sh
# Runs a command in a sandbox of its own: private /data, /kelonv, /kelonvbak, /mnt/vendor and /tmp, a network and a
# process namespace, an unprivileged user.
# Usage: sandbox.sh [--interfaces] [--data-size BYTES] TREE... -- COMMAND [ARGUMENT...]
# Each TREE is a folder that stays visible, read-only, as /outside/its/own/path. Arguments and LD_LIBRARY_PATH that
# name something in it are changed to that. Under its own path it stays visible, too, unless it lies in a private folder:
# those are empty wherever the tree is.
# With --interfaces the command administers its network, as its root user: it can make interfaces, and finds none but a
# loopback that is down. With --data-size, /data holds no more than BYTES.
# Where the machine forbids namespaces the command is not run and the exit status is 77, which CTest calls skipped.
set -eu

network=
data_size=
while :; do
  case $1 in
    --interfaces) network='unshare --map-root-user --net' ;;
    --data-size) data_size=$2 && shift ;;
    *) break ;;
  esac
  shift
done

count=0
for argument in "$@"; do
  [ "$argument" = -- ] && break
  count=$((count + 1))
done

options=$(mktemp)
trap 'rm -f "$options"' EXIT
add() { printf '%s\0' "$@" >> "$options"; }

add --unshare-all --die-with-parent --uid 1000 --gid 1000 --tmpfs / --ro-bind /usr /usr --ro-bind /etc /etc \
  --proc /proc --dev /dev --tmpfs /tmp ${data_size:+--size "$data_size"} --tmpfs /data --tmpfs /mnt/vendor/nvdata \
  --tmpfs /kelonv/data --tmpfs /kelonvbak/data --chdir /tmp --setenv HOME /tmp
for folder in bin sbin lib lib32 lib64 libx32; do
  if [ -L "/$folder" ]; then
    add --symlink "$(readlink "/$folder")" "/$folder"
  elif [ -d "/$folder" ]; then
    add --ro-bind "/$folder" "/$folder"
  fi
done
trees= # one a line
while [ "$count" -gt 0 ]; do
  trees="$trees$1
"
  add --ro-bind "$1" "/outside$1"
  case $1/ in
    /tmp/* | /data/* | /kelonv/* | /kelonvbak/* | /mnt/vendor/*) ;;
    *) add --ro-bind "$1" "$1" ;;
  esac
  shift
  count=$((count - 1))
done
shift

# Naming the tests of a program does nothing that wants a sandbox, and a build must not fail for want of one.
case " $* " in *" --gtest_list_tests"*) rm -f "$options" && exec "$@" ;; esac

# Sets `shown` to the path that a path has in the sandbox.
show() {
  shown=$1
  while IFS= read -r tree; do
    case $1/ in "${tree:-//}"/*) shown=/outside$1 ;; esac
  done << END
$trees
END
}

library_path=
rest=${LD_LIBRARY_PATH:-}
while [ -n "$rest" ]; do
  show "${rest%%:*}"
  library_path=$library_path${library_path:+:}$shown
  case $rest in *:*) rest=${rest#*:} ;; *) rest= ;; esac
done
[ -z "$library_path" ] || add --setenv LD_LIBRARY_PATH "$library_path"

# The arguments turn round once: each goes to the end as it is called in the sandbox.
count=$#
while [ "$count" -gt 0 ]; do
  show "$1"
  shift
  set -- "$@" "$shown"
  count=$((count - 1))
done

exec 3< "$options"
rm -f "$options"
# shellcheck disable=SC2086 # a command and its options, or none
probe() { bwrap --unshare-all --ro-bind / / --proc /proc $network true; }
if ! command -v bwrap > /dev/null 2>&1 || ! probe > /dev/null 2>&1; then
  reason=$(probe 2>&1 || true)
  echo "[  SKIPPED ] this machine does not let a sandbox be made: $reason"
  exit 77
fi
# shellcheck disable=SC2086
exec bwrap --args 3 -- $network "$@"
