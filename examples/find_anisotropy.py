#!/usr/bin/env python3
"""Find the ellipsoid of anisotropy that predicts drillhole composites best, and draw it.

    find_anisotropy.py composites.csv --value cu_pct --out out

The columns are given as to estimate_drillholes.py, and --model takes the same TOML file; what is
given on the command line wins. When that file or --structure holds a covariance model, the
ellipsoid found is compared with that of the model's longest structure. Without a table the script
drills the small ore body of estimate_drillholes.py, whose anisotropy stands in
examples/campaign.toml.

The folder given by --out receives anisotropy.png.
"""

from __future__ import annotations

import math
import sys
import time
from dataclasses import dataclass
from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
import talvorix
from estimate_drillholes import (
    CAMPAIGN,
    DATA_OPTIONS,
    DEFAULTS,
    ELLIPSOID,
    KINDS,
    InputError,
    carry_out,
    check_number,
    check_numbers,
    drill_campaign,
    make_folder,
    make_parser,
    read_columns,
    read_composites,
    read_model,
    read_settings,
    status,
    structure_table,
    tracked,
    write_composites,
)
from variogram import longest_structure

SEARCH_DEFAULTS = {
    "kernel": "exponential",
    "min_range": 0.1,
    "max_range": 0.6,
    "penalty": 0.025,
    "folds": 30,
    "neighbors": 300,
    "seed": 1,
}
FEWEST_SAMPLES = 30
# Small subsets of a neighbourhood lie as far apart as samples do between holes. In large ones a
# sample of the same hole is always at hand, and every ellipsoid predicts equally well from it.
SUBSET_SIZES, SUBSETS = (8, 16), 6
# About 2,700 candidates, which is what keeps the demo's search to a few seconds.
RAYS, FRAME_TOLERANCE = 100, 0.004
SPHERES = 16
POWER = 3.0
# Longer than any distance in coordinates that are parts of the diagonal.
EVERYWHERE = 2.0
DRAWN_RANGE = 0.3
SECTION_BAND = 0.08
SCATTER_TOP = 99.5

HELP = """\
the search:
  Many ellipsoids are tried. Each is scored by how well inverse distances in its metric predict
  samples from random subsets of the samples around them, on --folds neighbourhoods of --neighbors
  samples; the best one is then improved by small changes. Inverse distances feel the proportions
  of the ranges and their directions; the size of the ellipsoid matters little, and less the more
  the kernel looks like a straight line. Search with a few values of --seed: what stays the same is
  what the data tell. The result depends on --threads, too.

ranges and penalty:
  --min-range and --max-range are parts of the diagonal of the samples' bounding box. They bound
  the root of the sum of the squares of the three ranges of what is tried; the improvement may
  shrink it further.

  The error is multiplied by 1 + penalty * (the sum of log(1 + range^2) over the three ranges), so
  that of ellipsoids that predict alike the smallest wins. A logarithm of feet or metres would make
  that a steep price for every range and let the ellipsoid collapse to a point, where all weights
  are equal. This script therefore searches in coordinates that are parts of the diagonal, where
  the default takes less than 1 % and only settles the size. 0 leaves the size to chance; with 0.1
  the directions found in the demo's ore body are already worse.

cross-validation:
  Every sample is estimated 15 times, each time from a random subset, of 10 to 40 samples, of the
  --neighbors nearest others, and each estimate is compared with what was measured. "explained" is
  the share of the variance that the estimates explain. The isotropic ellipsoid is the best of 16,
  from a tenth of --min-range to --max-range, scored as in the search. The figures are a little too
  good for both, since the search has seen part of the samples. The scatter leaves out the highest
  0.5 % of measured values; the correlation does not.

picture:
  Outlines are the ellipsoid's shadow in plan and section, all drawn with the same longest range,
  centred on the mean location. The section is vertical, through that centre, down the dip of the
  plane of the two longer axes; it shows the samples near it.
"""


