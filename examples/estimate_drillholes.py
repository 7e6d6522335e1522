#!/usr/bin/env python3
"""Estimate a block model from drillhole composites, write it and draw it.

A job is a table of composites, a covariance model, a search and a grid:

    estimate_drillholes.py composites.csv --value cu_pct --hole hole_id --model job.toml --out out

Every long option but --model, --out and --threads may also stand in the TOML file, spelt with
underscores (max_per_hole = 3); what is given on the command line wins. examples/campaign.toml is
such a file with comments. Without a table the script drills a small ore body of its own with that
file's settings.

The folder given by --out receives blocks.csv (the estimated blocks), blocks.npz (every block, in
arrays of shape (nx, ny, nz), NaN where there is no estimate) and estimates.png.
"""

from __future__ import annotations

import argparse
import csv
import math
import os
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path

import matplotlib
import numpy as np
import talvorix
from scipy.spatial import cKDTree

try:
    import tomllib
except ModuleNotFoundError:  # CPython 3.10
    import tomli as tomllib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

CAMPAIGN = Path(__file__).with_name("campaign.toml")
METHODS = {
    "ordinary": "ordinary kriging",
    "simple": "simple kriging",
    "idw": "inverse distance",
    "nearest": "nearest sample",
}
ROLES = ("x", "y", "z", "value", "hole")
KINDS = ("spherical", "exponential", "gaussian")
DEFAULTS = {
    "x": "x",
    "y": "y",
    "z": "z",
    "value": "grade",
    "hole": "hole",
    "multiplier": 1.0,
    "nugget": 0.0,
    "structure": [],
    "min_samples": 4,
    "max_samples": 12,
    "max_per_hole": 0,
    "max_octant": 0,
    "power": 2.0,
    "method": ["ordinary", "simple", "idw"],
}
REQUIRED = {
    "search": "the search ellipsoid, such as --search '850 850 250 0 0 0'",
    "origin": "the low corner of the grid, such as --origin '5000 12000 -300'",
    "cells": "the number of blocks along x, y and z, such as --cells '60 40 20'",
    "size": "the size of a block along x, y and z, such as --size '10 10 5'",
}
# A limit per hole or octant thins the list of nearest samples, so a longer list is searched.
CANDIDATES_WHEN_THINNED = 8
# Blocks that are worked on at a time. Short of memory, and soon enough to tell how far it is.
CHUNK, QUERIES = 20_000, 1_000

SEARCH_HELP = """\
how samples are chosen:
  The search ellipsoid is centred on each block. The nearest samples inside it are taken, at most
  --max-samples, nearness being measured in units of the ellipsoid; a block that gets fewer than
  --min-samples is left without an estimate by every method.

  Talvorix searches the k nearest samples first and then lets the limits per octant and per hole
  thin that list: it never fetches further samples in place of those dropped. With k = 12 and at
  most 3 samples a hole, a block beside one hole would find 12 samples of that hole and keep 3.
  This script therefore looks through the --candidates nearest samples of each block for the
  number it takes to keep --max-samples after thinning, and hands talvorix that number as k. When
  the candidates run out earlier, the block keeps what they gave. More candidates reach further
  past the nearest holes and cost time. The default is --max-samples without limits, and eight
  times as many with one.

ellipsoids:
  "r1 r2 r3 azimuth dip rake": ranges in the units of the coordinates; degrees. The azimuth of the
  r1 axis runs clockwise from north (+y), its dip is positive upward, the rake turns the other two
  about it. The angles may be left out. The exponential and gaussian structures take practical
  ranges: an exponential has exp(-3) of its sill left at its range.
"""


class InputError(Exception):
    """What the user gave cannot be used; the message names the place and what was expected."""


@dataclass
class Composites:
    """Samples along drillholes: `locations` (n, 3), `values` (n,), `holes` (n,) of int32."""

    locations: np.ndarray
    values: np.ndarray
    holes: np.ndarray
    skipped: int = 0


@dataclass
class Job:
    """What is to be estimated and how; read from the options and the TOML file."""

    columns: dict
    model: list
    search: talvorix.Ellipsoid
    limits: dict
    grid: talvorix.CartesianGrid
    methods: list
    power: float
    mean: float | None


