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
    # What a step that failed has left mounted.
    ! mountpoint -q "$work/mount" || kestro unmount "$work/mount" --discard
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

# An empty registry hive: a root key and nothing in it. hivexregedit changes hives and makes none.
empty_hive() { # empty_hive FILE
    local file="$1" at bytes
    truncate -s 8192 "$file"
    while read -r at bytes; do
        printf "$bytes" | dd of="$file" bs=1 seek="$at" conv=notrunc status=none
    done <<'CELLS'
0 regf\001\000\000\000\001
20 \001\000\000\000\005
32 \001\000\000\000\040
41 \020\000\000\001
508 Vugf
4096 hbin
4105 \020
4128 \240\377\377\377nk\054
4148 \377\377\377\377
4160 \377\377\377\377\377\377\377\377
4172 \377\377\377\377\200\000\000\000\377\377\377\377
4204 \004\000\000\000ROOT
4224 \320\377\377\377sk\000\000\200\000\000\000\200\000\000\000\001\000\000\000\024\000\000\000\001\000\000\200
4272 P\017
CELLS
}

say "A Windows image, made with wimlib-imagex"
config="$work/tree/Windows/System32/config"
mkdir -p "$config" "$work/tree/Windows/INF" "$work/mount"
printf 'MZ placeholder for the kernel\n' >"$work/tree/Windows/System32/ntoskrnl.exe"
printf '127.0.0.1 localhost\r\n' >"$work/tree/Windows/System32/hosts"
head -c 3000000 /dev/urandom >"$work/tree/Windows/System32/large.bin"
for hive in SYSTEM SOFTWARE DRIVERS; do empty_hive "$config/$hive"; done
hivexregedit --merge "$config/SYSTEM" <<'REG'
Windows Registry Editor Version 5.00

[\Select]
"Current"=dword:00000001

[\ControlSet001]

[\ControlSet001\Services]

[\DriverDatabase]
REG
hivexregedit --merge "$config/SOFTWARE" <<'REG'
Windows Registry Editor Version 5.00

[\Microsoft]

[\Microsoft\Windows NT]

[\Microsoft\Windows NT\CurrentVersion]
"CurrentMajorVersionNumber"=dword:0000000a
"CurrentMinorVersionNumber"=dword:00000000
"CurrentBuildNumber"="22631"
REG
run wimlib-imagex capture "$work/tree" "$work/install.wim" "Demo" --compress=LZX --quiet

say "Mount it"
kestro mount "$work/install.wim" "$work/mount"
if mountpoint -q "$work/mount"; then
    echo "   mounted lazily: a process shows the image, an overlay takes the changes"
else
    echo "   mounted by extracting the image"
fi
expect "the mounted tree is the captured one" diff -r "$work/tree" "$work/mount"

say "Change it"
printf '10.0.0.1 deployment\r\n' >>"$work/mount/Windows/System32/hosts"
printf 'made by the demo\n' >"$work/mount/Windows/new.txt"
rm "$work/mount/Windows/System32/large.bin"
echo "   hosts changed, new.txt added, large.bin removed"

say "Add two driver packages: a device's, and a storage controller's that Windows starts from"
packages=build/platform/samples/drivers/signed
kestro driver add "$work/mount" "$packages/kestrodisplay.inf" "$packages/kestrostor.inf"
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
catalogs="/Windows/System32/CatRoot/{F750E6C3-38EE-11D1-85E5-00C04FC295EE}"
expect "the INFs are in the image" same_as "$packages/kestrodisplay.inf" /Windows/INF/oem0.inf
expect "the catalogs are in the image" same_as "$packages/kestrostor.cat" "$catalogs/oem1.cat"

say "Where the storage controller went, by hivexregedit and wimlib-imagex"
expect "its driver lies where Windows loads it from" \
    same_as "$packages/amd64/kestrostor.sys" /Windows/System32/drivers/kestrostor.sys
for hive in SYSTEM SOFTWARE DRIVERS; do inside "/Windows/System32/config/$hive" >"$work/$hive"; done
show() { # show HIVE KEY: the key with all below it
    run hivexregedit --export --unsafe-printable-strings "$work/$1" "$2" | tail -n +3
}
has() { hivexregedit --export --unsafe-printable-strings "$work/$1" "$2" | grep -qF "$3"; }
show SYSTEM '\ControlSet001\Services\kestrostor'
show SYSTEM '\DriverDatabase\DriverInfFiles\oem1.inf'
show SOFTWARE '\Microsoft\Windows\CurrentVersion\Setup\PnpLockdownFiles'
expect "its service starts with the boot" \
    has SYSTEM '\ControlSet001\Services\kestrostor' '"Start"=dword:00000000'
expect "the numbers oem0 and oem1 are in use" has SYSTEM '\DriverDatabase' '"OemInfMap"=hex(3):c0'
expect "the device's package is in the other hive" \
    has DRIVERS '\DriverDatabase\DriverInfFiles\oem0.inf' kestrodisplay.inf_amd64_

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
