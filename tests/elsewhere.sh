#!/usr/bin/env bash
# What ./dev elsewhere runs: a minimal Debian system of another release, a clean clone of what is committed
# here, the README's two commands in it, and the demo once more as an ordinary user; with --package, ./dev package
# instead, which brings back the package for that release.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

. tests/other_system.sh

die() { printf 'elsewhere: %s\n' "$*" >&2; exit 1; }
say() { printf '\033[1m== %s\033[0m\n' "$*"; }

release=13
system=
package=
while [ $# -gt 0 ]; do
    case "$1" in
    12 | 13) release=$1 ;;
    --package) package=yes ;;
    --in) system=${2:?--in needs a folder} && shift ;;
    *) die "usage: ./dev elsewhere [12|13] [--package] [--in FOLDER], which keeps the system there for the next time" ;;
    esac
    shift
done

[ "$(id -u)" = 0 ] || die "only root can set up another system"
[ -z "$(git status --porcelain --untracked-files=no)" ] ||
    printf 'elsewhere: uncommitted changes are not taken along\n' >&2

keep=yes
if [ -z "$system" ]; then
    system=$(mktemp -d "${TMPDIR:-/tmp}/kestro-elsewhere-XXXXXX")
    keep=
fi
finish() {
    if [ -z "$keep" ]; then rm -rf --one-file-system "$system"; fi
}
trap finish EXIT

log="$PWD/build/elsewhere-debian$release.log"
mkdir -p build "$system"
system=$(readlink -f "$system")
: >"$log"

[ -e "$system/etc/debian_version" ] || say "making a minimal Debian $release"
make_system "$release" "$system" "$log" || die "there is no other system, see $log"

say "cloning $(git rev-parse --short HEAD)"
rm -rf "$system/srv/kestro"
git clone -q --no-hardlinks --depth 1 "file://$PWD" "$system/srv/kestro"

failed=0
try() { # try DESCRIPTION COMMAND...
    local what="$1" start=$SECONDS outcome=passed
    shift
    say "Debian $release: $what"
    inside "$system" /srv/kestro "$@" >>"$log" 2>&1 || { outcome=FAILED failed=1; tail -n 30 "$log"; }
    printf '%s %s on Debian %s after %d min %02d s\n' "$what" "$outcome" "$release" \
        $(((SECONDS - start) / 60)) $(((SECONDS - start) % 60)) | tee -a "$log"
}
if [ -n "$package" ]; then
    try "./dev package" ./dev package
    [ $failed = 1 ] || { mkdir -p build/packages && cp "$system"/srv/kestro/build/packages/*.deb* build/packages/; }
else
    try "./dev demo" ./dev demo
    try "./dev test" ./dev test
    # What is built stays; the Wine prefix is the user's own.
    try "./dev demo as an ordinary user" bash -c 'id -u someone >/dev/null 2>&1 || useradd -m someone
        rm -rf build/wine && chown -R someone . && su someone -c "./dev demo"'
fi
inside "$system" / bash -c 'for package in g++ g++-mingw-w64-x86-64-posix wine64 libwim-dev; do
    dpkg-query -W "$package"; done' | tee -a "$log" || true
echo "everything that was said: $log"
exit $failed