# Settings ----------------------------------------------------------------------------------------


def number_list(text):
    """Parse the numbers of an option; they are separated by blanks or commas."""
    try:
        return [float(word) for word in text.replace(",", " ").split()]
    except ValueError:
        raise argparse.ArgumentTypeError(f"'{text}' is not a list of numbers") from None


def structure_table(text):
    """Parse 'kind sill r1 r2 r3 [azimuth dip rake]' into the table a TOML file would hold."""
    kind, *numbers = text.replace(",", " ").split() or [""]
    values = number_list(" ".join(numbers))
    if len(values) not in (4, 7):
        raise argparse.ArgumentTypeError(
            f"'{text}' has {len(values)} numbers after its kind; expected "
            "'kind sill r1 r2 r3' or 'kind sill r1 r2 r3 azimuth dip rake'"
        )
    return {"kind": kind, "sill": values[0], "ranges": values[1:4], "angles": values[4:] or [0] * 3}


def is_number(value):
    """Tell whether a setting is a finite number; TOML's booleans are not."""
    return isinstance(value, int | float) and not isinstance(value, bool) and math.isfinite(value)


def check_numbers(name, values, lengths, positive=0):
    """Return `values` as floats; the first `positive` of them must be above 0."""
    wanted = " or ".join(map(str, lengths))
    if not isinstance(values, list) or len(values) not in lengths:
        raise InputError(f"{name}: expected a list of {wanted} numbers, got {values!r}")
    for value in values:
        if not is_number(value):
            raise InputError(f"{name}: {value!r} is not a finite number")
    for value in values[:positive]:
        if value <= 0:
            raise InputError(f"{name}: {value!r} must be above 0")
    return [float(value) for value in values]


def check_number(settings, name, whole=False, minimum=0):
    """Return one numeric setting, checked against its lowest value."""
    value = settings[name]
    if not is_number(value) or (whole and value != int(value)) or value < minimum:
        kind = "whole number" if whole else "number"
        raise InputError(f"{name}: expected a {kind} of at least {minimum}, got {value!r}")
    return int(value) if whole else float(value)


def read_settings(path):
    """Read a TOML file of settings and refuse keys that no option has."""
    try:
        settings = tomllib.loads(path.read_text(encoding="utf-8"))
    except (OSError, UnicodeDecodeError) as problem:
        raise InputError(f"{path}: cannot be read: {problem}") from None
    except tomllib.TOMLDecodeError as problem:
        raise InputError(f"{path}: not valid TOML: {problem}") from None
    known = {*DEFAULTS, *REQUIRED, "candidates", "mean"}
    for key in settings:
        if key not in known:
            raise InputError(f"{path}: unknown key '{key}'; known are {', '.join(sorted(known))}")
    return settings


def read_model(settings):
    """Build the list of covariance structures: the nugget, when there is one, comes first."""
    multiplier = check_number(settings, "multiplier")
    nugget = check_number(settings, "nugget") * multiplier
    model = [talvorix.Covariance.nugget(nugget)] if nugget > 0 else []
    tables = settings["structure"]
    if not isinstance(tables, list):
        raise InputError(f"structure: expected [[structure]] tables, got {tables!r}")
    for number, table in enumerate(tables, start=1):
        name = f"structure {number}"
        keys = set(table) if isinstance(table, dict) else set()
        if not {"kind", "sill", "ranges"} <= keys <= {"kind", "sill", "ranges", "angles"}:
            raise InputError(f"{name}: expected kind, sill, ranges and angles, got {table!r}")
        if table["kind"] not in KINDS:
            kinds = ", ".join(KINDS)
            raise InputError(f"{name}: kind '{table['kind']}' is unknown; expected one of {kinds}")
        ranges = check_numbers(f"{name}: ranges", table["ranges"], (3,), positive=3)
        angles = check_numbers(f"{name}: angles", table.get("angles", [0, 0, 0]), (3,))
        sill = check_numbers(f"{name}: sill", [table["sill"]], (1,), positive=1)[0] * multiplier
        create = getattr(talvorix.Covariance, table["kind"])
        model.append(create(sill, talvorix.Ellipsoid(*ranges, *angles)))
    if not model:
        raise InputError("the covariance model is empty: give --structure, --nugget or --model")
    return model