@dataclass
class Search:
    """How the ellipsoid is searched; ranges are parts of the diagonal."""

    kernel: str
    ranges: tuple
    penalty: float
    folds: int
    neighbors: int
    seed: int
    n_threads: int


@dataclass
class Validation:
    """Measured values and estimates of them from other samples, several for each."""

    measured: np.ndarray
    estimates: np.ndarray
    error: float
    correlation: float
    explained: float


# Settings ----------------------------------------------------------------------------------------


def read_search(settings, n_threads):
    """Check the settings of the search."""
    settings = SEARCH_DEFAULTS | settings
    if settings["kernel"] not in KINDS:
        expected = ", ".join(KINDS)
        raise InputError(f"kernel: expected one of {expected}; got {settings['kernel']!r}")
    low, high = (
        check_numbers(name, [settings[name]], (1,), positive=1)[0]
        for name in ("min_range", "max_range")
    )
    if low >= high:
        raise InputError(f"min_range: expected less than max_range, which is {high:g}; got {low:g}")
    return Search(
        kernel=settings["kernel"],
        ranges=(low, high),
        penalty=check_number(settings, "penalty"),
        folds=check_number(settings, "folds", whole=True, minimum=1),
        neighbors=check_number(settings, "neighbors", whole=True, minimum=FEWEST_SAMPLES),
        seed=check_number(settings, "seed", whole=True),
        n_threads=n_threads,
    )


def check_samples(composites, column):
    """Refuse samples from which nothing about anisotropy can be learnt."""
    locations, values = composites.locations, composites.values
    if len(values) < FEWEST_SAMPLES:
        raise InputError(
            f"column '{column}': expected at least {FEWEST_SAMPLES} values, got {len(values)}"
        )
    if np.ptp(values) == 0:
        raise InputError(f"column '{column}': expected values that differ, got {values[0]:g} only")
    if not np.ptp(locations, axis=0).any():
        raise InputError(f"expected locations that differ, got {locations[0]} only")


# Search ------------------------------------------------------------------------------------------


@status("search of the ellipsoid")
def find_ellipsoid(scaled, values, search):
    """Search for the ellipsoid that predicts best; return it and its error."""
    return talvorix.optimize_ellipsoid(
        scaled,
        values,
        getattr(talvorix.Kernel, search.kernel),
        *search.ranges,
        talvorix.EllipsoidOptimizationParameters(
            power_a=POWER,
            max_nei_size=search.neighbors,
            min_partition_size=SUBSET_SIZES[0],
            max_partitions_size=SUBSET_SIZES[1],
            n_partitions=SUBSETS,
            n_centers=search.folds,
            n_rays=RAYS,
            tol=FRAME_TOLERANCE,
            regularization_const=search.penalty,
            seed=search.seed,
            n_threads=search.n_threads,
        ),
    )


def find_sphere(scaled, values, search):
    """Return the sphere that predicts best, scored in the same way."""
    folds = talvorix.create_folds(
        scaled, values, EVERYWHERE, search.neighbors, search.folds, search.seed
    )
    # The bounds are of the vector of three ranges. Ellipsoids may shrink below the lower one when
    # they are improved, so spheres may, too.
    low, high = search.ranges
    lengths = np.geomspace(low / 10, high, SPHERES) / math.sqrt(3)
    spheres = [talvorix.Ellipsoid(*[length] * 3, 0, 0, 0) for length in lengths]
    kernel = getattr(talvorix.Kernel, search.kernel)
    settings = search.neighbors, POWER, *SUBSET_SIZES, SUBSETS, search.penalty
    errors = [
        talvorix.compute_ellipsoid_error_idw(
            sphere, kernel, folds, EVERYWHERE, *settings, n_threads=search.n_threads
        )
        for sphere in tracked(spheres, "isotropic ellipsoid")
    ]
    return spheres[int(np.argmin(errors))]


