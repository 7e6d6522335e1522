#!/usr/bin/env python3
"""Go from drillhole composites to realisations without choosing a model by hand.

    workflow.py composites.csv --value cu_pct --hole hole_id --out out

The steps are: a map of the variogram at all lags, a model fitted to it, cross-validation of the
model beside inverse distances, a block model by ordinary kriging, and conditional simulation.

Columns, grid and limits of the search are given as to estimate_drillholes.py, and --model takes the
same TOML file; what is given on the command line wins. Nothing but the table is needed: what is not
given is chosen by the samples. When --structure or the file gives a covariance model, the fitted
ones are compared with it. Without a table the script drills a small ore body of its own, whose
model it knows.

The folder given by --out receives workflow.npz (arrays of shape (nx, ny, nz): `estimate`, `mean`
and `std` of the realisations, NaN where there is none; `realisations`, of float32, with one axis
more in front), model.toml, which the other scripts take for --model, and workflow.png.
"""

from __future__ import annotations

import json
import math
import sys
import time
from dataclasses import dataclass, replace
from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
import talvorix
from estimate_drillholes import (
    DATA_OPTIONS,
    DEFAULTS,
    KINDS,
    Composites,
    InputError,
    Job,
    axes_of,
    carry_out,
    check_number,
    check_numbers,
    estimate,
    make_folder,
    make_parser,
    number_list,
    plan_search,
    read_columns,
    read_composites,
    read_grid,
    read_limits,
    read_model,
    read_settings,
    status,
    write_composites,
)
from find_anisotropy import Validation, axis_angle, check_samples, draw_scatter
from scipy.spatial import cKDTree
from simulate_deposit import (
    COLOURS,
    FLAT,
    Cells,
    Simulation,
    draw_section,
    fill,
    samples_in_reach,
    scale_model,
    simulate,
    to_normal_scores,
)
from variogram import longest_structure

WORKFLOW_DEFAULTS = {"kernel": "spherical", "structures": 1, "realisations": 10, "seed": 1}
LIMITS = {"min_samples": 4, "max_samples": 24, "max_per_hole": 6}

# Of the ore body that the script drills.
KNOWN = {
    "nugget": 0.2,
    "structure": [
        {"kind": "spherical", "sill": 0.8, "ranges": [180, 120, 60], "angles": [35, -8, 52]}
    ],
}
OWN_GRID = {"origin": [0, 0, 40], "cells": [37, 30, 19], "size": [20, 20, 20]}
SPREAD = 0.5

# Cells of the lattice and blocks, beside the spacing of the holes and the length of a composite.
LATTICE_SHARE, MOST_LATTICE_CELLS = np.array([1 / 4, 1 / 4, 1]), 2_000_000
BLOCK_SHARE, MOST_BLOCKS = np.array([1 / 4, 1 / 4, 2]), 40_000
DIRECTIONS, LAGS, SMOOTH_LAGS = 1000, 60, 60
# How far around a lag the map and its entries are averaged, in diagonals of a cell.
MAP_REACH, SMOOTH_REACH, SMOOTH_WIDTH = 0.6, 1.0, 0.5
# A smoothed lag that is shorter has nothing but longer ones around it, and comes out too high.
SHORTEST = 0.7
ITERATIONS, THRESHOLD = 300, 2.0
ORIGIN_WEIGHT = 10
VALIDATION_NEIGHBORS, VALIDATION_POWER = 200, 2.0
# The estimates contain the Lagrange multiplier, which goes with the sill; the weights do not depend
# on it. With tiny sills it is out of the estimates.
TINY = 1e-6
KRIGING = "kriging: "
CONE, LAG_CLASSES, FEW_PAIRS = 25.0, 14, 30

