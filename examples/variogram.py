#!/usr/bin/env python3
"""Draw directional variograms of drillhole composites, with a covariance model over them.

The points are the experimental variogram along some directions, the curves the model along the
same directions; a map shows all directions at one lag. The model is yours to fit by eye: draw the
points without one, choose structures, look again.

    variogram.py composites.csv --value cu_pct --hole hole_id --model job.toml --out out

Columns and model are given as to estimate_drillholes.py, and --model takes the same TOML file;
what is given on the command line wins. Without a table the script drills the small ore body of
that script, with the model of examples/campaign.toml.

The folder given by --out receives variogram.png.
"""

from __future__ import annotations

import math
import sys
from dataclasses import dataclass
from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
import talvorix
from estimate_drillholes import (
    CAMPAIGN,
    DATA_OPTIONS,
    DEFAULTS,
    InputError,
    carry_out,
    check_number,
    check_numbers,
    drill_campaign,
    make_folder,
    make_parser,
    number_list,
    read_columns,
    read_composites,
    read_model,
    read_settings,
    status,
    write_composites,
)

SEARCH_DEFAULTS = {"angle_tol": 15.0, "bandwidth": 0.04, "most_samples": 3500}
N_LAGS = 120
LAG_CLASSES = 24
REACHED = 0.95
# A class of lags with fewer than this share of the fullest one's pairs tells nothing.
THIN = 0.01
# Of the map: the lags taken together, as factors of its lag, and the smoothing angle in degrees.
MAP_LAGS = 0.75, 1.25
MAP_ANGLE = 8.0
MAP_STEPS, MAP_TOP = 12, 1.2

HELP = """\
directions:
  "azimuth dip" in degrees: azimuth clockwise from north (+y), dip positive upward, so that a hole
  going down has a negative dip. Without --direction they are the axes of the model's structure
  with the longest range (north, east and the vertical, when there is no model) and the mean
  direction of the holes (the vertical, when the table's --hole is not given).

  Talvorix searches 600 directions spread over the sphere. A panel shows the searched direction
  nearest to the one asked and the one nearest to its opposite, and says how far they are from it.

pairs:
  Pairs are looked for in a tube along the direction around every sample, which is work that grows
  with the cube of their number. From a table of more than --most-samples so many are drawn at
  random, which keeps pairs at all lags in proportion; half as many take an eighth of the time.
  The area of a point goes with its number of pairs, counted as often as they were found, and is
  largest for the most of its panel. Points above 2.2 times the variance are cut off.

model:
  Its sill is scaled to the variance of the samples, the dashed line, so that only the ratios of
  its sills matter. In the map the numbers mark the panels' directions, the line is the plane of
  the model's two longer axes, and a white line encloses what is above the variance.
"""


@dataclass
class View:
    """What is to be drawn: `directions` are (name, azimuth, dip), lags in units of the table."""

    name: str
    directions: list
    max_lag: float
    map_lag: float


@dataclass
class Curve:
    """One direction of an experimental variogram; `angles` tell how far off its halves are."""

    lags: np.ndarray
    semivariances: np.ndarray
    pairs: np.ndarray
    angles: list


# Directions --------------------------------------------------------------------------------------


def angles_of(vector):
    """Return azimuth and dip of an axis, pointing down."""
    east, north, up = np.ravel(vector) / np.linalg.norm(vector)
    if up > 0:
        east, north, up = -east, -north, -up
    azimuth, dip = math.atan2(east, north), math.asin(max(up, -1.0))
    # Rounded so that rounding errors make no -0 of 0 and no 360 of 0; adding 0 turns -0 into 0.
    return round(math.degrees(azimuth), 6) % 360, round(math.degrees(dip), 6) + 0.0


def longest_structure(model):
    """Return the ellipsoid of the structure that reaches furthest; None without a structure."""
    ellipsoids = [part.ellipsoid for part in model if part.type != "nugget"]
    return max(ellipsoids, key=lambda ellipsoid: ellipsoid.info().r1(), default=None)


def hole_direction(composites):
    """Return the mean axis of the steps from sample to sample of the same hole, or None."""
    steps = np.diff(composites.locations, axis=0)[np.diff(composites.holes) == 0]
    steps = steps[np.any(steps != 0, axis=1)]
    if not len(steps):
        return None
    steps /= np.linalg.norm(steps, axis=1)[:, None]
    # Up or down the hole is the same to a variogram: the axis nearest to all steps.
    return np.linalg.eigh(steps.T @ steps)[1][:, -1]


