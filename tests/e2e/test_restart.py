"""End to end: a run continued from its restart file ends with the same velocities, bed shear
stress and running statistics (the mean bed shear stress of the wall-layer model included), bit
for bit on one thread, as the same run made in one go; TimeInitialItm = 0 restarts the clock; a
damaged restart file stops the run with the saved-results error and leaves the case file as it
was."""

import os

import h5py
import numpy as np

from e2e_common import CaseTest, Paths, main, run

BASE = {"xmax": 0.4, "ymax": 0.1, "ni": 17, "nj": 5, "bed": "dunes", "height": 0.02,
        "length": 0.4, "kmaxItm": 3, "zmaxItm": 0.1, "velocity": 0.3, "timetypeItm": 1,
        "timestepItm": 0.0078125, "OTimeItm": 1.0, "HotoutItm": 1, "dtHotoutItm": 0.125,
        "outpathItm": ".", "StatisticsItm": 1, "StatStartItm": 0.05, "iWallModelItm": 1}


class Restart(CaseTest):
    def setUp(self):
        super().setUp()
        self.env = dict(os.environ, OMP_NUM_THREADS="1")

    def case(self, name, **overrides):
        return self.make(name, dict(BASE, outfileItm=name, **overrides))

    def riffle(self, path):
        out = run([Paths.riffle, os.path.basename(path)], cwd=self.dir, env=self.env)
        self.assertEqual(out.returncode, 0, out.stdout[-2000:] + out.stderr)
        return out.stdout

    @staticmethod
    def last(path, bed=True):
        """The last output time, its node velocities and (bed) its bed shear stress."""
        with h5py.File(path, "r") as f:
            times = f["Flow/BaseIterativeData/TimeValues"][" data"][()]
            sol = f[f"Flow/Box/FlowSolution{len(times)}"]
            velocity = [sol[c][" data"][()] for c in ("VelocityX", "VelocityY", "VelocityZ")]
            if not bed:
                return times[-1], velocity
            surface = f[f"Bed/Surface/FlowSolution{len(times)}"]
            stress = [surface[c][" data"][()]
                      for c in ("BedShearStress", "BedShearStressX", "BedShearStressY")]
            return times[-1], velocity + stress

    def test_continued_run_matches_the_run_in_one_go(self):
        # 32 steps of 1/128 s in one go, against 16 steps, a restart, and 16 more.
        whole = self.case("whole", endtimeItm=0.25 - 1e-9, OTimeItm=0.25)
        self.riffle(whole)
        first = self.case("first", endtimeItm=0.125 - 1e-9)
        self.riffle(first)
        self.assertTrue(os.path.exists(os.path.join(self.dir, "first.dat")))
        second = self.case("second", endtimeItm=0.25 - 1e-9, OTimeItm=0.25, HotstartItm=1,
                           StartfileItm="first.dat", TimeInitialItm=1)
        report = self.riffle(second)
        self.assertIn(" Step Number        = 17\n", report)  # the count goes on from the file
        t1, whole_v = self.last(whole)
        t2, cont_v = self.last(second)
        self.assertEqual(t1, t2)
        for a, b in zip(whole_v, cont_v):
            np.testing.assert_array_equal(a, b)
        # The statistics go on averaging through the restart file: the same bits as in one go.
        stats = [h5py.File(os.path.join(self.dir, n + "_stats.cgns"), "r") for n in ("whole", "second")]
        notes = [{k: s["Flow/Statistics"][k][" data"][0]
                  for k in ("StartTime", "Samples", "MeanForceX", "BedShearSamples")}
                 for s in stats]
        self.assertEqual(notes[0], notes[1])
        self.assertEqual(notes[0]["Samples"], 26)  # steps 7 to 32 end at or after 0.05 s
        self.assertEqual(notes[0]["BedShearSamples"], 26)
        for zone in ("Flow/Box/FlowSolution1", "Bed/Surface/FlowSolution1"):
            sols = [s[zone] for s in stats]
            self.assertEqual(len(sols[0]), 11 if zone.startswith("Flow") else 3)
            for name in sols[0]:
                np.testing.assert_array_equal(sols[0][name][" data"][()],
                                              sols[1][name][" data"][()], f"{zone}/{name}")

        # TimeInitialItm = 0: the same fields, but the clock and the count start again at 0.
        fresh = self.case("fresh", endtimeItm=0.01, HotstartItm=1, StartfileItm="first.dat",
                          TimeInitialItm=0)
        report = self.riffle(fresh)
        self.assertTrue(report.startswith(" Step Number        = 1\n"))
        self.assertIn(" Time               = 7.8125000000000000E-03\n", report)

        # A restart file cut short ends the run with the saved-results error, before the case
        # file loses the results of its last run.
        with open(os.path.join(self.dir, "first.dat")) as f:
            text = f.read()
        with open(os.path.join(self.dir, "first.dat"), "w") as f:
            f.write(text[: len(text) // 2])
        out = run([Paths.riffle, "second.cgns"], cwd=self.dir, env=self.env)
        self.assertNotEqual(out.returncode, 0)
        self.assertIn(" ERROR : Failed to read the saved results ...", out.stdout.splitlines())
        self.assertEqual(self.last(second)[0], t2)

    def test_wall_layer_model_continues_bit_for_bit(self):
        # The model keeps no state: a continued run evaluates the wall law afresh from the
        # restored velocity and gets the friction velocities the run in one go carried over.
        model = dict(iWallModelItm=1, StatisticsItm=0)
        whole = self.case("wmwhole", endtimeItm=0.25 - 1e-9, OTimeItm=0.25, **model)
        self.riffle(whole)
        first = self.case("wmfirst", endtimeItm=0.125 - 1e-9, **model)
        self.riffle(first)
        second = self.case("wmsecond", endtimeItm=0.25 - 1e-9, OTimeItm=0.25, HotstartItm=1,
                           StartfileItm="wmfirst.dat", TimeInitialItm=1, **model)
        self.riffle(second)
        t1, whole_v = self.last(whole)
        t2, cont_v = self.last(second)
        self.assertEqual(t1, t2)
        plain = self.case("plain", endtimeItm=0.25 - 1e-9, OTimeItm=0.25, StatisticsItm=0,
                          iWallModelItm=0)
        self.riffle(plain)
        differs = False
        for a, b, c in zip(whole_v, cont_v, self.last(plain, bed=False)[1]):
            np.testing.assert_array_equal(a, b)
            differs = differs or not np.array_equal(a, c)
        self.assertTrue(differs, "the model changed nothing")


if __name__ == "__main__":
    main()
