#!/usr/bin/env python3
"""Fit a variogram model of your own to drillhole composites, by a cost written as a formula.

The model is a nugget and nested structures that talvorix does not have, in several directions at
once. It is written with + - * / in nested() and SHAPES. Handed the variables of a formula instead
of numbers, the same lines build what talvorix.ceres.solve minimises with exact derivatives: one
residual for each lag, with bounds on all parameters.

    fit_custom_model.py composites.csv --value cu_pct --hole hole_id --direction "35 -8" --out out

Lags are fitted by squares and with a robust loss, as they were measured and again with some of them
spoiled. scipy.optimize.least_squares repeats every fit from the same starts.

Columns, model and directions are given as to variogram.py. Without a table the script drills the
small ore body of estimate_drillholes.py and looks along the axes of examples/campaign.toml.

The folder given by --out receives custom_model.png.
"""

from __future__ import annotations

import sys
import time
from dataclasses import dataclass, replace
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
from scipy.optimize import least_squares
from talvorix.jet import ast
from variogram import (
    LAG_CLASSES,
    THIN,
    Curve,
    compute,
    hole_direction,
    pick_curve,
    read_view,
)

FIT_DEFAULTS = {
    "shapes": "hyperbolic quadratic",
    "cauchy": 0.1,
    "spoiled": 0.15,
    # Of variogram.py's options. Fits need fewer points than the eye.
    "most_samples": 2500,
}
# Nugget and sills in variances, ranges in longest lags; a stretch or its inverse.
MOST_SILL, LEAST_RANGE, MOST_RANGE, MOST_STRETCH = 3.0, 0.02, 3.0, 20.0
SPOILED_FACTOR = 2.5
# Where searches start: the first structure's range and the last one's, in longest lags. Of several
# structures one may lose its sill on the way, and then it depends on the start where they end.
STARTS = (0.15, 0.6), (0.05, 0.3), (0.3, 1.5)
# How near to a bound a parameter counts as being there, as a share of where it started.
AT_BOUND = 1e-3
MOST_ROUNDS, SETTLED = 20, 1e-9
LOSSES = {"squares": "#d1541f", "robust": "#2a8c5a"}

HELP = """\
model:
  A structure adds its sill times a shape of r, the lag by the range. Ranges are practical: 95 % of
  the sill is reached at them.
    hyperbolic  1 - 1 / (1 + u)^2, with u = 3.47 r; rises straight from 0, as an exponential one
    steep       1 - 1 / (1 + u)^4, with u = 1.11 r; comes nearer to the exponential one
    quadratic   u^2 / (1 + u^2),   with u = 4.36 r; starts level, as a Gaussian one
  All three belong to covariances that are valid in any number of dimensions. --shapes may name a
  shape twice. A shape of your own is a function in SHAPES; it must do with + - * /, and no plain
  number may stand to the left of - or /.

  Nugget, sills and ranges are those along the first direction. Every other one has a stretch, by
  which it multiplies all ranges: an ellipsoid's, if the directions are its axes.

cost:
  The lags of a direction are pooled in 24 classes, which give a residual each. Semivariances, and
  with them nugget, sills and residuals, are taken by the variance of the samples. Squares are
  weighted by pairs / lag^2, scaled so that directions count alike and weights are 1 on average. The
  cost is half the sum of squares. With the robust loss, c being --cauchy, a weighted residual r
  counts as c^2 log(1 + (r / c)^2): as its square far below c, and beyond it hardly more for
  growing further.

  Of the lags --spoiled, a share, are drawn at random and their semivariances made 2.5 times as
  large. How far a fit departs is the root of the mean squared difference, weighted alike, from the
  fit by squares to what was measured.

  Both solvers start from three places each and keep the best end. Seconds are those of all three,
  iterations those of the best one. Talvorix's solver stops when a step gains less than 1e-6 of the
  cost, so costs are some 1e-6 apart, and more where lags leave the model undetermined: with too
  many shapes, say.

directions:
  As in variogram.py, whose --help tells how pairs are found and what --direction is. A covariance
  model only gives its axes.
"""


def hyperbolic(r):
    """Return 1 - 1 / (1 + u)^2, of which 95 % is at r = 1."""
    u = r * (20**0.5 - 1)
    return u * (u + 2.0) / ((u + 1.0) * (u + 1.0))


def steep(r):
    """Return 1 - 1 / (1 + u)^4, of which 95 % is at r = 1."""
    squared = (r * (20**0.25 - 1) + 1.0) * (r * (20**0.25 - 1) + 1.0)
    return (squared * squared - 1.0) / (squared * squared)


