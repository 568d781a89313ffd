#!/usr/bin/env bash
# The validation tier: runs the validation cases, draws their statistics with riffle-stats and
# writes validation/report.md with the figures in validation/figures/.
#   validation/run.sh [BUILD_DIR]          the coarse grids (flat-coarse, dune-coarse)
#   FINE=1 validation/run.sh [BUILD_DIR]   the fine grids too (flat-fine, dune-fine: hours on two
#                                          cores; minutes on sixteen)
#   CASES="flat-coarse" validation/run.sh  only the named cases
# Each case runs on every core of the machine (OMP_NUM_THREADS = nproc unless set). A case that
# ran to its end (validation/out/CASE.runtime) after its recipe last changed is not run again,
# only drawn, so an interrupted tier goes on where it stopped; after a change of the solver, run with RERUN=1 (or remove
# validation/out/CASE*) to run the cases afresh. The runs may be
# left to go on in the background: nohup validation/run.sh > validation/out/tier.log 2>&1 &
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release > /dev/null
cmake --build "$build" -j "$(nproc)" --target riffle riffle-case > /dev/null
riffle=$build/riffle
riffle_case=$build/tools/casebuilder/riffle-case
out=$root/validation/out
figures=$root/validation/figures
mkdir -p "$out" "$figures"
export OMP_NUM_THREADS=${OMP_NUM_THREADS:-$(nproc)}

cases=${CASES:-flat-coarse dune-coarse}
[ "${FINE:-0}" = 1 ] && [ -z "${CASES:-}" ] && cases="$cases flat-fine dune-fine"

machine=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -1)
for c in $cases; do
    recipe=$root/validation/$c.recipe
    [ -f "$recipe" ] || { echo "validation: no recipe $recipe" >&2; exit 1; }
    stats=$out/${c}_stats.cgns
    done=$out/$c.runtime
    if [ "${RERUN:-0}" = 1 ] || [ ! -f "$done" ] || [ "$recipe" -nt "$done" ]; then
        echo "== $c: running (progress: $out/$c.log)"
        rm -f "$done"
        (cd "$out" && "$riffle_case" "$recipe" -o "$c.cgns" > /dev/null)
        start=$(date +%s)
        (cd "$out" && "$riffle" "$c.cgns" > "$c.log")
        seconds=$(( $(date +%s) - start ))
        echo "$seconds s on $OMP_NUM_THREADS threads of $(nproc) cores, $machine" > "$done"
    fi
    if [ -f "$root/tools/riffle-stats" ]; then
        echo "== $c: statistics"
        /usr/bin/python3 "$root/tools/riffle-stats" "$stats" "$out/$c.cgns" -o "$out" \
            > "$out/$c.stats.txt"
        cp "$out"/"$c"*.png "$figures"/ 2>/dev/null || true
        cat "$out/$c.stats.txt"
    else
        echo "== $c: tools/riffle-stats is not there yet: statistics in validation/out/${c}_stats.cgns" \
            | tee "$out/$c.stats.txt"
    fi
done

# The report: for each case run so far, its grid, machine and run time, what riffle-stats
# measured, and the targets with the published figures they come from.
report=$root/validation/report.md
{
    echo "# Validation report"
    echo
    echo "Written by \`validation/run.sh\` on $(date -u +%Y-%m-%d). Each section gives the case, the"
    echo "machine and run time it came from, the figures measured by \`tools/riffle-stats\` and the"
    echo "targets. Figures: \`validation/figures/\`."
    for c in flat-coarse flat-fine dune-coarse dune-fine; do
        [ -f "$out/$c.stats.txt" ] || continue
        echo
        echo "## $c"
        echo
        sed -n '1,3{s/^# /> /;p}' "$root/validation/$c.recipe"
        echo
        echo "Run: $(cat "$out/$c.runtime" 2>/dev/null || echo unknown)."
        echo
        # A run whose divergence blew up: when the first cell went over the limit, and where.
        if grep -q NaN "$out/$c.log" 2>/dev/null; then
            awk '/Step Number/ { step = $4 } /Time   / { t = $3 }
                 /^ [0-9]+ [0-9]+ [0-9]+$/ && !seen { seen = 1
                     printf "**The run diverged.** In the step after step %d (t = %.3g s) the divergence of cells\n", step, t
                     printf "near (i, j, k) = (%d, %d, %d) exceeded the limit and grew until the fields became\n", $1, $2, $3
                     print "NaN: the statistics below are void." }' "$out/$c.log"
            echo
        fi
        echo '```'
        cat "$out/$c.stats.txt"
        echo '```'
        echo
        case $c in
        flat*)
            echo "Targets: the bulk velocity over u* of the rough log law averaged over the"
            echo "depth, U_b/u* = (1/0.4) ln(D/z0) - 2.5 = 15.2 with the solver's roughness length"
            echo "z0 = ks/12 (D = 0.1 m, ks = 1 mm); the mean profile on the log law"
            echo "U/u* = (1/0.4) ln(z/z0) away from the bed and the surface; turbulence intensities"
            echo "u'/u* = 2.30 exp(-z/D), w'/u* = 1.27 exp(-z/D) and Reynolds shear stress"
            echo "-u'w'/u*^2 = 1 - z/D (Nezu and Nakagawa, Turbulence in Open-Channel Flows, IAHR"
            echo "monograph, 1993). An LES resolves only part of the fluctuations: the resolved"
            echo "intensities fall short of the measured ones on coarse grids and should approach"
            echo "them as the grid is refined."
            ;;
        dune*)
            echo "Targets: flow separation at the crest and reattachment 4 to 6 dune heights"
            echo "downstream (Engel, J. Hydraul. Div. ASCE, 1981; Best, J. Geophys. Res. 110,"
            echo "F04S02, 2005, for a review). The strength of the mean reverse flow is reported"
            echo "as measured; no single published figure is used as its target."
            ;;
        esac
    done
} > "$report"
echo "wrote $report"