def choose_directions(asked, model, along):
    """Return the directions to draw as (name, azimuth, dip); `along` is that of the holes."""
    directions = []
    for azimuth, dip in (check_numbers("direction", pair, (2,)) for pair in asked):
        if abs(dip) > 90:
            raise InputError(f"direction: expected a dip from -90 to 90, got {dip:g}")
        directions.append((f"direction {len(directions) + 1}", azimuth, dip))
    if directions:
        return directions
    longest = longest_structure(model)
    if longest is None:
        directions = [("north", 0.0, 0.0), ("east", 90.0, 0.0)]
    else:
        axes = longest.major_axis(), longest.mid_axis(), longest.minor_axis()
        names = "major axis", "middle axis", "minor axis"
        directions = [(name, *angles_of(axis)) for name, axis in zip(names, axes, strict=True)]
    if along is not None:
        directions.append(("along the holes", *angles_of(along)))
    if along is None or longest is None:
        directions.append(("vertical", 0.0, -90.0))
    return directions


# Variogram ---------------------------------------------------------------------------------------


def pick_curve(variogram, azimuth, dip, max_lag):
    """Pool the entries of the searched directions nearest to a direction and to its opposite."""
    entries, angles = [], []
    for sign in (1, -1):
        asked = sign * np.ravel(talvorix.Direction(azimuth, dip))
        vectors, semivariances, pairs = variogram.get_variogram(asked)
        vectors = np.reshape(vectors, (-1, 3))
        lags = np.linalg.norm(vectors, axis=1)
        cosine = vectors[-1] @ asked / lags[-1]
        angles.append(math.degrees(math.acos(np.clip(cosine, -1, 1))))
        entries.append(np.column_stack([lags, semivariances, pairs]))
    pooled = np.concatenate(entries)
    pooled = pooled[pooled[:, 0] <= max_lag]
    lags, semivariances, pairs = pooled[np.argsort(pooled[:, 0])].T
    return Curve(lags, semivariances, pairs.astype(int), angles)


def range_reached(curve, level, max_lag):
    """Return the lag at which the means of equal classes of lags first reach a level, or NaN."""
    classes = np.minimum(curve.lags / max_lag * LAG_CLASSES, LAG_CLASSES - 1).astype(int)
    pairs = np.bincount(classes, curve.pairs)
    some = pairs > THIN * pairs.max(initial=0)
    lags = np.bincount(classes, curve.pairs * curve.lags)[some] / pairs[some]
    means = np.bincount(classes, curve.pairs * curve.semivariances)[some] / pairs[some]
    above = np.flatnonzero(means >= level)
    if not len(above):
        return math.nan
    before = max(above[0] - 1, 0)
    ends = slice(before, above[0] + 1)
    return float(np.interp(level, means[ends], lags[ends]))


def map_directions(variogram, map_lag, directions):
    """Average the semivariances about one lag over the directions near each given one.

    Parameters
    ----------
    variogram : talvorix.ExperimentalVariogram
    map_lag : float
    directions : numpy.ndarray, shape (..., 3)
        Unit vectors. A direction and its opposite are one.

    Returns
    -------
    numpy.ndarray, shape (...)
        NaN where no searched direction with pairs at such lags is near.
    """
    vectors = np.reshape(variogram.lags, (-1, 3))
    lags = np.linalg.norm(vectors, axis=1)
    near = (lags >= MAP_LAGS[0] * map_lag) & (lags <= MAP_LAGS[1] * map_lag)
    if not near.any():
        raise InputError(
            f"map_lag: no pairs at lags of about {map_lag:.4g}; "
            f"there are from {lags.min():.4g} to {lags.max():.4g}"
        )
    ids = np.asarray(variogram.direction_ids)[near]
    pairs = np.asarray(variogram.npairs, dtype=float)[near]
    count = len(variogram.directions)
    sums = np.bincount(ids, pairs * np.asarray(variogram.variogram)[near], count)
    weights = np.bincount(ids, pairs, count)
    found = weights > 0
    axes = np.reshape(variogram.directions, (-1, 3))[found]
    # Roots, since those along the holes have so many pairs that they would smother the others.
    cosines = np.minimum(np.abs(directions @ axes.T), 1.0)
    reliance = np.sqrt(weights[found])
    nearness = np.exp(-0.5 * (np.degrees(np.arccos(cosines)) / MAP_ANGLE) ** 2)
    with np.errstate(invalid="ignore"):
        means = nearness @ (reliance * sums[found] / weights[found]) / (nearness @ reliance)
    return np.where(nearness.sum(axis=-1) > 0.2, means, np.nan)