HELP = """\
variogram map:
  The samples are put into the cells of a lattice, and Fourier transforms give the semivariances of
  all lags between cells at once. --lattice is the size of a cell. By default it is a quarter of the
  mean spacing of the holes across, and the median distance between samples of a hole in height,
  enlarged where these make more than 2 million cells, which take about 500 MB. Lags end at half
  the samples' box. Those so short that their average would include lag 0, where the semivariance
  is 0, are left out.

fit:
  Semivariances at a few ten thousand lags in all directions are fitted at once: sills, ranges,
  angles and nugget. Lags count by their pairs, lags above twice the variance do not count, and
  ranges are bound by half the longest side of the box and the size of a cell. The sills add up to
  the variance of the samples, so that what varies over distances longer than the box is missing.
  Two models are fitted: one to the values and one to their normal scores. The simulation takes the
  latter, the estimate the one that cross-validation explains more with: where a few high values
  make most of the variance, the variogram of the values is erratic.
  Cells that are wide beside the ranges lift the nugget. Look at what a smaller --lattice changes.
  With --structures above 1 all start alike and often remain so. Look at what they add.

cross-validation:
  Every sample is estimated 15 times, each time from a random subset, of 10 to 40 samples, of the
  199 nearest others. The first inverse distance is isotropic, the second in the metric of the model
  of the scores; both take the power 2.

estimate and simulation:
  The search ellipsoid has the ranges of the model's longest structure. Realisations are by
  turning bands, as simulate_deposit.py makes them: see its --help. Turning bands are true to
  spherical and gaussian structures and not quite to exponential ones.
"""


@dataclass
class Lags:
    """Semivariances at lags in all directions: `vectors` (n, 3), the others (n,)."""

    vectors: np.ndarray
    semivariances: np.ndarray
    pairs: np.ndarray


# Settings ----------------------------------------------------------------------------------------


def spacing_of(composites):
    """Return the mean spacing of the holes across and the median length of a composite."""
    locations, holes = composites.locations, composites.holes
    steps = np.linalg.norm(np.diff(locations, axis=0), axis=1)[np.diff(holes) == 0]
    steps = steps[steps > 0]
    count = np.bincount(holes)
    collars = np.stack([np.bincount(holes, locations[:, k]) / count for k in (0, 1)], axis=-1)
    extent = np.ptp(locations, axis=0)
    # Without names of holes, or with one hole only, nothing but the box tells of spacings.
    length = float(np.median(steps)) if len(steps) else float(extent.max()) / 100
    across = cKDTree(collars).query(collars, k=[min(2, len(count))])[0]
    return max(float(across.mean()) if len(count) > 1 else extent[:2].max() / 10, length), length


def enlarge(size, extent, most):
    """Enlarge cells, all sides alike, until no more than so many cover a box."""
    while np.prod(np.floor(extent / size) + 1) > most:
        size = size * 1.1
    return size


def choose_sizes(composites):
    """Choose the cells of the lattice, and the grid of blocks, by the samples."""
    spacing, length = spacing_of(composites)
    extent = np.ptp(composites.locations, axis=0)
    scale = np.array([spacing, spacing, length])
    lattice = enlarge(np.maximum(scale * LATTICE_SHARE, length), extent, MOST_LATTICE_CELLS)
    size = enlarge(np.maximum(scale * BLOCK_SHARE, length), extent, MOST_BLOCKS)
    grid = {
        "origin": composites.locations.min(axis=0).tolist(),
        "cells": (np.floor(extent / size) + 1).astype(int).tolist(),
        "size": size.tolist(),
    }
    return lattice, grid


def read_workflow(own, composites, lattice):
    """Check the settings of this script alone and return them."""
    own = WORKFLOW_DEFAULTS | {"lattice": lattice.tolist()} | own
    if own["kernel"] not in KINDS:
        expected = ", ".join(KINDS)
        raise InputError(f"kernel: expected one of {expected}; got {own['kernel']!r}")
    size = np.array(check_numbers("lattice", own["lattice"], (3,), positive=3))
    cells = np.prod(np.floor(np.ptp(composites.locations, axis=0) / size) + 1)
    if cells > 10 * MOST_LATTICE_CELLS:
        raise InputError(
            f"lattice: expected cells of which at most {10 * MOST_LATTICE_CELLS:,} cover the "
            f"samples; of {own['lattice']} it takes {cells:,.0f}"
        )
    for name, minimum in (("structures", 1), ("realisations", 2), ("seed", 0)):
        own[name] = check_number(own, name, whole=True, minimum=minimum)
    return own | {"lattice": size}


# Data --------------------------------------------------------------------------------------------


