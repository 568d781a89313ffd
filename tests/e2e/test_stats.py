"""End to end for the statistics: the mean pressure of a flat-bed run is measured from its fluid
mean, falls by the hydrostatic rho g per metre and does not grow with the number of steps (while
the case file's summed "Pressure" does); riffle-stats on a short flat-bed run gives a profile
table whose velocity rises from the bed, the friction velocity of the momentum balance as the
files give it, and the figures; a file without statistics is refused in one line."""

import csv
import glob
import os
import re

import h5py
import numpy as np

from e2e_common import CaseTest, Paths, main, run

FLAT = {"xmax": 0.4, "ymax": 0.1, "ni": 17, "nj": 5, "bed": "flat", "level": 0.01,
        "kmaxItm": 4, "zmaxItm": 0.11, "velocity": 0.35, "BedItm": 1, "SedimentItm": 2.0,
        "timetypeItm": 0, "cflItm": 0.3, "endtimeItm": 0.4, "OTimeItm": 0.2,
        "StatisticsItm": 1, "StatStartItm": 0.1, "outpathItm": '"."', "outfileItm": "flat"}


def riffle_stats(*args):
    return run(["/usr/bin/python3", os.path.join(Paths.source, "tools", "riffle-stats"), *args])


class Stats(CaseTest):
    def test_mean_pressure_is_hydrostatic_about_a_zero_fluid_mean_and_does_not_grow(self):
        # The first step's pressure carries 1.5 g (the two-level scheme starts from a zero
        # previous level), so the sampling starts after it.
        spread, summed = [], []
        for name, end in (("short", 0.2), ("long", 0.4)):
            case = self.make(name, {**FLAT, "endtimeItm": end, "OTimeItm": end,
                                    "StatStartItm": 0.03, "outfileItm": name})
            ran = run([Paths.riffle, case], cwd=self.dir,
                      env={**os.environ, "OMP_NUM_THREADS": "1"})
            self.assertEqual(ran.returncode, 0, ran.stderr)
            with h5py.File(os.path.join(self.dir, name + "_stats.cgns"), "r") as f:
                p = f["Flow/Box/FlowSolution1/MeanPressure"][" data"][()]
                z = f["Flow/Box/GridCoordinates/CoordinateZ"][" data"][()]
                samples = f["Flow/Statistics/Samples"][" data"][0]
            with h5py.File(case, "r") as f:
                bed = f["Case/Bed/NodeAttributes/Elevation"][" data"][()]
                rho = f["Case/CalculationConditions/densItm"][" data"][0]
                g = f["Case/CalculationConditions/gravityItm"][" data"][0]
                last = len(f["Flow/BaseIterativeData/TimeValues"][" data"][()])
                total = f[f"Flow/Box/FlowSolution{last}/Pressure"][" data"][()]
            fluid = z > bed[np.newaxis]
            self.assertGreater(samples, 5)
            self.assertLess(abs(p[fluid].mean()), 1e-9 * np.abs(p[fluid]).max())
            # Layer means over the flat bed, away from the bed and the top's zero-gradient ghost:
            # a drop of rho g dz from each layer to the next.
            layers = [p[k][fluid[k]].mean() for k in range(p.shape[0]) if fluid[k].all()]
            dz = z[1, 0, 0] - z[0, 0, 0]
            drops = -np.diff(layers[1:-1]) / dz
            np.testing.assert_allclose(drops, rho * g, rtol=0.01)
            spread.append(np.sqrt(np.mean(p[fluid] ** 2)))
            summed.append(np.sqrt(np.mean(total[fluid] ** 2)))
        print(f"rms mean pressure {spread[0]:.1f} and {spread[1]:.1f} Pa; case-file Pressure "
              f"{summed[0]:.0f} and {summed[1]:.0f} Pa")
        self.assertLess(abs(spread[1] / spread[0] - 1), 0.1)
        self.assertGreater(summed[1] / summed[0], 1.5)  # twice the steps: the sum about doubles

    def test_flat_bed_profiles_friction_velocity_and_figures(self):
        case = self.make("flat", FLAT)
        ran = run([Paths.riffle, case], cwd=self.dir, env={**os.environ, "OMP_NUM_THREADS": "1"})
        self.assertEqual(ran.returncode, 0, ran.stderr)
        stats = os.path.join(self.dir, "flat_stats.cgns")
        out = os.path.join(self.dir, "out")
        done = riffle_stats(stats, case, "-o", out)
        self.assertEqual(done.returncode, 0, done.stderr)

        with open(os.path.join(out, "flat_profiles.csv")) as f:
            rows = list(csv.DictReader(f))
        height = np.array([float(r["z_above_bed"]) for r in rows])
        u = np.array([float(r["U"]) for r in rows])
        self.assertTrue(np.all(np.diff(height) > 0) and height[0] > 0)
        self.assertLess(u[0], u[len(u) // 2])  # slowest next to the bed
        self.assertTrue(np.all(np.diff(u) > -1e-3 * u.max()), u)

        # u*² = MeanForceX * depth, read here from the two files.
        with h5py.File(stats, "r") as f:
            force = f["Flow/Statistics/MeanForceX"][" data"][()][0]
        with h5py.File(case, "r") as f:
            zmax = f["Case/CalculationConditions/zmaxItm"][" data"][()][0]
            bed = f["Case/Bed/NodeAttributes/Elevation"][" data"][()]
        self.assertAlmostEqual(zmax - bed.mean(), 0.1, places=12)
        printed = re.search(r"u\* \(momentum balance.*= (\S+) m/s", done.stdout)
        self.assertIsNotNone(printed, done.stdout)
        self.assertAlmostEqual(float(printed.group(1)), np.sqrt(force * 0.1), delta=1e-7)

        pngs = glob.glob(os.path.join(out, "flat_*.png"))
        self.assertGreaterEqual(len(pngs), 2, pngs)
        self.assertTrue(all(os.path.getsize(p) > 1000 for p in pngs))

    def test_a_file_without_statistics_is_refused(self):
        case = self.make("plain", {**FLAT, "StatisticsItm": 0})
        refused = riffle_stats(case, case)
        self.assertEqual(refused.returncode, 1)
        self.assertRegex(refused.stderr, r"^riffle-stats: error: .*no flow statistics.*\n$")


if __name__ == "__main__":
    main()