def quadratic(r):
    """Return u^2 / (1 + u^2), of which 95 % is at r = 1."""
    squared = r * r * 19.0
    return squared / (squared + 1.0)


SHAPES = {"hyperbolic": hyperbolic, "steep": steep, "quadratic": quadratic}


def nested(shapes, parameters, lag):
    """Evaluate the model, or build its formula.

    Parameters
    ----------
    shapes : list of str
    parameters : sequence of float or talvorix.jet.ast.Variable
        Nugget, then sills, then ranges; what follows is not read.
    lag : numpy.ndarray or talvorix.jet.ast.Expression
        By the stretch of its direction.

    Returns
    -------
    numpy.ndarray or talvorix.jet.ast.Transformation
    """
    total, count = parameters[0], len(shapes)
    for number, shape in enumerate(shapes, start=1):
        total = total + parameters[number] * SHAPES[shape](lag / parameters[count + number])
    return total


def stretches_of(shapes, parameters):
    """Return the stretches of all directions."""
    return [1.0, *parameters[1 + 2 * len(shapes) :]]


@dataclass
class Lags:
    """What is fitted, one entry a lag: semivariances in variances, and roots of the weights."""

    directions: np.ndarray
    lags: np.ndarray
    semivariances: np.ndarray
    weights: np.ndarray


@dataclass
class Problem:
    """A model to fit: the shapes, and names, starts and bounds (lower, upper) of its parameters."""

    shapes: list
    names: list
    starts: np.ndarray
    bounds: np.ndarray


@dataclass
class Fit:
    """A solution, its cost and the seconds it took; `history` holds the parameters on the way."""

    parameters: np.ndarray
    cost: float
    seconds: float
    history: list


# Fit ---------------------------------------------------------------------------------------------


def pool(curve, max_lag):
    """Average a direction over equal classes of lags, but for those with hardly any pairs."""
    classes = np.minimum(curve.lags / max_lag * LAG_CLASSES, LAG_CLASSES - 1).astype(int)
    pairs = np.bincount(classes, curve.pairs)
    some = pairs > THIN * pairs.max(initial=0)
    lags, semivariances = (
        np.bincount(classes, curve.pairs * column)[some] / pairs[some]
        for column in (curve.lags, curve.semivariances)
    )
    return Curve(lags, semivariances, pairs[some], curve.angles)


def gather_lags(curves, variance):
    """Put the lags of all directions together, and weight them."""
    shares = []
    for curve in curves:
        weights = curve.pairs / curve.lags**2
        shares.append(weights / weights.sum())
    shares = np.concatenate(shares)
    return Lags(
        np.repeat(np.arange(len(curves)), [len(curve.lags) for curve in curves]),
        np.concatenate([curve.lags for curve in curves]),
        np.concatenate([curve.semivariances for curve in curves]) / variance,
        np.sqrt(shares * len(shares) / len(curves)),
    )


def spoil(lags, share):
    """Return a copy of which some semivariances are far too large, and tell which."""
    count = round(share * len(lags.lags))
    drawn = np.random.default_rng(1).permutation(len(lags.lags))[:count]
    semivariances = lags.semivariances.copy()
    semivariances[drawn] *= SPOILED_FACTOR
    return replace(lags, semivariances=semivariances), drawn


def pose(shapes, names, max_lag):
    """Name the parameters, and choose where the searches start and how far they may go."""
    count = len(shapes)
    rows = [("nugget", 0.1, 0.0, MOST_SILL)]
    rows += [(f"sill {k + 1}", 0.9 / count, 0.0, MOST_SILL) for k in range(count)]
    rows += [
        (f"range {k + 1}", max_lag, LEAST_RANGE * max_lag, MOST_RANGE * max_lag)
        for k in range(count)
    ]
    rows += [(f"stretch, {name}", 1.0, 1 / MOST_STRETCH, MOST_STRETCH) for name in names[1:]]
    labels, start, lower, upper = zip(*rows, strict=True)
    starts = np.tile(start, (len(STARTS), 1))
    for row, ends in zip(starts, STARTS, strict=True):
        row[1 + count : 1 + 2 * count] *= np.geomspace(*ends, count)
    return Problem(shapes, list(labels), starts, np.array([lower, upper]))


def residuals_of(problem, lags, parameters):
    """Return the weighted residuals at some parameters."""
    stretches = np.array(stretches_of(problem.shapes, parameters))
    model = nested(problem.shapes, parameters, lags.lags / stretches[lags.directions])
    return (model - lags.semivariances) * lags.weights


