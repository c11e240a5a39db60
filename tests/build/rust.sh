#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# bindgen reads the headers without help: each exported name is in what it writes for Rust, and the layouts that Rust
# computes for the records are those of the headers, which is a program of tests when there is a compiler for Rust.
# Usage: rust.sh INCLUDE-FOLDER EXPORTS WORK [OPTION...]   Each OPTION is one for the headers. WORK is made anew.
set -euo pipefail
include=$1 exports=$2 work=$3
shift 3
command -v bindgen > /dev/null || { echo "[  SKIPPED ] this machine writes no bindings for Rust: no bindgen" && exit 77; }
rm -rf "$work"
mkdir -p "$work"
# Names in C are not spelled as names in Rust are.
bindgen --raw-line '#![allow(warnings)]' -o "$work/kelo_utils.rs" "$include/kelo_utils/kelo_utils.h" -- -I "$include" "$@"

missing=$(sed '/^#/d; /^$/d' "$exports" | while read -r name; do
  grep -qE "pub (fn|static|static mut) $name\b" "$work/kelo_utils.rs" || printf ' %s' "$name"
done)
[ -z "$missing" ] || { echo "not in the bindings:$missing" && exit 1; }

command -v rustc > /dev/null || { echo "bindings made; no rustc here, so their layouts were not compared" && exit 0; }
rustc --test -o "$work/layouts" "$work/kelo_utils.rs"
"$work/layouts" --quiet
