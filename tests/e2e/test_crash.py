"""End to end: a run killed at any moment leaves a case file that opens (h5py, cgnscheck,
riffle-case --check) with every output completed before the kill as an uninterrupted run wrote it
(the bed shear stress of the wall-layer model on the bed's surface included), the one under way
whole or absent, and whole restart files. Kills before sampled changes to the case file or its
journal (a preloaded library counts them, from a random first one), and in a restart write."""

import contextlib
import glob
import os
import random
import shutil
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

import h5py
import numpy as np

from e2e_common import Paths, main, run

# 32 fixed steps of 1/128 s on 16 x 4 x 8 cells: an output every 4 steps, a restart every 3.
RECIPE = {"xmax": 0.4, "ymax": 0.1, "ni": 17, "nj": 5, "bed": "dunes", "height": 0.02,
          "length": 0.4, "kmaxItm": 3, "zmaxItm": 0.1, "velocity": 0.3, "timetypeItm": 1,
          "timestepItm": 0.0078125, "endtimeItm": 0.25, "OTimeItm": 0.03125, "HotoutItm": 1,
          "dtHotoutItm": 0.0234375, "outpathItm": ".", "outfileItm": "crash", "iWallModelItm": 1}
FIELDS = ("VelocityX", "VelocityY", "VelocityZ", "Pressure", "Vorticity", "Coherent")
BED_FIELDS = ("BedShearStress", "BedShearStressX", "BedShearStressY")


def results(path):
    """Output times and fields, checking that each registered solution is whole and finite."""
    with h5py.File(path, "r") as f:
        if "Box" not in f["Flow"] or "BaseIterativeData" not in f["Flow"]:
            return [], []
        d = lambda p: f["Flow/" + p][" data"][()]
        grid = d("Box/GridCoordinates/CoordinateZ").shape
        times = list(d("BaseIterativeData/TimeValues"))
        names = [f"FlowSolution{s}" for s in range(1, len(times) + 1)]
        assert d("BaseIterativeData")[0] == len(times)
        pointers = d("Box/ZoneIterativeData/FlowSolutionPointers")
        assert [p.tobytes().decode().rstrip() for p in pointers] == names
        fields = [[d(f"Box/{s}/{c}") for c in FIELDS] for s in names]
        assert all(a.shape == grid and np.isfinite(a).all() for s in fields for a in s)
        # The bed's surface, written with the grid, has every time of the box and its fields.
        b = lambda p: f["Bed/" + p][" data"][()]
        assert list(b("BaseIterativeData/TimeValues")) == times
        pointers = b("Surface/ZoneIterativeData/FlowSolutionPointers")
        assert [p.tobytes().decode().rstrip() for p in pointers] == names
        bed = [[b(f"Surface/{s}/{c}") for c in BED_FIELDS] for s in names]
        assert all(a.shape == grid[1:] and np.isfinite(a).all() for s in bed for a in s)
        return times, [box + surface for box, surface in zip(fields, bed)]


