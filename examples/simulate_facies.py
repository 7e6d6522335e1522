#!/usr/bin/env python3
"""Simulate lithology classes from drillholes on a grid, and compare their transitions.

    simulate_facies.py intervals.csv --category lithology --angles "35 -8 0" \\
        --origin "0 0 0" --cells "60 50 30" --size "10 10 4" --out out

A row of the table is a point in a hole, with a class as text or as a number; rows without one are
skipped. Without a table the script makes a small deposit of four classes, flat lenses of them, and
drills it.

The folder given by --out receives facies.npz, facies.csv (x, y, z of the cells, their most probable
class and the probability of each class) and facies.png. In facies.npz the array `realisations` has
the shape (realisations, nx, ny, nz) and numbers the classes in the order of `classes`;
`probabilities` has (classes, nx, ny, nz).
"""

from __future__ import annotations

import argparse
import csv
import math
import sys
import time
from dataclasses import dataclass, replace
from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
import talvorix
from estimate_drillholes import (
    InputError,
    axes_of,
    carry_out,
    check_number,
    check_numbers,
    make_folder,
    number_list,
    read_cell,
    read_grid,
    status,
    tracked,
)
from matplotlib.colors import ListedColormap
from scipy.optimize import least_squares
from talvorix import ast

DEFAULTS = {
    "x": "x",
    "y": "y",
    "z": "z",
    "category": "lithology",
    "angles": [0.0, 0.0, 0.0],
    "realisations": 10,
    "neighbors": 2,
    "stretch": 4.0,
    "seed": 1,
}
DEMO_GRID = {"origin": [0, 0, 0], "cells": [60, 50, 30], "size": [10, 10, 4]}
DEMO_CLASSES = "ore", "sandstone", "shale", "siltstone"
MOST_CLASSES, MOST_SAMPLES, CHUNK = 10, 5000, 200
LAG_CLASSES = 20
# Of a class of lags, the least share of the pairs in the fullest one that it needs to be used.
THIN = 0.01
# Pairs across the layers and vertical ones may be off by so many degrees; those within a layer by a
# share of the extent across the layers.
TOLERANCE, BAND = 20.0, 0.025
# What cells are apart at least in the coordinates handed over; see HELP.
CELL = 100.0
EXAMPLES = {
    "origin": "--origin '5000 12000 -300'",
    "cells": "--cells '60 40 20'",
    "size": "--size '10 10 5'",
}
LABELS = {
    "model": "model",
    "samples": "samples",
    "realisations": "realisations",
    "as fitted": "realisation without --stretch",
}
COLOURS = (
    *("#c23b2c", "#dcb866", "#74879c", "#5d9c79", "#6b4c93", "#3f7fbf", "#e38d3f"),
    *("#a5c96e", "#8b6b57", "#2e3d45"),
)

HELP = """\
transition probabilities:
  t_ij(h), the probability of class j at the distance h from class i, is
      p_j + (delta_ij - p_j) rho,    rho = 1 / (1 + s) or 1 / (1 + s)^2,
      s = (distance within layers / range 1)^2 + (distance across them / range 2)^2,
  p being the shares of the samples, with no declustering. --angles turn the layers: azimuth, dip
  and rake of an ellipsoid whose first two axes lie in them. Both ranges and the power are fitted to
  the transitions between samples by least squares, weighted by pairs / lag, both directions alike.
  --ranges "WITHIN ACROSS" gives the ranges, and only the power is fitted.
  The model is symmetric. It knows no order of classes, such as sandstone over shale more often than
  under it, and one rho serves all classes. Transitions are counted both ways to match.

simulation:
  Cells are visited along a random path. The --neighbors nearest samples and as many of the cells
  simulated before vote: the row of transition probabilities from each one to the cell, weighted by
  the inverse of the squared distance. The class is drawn from the weighted mean. Weights are
  Euclidean, whatever the ellipsoid of the search; the script therefore hands over coordinates in
  which layers are compressed by the ratio of the ranges, and search, weights and model share one
  metric.

limits of the method:
  A mean of votes is no joint probability. Votes in agreement make no class more certain than the
  surest of them, and neighbours in one hole count as if they were independent. So realisations are
  rougher than the model: single cells stray, and more so with more neighbours and with ranges that
  are only a few cells long. --stretch multiplies the ranges for the simulation, which makes up for
  part of that; the picture has the transitions with and without it, beside the fitted model.
  Where no neighbour is known - no sample at all, and no cell before - every class is equally
  likely, whatever its share. Here some samples are always known.

what is honoured:
  A cell with samples takes the most frequent class of them, that of the sample nearest to its
  centre among equals, as a datum in the centre. There the weight 1 / (d^2 + 1e-6) is 1e6; all
  others are below 1e-3, since coordinates are scaled until cells are at least 100 apart. So such
  cells keep their class, and the script counts them. Thinner intervals in the same cell are lost.
  Samples outside the grid stay where they are. Shares of classes are not honoured, but close.
"""