def read_limits(settings):
    """Read the limits of the search; 0 stands for no limit per hole or octant."""
    limits = {
        name: check_number(settings, name, whole=True, minimum=minimum)
        for name, minimum in (
            ("min_samples", 1),
            ("max_samples", 1),
            ("max_per_hole", 0),
            ("max_octant", 0),
        )
    }
    least, most = limits["min_samples"], limits["max_samples"]
    if least > most:
        raise InputError(f"min_samples: {least} is above max_samples, which is {most}")
    thinned = limits["max_per_hole"] > 0 or limits["max_octant"] > 0
    settings.setdefault("candidates", most * (CANDIDATES_WHEN_THINNED if thinned else 1))
    limits["candidates"] = check_number(settings, "candidates", whole=True, minimum=most)
    return limits


def read_columns(settings):
    """Return the name of the table's column for each role."""
    columns = {role: settings[role] for role in ROLES}
    for role, column in columns.items():
        if not isinstance(column, str):
            raise InputError(f"{role}: expected the name of a column, got {column!r}")
    return columns


def read_grid(settings):
    """Build the grid of block centres; the settings give the low corner of the first block."""
    corner = np.array(check_numbers("origin", settings["origin"], (3,)))
    cells = check_numbers("cells", settings["cells"], (3,), positive=3)
    if any(cell != int(cell) for cell in cells):
        raise InputError(f"cells: expected whole numbers, got {settings['cells']}")
    size = np.array(check_numbers("size", settings["size"], (3,), positive=3))
    return talvorix.CartesianGrid(
        number_of_cells=tuple(map(int, cells)), cell_size=size, origin=corner + size / 2
    )


def read_job(settings):
    """Check all settings and build the job from them."""
    settings = DEFAULTS | settings
    for name, meaning in REQUIRED.items():
        if name not in settings:
            raise InputError(f"{name} is missing: give {meaning}")
    search = check_numbers("search", settings["search"], (3, 6), positive=3)
    methods = settings["method"]
    if not isinstance(methods, list) or not methods or any(m not in METHODS for m in methods):
        raise InputError(f"method: expected a list of {', '.join(METHODS)}; got {methods!r}")
    return Job(
        columns=read_columns(settings),
        model=read_model(settings),
        search=talvorix.Ellipsoid(*search, *([0.0] * (6 - len(search)))),
        limits=read_limits(settings),
        grid=read_grid(settings),
        methods=list(dict.fromkeys(methods)),
        power=check_number(settings, "power"),
        mean=check_numbers("mean", [settings["mean"]], (1,))[0] if "mean" in settings else None,
    )


# Data --------------------------------------------------------------------------------------------


def read_cell(path, line, column, text):
    """Return the number in one cell of the table."""
    try:
        value = float(text)
    except (TypeError, ValueError):
        value = math.nan
    if not math.isfinite(value):
        got = "nothing" if text is None or not text.strip() else f"'{text}'"
        raise InputError(f"{path}, row {line}, column '{column}': expected a number, got {got}")
    return value


def read_composites(path, columns, needs_holes):
    """Read the table of composites.

    Parameters
    ----------
    path : pathlib.Path
        A CSV file with a header. Rows are numbered as lines of the file: the header is row 1.
    columns : dict
        The names of the columns x, y, z, value and hole.
    needs_holes : bool
        Whether the search limits the samples per hole, so that the hole column must be there.

    Returns
    -------
    Composites
        The rows that have a value; `skipped` counts the others.
    """
    roles = ["x", "y", "z", "value"] + (["hole"] if needs_holes else [])
    points, values, holes, skipped = [], [], [], 0
    try:
        with path.open(newline="", encoding="utf-8-sig") as stream:
            reader = csv.DictReader(stream)
            header = reader.fieldnames or []
            for role in roles:
                if columns[role] not in header:
                    raise InputError(
                        f"{path}: no column '{columns[role]}' for --{role}; "
                        f"row 1 has {', '.join(header) or 'nothing'}"
                    )
            for row in reader:
                line, value = reader.line_num, row[columns["value"]]
                if value is None:
                    raise InputError(f"{path}, row {line}: fewer cells than the header has")
                if not value.strip():
                    skipped += 1
                    continue
                points.append([read_cell(path, line, columns[r], row[columns[r]]) for r in "xyz"])
                values.append(read_cell(path, line, columns["value"], value))
                holes.append(row[columns["hole"]] if needs_holes else "")
                if needs_holes and not (holes[-1] or "").strip():
                    name = columns["hole"]
                    raise InputError(f"{path}, row {line}, column '{name}': the hole has no name")
    except (OSError, UnicodeDecodeError, csv.Error) as problem:
        raise InputError(f"{path}: cannot be read: {problem}") from None
    if not values:
        raise InputError(f"{path}: no row has a value in column '{columns['value']}'")
    numbers = np.unique(holes, return_inverse=True)[1].astype(np.int32)
    return Composites(np.array(points), np.array(values), numbers, skipped)


