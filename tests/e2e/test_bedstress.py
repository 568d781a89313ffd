"""End to end for the bed shear stress of the wall-layer model ("iWallModelItm" = 1): the case file
gets a third base /Bed whose zone Surface lies on the bed's nodes (the case's bed coordinates, z
its elevation) with the output times of /Flow and one solution of finite BedShearStress,
BedShearStressX and BedShearStressY per time; the statistics file gets their time means on the
same surface; cgnscheck finds no error in either; with the key off neither file has the base, and
a case run with the key on and then off keeps only an empty /Bed. Over a flat bed the forces on
the bed region that the statistics file gets are the pressure's none and the flow's driving on
whole layers of u faces. Over a sinusoidal bed in the
uniform initial flow the stress varies smoothly along the bed, with no column several times its
neighbours where the bed crosses a level of the grid."""

import os
import shutil

import h5py
import numpy as np

from e2e_common import CaseTest, Paths, main, run

# 6 fixed steps of 1/128 s over a dune on 16 x 4 x 8 cells; outputs at 0 and after steps 3 and 6.
CASE = {"xmax": 0.4, "ymax": 0.1, "ni": 17, "nj": 5, "bed": "dunes", "height": 0.02,
        "length": 0.4, "kmaxItm": 3, "zmaxItm": 0.1, "velocity": 0.3, "timetypeItm": 1,
        "timestepItm": 0.0078125, "endtimeItm": 0.045, "OTimeItm": 0.0234375,
        "StatisticsItm": 1, "StatStartItm": 0.01, "outpathItm": ".", "outfileItm": "bed",
        "iWallModelItm": 1}
FIELDS = ("BedShearStress", "BedShearStressX", "BedShearStressY")


def data(f, path):
    return f[path][" data"][()]


def pointers(f, zone):
    names = data(f, zone + "/ZoneIterativeData/FlowSolutionPointers")
    return [p.tobytes().decode().rstrip() for p in names]


