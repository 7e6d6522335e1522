#!/usr/bin/env python3
"""Fit a variogram model of your own to drillhole composites, by a cost written as a formula.

The model is a nugget and nested structures that talvorix does not have, in several directions at
once: nugget and sills are shared, each direction has ranges of its own. It is written with + - * /
in nested() and SHAPES. Handed the variables of a formula instead of numbers, the same lines build
what talvorix.ceres.solve minimises with exact derivatives: one residual for each lag.

    fit_custom_model.py composites.csv --value cu_pct --hole hole_id --direction "35 -8" --out out

Every fit is repeated by scipy.optimize.least_squares from the same start, and all fits on lags of
which some are spoiled, with plain squares and with a robust loss.

Columns, model and directions are given as to variogram.py. Without a table the script drills the
small ore body of estimate_drillholes.py and looks along the axes of examples/campaign.toml.

The folder given by --out receives custom_model.png.
"""

from __future__ import annotations

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
    InputError,
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
    write_composites,
)
from scipy.optimize import least_squares
from variogram import compute, hole_direction, pick_curve, read_view
from talvorix.jet import ast

FIT_DEFAULTS = {
    "shapes": ["hyperbolic", "quadratic"],
    "cauchy": 0.05,
    "spoiled": 0.1,
    "most_samples": 2500,
}
# Sills and nugget in variances, ranges in longest lags.
MOST_SILL, LEAST_RANGE, MOST_RANGE = 3.0, 1e-3, 20.0
SPOILED_FACTOR = 2.5
SOLVES, SETTLED = 20, 1e-9
COLOURS = {"squares": "#d1541f", "cauchy": "#2a8c5a"}

