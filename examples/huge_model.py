#!/usr/bin/env python3
"""Estimate twenty million blocks on several processes.

The model is worked on in chunks by Dask workers, each of which is written to a Zarr store as it is
done, so that memory stays that of a few chunks and a run that was stopped goes on where it
stopped:

    huge_model.py --out out
    huge_model.py --blocks 1000000 --workers 4 --out out

It drills an ore body of its own. The folder given by --out receives model.zarr with estimates and
kriging variances, which xarray.open_zarr opens, and huge_model.png with a plan of both. A few
layers are estimated once more by one plain call, whose numbers must be the same.
"""

from __future__ import annotations

import argparse
import sys
import time
from pathlib import Path

import matplotlib
import numpy as np
import talvorix
import talvorix_dask
import xarray
from estimate_drillholes import InputError, carry_out, make_folder, status

matplotlib.use("Agg")
import matplotlib.pyplot as plt

EXTENT = np.array([2000.0, 1250.0, 500.0])
BLOCKS = np.array([400, 250, 200])
BODY = talvorix.Ellipsoid(260, 180, 60, 40, -20, 0)
MODEL = [talvorix.Covariance.nugget(0.1), talvorix.Covariance.spherical(0.9, BODY)]
NEIGHBOURS = 20
# The grid is turned about the vertical, and so is the field that is drilled.
AZIMUTH = 75.0
LAYERS = 2


def krige(targets, around, locations, values, n_threads=1):
    """Return estimates and kriging variances; every worker calls this."""
    return talvorix.compute_ordinary_kriging(
        targets, locations, values, MODEL, around, NEIGHBOURS, n_threads=n_threads
    )


def make_grid(blocks):
    """Describe a grid of about so many blocks over the deposit."""
    counts = np.maximum(np.round(BLOCKS * (blocks / BLOCKS.prod()) ** (1 / 3)), 1).astype(int)
    size = EXTENT / counts
    return talvorix_dask.Grid(counts, size, size / 2, (AZIMUTH, 0, 0))


def drill(holes, seed):
    """Drill holes through a field that follows the model; return locations and grades."""
    corners = talvorix.CartesianGrid(EXTENT, (1, 1, 1), rotation=(AZIMUTH, 0, 0)).corners()
    box = talvorix.BoundingBox(corners)
    drilled, _ = talvorix.create_random_drillholes(
        box, n_holes=holes, spacing=20.0, azimuth=AZIMUTH, dip=-70, seed=seed
    )
    locations = np.reshape(drilled, (-1, 3))
    reach = np.vstack([np.reshape(corners, (-1, 3)), np.ravel(box.lower()), np.ravel(box.upper())])
    reach = talvorix.BoundingBox(np.vstack([reach, locations])).corners()
    field = talvorix.TBSIM(reach, MODEL[1], seed, 400)
    noise = np.random.default_rng(seed).standard_normal(len(locations)) * np.sqrt(0.1)
    return locations, np.exp(0.6 * (np.asarray(field.simulate(locations)) + noise))


def check(grid, data, around, model):
    """Return by how much layers of the store differ from one plain call; it should be 0."""
    nx, ny, nz = grid.number_of_cells
    lower, upper = (0, 0, nz // 2), (nx, ny, min(nz // 2 + LAYERS, nz))
    plain = krige(grid.centres(lower, upper), around, *data, n_threads=0)
    stored = model.isel(k=slice(lower[2], upper[2]))
    return max(
        float(np.abs(np.ravel(stored[name]) - one).max())
        for name, one in zip(("estimate", "variance"), plain, strict=True)
    )


def draw(path, model):
    """Draw a plan of estimates and variances at the middle level."""
    level = model.isel(k=model.sizes["k"] // 2).load()
    figure, panels = plt.subplots(1, 2, figsize=(10, 4.2), sharey=True, layout="constrained")
    for panel, name, colours in zip(
        panels, ("estimate", "variance"), ("viridis", "magma"), strict=True
    ):
        low, high = np.nanpercentile(level[name], [2, 98])
        image = panel.pcolormesh(
            level.x, level.y, level[name], cmap=colours, vmin=low, vmax=high, rasterized=True
        )
        panel.set(title=f"{name} at z = {float(level.z):.0f}", xlabel="east (x)", aspect="equal")
        figure.colorbar(image, ax=panel, extend="both", shrink=0.7)
    panels[0].set_ylabel("north (y)")
    figure.savefig(path, dpi=110)
    plt.close(figure)


def run(options):
    """Carry out the job that the options describe."""
    for name, least in (("blocks", 1000), ("workers", 0), ("holes", 2)):
        if getattr(options, name) < least:
            raise InputError(
                f"--{name}: expected at least {least:,}, got {getattr(options, name):,}"
            )
    folder = Path(options.out)
    make_folder(folder)
    grid = make_grid(options.blocks)
    with status("drilling"):
        data = drill(options.holes, options.seed)
    around = talvorix.Neighborhood(data[0], BODY)
    print(f"{len(data[1]):,} samples; {len(grid):,} blocks: {grid.number_of_cells}")
    begun = time.perf_counter()
    try:
        done = talvorix_dask.estimate(
            grid,
            krige,
            around,
            *data,
            folder / "model.zarr",
            outputs=("estimate", "variance"),
            # The function above pickles by its code; a name tells its runs apart from others.
            label=f"ordinary kriging with {NEIGHBOURS} neighbours",
            n_workers=options.workers,
            overwrite=options.overwrite,
        )
    except ValueError as problem:
        raise InputError(problem) from None
    seconds = time.perf_counter() - begun
    if done.found_done:
        print(f"{done.found_done:,} chunks were in the store already")
    if done.chunks:
        print(f"{done.chunks:,} chunks in {done.seconds:.1f} s: {done.blocks / done.seconds:,.0f}"
              f" blocks/s, and {seconds - done.seconds:.1f} s to start and end")  # fmt: skip
    memory = sorted(done.memory.values(), reverse=True)
    for number, peak in enumerate(memory, start=1):
        print(f"process {number}: {peak / 2**20:,.0f} MB of memory at most")
    print(f"the model's results alone: {16 * len(grid) / 2**20:,.0f} MB")
    with status("checking"), xarray.open_zarr(folder / "model.zarr") as model:
        off = check(grid, data, around, model)
        print(f"{LAYERS} layers against one plain call: off by {off:g}")
        if off:
            raise RuntimeError("the store differs from a plain call")
        draw(folder / "huge_model.png", model)
    print(f"\nwritten: {folder / 'model.zarr'}, huge_model.png")


def main(argv=None):
    """Run the script; return 2 when what the user gave cannot be used."""
    description = "Estimate twenty million blocks on several processes."
    parser = argparse.ArgumentParser(description=description)
    options = {
        "blocks": (int(BLOCKS.prod()), "blocks, about"),
        "workers": (2, "processes; 0 works in this one"),
        "holes": (120, "drillholes"),
        "seed": (7, "of holes and grades"),
    }
    for name, (default, text) in options.items():
        parser.add_argument(
            f"--{name}", type=int, default=default, metavar="N", help=f"{text}; default: {default}"
        )
    parser.add_argument("--overwrite", action="store_true", help="begin anew")
    parser.add_argument("--out", default="out", metavar="FOLDER", help="default: %(default)s")
    return carry_out(run, parser.parse_args(argv), "huge_model.py")


# The workers import this script, and must not run it.
if __name__ == "__main__":
    sys.exit(main())
