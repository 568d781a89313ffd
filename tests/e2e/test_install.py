"""End to end for the installed programs: `cmake --install` into a fresh prefix puts riffle,
riffle-case and riffle-stats in bin/, the recipes in share/riffle/cases, the manual and the man
pages under share/, with no path into the source or build tree in any installed file (a Debug
build's programs excepted: their debugging information names the sources). From a
folder outside both, with only the prefix and the system on PATH, the installed programs answer
--version and --help, make a small flat-bed case from the installed recipe, run it and draw its
statistics; any other single argument is still taken for a case file."""

import os
import shutil
import subprocess

from e2e_common import CaseTest, Paths, main, run

# The installed flat-bed recipe made small and short, with statistics on.
SMALL = {"xmax": 0.4, "ymax": 0.1, "ni": 17, "nj": 5, "kmaxItm": 3, "endtimeItm": 0.2,
         "OTimeItm": 0.1, "StatisticsItm": 1, "StatStartItm": 0.05, "outpathItm": '"."',
         "outfileItm": "flat"}


class Install(CaseTest):
    def test_installed_programs_make_run_and_draw_a_case(self):
        cmake = shutil.which("cmake")
        if cmake is None:
            self.skipTest("cmake is not installed")
        build = os.path.dirname(os.path.abspath(Paths.riffle))
        prefix = os.path.join(self.dir, "prefix")
        done = subprocess.run([cmake, "--install", build, "--prefix", prefix],
                              capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        for path in ["bin/riffle", "bin/riffle-case", "bin/riffle-stats",
                     "share/riffle/cases/flat.recipe", "share/riffle/cases/dune.recipe",
                     "share/doc/riffle/README.md", "share/doc/riffle/case-builder.md",
                     "share/man/man1/riffle.1.gz", "share/man/man1/riffle-case.1.gz",
                     "share/man/man1/riffle-stats.1.gz"]:
            self.assertTrue(os.path.isfile(os.path.join(prefix, path)), path)
        trees = [os.path.abspath(Paths.source).encode(), build.encode()]
        for folder, _, files in os.walk(prefix):
            for name in files:
                with open(os.path.join(folder, name), "rb") as f:
                    data = f.read()
                # A Debug build's programs name their sources in their debugging information.
                if Paths.build_type == "Debug" and data.startswith(b"\x7fELF"):
                    continue
                self.assertFalse(any(t in data for t in trees), os.path.join(folder, name))

        work = os.path.join(self.dir, "work")
        os.makedirs(work)
        env = {"PATH": os.path.join(prefix, "bin") + ":/usr/bin:/bin", "HOME": self.dir,
               "OMP_NUM_THREADS": "1", "MPLBACKEND": "Agg"}

        def installed(*args):
            return run(list(args), cwd=work, env=env)

        for prog in ("riffle", "riffle-case", "riffle-stats"):
            for word in ("--version", "--help"):
                out = installed(prog, word)
                self.assertEqual(out.returncode, 0, prog + word + out.stderr)
                self.assertTrue(out.stdout.startswith(f"{prog} ") if word == "--version"
                                else f"{prog} " in out.stdout and out.stdout.count("\n") > 5,
                                prog + word + out.stdout)
        self.assertIn("built with MPI", installed("riffle", "--version").stdout)
        other = installed("riffle", "--versions")
        self.assertEqual(other.returncode, 1)
        self.assertEqual(other.stderr, "*** Open error of CGNS file ***\n")

        with open(os.path.join(prefix, "share/riffle/cases/flat.recipe")) as f:
            lines = [l for l in f.read().splitlines() if l.split("=")[0].strip() not in SMALL]
        with open(os.path.join(work, "flat.recipe"), "w") as f:
            f.write("\n".join(lines + [f"{k} = {v}" for k, v in SMALL.items()]) + "\n")
        made = installed("riffle-case", "flat.recipe")
        self.assertEqual(made.returncode, 0, made.stderr)
        ran = installed("riffle", "flat.cgns")
        self.assertEqual(ran.returncode, 0, ran.stdout[-2000:] + ran.stderr)
        drawn = installed("riffle-stats", "flat_stats.cgns", "flat.cgns", "-o", "figures")
        self.assertEqual(drawn.returncode, 0, drawn.stderr)
        self.assertTrue(os.path.isfile(os.path.join(work, "figures", "flat_velocity.png")))


if __name__ == "__main__":
    main()
