"""End to end on several ranks (mpiexec, oversubscribed, one thread each): the bundled dune case
and a bed with side walls on 1, 2, 3 and 4 ranks take the steps of the one-process run, write
at the same times, carry the same discharge and agree with it about as closely as two threads
agree with one (both measured and printed); a restart file written on 2 ranks continues on 1
and one written on 1 continues on 2, as the one-process continuation does; with the statistics
and the wall-layer model on, rank 0 writes the bed's surface and the statistics of the whole
grid as one process does; SIGTERM sent to rank 1 alone stops every rank at the same step with a
restart file of that step. The smoother's lines taken by colours (RIFFLE_SMOOTHER=colours) give
the dunes the steps of the default row order, as close to it as the divided box."""

import os
import re
import shutil
import signal
import subprocess
import unittest

import h5py
import numpy as np

from e2e_common import CaseTest, Paths, main, run

# The bundled dune case on half its grid, 0.1 s of flow; restart and Tecplot files on.
def recipe(path, **changes):
    """A recipe's text with the lines of the keys given set to new values."""
    lines = []
    with open(path) as f:
        for line in f:
            key = line.split("=")[0].strip()
            lines.append(f"{key} = {changes[key]}\n" if key in changes else line)
    return "".join(lines)


DUNE = recipe(os.path.join(os.path.dirname(__file__), "..", "..", "cases", "dune.recipe"),
              ni=65, endtimeItm=0.1, OTimeItm=0.025, dtHotoutItm=0.05, dtTecplotItm=0.05)
# A bed with side walls: a sinusoid across a 0.8 x 0.4 box, 32 x 16 x 16 cells.
WALLS = {"xmax": 0.8, "ymax": 0.4, "ni": 33, "nj": 17, "bed": "sinusoid", "level": 0.02,
         "amplitude": 0.01, "wavelength": 0.4, "kmaxItm": 4, "zmaxItm": 0.1, "yBoundItm": 1,
         "velocity": 0.3, "cflItm": 0.3, "endtimeItm": 0.1, "OTimeItm": 0.025,
         "iPerturbItmItm": 4.9406564584124654e-324, "amplitudeItm": 0.01, "iIBMItm": 1,
         "outpathItm": ".", "outfileItm": "walls"}


def solutions(path):
    """Output times, and per output the node velocities and the discharge through x = xmin."""
    with h5py.File(path, "r") as f:
        times = f["Flow/BaseIterativeData/TimeValues"][" data"][()]
        x = f["Flow/Box/GridCoordinates/CoordinateY"][" data"][()]
        z = f["Flow/Box/GridCoordinates/CoordinateZ"][" data"][()]
        sols = []
        for n in range(1, len(times) + 1):
            s = f[f"Flow/Box/FlowSolution{n}"]
            u = [s[c][" data"][()] for c in ("VelocityX", "VelocityY", "VelocityZ")]
            # Trapezoidal flow rate over the inflow plane of nodes (k, j) at i = 0.
            plane, y, zz = u[0][:, :, 0], x[:, :, 0], z[:, :, 0]
            q = np.trapz(np.trapz(plane, y[0, :], axis=1), zz[:, 0])
            sols.append((u, q))
        return times, sols


def layout(path):
    """Each record's item count, and its items that are not numbers."""
    records = []
    with open(path) as f:
        for line in f:
            words = line.split()
            text = []
            for w in words:
                try:
                    float(w)
                except ValueError:
                    text.append(w)
            records.append((len(words), tuple(text)))
    return records


def difference(a, b):
    """Largest difference of the velocities over all outputs, over the largest speed."""
    worst = 0.0
    for (ua, _), (ub, _) in zip(a, b):
        for p, q in zip(ua, ub):
            worst = max(worst, np.max(np.abs(p - q)) / max(np.max(np.abs(p)), 1e-300))
    return worst


