#!/usr/bin/env bash
# Measures the library and the embedded platform; run as ./dev bench [--quick]. Tables go to standard
# output, JSON and plots to build/bench.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

quick=()
case "$*" in
"") ;;
--quick) quick=(--quick) ;;
*)
    echo "usage: ./dev bench [--quick]" >&2
    exit 2
    ;;
esac

export WINEPREFIX="$PWD/build/wine-bench"
out="$PWD/build/bench"
bin=build/release/bin
mkdir -p "$out"
trap 'platform/kestro-wine --stop' EXIT
platform/kestro-wine --start

windows_path() { printf 'Z:%s' "${1//\//\\}"; }

echo "measuring the library" >&2
# A copy: the library that is measured is loaded already under its own name.
cp "$bin/Kestro.dll" "$out/KestroCopy.dll"
platform/kestro-wine "$bin/library_bench.exe" "$(windows_path "$out/KestroCopy.dll")" \
    "$(windows_path "$PWD/build/release/bench/empty_library.dll")" "${quick[@]}" \
    "$(windows_path "$out/library.json")"

echo "measuring the embedded platform" >&2
# Debian's own, which finds Debian's matplotlib.
export PATH="/usr/bin:$PATH"
python3 bench/platform_bench.py "${quick[@]}"

echo
python3 bench/plots.py "$out"
echo "JSON: build/bench/library.json, build/bench/platform.json"
