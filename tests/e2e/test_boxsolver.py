"""End to end: a case whose bed lies below the box (so no immersed boundary) with a disturbed
start flow runs 50 steps; every step reports kpoismax+1 Poisson cycles and a small divergence
that does not grow, and no cell is reported for a large divergence."""

import os
import shutil
import subprocess
import tempfile
import unittest

from e2e_common import Paths, main, run

# 32 x 8 x 16 cells; the start flow carries the index-hash disturbance (its switch is the real
# whose low 32 bits read 1, the smallest subnormal).
RECIPE = """\
xmax = 0.8
ymax = 0.2
ni = 33
nj = 9
bed = flat
level = -0.05
zminItm = 0.0
zmaxItm = 0.1
kmaxItm = 4
dischargeItm = 0.006
iPerturbItmItm = 4.9406564584124654e-324
amplitudeItm = 0.01
timetypeItm = 0
cflItm = 0.3
endtimeItm = 100.0
OTimeItm = 1000.0
kpoismaxItm = 5
"""


class BoxSolver(unittest.TestCase):
    def test_fifty_steps_stay_divergence_free(self):
        work = tempfile.mkdtemp(prefix="riffle_box_")
        try:
            recipe = os.path.join(work, "box.recipe")
            with open(recipe, "w") as f:
                f.write(RECIPE)
            case = os.path.join(work, "box.cgns")
            made = run([Paths.riffle_case, recipe, "-o", case])
            self.assertEqual(made.returncode, 0, made.stderr)
            # Stop after 50 steps: the end time is far away, so read the report as it comes.
            proc = subprocess.Popen([Paths.riffle, case], stdout=subprocess.PIPE, text=True,
                                    stdin=subprocess.DEVNULL)
            steps = []
            current = {}
            for line in proc.stdout:
                if "=" in line:
                    label, value = line.split("=", 1)
                    current[label.strip()] = value.strip()
                elif line.strip().startswith("-" * 56):
                    steps.append(current)
                    current = {}
                    if len(steps) == 50:
                        break
                else:
                    self.fail(f"unexpected console line: {line!r}")
            proc.kill()
            proc.wait()
            self.assertEqual(len(steps), 50)
            divs = [float(s["Maximum divergence"]) for s in steps]
            print("max divergence, steps 1, 10, 50:", divs[0], divs[9], divs[49])
            for n, s in enumerate(steps):
                self.assertEqual(int(s["Number of Poisson"]), 6)
                # The disturbed start is far from divergence-free; from then on each projection
                # starts from the last one's solution and the divergence left is tiny.
                self.assertLess(float(s["Maximum divergence"]), 1e-3 if n == 0 else 1e-5)
                self.assertLess(abs(float(s["Total divergence"])), 1e-3 if n == 0 else 1e-5)
            self.assertLess(max(divs[25:]), 10 * max(divs[1:25]))
        finally:
            shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
