#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs a command in a sandbox of its own: private /data, /kelonv, /kelonvbak, /mnt/vendor and /tmp, a network and a
# process namespace, an unprivileged user.
# Usage: sandbox.sh [--interfaces | --user-namespaces] [--data-size BYTES] TREE... -- COMMAND [ARGUMENT...]
# Each TREE is a folder that stays visible, read-only, as /outside/its/own/path. Arguments and LD_LIBRARY_PATH that
# name something in it are changed to that. Under its own path it stays visible, too, unless it lies in a private folder:
# those are empty wherever the tree is.
# With --interfaces the command administers its network, as its root user: it can make interfaces, and finds none but a
# loopback that is down. With --user-namespaces it makes such namespaces itself, so that it is never run without them.
# With --data-size, /data holds no more than BYTES.
# Where the machine forbids user namespaces, as containers do by default, root gets a sandbox of mounts instead, and a line
# on standard error says so. Where there is neither, the command is not run and the exit status is 77, which CTest calls
# skipped.
# With the variable KELO_COVERAGE_DATA, that folder can be written under its own path.
# Thousands of tests start here: this script starts no process but the sandbox.
set -euo pipefail

here=${BASH_SOURCE[0]%/*}
network=()
data=(--tmpfs /data)
data_options=
user=1000
while :; do
  case $1 in
    --interfaces)
      network=(unshare --map-root-user --net)
      user=0
      ;;
    --user-namespaces) user= ;;
    --data-size)
      data=(--size "$2" --tmpfs /data)
      data_options=size=$2
      shift
      ;;
    *) break ;;
  esac
  shift
done

trees=()
while [ "$1" != -- ]; do
  trees+=("$1")
  shift
done
shift

# Naming the tests of a program does nothing that wants a sandbox, and a build must not fail for want of one.
case " $* " in *" --gtest_list_tests"*) exec "$@" ;; esac

options=(--unshare-all --die-with-parent --uid 1000 --gid 1000 --tmpfs / --ro-bind /usr /usr --ro-bind /etc /etc
  --proc /proc --dev /dev --tmpfs /tmp "${data[@]}" --tmpfs /mnt/vendor/nvdata --tmpfs /kelonv/data
  --tmpfs /kelonvbak/data --chdir /tmp --setenv HOME /tmp)
for folder in bin sbin lib lib32 lib64 libx32; do
  if [ -L "/$folder" ]; then
    options+=(--symlink "usr/$folder" "/$folder")
  elif [ -d "/$folder" ]; then
    options+=(--ro-bind "/$folder" "/$folder")
  fi
done
for tree in "${trees[@]}"; do
  options+=(--ro-bind "$tree" "/outside$tree")
  case $tree/ in
    /tmp/* | /data/* | /kelonv/* | /kelonvbak/* | /mnt/vendor/*) ;;
    *) options+=(--ro-bind "$tree" "$tree") ;;
  esac
done

if [ -n "${KELO_COVERAGE_DATA:-}" ]; then options+=(--bind "$KELO_COVERAGE_DATA" "$KELO_COVERAGE_DATA"); fi

# Sets `shown` to the path that the path $1 has in the sandbox.
show() {
  local tree
  shown=$1
  for tree in "${trees[@]}"; do
    case $1/ in "$tree"/*) shown=/outside$1 ;; esac
  done
}

as_root_environment=(env)
if [ -n "${LD_LIBRARY_PATH:-}" ]; then
  library_path=
  IFS=: read -ra folders <<< "$LD_LIBRARY_PATH"
  for folder in "${folders[@]}"; do
    show "$folder"
    library_path+=${library_path:+:}$shown
  done
  options+=(--setenv LD_LIBRARY_PATH "$library_path")
  as_root_environment+=(LD_LIBRARY_PATH="$library_path")
fi

command=()
for argument in "$@"; do
  show "$argument"
  command+=("$shown")
done

status=0
bwrap "${options[@]}" -- "${network[@]}" "${command[@]}" || status=$?
[ "$status" -ne 0 ] || exit 0
# The command failed, or the machine let no sandbox be made: only the latter lets this fail, too.
if reason=$(bwrap --unshare-all --ro-bind / / --proc /proc "${network[@]}" true 2>&1); then exit "$status"; fi
as_root=(setpriv --pdeathsig KILL unshare --mount --net --pid --ipc --uts --fork --kill-child)
if [ "$EUID" -eq 0 ] && [ -n "$user" ] && "${as_root[@]}" true 2> /dev/null; then
  echo "sandbox.sh: no user namespaces here: the command runs in a sandbox that root makes" >&2
  exec "${as_root[@]}" "$here/sandbox_as_root.sh" "$user" "$data_options" "${trees[@]}" -- \
    "${as_root_environment[@]}" "${command[@]}"
fi
echo "[  SKIPPED ] this machine does not let a sandbox be made: $reason"
exit 77
