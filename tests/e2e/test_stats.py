"""End to end for the statistics and riffle-stats: the mean pressure of a flat-bed run is measured
from its fluid mean, falls by the hydrostatic rho g per metre and does not grow with the number of
steps (while the case file's summed "Pressure" does); riffle-stats on a short flat-bed run gives a
profile table whose velocity rises from the bed, the friction velocity of the momentum balance as
the files give it, and the figures; a file without statistics is refused in one line. Statistics
files written here in the same layout, on case files made by riffle-case, with fields whose answers
are known by hand: the total shear stress profile, the mean bed shear stress, the form drag, skin
friction and driving force over a sinusoidal bed, and the points where the bed shear stress
changes sign."""

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

        self.assertIn("bed shear stress: not written", done.stdout)  # no wall-layer model

        pngs = glob.glob(os.path.join(out, "flat_*.png"))
        self.assertGreaterEqual(len(pngs), 2, pngs)
        self.assertTrue(all(os.path.getsize(p) > 1000 for p in pngs))

    def test_a_file_without_statistics_is_refused(self):
        case = self.make("plain", {**FLAT, "StatisticsItm": 0})
        refused = riffle_stats(case, case)
        self.assertEqual(refused.returncode, 1)
        self.assertRegex(refused.stderr, r"^riffle-stats: error: .*no flow statistics.*\n$")


# The statistics fields of the box, all zero unless a test gives them.
BOX_FIELDS = ["MeanVelocityX", "MeanVelocityY", "MeanVelocityZ", "MeanPressure",
              "MeanEddyViscosity"] + ["ReynoldsStress" + c for c in ("XX", "YY", "ZZ", "XZ",
                                                                     "XY", "YZ")]
RHO, G = 1000.0, 9.81  # the case builder's densItm and gravityItm


def box(case, z):
    """The node coordinates (K, J, I) of a box over CASE's bed nodes with node heights Z, and the
    bed's elevation."""
    with h5py.File(case, "r") as f:
        bx, by, zb = (f["Case/Bed/" + n][" data"][()] for n in ("GridCoordinates/CoordinateX",
                      "GridCoordinates/CoordinateY", "NodeAttributes/Elevation"))
    shape = (len(z),) + bx.shape
    return (np.broadcast_to(bx, shape), np.broadcast_to(by, shape),
            np.broadcast_to(np.asarray(z)[:, None, None], shape), zb)


def write_stats(path, grid, fields, force, stress=None, where="Flow/BedSurface/FlowSolution1",
                budget=None):
    """A statistics file as riffle writes it: FIELDS on the box GRID (the rest zero), MeanForceX =
    FORCE, STRESS (name: array) at the bed's nodes in the solution WHERE, and BUDGET, the pair
    MeanPressureDragX, MeanFlowDrivingX."""
    with h5py.File(path, "w") as f:
        def put(name, value):
            f.create_dataset(name + "/ data", data=np.asarray(value, dtype=float))
        for axis, a in zip("XYZ", grid[:3]):
            put("Flow/Box/GridCoordinates/Coordinate" + axis, a)
        for name in BOX_FIELDS:
            put("Flow/Box/FlowSolution1/" + name, fields.get(name, np.zeros(grid[0].shape)))
        for name, v in (("StartTime", 1), ("EndTime", 2), ("Samples", 100), ("MeanForceX", force)):
            put("Flow/Statistics/" + name, [v])
        for name, value in (stress or {}).items():
            put(where + "/" + name, value)
        for name, value in zip(("MeanPressureDragX", "MeanFlowDrivingX"), budget or ()):
            put("Flow/Statistics/" + name, [value])


def summary(out, name):
    with open(os.path.join(out, name + "_summary.csv")) as f:
        return {r["quantity"]: r["value"] for r in csv.DictReader(f)}


SINE = {"xmax": 0.2, "ymax": 0.05, "ni": 65, "nj": 5, "bed": "sinusoid", "amplitude": 0.01,
        "wavelength": 0.2, "zmaxItm": 0.1}


