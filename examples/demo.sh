#!/usr/bin/env bash
# What Kestro does, in front of you: kestro.exe, Kestro.dll and the embedded platform work on a real image
# and a real partition table; wimlib-imagex, sfdisk and blkid, which are not ours, make them and check
# them. Run it as ./dev demo.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

export WINEPREFIX="$PWD/build/wine"
work=$(mktemp -d)
disks="$WINEPREFIX/drive_c/ProgramData/Kestro/disks.ini"
finish() {
    # The disk service's own list comes back.
    [ ! -f "$work/disks.ini" ] || mv "$work/disks.ini" "$disks"
    rm -rf "$work"
    platform/kestro-wine --stop
}
trap finish EXIT

say() { printf '\n\033[1m== %s\033[0m\n' "$*"; }
run() { printf '\033[2m$ %s\033[0m\n' "$*"; "$@"; }
kestro() {
    printf '\033[2m$ kestro %s\033[0m\n' "$*"
    platform/kestro-wine build/release/bin/kestro.exe "$@"
}
expect() { # expect DESCRIPTION COMMAND...: the command's outcome is the check
    local what="$1"
    shift
    if "$@"; then
        printf '   \033[32mchecked\033[0m: %s\n' "$what"
    else
        printf '   \033[31mFAILED\033[0m: %s\n' "$what" >&2
        exit 1
    fi
}

say "A Windows image, made with wimlib-imagex"
mkdir -p "$work/tree/Windows/System32/config" "$work/tree/Windows/INF" "$work/mount"
printf 'MZ placeholder for the kernel\n' >"$work/tree/Windows/System32/ntoskrnl.exe"
printf '127.0.0.1 localhost\r\n' >"$work/tree/Windows/System32/hosts"
head -c 3000000 /dev/urandom >"$work/tree/Windows/System32/large.bin"
run wimlib-imagex capture "$work/tree" "$work/install.wim" "Demo" --compress=LZX --quiet

say "Mount it"
kestro mount "$work/install.wim" "$work/mount"
expect "the mounted tree is the captured one" diff -r "$work/tree" "$work/mount"

say "Change it"
printf '10.0.0.1 deployment\r\n' >>"$work/mount/Windows/System32/hosts"
printf 'made by the demo\n' >"$work/mount/Windows/new.txt"
rm "$work/mount/Windows/System32/large.bin"
echo "   hosts changed, new.txt added, large.bin removed"

say "Add a driver package"
packages=build/platform/samples/drivers/signed
kestro driver add "$work/mount" "$packages/kestrohid.inf"
kestro driver list "$work/mount"

say "Unmount it, saving the changes"
kestro unmount "$work/mount" --commit

say "Check the image with wimlib-imagex"
run wimlib-imagex verify "$work/install.wim" --quiet && echo "   verified"
run wimlib-imagex dir "$work/install.wim" 1
inside() { wimlib-imagex extract "$work/install.wim" 1 "$1" --to-stdout; }
absent() { ! inside "$1" >/dev/null 2>&1; }
same_as() { inside "$2" | cmp -s - "$1"; }
nothing_on() { ! "$@" "$work/disk.img" >/dev/null 2>&1; }
contains() { inside "$1" | grep -q "$2"; }
expect "hosts holds the new line" contains /Windows/System32/hosts deployment
expect "new.txt is in the image" contains /Windows/new.txt "made by the demo"
expect "large.bin is gone" absent /Windows/System32/large.bin
expect "the driver's INF is in the image" same_as "$packages/kestrohid.inf" /Windows/INF/oem0.inf
expect "its catalog is in the image" same_as "$packages/kestrohid.cat" \
    "/Windows/System32/CatRoot/{F750E6C3-38EE-11D1-85E5-00C04FC295EE}/oem0.cat"

say "A disk with partitions, made with sfdisk"
truncate -s 64M "$work/disk.img"
printf 'label: gpt\n2048,40960,U\n,,L\n' | sfdisk -q "$work/disk.img"
sfdisk -l "$work/disk.img"
mkdir -p "$(dirname "$disks")"
[ ! -f "$disks" ] || mv "$disks" "$work/disks.ini"
printf '[Demo]\r\nName=\\\\?\\PhysicalDrive1\r\nFile=Z:%s\r\n' "$work/disk.img" >"$disks"

say "Clean it"
kestro disk clean '\\?\PhysicalDrive1' --force --yes
expect "sfdisk finds no partition table" nothing_on sfdisk -d
expect "blkid finds nothing" nothing_on blkid -p
rm "$disks"

say "All of it worked"