def drill_known_body(seed=3):
    """Drill an ore body whose logarithms of grade have a known model.

    Returns
    -------
    Composites
        About 3,700 samples, 10 m apart on 100 holes, in metres and grams per tonne.
    """
    box = talvorix.BoundingBox([[0, 0, 40], [740, 600, 420]])
    locations, holes = talvorix.create_random_drillholes(
        box, n_holes=100, spacing=10.0, azimuth=305, dip=-70, delta_angle=7, seed=678
    )
    locations = np.round(np.reshape(locations, (-1, 3)), 2)
    nugget, *structures = read_model(DEFAULTS | KNOWN)
    field = talvorix.SimulatorFactory.TBSIM(locations, 1500)(structures, seed)
    noise = np.random.default_rng(seed).standard_normal(len(locations))
    logarithms = np.array(field.simulate(locations)) + math.sqrt(nugget.sill) * noise
    grades = np.round(np.exp(SPREAD * logarithms - SPREAD**2 / 2), 3)
    return Composites(locations, grades, np.asarray(holes, dtype=np.int32))


# Variogram and model -----------------------------------------------------------------------------


@status("map of the variogram")
def map_variogram(locations, values, size, n_threads):
    """Compute semivariances at lags in all directions from the map of a lattice, smoothed.

    Parameters
    ----------
    locations : numpy.ndarray, shape (n, 3)
    values : numpy.ndarray, shape (n,)
    size : numpy.ndarray, shape (3,)
        Of a cell of the lattice.
    n_threads : int

    Returns
    -------
    Lags
    """
    low = locations.min(axis=0) - size / 2
    cells = (np.floor((locations.max(axis=0) - low) / size) + 1).astype(int)
    found = talvorix.compute_variogram(
        [low, low + cells * size],
        locations,
        values,
        *cells.tolist(),
        n_directions=DIRECTIONS,
        n_lags=LAGS,
        bandwidth=MAP_REACH,
        n_threads=n_threads,
        origin=low,
    )
    lags, semivariances = np.reshape(found.lags, (-1, 3)), np.array(found.variogram)
    # The map's averages are over equal shares of the lattice's sides.
    from_origin = np.linalg.norm(lags / (cells * size), axis=1)
    kept = from_origin > MAP_REACH * np.linalg.norm(1 / cells)
    kept &= np.isfinite(semivariances)
    if not kept.any():
        raise InputError(
            f"lattice: expected cells of which pairs have samples in both, got none at lags "
            f"to half the box of {' x '.join(map(str, cells))} cells"
        )
    # Where a cell is long and flat, so is what is alike: smoothing measures in cells.
    axes = np.reshape(found.directions, (-1, 3)) / size
    entries = talvorix.ExperimentalVariogram(
        lags[kept] / size,
        semivariances[kept],
        np.array(found.npairs)[kept],
        np.array(found.direction_ids)[kept],
        axes / np.linalg.norm(axes, axis=1)[:, None],
    )
    diagonal = math.sqrt(3)
    try:
        smooth = talvorix.smooth_variogram(
            entries,
            n_lags=SMOOTH_LAGS,
            max_n_neis=0,
            max_r=SMOOTH_REACH * diagonal,
            bandwidth=SMOOTH_WIDTH * diagonal,
            power_a=2.0,
            max_weight=0.5,
            sampling_size=0,
            n_threads=n_threads,
        )
    except RuntimeError as problem:
        raise InputError(f"lattice: expected cells between which lags remain: {problem}") from None
    vectors = np.reshape(smooth.lags, (-1, 3))
    kept = np.linalg.norm(vectors, axis=1) > SHORTEST * diagonal
    rows = vectors[kept] * size, np.array(smooth.variogram)[kept], np.array(smooth.npairs)[kept]
    return Lags(*rows)


@status("fit")
def fit_model(lags, variance, extent, size, own, n_threads):
    """Fit a covariance model, whose sills add up to the variance, to semivariances at lags."""
    weights = np.sqrt(lags.pairs)
    # The nugget shows at lag 0 alone, where the semivariance is 0.
    vectors = np.concatenate([lags.vectors, np.zeros((1, 3))])
    semivariances = np.append(lags.semivariances, 0.0)
    return talvorix.extract_covariance_from_varmap(
        vectors,
        semivariances,
        # Residuals are multiplied by the weights before they are squared.
        np.append(weights, ORIGIN_WEIGHT * weights.mean()),
        own["structures"],
        own["kernel"],
        *[float(size.min())] * 3,
        *[float(max(extent.max() / 2, 2 * size.min()))] * 3,
        total_sill=variance,
        n_iterations=ITERATIONS,
        b=0.0,
        cauchy_loss=0.0,
        regularization_const=0.0,
        threshold=THRESHOLD,
        seed=own["seed"],
        n_threads=n_threads,
        debug=False,
    )


