"""Shared by the end-to-end tests: the command line that CTest passes (paths of the built
executables and of the source tree), a test case working in a fresh folder that builds case files
from recipes, and the unittest entry point."""

import argparse
import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest


# The exit status of a test file whose every test was skipped (CTest's SKIP_RETURN_CODE).
SKIPPED = 77


class Paths:
    riffle = None
    riffle_case = None
    source = None
    build_type = None
    kill_shim = None
    mpiexec = []  # the launcher and its options, empty in a build without MPI


def run(cmd, **kw):
    """Runs a command with standard input closed, capturing its text output."""
    return subprocess.run(cmd, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          timeout=300, **kw)


class CaseTest(unittest.TestCase):
    """A test in a fresh folder (self.dir), removed afterwards."""

    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="riffle_e2e_")
        self.addCleanup(shutil.rmtree, self.dir, True)

    def make(self, name, recipe):
        """NAME.cgns built by riffle-case from a recipe given as text or as a dict of keys."""
        if not isinstance(recipe, str):
            recipe = "".join(f"{k} = {v}\n" for k, v in recipe.items())
        path = os.path.join(self.dir, name + ".recipe")
        with open(path, "w") as f:
            f.write(recipe)
        case = os.path.join(self.dir, name + ".cgns")
        made = run([Paths.riffle_case, path, "-o", case])
        self.assertEqual(made.returncode, 0, made.stderr)
        return case


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--riffle", required=True)
    parser.add_argument("--riffle-case", required=True)
    parser.add_argument("--source", required=True)
    parser.add_argument("--build-type", default="Release")
    parser.add_argument("--kill-shim")
    parser.add_argument("--mpiexec", default="")
    args, rest = parser.parse_known_args()
    Paths.mpiexec = shlex.split(args.mpiexec)
    Paths.riffle, Paths.riffle_case, Paths.source = args.riffle, args.riffle_case, args.source
    Paths.build_type, Paths.kill_shim = args.build_type, args.kill_shim
    result = unittest.main(argv=[sys.argv[0]] + rest, exit=False).result
    if not result.wasSuccessful():
        sys.exit(1)
    # Every test skipped (a tool that is not installed): CTest reports the file as skipped.
    if result.testsRun > 0 and len(result.skipped) == result.testsRun:
        sys.exit(SKIPPED)
