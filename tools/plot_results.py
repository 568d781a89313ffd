#!/usr/bin/python3
"""Draws a Riffle case file's last output: VelocityX on the x-z plane through the middle of the
channel, with the bed line, and the bed elevation in plan view. Reads the file with h5py only.

usage: plot_results.py CASE.cgns [-o PICTURE.png] [--field VelocityX] [--step N]
"""
import argparse
import sys

import h5py
import matplotlib
matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402


def data(node):
    return node[" data"][()]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("case")
    parser.add_argument("-o", "--output", default=None, help="picture file (default CASE.png)")
    parser.add_argument("--field", default="VelocityX")
    parser.add_argument("--step", type=int, default=0, help="output number, 1-based (default last)")
    args = parser.parse_args()
    out = args.output or args.case.rsplit(".", 1)[0] + ".png"

    with h5py.File(args.case, "r") as f:
        if "Flow/Box" not in f:
            sys.exit(f"{args.case}: no results (has riffle run on it?)")
        box = f["Flow/Box"]
        times = data(f["Flow/BaseIterativeData/TimeValues"])
        n = args.step or len(times)
        if not 1 <= n <= len(times):
            sys.exit(f"{args.case}: output {n} not in 1..{len(times)}")
        x = data(box["GridCoordinates/CoordinateX"])
        y = data(box["GridCoordinates/CoordinateY"])
        z = data(box["GridCoordinates/CoordinateZ"])
        field = data(box[f"FlowSolution{n}/{args.field}"])
        elev = data(f["Case/Bed/NodeAttributes/Elevation"])

    jmid = x.shape[1] // 2
    fig, (ax1, ax2) = plt.subplots(2, 1, figsize=(10, 7), gridspec_kw={"height_ratios": [2, 1]})
    xs, zs = x[:, jmid, :], z[:, jmid, :]
    masked = np.ma.masked_where(zs <= elev[jmid, :][None, :], field[:, jmid, :])
    # A diverging map centred on zero shows reversed flow (blue) apart from forward flow (red).
    limit = max(float(np.abs(masked).max()), 1e-12)
    mesh = ax1.pcolormesh(xs, zs, masked, shading="nearest", cmap="RdBu_r", vmin=-limit,
                          vmax=limit)
    ax1.plot(x[0, jmid, :], elev[jmid, :], "k-", lw=2, label="bed")
    ax1.set_xlabel("x (m)")
    ax1.set_ylabel("z (m)")
    ax1.set_title(f"{args.field} at y = {y[0, jmid, 0]:.3g} m, t = {times[n - 1]:.4g} s")
    ax1.legend(loc="upper right")
    fig.colorbar(mesh, ax=ax1)
    plan = ax2.pcolormesh(x[0], y[0], elev, shading="nearest", cmap="terrain")
    ax2.set_xlabel("x (m)")
    ax2.set_ylabel("y (m)")
    ax2.set_title("bed elevation (m)")
    ax2.set_aspect("equal")
    fig.colorbar(plan, ax=ax2)
    fig.tight_layout()
    fig.savefig(out, dpi=110)
    print(f"wrote {out}")


if __name__ == "__main__":
    main()
