#!/usr/bin/env bash
# Writes the baselines that the test build.abi compares with: what the two built libraries offer becomes what every
# later build has to offer. Usage: renew.sh LIBRARY-OF-X86_64 LIBRARY-OF-ARMHF
set -euo pipefail
here=$(dirname -- "${BASH_SOURCE[0]}")

renew() {
  "$here/describe.sh" "$2" > "$here/kelo_utils-$1.abi.new"
  mv "$here/kelo_utils-$1.abi.new" "$here/kelo_utils-$1.abi"
  echo "abi/kelo_utils-$1.abi: $(grep -c '<elf-symbol ' "$here/kelo_utils-$1.abi") names"
}

renew x86_64 "$1"
renew armhf "$2"