def drill_campaign(seed=1):
    """Drill a tilted ore body of lenses whose grade fades away from its middle.

    Returns
    -------
    Composites
        About 3,400 samples, 5 m apart on 45 holes, in metres and grams per tonne.
    """
    # Holes toward the north-west go across the lenses, which dip to the south-east. Their collars
    # reach beyond the grid in the east, so that its lower corner there is drilled as well.
    box = talvorix.BoundingBox([[0, 0, 40], [740, 600, 420]])
    locations, holes = talvorix.create_random_drillholes(
        box, n_holes=45, spacing=5.0, azimuth=305, dip=-70, delta_angle=7, seed=678
    )
    locations = np.round(locations, 2).reshape(-1, 3)

    rng = np.random.default_rng(seed)
    lenses = talvorix.Ellipsoid(280, 190, 80, 35, -8, 52)
    # A sum of random waves. Frequencies that are ratios of normal variates give it the covariance
    # of an exponential structure with the ranges of the lenses.
    waves = 500
    frequencies = 3 * rng.standard_normal((waves, 3)) @ np.asarray(lenses.matrix())
    frequencies /= np.abs(rng.standard_normal((waves, 1)))
    phases = rng.uniform(0, 2 * np.pi, waves)
    richness = np.cos(locations @ frequencies.T + phases).sum(1) * math.sqrt(2 / waves)
    grade = np.exp(0.6 * richness + 0.2 * rng.standard_normal(len(locations)))

    axes = np.asarray(talvorix.Ellipsoid(1000, 1, 200, 35, -8, 52).matrix())
    along, _, across = axes @ (locations - [350, 300, 240]).T
    grade = 0.1 + grade * (1 + along) * np.exp(-0.5 * across**2)
    return Composites(locations, np.round(grade, 3), np.asarray(holes, dtype=np.int32))


# Search and estimation ---------------------------------------------------------------------------


def within_limit(groups, kept, limit):
    """Keep the first `limit` entries of each group in every row of a nearest-first table."""
    groups = np.where(kept, groups, -1).astype(np.int16 if groups.max() < 2**15 else np.int32)
    order = np.argsort(groups, axis=1, kind="stable")
    ordered = np.take_along_axis(groups, order, axis=1)
    position = np.arange(groups.shape[1])
    starts = np.ones(groups.shape, dtype=bool)
    starts[:, 1:] = ordered[:, 1:] != ordered[:, :-1]
    first = np.maximum.accumulate(np.where(starts, position, 0), axis=1)
    fits = np.empty_like(kept)
    np.put_along_axis(fits, order, position - first < limit, axis=1)
    return kept & fits


