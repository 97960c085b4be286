#!/usr/bin/env bash
# Builds examples/container/Containerfile with the package for Debian 12 and uses the container, with and without
# /dev/fuse: try_container.sh FILE.deb. Says so where there is no engine that can.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
. tests/other_system.sh
package=$(readlink -f "$1")

step() { printf '   %s\n' "$*"; }
if [ "$(id -u)" != 0 ]; then
    step "the container is not tried: only root can set up the system that it starts from"
    exit 0
fi

work=$(mktemp -d)
engine=()
finish() {
    [ ${#engine[@]} = 0 ] || "${engine[@]}" rmi -f localhost/kestro-try localhost/kestro-try-base >/dev/null 2>&1 || true
    # Layers are mounts where the engine makes them so.
    rm -rf --one-file-system "$work"
}
trap finish EXIT
quietly() { # quietly COMMAND...: shows what it printed only when it fails
    "$@" >"$work/output" 2>&1 || { cat "$work/output" >&2; echo "FAILED: $*" >&2; exit 1; }
}

mkdir "$work/system" "$work/context"
# Limits that every engine may set, also one that may not raise this shell's.
limits=(--ulimit nofile=1024:1024 --ulimit nproc=1000:1000 --network host)
podman=(podman --root "$work/storage" --runroot "$work/run" --storage-driver vfs)
why="there is neither podman nor docker, or none of them can run one here"
try_engine() { # try_engine COMMAND...: whether a container of it runs
    command -v "$1" >/dev/null || return 1
    [ -e "$work/system/etc/debian_version" ] || make_system 12 "$work/system" "$work/log"
    engine=("$@")
    if ! { tar -C "$work/system" -c . | "$@" import - localhost/kestro-try-base &&
        "$@" run --rm "${limits[@]}" localhost/kestro-try-base true; } >"$work/output" 2>&1; then
        "$@" rmi -f localhost/kestro-try-base >/dev/null 2>&1 || true
        engine=()
        return 1
    fi
}
try_engine "${podman[@]}" || try_engine "${podman[@]}" --cgroup-manager cgroupfs --runtime runc ||
    try_engine docker || { step "the container is not tried: $why"; exit 0; }

cp "$package" examples/container/Containerfile "$work/context/"
isolation=()
[ "${engine[0]}" != podman ] || isolation=(--isolation chroot)
quietly "${engine[@]}" build "${isolation[@]}" --network host --build-arg BASE=localhost/kestro-try-base \
    -t localhost/kestro-try -f "$work/context/Containerfile" "$work/context"
step "the container is built (${engine[0]})"

mkdir -p "$work/images/tree/Windows/System32/config" "$work/images/tree/Windows/INF"
cp -r build/platform/samples/drivers/signed "$work/images/drivers"
quietly env KESTRO_SOURCE=. KESTRO_HOST= PYTHONPATH=tests/end_to_end python3 -B -c '
import sys
from driver_package import minimal_hive
sys.stdout.buffer.write(minimal_hive())'
cp "$work/output" "$work/images/tree/Windows/System32/config/DRIVERS"
inject() { # inject NAME OPTION...: in a container with these options
    local image="$work/images/$1.wim"
    shift
    quietly wimlib-imagex capture "$work/images/tree" "$image" Windows --image-property=WINDOWS/ARCH=9
    quietly "${engine[@]}" run --rm "${limits[@]}" -v "$work/images:/data" "$@" localhost/kestro-try \
        inject "$(basename "$image")" drivers --log "/data/log"
    grep -q '6 added, 0 already there, 0 skipped, 0 failed' "$work/output"
    [ "$(wimlib-imagex dir "$image" 1 | grep -ci '^/windows/inf/oem')" = 6 ]
}
inject without
grep -q 'the image is extracted' "$work/images/log"
step "without /dev/fuse it extracts an image, fills and saves it"
rm "$work/images/log"
if [ -e /dev/fuse ]; then
    inject with --device /dev/fuse --cap-add SYS_ADMIN --security-opt apparmor=unconfined
    grep -q 'the image is shown' "$work/images/log"
    step "with it, it shows the image, fills and saves it"
fi