def cost_of(residuals, cauchy):
    """Return what is minimised; without the robust loss when `cauchy` is 0."""
    squares = residuals**2
    return float((cauchy**2 * np.log1p(squares / cauchy**2) if cauchy else squares).sum()) / 2


def solve(problem, lags, cauchy, n_threads, start, free, history):
    """Minimise over the free parameters by formulas; return all of them, and the cost.

    Parameters
    ----------
    problem : Problem
    lags : Lags
    cauchy : float
        0 for plain squares.
    n_threads : int
    start : numpy.ndarray
    free : numpy.ndarray of bool
        The others are constants of the formulas.
    history : list
        Receives the parameters after every iteration.
    """
    names = [name for name, varied in zip(problem.names, free, strict=True) if varied]
    variables = [ast.Variable(name, value) for name, value in zip(names, start[free], strict=True)]
    remaining = iter(variables)
    parameters = [next(remaining) if varied else float(start[k]) for k, varied in enumerate(free)]
    stretches = stretches_of(problem.shapes, parameters)
    costs = []
    for direction, lag, semivariance, weight in zip(
        lags.directions, lags.lags, lags.semivariances, lags.weights, strict=True
    ):
        model = nested(problem.shapes, parameters, ast.Value(lag) / stretches[direction])
        costs.append(ast.Scalar(variables, (model - semivariance) * weight))

    def watch(values):
        now = start.copy()
        now[free] = values
        history.append(now)
        return True  # what is not true stops the search

    boundary = dict(zip(names, zip(*problem.bounds[:, free].tolist(), strict=True), strict=True))
    best, cost = talvorix.ceres.solve(
        costs,
        variables,
        boundary,
        cauchy_loss=cauchy,
        n_threads=n_threads,
        validation_cb=watch,
    )
    solution = start.copy()
    solution[free] = [best[name] for name in names]
    return solution, cost


def fit_formula(problem, lags, cauchy, n_threads=1):
    """Fit by talvorix: every lag gives a formula, whose value is its residual.

    Steps that bounds cut short gain little, and the solver stops when a step gains less than 1e-6
    of the cost. So what came to rest at a bound is held there while the others go on, then all are
    free again, and so forth for as long as that gains anything.
    """
    begin, best = time.perf_counter(), None
    lower, upper = problem.bounds
    for start in problem.starts:
        fit, now, free, history = None, start, np.full(len(start), True), []
        for _ in range(MOST_ROUNDS):
            now, cost = solve(problem, lags, cauchy, n_threads, now, free, history)
            if fit and cost > (1 - SETTLED) * fit.cost:
                break
            fit = Fit(now, cost, 0.0, history)
            low, high = (np.abs(now - bound) <= AT_BOUND * start for bound in (lower, upper))
            inside = ~(low | high)
            free = inside if free.all() and inside.any() else np.full(len(start), True)
            now = np.where(free, now, np.where(low, lower, upper))
        if best is None or fit.cost < best.cost:
            best = fit
    return replace(best, seconds=time.perf_counter() - begin)


def fit_scipy(problem, lags, cauchy):
    """Fit by scipy: the same residuals as one array, derivatives by differences."""
    begin = time.perf_counter()
    found = [
        least_squares(
            lambda parameters: residuals_of(problem, lags, parameters),
            start,
            bounds=problem.bounds,
            x_scale="jac",
            loss="cauchy" if cauchy else "linear",
            f_scale=cauchy or 1.0,
            ftol=1e-12,
            xtol=1e-12,
            gtol=1e-12,
            max_nfev=2000,
        )
        for start in problem.starts
    ]
    best = min(found, key=lambda result: result.cost)
    return Fit(best.x, float(best.cost), time.perf_counter() - begin, [])


def fit_all(problem, lags, spoiled, cauchy, n_threads):
    """Fit measured and spoiled lags with both losses, and return pairs of fits by (lags, loss)."""
    fits = {}
    for name, given in (("measured", lags), ("spoiled", spoiled)):
        for loss, scale in zip(LOSSES, (0.0, cauchy), strict=True):
            with status(f"fit of {name} lags, {loss}"):
                fits[name, loss] = (
                    fit_formula(problem, given, scale, n_threads),
                    fit_scipy(problem, given, scale),
                )
    return fits


# Results -----------------------------------------------------------------------------------------