def plan_search(blocks, composites, search, limits, n_threads):
    """Find how far the search of each block has to reach, and with how many samples it ends.

    Parameters
    ----------
    blocks : numpy.ndarray, shape (n, 3)
        The block centres.
    composites : Composites
        The samples.
    search : talvorix.Ellipsoid
        The search ellipsoid.
    limits : dict
        min_samples, max_samples, max_per_hole, max_octant and candidates.
    n_threads : int
        0 for all hardware threads.

    Returns
    -------
    reach : numpy.ndarray, shape (n,)
        The number of nearest samples talvorix is to search, 0 where too few are kept.
    samples : numpy.ndarray, shape (n,)
        The number that the limits leave of them. It may be off by one where samples lie at exactly
        the same distance and talvorix takes them in another order.
    """
    matrix = np.asarray(search.matrix())
    tree = cKDTree(composites.locations @ matrix.T)
    ranks = np.arange(1, min(limits["candidates"], len(composites.values)) + 1)

    def nearest(places):
        return tree.query(places, k=ranks, distance_upper_bound=1.0)

    reach = np.zeros(len(blocks), dtype=int)
    samples = np.zeros(len(blocks), dtype=int)
    starts = range(0, len(blocks), CHUNK)
    for start in tracked(starts, "search of samples, part"):
        chunk = blocks[start : start + CHUNK]
        # Not by workers of the tree: after Ctrl-C they would go on in memory that is freed.
        with ThreadPoolExecutor(n_threads or os.cpu_count()) as pool:
            parts = np.array_split(chunk @ matrix.T, math.ceil(len(chunk) / QUERIES))
            found = list(pool.map(nearest, parts))
        distances, index = map(np.concatenate, zip(*found, strict=True))
        inside = np.isfinite(distances).sum(axis=1)
        rows = np.flatnonzero(inside >= limits["min_samples"])
        if not len(rows):
            continue
        kept = np.isfinite(distances[rows])
        index = np.where(kept, index[rows], 0)
        if limits["max_octant"] > 0:
            positive = composites.locations[index] > chunk[rows, None, :]
            kept = within_limit(positive @ np.array([1, 2, 4]), kept, limits["max_octant"])
        if limits["max_per_hole"] > 0:
            kept = within_limit(composites.holes[index], kept, limits["max_per_hole"])
        total = np.cumsum(kept, axis=1)
        full = total >= limits["max_samples"]
        needed = np.where(full.any(axis=1), full.argmax(axis=1) + 1, inside[rows])
        count = np.minimum(total[:, -1], limits["max_samples"])
        enough = count >= limits["min_samples"]
        reach[start + rows[enough]] = needed[enough]
        samples[start + rows[enough]] = count[enough]
    return reach, samples


def estimate(method, blocks, reach, composites, job, n_threads):
    """Estimate the active cells of a block model by one method.

    Returns
    -------
    estimates, variances : numpy.ndarray, shape (n,)
        One for each active cell. The variances are the kriging variances; None for the methods
        that have none.
    """
    neighborhood = talvorix.Neighborhood(composites.locations, job.search)
    limits = {
        "max_neighbors_octant": job.limits["max_octant"],
        "dhids": composites.holes,
        "max_neis_by_dhid": job.limits["max_per_hole"],
    }
    locations = np.asarray(blocks)
    data = (composites.locations, composites.values)
    mean = float(composites.values.mean()) if job.mean is None else job.mean
    estimates = np.empty(len(blocks))
    variances = np.empty(len(blocks)) if method in ("ordinary", "simple") else None
    # Blocks that need equally many nearest samples share a call.
    by_reach = np.argsort(reach, kind="stable")
    sizes, starts = np.unique(reach[by_reach], return_index=True)
    calls = [
        (size, rows)
        for size, group in zip(sizes.tolist(), np.split(by_reach, starts[1:]), strict=True)
        for rows in np.array_split(group, math.ceil(len(group) / CHUNK))
    ]
    counts = [len(rows) for _, rows in calls]
    for size, rows in tracked(calls, f"{METHODS[method]} of {len(blocks):,} blocks", counts):
        targets = locations[rows]
        if method == "ordinary":
            estimates[rows], variances[rows] = talvorix.compute_ordinary_kriging(
                targets, *data, job.model, neighborhood, size, n_threads=n_threads, **limits
            )
        elif method == "simple":
            estimates[rows], variances[rows] = talvorix.compute_simple_kriging(
                targets, *data, job.model, mean, neighborhood, size, n_threads=n_threads, **limits
            )
        else:
            # With one neighbour the inverse distance estimate is that neighbour's value.
            nearest = {"max_neighbors": 1} if method == "nearest" else {}
            estimator = talvorix.IDW(job.power, **({"max_neighbors": size, **limits} | nearest))
            estimates[rows] = estimator(targets, neighborhood, *data, n_threads=n_threads)
    return estimates, variances