def analyse(locations, values, own, n_threads):
    """Return the lags of some values and the model that is fitted to them."""
    lags = map_variogram(locations, values, own["lattice"], n_threads)
    extent = np.ptp(locations, axis=0)
    return lags, fit_model(lags, float(values.var()), extent, own["lattice"], own, n_threads)


def scaled(model, factor):
    """Return a model with all sills multiplied."""
    return [
        talvorix.Covariance.nugget(part.sill * factor)
        if part.type == "nugget"
        else getattr(talvorix.Covariance, part.type)(part.sill * factor, part.ellipsoid)
        for part in model
    ]


# Cross-validation --------------------------------------------------------------------------------


def validate(composites, models, seed, n_threads):
    """Cross-validate kriging with some models, and inverse distances without and with a metric.

    Parameters
    ----------
    composites : Composites
    models : dict of str to list of talvorix.Covariance
        The metric is that of the last one.
    seed, n_threads : int

    Returns
    -------
    dict of str to Validation
    """
    locations, values = composites.locations, composites.values
    reach = 2 * float(np.linalg.norm(np.ptp(locations, axis=0)))
    # The covariance of a range far beyond the box falls like a straight line, so that inverse
    # covariances are inverse distances.
    longest = longest_structure([*models.values()][-1])
    metric = np.asarray(longest.matrix()) * longest.info().r3()
    linear = [
        [talvorix.Covariance.spherical(1.0, talvorix.Ellipsoid(matrix / (100 * reach)))]
        for matrix in (np.eye(3), metric)
    ]
    common = {
        "max_distance": reach,
        "max_size": VALIDATION_NEIGHBORS,
        "n_threads": n_threads,
        "seed": seed,
    }
    inverse = {"power_a": VALIDATION_POWER} | common
    data = locations, values
    errors = {
        **{
            f"{KRIGING}{name}": talvorix.kfold_cross_validation_using_ok(
                *data, scaled(model, TINY), **common
            )
            for name, model in models.items()
        },
        "inverse distance": talvorix.kfold_cross_validation_using_idw(*data, linear[0], **inverse),
        "in fitted metric": talvorix.kfold_cross_validation_using_idw(*data, linear[1], **inverse),
    }
    return {name: gather(values, np.asarray(found)) for name, found in errors.items()}


def gather(values, errors):
    """Put together what cross-validation says; errors, of each value, are in deviations."""
    errors = errors * values.std()
    some = np.isfinite(errors)
    if not some.any():
        raise InputError("cross-validation: no sample can be estimated from the others")
    measured = np.broadcast_to(values[:, None], errors.shape)[some]
    estimates = measured + errors[some]
    return Validation(
        measured,
        estimates,
        error=float(np.abs(errors[some]).mean()),
        correlation=float(np.corrcoef(measured, estimates)[0, 1]),
        explained=float(1 - (errors[some] ** 2).mean() / measured.var()),
    )


# Results -----------------------------------------------------------------------------------------


def print_models(models):
    """Print one line a structure, sills as shares of the total, and how near the axes are."""
    heads = "share", "r1", "r2", "r3", "azimuth", "dip", "rake", "nugget"
    print(f"\n{'model of':<10}{'kind':<13}" + "".join(f"{head:>9}" for head in heads))
    for name, model in models.items():
        total = sum(part.sill for part in model)
        nugget = sum(part.sill for part in model if part.type == "nugget") / total
        for part in model:
            if part.type == "nugget":
                continue
            info = part.ellipsoid.info()
            ranges = "".join(f"{r:>9.4g}" for r in (info.r1(), info.r2(), info.r3()))
            angles = "".join(f"{a:>9.0f}" for a in (info.azimuth(), info.dip(), info.rake()))
            share = f"{part.sill / total:>9.3f}"
            print(f"{name:<10}{part.type:<13}{share}{ranges}{angles}{nugget:>9.3f}")
    known = longest_structure(models.get("known", []))
    if known is None:
        return
    theirs = known.info()
    for name in [name for name in models if name != "known"]:
        fitted = longest_structure(models[name])
        info = fitted.info()
        ratios = info.r1() / theirs.r1(), info.r2() / theirs.r2(), info.r3() / theirs.r3()
        major = axis_angle(fitted.major_axis(), known.major_axis())
        minor = axis_angle(fitted.minor_axis(), known.minor_axis())
        print(
            f"{name} and known: ranges by {' '.join(f'{ratio:.2f}' for ratio in ratios)}; "
            f"{major:.0f}° between the major, {minor:.0f}° between the minor axes"
        )