def print_tables(problem, names, lags, fits):
    """Print the parameters of the first fit, and what all fits cost."""
    squares, robust = (fits["measured", loss] for loss in LOSSES)
    print(f"\n{'':<26}{'squares':^20}{'robust':^20}")
    print(f"{'parameter':<26}" + f"{'talvorix':>10}{'scipy':>10}" * 2)
    for k, name in enumerate(problem.names):
        shown = f"{name}, {names[0]}" if name.startswith("range") else name
        shape = problem.shapes[int(name.split()[1]) - 1] if name.startswith("sill") else ""
        shown = f"{shown}, {shape}" if shape else shown
        values = [fit.parameters[k] for fit in (*squares, *robust)]
        digits = 1 if name.startswith("range") else 4
        print(f"{shown:<26}" + "".join(f"{value:>10.{digits}f}" for value in values))

    clean = residuals_of(problem, lags, squares[0].parameters)
    print(f"\n{'':<20}{'cost':^26}{'':>12}{'seconds':^20}")
    print(f"{'lags':<10}{'loss':<10}{'talvorix':>13}{'scipy':>13}{'apart':>12}", end="")
    print(f"{'talvorix':>10}{'scipy':>10}{'iterations':>12}{'departs':>9}")
    for (name, loss), (own, other) in fits.items():
        apart = (own.cost - other.cost) / other.cost
        departure = residuals_of(problem, lags, own.parameters) - clean
        print(f"{name:<10}{loss:<10}{own.cost:>13.8f}{other.cost:>13.8f}{apart:>12.1e}", end="")
        print(f"{own.seconds:>10.3f}{other.seconds:>10.3f}{len(own.history):>12}", end="")
        print(f"{np.sqrt(np.mean(departure**2)):>9.4f}")


def draw_row(panels, problem, lags, fits, spoiled=()):
    """Draw the lags of one row of panels, one a direction, and the fits to them."""
    sizes = 8 + 60 * lags.weights / lags.weights.max()
    bad = np.isin(np.arange(len(lags.lags)), spoiled)
    longest = lags.lags.max() * 1.03
    for number, panel in enumerate(panels):
        here = lags.directions == number
        for chosen, marker in ((here & ~bad, "o"), (here & bad, "X")):
            points = lags.lags[chosen], lags.semivariances[chosen], sizes[chosen]
            panel.scatter(*points, c="black" if marker == "X" else "#3b6fb6", marker=marker, lw=0)
        at = np.linspace(0, longest, 400)
        for loss, (own, other) in fits.items():
            curves = [
                nested(
                    problem.shapes,
                    fit.parameters,
                    at / stretches_of(problem.shapes, fit.parameters)[number],
                )
                for fit in (own, other)
            ]
            panel.plot(at, curves[0], color=LOSSES[loss], lw=2.2, label=f"talvorix, {loss}")
            label = "scipy, both" if loss == "robust" else None
            panel.plot(at, curves[1], color="black", lw=1, ls=":", label=label)
        panel.axhline(1, color="0.55", lw=1, ls="--")


def draw(path, problem, directions, measured, spoiled, drawn, fits, cauchy):
    """Draw measured lags above spoiled ones, with all fits, and the way of the fits beside them."""
    columns = len(directions)
    figure = plt.figure(figsize=(2.5 * columns + 3.1, 5.8), layout="constrained")
    left, right = figure.subfigures(1, 2, width_ratios=[2.5 * columns, 3.1])
    rows = left.subplots(2, columns, sharex=True, sharey="row", squeeze=False)
    for panels, (name, lags) in zip(
        rows, (("measured", measured), ("spoiled", spoiled)), strict=True
    ):
        of_lags = {loss: fits[name, loss] for loss in LOSSES}
        draw_row(panels, problem, lags, of_lags, drawn if name == "spoiled" else ())
        panels[0].set(ylabel=f"semivariance / variance, {name}", xlim=(0, None))
        panels[0].set_ylim(0, 1.05 * lags.semivariances.max())
    for panel, (name, azimuth, dip) in zip(rows[0], directions, strict=True):
        panel.set_title(f"{name}\nazimuth {azimuth:.0f}°, dip {dip:.0f}°", fontsize=9)
    rows[0, -1].legend(fontsize=7, loc="lower right")
    left.supxlabel("lag", fontsize=10)

    ways = right.subplots(2, 1, sharex=True)
    for panel, (name, lags) in zip(
        ways, (("measured", measured), ("spoiled", spoiled)), strict=True
    ):
        for loss, scale in zip(LOSSES, (0.0, cauchy), strict=True):
            history = fits[name, loss][0].history
            costs = [cost_of(residuals_of(problem, lags, p), scale) for p in history]
            above = np.array(costs) / min(costs) - 1
            panel.plot(above, color=LOSSES[loss], lw=1.6, label=loss)
        panel.set(yscale="log", ylim=(1e-7, None), ylabel=f"cost above its last / last, {name}")
    ways[0].set_title("talvorix on the way", fontsize=9)
    ways[0].legend(fontsize=8)
    ways[1].set_xlabel("iteration")
    figure.savefig(path, dpi=85)
    plt.close(figure)