# Results -----------------------------------------------------------------------------------------


def axes_of(grid):
    """Return the coordinates of the block centres along x, along y and along z."""
    cells = np.asarray(grid).reshape(*grid.number_of_cells(), 3)
    return cells[:, 0, 0, 0], cells[0, :, 0, 1], cells[0, 0, :, 2]


def write_blocks(folder, blocks, columns):
    """Write blocks.csv with the estimated blocks and blocks.npz with all of them.

    Parameters
    ----------
    folder : pathlib.Path
    blocks : talvorix.BlockModel
        Its active cells are the estimated blocks.
    columns : dict
        What is known of every cell of the grid, by name.
    """
    rows = columns["samples"] > 0
    table = np.column_stack([blocks, *(column[rows] for column in columns.values())])
    formats = ["%.10g"] * 3 + ["%d" if name == "samples" else "%.7g" for name in columns]
    header = ",".join(["x", "y", "z", *columns])
    np.savetxt(folder / "blocks.csv", table, formats, ",", header=header, comments="")
    shape = blocks.number_of_cells()
    cubes = {name: column.reshape(shape) for name, column in columns.items()}
    centres = zip("xyz", axes_of(blocks.base_grid()), strict=True)
    axes = {f"{axis}_centres": along for axis, along in centres}
    np.savez_compressed(folder / "blocks.npz", **axes, **cubes)


def write_composites(path, composites, columns):
    """Write a table that this script can read again."""
    table = np.column_stack([composites.holes, composites.locations, composites.values])
    header = ",".join(columns[role] for role in ("hole", "x", "y", "z", "value"))
    formats = ["%d", "%.2f", "%.2f", "%.2f", "%.3f"]
    np.savetxt(path, table, formats, ",", header=header, comments="")


def draw(path, job, composites, estimates, method):
    """Draw a plan and a section of the blocks with the samples that lie in them.

    They are cut where the samples are richest: at the level and the row of blocks whose samples
    add up to most.
    """
    shape = job.grid.number_of_cells()
    cube, axes = estimates.reshape(shape), axes_of(job.grid)
    locations, values = composites.locations, composites.values
    size = np.ravel(job.grid.cell_size())
    origin = np.ravel(job.grid(0)) - size / 2
    ends = origin + shape * size
    low, high = np.percentile(values, [2, 98])
    colours = {"cmap": "viridis", "vmin": low, "vmax": high}

    def richest(axis):
        edges = origin[axis] + np.arange(shape[axis] + 1) * size[axis]
        metal = np.histogram(locations[:, axis], edges, weights=values - values.min())[0]
        return int(metal.argmax())

    wide, deep, high_up = ends - origin
    figure, panels = plt.subplots(
        nrows=2,
        figsize=(7.6, float(np.clip(5.7 * (deep + high_up) / wide + 1.2, 4, 14))),
        sharex=True,
        layout="constrained",
        height_ratios=[deep, high_up],
    )
    titles = "Plan at z = {:,.7g}", "Section at y = {:,.7g}, looking north"
    labels = "north (y)", "elevation (z)"
    for panel, up, through, title, label in zip(
        panels, (1, 2), (2, 1), titles, labels, strict=True
    ):
        cut = richest(through)
        at = axes[through][cut]
        extent = [origin[0], ends[0], origin[up], ends[up]]
        image = panel.imshow(
            cube.take(cut, through).T,
            origin="lower",
            extent=extent,
            interpolation="nearest",
            **colours,
        )
        near = np.abs(locations[:, through] - at) <= size[through]
        x, y = locations[near, 0], locations[near, up]
        panel.scatter(x, y, s=14, c=values[near], ec="white", lw=0.4, **colours)
        panel.set(title=title.format(at), ylabel=label, xlim=extent[:2], ylim=extent[2:])
        panel.ticklabel_format(useOffset=False, style="plain")
        panel.locator_params("x", nbins=7)
        panel.set_facecolor("0.88")
    panels[1].set_xlabel("east (x)")
    caption = f"{job.columns['value']}: {METHODS[method]} and samples"
    figure.colorbar(image, ax=panels, label=caption, extend="both", shrink=0.8)
    figure.savefig(path, dpi=110, bbox_inches="tight")
    plt.close(figure)


