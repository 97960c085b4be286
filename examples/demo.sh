#!/usr/bin/env bash
# What Kestro does, in front of you: kestro.exe, Kestro.dll and the embedded platform work on a real
# image; wimlib-imagex, which is not ours, makes it and checks it. Run it as ./dev demo.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

export WINEPREFIX="$PWD/build/wine"
work=$(mktemp -d)
trap 'rm -rf "$work"; platform/kestro-wine --stop' EXIT

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

say "Unmount it, saving the changes"
kestro unmount "$work/mount" --commit

say "Check the image with wimlib-imagex"
run wimlib-imagex verify "$work/install.wim" --quiet && echo "   verified"
run wimlib-imagex dir "$work/install.wim" 1
inside() { wimlib-imagex extract "$work/install.wim" 1 "$1" --to-stdout; }
absent() { ! inside "$1" >/dev/null 2>&1; }
contains() { inside "$1" | grep -q "$2"; }
expect "hosts holds the new line" contains /Windows/System32/hosts deployment
expect "new.txt is in the image" contains /Windows/new.txt "made by the demo"
expect "large.bin is gone" absent /Windows/System32/large.bin

say "All of it worked"
