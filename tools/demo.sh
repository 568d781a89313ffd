#!/usr/bin/env bash
# Makes the bundled dune case, runs it and draws a picture of the last result.
# Usage: tools/demo.sh BUILD_DIR   (results in ./demo)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "${1:-$root/build}" && pwd)"
mkdir -p "$root/demo"
cd "$root/demo"
"$build/tools/casebuilder/riffle-case" "$root/cases/dune.recipe" -o dune.cgns
"$build/tools/casebuilder/riffle-case" --check dune.cgns
echo "Running riffle on demo/dune.cgns (console report in demo/dune.log) ..."
start=$(date +%s)
"$build/riffle" dune.cgns < /dev/null > dune.log
echo "Finished in $(( $(date +%s) - start )) s: $(grep -c 'Step Number' dune.log) steps."
tail -n 7 dune.log
/usr/bin/python3 "$root/tools/plot_results.py" dune.cgns -o dune.png
cat <<MSG

Results in demo/:
  dune.cgns   the case with the 3-D grid and every output time: open it in ParaView
              (File > Open, CGNS reader; tick the point arrays, press Apply, then play)
  dune.log    the console report of every step
  dune.png    the streamwise velocity on the centre plane at the last output, over the bed
              (reversed flow in blue)
  dune.dat    restart file at t = 2 s (set HotstartItm = 1 and StartfileItm = dune.dat to go on)
  dune*.plt   Tecplot files every 0.5 s (ParaView: File > Open, Tecplot reader)
MSG
