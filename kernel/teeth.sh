#!/usr/bin/env bash
# Breaks rules of the lab's model on purpose, one at a time and in a copy of the sources, and shows
# that the run on a real kernel notices each. `./dev test kernel --teeth` calls this when all is
# built. Exits with 1 when one goes unnoticed.
set -euo pipefail
cd "$(dirname "$0")/.."

copy=build/kernel/teeth
limits=lab/phone/freq_limits.cpp
texts=lab/phone/kernel_text.cpp
# What is broken | the file | how: a sed expression that changes it
teeth=(
    "a floor above the ceiling shows as the ceiling | $limits | s/mShownMin = std::min\((effective\(Side::kMin\)), mShownMax\)/mShownMin = \1/"
    "the lower of two ceilings counts, the HAL's and the program's | $limits | s/: std::min\(program, hal\)/: program/"
    "limits of a cluster without a running CPU are refused | $limits | s/if \(!mIsOnline\) return mRules.offlineWriteError;//"
    "devfreq rounds a maximum up to kHz | $limits | s/\*number % kHzPerKhz != 0 \? 1 : 0/0/"
    "a sysctl takes hexadecimal numbers | $texts | s/Lower\(text\[1\]\) == 'x'/Lower(text[1]) == 'y'/"
)
files=(kernel/writes.yaml lab/data/scenarios/{thermal_breakthrough,offline_cpus}.yaml)
run=(kernel/run.sh --device sm8450 --program "$copy/build/aarch64/bin/tarquel-machine" "${files[@]}")

build_copy() {
    if ! (cd "$copy" && cmake --preset aarch64 -D TARQUEL_TESTS=OFF &&
        cmake --build --preset aarch64 --target tarquel-machine) >"$copy.log" 2>&1; then
        grep -E 'error|FAILED' "$copy.log" | head -20 >&2
        echo "kernel: the copy of the sources cannot be built; all of it is in $copy.log" >&2
        exit 2
    fi
}

# Later runs build what has changed.
mkdir -p "$copy/build"
ln -sfn "$PWD/build/aarch64-sysroot" "$copy/build/aarch64-sysroot"
copy_sources() {
    git ls-files --cached --others --exclude-standard -z | while IFS= read -r -d '' file; do
        [ -f "$file" ] || continue
        cmp -s "$file" "$copy/$file" && continue
        mkdir -p "$(dirname "$copy/$file")"
        cp "$file" "$copy/$file"
    done
}

echo "dev: building a copy of the sources in $copy"
copy_sources
build_copy
if ! "${run[@]}" >"$copy.txt" 2>&1; then
    cat "$copy.txt" >&2
    echo "kernel: the model differs as it is; teeth are shown on one that does not" >&2
    exit 2
fi
unnoticed=0
for tooth in "${teeth[@]}"; do
    IFS='|' read -r rule file change <<<"${tooth// | /|}"
    copy_sources
    sed -i -E "$change" "$copy/$file"
    if cmp -s "$file" "$copy/$file"; then
        echo "kernel: $file has no place where '$rule' is broken; put kernel/teeth.sh right" >&2
        exit 2
    fi
    build_copy
    status=0
    "${run[@]}" >"$copy.txt" 2>&1 || status=$?
    case $status in
        0) echo "  NOT NOTICED  $rule"; unnoticed=$((unnoticed + 1)) ;;
        1)
            echo "  noticed      $rule: $(sed -nE 's/.* ([0-9]+) differences$/\1/p' "$copy.txt") differences, the first:"
            grep -m 1 -A 2 '^! ' "$copy.txt" | sed 's/^/                 /'
            ;;
        *) cat "$copy.txt" >&2; exit 2 ;;
    esac
done
copy_sources
echo "kernel: ${#teeth[@]} rules broken, $unnoticed unnoticed"
[ $unnoticed -eq 0 ]
