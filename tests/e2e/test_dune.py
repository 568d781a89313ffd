"""End to end over dunes: the bundled dune case runs under every wall-law variant, and a box whose
bed lies below it (no immersed boundary) from a disturbed start, each step with kpoismax+1 Poisson
cycles, a small divergence and no cell reported; on a finer grid the flow separates behind the
crest and reattaches before the next one."""

import os
import re

import h5py
import numpy as np

from e2e_common import CaseTest, Paths, main, run


def recipe_with(overrides):
    """The bundled dune recipe with some keys replaced."""
    with open(os.path.join(Paths.source, "cases", "dune.recipe")) as f:
        lines = f.read().splitlines()
    keep = [l for l in lines if l.split("=", 1)[0].strip() not in overrides]
    return "\n".join(keep + [f"{k} = {v}" for k, v in overrides.items()]) + "\n"


def report(stdout):
    """Per step: (Number of Poisson, Maximum divergence); and the lines that are not the report."""
    steps, other = [], []
    for line in stdout.splitlines():
        m = re.match(r" (Number of Poisson|Maximum divergence) += (\S+)", line)
        if m and m.group(1) == "Number of Poisson":
            steps.append([int(m.group(2))])
        elif m:
            steps[-1].append(float(m.group(2)))
        elif "=" not in line and not line.startswith(" ---"):
            other.append(line)
    return steps, other


class Dune(CaseTest):
    def check_run(self, case, steps_at_least, later_divergence=1e-3):
        out = run([Paths.riffle, case])
        self.assertEqual(out.returncode, 0, out.stdout[-2000:] + out.stderr)
        steps, other = report(out.stdout)
        self.assertEqual(other, [])  # no warnings, no cells over the limit
        self.assertGreaterEqual(len(steps), steps_at_least)
        for n, (npois, divmax) in enumerate(steps):
            self.assertEqual(npois, 6)
            self.assertLess(divmax, 1e-3 if n == 0 else later_divergence)
        return [d for _, d in steps]

    def test_every_wall_law_variant_and_the_open_box_run(self):
        for ibm in (0, 1):
            for bed in (0, 1, 2):
                with self.subTest(iIBMItm=ibm, BedItm=bed):
                    overrides = {"iIBMItm": ibm, "BedItm": bed, "endtimeItm": 0.06,
                                 "OTimeItm": 0.05, "HotoutItm": 0, "RoughItm": 2.5}
                    self.check_run(self.make(f"dune_{ibm}_{bed}", recipe_with(overrides)), 5)
        # The disturbed start (switch: the real whose low 32 bits read 1) is far from
        # divergence-free; from then on each projection starts from the last one's solution
        # and the divergence left is tiny and does not grow.
        box = {"xmax": 0.8, "ymax": 0.2, "ni": 33, "nj": 9, "bed": "flat", "level": -0.05,
               "zminItm": 0.0, "zmaxItm": 0.1, "kmaxItm": 4, "dischargeItm": 0.006,
               "iPerturbItmItm": "4.9406564584124654e-324", "amplitudeItm": 0.01,
               "timetypeItm": 0, "cflItm": 0.3, "endtimeItm": 0.6, "OTimeItm": 1000.0}
        divs = self.check_run(self.make("box", box),
                              20, later_divergence=1e-5)
        self.assertLess(max(divs[len(divs) // 2:]), 10 * max(divs[1:len(divs) // 2]))

    def test_flow_separates_behind_the_crest(self):
        if Paths.build_type == "Debug":
            self.skipTest("a physics run of minutes under the sanitizers; it runs in Release")
        # One dune, 0.4 m long and 0.02 m high, on 64 x 4 x 32 cells (6 mm by 3 mm), 3 s of
        # flow; the mean of the last second's outputs.
        text = "\n".join([
            "xmax = 0.4", "ymax = 0.05", "ni = 65", "nj = 5", "bed = dunes", "height = 0.02",
            "length = 0.4", "leeangle = 30", "kmaxItm = 5", "zmaxItm = 0.1", "velocity = 0.35",
            "endtimeItm = 3.0", "OTimeItm = 0.1"]) + "\n"
        case = self.make("separation", text)
        out = run([Paths.riffle, case])
        self.assertEqual(out.returncode, 0, out.stderr)
        with h5py.File(case, "r") as f:
            box = f["Flow/Box"]
            times = box.parent["BaseIterativeData/TimeValues"][" data"][()]
            x = box["GridCoordinates/CoordinateX"][" data"][()][0, 0, :]
            z = box["GridCoordinates/CoordinateZ"][" data"][()][:, 0, 0]
            bed = f["Case/Bed/NodeAttributes/Elevation"][" data"][()][0]
            late = [n + 1 for n, t in enumerate(times) if t >= 2.0]
            u = np.mean([box[f"FlowSolution{n}/VelocityX"][" data"][()] for n in late], axis=0)
        u = u.mean(axis=1)  # across the channel
        # Mean velocity at the first node above the bed, along the dune.
        first = np.array([u[np.argmax(z > bed[i]), i] for i in range(len(x))])
        crest = int(np.argmax(bed))
        lee = [i for i in range(len(x)) if x[crest] < x[i] <= x[crest] + 0.08
               or x[i] <= x[crest] + 0.08 - x[-1]]
        stoss = [i for i in range(len(x)) if 0.5 * x[crest] <= x[i] < x[crest]]
        print("near-bed mean u, lee:", np.round(first[lee], 3), "stoss:",
              np.round(first[stoss], 3))
        self.assertLess(first[lee].min(), 0.0)   # reversed flow behind the crest
        self.assertGreater(first[stoss].min(), 0.0)  # reattached before the next crest


if __name__ == "__main__":
    main()
