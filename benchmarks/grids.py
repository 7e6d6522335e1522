"""Speed of grids and outlines, beside the least they could cost.

Usage: python grids.py [--repeats R] [--cells N] [--points N] [--out FILE.md]

Everything is measured in this one run; README.md says what each table shows.
"""

import ctypes
import sys
import tempfile

import numpy as np
import talvorix
from common import best_of, compile_library, finish, machine, parse_arguments, table
from threadpoolctl import threadpool_limits

CELL = np.array([20.0, 25.0, 10.0])
ORIGIN = np.array([1200.0, -300.0, 40.0])
ROTATIONS = {"unrotated": (90.0, 0.0, 0.0), "rotated": (35.0, -20.0, 10.0)}
N_RAYS = 600  # half the number of directions, the default
SEED = 121315
N_ROTATIONS = 400_000  # 20 times the default, so that the time is that of the search
FAST = ("-ffast-math", "-fopenmp-simd")  # without it no loop over minima becomes vector code
POINTS_AT_A_TIME = 512  # in numpy's product: the projections then stay in a cache
TOLERANCE = 1e-9  # of the extent


def fill(count):
    """Write as many bytes as the locations of a grid take."""
    locations = np.empty((count, 3))
    locations.fill(1.0)
    return locations


def lattice(counts):
    """Return the locations of an unrotated grid the usual way in numpy."""
    axes = [
        start + size * np.arange(count)
        for start, size, count in zip(ORIGIN, CELL, counts, strict=True)
    ]
    return np.stack(np.meshgrid(*axes, indexing="ij"), axis=-1).reshape(-1, 3)


def axes_of(azimuth, dip, rake):
    """Return the grid's axes as rows, from their definition."""
    azimuth, dip, rake = np.radians([azimuth, dip, rake])
    first = np.array([np.sin(azimuth) * np.cos(dip), np.cos(azimuth) * np.cos(dip), np.sin(dip)])
    level = np.array([-np.cos(azimuth), np.sin(azimuth), 0.0])
    upright = np.cross(first, level)
    second = np.cos(rake) * level + np.sin(rake) * upright
    return np.array([first, second, np.cross(first, second)])


def measure_grids(n_cells, repeats, failures):
    """Return the table of making all locations of a grid."""
    # 5 : 2 : 1, as 500 x 200 x 100 cells are.
    base = max(1, round((n_cells / 10) ** (1 / 3)))
    counts = (5 * base, 2 * base, base)
    total = int(np.prod(counts))
    length = CELL * counts
    unrotated = lattice(counts)
    rows = []
    for name, rotation in ROTATIONS.items():
        works = {
            "fill": lambda: fill(total),
            "grid": lambda r=rotation: talvorix.CartesianGrid(length, counts, ORIGIN, r),
        }
        best, results = best_of(repeats, works)
        grid = results["grid"]
        copying, copied = best_of(repeats, {"asarray": lambda g=grid: np.asarray(g)})
        expected = (unrotated - ORIGIN) @ axes_of(*rotation) + ORIGIN
        error = np.abs(copied["asarray"] - expected).max() / length.max()
        del expected, copied, results, grid
        if not error < TOLERANCE:
            failures.append(f"grid, {name}: off by {error:.1e} of its length")
        for label, seconds in (
            (f"talvorix.CartesianGrid, {name}", best["grid"]),
            (f"numpy.asarray of it, {name}", copying["asarray"]),
        ):
            ratio = f"**{seconds / best['fill']:.2f}**"
            rows.append((label, f"{1e3 * seconds:.0f}", f"{1e3 * best['fill']:.0f}", ratio))
            print(*rows[-1], sep="  ", file=sys.stderr)
    del unrotated
    best, _ = best_of(repeats, {"fill": lambda: fill(total), "numpy": lambda: lattice(counts)})
    ratio = f"**{best['numpy'] / best['fill']:.2f}**"
    label = "numpy.meshgrid and stack, unrotated"
    rows.append((label, f"{1e3 * best['numpy']:.0f}", f"{1e3 * best['fill']:.0f}", ratio))
    header = (
        " x ".join(map(str, counts)) + " cells",
        "ms",
        "writing the same bytes, ms",
        "time / writing time",
    )
    return table(header, rows)


class Floor:
    """The multiply-adds of an outline alone, compiled from outline_floor.cpp."""

    def __init__(self, folder, compiler, flags):
        library = compile_library(folder, "outline_floor.cpp", compiler, flags, FAST)
        self.function = library.outline_floor
        array = np.ctypeslib.ndpointer(np.float64, flags="C_CONTIGUOUS")
        number = ctypes.c_int64
        self.function.restype = None
        self.function.argtypes = [array, array, array, number, array, number, array, array]

    def __call__(self, columns, directions):
        """Return the smallest and the largest projection on every direction."""
        smallest, largest = np.empty(len(directions)), np.empty(len(directions))
        self.function(*columns, columns.shape[1], directions, len(directions), smallest, largest)
        return smallest, largest


