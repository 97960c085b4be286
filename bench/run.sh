#!/usr/bin/env bash
# Measures the library; run as ./dev bench [--quick]. Tables go to standard output, JSON and plots to
# build/bench.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

export WINEPREFIX="$PWD/build/wine"
out="$PWD/build/bench"
bin=build/release/bin
mkdir -p "$out"
trap 'platform/kestro-wine --stop' EXIT
platform/kestro-wine --start

windows_path() { printf 'Z:%s' "${1//\//\\}"; }

# A copy: the library that is measured is loaded already under its own name.
cp "$bin/Kestro.dll" "$out/KestroCopy.dll"
platform/kestro-wine "$bin/library_bench.exe" "$(windows_path "$out/KestroCopy.dll")" \
    "$(windows_path "$PWD/build/release/bench/empty_library.dll")" "$@" \
    "$(windows_path "$out/library.json")"

echo
echo "JSON: build/bench/library.json"