@dataclass
class Samples:
    """Points in drillholes: `locations` (n, 3), `codes` (n,) and the names these stand for."""

    locations: np.ndarray
    codes: np.ndarray
    classes: list
    skipped: int = 0


@dataclass
class Transitions:
    """Transition probabilities (m, k, k) at m lags, and the pairs behind each of these."""

    lags: np.ndarray
    probabilities: np.ndarray
    pairs: np.ndarray


@dataclass
class Model:
    """Shares of the classes, unit axes of the layers as rows, ranges within and across, a power."""

    shares: np.ndarray
    axes: np.ndarray
    ranges: np.ndarray
    power: int

    def stretch(self, locations):
        """Return coordinates in which both ranges are that across the layers."""
        return np.asarray(locations) @ self.axes.T * ([self.ranges[1] / self.ranges[0]] * 2 + [1.0])

    def transitions(self, separations):
        """Return the matrices of transition probabilities, one for each vector."""
        squared = (self.stretch(separations) ** 2).sum(axis=1) / self.ranges[1] ** 2
        rho = (1 + squared[:, None, None]) ** -self.power
        return self.shares + (np.eye(len(self.shares)) - self.shares) * rho

    def formulas(self, reach):
        """Write the same as formulas, for coordinates in which both ranges are `reach`."""
        u, v = (ast.Variable(name, [0.0] * 3) for name in "uv")
        apart = u - v
        nearness = ast.Value(1.0) / (apart * apart / reach**2 + 1.0)
        rho = nearness if self.power == 1 else nearness * nearness
        rows = np.eye(len(self.shares)) - self.shares
        kernels = [
            [
                rho * float(slope) + float(share)
                for slope, share in zip(row, self.shares, strict=True)
            ]
            for row in rows
        ]
        return talvorix.transiogram.Transiogram(u, v, kernels)


# Data --------------------------------------------------------------------------------------------


def read_samples(path, columns):
    """Read the table of classes; rows are numbered as lines of the file.

    Parameters
    ----------
    path : pathlib.Path
        A CSV file with a header.
    columns : dict
        The names of the columns x, y, z and category.

    Returns
    -------
    Samples
        The rows that have a class; numbers are put in order as numbers.
    """
    points, names, skipped = [], [], 0
    try:
        with path.open(newline="", encoding="utf-8-sig") as stream:
            reader = csv.DictReader(stream)
            header = reader.fieldnames or []
            for role, column in columns.items():
                if column not in header:
                    raise InputError(
                        f"{path}: no column '{column}' for --{role}; "
                        f"row 1 has {', '.join(header) or 'nothing'}"
                    )
            for row in reader:
                line, name = reader.line_num, row[columns["category"]]
                if name is None:
                    raise InputError(f"{path}, row {line}: fewer cells than the header has")
                if not name.strip():
                    skipped += 1
                    continue
                points.append([read_cell(path, line, columns[r], row[columns[r]]) for r in "xyz"])
                names.append(name.strip())
    except (OSError, UnicodeDecodeError, csv.Error) as problem:
        raise InputError(f"{path}: cannot be read: {problem}") from None
    classes, codes = np.unique(names, return_inverse=True)
    if not 2 <= len(classes) <= MOST_CLASSES:
        raise InputError(
            f"{path}: column '{columns['category']}' has {len(classes)} different classes; "
            f"expected 2 to {MOST_CLASSES}"
        )
    try:
        order = np.argsort(classes.astype(float), kind="stable")
    except ValueError:
        order = np.arange(len(classes))
    return Samples(np.array(points), np.argsort(order)[codes], classes[order].tolist(), skipped)