# Results -----------------------------------------------------------------------------------------


def equal_area(azimuth, dip):
    """Return polar angle and radius of downward directions on an equal-area net of radius 1."""
    return np.radians(azimuth), np.sqrt(2) * np.sin(np.radians(90 + np.asarray(dip)) / 2)


def draw_panel(panel, curve, direction, model_curve, variance, view):
    """Draw the points of one direction and the model over them."""
    name, azimuth, dip = direction
    largest = max(curve.pairs.max(initial=1), 1)
    panel.axhline(variance, color="0.55", lw=1, ls="--")
    panel.scatter(
        curve.lags,
        curve.semivariances,
        s=3 + 60 * curve.pairs / largest,
        c="#3b6fb6",
        alpha=0.6,
        lw=0,
    )
    if model_curve:
        lags = np.linspace(view.max_lag / 1000, view.max_lag, 300)
        along = np.ravel(talvorix.Direction(azimuth, dip))
        panel.plot(lags, model_curve.simulate(lags[:, None] * along), color="#d1541f", lw=1.8)
    off = " and ".join(f"{angle:.1f}°" for angle in curve.angles)
    panel.set_title(f"{name}: azimuth {azimuth:.0f}°, dip {dip:.0f}°", fontsize=10)
    panel.text(0.98, 0.03, f"found {off} away", transform=panel.transAxes, ha="right", fontsize=8)


@status("map of all directions")
def compute_map(variogram, variance, map_lag):
    """Return polar angles, radii and semivariances by the variance, over the lower hemisphere."""
    azimuths = np.linspace(0, 360, 181)
    dips = -90 + 2 * np.degrees(np.arcsin(np.linspace(0, 1, 46) / np.sqrt(2)))
    azimuth, dip = np.radians(np.meshgrid(azimuths, dips))
    level = np.cos(dip)
    unit = np.stack([level * np.sin(azimuth), level * np.cos(azimuth), np.sin(dip)], axis=-1)
    theta, radius = equal_area(np.degrees(azimuth), np.degrees(dip))
    return theta, radius, map_directions(variogram, map_lag, unit) / variance


def draw_map(panel, net, model, view):
    """Draw all directions at one lag on the lower hemisphere, and return the image."""
    theta, radius, ratio = net
    panel.set_facecolor("0.88")
    levels = np.linspace(0, max(MAP_TOP, np.nanpercentile(ratio, 95)), MAP_STEPS + 1)
    image = panel.contourf(theta, radius, ratio, levels, cmap="viridis", extend="max")
    if np.nanmin(ratio) < 1 < np.nanmax(ratio):
        panel.contour(theta, radius, ratio, [1.0], colors="white", linewidths=1)
    longest = longest_structure(model)
    if longest is not None:
        draw_plane(panel, longest)
    for number, (_, *angles) in enumerate(view.directions, start=1):
        azimuth, dip = angles if angles[1] <= 0 else (angles[0] + 180, -angles[1])
        at = equal_area(azimuth, dip)
        panel.plot(*at, "o", ms=13, mfc="white", mec="black", clip_on=False)
        panel.text(*at, str(number), ha="center", va="center_baseline", fontsize=9)
    panel.set(theta_zero_location="N", theta_direction=-1, ylim=(0, 1))
    panel.set_thetagrids(range(0, 360, 45), ["N", "45°", "E", "135°", "S", "225°", "W", "315°"])
    panel.set_rgrids(equal_area(0, [-60, -30])[1], ["", ""])
    panel.grid(color="white", alpha=0.4, lw=0.6)
    low, high = (factor * view.map_lag for factor in MAP_LAGS)
    panel.set_title(f"all directions, lags of {low:.4g} to {high:.4g}", fontsize=10)
    return image


