#!/usr/bin/env bash
# The validation tier: runs the validation cases, draws their statistics with riffle-stats and
# writes validation/report.md with the figures in validation/figures/. Each case runs twice, with
# the wall-layer model of the bed off (CASE.recipe) and on (CASE-wm.recipe).
#   validation/run.sh [BUILD_DIR]          the coarse grids (flat-coarse, flat-coarse-wm,
#                                          dune-coarse, dune-coarse-wm)
#   FINE=1 validation/run.sh [BUILD_DIR]   the fine grids too (flat-fine, dune-fine and their -wm
#                                          twins: hours on two cores; minutes on sixteen)
#   CASES="flat-coarse" validation/run.sh  only the named cases
#   REPORT_ONLY=1 validation/run.sh        no build and no runs: only the report, from what
#                                          validation/out holds (OUT=DIR reads DIR instead, and
#                                          REPORT=FILE writes FILE instead of validation/report.md)
# Each case runs on every core of the machine (OMP_NUM_THREADS = nproc unless set). A case that
# ran to its end (validation/out/CASE.runtime) after its recipe last changed is not run again,
# only drawn, so an interrupted tier goes on where it stopped; after a change of the solver, run
# with RERUN=1 (or remove validation/out/CASE*) to run the cases afresh. The runs may be left to
# go on in the background: nohup validation/run.sh > validation/out/tier.log 2>&1 &
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath -m "${1:-$root/build}") # absolute: the cases run inside the output folder
out=${OUT:-$root/validation/out}
report=${REPORT:-$root/validation/report.md}
figures=$root/validation/figures

cases=${CASES:-flat-coarse flat-coarse-wm dune-coarse dune-coarse-wm}
[ "${FINE:-0}" = 1 ] && [ -z "${CASES:-}" ] &&
    cases="$cases flat-fine flat-fine-wm dune-fine dune-fine-wm"

if [ "${REPORT_ONLY:-0}" != 1 ]; then
    cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release > /dev/null
    cmake --build "$build" -j "$(nproc)" --target riffle riffle-case > /dev/null
    riffle=$build/riffle
    riffle_case=$build/tools/casebuilder/riffle-case
    mkdir -p "$out" "$figures"
    export OMP_NUM_THREADS=${OMP_NUM_THREADS:-$(nproc)}

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
            echo "$seconds s on $OMP_NUM_THREADS threads of $(nproc --all) cores, $machine" > "$done"
        fi
        if [ -f "$root/tools/riffle-stats" ]; then
            echo "== $c: statistics"
            /usr/bin/python3 "$root/tools/riffle-stats" "$stats" "$out/$c.cgns" -o "$out" \
                > "$out/$c.stats.txt"
            cp "$out"/"$c"_*.png "$figures"/ 2>/dev/null || true
            cat "$out/$c.stats.txt"
        else
            echo "== $c: tools/riffle-stats is not there yet: statistics in validation/out/${c}_stats.cgns" \
                | tee "$out/$c.stats.txt"
        fi
    done
fi

# The report: a table of every case run so far, then for each case its grid, the machine and
# run time, what riffle-stats measured with the model off and on side by side, and the targets
# with the published figures they come from.

# value CASE KEY: the quantity KEY of CASE's NAME_summary.csv from riffle-stats to four figures,
# or "–" where there is none.
value() {
    local file=$out/$1_summary.csv
    [ -f "$file" ] || { printf '–'; return; }
    awk -F, -v k="$2" '$1 == k && $2 != "nan" && $2 != "" { printf "%.4g", $2; found = 1 }
                       END { if (!found) printf "–" }' "$file"
}

# row LABEL KEY CASE...: one table row, the quantity KEY of each case.
row() {
    local label=$1 key=$2 run
    shift 2
    printf '| %s |' "$label"
    for run in "$@"; do printf ' %s |' "$(value "$run" "$key")"; done
    echo
}

# block CASE: how CASE ran and what riffle-stats printed for it.
block() {
    local c=$1
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
}