def make_deposit(seed=5):
    """Return a function that tells the class anywhere in a deposit of flat lenses."""
    rng = np.random.default_rng(seed)
    waves = 300

    def field(*ranges):
        frequencies = rng.standard_normal((waves, 3)) / ranges
        phases = rng.uniform(0, 2 * np.pi, waves)
        return lambda at: np.cos(at @ frequencies.T + phases).sum(axis=1) * math.sqrt(2 / waves)

    beds, lenses = field(110, 90, 13), field(70, 60, 10)

    def classes_at(locations):
        # By the field of the beds; ore replaces any of them.
        codes = np.array([2, 3, 1])[np.digitize(beds(locations), [-0.1, 0.5])]
        return np.where(lenses(locations) > 1.1, 0, codes)

    return classes_at


def drill_deposit():
    """Drill that deposit with 45 holes, some 1,300 samples 4 m apart."""
    box = talvorix.BoundingBox([[0, 0, 0], [600, 500, 120]])
    locations, _ = talvorix.create_random_drillholes(
        box, n_holes=45, spacing=4.0, dip=-86, delta_angle=4, seed=11
    )
    locations = np.round(locations, 2).reshape(-1, 3)
    return Samples(locations, make_deposit()(locations), list(DEMO_CLASSES))


def write_samples(path, samples, columns):
    """Write a table that this script can read again."""
    with path.open("w", newline="", encoding="utf-8") as stream:
        writer = csv.writer(stream)
        writer.writerow(columns.values())
        for place, code in zip(samples.locations.tolist(), samples.codes, strict=True):
            writer.writerow([*place, samples.classes[code]])


# Model -------------------------------------------------------------------------------------------


def to_probabilities(lags, counts):
    """Turn numbers of pairs (m, k, k) into transition probabilities, counting both ways."""
    counts = counts + counts.transpose(0, 2, 1)
    with np.errstate(invalid="ignore"):
        return Transitions(lags, counts / counts.sum(2, keepdims=True), counts.sum((1, 2)) / 2)


def measure(samples, axis, max_lag, band=None):
    """Measure transitions between samples along an axis, or within a band normal to it.

    Parameters
    ----------
    samples : Samples
    axis : numpy.ndarray, shape (3,)
    max_lag : float
    band : float, optional
        Pairs are normal to the axis to within it. Without one they are along it.

    Returns
    -------
    Transitions
        Classes of lags with hardly any pairs are left out.
    """
    kinds = len(samples.classes)
    places, codes = samples.locations, samples.codes
    if len(codes) > MOST_SAMPLES:
        drawn = np.random.default_rng(1).permutation(len(codes))[:MOST_SAMPLES]
        places, codes = places[drawn], codes[drawn]
    counts = np.zeros(LAG_CLASSES * kinds**2)
    sums = np.zeros(LAG_CLASSES)
    for start in range(0, len(codes), CHUNK):
        apart = places[start:] - places[start : start + CHUNK, None]
        along = np.abs(apart @ axis)
        lags = np.sqrt((apart**2).sum(axis=2))
        near = np.arange(len(codes) - start) > np.arange(len(apart))[:, None]
        near &= (lags < max_lag) & (lags > 0)
        if band is None:
            near &= along >= lags * math.cos(math.radians(TOLERANCE))
        else:
            near &= along <= np.minimum(band, lags * math.sin(math.radians(TOLERANCE)))
        first, second = np.nonzero(near)
        lags = lags[near]
        classes = (lags / max_lag * LAG_CLASSES).astype(int)
        both = (classes * kinds + codes[start + first]) * kinds + codes[start + second]
        counts += np.bincount(both, minlength=len(counts))
        sums += np.bincount(classes, lags, LAG_CLASSES)
    counts = counts.reshape(-1, kinds, kinds)
    pairs = counts.sum((1, 2))
    some = pairs > THIN * pairs.max(initial=0)
    return to_probabilities(sums[some] / pairs[some], counts[some])


