#!/usr/bin/env bash
# A second compiler's opinion: the public headers in every language a host may be written in, by both
# compilers, then kestro.exe and the library by Clang, and the contract's tests with that library. Run as
# ./dev compilers, after a build.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

say() { printf '\033[1m== %s\033[0m\n' "$*" >&2; }

say "the public headers"
strict=(-fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Werror -Iinclude -Itests)
mapfile -t runtime < <(cmake/cross-headers | sed 's/^/-isystem/')
gcc_c() { x86_64-w64-mingw32-gcc-posix "$@"; }
gcc_cpp() { x86_64-w64-mingw32-g++-posix "$@"; }
clang_c() { clang --target=x86_64-w64-mingw32 "${runtime[@]}" "$@"; }
clang_cpp() { clang++ --target=x86_64-w64-mingw32 -nostdinc++ "${runtime[@]}" "$@"; }
each_header() { # each_header COMPILER FLAG...: the headers for C++, each alone, as a first include
    local header
    for header in include/kestro.hpp include/kestro/*.hpp; do
        "$@" "${strict[@]}" -x c++ -include "$header" /dev/null
    done
}
for compiler in gcc clang; do
    "${compiler}_c" "${strict[@]}" -std=c11 tests/surface/header_in_c.c
    for standard in c++20 c++2b; do
        "${compiler}_cpp" "${strict[@]}" -std=$standard tests/surface/header_in_cpp.cpp
        each_header "${compiler}_cpp" -std=$standard
    done
    echo "$compiler: C11, C++20, C++23"
done
clang_c "${strict[@]}" -std=c11 -fms-compatibility -fms-extensions -fdeclspec tests/surface/header_in_c.c
echo "clang, as Microsoft's compiler reads C: C11"

say "the library and kestro.exe by Clang"
cmake --preset clang -DKESTRO_WARNINGS_AS_ERRORS=ON --log-level=WARNING >&2
cmake --build --preset clang >&2

say "the contract with Clang's library, and its kestro.exe"
export WINEPREFIX="$PWD/build/wine-clang"
trap 'platform/kestro-wine --stop' EXIT
platform/kestro-wine --start
KESTRO_DLL="$PWD/build/clang/bin/Kestro.dll" ctest --preset release -j "$(nproc)" \
    -R '(_contract_test|^matrix_test|^real_files_test)$'
platform/kestro-wine build/clang/bin/kestro.exe --version
