#!/usr/bin/env bash
# Runs the fuzz targets one after the other; run as ./dev fuzz [SECONDS [TARGET...]], after a build. What
# is new goes to build/fuzz/corpus, what breaks a target to build/fuzz/crashes.
set -uo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

seconds="${1:-60}"
[ $# -eq 0 ] || shift
[[ "$seconds" =~ ^[1-9][0-9]*$ ]] || { echo "usage: ./dev fuzz [SECONDS [TARGET...]]" >&2; exit 2; }
targets=("$@")
[ $# -gt 0 ] || mapfile -t targets < <(ls fuzz/corpus)

out="$PWD/build/fuzz"
# Sizes that no machine has come back as a failed allocation, as they do without the sanitizer.
export ASAN_OPTIONS=allocator_may_return_null=1
failed=0
rows=()
for target in "${targets[@]}"; do
    program="$out/fuzz/fuzz_$target"
    [ -x "$program" ] || { echo "fuzz: no such target: $target" >&2; exit 2; }
    mkdir -p "$out/corpus/$target" "$out/crashes/$target"
    rm -f "$out/crashes/$target"/*
    log="$out/$target.log"
    inputs=()
    for folder in "fuzz/corpus/$target" "$out/samples/seeds/$target"; do
        [ ! -d "$folder" ] || inputs+=("$folder")
    done
    echo "fuzzing $target for $seconds s" >&2
    "$program" -max_total_time="$seconds" -max_len=65536 -timeout=5 -rss_limit_mb=512 \
        -malloc_limit_mb=256 -print_final_stats=1 -close_fd_mask=1 \
        -artifact_prefix="$out/crashes/$target/" \
        "$out/corpus/$target" "${inputs[@]}" >"$log" 2>&1
    status=$?
    executions="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")"
    edges="$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -1)"
    crashes="$(find "$out/crashes/$target" -type f | wc -l)"
    if [ $status != 0 ]; then
        failed=1
        grep -m 3 -E 'ERROR: |broken promise|runtime error|SUMMARY' "$log" >&2
        echo "fuzz: $target failed; see build/fuzz/$target.log and build/fuzz/crashes/$target" >&2
    fi
    rows+=("$target ${executions:-0} ${edges:-0} $crashes")
done

printf '%-10s %12s %8s %8s\n' target executions edges crashes
printf '%-10s %12s %8s %8s\n' ${rows[*]}
exit $failed
