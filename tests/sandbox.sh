#!/bin/sh
# Runs a command in a sandbox of its own: private /data, /kelonv, /kelonvbak, /mnt/vendor and /tmp, a network and a
# process namespace, an unprivileged user. Usage: sandbox.sh [--interfaces] TREE... -- COMMAND [ARGUMENT...]
# Each TREE is a folder that stays visible, read-only, under its own path. With --interfaces the command administers
# its network, as its root user: it can make interfaces, and finds none but a loopback that is down.
# Where the machine forbids namespaces the command is not run and the exit status is 77, which CTest calls skipped.
set -eu

network=
if [ "$1" = --interfaces ]; then
  network='unshare --map-root-user --net'
  shift
fi

# The arguments turn round: those of bwrap go behind the caller's, then the caller's are dropped from the front.
count=0
for argument in "$@"; do
  [ "$argument" = -- ] && break
  count=$((count + 1))
done

options=$(mktemp)
trap 'rm -f "$options"' EXIT
add() { printf '%s\0' "$@" >> "$options"; }

add --unshare-all --die-with-parent --uid 1000 --gid 1000 --tmpfs / --ro-bind /usr /usr --ro-bind /etc /etc \
  --proc /proc --dev /dev --tmpfs /tmp --tmpfs /data --tmpfs /mnt/vendor/nvdata --tmpfs /kelonv/data \
  --tmpfs /kelonvbak/data --chdir /tmp --setenv HOME /tmp
for folder in bin sbin lib lib32 lib64 libx32; do
  if [ -L "/$folder" ]; then
    add --symlink "$(readlink "/$folder")" "/$folder"
  elif [ -d "/$folder" ]; then
    add --ro-bind "/$folder" "/$folder"
  fi
done
while [ "$count" -gt 0 ]; do
  add --ro-bind "$1" "$1"
  shift
  count=$((count - 1))
done
shift

# Naming the tests of a program does nothing that wants a sandbox, and a build must not fail for want of one.
case " $* " in *" --gtest_list_tests"*) rm -f "$options" && exec "$@" ;; esac

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