def print_validations(validations):
    """Print one line a method."""
    print(f"\n{'cross-validation':<18}{'abs. error':>11}{'correlation':>12}{'explained':>10}")
    for name, v in validations.items():
        print(f"{name:<18}{v.error:>11.4f}{v.correlation:>12.3f}{v.explained:>10.1%}")


def print_fields(samples, cube, result):
    """Print what the estimate and the realisations hold beside the samples."""
    values, done = result.values, cube[np.isfinite(cube)]
    print(f"\n{'':<18}{'mean':>11}{'variance':>12}")
    rows = {"samples": samples.values[None], "estimate": done[None], "realisations": values}
    for name, row in rows.items():
        variance = row.var(axis=1, dtype=float).mean()
        print(f"{name:<18}{row.mean(dtype=float):>11.4f}{variance:>12.4f}")
    print(f"largest difference of scores at the samples: {result.score_error:.1e}")


def write_model(path, job, settings):
    """Write the job, with the model of the values, as settings for the other scripts."""
    info = job.search.info()
    search = info.r1(), info.r2(), info.r3(), info.azimuth(), info.dip(), info.rake()
    rows = {name: settings[name] for name in ("origin", "cells", "size")}
    rows = job.columns | rows | {"search": [float(f"{number:.6g}") for number in search]}
    rows |= {name: value for name, value in job.limits.items()}
    rows["nugget"] = sum(part.sill for part in job.model if part.type == "nugget")
    lines = [f"{name} = {json.dumps(value)}" for name, value in rows.items()]
    for part in job.model:
        if part.type != "nugget":
            info = part.ellipsoid.info()
            lines += ["", "[[structure]]", f'kind = "{part.type}"', f"sill = {part.sill!r}"]
            lines.append(f"ranges = {[info.r1(), info.r2(), info.r3()]}")
            lines.append(f"angles = {[info.azimuth(), info.dip(), info.rake()]}")
    path.write_text("\n".join(lines) + "\n", encoding="utf-8")


def draw_axes(panel, lags, model, variance):
    """Draw the lags near the axes of a model, in classes, and the model along these axes."""
    longest = longest_structure(model)
    curve = talvorix.variogram_computer(model, variance)
    lengths = np.linalg.norm(lags.vectors, axis=1)
    axes = longest.major_axis(), longest.mid_axis(), longest.minor_axis()
    reach = min(1.6 * longest.info().r1(), lengths.max())
    panel.axhline(1, color="0.55", lw=1, ls="--")
    names = "major axis", "middle axis", "minor axis"
    for name, axis, colour in zip(names, axes, COLOURS.values(), strict=True):
        along = np.ravel(axis) / np.linalg.norm(axis)
        cosines = np.abs(lags.vectors @ along) / lengths
        near = (cosines > math.cos(math.radians(CONE))) & (lengths < reach)
        classes = (lengths[near] / reach * LAG_CLASSES).astype(int)
        pairs = np.bincount(classes, lags.pairs[near])
        some = pairs >= FEW_PAIRS
        lag, mean = (
            np.bincount(classes, lags.pairs[near] * column[near])[some] / pairs[some]
            for column in (lengths, lags.semivariances)
        )
        panel.plot(lag, mean / variance, "o", ms=4, color=colour, alpha=0.7)
        # From just above 0, where the nugget counts.
        fine = np.linspace(reach / 1000, reach, 200)
        model_curve = np.array(curve.simulate(fine[:, None] * along)) / variance
        panel.plot(fine, model_curve, color=colour, lw=1.8, label=name)
    panel.set(xlim=(0, reach), ylim=(0, 1.6), xlabel="lag", ylabel="semivariance / variance")
    panel.legend(fontsize=8, loc="lower right")


