"""End to end with the smoother's lines taken by colours (RIFFLE_SMOOTHER=colours): the bundled
dune case on half its grid takes the steps of the default row order, carries the same discharge
and agrees with it about as closely as two threads agree with one (both measured and printed);
a name that is no order stops the run before the case file is opened, with one line saying so."""

import hashlib
import os
import shutil

import numpy as np

from e2e_common import CaseTest, Paths, main, run
from test_mpi import DUNE, difference, solutions


class Smoother(CaseTest):
    def riffle(self, case, folder, threads=1, order=None):
        """Runs a copy of `case` in its own folder; returns its path, the step count and the run."""
        where = os.path.join(self.dir, folder)
        os.makedirs(where)
        copy = os.path.join(where, os.path.basename(case))
        shutil.copy(case, copy)
        env = dict(os.environ, OMP_NUM_THREADS=str(threads))
        env.pop("RIFFLE_SMOOTHER", None)
        if order is not None:
            env["RIFFLE_SMOOTHER"] = order
        out = run([Paths.riffle, os.path.basename(copy)], cwd=where, env=env)
        return copy, out.stdout.count("Step Number"), out

    def test_colours_agree_with_the_rows(self):
        if Paths.build_type == "Debug":
            self.skipTest("four dune runs take a minute under the sanitizers; Release runs them")
        case = self.make("dune", DUNE)
        one, steps, _ = self.riffle(case, "rows1")
        times, reference = solutions(one)
        two, _, _ = self.riffle(case, "rows2", threads=2)
        threads = difference(reference, solutions(two)[1])
        for n in (1, 2):
            path, count, out = self.riffle(case, f"colours{n}", threads=n, order="colours")
            self.assertEqual(out.returncode, 0, out.stderr)
            t, sols = solutions(path)
            colours = difference(reference, sols)
            flow = max(abs(a[1] - b[1]) / abs(a[1]) for a, b in zip(reference, sols))
            print(f"dunes: colours on {n} threads - rows on one {colours:.1e} "
                  f"(rows on two threads - one {threads:.1e}), discharge {flow:.1e}, "
                  f"{count} steps")
            self.assertEqual(count, steps)
            np.testing.assert_allclose(t, times, rtol=1e-6)
            self.assertLess(flow, 1e-6)
            self.assertLess(colours, max(20 * threads, 1e-8))

    def test_unknown_order_stops_before_the_case_is_opened(self):
        case = self.make("dune", DUNE)
        with open(case, "rb") as f:
            before = hashlib.sha256(f.read()).hexdigest()
        path, count, out = self.riffle(case, "red-black", order="red-black")
        self.assertNotEqual(out.returncode, 0)
        self.assertEqual(count, 0)
        self.assertEqual(out.stderr,
                         'ERROR : RIFFLE_SMOOTHER must be rows or colours, not "red-black"\n')
        with open(path, "rb") as f:
            self.assertEqual(hashlib.sha256(f.read()).hexdigest(), before)


if __name__ == "__main__":
    main()
