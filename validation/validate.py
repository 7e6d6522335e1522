"""The same jobs done by Talvorix and by other packages, and what their results differ by.

    python validation/validate.py [--table COMPOSITES.csv] [--out FOLDER]

Without a table the data are a made campaign of drillholes. The tables go to the folder, one file
each, where docs/validation.rst includes them. The script fails when a difference is left that no
translated convention explains.
"""

import argparse
import dataclasses
import itertools
import math
import sys
from pathlib import Path

import numpy as np
import talvorix
from packages import KERNELS, NAMES, CannotDo, Problem, Structure, function_of
from scipy import stats
from scipy.spatial import cKDTree
from scipy.spatial.distance import cdist

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "benchmarks"), str(ROOT / "examples")]
import estimate_drillholes  # noqa: E402
from common import make_campaign, peer_version, read_composites, without_coincident  # noqa: E402

# Shares of the variance of the data, and ellipsoids in the unit of the coordinates.
NUGGET, SILL, OTHER_SILL = 0.15, 0.45, 0.40
FIRST = (4000.0, 2500.0, 900.0), (35.0, -10.0, 25.0)
SECOND = (7000.0, 5000.0, 2500.0), (60.0, 15.0, 0.0)
SEARCH = Structure("search", 0.0, *FIRST)
FEW, MANY, TARGETS, NEIGHBORS = 150, 2000, 200, 16
WIDE = 100.0  # a bandwidth at which every tube holds all data
# In standard deviations and sills; variances of Talvorix are at least 1e-10 by themselves.
TOLERANCE = 1e-8
# What may be left where krigekit's table of covariances stands for the covariances.
LOOSE = {"krigekit": 1e-4}
STANDARD_ERRORS = 4.5

# Of the fields: the lattice's cell in ranges and its cells, the lags in cells, and how many.
CELL, CELLS, STEPS, BASE_POINTS, REALISATIONS = 0.1, 61, (2, 4, 6, 8, 10), 20, 200
SLOW = {"GSTools": 100}
BODY = (100.0, 60.0, 30.0), (35.0, -20.0, 50.0)

# A job on the Babbitt drillholes and the mean grades published for it, in per cent of copper.
PUBLISHED_JOB = {
    "nugget": 0.35,
    "structure": [
        {"kind": "exponential", "sill": 0.41, "ranges": [96, 96, 96]},
        {"kind": "exponential", "sill": 0.23, "ranges": [1117, 1117, 300]},
    ],
    "multiplier": 0.109758,
    "search": [850, 850, 250],
    "min_samples": 4,
    "max_samples": 12,
    "max_per_hole": 3,
    "origin": [2288230, 415200, -1000],
    "cells": [160, 100, 90],
    "size": [100, 100, 30],
}
PUBLISHED_MEANS = {"ordinary": 0.2117, "idw": 0.2081, "nearest": 0.2069}


# What Talvorix makes of a problem -----------------------------------------------------------------


def ellipsoid_of(structure):
    """Return the ellipsoid of a structure."""
    return talvorix.Ellipsoid(*structure.ranges, *structure.angles)


def model_of(problem, scale=1.0):
    """Return the covariance model of a problem, all sills times `scale`."""
    model = [talvorix.Covariance.nugget(scale * problem.nugget)]
    for s in problem.structures:
        model.append(getattr(talvorix.Covariance, s.kind)(scale * s.sill, ellipsoid_of(s)))
    return model


def krige(problem):
    """Return textbook estimates, variances and, for ordinary kriging, the multipliers.

    The multiplier is the estimate from data that are all 0, whose weighted sum is 0.
    """
    search = () if problem.search is None else (ellipsoid_of(problem.search),)
    neighborhood = talvorix.Neighborhood(problem.points, *search)
    most = problem.neighbors or (-1 if problem.radius else len(problem.points))
    reach = most, problem.radius or -1

    def run(values):
        given = problem.targets, problem.points, values, model_of(problem)
        if problem.mean is None:
            return np.array(talvorix.compute_ordinary_kriging(*given, neighborhood, *reach))
        return np.array(talvorix.compute_simple_kriging(*given, problem.mean, neighborhood, *reach))

    estimates, variances = run(problem.values)
    if problem.mean is not None:
        return estimates, variances, np.zeros(len(estimates))
    multipliers, _ = run(np.zeros(len(problem.values)))
    return estimates - multipliers, variances, multipliers