HELP = """\
shapes:
  A structure adds its sill times a shape of r, the lag by the range. Ranges are practical: 95 % of
  the sill is reached at them.
    hyperbolic  1 - 1 / (1 + u)^2, with u = 3.47 r; rises straight from 0, as an exponential one
    steep       1 - 1 / (1 + u)^4, with u = 1.11 r; comes nearer to the exponential one
    quadratic   u^2 / (1 + u^2),   with u = 4.36 r; starts level, as a Gaussian one
  All three belong to covariances that are valid in any number of dimensions. --shapes may name a
  shape twice. A shape of your own is a function in SHAPES; it must do with + - * / and have numbers
  to the right of - and /.

cost:
  Semivariances are taken by the variance of the samples, and so are nugget, sills and residuals. A
  squared residual is weighted by its lag's share of the pairs of its direction, so that directions
  count alike, and weights are 1 on average. The cost is half the sum of squares; with the robust
  loss, c being --cauchy, a residual r counts as c^2 log(1 + (r / c)^2): about as its square below
  c, and hardly more for growing further beyond it.

  Of the lags --spoiled are drawn at random and their semivariances made 2.5 times as large. How far
  a fit to these departs from the fit by squares to what was measured is the root of the mean
  squared difference, weighted alike.

directions:
  As in variogram.py, whose --help tells how pairs are found and what --direction is. A model whose
  ranges differ between directions is an ellipsoid's if these are its axes.
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


def nested(shapes, parameters, direction, lag):
    """Evaluate the model, or build its formula.

    Parameters
    ----------
    shapes : list of str
    parameters : numpy.ndarray, or list of talvorix.jet.ast.Variable
        Nugget, sills, and the ranges of all shapes for each direction in turn.
    direction : int or numpy.ndarray
        Number of the direction.
    lag : numpy.ndarray or talvorix.jet.ast.Value

    Returns
    -------
    numpy.ndarray or talvorix.jet.ast.Transformation
    """
    count = len(shapes)
    total = parameters[0]
    for number, shape in enumerate(shapes):
        reach = parameters[1 + count + direction * count + number]
        total = total + parameters[1 + number] * SHAPES[shape](lag / reach)
    return total


@dataclass
class Lags:
    """What is fitted, one entry a lag: semivariances in variances; roots of the weights."""

    directions: np.ndarray
    lags: np.ndarray
    semivariances: np.ndarray
    weights: np.ndarray


@dataclass
class Problem:
    """A model to fit: the shapes, and names, start and bounds of its parameters."""

    shapes: list
    names: list
    start: np.ndarray
    bounds: np.ndarray


@dataclass
class Fit:
    """A solution, its cost and the seconds it took; `history` holds the parameters on the way."""

    parameters: np.ndarray
    cost: float
    seconds: float
    history: list


# Fit ---------------------------------------------------------------------------------------------


def gather_lags(curves, variance):
    """Put the lags of all directions together, and weight them by their pairs."""
    directions = np.repeat(np.arange(len(curves)), [len(curve.lags) for curve in curves])
    shares = np.concatenate([curve.pairs / curve.pairs.sum() for curve in curves])
    return Lags(
        directions,
        np.concatenate([curve.lags for curve in curves]),
        np.concatenate([curve.semivariances for curve in curves]) / variance,
        np.sqrt(shares * len(shares) / len(curves)),
    )


def pose(shapes, names, max_lag):
    """Name the parameters, and choose where the search starts and how far it may go."""
    labels = ["nugget", *(f"sill {number + 1}" for number in range(len(shapes)))]
    start, upper = [0.1] + [0.9 / len(shapes)] * len(shapes), [MOST_SILL] * len(labels)
    lower = [0.0] * len(labels)
    for name in names:
        for number, reach in enumerate(np.geomspace(0.2, 1.0, len(shapes)) * max_lag):
            labels.append(f"range {number + 1}, {name}")
            start.append(reach)
            lower.append(LEAST_RANGE * max_lag)
            upper.append(MOST_RANGE * max_lag)
    return Problem(shapes, labels, np.array(start), np.array([lower, upper]))


def residuals_of(problem, lags):
    """Return the function that gives the weighted residuals of some parameters."""

    def residuals(parameters):
        model = nested(problem.shapes, parameters, lags.directions, lags.lags)
        return (model - lags.semivariances) * lags.weights

    return residuals


def cost_of(residuals, cauchy):
    """Return what talvorix.ceres.solve and scipy minimise."""
    squares = residuals @ residuals
    return float(cauchy**2 * np.log1p((residuals / cauchy) ** 2).sum() if cauchy else squares) / 2


def fit_formula(problem, lags, cauchy, n_threads=1):
    """Fit by talvorix: every lag gives a formula, whose value is its residual."""
    begin = time.perf_counter()
    variables = [
        ast.Variable(name, value) for name, value in zip(problem.names, problem.start, strict=True)
    ]
    costs = []
    for direction, lag, semivariance, weight in zip(
        lags.directions.tolist(), lags.lags, lags.semivariances, lags.weights, strict=True
    ):
        model = nested(problem.shapes, variables, direction, ast.Value(lag))
        costs.append(ast.Scalar(variables, (model - semivariance) * weight))
    boundary = dict(zip(problem.names, zip(*problem.bounds.tolist(), strict=True), strict=True))
    history = []

    def watch(parameters):
        history.append(np.array(parameters))
        return True  # anything else would stop the search

    best, cost = talvorix.ceres.solve(
        costs,
        variables,
        boundary,
        cauchy_loss=cauchy,
        n_threads=n_threads,
        validation_cb=watch,
    )
    parameters = np.array([best[name] for name in problem.names])
    return Fit(parameters, cost, time.perf_counter() - begin, history)


def fit_scipy(problem, lags, cauchy):
    """Fit by scipy: the same residuals as one array, derivatives by differences."""
    begin = time.perf_counter()
    found = least_squares(
        residuals_of(problem, lags),
        problem.start,
        bounds=problem.bounds,
        x_scale="jac",
        loss="cauchy" if cauchy else "linear",
        f_scale=cauchy or 1.0,
        ftol=1e-12,
        xtol=1e-12,
        gtol=1e-12,
        max_nfev=2000,
    )
    return Fit(found.x, found.cost, time.perf_counter() - begin, [])