def draw_plane(panel, ellipsoid):
    """Draw the plane through the two longer axes of an ellipsoid as a great circle."""
    major, pole = np.ravel(ellipsoid.major_axis()), np.ravel(ellipsoid.minor_axis())
    strike = np.array([-pole[1], pole[0], 0.0])
    # A level plane has no strike, and is the rim whatever axis stands for it.
    strike = strike if np.linalg.norm(strike) > 1e-9 * np.linalg.norm(pole) else major
    down = np.cross(strike, pole)
    down = -down if down[2] > 0 else down
    turn = np.linspace(0, np.pi, 181)[:, None]
    circle = np.cos(turn) * strike / np.linalg.norm(strike)
    circle += np.sin(turn) * down / np.linalg.norm(down)
    azimuths = np.degrees(np.arctan2(circle[:, 0], circle[:, 1]))
    dips = np.degrees(np.arcsin(np.clip(circle[:, 2], -1, 0)))
    theta, radius = equal_area(azimuths, dips)
    panel.plot(np.unwrap(theta), radius, color="#ff9d5c", lw=1.8)


def draw(path, net, curves, model, variance, view):
    """Draw the panels of all directions and the map beside them."""
    columns = min(2, len(curves))
    rows = math.ceil(len(curves) / columns)
    figure = plt.figure(figsize=(3.3 * columns + 4.6, max(2.6 * rows, 4.6)), layout="constrained")
    left, right = figure.subfigures(1, 2, width_ratios=[3.3 * columns, 4.6])
    panels = left.subplots(rows, columns, sharex=True, sharey=True, squeeze=False)
    model_curve = talvorix.variogram_computer(model, variance) if model else None
    for number, panel in enumerate(panels.flat):
        if number >= len(curves):
            panel.set_axis_off()
            continue
        name, *angles = view.directions[number]
        direction = f"{number + 1}  {name}", *angles
        draw_panel(panel, curves[number], direction, model_curve, variance, view)
    heights = [curve.semivariances.max(initial=variance) for curve in curves]
    panels[0, 0].set(xlim=(0, view.max_lag), ylim=(0, min(1.05 * max(heights), 2.2 * variance)))
    left.supxlabel("lag", fontsize=10)
    left.supylabel(f"semivariance of {view.name}", fontsize=10)
    panel = right.add_subplot(projection="polar")
    image = draw_map(panel, net, model, view)
    right.colorbar(image, ax=panel, location="bottom", shrink=0.8, label="semivariance / variance")
    figure.savefig(path, dpi=110)
    plt.close(figure)


def model_range(model_curve, direction, level, max_lag):
    """Return the first lag at which the model reaches a level, or NaN."""
    lags = np.linspace(0, max_lag, 2001)
    reached = np.array(model_curve.simulate(lags[:, None] * direction)) >= level
    return float(lags[reached.argmax()]) if reached.any() else math.nan


def print_table(curves, model, variance, view):
    """Print one line a direction: its pairs, its shortest lag and where it levels off."""
    level = REACHED * variance
    model_curve = talvorix.variogram_computer(model, variance) if model else None
    print(f"\n{'':<18}{'':>8}{'':>5}{'':>13}{'shortest':>10}   {REACHED:.0%} of variance at")
    print(f"{'direction':<18}{'azimuth':>8}{'dip':>5}{'pairs':>13}{'lag':>10}", end="")
    print(f"{'points':>10}{'model':>10}")
    for (name, azimuth, dip), curve in zip(view.directions, curves, strict=True):
        ranges = [range_reached(curve, level, view.max_lag)]
        if model_curve:
            along = np.ravel(talvorix.Direction(azimuth, dip))
            ranges.append(model_range(model_curve, along, level, view.max_lag))
        shown = [f"{reach:.4g}" if reach == reach else "-" for reach in ranges]
        shortest = f"{curve.lags[0]:.4g}" if len(curve.lags) else "-"
        print(f"{name:<18}{azimuth:>8.0f}{dip:>5.0f}{curve.pairs.sum():>13,}{shortest:>10}", end="")
        print("".join(f"{text:>10}" for text in shown))


