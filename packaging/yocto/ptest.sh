#!/bin/sh
# SPDX-License-Identifier: MIT
# Installed as run-ptest: tries the library on the device, with the programs beside it. The second program stores a
# setting. It sees an empty /data of its own, so that the settings of the device stay as they are.
cd -- "$(dirname -- "$0")" || exit 1
failed=0

# try NAME TEXT COMMAND...: COMMAND prints TEXT alone.
try() {
  name=$1 text=$2
  shift 2
  printed=$("$@" 2>&1) || printed="$printed (exit status $?)"
  if [ "$printed" = "$text" ]; then
    echo "PASS: $name"
  else
    echo "$printed"
    echo "FAIL: $name"
    failed=1
  fi
}

try own_hooks "reg 1, area 1 41, version 1 42 1, health 43, init 1, records 2" ./own_hooks
if unshare -m mount -t tmpfs tmpfs /data 2> /dev/null; then
  try storage "SSID is cabin, health is 0" unshare -m sh -c 'mount -t tmpfs tmpfs /data && exec ./daemon'
else
  echo "SKIP: storage"
fi
exit "$failed"
