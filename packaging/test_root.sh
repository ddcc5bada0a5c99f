#!/bin/sh
# The packages in a root of their own with nothing else but Debian: installed, upgraded over those in BEFORE_DIR (if it
# is named), each of their tests run and the readme's roads walked, removed; what is there before and after must be the
# same.
#
#   test_root.sh DEB_DIR ROOT [BEFORE_DIR]        as root
#
# ROOT is made with debootstrap if it is not there. The packages that the tests need are taken from the mirror.
set -eu

debs=$1 root=$2 before=${3:-}
mirror=${MIRROR:-http://deb.debian.org/debian}
packages="libcmodel1 libcmodel-dev cmodel-tools python3-cmodel cmodel-sv"
[ -e "$root/usr/bin/apt-get" ] || debootstrap --variant=minbase bookworm "$root" "$mirror"

in_root() {
    chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
        DEBIAN_FRONTEND=noninteractive "$@"
}
# Every directory, every file with its size; what dpkg, apt and caches note about themselves changes by nature.
list_files() {
    in_root find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /tmp -o -path /debs \
        -o -path /var/lib/dpkg -o -path /var/lib/apt -o -path /var/cache -o -path /var/log \
        -o -path /etc/ld.so.cache \) -prune -o -type d -printf '%p/\n' -o -printf '%p %s\n' | LC_ALL=C sort
}
install_debs() { # DIRECTORY
    rm -rf "$root/debs"
    mkdir -p "$root/debs"
    for package in $packages; do
        cp "$1/$package"_*.deb "$root/debs"
    done
    in_root sh -c 'dpkg -i /debs/*.deb' >"$root/tmp/dpkg.log" 2>&1 || {
        cat "$root/tmp/dpkg.log" >&2
        exit 1
    }
}

[ -e "$root/proc/self" ] || mount -t proc proc "$root/proc"
trap 'umount "$root/proc" 2>/dev/null || true' EXIT
# A run that was ended may have left them installed. What the packages depend on stays; it is there before.
# shellcheck disable=SC2086  # a list of words
in_root dpkg --purge $packages >/dev/null 2>&1
in_root apt-get update -q >/dev/null
needed=$(for package in $packages; do dpkg-deb -f "$(ls "$debs/$package"_*.deb)" Depends; done | tr ',' '\n' |
    sed 's/(.*//; s/|.*//; s/ //g' | grep -v '^libcmodel' | sort -u)
# shellcheck disable=SC2086  # a list of words
in_root apt-get install -q -y --no-install-recommends $needed \
    gcc g++ libc6-dev pkg-config make man-db verilator bash-completion >/dev/null
list_files >"$root/tmp/before.txt"

if [ -n "$before" ]; then
    install_debs "$before"
    echo "installed: $(in_root dpkg-query -W -f '${Package} ${Version}, ' $packages)"
fi
install_debs "$debs"
echo "installed: $(in_root dpkg-query -W -f '${Package} ${Version}, ' $packages)"

tests=$(dirname "$0")/debian/tests
for test in compile-c program python verilator; do
    cp "$tests/$test" "$root/tmp/$test"
    scratch=$(mktemp -d -p "$root/tmp")
    in_root env AUTOPKGTEST_TMP="/tmp/${scratch##*/}" "/tmp/$test" >"$root/tmp/$test.log" 2>&1 || {
        cat "$root/tmp/$test.log" >&2
        echo "test $test failed" >&2
        exit 1
    }
    echo "test $test: passed"
done

# The roads of the readme, as they stand there.
readme=$(dirname "$0")/../README.md
sed -n 's/^### I //p' "$readme" | while read -r road; do
    scratch=$(mktemp -d -p "$root/tmp")
    sed -n "/^### I $road\$/,/^##/p" "$readme" | sed -n '/^```sh$/,/^```$/p' | sed '/^```/d' >"$scratch/road.sh"
    [ -s "$scratch/road.sh" ]
    in_root sh -c "cd '/tmp/${scratch##*/}' && sh -eux road.sh" >"$root/tmp/road.log" 2>&1 || {
        cat "$root/tmp/road.log" >&2
        echo "the road 'I $road' fails" >&2
        exit 1
    }
    cat "$root/tmp/road.log"
    echo "the road 'I $road': passed"
done

# shellcheck disable=SC2086
in_root dpkg --purge $packages >/dev/null
list_files >"$root/tmp/after.txt"
if ! diff "$root/tmp/before.txt" "$root/tmp/after.txt" >"$root/tmp/left.txt"; then
    cat "$root/tmp/left.txt"
    echo "the packages leave something behind" >&2
    exit 1
fi
echo "removed, nothing is left behind"