class Crash(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.mkdtemp(prefix="riffle_crash_")
        cls.addClassCleanup(shutil.rmtree, cls.dir, True)
        cls.case, cls.dat = (os.path.join(cls.dir, "crash" + e) for e in (".cgns", ".dat"))
        Path(cls.dir, "crash.recipe").write_text("".join(f"{k} = {v}\n" for k, v in RECIPE.items()))
        assert run([Paths.riffle_case, "crash.recipe", "-o", "pristine.cgns"],
                   cwd=cls.dir).returncode == 0
        cls.env = dict(os.environ, OMP_NUM_THREADS="1", LD_PRELOAD=Paths.kill_shim,
                       ASAN_OPTIONS="verify_asan_link_order=0",  # the Debug build's sanitizer
                       RIFFLE_KILL_COUNT=os.path.join(cls.dir, "count"))
        # The uninterrupted run: its outputs, restart file and number of changes.
        out = cls.start(cls).communicate(timeout=300)[0]
        cls.changes = int(Path(cls.env["RIFFLE_KILL_COUNT"]).read_text())
        steps = [float(l.split("=")[1]) for l in out.splitlines() if l.startswith(" Time  ")]
        cls.times, cls.fields = results(cls.case)
        assert len(cls.times) == 9 and len(steps) == 32, out[-500:]
        # The step after whose report each output is written (0: before the first step).
        cls.stepof = [0 if t == 0 else steps.index(t) + 1 for t in cls.times]
        shutil.copy(cls.dat, os.path.join(cls.dir, "reference.dat"))
        cls.restart = Path(cls.dat).read_text().count("\n")

    def start(self, kill_at=0, keep=False):
        """riffle on a fresh copy of the case, killed before change `kill_at` (0: never)."""
        shutil.copy(os.path.join(self.dir, "pristine.cgns"), self.case)
        for name in glob.glob(self.case + ".journal*") + glob.glob(self.dat + "*") * (not keep):
            os.remove(name)
        env = dict(self.env, RIFFLE_KILL_AT=str(kill_at))
        return subprocess.Popen([Paths.riffle, "crash.cgns"], cwd=self.dir, env=env, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)

    def compare(self, allowed):
        times, fields = results(self.case)
        self.assertIn(len(times), allowed)
        self.assertEqual(times, self.times[:len(times)])
        for a, b in zip(sum(fields, []), sum(self.fields, [])):
            np.testing.assert_array_equal(a, b)

    def check(self, log, cgnscheck=False):
        """Checks what a killed run left; True when it left a journal."""
        reported = log.count(" Step Number ")
        done = sum(s < reported for s in self.stepof)  # outputs whose next step was reported
        allowed = {done, done + 1} if self.stepof[done:done + 1] == [reported] else {done}
        journal = os.path.exists(self.case + ".journal")
        if not journal:
            self.compare(allowed)
        repair = run([Paths.riffle_case, "--check", self.case])
        self.assertEqual(repair.returncode, 0, repair.stdout + repair.stderr)
        self.assertEqual("completed the update a crash interrupted" in repair.stdout, journal)
        self.compare(allowed)
        if os.path.exists(self.dat):  # whole: as many lines as the uninterrupted run's
            self.assertEqual(Path(self.dat).read_text().split("\n")[self.restart:], [""])
        if cgnscheck and shutil.which("cgnscheck"):
            text = run(["cgnscheck", self.case]).stdout
            self.assertIn("checking complete", text)
            self.assertNotIn("ERROR", text.upper())
        return journal

    def test_kills_before_sampled_changes(self):
        stride = max(1, self.changes // (40 if Paths.build_type == "Release" else 12))
        journals = 0
        for n in range(random.randint(1, stride), self.changes + 1, stride):
            with self.subTest(change=n):
                proc = self.start(kill_at=n)
                log = proc.communicate(timeout=300)[0]
                self.assertEqual(proc.returncode, -9)  # SIGKILL
                journals += self.check(log, cgnscheck=n <= stride)  # the first
        self.assertGreater(journals, 0)  # kills fell between a journal's rename and its removal

    def test_kill_during_a_restart_write_keeps_the_previous_file(self):
        reference = os.path.join(self.dir, "reference.dat")
        shutil.copy(reference, self.dat)
        os.mkfifo(self.dat + ".tmp")  # the first restart write (step 3) waits here for a reader
        proc = self.start(keep=True)
        fd = os.open(self.dat + ".tmp", os.O_RDONLY | os.O_NONBLOCK)
        got, deadline = b"", time.monotonic() + 300
        while not got and proc.poll() is None and time.monotonic() < deadline:
            time.sleep(0.01)
            with contextlib.suppress(BlockingIOError):
                got = os.read(fd, 4096)
        proc.kill()  # the writer is blocked with most of the file still to write
        log = proc.communicate(timeout=300)[0]
        os.close(fd)
        self.assertEqual(got.split()[:1], [b"3"])
        self.assertEqual(Path(self.dat).read_bytes(), Path(reference).read_bytes())
        self.check(log)


if __name__ == "__main__":
    main()