class Ranks(CaseTest):
    def setUp(self):
        super().setUp()
        if not Paths.mpiexec:
            self.skipTest("a build without MPI")

    def riffle(self, case, folder, ranks=1, threads=1, order="rows"):
        """Runs a copy of `case` in its own folder; returns its path and the step count."""
        where = os.path.join(self.dir, folder)
        os.makedirs(where, exist_ok=True)
        for name in os.listdir(self.dir):
            if name.endswith(".dat"):
                shutil.copy(os.path.join(self.dir, name), where)
        copy = os.path.join(where, os.path.basename(case))
        shutil.copy(case, copy)
        cmd = [Paths.riffle, os.path.basename(copy)]
        if ranks > 1:
            cmd = Paths.mpiexec + ["-np", str(ranks)] + cmd
        env = dict(os.environ, OMP_NUM_THREADS=str(threads), RIFFLE_SMOOTHER=order)
        out = run(cmd, cwd=where, env=env)
        self.assertEqual(out.returncode, 0, out.stdout[-2000:] + out.stderr[-2000:])
        return copy, out.stdout.count("Step Number")

    def compare(self, name, case):
        one, steps = self.riffle(case, name + "1")
        times, reference = solutions(one)
        two, _ = self.riffle(case, name + "t", threads=2)
        threads = difference(reference, solutions(two)[1])
        if name == "dunes" and Paths.build_type != "Debug":
            # The smoother's lines by colours, on one process: the same steps and outputs, as
            # close to the rows as a divided box is.
            path, n = self.riffle(case, "colours", order="colours")
            t, sols = solutions(path)
            colours = difference(reference, sols)
            print(f"{name}: colours - rows {colours:.1e} (two threads - one {threads:.1e})")
            self.assertEqual(n, steps)
            np.testing.assert_allclose(t, times, rtol=1e-6)
            self.assertLess(colours, max(20 * threads, 1e-8))
        for ranks in (2, 3, 4):
            path, n = self.riffle(case, f"{name}-{ranks}", ranks=ranks)
            t, sols = solutions(path)
            blocks = difference(reference, sols)
            flow = max(abs(a[1] - b[1]) / abs(a[1]) for a, b in zip(reference, sols))
            print(f"{name}: {ranks} ranks - one {blocks:.1e} (two threads - one {threads:.1e}), "
                  f"discharge {flow:.1e}, {n} steps")
            self.assertEqual(n, steps)
            np.testing.assert_allclose(t, times, rtol=1e-6)
            self.assertLess(flow, 1e-6)
            self.assertLess(blocks, max(20 * threads, 1e-8))
            # Rank 0 writes the restart and Tecplot files in the one-process layout: the same
            # records of the same length, the same text where it is not a number.
            files = [f for f in os.listdir(os.path.dirname(one)) if f.endswith((".dat", ".plt"))]
            self.assertEqual(len(files) > 0, name == "dunes")  # only the dunes write them
            for extra in files:
                a, b = (layout(os.path.join(os.path.dirname(p), extra)) for p in (one, path))
                self.assertEqual(a, b, extra)

    def test_blocks_agree_with_one_process(self):
        self.compare("dunes", self.make("dune", DUNE))
        self.compare("side walls", self.make("walls", WALLS))

    def test_restart_continues_on_another_rank_count(self):
        first = dict(WALLS, endtimeItm=0.05, HotoutItm=1, dtHotoutItm=0.05)
        rest = dict(WALLS, HotstartItm=1, StartfileItm="walls.dat", TimeInitialItm=1)
        on1, _ = self.riffle(self.make("first", first), "write1")
        on2, _ = self.riffle(self.make("first", first), "write2", ranks=2)
        cont = self.make("rest", rest)
        runs = {}
        for writer, reader, ranks in (("write1", "11", 1), ("write1", "12", 2), ("write2", "21", 1)):
            shutil.copy(os.path.join(self.dir, writer, "walls.dat"), self.dir)
            path, steps = self.riffle(cont, "read" + reader, ranks=ranks)
            runs[reader] = (solutions(path), steps)
        (times, reference), steps = runs["11"]
        for key in ("12", "21"):
            (t, sols), n = runs[key]
            self.assertEqual(n, steps)
            np.testing.assert_allclose(t, times, rtol=1e-6)
            self.assertLess(difference(reference, sols), 1e-6, key)

    def test_statistics_and_bed_surface_of_the_whole_grid(self):
        case = self.make("stats", dict(WALLS, endtimeItm=0.05, StatisticsItm=1, StatStartItm=0.0,
                                       iWallModelItm=1))
        files = {}
        for ranks in (1, 2):
            path, _ = self.riffle(case, f"stats{ranks}", ranks=ranks)
            stats = os.path.join(os.path.dirname(path), "walls_stats.cgns")
            with h5py.File(path, "r") as f, h5py.File(stats, "r") as g:
                read = lambda h, p: h[p][" data"][()]
                files[ranks] = {
                    "times": read(f, "Bed/BaseIterativeData/TimeValues"),
                    "z": read(f, "Bed/Surface/GridCoordinates/CoordinateZ"),
                    "tau": [read(f, f"Bed/Surface/{s}/BedShearStress")
                            for s in f["Bed/Surface"] if s.startswith("FlowSolution")],
                    "mean tau": read(g, "Bed/Surface/FlowSolution1/MeanBedShearStress"),
                    "samples": read(g, "Flow/Statistics/BedShearSamples")[0],
                    "pressure": read(g, "Flow/Box/FlowSolution1/MeanPressure"),
                    "u": read(g, "Flow/Box/FlowSolution1/MeanVelocityX")}
        one, two = files[1], files[2]
        self.assertEqual(one["samples"], two["samples"])
        np.testing.assert_array_equal(one["z"], two["z"])
        np.testing.assert_allclose(one["times"], two["times"], rtol=1e-6)  # CFL steps
        self.assertEqual(len(one["tau"]), len(one["times"]))
        self.assertEqual(len(two["tau"]), len(one["times"]))
        for a, b in zip(one["tau"] + [one["mean tau"]], two["tau"] + [two["mean tau"]]):
            self.assertEqual(a.shape, one["z"].shape)
            np.testing.assert_allclose(a, b, rtol=0, atol=1e-6 * max(np.abs(a).max(), 1e-300))
        for name in ("pressure", "u"):
            scale = np.abs(one[name]).max()
            worst = np.abs(one[name] - two[name]).max() / scale
            print(f"statistics on 2 ranks - one: {name} {worst:.1e} of {scale:.3g}")
            self.assertLess(worst, 1e-6, name)