def resized(ellipsoid, factor):
    """Return an ellipsoid with all ranges multiplied."""
    return talvorix.Ellipsoid(np.asarray(ellipsoid.matrix()) / factor)


def validate(scaled, values, ellipsoid, search, kriging):
    """Estimate each sample from those around it, by ordinary kriging or inverse distances.

    Returns
    -------
    Validation
        In the units of the values.
    """
    create = getattr(talvorix.Covariance, search.kernel)
    neighbors = {"max_distance": EVERYWHERE, "max_size": search.neighbors + 1}
    data = scaled, values
    if kriging:
        # The estimates contain the Lagrange multiplier, which goes with the sill; the weights do
        # not depend on it. With a tiny sill it is out of the estimates.
        errors = talvorix.kfold_cross_validation_using_ok(
            *data, [create(1e-6, ellipsoid)], **neighbors, n_threads=search.n_threads
        )
    else:
        errors = talvorix.kfold_cross_validation_using_idw(
            *data,
            [create(1.0, ellipsoid)],
            **neighbors,
            power_a=POWER,
            n_threads=search.n_threads,
        )
    errors = np.asarray(errors) * values.std()
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


def section_direction(ellipsoid):
    """Return the level direction down the dip of the plane of the two longer axes."""
    normal = np.ravel(ellipsoid.minor_axis())
    level = math.copysign(1, normal[2]) * normal * [1, 1, 0]
    # A plane that is flat dips nowhere, and the longest axis is as good a direction.
    if np.linalg.norm(level) < 0.01 * np.linalg.norm(normal):
        level = np.ravel(ellipsoid.major_axis()) * [1, 1, 0]
    return level / np.linalg.norm(level)


def outline(ellipsoid, view):
    """Return the silhouette of an ellipsoid about 0.

    Parameters
    ----------
    ellipsoid : talvorix.Ellipsoid
    view : numpy.ndarray, shape (2, 3)
        The unit vectors to the right and upward of the drawing.

    Returns
    -------
    numpy.ndarray, shape (2, m)
    """
    # The shadow of the unit sphere under a 2 by 3 matrix is that of the circle under its U S.
    axes, lengths, _ = np.linalg.svd(view @ np.asarray(ellipsoid.inv_matrix()))
    turn = np.linspace(0, 2 * np.pi, 181)
    return axes @ (lengths[:, None] * [np.cos(turn), np.sin(turn)])


def axis_angle(first, second):
    """Return the angle between two axes in degrees; an axis has no head."""
    first, second = np.ravel(first), np.ravel(second)
    return math.degrees(math.atan2(np.linalg.norm(np.cross(first, second)), abs(first @ second)))


def draw_samples(panel, composites, shapes, view, near):
    """Draw samples and the outlines of ellipsoids in plan or section, and return the points."""
    locations, values = composites.locations, composites.values
    centre, diagonal = locations.mean(axis=0), np.linalg.norm(np.ptp(locations, axis=0))
    # A section's distances count from the centre; elevations, and plans, keep their coordinates.
    origin = centre * [1, 1, 0] if view[1, 2] else np.zeros(3)
    # High grades last, or the many low ones would hide them.
    order = np.flatnonzero(near)[np.argsort(values[near])]
    low, high = np.percentile(values, [2, 98])
    x, y = view @ (locations[order] - origin).T
    points = panel.scatter(x, y, s=5, c=values[order], cmap="viridis", vmin=low, vmax=high, lw=0)
    for (name, ellipsoid), style in shapes.items():
        form = resized(ellipsoid, DRAWN_RANGE * diagonal / ellipsoid.info().r1())
        line = outline(form, view) + (view @ (centre - origin))[:, None]
        if name == "found":
            panel.plot(*line, lw=5, color="white")
        panel.plot(*line, lw=1.9, label=name, **style)
    panel.set_aspect("equal")
    panel.set_facecolor("0.93")
    panel.ticklabel_format(useOffset=False, style="plain")
    panel.locator_params("x", nbins=5)
    panel.margins(0.03)
    return points


