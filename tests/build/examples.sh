#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The programs of examples/ build against an installed tree, and print what they say. The test that the Debian packages
# bring does it.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
build=$WORK/examples
rm -rf "$build"
mkdir -p "$build"
"$CMAKE" --install "$BINARY_TREE" --prefix "$build/prefix" > /dev/null
"$CMAKE" --install "$BINARY_TREE" --prefix "$build/prefix" --component tools > /dev/null
"$CMAKE" --install "$BINARY_TREE" --prefix "$build/prefix" --component python > /dev/null

library=$(find "$build/prefix" -name libkelo_utils.so -printf '%h\n')
export PKG_CONFIG_PATH=$library/pkgconfig LD_LIBRARY_PATH=$library CMAKE_PREFIX_PATH=$build/prefix
export MODEM=$build/prefix/bin/kelo_scripted_modem PYTHON_MODULES=$build/prefix/lib/python3/dist-packages
export AUTOPKGTEST_TMP=$build
unset EMULATOR
exec "$SOURCE_TREE/debian/tests/examples" "$SOURCE_TREE/tests/sandbox.sh" "$SOURCE_TREE" "$BINARY_TREE" --
