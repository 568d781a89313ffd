#!/usr/bin/env bash
# Runs the libFuzzer targets of a fuzz build one after the other, each on one core.
#   tools/fuzz.sh BUILD_DIR [RUNS] [TARGET...]
# BUILD_DIR is configured with clang (-DCMAKE_CXX_COMPILER=clang++ -DRIFFLE_FUZZ=ON); RUNS is the
# number of executions per target (default 2000000); targets: restart recipe bedcsv (default all).
# Each target starts from the kept inputs of tools/fuzz/regressions/TARGET (and cases/*.recipe for
# the recipe reader) and grows its corpus in BUILD_DIR/fuzz/corpus/TARGET; the log and any
# crashing input land in BUILD_DIR/fuzz/out/TARGET.
set -euo pipefail
build=$(cd "${1:?usage: tools/fuzz.sh BUILD_DIR [RUNS] [TARGET...]}" && pwd)
runs=${2:-2000000}
shift $(($# < 2 ? $# : 2))
targets=("${@:-restart recipe bedcsv}")
src=$(cd "$(dirname "$0")/.." && pwd)
export OMP_NUM_THREADS=1
for target in ${targets[*]}; do
    corpus=$build/fuzz/corpus/$target
    out=$build/fuzz/out/$target
    mkdir -p "$corpus" "$out"
    seeds=("$src/tools/fuzz/regressions/$target")
    [ "$target" = recipe ] && seeds+=("$src/cases")
    maxlen=4096
    [ "$target" = restart ] && maxlen=32768  # a whole restart file of the 4 x 2 x 2 grid
    (cd "$out" && "$build/tools/fuzz/fuzz-$target" -runs="$runs" -jobs=1 -workers=1 \
        -max_len="$maxlen" -timeout=10 -print_final_stats=1 -artifact_prefix="$out/" \
        "$corpus" "${seeds[@]}" > "$out/jobs.log" 2>&1) || true
    echo "== $target"
    grep -E "^(#[0-9]+[[:space:]]+(INITED|DONE)|stat::|==[0-9]+==ERROR|SUMMARY)" \
        "$out/fuzz-0.log" || true
    ls "$out" | grep -E "^(crash|leak|timeout|oom)-" || true
done
