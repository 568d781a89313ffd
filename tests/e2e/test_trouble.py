"""End to end, when things go wrong in a run: a write that the disk refuses (a file-size limit,
and a full file system where this machine lets a test mount a small one) stops the run with one
line naming the file and the system's reason, exit status 1, the case file opening with every
output completed before and no partial file left under an output's name; a missing output
folder or restart file is refused before the case file changes, by riffle-case --check in the
same words; a fixed step too long for the grid is warned about; SIGTERM ends a run at the end of
its step with a restart file from which the continued run ends bit for bit where a run in one go
does (one thread), SIGUSR1 writes one and the run goes on; a flow that blows up stops at the step
where it does."""

import hashlib
import os
import re
import resource
import shutil
import signal
import subprocess

import h5py
import numpy as np

from e2e_common import CaseTest, Paths, main, run

# A small dune box: 16 x 4 x 16 cells, a fixed step of 1/128 s.
BASE = {"xmax": 0.4, "ymax": 0.1, "ni": 17, "nj": 5, "bed": "dunes", "height": 0.02,
        "length": 0.4, "kmaxItm": 4, "zmaxItm": 0.1, "velocity": 0.3, "timetypeItm": 1,
        "timestepItm": 0.0078125, "endtimeItm": 0.25, "OTimeItm": 0.0625, "outpathItm": ".",
        "outfileItm": "run"}
ENV = dict(os.environ, OMP_NUM_THREADS="1")


def times(path):
    """The output times of a case file, and whether each solution holds all six fields."""
    with h5py.File(path, "r") as f:
        t = f["Flow/BaseIterativeData/TimeValues"][" data"][()]
        whole = [len([k for k in f[f"Flow/Box/FlowSolution{n}"] if not k.startswith(" ")]) == 6
                 for n in range(1, len(t) + 1)]
        return t, whole


def digest(path):
    with open(path, "rb") as f:
        return hashlib.sha256(f.read()).hexdigest()


def limited(size):
    """A child's set-up: files may grow to `size` bytes, and a write past it fails (EFBIG)
    instead of ending the process."""
    def setup():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))
    return setup