def draw(path, job, samples, analyses, validation, cubes):
    """Draw the variograms, the cross-validation, and sections of what was made."""
    size = np.ravel(job.grid.cell_size())
    counts = np.array(job.grid.number_of_cells())
    length = size * counts
    # A plan where a section would be a strip, through the midst of where most is estimated.
    through = 2 if length[2] < FLAT * length[0] else 1
    others = tuple(axis for axis in range(3) if axis != through)
    estimated = np.isfinite(cubes["estimate"]).sum(axis=others)
    cut = int(np.flatnonzero(estimated > 0.9 * estimated.max()).mean())
    at = axes_of(job.grid)[through][cut]

    height = float(np.clip(4.4 * length[1 if through == 2 else 2] / length[0] + 1.0, 2.4, 7))
    figure, panels = plt.subplots(
        2, 3, figsize=(13.6, 4 + height), layout="constrained", height_ratios=[4, height]
    )
    for panel, (name, (lags, model, variance)) in zip(panels[0], analyses.items(), strict=False):
        draw_axes(panel, lags, model, variance)
        panel.set_title(f"variogram of the {name} and fitted model", fontsize=10)
    draw_scatter(panels[0, 2], "cross-validation", validation)
    panels[0, 2].set_xlabel("estimated by ordinary kriging")
    low, high = np.percentile(samples.values, [2, 98])
    colours = {"cmap": "viridis", "vmin": low, "vmax": high}
    spread = {"cmap": "magma", "vmin": 0, "vmax": float(np.nanpercentile(cubes["std"], 98))}
    titles = {
        "estimate": ("ordinary kriging", colours, (samples.locations, samples.values)),
        "realisation": ("realisation 1", colours, None),
        "std": ("standard deviation of realisations", spread, None),
    }
    for panel, (name, (title, scale, shown)) in zip(panels[1], titles.items(), strict=True):
        image = draw_section(panel, cubes[name], scale, job, shown, through, cut)
        panel.set_title(title, fontsize=10)
        panel.locator_params("x", nbins=4)
        if name != "estimate":
            figure.colorbar(image, ax=panel, shrink=0.8, extend="max" if name == "std" else "both")
    cut_name = "plans at z" if through == 2 else "sections looking north at y"
    figure.suptitle(f"{job.columns['value']}; below: {cut_name} = {at:,.7g}", fontsize=11)
    figure.savefig(path, dpi=85)
    plt.close(figure)


# Command -----------------------------------------------------------------------------------------


def parse_arguments(argv):
    """Parse the command line; settings that are not given are absent from the result."""
    title = "covariance model to compare with"
    groups = {
        "columns of the table": DATA_OPTIONS["columns of the table"],
        title: DATA_OPTIONS["covariance model"],
        "fitted model": [
            ("lattice", number_list, "'DX DY DZ'", "size of a cell of the variogram map"),
            ("kernel", str, "KIND", f"{', '.join(KINDS)}; default: spherical"),
            ("structures", int, "N", "besides the nugget; default: 1"),
        ],
        "search": [
            ("min_samples", int, "N", None),
            ("max_samples", int, "N", "default here: 24"),
            ("max_per_hole", int, "N", "0 for no limit; default here: 6"),
            ("max_octant", int, "N", "0 for no limit"),
        ],
        "grid": [
            ("origin", number_list, "'X Y Z'", "low corner of the first block, not its centre"),
            ("cells", number_list, "'NX NY NZ'", "numbers of blocks"),
            ("size", number_list, "'DX DY DZ'", "size of a block"),
        ],
        "simulation": [
            ("realisations", int, "N", "default: 10"),
            ("seed", int, "N", "default: 1"),
        ],
    }
    description = "Go from drillhole composites to realisations, the model fitted by the script."
    return vars(make_parser(description, HELP, groups).parse_args(argv))


