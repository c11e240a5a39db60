#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The sandbox of sandbox.sh for root on a machine that refuses user namespaces: the first process of new namespaces, which
# makes a file system of its own, gives up its privileges and runs the command. All mounts are in the private namespace:
# nothing of the machine changes.
# Usage: sandbox_as_root.sh USER DATA-OPTIONS TREE... -- COMMAND [ARGUMENT...]
# USER is 1000, or 0 for a command that administers its network. DATA-OPTIONS are options of the mount of /data.
set -euo pipefail

# read_only SOURCE TARGET: also what is mounted below SOURCE is visible, as in a container's /etc.
read_only() {
  mount -n --rbind "$1" "$2"
  mount -n -o remount,bind,ro "$2"
}

# private FOLDER [OPTIONS]: empty, and owned by the user.
private() { mount -n -t tmpfs -o "mode=755,uid=$user,gid=$user${2:+,$2}" tmpfs "$1"; }

make_root() {
  local root=$1 tree name folders=()
  shift
  private "$root"
  cd "$root"
  for name in bin sbin lib lib32 lib64 libx32; do
    if [ -L "/$name" ]; then
      ln -s "usr/$name" "$name"
    elif [ -d "/$name" ]; then
      folders+=("/$name")
    fi
  done
  folders+=(/usr /etc)
  mkdir -p proc dev tmp data mnt/vendor/nvdata kelonv/data kelonvbak/data old "${folders[@]/#/.}"
  for tree in "$@"; do
    mkdir -p "./outside$tree"
    case $tree/ in
      /tmp/* | /data/* | /kelonv/* | /kelonvbak/* | /mnt/vendor/*) ;;
      *) mkdir -p ".$tree" && folders+=("$tree") ;;
    esac
  done
  chown -hR "$user:$user" .
  for name in "${folders[@]}"; do read_only "$name" ".$name"; done
  for tree in "$@"; do read_only "$tree" "./outside$tree"; done
  private tmp
  private data "$data_options"
  for name in mnt/vendor/nvdata kelonv/data kelonvbak/data; do private "$name"; done
}

make_devices() {
  local name
  private dev
  mkdir dev/pts dev/shm
  chmod 1777 dev/shm
  for name in null zero full random urandom tty; do
    : > "dev/$name"
    mount -n --bind "/dev/$name" "dev/$name"
  done
  mount -n -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts dev/pts
  ln -s pts/ptmx dev/ptmx
  ln -s /proc/self/fd dev/fd
  ln -s /proc/self/fd/0 dev/stdin
  ln -s /proc/self/fd/1 dev/stdout
  ln -s /proc/self/fd/2 dev/stderr
}

# Root without capabilities may still write what belongs to root: of the kernel's settings only those of the network,
# which is private, can be written.
make_proc() {
  mount -n -t proc proc proc
  mount -n --bind proc/sys/net proc/sys/net
  mount -n --rbind proc/sys proc/sys
  mount -n -o remount,bind,ro proc/sys
  [ ! -e proc/sysrq-trigger ] || mount -n --bind /dev/null proc/sysrq-trigger
}

start_loopback() {
  ip link set lo up 2> /dev/null || perl -e 'use Socket; my ($set_flags, $up) = (0x8914, 0x1);
    socket(my $socket, AF_INET, SOCK_DGRAM, 0) && ioctl($socket, $set_flags, pack("a16sx14", "lo", $up)) || die "lo: $!"'
}

main() {
  local user=$1 data_options=$2 trees=() privileges status=0
  shift 2
  while [ "$1" != -- ]; do
    trees+=("$1")
    shift
  done
  shift
  # No tree is below /sys, so that the new root hides none while it is made.
  make_root /sys "${trees[@]}"
  make_devices
  make_proc
  if [ "$user" -eq 0 ]; then
    # A test makes a second network namespace, which takes sys_admin.
    privileges=("--bounding-set=-all,+net_admin,+net_raw,+dac_override,+sys_admin")
  else
    start_loopback
    privileges=(--reuid "$user" --regid "$user" --bounding-set=-all)
  fi
  pivot_root . old
  umount -l /old
  rmdir /old
  cd /tmp
  # The first process of a namespace ignores signals that it does not catch, so that the command is another one.
  HOME=/tmp setpriv --clear-groups --no-new-privs --inh-caps=-all "${privileges[@]}" "$@" || status=$?
  exit "$status"
}

main "$@"
