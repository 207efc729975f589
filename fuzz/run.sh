#!/usr/bin/env bash
# Runs every fuzz target for a while and prints what came of it. Called by ./dev fuzz.
# usage: fuzz/run.sh BUILD_FOLDER SECONDS [TARGET...]; exits with 1 when something was found
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$1/bin
export seconds=$2 bin
shift 2
export corpora=build/fuzz-corpora finds=build/fuzz-finds logs=build/fuzz-logs

# Short stack traces of allocations, for speed; who runs a find again gets whole ones.
export ASAN_OPTIONS=malloc_context_size=3:quarantine_size_mb=64

# What a target runs with beside its corpus. Phones are kept between inputs: what they hold is no
# leak, and their many counters make the usual choice of inputs slow. Choices are drawn byte by
# byte, so that texts that the program compares tell nothing.
options() {
    case $1 in
        fuzz_loader) echo -max_len=2048 ;;
        fuzz_requests_*) echo -max_len=512 -detect_leaks=0 -entropic=0 -use_cmp=0 -len_control=20 ;;
        fuzz_log) echo -max_len=16384 -dict=fuzz/dictionaries/log.dict ;;
        *) echo "-max_len=4096 -dict=fuzz/dictionaries/${1#fuzz_}.dict" ;;
    esac
}

# Folders to begin with: the seeds, and what the lab ships in the same form.
seeds() {
    case $1 in
        fuzz_requests_*) echo fuzz/seeds/requests ;;
        fuzz_scenario) echo fuzz/seeds/scenario lab/data/scenarios ;;
        fuzz_log) echo fuzz/seeds/log lab/data/captures ;;
        fuzz_profile) echo fuzz/seeds/profile lab/data/devices ;;
        *) echo "fuzz/seeds/${1#fuzz_}" ;;
    esac
}

run_target() {
    local target=$1
    mkdir -p "$corpora/$target" "$finds/$target" "$logs"
    # shellcheck disable=SC2046: the words are meant
    "$bin/$target" $(options "$target") -max_total_time="$seconds" -timeout=20 -rss_limit_mb=4096 \
        -print_final_stats=1 -artifact_prefix="$finds/$target/" "$corpora/$target" \
        $(seeds "$target") >"$logs/$target.log" 2>&1
}

# The last number behind a word of the log.
figure() {
    grep -oE "$1[: ]+[0-9]+" "$logs/$2.log" | tail -1 | grep -oE '[0-9]+$' || echo 0
}

report() {
    local target=$1 runs speed
    runs=$(grep -oE '^#[0-9]+' "$logs/$target.log" | tail -1 | tr -d '#' || true)
    speed=$(figure 'exec/s' "$target")
    printf '%-22s %12s %10s %8s %9s %10s  %s\n' "$target" "${runs:-0}" "$speed" \
        "$(figure 'cov' "$target")" "$(figure 'ft' "$target")" \
        "$(grep -cE '^#[0-9]+[[:space:]]+NEW ' "$logs/$target.log" || true)" "$2"
}

export -f run_target options seeds
targets=$*
[ -n "$targets" ] || targets=$(cd "$bin" && ls -d fuzz_* | grep -vx fuzz_tests | tr '\n' ' ')
failed=$(mktemp)
trap 'rm -f "$failed"' EXIT
export failed
tr ' ' '\n' <<<"$targets" | sed '/^$/d' |
    xargs -P "$(nproc)" -I{} bash -c 'run_target {} || echo {} >>"$failed"'

printf '%-22s %12s %10s %8s %9s %10s\n' target executions "per s" edges features "new inputs"
for target in $targets; do
    if grep -qx "$target" "$failed"; then report "$target" FOUND; else report "$target" fine; fi
done
for target in $targets; do figure 'stat::requests' "$target"; done |
    awk '$1 { sum += $1 } END { if (sum) print sum " requests in the sequences of fuzz_requests_*" }'
[ -s "$failed" ] || exit 0

while read -r target; do
    echo
    echo "$target found:"
    sed -nE '/what\(\):|ERROR: |runtime error: |^  ! /p' "$logs/$target.log" | head -12
    find_file=$(sed -nE 's/.*Test unit written to (.*)$/\1/p' "$logs/$target.log" | tail -1)
    if [ -n "$find_file" ]; then
        echo "again with: $bin/$target $find_file"
    fi
    echo "all of it:  $logs/$target.log"
done <"$failed"
exit 1
