#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Where user namespaces are refused, root makes the sandbox, and it is like the usual one; users other than root skip.
# A bwrap that only fails is such a machine.
# shellcheck disable=SC2016 # the shell in the sandbox expands what is in single quotes
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
[ "$EUID" -eq 0 ] || { echo "[  SKIPPED ] this machine runs the tests without root, who makes this sandbox" && exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"
printf '#!/bin/sh\necho "bwrap: refused" >&2\nexit 1\n' > "$work/bwrap"
chmod 755 "$work/bwrap"
export PATH=$work:$PATH
sandbox() { "$SOURCE_TREE/tests/sandbox.sh" "$@" 2> "$work/errors"; }

# expect_line NAME TEXT ACTUAL
expect_line() { [ "$2" = "$3" ] || { echo "$1: '$3', not '$2'" && failed=1; }; }

status=0
sandbox "$work" -- true || status=$?
if [ "$status" -eq 77 ]; then
  echo "[  SKIPPED ] this machine does not let root make a sandbox"
  exit 77
fi
expect_line "errors" "bwrap: refused
sandbox.sh: no user namespaces here: the command runs in a sandbox that root makes" "$(< "$work/errors")"
expect_line "status" 0 "$status"
status=0
sandbox "$work" -- sh -c 'exit 5' || status=$?
expect_line "status of a failure" 5 "$status"

folders='/data /kelonv/data /kelonvbak/data /mnt/vendor/nvdata /tmp'
expect_line "user, folder, home, capabilities" "1000 1000 /tmp /tmp 0000000000000000" \
  "$(sandbox "$work" -- sh -c 'echo $(id -u) $(id -G) $PWD $HOME $(sed -n "s/^CapBnd:.//p" /proc/self/status)')"
expect_line "private folders" "" "$(sandbox "$work" -- sh -c "find $folders ! -type d; touch ${folders// //x } /tmp/x" 2>&1)"
expect_line "nothing left" "" "$(find / -maxdepth 1 -name old; sandbox "$work" -- find /data ! -type d)"
expect_line "tree" "bwrap no" \
  "$(sandbox --interfaces "$work" -- sh -c "echo \$(ls /outside$work/bwrap | sed 's|.*/||') \$(touch /outside$work/x 2> /dev/null && echo yes || echo no)")"
expect_line "loopback" "up" "$(sandbox "$work" -- sh -c 'grep -q 127.0.0.1 /proc/net/fib_trie && echo up')"
expect_line "loopback with --interfaces" "0 down" \
  "$(sandbox --interfaces "$work" -- sh -c 'echo $(id -u) $(grep -q 127.0.0.1 /proc/net/fib_trie || echo down)')"
expect_line "size of /data" "65536" "$(sandbox --data-size 65536 "$work" -- sh -c 'echo $(($(stat -f -c "%b * %S" /data)))')"
expect_line "settings of the kernel" "refused" \
  "$(sandbox --interfaces "$work" -- sh -c '(echo x > /proc/sys/kernel/hostname) 2> /dev/null || echo refused')"

status=0
sandbox --user-namespaces "$work" -- true > /dev/null || status=$?
expect_line "status where the command needs user namespaces" 77 "$status"

chmod 644 "$work/errors" && chmod 777 "$work"
status=0
setpriv --reuid 1000 --regid 1000 --clear-groups "$SOURCE_TREE/tests/sandbox.sh" "$work" -- true > /dev/null 2>&1 || status=$?
expect_line "status of another user" 77 "$status"
exit "$failed"
