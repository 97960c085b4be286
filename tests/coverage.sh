#!/usr/bin/env bash
# Line and branch coverage of Kestro.dll by the tests that load it, in build/coverage-report; run as
# ./dev coverage, after a build. It fails where tests/coverage.md does not explain what is missing.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

export WINEPREFIX="$PWD/build/wine-coverage" WINEDLLOVERRIDES="mscoree,mshtml=;dismapi=n"
# The test programs are the release build's; the library is the one that counts.
export KESTRO_DLL="$PWD/build/coverage/bin/Kestro.dll" KESTRO_INSTRUMENTED=1
report=build/coverage-report

find build/coverage -name '*.gcda' -delete
rm -rf "$report"
mkdir -p "$report"
trap 'platform/kestro-wine --stop' EXIT
platform/kestro-wine --start

for program in build/release/tests/bin/{{mount,report,session,exception,device,disk}_contract,matrix,real_files}_test.exe; do
    echo "coverage: $(basename "$program" .exe)" >&2
    platform/kestro-wine "$program" --gtest_brief=1 >"$report/test.log" 2>&1 ||
        { head -60 "$report/test.log" >&2; echo "coverage: $program failed" >&2; exit 1; }
done
rm "$report/test.log"

# Edges that only an exception takes are left out: the tests let every allocation, copy and conversion
# fail in turn, but a call that cannot throw has such an edge too.
gcovr --root . --filter 'src/' --gcov-executable x86_64-w64-mingw32-gcov-posix \
    --exclude-throw-branches --exclude-unreachable-branches build/coverage/src \
    --json-summary "$report/summary.json" --json-summary-pretty \
    --json "$report/coverage.json" --html-details "$report/index.html" --txt "$report/lines.txt"
exec tests/coverage_check.py "$report/coverage.json" tests/coverage.md