class SyntheticStats(CaseTest):
    def stats(self, name, case, *args):
        done = riffle_stats(os.path.join(self.dir, name + "_stats.cgns"), case, "-o", self.dir,
                            *args)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout, summary(self.dir, name)

    def test_flat_bed_total_stress_profile_and_mean_bed_stress(self):
        case = self.make("flat", {"xmax": 0.4, "ymax": 0.1, "ni": 9, "nj": 5, "zmaxItm": 0.1})
        # Node heights stretched away from the bed; the bed node itself is not fluid.
        grid = box(case, np.r_[-0.01, 0.0, 0.1 * np.linspace(0, 1, 14)[1:] ** 1.3])
        x, zp, depth, ustar2 = grid[0], grid[2], 0.1, 0.01 * 0.1  # u*^2 = MeanForceX * D
        u, dudz, nut = 10 * zp - 40 * zp ** 2, 10 - 80 * zp, 1e-4 * zp / depth
        # -uw chosen so that -uw + (nut + visc) dU/dz = u*^2 (1 - z'/D) exactly.
        minus_uw = ustar2 * (1 - zp / depth) - (nut + 1e-6) * dudz
        minus_uw[zp[:, 0, 0] == zp[-2, 0, 0]] += 0.5 * ustar2  # above 0.9 D: not counted
        minus_uw[zp[:, 0, 0] == zp[7, 0, 0]] += 0.05 * ustar2
        taux = 0.8 + 0.3 * np.cos(2 * np.pi * x[0] / 0.4)  # mean 0.8 over the periodic nodes
        write_stats(os.path.join(self.dir, "flat_stats.cgns"), grid,
                    {"MeanVelocityX": u, "MeanEddyViscosity": nut, "ReynoldsStressXZ": -minus_uw,
                     "MeanPressure": 5.0 - RHO * G * zp}, 0.01,
                    {"MeanBedShearStress": (taux + 0.1)[None], "MeanBedShearStressX": taux[None],
                     "MeanBedShearStressY": np.zeros_like(taux)[None]})
        printed, s = self.stats("flat", case)
        self.assertAlmostEqual(float(s["bed_stress_x"]), 0.8, places=9)
        self.assertAlmostEqual(float(s["bed_stress"]), 0.9, places=9)
        # rho u*^2 = 1000 * 1e-3 = 1 Pa.
        self.assertAlmostEqual(float(s["bed_stress_x_over_rho_ustar2"]), 0.8, places=9)
        self.assertAlmostEqual(float(s["total_stress_max_deviation"]), 0.05, places=9)
        self.assertNotIn("pressure_drag", s)  # a file without the solver's budget
        self.assertRegex(printed, rf"largest deviation \+0.05 at z' = {zp[7, 0, 0] / depth:.3g} D")
        with open(os.path.join(self.dir, "flat_shear.csv")) as f:
            rows = [{k: float(v) for k, v in r.items()} for r in csv.DictReader(f)]
        exact = [r for r in rows if min(abs(r["z_above_bed"] - zp[(7, -2), 0, 0])) > 1e-8]
        self.assertEqual(len(exact), len(rows) - 2)  # all but the two changed layers
        for r in exact:
            self.assertAlmostEqual(r["total_over_ustar2"], r["one_minus_z_over_D"], places=9)
            self.assertAlmostEqual(r["viscous"], 1e-6 * (10 - 80 * r["z_above_bed"]), places=12)

    def sine_case(self, name, **keys):
        case = self.make(name, {**SINE, **keys})
        grid = box(case, np.linspace(-0.02, 0.1, 27))
        return case, grid, 2 * np.pi / SINE["wavelength"]

    def test_dune_form_drag_skin_friction_and_driving_force(self):
        case, grid, k = self.sine_case("sine", yBoundItm=1)
        x, y, z, _ = grid
        a, slope = SINE["amplitude"], 0.2
        # A sine not at rest at the ends of x, tilted across the channel between walls.
        zb = a * np.sin(k * x[0] + 1) + slope * y[0]
        with h5py.File(case, "r+") as f:
            f["Case/Bed/NodeAttributes/Elevation/ data"][...] = zb
        # Pressure: hydrostatic plus a part shaped like dzb/dx: form drag A a k / 2.
        amp = 3.0
        p = 500.0 - RHO * G * z + amp * np.cos(k * x + 1)
        # The first fluid node of a column averages cells at and below the bed, where the forcing
        # points' pressure sits: a swing from column to column that the bed must not see.
        first = np.argmax(z > zb[None], axis=0)[None]
        swing = 50.0 * (-1.0) ** np.arange(zb.shape[1])[None, None, :]
        np.put_along_axis(p, first, np.take_along_axis(p, first, 0) + swing[0], 0)
        tau0 = np.full(zb.shape, 0.5)
        write_stats(os.path.join(self.dir, "sine_stats.cgns"), grid,
                    {"MeanVelocityX": np.full(z.shape, 0.3), "MeanPressure": p}, 0.02,
                    {"MeanBedShearStress": tau0 + 0.1, "MeanBedShearStressX": tau0,
                     "MeanBedShearStressY": 0 * tau0}, where="Surface/Bed/FlowSolution1",
                    budget=(0.9, 1.9))
        printed, s = self.stats("sine", case)
        form = amp * a * k / 2
        xs = np.linspace(0, SINE["wavelength"], 100000, endpoint=False)
        area = np.mean(np.sqrt(1 + (a * k * np.cos(k * xs)) ** 2 + slope ** 2))
        driving = RHO * 0.02 * (0.1 - slope * 0.025)  # rho fx (zmax - mean bed)
        self.assertAlmostEqual(float(s["form_drag"]) / form, 1, delta=3e-3)
        self.assertAlmostEqual(float(s["skin_friction"]) / (0.5 * area), 1, delta=1e-3)
        self.assertAlmostEqual(float(s["bed_stress_x"]), 0.5, places=9)
        self.assertAlmostEqual(float(s["driving_force"]), driving, places=9)
        self.assertAlmostEqual(float(s["drag_over_driving"]), (form + 0.5 * area) / driving,
                               delta=3e-3)
        self.assertAlmostEqual(float(s["form_drag_share"]), form / (form + 0.5 * area),
                               delta=3e-3)
        self.assertNotIn("void", printed)
        # The solver's own budget: the pressure drag beside the form drag, the rest beside the
        # skin friction.
        self.assertAlmostEqual(float(s["stress_drag"]), 1.0, places=12)
        self.assertAlmostEqual(float(s["pressure_drag_plus_skin_over_driving"]),
                               (0.9 + 0.5 * area) / driving, delta=1e-3)
        # The pressure at the bed less its hydrostatic part is the added part, exactly.
        bed = np.genfromtxt(os.path.join(self.dir, "sine_bed.csv"), delimiter=",", names=True)
        np.testing.assert_allclose(bed["p_bed_piezometric"], 500 + amp * np.cos(k * bed["x"] + 1),
                                   atol=1e-9)

    def test_separation_and_reattachment_where_the_bed_stress_changes_sign(self):
        case, grid, _ = self.sine_case("turn")
        x, y = grid[0][0], grid[1][0]
        crest, sep, reat = 0.05, 0.0583, 0.1234  # the crest of a sine over one wavelength: L/4
        # Negative between sep and reat, linear through both; a cross-stream part of zero span
        # mean over the periodic nodes.
        taux = 10 * (np.abs(x - (sep + reat) / 2) - (reat - sep) / 2) + np.cos(2 * np.pi * y / 0.05)
        write_stats(os.path.join(self.dir, "turn_stats.cgns"), grid,
                    {"MeanVelocityX": np.full(grid[0].shape, 0.3),
                     "MeanPressure": -G * grid[2]}, 0.02,  # per unit density: not in Pa
                    {"MeanBedShearStress": np.abs(taux), "MeanBedShearStressX": taux,
                     "MeanBedShearStressY": 0 * taux})
        printed, s = self.stats("turn", case)
        self.assertAlmostEqual(float(s["stress_separation_x"]), sep, places=9)
        self.assertAlmostEqual(float(s["stress_reattachment_x"]), reat, places=9)
        self.assertAlmostEqual(float(s["stress_reattachment_length_over_H"]),
                               (reat - crest) / (2 * SINE["amplitude"]), places=6)
        self.assertIn("no separation: the near-bed mean U stays positive", printed)
        self.assertIn("void, the mean pressure is not the pressure in Pa", printed)
        self.assertEqual(s["form_drag"], "nan")
        self.assertTrue(os.path.getsize(os.path.join(self.dir, "turn_bed.png")) > 1000)


