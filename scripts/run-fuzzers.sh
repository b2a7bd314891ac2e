#!/usr/bin/env bash
# Runs every libFuzzer target of a build for the same time, each on a fresh corpus
# copied from its seeds, and prints the executions each reached and their total.
# Usage: scripts/run-fuzzers.sh <build folder> <seconds per target>
# Exits non-zero when a target reports a finding (a crash, a sanitizer report, a leak,
# a timeout or running out of memory); its input is kept as <build>/fuzz/findings/<name>-*.
set -uo pipefail

build=${1:?usage: run-fuzzers.sh <build folder> <seconds per target>}
seconds=${2:?usage: run-fuzzers.sh <build folder> <seconds per target>}
fuzz="$build/fuzz"
findings="$fuzz/findings"
mkdir -p "$findings" "$fuzz/logs"
# The targets' scratch files, in memory where there is /dev/shm; gone afterwards even
# when a target crashed before removing its own.
scratch=$(mktemp -d "$( [ -d /dev/shm ] && echo /dev/shm || echo /tmp )/orvane-fuzz-run.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

total=0
failed=()
for program in "$fuzz"/orvane-fuzz-*; do
    name=${program##*/orvane-fuzz-}
    [ "$name" = seeds ] && continue
    seeds="$fuzz/seeds/$name"
    corpus="$fuzz/corpus/$name"
    rm -rf "$corpus"
    mkdir -p "$corpus"
    cp -r "$seeds"/. "$corpus"/
    log="$fuzz/logs/$name.log"
    TMPDIR="$scratch" "$program" -max_total_time="$seconds" -print_final_stats=1 -timeout=30 -rss_limit_mb=4096 \
        -artifact_prefix="$findings/$name-" "$corpus" >"$log" 2>&1
    status=$?
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    executions=${executions:-0}
    total=$((total + executions))
    if [ "$status" -eq 0 ]; then
        printf '%-18s %12d executions\n' "$name" "$executions"
    else
        printf '%-18s %12d executions, FINDING (exit %d), see %s\n' "$name" "$executions" "$status" "$log"
        grep -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error|artifact_prefix|Test unit written)' "$log" | head -n 5
        failed+=("$name")
    fi
done
printf '%-18s %12d executions\n' total "$total"
if [ ${#failed[@]} -ne 0 ]; then
    echo "fuzz: findings in ${failed[*]}" >&2
    exit 1
fi