class BedStress(CaseTest):
    def riffle(self, case):
        out = run([Paths.riffle, os.path.basename(case)], cwd=self.dir,
                  env=dict(os.environ, OMP_NUM_THREADS="1"))
        self.assertEqual(out.returncode, 0, out.stdout[-2000:] + out.stderr)

    def assert_clean(self, path):
        if shutil.which("cgnscheck"):
            check = run(["cgnscheck", path])
            text = check.stdout + check.stderr
            self.assertIn("checking complete", text)
            self.assertNotIn("ERROR", text.upper(), text)

    def assert_surface(self, f, bed, names, count):
        """/Bed of 2-D cells in 3-D space, its zone Surface on the case's bed nodes with `count`
        solutions FlowSolution1.. of the fields `names`, each finite and of the bed's shape."""
        self.assertEqual(list(data(f, "Bed")), [2, 3])  # cell and physical dimensions
        self.assertEqual(sorted(f["Bed"].keys() - {" data"}), ["BaseIterativeData", "Surface"])
        shape = bed["x"].shape
        coords = f["Bed/Surface/GridCoordinates"]
        np.testing.assert_allclose(data(coords, "CoordinateX"), bed["x"], rtol=0, atol=1e-12)
        np.testing.assert_allclose(data(coords, "CoordinateY"), bed["y"], rtol=0, atol=1e-12)
        np.testing.assert_array_equal(data(coords, "CoordinateZ"), bed["z"])
        solutions = [f"FlowSolution{n}" for n in range(1, count + 1)]
        self.assertEqual(pointers(f, "Bed/Surface"), solutions)
        self.assertEqual(sorted(k for k in f["Bed/Surface"] if k.startswith("Flow")),
                         sorted(solutions))
        for s in solutions:
            for name in names:
                values = data(f, f"Bed/Surface/{s}/{name}")
                self.assertEqual(values.shape, shape, f"{s}/{name}")
                self.assertTrue(np.isfinite(values).all(), f"{s}/{name}")

    def test_surface_in_case_and_statistics_files_and_none_with_the_key_off(self):
        case = self.make("bed", CASE)
        self.riffle(case)
        stats = os.path.join(self.dir, "bed_stats.cgns")
        with h5py.File(case, "r") as f:
            bed = {"x": data(f, "Case/Bed/GridCoordinates/CoordinateX"),
                   "y": data(f, "Case/Bed/GridCoordinates/CoordinateY"),
                   "z": data(f, "Case/Bed/NodeAttributes/Elevation")}
            times = data(f, "Flow/BaseIterativeData/TimeValues")
            self.assertEqual(len(times), 3)
            np.testing.assert_array_equal(data(f, "Bed/BaseIterativeData/TimeValues"), times)
            self.assertEqual(data(f, "Bed/BaseIterativeData")[0], 3)  # NumberOfSteps
            self.assert_surface(f, bed, FIELDS, 3)
            # The box is as without the model: its six fields in each of the three solutions.
            self.assertEqual(pointers(f, "Flow/Box"), pointers(f, "Bed/Surface"))
            self.assertEqual(len(f["Flow/Box/FlowSolution3"].keys() - {" data"}), 6)
        with h5py.File(stats, "r") as f:
            self.assertEqual(list(data(f, "Bed/BaseIterativeData/TimeValues")),
                             list(data(f, "Flow/BaseIterativeData/TimeValues")))
            self.assert_surface(f, bed, ["Mean" + n for n in FIELDS], 1)
            samples = data(f, "Flow/Statistics/Samples")[0]
            self.assertEqual(samples, 5)  # the steps ending at or after 0.01 s
            self.assertEqual(data(f, "Flow/Statistics/BedShearSamples")[0], samples)
        self.assert_clean(case)
        self.assert_clean(stats)

        # The same case run again with the key off: no bed results, an empty /Bed left behind.
        os.remove(stats)
        with h5py.File(case, "r+") as f:
            f["Case/CalculationConditions/iWallModelItm"][" data"][0] = 0
        self.riffle(case)
        with h5py.File(case, "r") as f:
            self.assertEqual(sorted(f["Bed"].keys()), [" data"])
            self.assertEqual(len(data(f, "Flow/BaseIterativeData/TimeValues")), 3)
        with h5py.File(stats, "r") as f:
            self.assertNotIn("Bed", f)
            self.assertFalse({"BedShearSamples", "MeanPressureDragX"} & set(f["Flow/Statistics"]))
        self.assert_clean(case)

        # A fresh case with the key off has no /Bed at all.
        plain = self.make("plain", dict(CASE, iWallModelItm=0, outfileItm="plain"))
        self.riffle(plain)
        for path in (plain, os.path.join(self.dir, "plain_stats.cgns")):
            with h5py.File(path, "r") as f:
                self.assertNotIn("Bed", f)

    def test_forces_on_the_bed_region_over_a_flat_bed(self):
        # Each row of the bed region's u faces spans the periodic box: the pressure's push on it
        # telescopes to nothing, and the driving force on the flow's own faces is rho fx times
        # their depth, whole cells above the forcing layer, next to the bed.
        keys = {k: v for k, v in CASE.items() if k not in ("height", "length")}
        case = self.make("flat", dict(keys, bed="flat", level=0.02, outfileItm="flat"))
        self.riffle(case)
        with h5py.File(os.path.join(self.dir, "flat_stats.cgns"), "r") as f:
            stat = {k: data(f, "Flow/Statistics/" + k)[0] for k in f["Flow/Statistics"]
                    if k != " data"}
        driving = stat["MeanFlowDrivingX"]
        self.assertEqual(stat["BedForceSamples"], stat["Samples"])
        self.assertLess(abs(stat["MeanPressureDragX"]), 1e-9 * driving)
        dz = (0.1 - 0.02) / 7  # 8 cells, the lowest under the bed (the case builder's zmin)
        depth = driving / (1000.0 * stat["MeanForceX"])  # densItm of the case builder
        self.assertAlmostEqual(depth / dz, round(depth / dz), places=9)
        self.assertTrue(0.08 - 2 * dz <= depth < 0.08, depth)

    def test_smooth_along_a_sinusoid(self):
        # The bed crosses cell levels at many columns; a forcing point deep in its cell, whose
        # image point lies close to the bed, must not make its column stand out.
        case = self.make("wave", {"xmax": 0.8, "ymax": 0.2, "ni": 33, "nj": 5, "bed": "sinusoid",
                                  "level": 0.02, "amplitude": 0.01, "wavelength": 0.4,
                                  "kmaxItm": 4, "zmaxItm": 0.1, "velocity": 0.3,
                                  "timetypeItm": 1, "timestepItm": 0.001, "endtimeItm": 0.0005,
                                  "OTimeItm": 1.0, "outfileItm": "wave", "iWallModelItm": 1})
        self.riffle(case)
        with h5py.File(case, "r") as f:
            tau = data(f, "Bed/Surface/FlowSolution1/BedShearStress")[2]  # the middle row
        self.assertGreater(tau.min(), 0.0)
        self.assertLess(tau.max() / tau.min(), 2.5, np.array2string(tau, precision=3))


if __name__ == "__main__":
    main()
