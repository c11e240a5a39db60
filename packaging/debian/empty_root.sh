#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Tries packages and sources as a new user does, in an empty Debian: the README's daemon is built against the installed
# packages and run, and the demo is built from a clone and run, by an ordinary user.
# Usage: empty_root.sh TREE PACKAGES ROOT, as root. PACKAGES is a folder of packages, ROOT is made. What is not committed
# in TREE is not in the clone. The sources of packages are those of this machine.
set -euo pipefail
tree=$1 packages=$2 root=$3
[ "$(id -u)" -eq 0 ] || { echo "empty_root.sh: only root can make one" && exit 1; }
architecture=$(dpkg --print-architecture)
codename=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
log=$root.log

step() { printf '%4d s  %s\n' "$SECONDS" "$*"; }
# A changed root forbids user namespaces, and bubblewrap hides parts of /proc, which forbids to mount another one: the demo's
# sandbox needs both.
# shellcheck disable=SC2016 # for the inner shell
enter='mount --rbind "$1" "$1" && cd "$1" && shift && mount -t proc proc proc && mount --rbind /dev dev \
  && mount --bind /etc/resolv.conf etc/resolv.conf && pivot_root . mnt && umount -l /mnt && cd / && exec "$@"'
inside() {
  env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 unshare --mount --pid --fork --kill-child \
    sh -c "$enter" sh "$root" "$@"
}
install() { inside env DEBIAN_FRONTEND=noninteractive apt-get -q -y install --no-install-recommends "$@" >> "$log" 2>&1; }
as_user() {
  inside setpriv --reuid newcomer --regid newcomer --init-groups --bounding-set -all --inh-caps -all \
    env HOME=/home/newcomer bash -euc "cd; $1"
}

mapfile -t sources < <(find /etc/apt -maxdepth 2 -name sources.list -o -path '*/sources.list.d/*.list' -o -path '*.d/*.sources')
mmdebstrap --variant=minbase "$codename" "$root" "${sources[@]}" > "$log" 2>&1
inside apt-get -q update >> "$log" 2>&1
inside useradd -m newcomer
step "an empty Debian is made, $(inside dpkg-query -f . -W | wc -c) packages"

mkdir "$root/packages"
cp "$packages"/{libkelo-utils0,libkelo-utils-dev,kelo-utils-tools}_*_"$architecture".deb "$root/packages"
cp -r "$tree/README.md" "$tree/debian" "$root/packages"
mapfile -t files < <(cd "$root" && printf '/%s\n' packages/*.deb)
install "${files[@]}"
step "the packages are installed"
install gcc libc6-dev pkg-config cmake make
inside install -d -o newcomer /data
as_user 'AUTOPKGTEST_TMP=/home/newcomer/daemon /packages/debian/tests/daemon' 2>> "$log"
step "the daemon of the README runs"

install git
git -C "$tree" bundle create -q "$root/kelo_utils.bundle" HEAD
as_user 'git -c advice.detachedHead=false clone -q /kelo_utils.bundle kelo_utils'
if as_user 'kelo_utils/dev demo' > "$root/demo" 2>&1; then echo "the demo needed nothing" && exit 1; fi
missing=$(sed -n 's/.*install by hand //p' "$root/demo")
step "the demo asks the user for: $missing"
# shellcheck disable=SC2086 # a list of packages
install $missing
as_user 'kelo_utils/dev demo' > "$root/demo" 2>&1 || { cat "$root/demo" && exit 1; }
tail -n 2 "$root/demo"
step "the demo runs"
