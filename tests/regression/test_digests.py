"""Regression check: every output of a one-thread run, bit for bit, against stored SHA-256 digests.

Each case below is built from a recipe with riffle-case and run with OMP_NUM_THREADS=1; the check
digests the console report, the arrays of the results base of the case file (grouped by CGNS node,
raw bytes with their type and shape, in sorted order: the HDF5 file itself carries timestamps),
and every restart and Tecplot file. tests/regression/digests.txt holds the expected digests; only
tools/regression-digests rewrites it, after an intended change of results."""

import argparse
import hashlib
import os
import subprocess
import sys
import tempfile
import time

import h5py
import numpy as np

DIGESTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "digests.txt")

# A short train of dunes 0.2 m long on a 32 x 8 x 16 grid, roughened with the solver's random
# bumps and started with its index-hash disturbance (a real switch whose low 32 bits read 1), so
# that the flow is 3-D within a few steps, with forcing points all along the bed.
BED = {"xmax": 0.4, "ymax": 0.1, "ni": 33, "nj": 9, "bed": "dunes", "height": 0.02,
       "length": 0.2, "kmaxItm": 4, "velocity": 0.3, "iPerturbItmItm": "1.0000000000000002",
       "amplitudeItm": 0.02, "iBedPerturbItm": 1, "BAmplitudeItm": 0.002, "endtimeItm": 0.1,
       "OTimeItm": 0.05}
FIXED = {"timetypeItm": 1, "timestepItm": 0.004}
W_CYCLE = {"iCycleItm": 2, "igammaItm": 2}

# name, bundled recipe (or None), overrides
CASES = [
    # The bundled recipes without the wall-layer model: these pin the plain solver.
    ("dune", "dune.recipe", {"ni": 65, "nj": 5, "kmaxItm": 4, "endtimeItm": 0.12,
                             "OTimeItm": 0.04, "dtHotoutItm": 0.05, "dtTecplotItm": 0.05,
                             "iWallModelItm": 0}),
    ("flat", "flat.recipe", {"ni": 33, "nj": 9, "endtimeItm": 0.3, "OTimeItm": 0.15,
                             "iWallModelItm": 0}),
    # Wall laws: trilinear (iIBMItm 0) or inverse-distance image point, smooth (BedItm 0) or
    # rough (1: grain size, 2: roughness height); CFL or fixed step, V or W cycles, side walls
    # and a no-slip lid in some, and a 40 x 6 grid on which the multigrid stops coarsening early.
    ("ibm0-smooth", None, dict(BED, iIBMItm=0, BedItm=0, yBoundItm=1)),
    ("ibm0-rough", None, dict(BED, **FIXED, **W_CYCLE, ni=41, nj=7, iIBMItm=0, BedItm=1,
                              SedimentItm=2.0)),
    ("ibm1-smooth", None, dict(BED, **FIXED, **W_CYCLE, iIBMItm=1, BedItm=0, yBoundItm=1,
                               zBoundItm=1)),
    ("ibm1-rough", None, dict(BED, iIBMItm=1, BedItm=2, RoughItm=5.0, yBoundItm=1,
                              cflItm=0.4)),
    # The wall-layer model (its bed shear stress among the results) with both image points and
    # both wall laws.
    ("wm-ibm0-smooth", None, dict(BED, **FIXED, iIBMItm=0, BedItm=0, iWallModelItm=1)),
    ("wm-ibm1-rough", None, dict(BED, iIBMItm=1, BedItm=1, yBoundItm=1, iWallModelItm=1)),
]


def recipe_text(source, base, overrides):
    lines = []
    if base:
        with open(os.path.join(source, "cases", base)) as f:
            lines = [ln for ln in f if ln.split("=")[0].strip() not in overrides]
    return "".join(lines) + "".join(f"{k} = {v}\n" for k, v in overrides.items())


def sha(data):
    return hashlib.sha256(data).hexdigest()


