#!/usr/bin/env bash
# The long tests, each step by its name; run as ./dev soak, after a build.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
logs=build/soak
mkdir -p "$logs"

say() { printf '\033[1m== %s\033[0m\n' "$*" >&2; }
fail() { printf 'soak: %s\n' "$*" >&2; exit 1; }

# Ends whatever the step started in its Wine prefix.
start_wine() {
    export WINEPREFIX="$PWD/build/$1"
    trap 'platform/kestro-wine --stop' EXIT
    platform/kestro-wine --start
}

# 100,000 calls in one process, eight threads, a ResultFile of 100 MB.
load() (
    say "load"
    start_wine wine-test
    export KESTRO_SOAK=1
    WINEDLLOVERRIDES='mscoree,mshtml=;dismapi=n' \
        platform/kestro-wine build/release/tests/bin/soak_test.exe | tee "$logs/load.log"
    ctest --preset release -R '^hostile$'
)

# 500 clients of the disk service one after another, and 8 at once that ask as often together.
disks() (
    say "disks"
    start_wine wine-test
    KESTRO_ACTIVATIONS=500 ctest --preset release -R '^end_to_end.disk$' --output-log "$logs/disks.log"
    grep activations "$logs/disks.log"
)

# All tests of the Windows programs on a build that ends the process at undefined behaviour, a broken
# assertion of the standard library or an overwritten stack.
trap_() (
    say "trap"
    cmake --preset trap --log-level=WARNING
    cmake --build --preset trap
    # The embedded platform's native half has no build of its own here.
    cp -rT build/platform/wine/x86_64-unix build/trap/wine/x86_64-unix
    cp -u build/platform/wine/x86_64-windows/dismapi.dll build/trap/wine/x86_64-windows
    export KESTRO_PLATFORM="$PWD/build/trap/wine"
    start_wine wine-trap
    ctest --preset trap -E '^docs\.' --output-log "$logs/trap.log"
)

# An overlay's changes saved again and again, in many random sequences; an image of many files.
replay() (
    say "replay"
    KESTRO_REPLAY_SEQUENCES=200 build/platform/tests/platform/images/image_store_test \
        --gtest_filter='ReplaySequences.*' | tee "$logs/replay.log"
    KESTRO_SHOWN_FILES=100000 build/platform/tests/platform/images/image_store_test \
        --gtest_filter='LazyCase.ShowsWhatApplyingExtracts' | tee -a "$logs/replay.log"
)

# The embedded platform's native tests with address and undefined-behaviour sanitizers.
sanitize() (
    say "sanitize"
    cmake --preset sanitize --log-level=WARNING
    cmake --build --preset sanitize
    ctest --preset sanitize --output-log "$logs/sanitize.log"
)

# The same tests as they are in the release, with every read of unset memory checked.
valgrind_() (
    say "valgrind"
    for test in images/image_store drivers/driver_store disks/disk; do
        echo "valgrind: $(basename "$test")" >&2
        valgrind --quiet --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite \
            --child-silent-after-fork=yes --log-file="$logs/valgrind-$(basename "$test").log" \
            "build/platform/tests/platform/${test}_test" --gtest_brief=1 || fail "see $logs/valgrind-*.log"
    done
)

# The native tests in which several threads work, with every access of theirs checked, libwim's too.
threads() (
    say "threads"
    valgrind --quiet --tool=helgrind --error-exitcode=99 --child-silent-after-fork=yes \
        --log-file="$logs/threads.log" build/platform/tests/platform/images/image_store_test --gtest_brief=1 \
        --gtest_filter='ManyFiles.*:ImageCase.ManyFiles*-*Kill:*Threads*:*DoNotFit*' || fail "see $logs/threads.log"
    valgrind --quiet --tool=helgrind --error-exitcode=99 --log-file="$logs/threads-disk.log" \
        build/platform/tests/platform/disks/disk_test --gtest_brief=1 || fail "see $logs/threads-disk.log"
)

# The tests that call the library with all of Wine's checks of the heap. Every allocation then looks at the
# whole heap: all combinations of answers would take a day, so one answer at a time differs from success.
# The checks keep released blocks for a while: how much memory stays is measured without them.
heap() (
    say "heap"
    start_wine wine-heap
    # Tail, free, parameters, all blocks.
    platform/kestro-wine reg add 'HKLM\System\CurrentControlSet\Control\Session Manager' \
        /v GlobalFlag /t REG_DWORD /d 0xf0 /f >/dev/null
    platform/kestro-wine --stop
    platform/kestro-wine --start

    export WINEDEBUG=-all,err+heap,warn+heap
    for fault in beyond after; do
        platform/kestro-wine build/release/tests/soak/heap_fault.exe "$fault" 2>&1 | grep -q err:heap ||
            fail "Wine's heap checks do not see a write $fault its block"
    done
    export GTEST_FILTER='-*.EveryCombination*:*.EveryPattern*:*.Large:MemorySoak.*' KESTRO_MATRIX_DEVIATIONS=1
    echo "heap: progress in $logs/heap.log*" >&2
    ctest --preset release -j "$(nproc)" -E '^(docs\.|surface_test|examples\.(csharp|powershell))' -V \
        --output-log "$logs/heap.log" >/dev/null || fail "see $logs/heap.log"
    if grep -aE '(err|warn):heap:' "$logs/heap.log"; then
        fail "the heap checks found something"
    fi
    grep -a '% tests passed' "$logs/heap.log"
)

[ $# -gt 0 ] || set -- load disks trap replay sanitize valgrind threads heap
for step in "$@"; do
    case "$step" in
    load | disks | replay | sanitize | threads | heap) "$step" ;;
    trap | valgrind) "${step}_" ;;
    *) fail "no such step: $step (load, disks, trap, replay, sanitize, valgrind, threads, heap)" ;;
    esac
done
say "soak: all steps passed: $*"
