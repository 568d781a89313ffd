"""End to end: input the solver cannot compute is refused before the case file is touched (the
file stays byte for byte the same), with the parameters error, one line naming the key, a
non-zero status and no wait on a closed standard input; riffle-case --check says the same. A
smoother order that does not exist stops the run before the case is opened. (A damaged restart
file: tests/e2e/test_restart.py.)"""

import hashlib
import os
import shutil

import h5py
import numpy as np

from e2e_common import CaseTest, Paths, main, run

RECIPE = ("xmax = 0.4\nymax = 0.1\nni = 17\nnj = 5\nbed = dunes\nheight = 0.02\nlength = 0.4\n"
          "kmaxItm = 3\nzmaxItm = 0.1\nvelocity = 0.3\ntimetypeItm = 1\ntimestepItm = 0.01\n"
          "endtimeItm = 0.02\nOTimeItm = 0.01\nStatisticsItm = 1\n")

MISSING = "is missing (read as 0)"
KMAX = "2^kmaxItm vertical cells must number at least 2 and at most 2^30, so kmaxItm must lie in 1..30"

# (change to the good case, the line that follows the parameters error)
CASES = [
    ("Elevation", None, '"Elevation" is missing from the bed grid: the bed must be given at every node'),
    ("Elevation", np.nan, '"Elevation" = nan at node (5, 0): the bed elevation must be a finite number'),
    ("kmaxItm", None, f'"kmaxItm" {MISSING}: {KMAX}'),
    ("kmaxItm", 40, f'"kmaxItm" = 40: {KMAX}'),
    ("kmaxItm", -3, f'"kmaxItm" = -3: {KMAX}'),
    ("kmaxItm", 30, '"kmaxItm" = 30: the grid of 16 x 4 x 1073741824 cells has more nodes than 2^31'),
    ("densItm", 0.0, '"densItm" = 0: the fluid density must be a positive number'),
    ("viscItm", None, f'"viscItm" {MISSING}: the kinematic viscosity must be a positive number'),
    ("timestepItm", -0.001, '"timestepItm" = -0.001: the fixed time step must be a positive number'),
    ("endtimeItm", np.inf, '"endtimeItm" = inf: the end time must be a finite number'),
    ("OTimeItm", 0.0, '"OTimeItm" = 0: the interval of result writes must be a positive number'),
    ("StatStartItm", np.nan, '"StatStartItm" = nan: the start time of the statistics must be a finite number'),
]


def sha(path):
    with open(path, "rb") as f:
        return hashlib.sha256(f.read()).hexdigest()


class BadInput(CaseTest):
    def setUp(self):
        super().setUp()
        self.good = self.make("good", RECIPE)

    def test_refused_with_the_file_unchanged(self):
        for n, (key, value, line) in enumerate(CASES):
            with self.subTest(key=key, value=value):
                case = os.path.join(self.dir, f"bad{n}.cgns")
                shutil.copy(self.good, case)
                with h5py.File(case, "r+") as f:
                    if key == "Elevation":
                        node = f["Case/Bed/NodeAttributes/Elevation"]
                        if value is None:
                            del f["Case/Bed/NodeAttributes/Elevation"]
                        else:
                            z = node[" data"][()]
                            z[0, 5] = value
                            node[" data"][...] = z
                    elif value is None:
                        del f["Case/CalculationConditions/" + key]
                    else:
                        data = f["Case/CalculationConditions/" + key][" data"]
                        data[...] = np.array([value], dtype=data.dtype)
                before = sha(case)
                out = run([Paths.riffle, case])
                self.assertNotEqual(out.returncode, 0)
                self.assertEqual(out.stdout.splitlines(),
                                 [" ERROR : Failed to read the parameters ...", " " + line])
                self.assertEqual(sha(case), before)
                checked = run([Paths.riffle_case, "--check", case])
                self.assertEqual(checked.returncode, 1)
                self.assertIn("error: " + line + "\n", checked.stdout)


    def test_case_builder_refusals(self):
        # A recipe it cannot build: exit 1, the file and line named, no case file written; no
        # recipe at all: the usage line and exit 2.
        recipe, case = os.path.join(self.dir, "bad.recipe"), os.path.join(self.dir, "bad.cgns")
        with open(recipe, "w") as f:
            f.write("ni = 1\n")
        out = run([Paths.riffle_case, recipe, "-o", case])
        self.assertEqual((out.returncode, out.stderr.splitlines()[-1]),
                         (1, f"{recipe}:1: ni = 1 leaves no cell: at least 2 nodes are needed"))
        self.assertFalse(os.path.exists(case))
        out = run([Paths.riffle_case])
        self.assertEqual(out.returncode, 2)
        self.assertTrue(out.stderr.startswith("usage: riffle-case RECIPE"))

    def test_unknown_smoother_order_stops_before_the_case_is_opened(self):
        before = sha(self.good)
        env = dict(os.environ, RIFFLE_SMOOTHER="red-black")
        out = run([Paths.riffle, self.good], env=env)
        self.assertEqual((out.returncode, out.stdout), (1, ""))
        self.assertEqual(out.stderr,
                         'ERROR : RIFFLE_SMOOTHER must be rows or colours, not "red-black"\n')
        self.assertEqual(sha(self.good), before)

if __name__ == "__main__":
    main()