def print_summary(composites, job, results):
    """Print the job and one line a method."""
    values, limits = composites.values, job.limits
    print(
        f"{len(values):,} samples, mean {values.mean():.4f}, variance {values.var():.4f}; "
        f"{composites.skipped:,} rows without a value skipped"
    )
    print(f"{len(job.grid):,} blocks;", ", ".join(f"{k} {v}" for k, v in limits.items()))
    print(f"\n{'method':<18}{'estimated':>11}{'mean':>10}{'variance':>10}", end="")
    print(f"{'seconds':>9}{'blocks/s':>11}")
    for method, (estimates, seconds) in results.items():
        done = estimates[np.isfinite(estimates)]
        mean, variance = (done.mean(), done.var()) if len(done) else (math.nan, math.nan)
        print(f"{METHODS[method]:<18}{len(done):>11,}{mean:>10.4f}{variance:>10.4f}", end="")
        print(f"{seconds:>9.2f}{len(done) / seconds:>11,.0f}")


# Command line ------------------------------------------------------------------------------------

# What is being done, from the whole to its parts.
STATUS = []


def show_status():
    """Show what is being done on the line of the cursor, over what was shown before.

    Nothing is shown where the error stream is no terminal, so that logs hold results only. What
    stands in for the stream, as in notebooks, would keep every line.
    """
    if sys.stderr is sys.__stderr__ and sys.stderr.isatty():
        width = (os.get_terminal_size(sys.stderr.fileno()).columns or 80) - 1
        line = ", ".join(STATUS)[:width]
        print(f"\r{'':{width}}\r{line}", end="", file=sys.stderr, flush=True)


@contextmanager
def status(text):
    """Show on a terminal what is being done within; nothing else may be printed there."""
    depth = len(STATUS)
    STATUS.append(text)
    show_status()
    try:
        yield
    finally:
        del STATUS[depth:]
        show_status()


def tracked(items, text, sizes=None):
    """Loop over a sequence and show how far the loop is: "text 3 of 8", with sizes "text: 35%"."""
    total = sum(sizes) if sizes else len(items)
    with status(text):
        for number, item in enumerate(items):
            done = f": {sum(sizes[:number]) / total:.0%}" if sizes else f" {number + 1} of {total}"
            STATUS[-1] = text + done
            show_status()
            yield item


def carry_out(run, options, name):
    """Run a script and return its exit code.

    It is 2 when what the user gave cannot be used, and 130, as shells expect, after Ctrl-C.
    """
    try:
        try:
            run(options)
        finally:
            STATUS.clear()
            show_status()
    except InputError as problem:
        print(f"{name}: error: {problem}", file=sys.stderr)
        return 2
    except KeyboardInterrupt:
        return 130
    return 0


ELLIPSOID = "R1 R2 R3 AZIMUTH DIP RAKE"
DATA_OPTIONS = {
    "columns of the table": [(role, str, "NAME", None) for role in ROLES],
    "covariance model": [
        ("structure", structure_table, f"'KIND SILL {ELLIPSOID}'", ", ".join(KINDS)),
        ("nugget", float, "SILL", None),
        ("multiplier", float, "FACTOR", "of the nugget and all sills"),
    ],
}