def correlation(transitions, shares):
    """Return for each lag the rho that fits the transitions best, by squares weighted by pairs."""
    slopes = np.eye(len(shares)) - shares
    # No pair may start from a rare class at some lag.
    weights = shares[:, None] * np.isfinite(transitions.probabilities)
    shown = np.nan_to_num(transitions.probabilities - shares)
    return (weights * slopes * shown).sum((1, 2)) / (weights * slopes**2).sum((1, 2))


@status("fit of the model")
def fit(samples, axes, ranges):
    """Fit the model to transitions within the layers and across them.

    Parameters
    ----------
    samples : Samples
    axes : numpy.ndarray, shape (3, 3)
    ranges : list of float or None
        Given ones are kept.

    Returns
    -------
    Model
    """
    shares = np.bincount(samples.codes) / len(samples.codes)
    extent = np.ptp(samples.locations @ axes.T, axis=0)
    longest = [max(extent[:2]) / 3, extent[2] / 2]
    within = measure(samples, axes[2], longest[0], BAND * extent[2])
    across = measure(samples, axes[2], longest[1])
    for name, found in (("within layers", within), ("across layers", across)):
        if ranges is None and not len(found.lags):
            raise InputError(f"ranges: no pairs of samples {name} to fit them to; give --ranges")
    points = [(t.lags, correlation(t, shares), t.pairs / t.lags) for t in (within, across)]

    def residuals(logarithms, power):
        return np.concatenate(
            [
                ((1 + (lags / reach) ** 2) ** -power - rho) * np.sqrt(weights / weights.sum())
                for (lags, rho, weights), reach in zip(points, np.exp(logarithms), strict=True)
            ]
        )

    costs = {}
    for power in (1, 2):
        if ranges:
            best, cost = np.array(ranges), (residuals(np.log(ranges), power) ** 2).sum()
        else:
            bounds = np.log([[t.lags[0] / 10, t.lags[-1] * 10] for t in (within, across)]).T
            found = least_squares(residuals, bounds.mean(axis=0), args=(power,), bounds=bounds)
            best, cost = np.exp(found.x), found.cost
        costs[power] = cost, best
    power = min(costs, key=lambda p: costs[p][0])
    return Model(shares, axes, costs[power][1], power)


# Simulation --------------------------------------------------------------------------------------


def cells_of(grid, locations):
    """Return the number of the cell of each location, -1 outside the grid."""
    shape, size = grid.number_of_cells(), np.ravel(grid.cell_size())
    index = np.floor((locations - np.ravel(grid(0))) / size + 0.5).astype(int)
    inside = ((index >= 0) & (index < shape)).all(axis=1)
    return np.where(inside, np.ravel_multi_index(index.T, shape, mode="clip"), -1)


def settle(samples, grid):
    """Give each cell with samples one class.

    Returns
    -------
    cells : numpy.ndarray
        The numbers of these cells.
    codes : numpy.ndarray
        Their most frequent class, that of the nearest sample among equals.
    outside : numpy.ndarray of bool
        The samples that lie in no cell.
    """
    of_sample, kinds = cells_of(grid, samples.locations), len(samples.classes)
    outside = of_sample < 0
    rows = np.flatnonzero(~outside)
    cells, index = np.unique(of_sample[rows], return_inverse=True)
    centres = np.asarray(grid)[of_sample[rows]]
    distances = np.linalg.norm(samples.locations[rows] - centres, axis=1)
    key = index, samples.codes[rows]
    counts, nearest = np.zeros((len(cells), kinds)), np.full((len(cells), kinds), np.inf)
    np.add.at(counts, key, 1.0)
    np.minimum.at(nearest, key, distances)
    best = counts == counts.max(axis=1, keepdims=True)
    return cells, np.where(best, nearest, np.inf).argmin(axis=1), outside


