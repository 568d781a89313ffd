#!/usr/bin/env bash
# Whole-solver benchmark. Builds Release and makes three cases:
#   dunes-1M   two periodic dunes, 256 x 64 x 64 cells  (1 048 576)
#   dunes-2M   the same dunes,      256 x 128 x 64 cells (2 097 152)
#   flat-74k   flat rough bed one cell above the bottom, 96 x 48 x 16 cells, periodic in x and y
#   dunes-1M-wm, flat-74k-wm   the same with the wall-layer model of the bed ("iWallModelItm" = 1):
#              its cost is the difference in the smagorinsky routine, where it runs
# and runs each on 1 thread and on every power of two up to the number of cores, printing the
# time per step, ns per cell per step, peak memory (MiB and bytes per cell) and each routine's
# share of the loop. A second run with more than one thread, with a passive OpenMP wait policy so
# that idle threads sleep, prints each routine's load imbalance (busiest thread's CPU time over
# the mean). Then, where Open MPI is installed, the dune cases on 1, 2, 4 ... ranks of one thread
# and on 1 rank of two threads (strong scaling). Figures are also saved in bench/out/results.txt.
# Usage: bench/run.sh [BUILD_DIR]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build}"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release > /dev/null
cmake --build "$build" -j "$(nproc)" --target riffle-bench riffle-case > /dev/null
# The kernel timings too, where Google Benchmark is installed (run them by hand).
cmake --build "$build" -j "$(nproc)" --target riffle-micro > /dev/null 2>&1 || true
out="$root/bench/out"
mkdir -p "$out"
results="$out/results.txt"

dunes() {  # nodes-y ymax steps
    cat <<RECIPE
xmax = 1.6
ymax = $2
ni = 257
nj = $1
bed = dunes
height = 0.05
length = 0.8
zmaxItm = 0.4
kmaxItm = 6
dischargeItm = 0.1
iPerturbItmItm = 4.9406564584124654e-324
amplitudeItm = 0.01
timetypeItm = 1
timestepItm = 0.001
endtimeItm = $(awk "BEGIN { print ($3 - 0.5) * 0.001 }")
OTimeItm = 1000.0
kpoismaxItm = 5
RECIPE
}

flat() {  # steps
    cat <<RECIPE
xmax = 0.8
ymax = 0.4
ni = 97
nj = 49
bed = flat
level = 0.0
kmaxItm = 4
zmaxItm = 0.1
yBoundItm = 0
zBoundItm = 0
velocity = 0.46
BedItm = 1
SedimentItm = 1.0
timetypeItm = 1
timestepItm = 0.002
endtimeItm = $(awk "BEGIN { print ($1 - 0.5) * 0.002 }")
OTimeItm = 1000.0
kpoismaxItm = 5
RECIPE
}

threads=(1)
t=2
while (( t <= $(nproc) )); do threads+=("$t"); t=$(( t * 2 )); done

{
    echo "Riffle benchmark, $(date -u +%Y-%m-%d), $(nproc) cores: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//')"
    for c in "dunes-1M" "dunes-1M-wm" "dunes-2M" "flat-74k" "flat-74k-wm"; do
        case $c in
            dunes-1M) dunes 65 0.4 12 > "$out/$c.recipe" ;;
            dunes-1M-wm) { dunes 65 0.4 12; echo "iWallModelItm = 1"; } > "$out/$c.recipe" ;;
            dunes-2M) dunes 129 0.8 8 > "$out/$c.recipe" ;;
            flat-74k) flat 120 > "$out/$c.recipe" ;;
            flat-74k-wm) { flat 120; echo "iWallModelItm = 1"; } > "$out/$c.recipe" ;;
        esac
        "$build/tools/casebuilder/riffle-case" "$out/$c.recipe" -o "$out/$c.cgns" > /dev/null 2>&1
        for n in "${threads[@]}"; do
            echo
            echo "== $c, $n thread(s)"
            cp "$out/$c.cgns" "$out/run.cgns"
            OMP_NUM_THREADS=$n "$build/bench/riffle-bench" "$out/run.cgns" 2>&1 > /dev/null < /dev/null
            if (( n > 1 )); then
                echo "-- load imbalance, $n threads (passive wait policy)"
                cp "$out/$c.cgns" "$out/run.cgns"
                OMP_NUM_THREADS=$n OMP_WAIT_POLICY=passive "$build/bench/riffle-bench" \
                    --thread-clocks "$out/run.cgns" 2>&1 > /dev/null < /dev/null | grep imbalance
            fi
        done
        rm -f "$out/$c.cgns" "$out/run.cgns"
    done

    # Strong scaling over MPI ranks on this machine: the dune cases on 1 and 2 ranks of one thread
    # and on 1 rank of 2 threads (every power of two of ranks up to the cores, where there are
    # more), with the halo exchanges, reductions and gathers of a step as rank 0 measures them.
    if command -v mpirun > /dev/null; then
        mpi=(mpirun --oversubscribe --bind-to none)
        [ "$(id -u)" = 0 ] && mpi+=(--allow-run-as-root)
        for c in "dunes-1M" "dunes-2M"; do
            case $c in
                dunes-1M) dunes 65 0.4 12 > "$out/$c.recipe" ;;
                dunes-2M) dunes 129 0.8 8 > "$out/$c.recipe" ;;
            esac
            "$build/tools/casebuilder/riffle-case" "$out/$c.recipe" -o "$out/$c.cgns" > /dev/null 2>&1
            for r in "${threads[@]}"; do
                echo
                echo "== $c, $r rank(s) x 1 thread"
                cp "$out/$c.cgns" "$out/run.cgns"
                OMP_NUM_THREADS=1 "${mpi[@]}" -np "$r" "$build/bench/riffle-bench" "$out/run.cgns" \
                    2>&1 > /dev/null < /dev/null | grep -E "^ranks|^seconds|^per step"
            done
            echo
            echo "== $c, 1 rank x 2 threads"
            cp "$out/$c.cgns" "$out/run.cgns"
            OMP_NUM_THREADS=2 "${mpi[@]}" -np 1 "$build/bench/riffle-bench" "$out/run.cgns" \
                2>&1 > /dev/null < /dev/null | grep -E "^ranks|^seconds"
            rm -f "$out/$c.cgns" "$out/run.cgns"
        done
    fi
} | tee "$results"