def project_with_numpy(points, directions):
    """Return which points are the lowest and the highest on every direction."""
    best = np.full((2, len(directions)), -np.inf)
    which = np.zeros((2, len(directions)), np.int64)
    each = np.arange(len(directions))
    for begin in range(0, len(points), POINTS_AT_A_TIME):
        projections = directions @ points[begin : begin + POINTS_AT_A_TIME].T
        for end, sign in enumerate((-1.0, 1.0)):
            place = projections.argmin(axis=1) if end == 0 else projections.argmax(axis=1)
            value = sign * projections[each, place]
            better = value > best[end]
            best[end, better], which[end, better] = value[better], begin + place[better]
    return which


def measure_outline(n_points, floor, repeats, failures):
    """Return the table of the outline of random points, on one thread."""
    points = np.random.default_rng(5).normal(size=(n_points, 3)) * (900.0, 500.0, 80.0)
    columns = np.ascontiguousarray(points.T)
    directions = np.reshape(talvorix.generate_random_sphere(N_RAYS, SEED), (-1, 3)).copy()
    works = {
        "talvorix.extreme_points": lambda: talvorix.extreme_points(
            points, n_rays=N_RAYS, seed=SEED, n_threads=1
        ),
        "floor": lambda: floor(columns, directions),
        "numpy's matrix product in blocks, argmin and argmax": lambda: project_with_numpy(
            points, directions
        ),
    }
    with threadpool_limits(1):
        best, results = best_of(repeats, works)
    ours, (smallest, largest), which = results.values()
    # Directions meet their ends in order, the lower first, and each point counts once.
    order = which.T.ravel()
    _, first = np.unique(order, return_index=True)
    expected = points[order[np.sort(first)]]
    if not np.array_equal(np.reshape(ours, (-1, 3)), expected):
        failures.append("outline: not the points that numpy finds")
    ends = np.array([np.sum(points[rows] * directions, axis=1) for rows in which])
    if not np.allclose(ends, [smallest, largest], rtol=0.0, atol=TOLERANCE * np.ptp(points)):
        failures.append("outline: the floor's projections are not those of numpy")
    products = n_points * len(directions)
    rows = [
        (
            name,
            f"{1e3 * seconds:.0f}",
            f"{3e-9 * products / seconds:.1f}",
            f"**{seconds / best['floor']:.2f}**",
        )
        for name, seconds in best.items()
    ]
    header = (
        f"{n_points:,} points, {len(directions):,} directions, {len(ours):,} in the outline",
        "ms",
        "multiply-adds, 10⁹/s",
        "time / floor time",
    )
    return table(header, rows)


def score(sizes):
    """Return what optimize_rotation makes small."""
    return np.log(np.add(sizes, 1.0)).sum()


def measure_rotation(repeats, failures):
    """Return the table of the rotation search on one thread and on all."""
    turned = np.random.default_rng(6).uniform(-1.0, 1.0, (5000, 3)) * (900.0, 300.0, 40.0)
    points = turned @ axes_of(*ROTATIONS["rotated"])
    threads = sorted({1, talvorix.check_n_threads(0)})
    works = {
        n: lambda n=n: talvorix.optimize_rotation(points, n_iterations=N_ROTATIONS, n_threads=n)
        for n in threads
    }
    best, results = best_of(repeats, works)
    tightest, loosest = score(np.ptp(turned, axis=0)), score(np.ptp(points, axis=0))
    rows = []
    for n, seconds in best.items():
        _, box = results[n]
        reached = score(np.ravel(box.upper()) - np.ravel(box.lower()))
        # By chance one of so many rotations comes close to the one the points were turned by.
        if not reached < tightest + 0.25 * (loosest - tightest):
            failures.append(f"rotation, {n} threads: score {reached:.2f}, {tightest:.2f} is known")
        rows.append((n, f"{1e3 * seconds:.0f}", f"**{best[1] / seconds:.2f}**", f"{reached:.2f}"))
    header = (
        "threads",
        "ms",
        "times as fast as one",
        f"score reached ({loosest:.2f} unrotated, {tightest:.2f} known)",
    )
    return table(header, rows)


def main():
    """Measure everything and print the report; fail when a result is wrong."""
    sizes = {
        "repeats": (7, "the best one counts"),
        "cells": (10_000_000, "about how many the grid has"),
        "points": (1_000_000, "points of the outline"),
    }
    arguments = parse_arguments(
        "grids.py", __doc__.splitlines()[0], sizes, composites=False, peers=False
    )
    failures = []
    with tempfile.TemporaryDirectory() as folder:
        floor = Floor(folder, arguments.compiler, arguments.flags)
        report = [
            f"Grids and outlines, best of {arguments.repeats}.",
            machine(arguments.compiler, arguments.flags)
            + f"; the outline's with {' '.join(FAST)} as well",
            "### Grids, one process",
            measure_grids(arguments.cells, arguments.repeats, failures),
            "### Outlines, one thread",
            measure_outline(arguments.points, floor, arguments.repeats, failures),
            f"### Tightest of {N_ROTATIONS:,} rotations of 5,000 points",
            measure_rotation(arguments.repeats, failures),
        ]
    finish(report, arguments, failures)


if __name__ == "__main__":
    main()
