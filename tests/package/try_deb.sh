#!/usr/bin/env bash
# Installs the package for Debian on a minimal system of its release and uses it there: try_deb.sh FILE.deb
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
. tests/other_system.sh
package=$(readlink -f "$1")
name=$(basename "$package")

lintian --fail-on error,warning --allow-root "$package"
echo "   lintian finds nothing wrong with $name"

if [ "$(id -u)" != 0 ]; then
    echo "   $name is not tried: only root can set up a system to install it on"
    exit 0
fi
release=${name#*~deb} release=${release%%_*}

work=$(mktemp -d)
system="$work/system"
trap 'rm -rf --one-file-system "$work"' EXIT
step() { printf '   %s\n' "$*"; }
quietly() { # quietly COMMAND...: shows what it printed only when it fails
    "$@" >"$work/output" 2>&1 || { cat "$work/output" >&2; echo "FAILED: $*" >&2; exit 1; }
}
# As a user that the system has just got, or as root.
user() { inside "$system" /home/user setpriv --reuid 1000 --regid 1000 --clear-groups \
    env HOME=/home/user bash -euc "$1"; }
root() { inside "$system" /root bash -euc "$1"; }

mkdir "$system"
make_system "$release" "$system" "$work/log"
cp "$package" "$system/root/"
quietly root "export DEBIAN_FRONTEND=noninteractive
    apt-get update && apt-get install -y --no-install-recommends ./$name"
step "$name installs on a minimal Debian $release"

# An image as installation media have it, driver packages, and a user.
quietly python3 -B - "$work" <<'TEXT'
import os, subprocess, sys
folder = sys.argv[1]
os.environ.update(KESTRO_SOURCE=os.getcwd(), KESTRO_HOST="")
sys.path.insert(0, "tests/end_to_end")
from driver_package import make_packages, minimal_hive
os.makedirs(folder + "/tree/Windows/System32/config")
os.makedirs(folder + "/tree/Windows/INF")
with open(folder + "/tree/Windows/System32/config/DRIVERS", "wb") as hive:
    hive.write(minimal_hive())
for verb, name in (("capture", "Windows PE"), ("append", "Windows Setup")):
    subprocess.run(["wimlib-imagex", verb, folder + "/tree", folder + "/boot.wim", name,
                    "--image-property=WINDOWS/ARCH=9"], check=True)
make_packages(folder + "/my drivers")
TEXT
for home in home/user root; do
    mkdir -p "$system/$home/mount ü"
    cp -r "$work/boot.wim" "$work/my drivers" "$system/$home/"
done
chown -R 1000:1000 "$system/home/user"

for who in user root; do
    quietly "$who" '
        shown() { grep -qF -- "$1" out || { echo "no \"$1\" in:"; cat out; exit 1; }; }
        unset LANG
        kestro inject ~/boot.wim "my drivers" --index 2 >out 2>&1
        shown "$HOME/boot.wim, image 2, Windows Setup"
        shown "$HOME/my drivers/kestrohid.inf as oem3.inf"
        shown "6 added, 0 already there, 0 skipped, 0 failed"
        ! grep -F "\\" out
        kestro mount boot.wim "mount ü" --index "windows setup" >out 2>&1
        shown "Mounted in $HOME/mount ü, image 2"
        kestro mounts >out
        shown "$HOME/mount ü"
        kestro driver list "mount ü" --json >out
        shown "\"original_file\": \"$HOME/mount ü/Windows/System32/DriverStore/FileRepository/"
        test -e "mount ü/Windows/INF/oem5.inf"
        kestro unmount "mount ü" --discard >out 2>&1
        test -z "$(ls -A "mount ü")"
        ! kestro mount ~/none.wim "mount ü" >out 2>&1
        shown "0x80070002"
        code=0; kestro mont >out 2>&1 || code=$?
        test $code = 2'
    step "as $who: an image is mounted, filled and saved, with this system's paths"
done
# Wine ends by itself a few seconds after the last command.
# shellcheck disable=SC2016
quietly root 'kestro --version && for _ in $(seq 60); do
    sleep 1; readlink /proc/[0-9]*/exe | grep -q /wine || exit 0; done; exit 1'
step "nothing of Wine runs on after a command"

# shellcheck disable=SC2016
quietly root '. /usr/share/bash-completion/completions/kestro
    completes() { # completes WORD... RESULT: what the last word may become
        COMP_WORDS=("${@:1:$#-1}") COMP_CWORD=$(($# - 2))
        _kestro
        local found; found=$(printf "%s\n" "${COMPREPLY[@]}" | sort | xargs)
        [ "$found" = "${!#}" ] || { echo "$*: $found"; exit 1; }
    }
    completes kestro dri driver
    completes kestro driver "" "add export info list remove"
    completes kestro --log driver dri driver
    completes kestro --json driver e export
    completes kestro mount --in --index
    completes kestro unmount --dis --discard
    completes kestro disk clean --force "--force --force-oem"
    completes kestro help d "disk driver"
    completes kestro mount --index dri ""
    completes kestro mount boot ""'
step "bash completes commands and options"

# shellcheck disable=SC2016
quietly root 'zcat /usr/share/man/man1/kestro.1.gz >page
    for words in $(kestro help | sed -n "/^Subcommands/,/^$/s/^  \([a-z]*\) .*/\1/p"); do
        grep -q "^.SS kestro $words" page || { echo "nothing of $words"; exit 1; }; done
    grep -q "kestro inject /srv/boot.wim /srv/drivers" page'
step "the manual page has every command"

quietly root "apt-get remove -y kestro && ! test -e /usr/lib/kestro && ! command -v kestro"
step "it goes without a trace"