def parse_arguments(argv):
    """Parse the command line; settings that are not given are absent from the result."""
    groups = DATA_OPTIONS | {
        "variogram": [
            ("direction", number_list, "'AZIMUTH DIP'", "to fit, see variogram.py"),
            ("max_lag", float, "LAG", "longest lag fitted; default: half the samples' extent"),
            ("angle_tol", float, "DEGREES", "of a pair to the direction; default: 15"),
            ("bandwidth", float, "SHARE", "half the tubes' width, in extents; default: 0.04"),
            ("most_samples", int, "N", "drawn at random from a larger table; default: 2500"),
        ],
        "fit": [
            ("shapes", str, "'SHAPE ...'", "of the structures; default: hyperbolic quadratic"),
            ("cauchy", float, "C", "scale of the robust loss, see below; default: 0.1"),
            ("spoiled", float, "SHARE", "of the lags, see below; default: 0.15"),
        ],
    }
    description = "Fit a variogram model of your own to drillhole composites."
    return vars(make_parser(description, HELP, groups).parse_args(argv))


def read_fit(settings):
    """Check the settings of the fit; return the shapes, the robust loss's scale and the share."""
    shapes = settings["shapes"].replace(",", " ").split()
    for shape in shapes or [""]:
        if shape not in SHAPES:
            raise InputError(f"shapes: expected some of {', '.join(SHAPES)}, got '{shape}'")
    cauchy = check_numbers("cauchy", [settings["cauchy"]], (1,), positive=1)[0]
    spoiled = check_number(settings, "spoiled")
    if spoiled >= 0.5:
        raise InputError(f"spoiled: expected a share below 0.5, got {spoiled:g}")
    return shapes, cauchy, spoiled


def check_lags(curves, directions, problem):
    """Refuse directions without lags, and fewer lags than parameters."""
    for curve, (name, azimuth, dip) in zip(curves, directions, strict=True):
        if not len(curve.lags):
            raise InputError(
                f"direction: no pairs of samples toward {azimuth:g} {dip:g} ({name}); expected "
                "some: give another, a longer --max-lag, or a wider --angle-tol or --bandwidth"
            )
    count, least = sum(len(curve.lags) for curve in curves), len(problem.names)
    if count < least:
        raise InputError(
            f"shapes: the model has {least} parameters for {count} classes of lags; expected at "
            "least as many lags: give fewer shapes or a longer --max-lag"
        )


def run(options):
    """Fit, print and draw what the options describe."""
    table, folder = options.pop("table"), Path(options.pop("out"))
    n_threads = options.pop("threads")
    if n_threads < 0:
        raise InputError(f"--threads: expected 0 or more, got {n_threads}")
    path = options.pop("model", None if table else CAMPAIGN)
    given = (read_settings(Path(path)) if path else {}) | options
    settings = DEFAULTS | FIT_DEFAULTS | given
    shapes, cauchy, share = read_fit(settings)
    columns = read_columns(settings)
    model = read_model(settings) if settings["structure"] or settings["nugget"] else []
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
    curves = [
        pool(pick_curve(variogram, *angles, view.max_lag), view.max_lag)
        for _, *angles in view.directions
    ]
    names, variance = [name for name, *_ in view.directions], float(values.var())
    problem = pose(shapes, names, view.max_lag)
    check_lags(curves, view.directions, problem)
    make_folder(folder)
    if not table:
        write_composites(folder / "composites.csv", composites, columns)

    lags = gather_lags(curves, variance)
    spoiled, drawn = spoil(lags, share)
    print(
        f"{len(values):,} samples, mean {values.mean():.4f}, variance {variance:.4f}; "
        f"{composites.skipped:,} rows without a value skipped"
    )
    print(f"lags: {len(lags.lags)}, to be spoiled: {len(drawn)}; directions: {len(names)}")
    fits = fit_all(problem, lags, spoiled, cauchy, n_threads)
    print_tables(problem, names, lags, fits)
    picture = folder / "custom_model.png"
    draw(picture, problem, view.directions, lags, spoiled, drawn, fits, cauchy)
    print(f"\nwritten: {picture}")


def main(argv=None):
    """Run the script and return its exit code."""
    return carry_out(run, parse_arguments(argv), "fit_custom_model.py")


if __name__ == "__main__":
    sys.exit(main())