def run(options):
    """Carry out all steps on what the options describe."""
    start = time.perf_counter()
    table, folder = options.pop("table"), Path(options.pop("out"))
    n_threads = options.pop("threads")
    if n_threads < 0:
        raise InputError(f"--threads: expected 0 or more, got {n_threads}")
    path = options.pop("model", None)
    own = {k: options.pop(k) for k in (*WORKFLOW_DEFAULTS, "lattice") if k in options}
    given = (read_settings(Path(path)) if path else {}) | options
    settings = DEFAULTS | LIMITS | ({} if table else KNOWN | OWN_GRID) | given
    columns = read_columns(settings)
    known = read_model(settings) if settings["structure"] or settings["nugget"] else []
    composites = read_composites(Path(table), columns, True) if table else drill_known_body()
    check_samples(composites, columns["value"])
    lattice, grid = choose_sizes(composites)
    settings = grid | settings
    own = read_workflow(own, composites, lattice)
    limits, grid = read_limits(settings), read_grid(settings)

    locations, values = composites.locations, composites.values
    print(
        f"{len(values):,} samples, mean {values.mean():.4f}, variance {values.var():.4f}; "
        f"{composites.skipped:,} rows without a value skipped"
    )
    with status("step 1 of 5: model of the values"):
        lags, model = analyse(locations, values, own, n_threads)
    job = Job(columns, model, longest_structure(model), limits, grid, [], 0.0, None)
    samples = samples_in_reach(composites, job)
    normal = to_normal_scores(samples, job.search)
    with status("step 2 of 5: model of the scores"):
        score_lags, score_model = analyse(samples.locations, normal.scores, own, n_threads)
    analyses = {
        "values": (lags, model, float(values.var())),
        "scores": (score_lags, score_model, float(normal.scores.var())),
    }
    shape = " x ".join(f"{side:.4g}" for side in own["lattice"])
    print(f"lattice cells of {shape}; {len(lags.pairs):,} lags fitted")
    models = {name: row[1] for name, row in analyses.items()}
    print_models(models | ({"known": known} if known else {}))
    with status("step 3 of 5: cross-validation"):
        validations = validate(composites, models, own["seed"], n_threads)
    print_validations(validations)
    best = max(models, key=lambda name: validations[KRIGING + name].explained)
    print(f"the estimate takes the model of the {best}")
    job.model = scaled(models[best], float(values.var()) / analyses[best][2])
    job.search = longest_structure(job.model)

    centres = np.asarray(grid)
    with status("step 4 of 5: block model"):
        reach, _ = plan_search(centres, samples, job.search, limits, n_threads)
        active = reach > 0
        cells = Cells(grid, active, centres[active])
        if not len(cells.centres):
            least = limits["min_samples"]
            raise InputError(f"min_samples: no block has {least} samples within the fitted ranges")
        plain = replace(job, model=scaled(job.model, TINY))
        estimates = estimate("ordinary", centres[active], reach[active], samples, plain, n_threads)
    simulation = Simulation(
        model=scale_model(score_model),
        method="turning-bands",
        realisations=own["realisations"],
        cutoff=math.nan,
        seed=own["seed"],
        neighbors=2 * limits["max_samples"],
    )
    with status("step 5 of 5: simulation"):
        result = simulate(simulation, cells, samples, normal, job, n_threads)
    cubes = {
        "estimate": fill(cells, estimates[0]),
        "mean": fill(cells, result.values.mean(axis=0, dtype=float)),
        "std": fill(cells, result.values.std(axis=0, dtype=float)),
    }
    print_fields(samples, cubes["estimate"], result)
    make_folder(folder)
    if not table:
        write_composites(folder / "composites.csv", composites, columns)
    realisations = fill(cells, result.values)
    axes = {f"{k}_centres": along for k, along in zip("xyz", axes_of(grid), strict=True)}
    np.savez_compressed(folder / "workflow.npz", realisations=realisations, **cubes, **axes)
    write_model(folder / "model.toml", job, settings)
    cubes["realisation"] = realisations[0]
    kriging = validations[KRIGING + best]
    draw(folder / "workflow.png", job, samples, analyses, kriging, cubes)
    seconds = time.perf_counter() - start
    print(f"\nwritten in {seconds:.0f} s: {folder / 'workflow.npz'}, model.toml, workflow.png")


def main(argv=None):
    """Run the script and return its exit code."""
    return carry_out(run, parse_arguments(argv), "workflow.py")


if __name__ == "__main__":
    sys.exit(main())