def result_digests(path):
    """One digest per node of the results bases down to the solution level (Flow/Box/FlowSolution3,
    Flow/Box/GridCoordinates, Flow/BaseIterativeData/TimeValues, ..., and with the wall-layer
    model Bed/Surface/FlowSolution3, ...), over its arrays."""
    groups = {}
    with h5py.File(path, "r") as f:
        for base in ("Flow", "Bed"):
            if base not in f:
                continue

            def visit(name, obj, base=base):
                if isinstance(obj, h5py.Dataset):
                    node = (base + "/" + name).split("/")
                    node = node[:-1] if node[-1] == " data" else node
                    groups.setdefault("/".join(node[:3]), []).append(base + "/" + name)
            f[base].visititems(visit)
        out = {}
        for group, names in groups.items():
            h = hashlib.sha256()
            for name in sorted(names):
                a = np.ascontiguousarray(f[name][()])
                # the name as within its base, as the digests of the plain solver were made
                h.update(f"{name.split('/', 1)[1]} {a.dtype.str} {a.shape}\n".encode())
                h.update(a.tobytes())
            out[group] = h.hexdigest()
    return out


def run_case(args, name, base, overrides):
    with tempfile.TemporaryDirectory(prefix="riffle_regr_") as d:
        with open(os.path.join(d, "case.recipe"), "w") as f:
            f.write(recipe_text(args.source, base, dict(overrides, outpathItm=".", outfileItm=name)))
        subprocess.run([args.riffle_case, "case.recipe", "-o", "case.cgns"], cwd=d, check=True,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        run = subprocess.run([args.riffle, "case.cgns"], cwd=d, timeout=120, capture_output=True,
                             env=dict(os.environ, OMP_NUM_THREADS="1"), stdin=subprocess.DEVNULL)
        if run.returncode != 0 or run.stderr:  # nothing goes to the error stream in a good run
            sys.exit(f"FAIL {name}: riffle ended with {run.returncode}:\n"
                     + (run.stdout[-2000:] + run.stderr).decode(errors="replace"))
        out = {"console": sha(run.stdout)}
        out.update(result_digests(os.path.join(d, "case.cgns")))
        for fname in sorted(os.listdir(d)):
            if fname not in ("case.recipe", "case.cgns"):
                with open(os.path.join(d, fname), "rb") as f:
                    out["file:" + fname] = sha(f.read())
        return out


def all_digests(args):
    digests = {}
    for name, base, overrides in CASES:
        start = time.monotonic()
        outputs = run_case(args, name, base, overrides)
        print(f"{name}: {len(outputs)} outputs, {time.monotonic() - start:.2f} s", flush=True)
        digests.update({(name, k): v for k, v in outputs.items()})
    return digests


def main():
    p = argparse.ArgumentParser()
    for opt in ("--riffle", "--riffle-case", "--source"):
        p.add_argument(opt, required=True, type=os.path.abspath)
    p.add_argument("--build-type", default="Release")
    args = p.parse_args()
    if args.build_type != "Release":
        print(f"SKIPPED: the digests pin the Release build's bits; this is a {args.build_type} "
              "build (sanitizers at -O0). Run the check in a Release build.")
        return 77
    with open(DIGESTS) as f:
        stored = {tuple(ln.split()[:2]): ln.split()[2] for ln in f if ln.strip()
                  and not ln.startswith("#")}
    names = [c[0] for c in CASES]
    stored_names = sorted({c for c, _ in stored})
    if sorted(names) != stored_names:
        sys.exit(f"FAIL: the cases {sorted(names)} and those of digests.txt {stored_names} differ")
    start = time.monotonic()
    got = all_digests(args)
    faults = [f"{c}: no stored digest for output {o}" for c, o in got if (c, o) not in stored]
    faults += [f"{c}: output {o} was not produced" for c, o in stored if (c, o) not in got]
    compared = [k for k in got if k in stored]
    faults += [f"{c}: {o} differs" for c, o in compared if got[(c, o)] != stored[(c, o)]]
    print(f"{len(compared)} digests compared over {len(names)} cases in "
          f"{time.monotonic() - start:.1f} s; {len(faults)} faults")
    for fault in faults:
        print("FAIL " + fault)
    return 1 if faults or not compared else 0


if __name__ == "__main__":
    sys.exit(main())
