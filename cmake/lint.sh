#!/usr/bin/env bash
# Formatting and static checks of the whole tree; run as ./dev lint, after a build.
set -uo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
failed=0

mapfile -t sources < <(git ls-files '*.cpp' '*.h' '*.hpp' '*.c')
if ! clang-format --dry-run --Werror "${sources[@]}"; then
    echo "lint: repair the formatting with: clang-format -i \$(git ls-files '*.cpp' '*.h' '*.hpp' '*.c')" >&2
    failed=1
fi

mapfile -t workflows < <(git ls-files '.github/workflows/*.yml' | sed "s|^|$PWD/|")
(cd build/workflow_lint && node "$OLDPWD/cmake/workflow_lint/lint.cjs" "${workflows[@]}") || failed=1

# Where every file has its own command.
cmake --preset release -B build/lint -DKESTRO_UNITY=OFF --log-level=WARNING >/dev/null &&
    cmake --build build/lint --target vds_interfaces_header >/dev/null || exit 1
mapfile -t cross < <(cmake/cross-headers | sed 's/^/--extra-arg=-isystem/')
mapfile -t windows < <(git ls-files 'src/*.cpp' 'host/*.cpp' 'examples/*.cpp')
printf '%s\0' "${windows[@]}" | xargs -0 -n 1 -P "$(nproc)" \
    clang-tidy --quiet -p build/lint --extra-arg=--target=x86_64-w64-mingw32 \
    --extra-arg=-nostdinc++ --extra-arg=-Wno-unknown-warning-option "${cross[@]}" \
    2> >(grep -v ' generated\.$' >&2) || failed=1

[ $failed = 0 ] && echo "lint: clean"
exit $failed
