#!/usr/bin/env bash
# Whole-solver benchmark: builds Release, makes cases of two periodic dunes of 64x32x16,
# 128x64x32 and 256x128x64 cells and runs a fixed number of steps on 1 and 2 threads, printing
# per run the time per step, ns per cell per step, peak memory and each routine's share of the
# loop.
# Usage: bench/run.sh [BUILD_DIR]   (figures also saved in bench/out/results.txt)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build}"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release > /dev/null
cmake --build "$build" -j "$(nproc)" --target riffle-bench riffle-case > /dev/null
out="$root/bench/out"
mkdir -p "$out"
results="$out/results.txt"
: > "$results"

# name  nodes-x nodes-y kmaxItm  steps
cases=("64x32x16 65 33 4 20" "128x64x32 129 65 5 10" "256x128x64 257 129 6 4")
{
    echo "Riffle benchmark, $(date -u +%Y-%m-%d), $(nproc) cores: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//')"
    for c in "${cases[@]}"; do
        read -r name ni nj kexp steps <<< "$c"
        recipe="$out/$name.recipe"
        cat > "$recipe" <<RECIPE
xmax = 1.6
ymax = 0.8
ni = $ni
nj = $nj
bed = dunes
height = 0.05
length = 0.8
zmaxItm = 0.4
kmaxItm = $kexp
dischargeItm = 0.1
iPerturbItmItm = 4.9406564584124654e-324
amplitudeItm = 0.01
timetypeItm = 1
timestepItm = 0.001
endtimeItm = $(awk "BEGIN { print ($steps - 0.5) * 0.001 }")
OTimeItm = 1000.0
kpoismaxItm = 5
RECIPE
        "$build/tools/casebuilder/riffle-case" "$recipe" -o "$out/$name.cgns" > /dev/null 2>&1
        for threads in 1 2; do
            echo
            echo "== $name cells, $threads thread(s), $steps steps"
            OMP_NUM_THREADS=$threads "$build/bench/riffle-bench" "$out/$name.cgns" 2>&1 > /dev/null < /dev/null
        done
        rm -f "$out/$name.cgns"
    done
} | tee "$results"