def parse_arguments(argv):
    """Parse the command line; settings that are not given are absent from the result."""
    groups = DATA_OPTIONS | {
        "variogram": [
            ("direction", number_list, "'AZIMUTH DIP'", "of a panel, see below"),
            ("max_lag", float, "LAG", "longest lag drawn; default: half the samples' extent"),
            ("map_lag", float, "LAG", "of the map; default: the shortest range of the model"),
            ("angle_tol", float, "DEGREES", "of a pair to the direction; default: 15"),
            ("bandwidth", float, "SHARE", "half the tubes' width, in extents; default: 0.04"),
            ("most_samples", int, "N", "drawn at random from a larger table; default: 3500"),
        ],
    }
    description = "Draw directional variograms of drillhole composites and a model over them."
    return vars(make_parser(description, HELP, groups).parse_args(argv))


def read_view(settings, model, composites, along):
    """Check what is to be drawn, and choose what was not given by the samples' extent."""
    extent = np.ptp(composites.locations, axis=0).max()
    longest = longest_structure(model)
    max_lag = check_numbers("max_lag", [settings.get("max_lag", extent / 2)], (1,), positive=1)[0]
    map_lag = settings.get("map_lag", longest.info().r3() if longest else max_lag / 5)
    map_lag = check_numbers("map_lag", [map_lag], (1,), positive=1)[0]
    directions = choose_directions(settings.get("direction", []), model, along)
    return View(settings["value"], directions, max_lag, map_lag)


@status("variogram in all directions")
def compute(settings, composites, n_threads):
    """Compute the experimental variogram of the samples in all directions."""
    settings = SEARCH_DEFAULTS | settings
    angle_tol, bandwidth = (
        check_numbers(name, [settings[name]], (1,), positive=1)[0]
        for name in ("angle_tol", "bandwidth")
    )
    most = check_number(settings, "most_samples", whole=True, minimum=2)
    n = len(composites.values)
    drawn = np.random.default_rng(1).permutation(n)[:most] if n > most else np.arange(n)
    # Short windows and many lags: a lag is then shown close to its pairs' distance.
    return talvorix.compute_exp_variogram(
        composites.locations[drawn],
        composites.values[drawn],
        n_centers=len(drawn),
        angle_tol=angle_tol,
        n_lags=N_LAGS,
        bandwidth=bandwidth,
        window_size=1,
        n_threads=n_threads,
    )


def run(options):
    """Compute, print and draw what the options describe."""
    table, folder = options.pop("table"), Path(options.pop("out"))
    n_threads = options.pop("threads")
    if n_threads < 0:
        raise InputError(f"--threads: expected 0 or more, got {n_threads}")
    path = options.pop("model", None if table else CAMPAIGN)
    given = (read_settings(Path(path)) if path else {}) | options
    settings = DEFAULTS | given
    columns = read_columns(settings)
    model = read_model(settings) if settings["structure"] or settings["nugget"] else []
    # Holes give a direction to draw, which is needed when none was asked for.
    needs_holes = "hole" in given and "direction" not in given
    composites = read_composites(Path(table), columns, needs_holes) if table else drill_campaign()
    values = composites.values
    if np.ptp(values) == 0:
        column = columns["value"]
        raise InputError(f"column '{column}': expected values that differ, got {values[0]:g} only")
    if not np.ptp(composites.locations, axis=0).any():
        raise InputError(f"expected locations that differ, got {composites.locations[0]} only")
    along = hole_direction(composites) if needs_holes else None
    view = read_view(settings, model, composites, along)
    variogram = compute(settings, composites, n_threads)
    if not variogram.lags:
        raise InputError("no pair of samples was found: give a wider --angle-tol or --bandwidth")
    variance = float(values.var())
    net = compute_map(variogram, variance, view.map_lag)
    make_folder(folder)
    if not table:
        write_composites(folder / "composites.csv", composites, columns)

    curves = [pick_curve(variogram, *angles, view.max_lag) for _, *angles in view.directions]
    print(
        f"{len(values):,} samples, mean {values.mean():.4f}, variance {variance:.4f}; "
        f"{composites.skipped:,} rows without a value skipped"
    )
    print_table(curves, model, variance, view)
    draw(folder / "variogram.png", net, curves, model, variance, view)
    print(f"\nwritten: {folder / 'variogram.png'}")


def main(argv=None):
    """Run the script and return its exit code."""
    return carry_out(run, parse_arguments(argv), "variogram.py")


if __name__ == "__main__":
    sys.exit(main())