def simulate(samples, model, grid, realisations, neighbors, seed):
    """Simulate the classes of all cells.

    Returns
    -------
    codes : numpy.ndarray of int8, shape (realisations, cells)
        -1 where talvorix could draw none.
    cells, settled : numpy.ndarray
        The numbers of the cells with samples, and the classes given to them.
    """
    centres = np.asarray(grid)
    cells, settled, outside = settle(samples, grid)
    ratio = model.ranges[1] / model.ranges[0]
    scale = CELL / (np.ravel(grid.cell_size()).min() * min(ratio, 1.0))
    places = np.concatenate([centres[cells], samples.locations[outside]])
    data = np.concatenate([settled, samples.codes[outside]])
    # Far coordinates would cost digits of the distances.
    targets, places = (scale * model.stretch(at - centres[0]) for at in (centres, places))
    table = model.formulas(scale * model.ranges[1])
    ball = talvorix.Ellipsoid(1, 1, 1, 0, 0, 0)
    seeds = np.random.default_rng(seed).integers(2**32, size=realisations).tolist()
    codes = [
        talvorix.markov_chain.simulation(
            targets, places, data, table, ball, knn=neighbors, seed=number
        )
        for number in tracked(seeds, "realisation")
    ]
    return np.array(codes, np.int8), cells, settled