def leave_one_out(problem):
    """Return residuals, estimate minus value, and the multipliers that were in them.

    Talvorix validates in standard deviations. With all signs of the data turned the multipliers
    alone keep theirs.
    """
    count = problem.neighbors or len(problem.points) - 1
    deviation = problem.values.std()
    sizes = 1e12, count + 1, count, count, 1
    model = model_of(problem, 1 / deviation**2)

    def run(values):
        if problem.mean is None:
            method = talvorix.kfold_cross_validation_using_ok
        else:
            method = talvorix.kfold_cross_validation_using_sk
        return np.ravel(method(problem.points, values, model, *sizes)) * deviation

    residuals = run(problem.values)
    if problem.mean is not None:
        return residuals, np.zeros(len(residuals))
    multipliers = (residuals + run(-problem.values)) / 2
    return residuals - multipliers, multipliers


# krigekit's covariances lie on lines between these distances, which are in ranges.
NODES = np.concatenate(
    [np.arange(0, 10_000) / 100_000, np.arange(1000, 5000) / 10_000, np.arange(500, 20_000) / 1000]
)


def krige_by_hand(problem, from_table=False, nugget_by_datum=False):
    """Krige in numpy from all data by ordinary kriging.

    With `from_table` covariances are interpolated between NODES. With `nugget_by_datum` two data
    at one place share no nugget.
    """

    def covariance(one, other):
        total = np.zeros((len(one), len(other)))
        if not nugget_by_datum:
            total += problem.nugget * (cdist(one, other) == 0)
        elif one is other:
            total += problem.nugget * np.eye(len(one))
        for s in problem.structures:
            matrix = s.axes() / np.array(s.ranges)[:, None]
            h, kernel = cdist(one @ matrix.T, other @ matrix.T), KERNELS[s.kind]
            total += s.sill * (np.interp(h, NODES, kernel(NODES)) if from_table else kernel(h))
        return total

    n = len(problem.points)
    system, right = np.ones((n + 1, n + 1)), np.ones((n + 1, len(problem.targets)))
    system[:n, :n] = covariance(problem.points, problem.points)
    system[n, n] = 0.0
    right[:n] = covariance(problem.points, problem.targets)
    weights = np.linalg.solve(system, right)
    sill = problem.nugget + sum(s.sill for s in problem.structures)
    return problem.values @ weights[:n], sill - (weights * right).sum(axis=0)


# Reporting ----------------------------------------------------------------------------------------


class Report:
    """Tables, written one to a file, and the differences that nothing explains."""

    def __init__(self, folder):
        self.folder, self.failures = folder, []
        folder.mkdir(parents=True, exist_ok=True)

    def write(self, name, header, rows, widths=None):
        """Write a table of reStructuredText to a file and print it."""
        lines = [".. list-table::", "   :header-rows: 1"]
        if widths:
            lines.append(f"   :widths: {' '.join(map(str, widths))}")
        lines.append("")
        for row in (header, *rows):
            marks = ["* - ", *["  - "] * (len(row) - 1)]
            lines += [f"   {m}{cell}".rstrip() for m, cell in zip(marks, row, strict=True)]
        (self.folder / f"{name}.inc").write_text("\n".join(lines) + "\n")
        print(f"\n{name}\n{' | '.join(header)}")
        for row in rows:
            print(" | ".join(map(str, row)), flush=True)

    def check(self, what, difference, tolerance):
        """Note a failure when a relative difference is above its tolerance, or NaN."""
        if not difference <= tolerance:
            self.failures.append(f"{what}: {difference:.1e} is left, {tolerance:.0e} expected")


def number(x):
    """Return a difference with two digits."""
    return "0" if x == 0 else f"{x:.1e}"


def largest(ours, theirs):
    """Return the largest difference; a NaN on one side alone makes it NaN."""
    ours, theirs = np.asarray(ours, dtype=float), np.asarray(theirs, dtype=float)
    both = np.isnan(ours) & np.isnan(theirs)
    return np.abs(ours - theirs)[~both].max(initial=0.0)


class Scales:
    """The standard deviation of the data and the sill of the model, to compare differences with."""

    def __init__(self, problem):
        self.deviation = problem.values.std()
        self.sill = problem.nugget + sum(s.sill for s in problem.structures)

    def cells(self, ours, theirs):
        """Return the cells of a row of estimates and variances, and the larger relative one."""
        estimate, variance = (largest(a, b) for a, b in zip(ours, theirs, strict=True))
        relative = estimate / self.deviation, variance / self.sill
        cells = [number(x) for x in (estimate, relative[0], variance, relative[1])]
        return cells, max(relative) if not np.isnan(relative).any() else math.nan