def draw_scatter(panel, name, validation):
    """Draw measured against estimated values."""
    measured = validation.measured
    low, high = measured.min(), np.percentile(measured, SCATTER_TOP)
    panel.hexbin(
        validation.estimates,
        measured,
        gridsize=30,
        extent=(low, high, low, high),
        bins="log",
        mincnt=1,
        cmap="viridis",
        lw=0,
    )
    panel.plot([low, high], [low, high], color="#d1541f", lw=1.2)
    panel.set(xlim=(low, high), ylim=(low, high), aspect="equal", ylabel="measured")
    panel.set_title(f"{name}: correlation {validation.correlation:.3f}", fontsize=10)


def draw(path, composites, column, ellipsoids, validations):
    """Draw plan and section with the ellipsoids, and what cross-validation made of them."""
    found = ellipsoids["found"]
    locations = composites.locations
    centre = locations.mean(axis=0)
    across = section_direction(found)
    plan, section = np.eye(3)[:2], np.array([across, [0, 0, 1]])
    styles = {"found": {"color": "#d1541f"}, "model": {"color": "black", "ls": "--"}}
    shapes = {(n, e): styles[n] for n, e in ellipsoids.items() if n in styles}
    off = np.abs((locations - centre) @ np.cross(across, [0, 0, 1]))
    band = SECTION_BAND * np.linalg.norm(np.ptp(locations, axis=0))

    figure = plt.figure(figsize=(10.5, 8.0), layout="constrained")
    left, right = figure.subfigures(1, 2, width_ratios=[6.6, 3.9])
    heights = [max(np.ptp(locations[:, axis]), 2 * band) for axis in (1, 2)]
    top, bottom = left.subplots(2, 1, height_ratios=heights)
    points = draw_samples(top, composites, shapes, plan, np.full(len(off), True))
    top.axline(centre[:2], centre[:2] + across[:2], color="0.35", lw=0.8, ls=":")
    top.set(title="Plan", xlabel="east (x)", ylabel="north (y)")
    top.legend(fontsize=8, loc="upper right")
    draw_samples(bottom, composites, shapes, section, off <= band)
    azimuth = math.degrees(math.atan2(across[0], across[1])) % 360
    bottom.set_title(f"Section toward {azimuth:.0f}°, {band:.4g} to either side")
    bottom.set(xlabel=f"distance toward {azimuth:.0f}°", ylabel="elevation (z)")
    left.colorbar(points, ax=[top, bottom], label=column, extend="both", shrink=0.6)
    panels = right.subplots(2, 1)
    for panel, name in zip(panels, ("found", "isotropic"), strict=True):
        draw_scatter(panel, name, validations[name][0])
    panels[1].set_xlabel(f"{column} estimated by inverse distance")
    figure.savefig(path, dpi=90)
    plt.close(figure)


def print_tables(ellipsoids, validations):
    """Print the ellipsoids and how well each predicts."""
    print(f"\n{'ellipsoid':<12}", end="")
    heads = "r1", "r2", "r3", "azimuth", "dip", "rake"
    print("".join(f"{head:>9}" for head in heads))
    for name, ellipsoid in ellipsoids.items():
        info = ellipsoid.info()
        ranges = [f"{reach:>9.4g}" for reach in (info.r1(), info.r2(), info.r3())]
        angles = [f"{angle:>9.0f}" for angle in (info.azimuth(), info.dip(), info.rake())]
        print(
            f"{name:<12}" + "".join(ranges + (angles if name != "isotropic" else ["        -"] * 3))
        )
    if "model" in ellipsoids:
        found, model = ellipsoids["found"], ellipsoids["model"]
        major = axis_angle(found.major_axis(), model.major_axis())
        minor = axis_angle(found.minor_axis(), model.minor_axis())
        print(f"found and model: {major:.0f}° between the major, {minor:.0f}° the minor axes")

    print(f"\n{'':<12}{'inverse distance':^33}{'ordinary kriging':^33}")
    print(f"{'ellipsoid':<12}" + f"{'abs. error':>11}{'correlation':>12}{'explained':>10}" * 2)
    for name, methods in validations.items():
        figures = "".join(
            f"{v.error:>11.4f}{v.correlation:>12.3f}{v.explained:>10.1%}" for v in methods
        )
        print(f"{name:<12}{figures}")


