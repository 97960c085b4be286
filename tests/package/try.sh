#!/usr/bin/env bash
# Unpacks the packages of build/packages and uses them as their recipients do. Run by ./dev package.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
root="$PWD"
packages="$root/build/packages"

work=$(mktemp -d)
export WINEPREFIX="$work/prefix"
finish() {
    "$work"/kestro-*-wine/bin/kestro-wine --stop || true
    rm -rf "$work"
}
trap finish EXIT

step() { printf '   %s\n' "$*"; }
quietly() { # quietly COMMAND...: shows what it printed only when it fails
    "$@" >"$work/output" 2>&1 || { cat "$work/output" >&2; echo "FAILED: $*" >&2; exit 1; }
}

(cd "$packages" && quietly sha256sum -c ./*.sha256)
step "the checksums fit"

cd "$work"
unzip -q "$packages"/kestro-*-windows-x64.zip
unzip -q "$packages"/kestro-*-windows-check.zip
tar xzf "$packages"/kestro-*-wine.tar.gz
windows=$(echo "$work"/kestro-*-windows-x64)
wine=$(echo "$work"/kestro-*-wine)

quietly python3 -B "$root/tests/package/nuget_check.py" "$packages"/Kestro.*.nupkg "$windows"
step "the NuGet package is laid out as NuGet takes it"

quietly "$wine/set-up"
step "set-up makes a prefix in which the library works"
quietly "$wine/bin/kestro-wine" --start

quietly cmake -G Ninja -S "$windows/examples" -B "$work/examples" --toolchain "$root/cmake/toolchain-mingw-w64.cmake" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$windows" -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=BOTH
quietly cmake --build "$work/examples"
step "the examples build with find_package(Kestro)"

cp "$windows/bin/Kestro.dll" "$work/examples/"
export KESTRO_SOURCE="$root" KESTRO_PLATFORM="$wine/wine"
export KESTRO_MOUNT_HOST="$work/examples/mount_host.exe"
export KESTRO_SERVICE_IMAGE="$work/examples/service_image.exe" KESTRO_HOST="$windows/bin/kestro.exe"
cd "$root/tests/examples"
PYTHONPATH="$root/tests/end_to_end" quietly python3 -B -m unittest -v \
    c_test.MountHost.test_a_driver_goes_into_the_image \
    cpp_test.ServiceImage.test_more_packages_than_one_call_takes
cd "$work"
step "the hosts that were built change a real image"

quietly clang --target=x86_64-pc-windows-msvc -Wall -Werror -c "$root/tests/package/link_host.c" -o link_host.obj
quietly lld-link /nologo /entry:Start /subsystem:console /nodefaultlib /out:link_host.exe \
    link_host.obj "$windows/lib/Kestro.lib"
cp "$windows/bin/Kestro.dll" .
quietly "$wine/bin/kestro-wine" "$work/link_host.exe"
quietly grep -q '^TEST=TEST' result.ini
step "a host that lld-link linked with Kestro.lib reads what it wrote"

cd "$(echo "$work"/kestro-*-windows-check)"
echo "   the check for real Windows runs whole; it takes minutes"
# The tests bring their own DismApi.dll; where none lies beside a program, Wine takes the platform's.
WINEDLLOVERRIDES='mscoree,mshtml=;dismapi=n,b' "$wine/bin/kestro-wine" cmd /c check.cmd /y </dev/null >"$work/output" 2>&1 ||
    { cat report.txt "$work/output" >&2; exit 1; }
cp report.txt report.json "$packages/../"
step "the check for real Windows finds no difference: build/report.txt"