def rankpid(rank, case):
    """The process id of `rank` of the run of `case` (its environment names its rank)."""
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/cmdline", "rb") as f:
                if case.encode() not in f.read().split(b"\0"):
                    continue
            with open(f"/proc/{pid}/environ", "rb") as f:
                if f"OMPI_COMM_WORLD_RANK={rank}".encode() in f.read().split(b"\0"):
                    return int(pid)
        except OSError:
            continue
    return None


class Signals(CaseTest):
    def test_a_signal_to_one_rank_stops_every_rank_at_the_same_step(self):
        if not Paths.mpiexec:
            self.skipTest("a build without MPI")
        self.make("sig", dict(WALLS, endtimeItm=100.0, HotoutItm=1, dtHotoutItm=100.0))
        env = dict(os.environ, OMP_NUM_THREADS="1")
        with open(os.path.join(self.dir, "stderr"), "w") as err, subprocess.Popen(
                Paths.mpiexec + ["-np", "2", Paths.riffle, "sig.cgns"], cwd=self.dir, env=env,
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=err, text=True) as p:
            lines = []
            for line in p.stdout:
                lines.append(line)
                if line == " Step Number        = 5\n":
                    os.kill(rankpid(1, "sig.cgns"), signal.SIGTERM)
            rc = p.wait(timeout=120)
        out = "".join(lines)
        stops = re.findall(r"^ Stopped by SIGTERM at step (\d+), time \S+: restart file "
                           r"\./walls\.dat", out, re.M)
        self.assertEqual(len(stops), 1, out[-1000:])
        self.assertEqual(rc, 75)
        step = int(stops[0])
        self.assertEqual(out.count("Step Number"), step)
        with open(os.path.join(self.dir, "walls.dat")) as f:
            self.assertEqual(int(f.readline().split()[0]), step)


if __name__ == "__main__":
    main()