# Jobs ---------------------------------------------------------------------------------------------


def untied(points, targets, neighbors, search=None, own=0):
    """Return which targets have no tie between their last neighbour and the next."""
    matrix = np.eye(3) if search is None else search.axes() / np.array(search.ranges)[:, None]
    distances, _ = cKDTree(points @ matrix.T).query(targets @ matrix.T, k=neighbors + own + 1)
    return distances[:, -1] - distances[:, -2] > 1e-6 * distances[:, -1]


class Jobs:
    """The problems, all on the same data."""

    def __init__(self, data, seed=5):
        rng = np.random.default_rng(seed)
        data = data.take(np.sort(rng.permutation(len(data.values))[:MANY]), data.name)
        middle = np.linalg.norm(data.locations - np.median(data.locations, axis=0), axis=1)
        near = np.argsort(middle)[: len(middle) // 2]
        self.few = data.take(np.sort(rng.permutation(near)[:FEW]), data.name)
        self.data, variance = data, data.values.var()
        self.first, self.second, self.turned, self.smooth = (
            Structure(kind, share * variance, *body)
            for kind, share, body in (
                ("spherical", SILL, FIRST),
                ("exponential", OTHER_SILL, FIRST),
                ("exponential", OTHER_SILL, SECOND),
                ("gaussian", SILL, FIRST),
            )
        )
        self.nugget, self.mean = NUGGET * variance, float(data.values.mean())
        offsets = rng.normal(size=(TARGETS, 3)) * [200, 200, 50]
        self.unique = self.problem(self.few, offsets)
        self.moving = self.problem(data, offsets)

    def problem(self, data, offsets):
        """Krige beside some of the data, from one spherical structure."""
        rows = np.arange(len(offsets)) * len(data.values) // len(offsets)
        targets = data.locations[rows] + offsets
        return Problem(data.locations, data.values, targets, self.nugget, (self.first,))

    def kriging(self):
        """Return the problems of kriging by name."""
        unique, change = self.unique, dataclasses.replace
        nested = self.first, self.turned
        moving = change(self.moving, neighbors=NEIGHBORS)
        keep = untied(moving.points, moving.targets, NEIGHBORS)
        near = change(moving, targets=moving.targets[keep], structures=nested)
        keep = untied(moving.points, moving.targets, NEIGHBORS, SEARCH)
        shaped = change(moving, targets=moving.targets[keep], search=SEARCH)
        return {
            "ordinary, all data, spherical": unique,
            "simple, all data, exponential": change(
                unique, mean=self.mean, structures=(self.second,)
            ),
            "ordinary, all data, gaussian": change(unique, structures=(self.smooth,)),
            "ordinary, all data, spherical and exponential of one shape": change(
                unique, structures=(self.first, self.second)
            ),
            "simple, all data, two structures turned differently": change(
                unique, mean=self.mean, structures=nested
            ),
            f"ordinary, {NEIGHBORS} nearest, two structures turned differently": near,
            f"simple, {NEIGHBORS} nearest, two structures turned differently": change(
                near, mean=self.mean
            ),
            f"ordinary, {NEIGHBORS} nearest in the ellipsoid, spherical": shaped,
            "ordinary, all within a radius, two structures turned differently": change(
                near, neighbors=0, radius=self.radius()
            ),
            "ordinary, at the data, spherical": change(unique, targets=unique.points.copy()),
        }

    def edge(self):
        """Return a problem with one datum of several at exactly the radius of a search."""
        places = np.array([[300, 400, 0], [100, 0, 20], [0, -150, 10], [-90, 80, 0]], dtype=float)
        values, targets = self.few.values[:4], np.array([[0.0, 0, 0], [0, 0, 5]])
        return Problem(places, values, targets, self.nugget, (self.first,), radius=500.0)

    def radius(self):
        """Return a radius within which every target of the moving problem has several data."""
        distances, _ = cKDTree(self.moving.points).query(self.moving.targets, k=8)
        return float(1.01 * distances[:, -1].max())


def compare_kriging(jobs, packages, report):
    """Write the table of estimates and variances, all conventions translated."""
    rows, left_out = [], []
    for name, problem in jobs.kriging().items():
        ours, scales = krige(problem), Scales(problem)
        for package in packages:
            try:
                theirs = function_of(package, "krige")(problem)
            except CannotDo as reason:
                left_out.append((package, name, str(reason)))
                continue
            cells, relative = scales.cells(ours[:2], theirs)
            rows.append((name, package, len(problem.targets), *cells))
            report.check(f"{name}, {package}", relative, LOOSE.get(package, TOLERANCE))
    header = ("Kriging", "Package", "Targets", "Estimates differ by", "in deviations")
    header += ("Variances differ by", "in sills")
    report.write("kriging", header, rows, (30, 12, 8, 13, 12, 13, 12))
    report.write("kriging_left_out", ("Package", "Kriging", "What it has not"), left_out)


def demonstrate(jobs, packages, report):
    """Write the table of conventions: each left as it is, then translated."""
    rows, change = [], dataclasses.replace
    unique = jobs.unique

    def row(convention, package, state, ours, theirs, problem, translated):
        cells, relative = Scales(problem).cells(ours, theirs)
        rows.append((convention, package, state, cells[1], cells[3]))
        if translated:
            report.check(f"{convention}, {package}", relative, LOOSE.get(package, TOLERANCE))

    def pair(convention, package, problem, key, translated="translated"):
        method, ours = function_of(package, "krige"), krige(problem)[:2]
        kept = method(change(problem, untranslated=(key,)))
        row(convention, package, "as it is", ours, kept, problem, False)
        row(convention, package, translated, ours, method(problem), problem, True)

    for package in packages:
        estimates, variances, multipliers = krige(unique)
        theirs = function_of(package, "krige")(unique)
        with_multiplier = estimates + multipliers, variances
        name = "multiplier in the estimate"
        row(name, package, "as it is", with_multiplier, theirs, unique, False)
        row(name, package, "taken off", (estimates, variances), theirs, unique, True)
    for kind, structure in (("exponential", jobs.second), ("gaussian", jobs.smooth)):
        for package in packages:
            if (kind, package) in (("exponential", "PyKrige"), ("exponential", "krigekit")):
                continue  # practical ranges with the factor 3, as here
            problem = change(unique, structures=(structure,))
            pair(f"range, {kind}", package, problem, "ranges")
    for package in packages:
        if package != "gstat":  # has the same angles
            pair("angles", package, unique, "angles")
    for package in packages:
        edge = jobs.edge()
        wider = change(edge, radius=edge.radius * (1 + 1e-12))
        try:
            theirs = function_of(package, "krige")(edge)
        except CannotDo:
            continue
        name = "datum at the very radius"
        row(name, package, "as it is", krige(edge)[:2], theirs, edge, False)
        row(name, package, "radius a trifle longer here", krige(wider)[:2], theirs, edge, True)
    if "GSTools" in packages:
        at_data = change(unique, targets=unique.points.copy())
        pair("nugget at the data", "GSTools", at_data, "defaults", "exact=True")
    if "gstlearn" in packages:
        shaped = jobs.kriging()[f"ordinary, {NEIGHBORS} nearest in the ellipsoid, spherical"]
        pair("search ellipsoid", "gstlearn", shaped, "defaults", "without its tree of balls")
    if "krigekit" in packages:
        theirs = function_of("krigekit", "krige")
        for structure in (jobs.first, jobs.second):
            problem = change(unique, structures=(structure,))
            found, ours = theirs(problem), krige(problem)[:2]
            name = f"covariances from a table, {structure.kind}"
            row(name, "krigekit", "as it is", ours, found, problem, False)
            from_table = krige_by_hand(problem, from_table=True)
            cells, relative = Scales(problem).cells(from_table, found)
            rows.append((name, "krigekit", "beside kriging with that table", cells[1], cells[3]))
            report.check(name, relative, TOLERANCE)
    header = ("Convention", "Package", "", "Estimates, in deviations", "Variances, in sills")
    report.write("conventions", header, rows)


def describe_angles(jobs, packages, report):
    """Write the table of the numbers that turn the same ellipsoids."""
    rows = []
    for body in (FIRST, SECOND, BODY):
        structure = Structure("spherical", 1.0, *body)
        shown = [" ".join(f"{angle:g}" for angle in body[1])]
        for package in packages:
            angles = np.asarray(function_of(package, "angles")(structure)) + 0.0  # no -0
            shown.append(" ".join(f"{angle:.2f}".rstrip("0").rstrip(".") for angle in angles))
        rows.append(shown)
    report.write("angles", ("Talvorix", *packages), rows)


def compare_few(jobs, packages, report):
    """Write the table of targets with one datum or none within reach, and of data that coincide."""
    change = dataclasses.replace
    far = jobs.unique.points.max(axis=0) + 1e5
    single = change(
        jobs.unique,
        points=np.vstack([jobs.unique.points, far]),
        values=np.append(jobs.unique.values, 1.0),
        targets=np.array([[far[0] + 60.0, far[1], far[2]], far + 3e5]),
        radius=100.0,
    )
    # The second data of three places are higher by 0.5.
    plain = change(jobs.unique, targets=jobs.unique.targets[:50])
    doubled = change(
        plain,
        points=np.vstack([plain.points, plain.points[:3]]),
        values=np.append(plain.values, plain.values[:3] + 0.5),
    )

    def alone(*shares):
        values = plain.values.copy()
        values[:3] += shares
        return krige(change(plain, values=values))[:2]

    known = {
        "one of the two, the other without weight": list(
            itertools.starmap(alone, itertools.product((0.0, 0.5), repeat=3))
        ),
        "their mean": [alone(0.25, 0.25, 0.25)],
        "both, each with a nugget of its own": [krige_by_hand(doubled, nugget_by_datum=True)],
    }

    def describe(found):
        if not np.isfinite(found).all():
            return "refused: NaN", math.nan
        # Which of the two is taken may change from target to target, but not for one.
        off = {
            name: np.abs(np.array(cases) - found).max(axis=1).min(axis=0).max()
            for name, cases in known.items()
        }
        name = min(off, key=off.get)
        return f"{name}, to {number(off[name])}", off[name]

    def outcome(pair):
        return ", ".join(f"{x:.4g}" for x in pair)

    rows = []
    for package in ("Talvorix", *packages):
        method, cells = function_of(package, "krige"), []
        if package == "Talvorix":
            method = lambda problem: krige(problem)[:2]  # noqa: E731
        try:
            cells += map(outcome, np.transpose(method(single)))
        except CannotDo as reason:
            cells += [str(reason), ""]
        try:
            text, off = describe(np.array(method(doubled)))
        except Exception as reason:  # whatever a package raises is its answer
            text, off = f"refused: {str(reason).splitlines()[0]}", math.nan
        if not math.isnan(off) or package == "Talvorix":
            report.check(f"data that coincide, {package}", off, TOLERANCE)
        rows.append((package, *cells, text))
    header = ("Package", "One datum: estimate, variance", "None: estimate, variance")
    report.write("few", (*header, "Two data at a place"), rows)


def compare_residuals(jobs, packages, report):
    """Write the table of leave-one-out residuals."""
    unique, change = (
        dataclasses.replace(jobs.unique, targets=jobs.unique.points),
        dataclasses.replace,
    )
    mean = float(unique.values.mean())
    nested = change(unique, structures=(jobs.first, jobs.turned), neighbors=NEIGHBORS)
    cases = {
        "ordinary, from all others, spherical": unique,
        "simple, from all others, spherical": change(unique, mean=mean),
        f"ordinary, {NEIGHBORS} nearest, two structures": nested,
        f"simple, {NEIGHBORS} nearest, two structures": change(nested, mean=mean),
    }
    rows = []
    for name, problem in cases.items():
        residuals, multipliers = leave_one_out(problem)
        keep = np.full(len(residuals), True)
        if problem.neighbors:
            keep = untied(problem.points, problem.points, problem.neighbors, own=1)
        deviation = problem.values.std()
        for package in packages:
            try:
                theirs = function_of(package, "leave_one_out")(problem)
            except CannotDo:
                continue
            off = largest(residuals[keep], theirs[keep])
            shift = np.abs(multipliers[keep]).max()
            cells = (number(off + 0.0), number(off / deviation), number(shift / deviation))
            rows.append((name, package, keep.sum(), *cells))
            tolerance = LOOSE.get(package, TOLERANCE)
            report.check(f"residuals, {name}, {package}", off / deviation, tolerance)
    header = ("Leave one out", "Package", "Data", "Residuals differ by", "in deviations")
    report.write("residuals", (*header, "Largest multiplier, in deviations"), rows)


def compare_variograms(jobs, packages, report):
    """Write the table of experimental variograms."""
    rows, data = [], jobs.data
    variance = data.values.var()
    for name, tolerance, count in (("cones of 15 degrees", 15.0, 2), ("all directions", 90.0, 1)):
        ours = talvorix.compute_exp_variogram(
            data.locations,
            data.values,
            n_centers=1,
            bandwidth=WIDE,
            window_size=0,
            n_lags=20,
            n_directions=count,
            angle_tol=tolerance,
        )
        for package in packages:
            method = function_of(package, "variogram")
            if method is None:
                continue
            off, differ, lags_compared, pairs_compared = 0.0, 0, 0, 0
            for k, direction in enumerate(np.reshape(ours.directions, (-1, 3))):
                vectors, gamma, pairs = ours.get_variogram_by_direction_id(k)
                lags = np.linalg.norm(np.reshape(vectors, (-1, 3)), axis=1)
                found, counted = method(data.locations, data.values, direction, tolerance, lags)
                off = max(off, largest(gamma, found))
                differ += int(np.abs(np.array(pairs) - counted).sum())
                lags_compared, pairs_compared = (
                    lags_compared + len(lags),
                    pairs_compared + sum(pairs),
                )
            shown = number(off), number(off / variance), f"{pairs_compared:,}", differ
            rows.append(
                (f"{len(ours.directions)} directions, {name}", package, lags_compared, *shown)
            )
            report.check(f"variogram, {name}, {package}", off / variance + differ, TOLERANCE)
    if "gstlearn" in packages:
        rows.append(compare_maps(report))
    header = ("Variogram", "Package", "Lags", "Semivariances differ by", "in variances")
    report.write("variograms", (*header, "Pairs", "Pairs differ by"), rows)


def compare_maps(report, shape=(24, 21, 12), bandwidth=1.0):
    """Return the row of the variogram map, whose cells are averaged here as Talvorix does."""
    rng = np.random.default_rng(11)
    values = np.cumsum(rng.normal(size=shape), axis=0)
    values[rng.random(shape) < 0.1] = np.nan
    cell, counts = np.array([5.0, 4.0, 2.0]), np.array(shape)
    places = (np.indices(shape).reshape(3, -1).T + 0.5) * cell
    ours = talvorix.compute_variogram(
        [[0, 0, 0], shape * cell], places, values.ravel(), *shape, 20, 30, bandwidth
    )
    gamma, pairs = function_of("gstlearn", "map")(values)
    nodes = (np.indices(gamma.shape).reshape(3, -1).T - counts // 2) / counts
    gamma, pairs = np.ravel(gamma), np.ravel(pairs)
    pairs = np.where(np.isfinite(gamma), pairs, 0)
    off = differ = 0.0
    expected = []
    for image in np.reshape(ours.lags, (-1, 3)) / (shape * cell):
        near = np.linalg.norm(nodes - image, axis=1) < bandwidth * np.linalg.norm(1 / counts)
        near &= pairs > 0
        expected.append((np.average(gamma[near], weights=pairs[near]), pairs[near].sum()))
    expected, counted = np.transpose(expected)
    off = largest(ours.variogram, expected) / np.nanvar(values)
    differ = np.abs(np.rint(counted) - ours.npairs).max()
    report.check("variogram map, gstlearn", off, TOLERANCE)
    # Talvorix cuts pairs to whole numbers, from transforms that may come out a trifle below.
    report.check("pairs of the variogram map, gstlearn", differ, 1)
    cells = number(off * np.nanvar(values)), number(off), f"{counted.sum():,.0f}", f"{differ:.0f}"
    return ("map of a lattice, by transforms", "gstlearn", len(ours.lags), *cells)


# Fields -------------------------------------------------------------------------------------------


def exponential_lines(h, count=1000):
    """Return the covariance of Talvorix's turning bands with an exponential structure.

    The process of a line changes its sign from cell to cell with probability 5/18, and a third of
    the lines have cells of one range.
    """
    p = (np.arange(count) + 0.5) / count
    scales = np.array([*(stats.gamma(a, scale=1 / 3).ppf(p) for a in (3, 2)), p**0])
    lag = np.asarray(h)[:, None, None, None] * p / scales[..., None]
    within, part = np.where(lag < 1, 1 - 3 * lag + 2 * lag**3, 0), lag % 1
    return (5 / 9 * within + 4 / 9 * (1 - 6 * part * (1 - part))).mean(axis=(1, 2, 3))


def fourier_covariance(kind, steps):
    """Return the covariance of Talvorix's Fourier integrals at so many cells along each axis.

    It is that of the structure on a lattice whose ends meet, less half of what has frequency 0
    along the third axis.
    """
    lags = (np.arange(CELLS) + CELLS // 2) % CELLS - CELLS // 2
    distances = np.linalg.norm(np.stack(np.meshgrid(lags, lags, lags, indexing="ij")), axis=0)
    waves = np.abs(np.fft.rfftn(KERNELS[kind](CELL * distances)))
    waves[:, :, 0] /= 2
    law = np.fft.irfftn(waves, (CELLS,) * 3, (0, 1, 2))
    return np.array([law[tuple(step)] for step in steps])


def check_fields(packages, report):
    """Write the table of covariances that realisations reproduce."""
    body = talvorix.Ellipsoid(*BODY[0], *BODY[1])
    rng = np.random.default_rng(3)
    low = rng.integers(0, CELLS * 2 // 3 - max(STEPS), size=(BASE_POINTS, 3))
    steps = np.vstack([np.zeros((1, 3), int), *(k * np.eye(3, dtype=int) for k in STEPS)])
    # In the middle of the lattice's cells, in ranges along the axes of the ellipsoid.
    places = (low[:, None] + steps + 0.5).reshape(-1, 3) * CELL
    side = CELLS * CELL / 1.5
    cube = np.indices((2, 2, 2)).reshape(3, 8).T * side
    corners, points = (np.reshape(body.backward(x), (-1, 3)) for x in (cube, places))
    h = CELL * np.linalg.norm(steps, axis=1)
    rows = []
    for kind in ("spherical", "exponential"):
        cov, structure = getattr(talvorix.Covariance, kind)(1.0, body), Structure(kind, 1.0, *BODY)
        bands = exponential_lines(h) if kind == "exponential" else KERNELS[kind](h)

        def realise(make, count=REALISATIONS):
            return np.array([make(seed).simulate(points) for seed in range(count)])

        made = {
            "Talvorix, TBSIM": (
                realise(lambda s, c=cov: talvorix.TBSIM(corners, c, s, 600)),
                bands,
            ),
            "Talvorix, FIM": (
                realise(lambda s, c=cov: talvorix.FIM(corners, c, s, CELLS)),
                fourier_covariance(kind, steps),
            ),
        }
        for package in packages:
            simulate = function_of(package, "simulate")
            if simulate:
                count = SLOW.get(package, REALISATIONS)
                made[package] = simulate(points, structure, count), KERNELS[kind](h)
        for name, (fields, law) in made.items():
            fields = fields.reshape(len(fields), BASE_POINTS, -1)
            products = (fields[:, :, :1] * fields).mean(axis=1)
            error = products.std(axis=0, ddof=1) / math.sqrt(len(products))
            found, model = products.mean(axis=0), KERNELS[kind](h)
            off, beside_law = np.abs(found - model), np.abs(found - law)
            own = name.startswith("Talvorix") and not np.allclose(law, model, atol=1e-6)
            rows.append(
                (
                    kind,
                    name,
                    len(fields),
                    f"{found[0]:.3f}",
                    f"{off.max():.3f}",
                    f"{error.mean():.3f}",
                    f"{(off / error).max():.1f}",
                    f"{np.abs(law - model).max():.3f}" if own else "",
                    f"{(beside_law / error).max():.1f}" if own else "",
                )
            )
            if name.startswith("Talvorix"):
                what = f"fields, {kind}, {name}, standard errors"
                report.check(what, (beside_law / error).max(), STANDARD_ERRORS)
    header = ("Model", "Fields", "Realisations", "Variance", "Covariance off the model by")
    header += ("Standard error", "Off by standard errors", "Method's own covariance off by")
    report.write("fields", (*header, "Off that by standard errors"), rows)


# The published job --------------------------------------------------------------------------------


def fill_gaps(path):
    """Return the composites with what is missing between two of a hole as barren, every 10 ft."""
    table = np.genfromtxt(path, delimiter=",", names=True, dtype=None, encoding="utf-8")
    places, values, holes = [], [], []
    for hole in np.unique(table["hole_id"]):
        rows = np.sort(
            table[(table["hole_id"] == hole) & np.isfinite(table["cu_pct"])], order="from_ft"
        )
        depths = (rows["from_ft"] + rows["to_ft"]) / 2
        if len(rows) == 0:
            continue
        between = np.arange(depths[0], depths[-1], 10.0)
        after = np.searchsorted(depths, between)
        apart = np.abs(depths[np.clip([after - 1, after], 0, len(depths) - 1)] - between)
        between = between[apart.min(axis=0) > 7.0]
        known = np.column_stack([rows[name] for name in ("x_ft", "y_ft", "z_ft")])
        places.append(np.column_stack([np.interp(between, depths, known[:, c]) for c in range(3)]))
        values.append(np.zeros(len(between)))
        places.append(known)
        values.append(rows["cu_pct"])
        holes.append(np.full(len(between) + len(rows), hole))
    return estimate_drillholes.Composites(
        np.vstack(places), np.concatenate(values), np.concatenate(holes).astype(np.int32)
    )


def published_means(composites, changes):
    """Return the number of blocks and the mean estimates by method, without the multiplier.

    The last is by inverse distance in the metric of the search.
    """
    job = estimate_drillholes.read_job(PUBLISHED_JOB | changes)
    centres = np.asarray(job.grid)
    reach, _ = estimate_drillholes.plan_search(centres, composites, job.search, job.limits, 0)
    centres, reach = centres[reach > 0], reach[reach > 0]

    def mean(method, composites=composites, centres=centres, job=job):
        return np.mean(estimate_drillholes.estimate(method, centres, reach, composites, job, 0)[0])

    means = {method: mean(method) for method in PUBLISHED_MEANS}
    barren = dataclasses.replace(composites, values=np.zeros(len(composites.values)))
    means["ordinary"] -= mean("ordinary", barren)
    # Where the search is a sphere, plain distance is that of the search.
    radius, *_ = PUBLISHED_JOB["search"]
    stretch = radius / np.array(PUBLISHED_JOB["search"])
    stretched = dataclasses.replace(composites, locations=composites.locations * stretch)
    sphere = dataclasses.replace(job, search=talvorix.Ellipsoid(*[radius] * 3, 0, 0, 0))
    return len(reach), [*means.values(), mean("idw", stretched, centres * stretch, sphere)]


def published_job(path, report):
    """Write the table of mean grades beside those published."""
    data = read_composites(path)
    plain = estimate_drillholes.Composites(data.locations, data.values, data.holes.astype(np.int32))
    variants = {
        "all blocks with an estimate": (plain, {}),
        "also those with 1 to 3 samples": (plain, {"min_samples": 1}),
        "gaps between samples of a hole as barren": (fill_gaps(path), {}),
    }
    rows = []
    for name, variant in variants.items():
        count, means = published_means(*variant)
        rows.append((name, f"{count:,}", *(f"{mean:.4f}" for mean in means)))
    rows.append(("published", "", *(f"{mean:.4f}" for mean in PUBLISHED_MEANS.values()), ""))
    header = ("Mean of", "Blocks", "Ordinary kriging", "Inverse distance squared")
    report.write("published", (*header, "Nearest sample", "Inverse distance in that metric"), rows)


def main():
    """Do all jobs and write the tables; fail when a difference is not explained."""
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--table", type=Path, metavar="COMPOSITES.csv", help="Babbitt composites")
    parser.add_argument("--out", type=Path, metavar="FOLDER", help="of the tables")
    arguments = parser.parse_args()
    default = ROOT / "docs" / "validation" / ("table" if arguments.table else "made")
    report = Report(arguments.out or default)
    versions = {name: peer_version(name.lower() if name == "gstat" else name) for name in NAMES}
    packages = [name for name in NAMES if versions[name]]
    report.write(
        "versions",
        ("Package", "Version"),
        [("Talvorix", peer_version("talvorix"))]
        + [(name, version or "was not installed") for name, version in versions.items()],
    )
    data = read_composites(arguments.table) if arguments.table else make_campaign()
    jobs = Jobs(without_coincident(data))
    compare_kriging(jobs, packages, report)
    demonstrate(jobs, packages, report)
    compare_few(jobs, packages, report)
    compare_residuals(jobs, packages, report)
    compare_variograms(jobs, packages, report)
    if arguments.table:
        published_job(arguments.table, report)
    else:
        describe_angles(jobs, packages, report)
        check_fields(packages, report)
    if report.failures:
        raise SystemExit("not explained:\n" + "\n".join(report.failures))


if __name__ == "__main__":
    main()
