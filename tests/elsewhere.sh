#!/usr/bin/env bash
# What ./dev elsewhere runs: a minimal Debian system of another release, a clean clone of what is committed
# here, and the README's two commands in it.
#
# Everything runs in namespaces of its own: the mounts and processes of the other system end with this
# script, however it ends.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

die() { printf 'elsewhere: %s\n' "$*" >&2; exit 1; }
say() { printf '\033[1m== %s\033[0m\n' "$*"; }

release=13
system=
while [ $# -gt 0 ]; do
    case "$1" in
    12 | 13) release=$1 ;;
    --in) system=${2:?--in needs a folder} && shift ;;
    *) die "usage: ./dev elsewhere [12|13] [--in FOLDER], which keeps the system there for the next time" ;;
    esac
    shift
done
case $release in 12) suite=bookworm ;; 13) suite=trixie ;; esac

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

# The archive that this machine's own packages come from.
mirror=$(apt-get indextargets --format '$(REPO_URI) $(ORIGIN)/$(LABEL)' 'Created-By: Packages' |
    awk '$2 == "Debian/Debian" { print $1; exit }')
[ -n "$mirror" ] || die "the apt sources here name no Debian archive"

if [ ! -e "$system/etc/debian_version" ]; then
    say "making a minimal Debian $release ($suite)"
    debootstrap --variant=minbase "$suite" "$system" "$mirror" >>"$log" 2>&1 ||
        { tail "$log"; die "debootstrap failed, see $log"; }
    echo "deb $mirror $suite main" >"$system/etc/apt/sources.list"
fi
cp /etc/resolv.conf "$system/etc/resolv.conf"

say "cloning $(git rev-parse --short HEAD)"
rm -rf "$system/root/kestro"
git clone -q --no-hardlinks --depth 1 "file://$PWD" "$system/root/kestro"

# Runs a command in the clone, inside the other system; its devices are the few that programs need.
inside() {
    # shellcheck disable=SC2016 # the inner shell expands these
    unshare --mount --pid --fork --kill-child bash -euc '
        system=$1
        shift
        mount --make-rprivate /
        mount -t tmpfs -o mode=755 dev "$system/dev"
        for device in null zero full random urandom tty fuse; do
            [ -e "/dev/$device" ] || continue
            touch "$system/dev/$device"
            mount --bind "/dev/$device" "$system/dev/$device"
        done
        ln -s /proc/self/fd "$system/dev/fd"
        mkdir "$system/dev/shm" "$system/dev/pts"
        mount -t devpts -o newinstance,ptmxmode=0666 devpts "$system/dev/pts"
        ln -s pts/ptmx "$system/dev/ptmx"
        mount -t tmpfs shm "$system/dev/shm"
        mount -t proc proc "$system/proc"
        mount -t sysfs -o ro sysfs "$system/sys"
        exec chroot "$system" /usr/bin/env -i HOME=/root TERM=dumb LANG=C.UTF-8 \
            PATH=/usr/sbin:/usr/bin:/sbin:/bin ${http_proxy:+http_proxy="$http_proxy"} \
            bash -c "cd /root/kestro && exec \"\$@\"" bash "$@"
    ' bash "$system" "$@" </dev/null
}

failed=0
for command in "./dev demo" "./dev test"; do
    say "Debian $release: $command"
    start=$SECONDS outcome=passed
    # shellcheck disable=SC2086 # a command and its argument
    inside $command >>"$log" 2>&1 || { outcome=FAILED failed=1; tail -n 30 "$log"; }
    printf '%s %s on Debian %s after %d min %02d s\n' "$command" "$outcome" "$release" \
        $(((SECONDS - start) / 60)) $(((SECONDS - start) % 60)) | tee -a "$log"
done
inside bash -c 'for package in g++ g++-mingw-w64-x86-64-posix wine64 libwim-dev; do
    dpkg-query -W "$package"; done' | tee -a "$log" || true
echo "everything that was said: $log"
exit $failed
