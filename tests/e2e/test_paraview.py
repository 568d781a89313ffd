"""End to end with ParaView's CGNS reader (pvpython or pvbatch; the test reports itself skipped
where neither is installed): a case run with the wall-layer model on lists the bases Flow, Case
and Bed with Flow alone ticked, the run's output times, and with Bed ticked the zone Surface on the
bed's nodes whose BedShearStress, at each time, is that time's solution (the solutions are marked
with their number first, so a reader that took another time's would show it)."""

import json
import os
import shutil

import h5py
import numpy as np

from e2e_common import CaseTest, Paths, main, run
from test_bedstress import CASE

SCRIPT = r"""
import json, sys
from paraview.simple import CGNSSeriesReader, servermanager
reader = CGNSSeriesReader(FileNames=[sys.argv[1]])
reader.UpdatePipelineInformation()
seen = {"bases": list(reader.GetPropertyValue("BaseInfo"))[0::2],
        "ticked": list(reader.Bases), "times": list(reader.TimestepValues)}
reader.Bases = ["Flow", "Bed"]
reader.UpdatePipelineInformation()
seen["arrays"] = list(reader.GetPropertyValue("PointArrayInfo"))[0::2]
reader.PointArrayStatus = ["BedShearStress", "Pressure"]
seen["blocks"] = []
for t in reader.TimestepValues:
    reader.UpdatePipeline(t)
    data = servermanager.Fetch(reader)
    it = data.NewIterator()
    it.InitTraversal()
    while not it.IsDoneWithTraversal():
        block = it.GetCurrentDataObject()
        points = block.GetPointData()
        seen["blocks"].append({
            "time": t, "name": it.GetCurrentMetaData().Get(data.NAME()),
            "points": block.GetNumberOfPoints(), "cells": block.GetNumberOfCells(),
            "z": list(block.GetBounds()[4:6]),
            "arrays": {points.GetArrayName(a): list(points.GetArray(a).GetRange())
                       for a in range(points.GetNumberOfArrays())}})
        it.GoToNextItem()
print("SEEN " + json.dumps(seen))
"""


def paraview():
    """The command that runs a ParaView Python script, or None."""
    for name in ("pvpython", "pvbatch"):
        exe = shutil.which(name)
        if exe:
            if not os.environ.get("DISPLAY") and shutil.which("xvfb-run"):
                return ["xvfb-run", "-a", exe]
            return [exe]
    return None


class ParaView(CaseTest):
    def setUp(self):
        super().setUp()
        self.command = paraview()
        if self.command is None:
            self.skipTest("ParaView (pvpython or pvbatch) is not installed")

    def test_reader_shows_the_bed_surface_at_every_time(self):
        case = self.make("bed", CASE)
        ran = run([Paths.riffle, case], cwd=self.dir, env=dict(os.environ, OMP_NUM_THREADS="1"))
        self.assertEqual(ran.returncode, 0, ran.stderr)
        with h5py.File(case, "r+") as f:
            times = list(f["Flow/BaseIterativeData/TimeValues"][" data"][()])
            elevation = f["Case/Bed/NodeAttributes/Elevation"][" data"][()]
            for n in range(1, len(times) + 1):
                f[f"Bed/Surface/FlowSolution{n}/BedShearStress"][" data"][...] = n
        script = os.path.join(self.dir, "look.py")
        with open(script, "w") as f:
            f.write(SCRIPT)
        out = run(self.command + [script, case], cwd=self.dir)
        lines = [l for l in out.stdout.splitlines() if l.startswith("SEEN ")]
        self.assertEqual(len(lines), 1, out.stdout[-2000:] + out.stderr[-2000:])
        seen = json.loads(lines[0][5:])
        print(json.dumps({k: seen[k] for k in ("bases", "ticked", "times", "arrays")}))

        self.assertEqual(seen["bases"], ["Flow", "Case", "Bed"])
        self.assertEqual(seen["ticked"], ["Flow"])  # the user ticks Bed
        np.testing.assert_allclose(seen["times"], times, rtol=0, atol=1e-12)
        for name in ("BedShearStress", "BedShearStressX", "BedShearStressY", "Pressure"):
            self.assertIn(name, seen["arrays"])
        ni, nj = CASE["ni"], CASE["nj"]
        surfaces = [b for b in seen["blocks"] if b["name"] == "Surface"]
        self.assertEqual([b["time"] for b in surfaces], seen["times"])
        for n, b in enumerate(surfaces, start=1):
            self.assertEqual((b["points"], b["cells"]), (ni * nj, (ni - 1) * (nj - 1)))
            self.assertEqual(b["arrays"]["BedShearStress"], [n, n])
            np.testing.assert_allclose(b["z"], [elevation.min(), elevation.max()], atol=1e-12)
        boxes = [b for b in seen["blocks"] if b["name"] == "Box"]
        self.assertEqual(len(boxes), len(times))
        self.assertTrue(all("Pressure" in b["arrays"] for b in boxes))


if __name__ == "__main__":
    main()