def parse_arguments(argv):
    """Parse the command line; settings that are not given are absent from the result."""
    columns = "columns of the table"
    groups = {
        columns: [option for option in DATA_OPTIONS[columns] if option[0] != "hole"],
        "ellipsoid to compare with": [
            ("structure", structure_table, f"'KIND SILL {ELLIPSOID}'", "the longest one counts"),
        ],
        "search": [
            ("kernel", str, "KIND", f"{', '.join(KINDS)}; default: exponential"),
            ("min_range", float, "SHARE", "of the diagonal; default: 0.1"),
            ("max_range", float, "SHARE", "of the diagonal; default: 0.6"),
            ("penalty", float, "WEIGHT", "on long ranges, see below; default: 0.025"),
            ("folds", int, "N", "neighbourhoods to score by; default: 30"),
            ("neighbors", int, "N", "samples in a neighbourhood; default: 300"),
            ("seed", int, "N", "of candidates and folds; default: 1"),
        ],
    }
    description = "Find the ellipsoid that predicts drillhole composites best, and draw it."
    return vars(make_parser(description, HELP, groups).parse_args(argv))


def run(options):
    """Search, cross-validate, print and draw what the options describe."""
    table, folder = options.pop("table"), Path(options.pop("out"))
    n_threads = options.pop("threads")
    if n_threads < 0:
        raise InputError(f"--threads: expected 0 or more, got {n_threads}")
    path = options.pop("model", None if table else CAMPAIGN)
    own = {name: options.pop(name) for name in SEARCH_DEFAULTS if name in options}
    settings = DEFAULTS | (read_settings(Path(path)) if path else {}) | options
    search = read_search(own, n_threads)
    columns = read_columns(settings)
    model = longest_structure(read_model(settings) if settings["structure"] else [])
    composites = read_composites(Path(table), columns, False) if table else drill_campaign()
    check_samples(composites, columns["value"])
    make_folder(folder)
    if not table:
        write_composites(folder / "composites.csv", composites, columns)

    locations, values = composites.locations, composites.values
    diagonal = float(np.linalg.norm(np.ptp(locations, axis=0)))
    scaled = (locations - locations.mean(axis=0)) / diagonal
    print(
        f"{len(values):,} samples, mean {values.mean():.4f}, variance {values.var():.4f}; "
        f"{composites.skipped:,} rows without a value skipped"
    )
    start = time.perf_counter()
    best, error = find_ellipsoid(scaled, values, search)
    seconds = time.perf_counter() - start
    print(f"searched {seconds:.1f} s; error with penalty {error:.4f} standard deviations")
    ellipsoids = {"found": best, "isotropic": find_sphere(scaled, values, search)}
    if model:
        ellipsoids["model"] = resized(model, 1 / diagonal)
    validations = {
        name: [validate(scaled, values, ellipsoid, search, kriging) for kriging in (False, True)]
        for name, ellipsoid in tracked(ellipsoids.items(), "cross-validation of ellipsoid")
    }
    ellipsoids = {name: resized(ellipsoid, diagonal) for name, ellipsoid in ellipsoids.items()}
    print_tables(ellipsoids, validations)
    draw(folder / "anisotropy.png", composites, columns["value"], ellipsoids, validations)
    print(f"\nwritten: {folder / 'anisotropy.png'}")


def main(argv=None):
    """Run the script and return its exit code."""
    return carry_out(run, parse_arguments(argv), "find_anisotropy.py")


if __name__ == "__main__":
    sys.exit(main())