class ValidationReport(CaseTest):
    def test_the_report_sets_each_case_beside_its_twin_with_the_model_on(self):
        for case, ratio, ustar in (("flat-coarse", 58.06, 0.0079), ("flat-coarse-wm", 15.3, 0.03)):
            with open(os.path.join(self.dir, case + "_summary.csv"), "w") as f:
                f.write(f"quantity,value\nkind,flat\nU_bulk_over_ustar,{ratio}\n"
                        f"ustar_balance,{ustar}\nustar_log_fit,nan\n")
            with open(os.path.join(self.dir, case + ".stats.txt"), "w") as f:
                f.write(f"printed for {case}\n")
        report = os.path.join(self.dir, "report.md")
        done = run([os.path.join(Paths.source, "validation", "run.sh")],
                   env={**os.environ, "REPORT_ONLY": "1", "OUT": self.dir, "REPORT": report})
        self.assertEqual(done.returncode, 0, done.stderr)
        with open(report) as f:
            text = f.read()
        self.assertIn("| flat-coarse | off | 58.06 | – | 0.0079 |", text)
        self.assertIn("| flat-coarse-wm | on | 15.3 | – | 0.03 |", text)
        self.assertIn("| U_b/u* | 58.06 | 15.3 |", text)
        self.assertIn("| u*, momentum balance (m/s) | 0.0079 | 0.03 |", text)
        self.assertLess(text.index("printed for flat-coarse\n"),
                        text.index("printed for flat-coarse-wm"))
        self.assertNotIn("## dune", text)


if __name__ == "__main__":
    main()