all="flat-coarse flat-coarse-wm flat-fine flat-fine-wm"
all="$all dune-coarse dune-coarse-wm dune-fine dune-fine-wm"
{
    echo "# Validation report"
    echo
    echo "Written by \`validation/run.sh\` on $(date -u +%Y-%m-%d). Each section gives the case,"
    echo "the machine and run time it came from, the figures measured by \`tools/riffle-stats\`"
    echo "with the wall-layer model of the bed off (CASE) and on (CASE-wm), and the targets."
    echo "Figures: \`validation/figures/\`."
    echo
    echo "## Summary"
    echo
    echo "U_b/u* and rho u*^2 from the momentum balance (u*^2 = MeanForceX D); bed stress: the"
    echo "mean x component of the bed shear stress of the model over the bed; total stress: the"
    echo "largest deviation of (-u'w' + (nu_t + nu) dU/dz)/u*^2 from 1 - z/D over 0.1 D to 0.9 D;"
    echo "reattachment behind the crest in dune heights H, from the near-bed U and from the bed"
    echo "shear stress; forces on the bed per unit plan area against the driving force rho fx D."
    echo
    printf '| %s ' case model "U_b/u*" "u* log fit (m/s)" "u* balance (m/s)" \
        "bed stress / rho u*²" "total stress deviation" "reattachment (H), U" \
        "reattachment (H), bed stress" "reverse flow / U_b" "form drag (Pa)" \
        "skin friction (Pa)" "(form + skin) / driving"
    echo "|"
    echo "|---|---|---|---|---|---|---|---|---|---|---|---|---|"
    for c in $all; do
        [ -f "$out/$c.stats.txt" ] || continue
        case $c in *-wm) model=on ;; *) model=off ;; esac
        printf '| %s | %s |' "$c" "$model"
        for key in U_bulk_over_ustar ustar_log_fit ustar_balance bed_stress_x_over_rho_ustar2 \
                   total_stress_max_deviation reattachment_length_over_H \
                   stress_reattachment_length_over_H max_reverse_over_Ubulk form_drag \
                   skin_friction drag_over_driving; do
            printf ' %s |' "$(value "$c" "$key")"
        done
        echo
    done
    for c in flat-coarse flat-fine dune-coarse dune-fine; do
        [ -f "$out/$c.stats.txt" ] || [ -f "$out/$c-wm.stats.txt" ] || continue
        echo
        echo "## $c"
        echo
        sed -n '1,3{s/^# /> /;p}' "$root/validation/$c.recipe"
        echo
        echo "| | model off ($c) | model on ($c-wm) |"
        echo "|---|---|---|"
        row "U_b/u*" U_bulk_over_ustar "$c" "$c-wm"
        row "u*, momentum balance (m/s)" ustar_balance "$c" "$c-wm"
        case $c in
        flat*)
            row "u*, log-law fit (m/s)" ustar_log_fit "$c" "$c-wm"
            row "rho u*² (Pa)" driving_force "$c" "$c-wm"
            row "mean bed shear stress, x (Pa)" bed_stress_x "$c" "$c-wm"
            row "mean bed shear stress / rho u*²" bed_stress_x_over_rho_ustar2 "$c" "$c-wm"
            row "total stress / u*², largest deviation from 1 - z/D" total_stress_max_deviation \
                "$c" "$c-wm"
            row "drag carried into the bed region by stress, solver's budget (Pa)" stress_drag \
                "$c" "$c-wm"
            ;;
        dune*)
            row "reattachment behind the crest (H), near-bed U" reattachment_length_over_H \
                "$c" "$c-wm"
            row "reattachment behind the crest (H), bed shear stress" \
                stress_reattachment_length_over_H "$c" "$c-wm"
            row "strongest reverse flow / U_b" max_reverse_over_Ubulk "$c" "$c-wm"
            row "form drag (Pa)" form_drag "$c" "$c-wm"
            row "skin friction (Pa)" skin_friction "$c" "$c-wm"
            row "driving force rho fx D (Pa)" driving_force "$c" "$c-wm"
            row "(form drag + skin friction) / driving force" drag_over_driving "$c" "$c-wm"
            row "form drag share" form_drag_share "$c" "$c-wm"
            row "pressure drag on the bed region, solver's budget (Pa)" pressure_drag "$c" "$c-wm"
            row "driving force on the flow's own u faces (Pa)" flow_driving_force "$c" "$c-wm"
            row "the rest, carried into the bed region by stress (Pa)" stress_drag "$c" "$c-wm"
            row "(pressure drag + skin friction) / driving force" \
                pressure_drag_plus_skin_over_driving "$c" "$c-wm"
            ;;
        esac
        for run in "$c" "$c-wm"; do
            [ -f "$out/$run.stats.txt" ] || continue
            echo
            case $run in
            *-wm) echo "### $run: wall-layer model on" ;;
            *) echo "### $run: wall-layer model off" ;;
            esac
            echo
            block "$run"
        done
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
            echo "them as the grid is refined. In a steady uniform flow the total shear stress"
            echo "(resolved, subgrid and viscous) lies on 1 - z/D and the mean bed shear stress"
            echo "equals rho u*^2 of the momentum balance."
            ;;
        dune*)
            echo "Targets: flow separation at the crest and reattachment 4 to 6 dune heights"
            echo "downstream (Engel, J. Hydraul. Div. ASCE, 1981; Best, J. Geophys. Res. 110,"
            echo "F04S02, 2005, for a review). The strength of the mean reverse flow is reported"
            echo "as measured; no single published figure is used as its target. In the mean the"
            echo "form drag and the skin friction together balance the driving force (ratio 1)."
            ;;
        esac
    done
} > "$report"
echo "wrote $report"