class Trouble(CaseTest):
    def case(self, name, **changes):
        return self.make(name, dict(BASE, **changes))

    def riffle(self, case, **kw):
        return run([Paths.riffle, os.path.basename(case)], cwd=self.dir, env=ENV, **kw)

    def refused(self, out, name, reason):
        """One line naming the file and the reason, exit status 1, no crash."""
        self.assertEqual(out.returncode, 1, out.stderr)
        self.assertIn(f"ERROR : Cannot write the file {name} ({reason})\n", out.stderr)

    def test_refused_writes_stop_the_run_and_keep_what_was_written(self):
        reason = os.strerror(27)  # EFBIG: "File too large"
        # The case file: each result adds about 70 kB; at 300 kB the third result cannot be
        # written. The two before stay, whole, and nothing else is left beside the case.
        case = self.case("results")
        out = self.riffle(case, preexec_fn=limited(300_000))
        self.refused(out, "results.cgns", reason)
        t, whole = times(case)
        self.assertTrue(2 <= len(t) < 5 and all(whole), t)
        self.assertLessEqual(os.path.getsize(case), 300_000)
        self.assertEqual(sorted(os.listdir(self.dir)), ["results.cgns", "results.recipe"])
        check = run([Paths.riffle_case, "--check", case])
        self.assertEqual(check.returncode, 0, check.stdout + check.stderr)

        # A Tecplot file (about 240 kB) under a 200 kB limit: no part of it is left, and the
        # file of that name from an earlier run is not touched.
        with open(os.path.join(self.dir, "run1.plt"), "w") as f:
            f.write("an earlier run's\n")
        case = self.case("tecplot", OTimeItm=1.0, TecplotItm=1, dtTecplotItm=0.0625)
        out = self.riffle(case, preexec_fn=limited(200_000))
        self.refused(out, "./run1.plt", reason)
        self.assertEqual([f for f in os.listdir(self.dir) if ".plt" in f], ["run1.plt"])
        with open(os.path.join(self.dir, "run1.plt")) as f:
            self.assertEqual(f.read(), "an earlier run's\n")
        self.assertEqual(times(case)[0].tolist(), [0.0])

        # A restart file (about 400 kB): the last good one stays as it was.
        with open(os.path.join(self.dir, "run.dat"), "w") as f:
            f.write(" 1 0.5\n")
        before = digest(os.path.join(self.dir, "run.dat"))
        case = self.case("restart", OTimeItm=1.0, HotoutItm=1, dtHotoutItm=0.0625)
        out = self.riffle(case, preexec_fn=limited(300_000))
        self.refused(out, "./run.dat", reason)
        self.assertEqual(digest(os.path.join(self.dir, "run.dat")), before)
        self.assertFalse([f for f in os.listdir(self.dir) if ".tmp" in f])

        # The statistics file, its folder removed while the run goes on.
        os.mkdir(os.path.join(self.dir, "out"))
        case = self.case("stats", StatisticsItm=1, StatStartItm=0.0, outpathItm="out")
        rc, _, err = self.during(case, 3, lambda p: shutil.rmtree(os.path.join(self.dir, "out")))
        self.assertEqual(rc, 1)
        self.assertEqual(err, "ERROR : Cannot write the file out/run_stats.cgns "
                              "(No such file or directory)\n")
        self.assertEqual(times(case)[0].tolist(), [0.0, 0.0625])

    def test_full_disk(self):
        # A file system of 600 kB, mounted in a namespace of the test's own, fills up with the
        # case file and the Tecplot files.
        if not shutil.which("unshare"):
            self.skipTest("no unshare")
        case = self.case("full", endtimeItm=1.0, TecplotItm=1, dtTecplotItm=0.0625)
        disk = os.path.join(self.dir, "disk")
        os.mkdir(disk)
        script = (f"mount -t tmpfs -o size=600k tmpfs {disk} && cp {case} {disk} && cd {disk} && "
                  f"{Paths.riffle} full.cgns > /dev/null 2> {self.dir}/err; echo $? > "
                  f"{self.dir}/rc; cp -p {disk}/* {self.dir}/")
        made = subprocess.run(["unshare", "-rm", "sh", "-c", script], capture_output=True,
                              text=True, timeout=300, stdin=subprocess.DEVNULL, env=ENV)
        if made.returncode != 0 or not os.path.exists(os.path.join(self.dir, "rc")):
            self.skipTest("cannot mount a small file system here: " + made.stderr.strip())
        with open(os.path.join(self.dir, "rc")) as f, open(os.path.join(self.dir, "err")) as g:
            rc, err = int(f.read()), g.read()
        self.assertEqual(rc, 1, err)
        self.assertRegex(err, r"^ERROR : Cannot write the file \S+ \(No space left on device\)\n$")
        t, whole = times(case)
        self.assertTrue(len(t) >= 2 and all(whole), t)
        for name in os.listdir(self.dir):
            self.assertGreater(os.path.getsize(os.path.join(self.dir, name)), 0, name)

    def test_files_a_run_needs_are_checked_before_it_starts(self):
        # A missing output folder (parameters error) and restart file (saved-results error):
        # refused with the case byte for byte as it was, and --check says the same line.
        refusals = (
            (self.case("nofolder", HotoutItm=1, dtHotoutItm=0.125, outpathItm="nosuchdir"),
             "parameters", '"outpathItm" = "nosuchdir": the output folder cannot be used'),
            (self.case("nostart", HotstartItm=1, StartfileItm="gone.dat"),
             "saved results", '"StartfileItm" = "gone.dat": the restart file cannot be read'))
        for case, error, line in refusals:
            line += " (No such file or directory)"
            before = digest(case)
            out = self.riffle(case)
            self.assertEqual(out.returncode, 1)
            self.assertIn(f" ERROR : Failed to read the {error} ...\n {line}\n", out.stdout)
            self.assertEqual(digest(case), before)
            check = run([Paths.riffle_case, "--check", case], cwd=self.dir)
            self.assertEqual(check.returncode, 1)
            self.assertIn("error: " + line + "\n", check.stdout)
        # Without any file in that folder, the folder does not matter.
        self.assertEqual(run([Paths.riffle_case, "--check", self.case(
            "nooutputs", outpathItm="nosuchdir")], cwd=self.dir).returncode, 0)

        # A fixed step of 0.2 s over 25 mm cells at 0.3 m/s: Courant number 2.4.
        recipe = os.path.join(self.dir, "long.recipe")
        with open(recipe, "w") as f:
            f.write("".join(f"{k} = {v}\n" for k, v in dict(BASE, timestepItm=0.2).items()))
        made = run([Paths.riffle_case, recipe, "-o", os.path.join(self.dir, "long.cgns")])
        self.assertEqual(made.returncode, 0)
        warning = ("timestepItm = 0.2 gives a Courant number of 2.4 at the bulk velocity 0.3 m/s "
                   "over cells 0.025 m long")
        self.assertIn(warning, made.stderr)
        self.assertIn(warning, run([Paths.riffle_case, "--check",
                                    os.path.join(self.dir, "long.cgns")]).stdout)
        self.assertNotIn("Courant", run([Paths.riffle_case, "--check", case]).stdout)

    def during(self, case, atstep, action):
        """Runs `case` and calls action(process) once the report of step `atstep` is out; the
        exit status, the standard output and the standard error."""
        errname = os.path.join(self.dir, "stderr")
        with open(errname, "w") as err, subprocess.Popen(
                [Paths.riffle, os.path.basename(case)], cwd=self.dir, env=ENV,
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=err, text=True) as p:
            lines = []
            for line in p.stdout:
                lines.append(line)
                if line.startswith(" Step Number        = ") and int(line.split()[-1]) == atstep:
                    action(p)
            rc = p.wait(timeout=120)
        with open(errname) as err:
            return rc, "".join(lines), err.read()

    def signalled(self, case, sig, atstep):
        rc, out, _ = self.during(case, atstep, lambda p: p.send_signal(sig))
        return rc, out

    def test_signals_write_a_restart_file(self):
        # 64 steps in one go, against a run stopped by SIGTERM and continued from its restart.
        end = {"endtimeItm": 0.5 - 1e-9, "OTimeItm": 0.5, "HotoutItm": 1, "dtHotoutItm": 0.5}
        self.riffle(self.case("whole", **end, outfileItm="whole"))
        rc, out = self.signalled(self.case("first", **end, outfileItm="first"), signal.SIGTERM, 10)
        self.assertEqual(rc, 75)
        stop = re.search(r"^ Stopped by SIGTERM at step (\d+), time (\S+): restart file "
                         r"\./first\.dat and the results of this time written$", out, re.M)
        self.assertIsNotNone(stop, out[-500:])
        step, time = int(stop[1]), float(stop[2])
        self.assertTrue(10 <= step < 64, step)
        self.assertEqual(out.count("Step Number"), step)  # the step under way was finished
        self.assertEqual(times(os.path.join(self.dir, "first.cgns"))[0][-1], time)
        second = self.case("second", **end, outfileItm="second", HotstartItm=1,
                           StartfileItm="first.dat", TimeInitialItm=1)
        self.assertEqual(self.riffle(second).returncode, 0)
        with open(os.path.join(self.dir, "whole.dat")) as a, \
                open(os.path.join(self.dir, "second.dat")) as b:
            self.assertEqual(a.read(), b.read())

        # SIGUSR1: a restart file and the results now, without a restart schedule; the run
        # goes on to its end.
        case = self.case("usr1", outfileItm="usr1", endtimeItm=0.5 - 1e-9, OTimeItm=0.5)
        rc, out = self.signalled(case, signal.SIGUSR1, 10)
        self.assertEqual(rc, 0)
        now = re.search(r"^ SIGUSR1 at step (\d+), time (\S+): restart file \./usr1\.dat", out, re.M)
        self.assertIsNotNone(now)
        self.assertEqual(out.count("Step Number"), 64)
        with open(os.path.join(self.dir, "usr1.dat")) as f:
            self.assertEqual(int(f.readline().split()[0]), int(now[1]))
        self.assertEqual(times(case)[0].tolist(), [0.0, float(now[2]), 0.5])

    def test_a_flow_that_blows_up_stops_where_it_does(self):
        # A step of 1 s over 25 mm cells: NaN within a few steps.
        case = self.case("blowup", timestepItm=1.0, endtimeItm=100.0, OTimeItm=1.0, HotoutItm=1,
                         dtHotoutItm=2.0, TecplotItm=1, dtTecplotItm=1.0)
        out = self.riffle(case)
        self.assertEqual(out.returncode, 1, out.stderr)
        found = re.fullmatch(r"ERROR : The flow is no longer finite at step (\d+), time (\S+): "
                             r"[uvwp] = (NaN|-?Infinity) at \(i, j, k\) = \(\d+, \d+, \d+\)\n",
                             out.stderr)
        self.assertIsNotNone(found, out.stderr)
        step, time = int(found[1]), float(found[2])
        self.assertEqual(out.stdout.count("Step Number"), step - 1)
        t, whole = times(case)
        self.assertEqual(t.tolist(), list(np.arange(step)))  # every step before, not the last
        self.assertFalse(os.path.exists(os.path.join(self.dir, f"run{int(time)}.plt")))
        with open(os.path.join(self.dir, "run.dat")) as f:
            self.assertLess(float(f.readline().split()[1]), time)


if __name__ == "__main__":
    main()
