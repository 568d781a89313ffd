"""End to end: riffle-case makes a small case, riffle runs it, and an independent reader (h5py)
finds the 3-D grid, the output times and the six fields of every output; cgnscheck accepts the
file; bad invocations print their message, exit non-zero and change no file."""

import fcntl
import hashlib
import os
import pty
import shutil
import subprocess

import h5py
import numpy as np

from e2e_common import CaseTest, Paths, main, run

FIELDS = ["VelocityX", "VelocityY", "VelocityZ", "Pressure", "Vorticity", "Coherent"]

# 16 x 8 cells, 2^3 = 8 layers; fixed step 0.25 to t = 1.25 (5 steps), results every 0.5:
# the initial state plus steps 2 and 4 (t = 0.5, 1.0).
RECIPE = """\
xmin = 0
xmax = 1.6
ymin = 0
ymax = 0.4
ni = 17
nj = 9
bed = flat
level = 0.0
kmaxItm = 3
zminItm = -0.025
zmaxItm = 0.175
dischargeItm = 0.014
timetypeItm = 1
timestepItm = 0.25
starttimeItm = 0.0
endtimeItm = 1.25
OTimeItm = 0.5
"""


def digest(path):
    with open(path, "rb") as f:
        return hashlib.sha256(f.read()).hexdigest()


def data(node):
    return node[" data"][()]


class Spine(CaseTest):
    def setUp(self):
        super().setUp()
        self.case = self.make("small", RECIPE)

    def check_results(self, nsteps_expected_times):
        with h5py.File(self.case, "r") as f:
            box = f["Flow/Box"]
            coords = box["GridCoordinates"]
            z, x = data(coords["CoordinateZ"]), data(coords["CoordinateX"])
            self.assertEqual(z.shape, (9, 9, 17))  # (K, J, I)
            np.testing.assert_allclose(z[:, 0, 0], -0.025 + 0.025 * np.arange(9), atol=1e-15)
            np.testing.assert_allclose(x[3, 2, :], 0.1 * np.arange(17), atol=1e-15)
            times = data(f["Flow/BaseIterativeData/TimeValues"])
            np.testing.assert_allclose(times, nsteps_expected_times)
            self.assertEqual(int(data(f["Flow/BaseIterativeData"])[0]), len(times))
            pointers = data(box["ZoneIterativeData/FlowSolutionPointers"])
            self.assertEqual(pointers.shape, (len(times), 32))
            for n in range(1, len(times) + 1):
                name = bytes(pointers[n - 1]).decode().strip()
                self.assertEqual(name, f"FlowSolution{n}")
                for field in FIELDS:
                    self.assertEqual(data(box[name][field]).shape, (9, 9, 17), (name, field))
            # The initial flow: u = discharge / width / zmax above the bed, 0 at or below it.
            u0 = data(box["FlowSolution1/VelocityX"])
            np.testing.assert_allclose(u0[2:, :, :], 0.014 / 0.4 / 0.175)
            np.testing.assert_array_equal(u0[:2, :, :], 0.0)
            self.assertTrue(np.all(data(box["FlowSolution1/Pressure"]) == 0.0))

    def test_run_report_results_and_rerun(self):
        one = dict(os.environ, OMP_NUM_THREADS="1")  # the same report bits run after run
        out = run([Paths.riffle, self.case], env=one)
        self.assertEqual(out.returncode, 0, out.stdout + out.stderr)
        lines = out.stdout.splitlines()  # seven lines a step, the bytes pinned by the digests
        self.assertEqual(len(lines), 5 * 7)
        self.assertEqual(lines[7 * 4:7 * 4 + 3], [" Step Number        = 5",
                                                  " Time Step          = 2.5000000000000000E-01",
                                                  " Time               = 1.2500000000000000E+00"])
        self.check_results([0.0, 0.5, 1.0])

        if shutil.which("cgnscheck"):
            check = run(["cgnscheck", self.case])
            text = check.stdout + check.stderr
            self.assertNotIn("ERROR", text.upper().replace("0 ERRORS", ""), text)

        # A second run replaces the first run's results instead of adding to them. Its standard
        # error is a terminal: one progress line drawn there and taken away at the end, and the
        # report on standard output the same as without it (the first run's error stream stays
        # empty).
        self.assertEqual(out.stderr, "")
        leader, follower = pty.openpty()
        again = subprocess.run([Paths.riffle, self.case], stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=follower, text=True, timeout=300,
                               env=one)
        os.close(follower)
        progress = os.read(leader, 1 << 16).decode()
        os.close(leader)
        self.assertEqual(again.returncode, 0)
        self.assertEqual(again.stdout, out.stdout)
        self.assertRegex(progress, r"^\rstep 1  t = 0.25 of 1.25 s  20.0 %  [\d.]+ steps/s  "
                                   r"\d:\d\d:\d\d left\x1b\[K.*\r\x1b\[K$")
        self.check_results([0.0, 0.5, 1.0])

    def test_bad_invocations_change_nothing(self):
        before = digest(self.case)
        text, empty = os.path.join(self.dir, "notes.txt"), os.path.join(self.dir, "empty.cgns")
        with open(text, "w") as f:
            f.write("not a case file\n")
        open(empty, "w").close()
        missing = os.path.join(self.dir, "missing.cgns")
        opening = "*** Open error of CGNS file ***"
        with open(self.case, "r+b") as held:  # a case another run writes (it holds the lock)
            fcntl.lockf(held, fcntl.LOCK_EX | fcntl.LOCK_NB)
            for args, message in [([], "Input File not specified"),
                                  ([self.case, self.case], "Input File not specified"),
                                  ([missing], opening), ([text], opening), ([empty], opening),
                                  ([self.case], opening)]:
                out = run([Paths.riffle] + args)
                self.assertNotEqual(out.returncode, 0, args)
                self.assertIn(message, out.stdout + out.stderr, args)
        self.assertEqual(digest(self.case), before)
        with open(text) as f:
            self.assertEqual(f.read(), "not a case file\n")
        self.assertEqual(os.path.getsize(empty), 0)
        self.assertFalse(os.path.exists(missing))


if __name__ == "__main__":
    main()