def make_parser(description, epilog, groups):
    """Make a parser of a table, a file of settings, an output folder and groups of settings.

    Parameters
    ----------
    description, epilog : str
    groups : dict
        For each title the settings as (name, type, metavar, help). Settings that are not given
        are absent from what the parser returns.

    Returns
    -------
    argparse.ArgumentParser
    """
    parser = argparse.ArgumentParser(
        description=description,
        epilog=epilog,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        argument_default=argparse.SUPPRESS,
    )
    table_help = "default: drill a small ore body"
    parser.add_argument("table", nargs="?", default=None, metavar="COMPOSITES.csv", help=table_help)
    parser.add_argument("--model", metavar="FILE", help="TOML file of settings, as campaign.toml")
    parser.add_argument("--out", default="out", metavar="FOLDER", help="default: %(default)s")
    parser.add_argument("--threads", type=int, default=0, metavar="N", help="default: all")
    for title, settings in groups.items():
        group = parser.add_argument_group(title)
        for name, kind, metavar, text in settings:
            notes = [text] if text else []
            repeatable = name in ("structure", "method", "direction")
            if repeatable:
                notes.append("repeatable")
            if DEFAULTS.get(name):
                default = DEFAULTS[name]
                shown = ", ".join(default) if isinstance(default, list) else default
                notes.append(f"default: {shown}")
            group.add_argument(
                f"--{name.replace('_', '-')}",
                type=kind,
                metavar=metavar,
                action="append" if repeatable else "store",
                help="; ".join(notes) or None,
            )
    return parser


def parse_arguments(argv):
    """Parse the command line; settings that are not given are absent from the result."""
    groups = DATA_OPTIONS | {
        "search": [
            ("search", number_list, f"'{ELLIPSOID}'", "the search ellipsoid"),
            ("min_samples", int, "N", None),
            ("max_samples", int, "N", None),
            ("max_per_hole", int, "N", "0 for no limit"),
            ("max_octant", int, "N", "0 for no limit"),
            ("candidates", int, "N", "nearest samples looked through, see below"),
        ],
        "grid": [
            ("origin", number_list, "'X Y Z'", "low corner of the first block, not its centre"),
            ("cells", number_list, "'NX NY NZ'", "numbers of blocks"),
            ("size", number_list, "'DX DY DZ'", "size of a block"),
        ],
        "methods": [
            ("method", str, "METHOD", ", ".join(METHODS)),
            ("mean", float, "MEAN", "of simple kriging; default: that of the samples"),
            ("power", float, "POWER", "of the inverse distance"),
        ],
    }
    description = "Estimate a block model from drillhole composites, write it and draw it."
    return vars(make_parser(description, SEARCH_HELP, groups).parse_args(argv))


def make_folder(path):
    """Make the output folder."""
    try:
        path.mkdir(parents=True, exist_ok=True)
    except OSError as problem:
        raise InputError(f"--out: the folder cannot be made: {problem}") from None


def run(options):
    """Carry out the job that the options describe."""
    table, folder = options.pop("table"), Path(options.pop("out"))
    n_threads = options.pop("threads")
    if n_threads < 0:
        raise InputError(f"--threads: expected 0 or more, got {n_threads}")
    settings = options.pop("model", None if table else CAMPAIGN)
    job = read_job((read_settings(Path(settings)) if settings else {}) | options)
    if table:
        by_hole = job.limits["max_per_hole"] > 0
        composites = read_composites(Path(table), job.columns, by_hole)
    else:
        composites = drill_campaign()

    centres = np.asarray(job.grid)
    reach, samples = plan_search(centres, composites, job.search, job.limits, n_threads)
    active = samples > 0
    if not active.any():
        least = job.limits["min_samples"]
        raise InputError(f"search: no block has the {least} samples that min_samples asks for")
    make_folder(folder)
    if not table:
        write_composites(folder / "composites.csv", composites, job.columns)
    blocks = talvorix.BlockModel(job.grid, active)
    columns, results = {"samples": samples}, {}

    def add_column(name, of_active):
        columns[name] = np.full(len(active), np.nan)
        columns[name][active] = of_active

    for method in job.methods:
        start = time.perf_counter()
        estimates, variances = estimate(method, blocks, reach[active], composites, job, n_threads)
        results[method] = estimates, time.perf_counter() - start
        add_column(method, estimates)
        if variances is not None:
            add_column(f"{method}_variance", variances)
    print_summary(composites, job, results)
    with status("writing the results"):
        write_blocks(folder, blocks, columns)
        draw(folder / "estimates.png", job, composites, columns[job.methods[0]], job.methods[0])
    print(f"\nwritten: {folder / 'blocks.csv'}, blocks.npz, estimates.png")


def main(argv=None):
    """Run the script and return its exit code."""
    return carry_out(run, parse_arguments(argv), "estimate_drillholes.py")


if __name__ == "__main__":
    sys.exit(main())
