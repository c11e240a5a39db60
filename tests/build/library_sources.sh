# SPDX-License-Identifier: MIT
# Shared by the tests that read the texts of the library's sources.
# shellcheck shell=bash disable=SC2034  # the scripts that read this file use what is set here
messages_program=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)/messages.awk
sources=()

# find_sources TREE FOLDER...: enters TREE, and sets `sources` to the sources in the folders.
find_sources() {
  local folder source
  cd -- "$1" || return
  shift
  for folder in "$@"; do
    for source in "$folder"/*.[ch]pp; do
      [ ! -e "$source" ] || sources+=("$source")
    done
  done
}