def grid_transitions(cubes, kinds, height):
    """Count transitions along the vertical in realisations (n, nx, ny, nz)."""
    count = cubes.shape[-1]
    steps = np.arange(1, max(count // 2, 1) + 1) if count > 1 else np.arange(0)
    counts = np.zeros((len(steps), kinds, kinds))
    for row, step in zip(counts, steps, strict=True):
        lower, upper = cubes[..., :-step], cubes[..., step:]
        known = (lower >= 0) & (upper >= 0)
        both = lower[known].astype(int) * kinds + upper[known]
        row[:] = np.bincount(both, minlength=kinds**2).reshape(kinds, kinds)
    return to_probabilities(steps * height, counts)


# Results -----------------------------------------------------------------------------------------


def write_results(folder, grid, codes, probabilities, classes):
    """Write facies.csv and facies.npz."""
    shape = grid.number_of_cells()
    with (folder / "facies.csv").open("w", newline="", encoding="utf-8") as stream:
        writer = csv.writer(stream)
        writer.writerow(["x", "y", "z", "most_probable", *(f"p_{name}" for name in classes)])
        best = probabilities.argmax(axis=0)
        for centre, code, row in zip(np.asarray(grid), best, probabilities.T, strict=True):
            writer.writerow(
                [*(f"{c:.10g}" for c in centre), classes[code], *(f"{p:.4g}" for p in row)]
            )
    np.savez_compressed(
        folder / "facies.npz",
        realisations=codes.reshape(-1, *shape),
        probabilities=probabilities.reshape(-1, *shape).astype(np.float32),
        classes=np.array(classes),
        **{f"{a}_centres": along for a, along in zip("xyz", axes_of(grid), strict=True)},
    )


def class_map(panel, codes, kinds, extent):
    """Draw a section of classes; cells without one stay grey."""
    panel.imshow(
        np.ma.masked_less(codes, 0).T,
        cmap=ListedColormap(COLOURS[:kinds]),
        vmin=-0.5,
        vmax=kinds - 0.5,
        origin="lower",
        extent=extent,
        aspect="auto",
        interpolation="nearest",
    )
    panel.set_facecolor("0.88")


def draw(path, samples, model, grid, codes, probabilities, shown, curves):
    """Draw sections, the most probable class, the probability of one and transitions.

    Parameters
    ----------
    path : pathlib.Path
    samples : Samples
    model : Model
    grid : talvorix.CartesianGrid
    codes, probabilities : numpy.ndarray, shape (realisations, cells) and (classes, cells)
    shown : int
        The class whose probability is drawn.
    curves : dict
        Transitions along the vertical by what they are of.
    """
    shape, size, kinds = grid.number_of_cells(), np.ravel(grid.cell_size()), len(samples.classes)
    low = np.ravel(grid(0)) - size / 2
    high = low + shape * size
    section = [low[0], high[0], low[2], high[2]]
    inside = cells_of(grid, samples.locations)
    rows = np.unravel_index(inside[inside >= 0], shape)
    cut, level = (int(np.bincount(rows[k], minlength=1).argmax()) for k in (1, 2))
    at, height = (axes_of(grid)[k][n] for k, n in ((1, cut), (2, level)))
    near = np.abs(samples.locations[:, 1] - at) <= size[1]
    cubes = codes.reshape(-1, *shape)

    figure = plt.figure(figsize=(11, 8.6), layout="constrained")
    upper, lower = figure.subfigures(2, 1, height_ratios=[1.75, 1])
    panels = upper.subplots(2, 3)
    for number, panel in enumerate(panels[0]):
        if number >= len(cubes):
            panel.set_axis_off()
            continue
        class_map(panel, cubes[number, :, cut], kinds, section)
        panel.scatter(
            *samples.locations[near][:, [0, 2]].T,
            s=9,
            c=[COLOURS[code] for code in samples.codes[near]],
            ec="white",
            lw=0.4,
        )
        panel.set(title=f"Realisation {number + 1}, y = {at:,.7g}", xlim=section[:2])
        panel.set(ylim=section[2:])
    best, sure, plan = panels[1]
    probable = probabilities.argmax(axis=0).reshape(shape)
    class_map(best, probable[:, cut], kinds, section)
    best.set_title("Most probable class, same section")
    image = sure.imshow(
        probabilities[shown].reshape(shape)[:, cut].T,
        cmap="magma",
        vmin=0,
        vmax=1,
        origin="lower",
        extent=section,
        aspect="auto",
        interpolation="nearest",
    )
    sure.set_title(f"Probability of {samples.classes[shown]}")
    upper.colorbar(image, ax=sure, shrink=0.9)
    class_map(plan, cubes[0, :, :, level], kinds, [low[0], high[0], low[1], high[1]])
    plan.set(title=f"Realisation 1, plan at z = {height:,.7g}", ylabel="north (y)")
    for panel in (panels[0, 0], best):
        panel.set_ylabel("elevation (z)")
    for panel in panels.flat:
        panel.locator_params("x", nbins=6)
        panel.ticklabel_format(useOffset=False, style="plain")
    for panel in panels[1]:
        panel.set_xlabel("east (x)")

    longest = max((t.lags.max() for t in curves.values() if len(t.lags)), default=size[2])
    heights = np.linspace(0, longest, 200)
    fitted = model.transitions(heights[:, None] * [[0, 0, 1]])
    styles = {
        "samples": {"ls": "", "marker": "o", "ms": 3},
        "realisations": {"lw": 1.8},
        "as fitted": {"lw": 0.9, "ls": ":"},
    }
    columns = min(kinds, 5)
    panels = lower.subplots(-(-kinds // columns), columns, sharey=True, squeeze=False).ravel()
    for panel in panels[kinds:]:
        panel.set_axis_off()
    for first, panel in enumerate(panels[:kinds]):
        for second, colour in enumerate(COLOURS[:kinds]):
            panel.plot(heights, fitted[:, first, second], "--", c=colour, lw=0.9)
            for name, transitions in curves.items():
                of_pair = transitions.probabilities[:, first, second]
                panel.plot(transitions.lags, of_pair, c=colour, **styles[name])
        panel.set(title=f"From {samples.classes[first]} to", ylim=(0, 1), xlim=(0, longest))
        panel.set_xlabel("vertical distance")
    panels[0].set_ylabel("transition probability")
    keys = [
        *(
            plt.Line2D([], [], c=c, lw=5, label=name)
            for name, c in zip(samples.classes, COLOURS, strict=False)
        ),
        plt.Line2D([], [], c="0.3", lw=0.9, ls="--", label="model"),
        *(plt.Line2D([], [], c="0.3", label=LABELS[name], **styles[name]) for name in curves),
    ]
    lower.legend(handles=keys, loc="outside lower center", ncols=min(len(keys), 8), frameon=False)
    figure.savefig(path, dpi=90)
    plt.close(figure)


def print_summary(samples, model, codes, cells, settled, curves):
    """Print the model, the proportions, what is honoured and how transitions depart."""
    within, across = model.ranges
    print(
        f"{len(samples.codes):,} samples, {samples.skipped:,} rows without a class skipped; "
        f"{codes.shape[1]:,} cells"
    )
    power = "" if model.power == 1 else "^2"
    print(f"model: rho = 1 / (1 + s){power}, range {within:.4g} within layers, {across:.4g} across")
    kinds = len(samples.classes)
    rows = np.array([np.bincount(row[row >= 0], minlength=kinds) for row in codes]) / codes.shape[1]
    of_cells = np.bincount(settled, minlength=kinds) / max(len(settled), 1)
    print(
        f"\n{'proportions':<16}{'samples':>10}{'cells':>10}{'realisations':>14}{'from':>8}", end=""
    )
    print(f"{'to':>8}")
    for k, name in enumerate(samples.classes):
        print(f"{name:<16}{model.shares[k]:>10.1%}{of_cells[k]:>10.1%}", end="")
        print(f"{rows[:, k].mean():>14.1%}{rows[:, k].min():>8.1%}{rows[:, k].max():>8.1%}")
    print("(cells: those with samples)")
    kept = codes[:, cells] == settled
    print(
        f"\ncells with samples: {len(cells):,}; they keep their class in {kept.mean():.2%} of cases"
    )
    if (codes < 0).any():
        print(f"cells without a class: {(codes < 0).sum():,}")
    lags = curves["realisations"].lags[:6]
    if not len(lags):
        return
    print("staying in a class, along the vertical; mean by shares of the classes:")
    print(f"  {'distance':<28}" + "".join(f"{lag:>8.4g}" for lag in lags))
    fitted = Transitions(lags, model.transitions(lags[:, None] * [[0, 0, 1]]), lags)
    for name, transitions in {"model": fitted, **curves}.items():
        stay = np.nan_to_num(np.einsum("mkk->mk", transitions.probabilities)) @ model.shares
        if len(stay):
            at = np.interp(lags, transitions.lags, stay, right=math.nan)
            # The first class of lags of the samples may lie some way off the first step of cells.
            at[lags < 0.9 * transitions.lags[0]] = math.nan
            print(f"  {LABELS[name]:<28}" + "".join(f"{value:>8.2f}" for value in at))


# Command line ------------------------------------------------------------------------------------


def parse_arguments(argv):
    """Parse the command line; settings that are not given are absent from the result."""
    parser = argparse.ArgumentParser(
        description="Simulate lithology classes from drillholes on a grid, and draw them.",
        epilog=HELP,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        argument_default=argparse.SUPPRESS,
    )
    table_help = "default: make a small deposit and drill it"
    parser.add_argument("table", nargs="?", default=None, metavar="SAMPLES.csv", help=table_help)
    parser.add_argument("--out", default="out", metavar="FOLDER", help="default: %(default)s")
    groups = {
        "columns of the table": [
            (role, str, "NAME", f"default: {DEFAULTS[role]}")
            for role in ("x", "y", "z", "category")
        ],
        "grid; has a default without a table": [
            ("origin", number_list, "'X Y Z'", "low corner of the first cell, not its centre"),
            ("cells", number_list, "'NX NY NZ'", "numbers of cells"),
            ("size", number_list, "'DX DY DZ'", "size of a cell"),
        ],
        "model": [
            ("angles", number_list, "'AZIMUTH DIP RAKE'", "of the layers; default: level ones"),
            ("ranges", number_list, "'WITHIN ACROSS'", "default: fitted"),
        ],
        "simulation": [
            ("realisations", int, "N", "default: 10"),
            ("neighbors", int, "N", "of samples and of cells; default: 2"),
            ("stretch", float, "FACTOR", "of the ranges, see below; default: 4"),
            ("seed", int, "N", "default: 1"),
            ("probability", str, "CLASS", "whose probability is drawn; default: the rarest"),
        ],
    }
    for title, settings in groups.items():
        group = parser.add_argument_group(title)
        for name, kind, metavar, text in settings:
            group.add_argument(f"--{name}", type=kind, metavar=metavar, help=text)
    return vars(parser.parse_args(argv))


def run(options):
    """Simulate, print, write and draw what the options describe."""
    table, folder = options.pop("table"), Path(options.pop("out"))
    settings = DEFAULTS | ({} if table else DEMO_GRID) | options
    for name in ("origin", "cells", "size"):
        if name not in settings:
            raise InputError(f"{name} is missing: give the grid, such as {EXAMPLES[name]}")
    grid = read_grid(settings)
    angles = check_numbers("angles", settings["angles"], (3,))
    ranges = settings.get("ranges")
    ranges = ranges and check_numbers("ranges", ranges, (2,), positive=2)
    realisations, neighbors = (
        check_number(settings, name, whole=True, minimum=1)
        for name in ("realisations", "neighbors")
    )
    seed = check_number(settings, "seed", whole=True)
    stretch = check_numbers("stretch", [settings["stretch"]], (1,), positive=1)[0]
    columns = {role: settings[role] for role in ("x", "y", "z", "category")}
    samples = read_samples(Path(table), columns) if table else drill_deposit()
    shares = np.bincount(samples.codes)
    name = settings.get("probability", samples.classes[int(shares.argmin())])
    if name not in samples.classes:
        raise InputError(f"probability: no class '{name}'; there are {', '.join(samples.classes)}")
    if (cells_of(grid, samples.locations) < 0).all():
        raise InputError("origin, cells, size: no sample lies in the grid; check --origin")

    model = fit(samples, np.asarray(talvorix.Ellipsoid(1, 1, 1, *angles).matrix()), ranges)
    make_folder(folder)
    if not table:
        write_samples(folder / "samples.csv", samples, columns)
    longer = replace(model, ranges=model.ranges * stretch)
    start = time.perf_counter()
    codes, cells, settled = simulate(samples, longer, grid, realisations, neighbors, seed)
    seconds = time.perf_counter() - start

    shape, kinds, z = grid.number_of_cells(), len(samples.classes), np.eye(3)[2]
    height = float(np.ravel(grid.cell_size())[2])
    curves = {
        "samples": measure(samples, z, max(shape[2] // 2, 1) * height),
        "realisations": grid_transitions(codes.reshape(-1, *shape), kinds, height),
    }
    if stretch != 1:
        plain = simulate(samples, model, grid, 1, neighbors, seed)[0]
        curves["as fitted"] = grid_transitions(plain.reshape(-1, *shape), kinds, height)
    print_summary(samples, model, codes, cells, settled, curves)
    print(f"{codes.size / seconds:,.0f} cells a second")
    probabilities = np.array([(codes == k).mean(axis=0) for k in range(kinds)])
    shown = samples.classes.index(name)
    with status("writing the results"):
        write_results(folder, grid, codes, probabilities, samples.classes)
        draw(folder / "facies.png", samples, model, grid, codes, probabilities, shown, curves)
    print(f"\nwritten: {folder / 'facies.npz'}, facies.csv, facies.png")


def main(argv=None):
    """Run the script and return its exit code."""
    return carry_out(run, parse_arguments(argv), "simulate_facies.py")


if __name__ == "__main__":
    sys.exit(main())
