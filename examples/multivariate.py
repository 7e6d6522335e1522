#!/usr/bin/env python3
"""Turn copper, nickel and sulphur of drillholes into independent normal scores, and come back.

    multivariate.py composites.csv --copper cu_pct --nickel ni_pct --sulphur s_pct \\
        --hole hole_id --out out

The transform is fitted to most of the holes. On the holes kept apart the script shows how normal
and how independent the scores are, and how far grades are off after the way forward and back. Then
it draws independent normal numbers and carries them back: new triples of grades, which belong
together as those of the samples do.

Rows that miss a grade are left out. Without a table the script drills a small sulphide body of its
own.

The folder given by --out receives scores.csv (hole, grades, scores and the grades carried back, of
the holes kept apart), simulated.csv and multivariate.png.
"""

from __future__ import annotations

import argparse
import csv
import math
import sys
import time
from dataclasses import dataclass
from itertools import combinations
from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
import talvorix
from estimate_drillholes import (
    InputError,
    carry_out,
    check_number,
    drill_campaign,
    make_folder,
    read_cell,
    status,
)
from scipy import stats

METALS = "copper", "nickel", "sulphur"
PAIRS = list(combinations(range(3), 2))
SCALES = "logarithms", "grades"
DEFAULTS = {
    **{name: name for name in (*METALS, "hole")},
    "scale": "logarithms",
    "share": 0.8,
    "steps": 3,
    "bins": 1000,
    "simulated": 5000,
    "seed": 1,
}
LEAST_SAMPLES = 50
# The library's own settings fit an axis at 200 quantiles, the highest that of 98.5 %, through 20
# subsets of some 10 each: beyond the last quantile but one nothing guides the maps, and the way
# back strays there. 1,000 quantiles reach 99.7 %, and 4 subsets of 250 to 500 each hold some of
# the tails. So many pairs settle slowly, and at 50 iterations an axis may still be some way off
# normal. Against 50 and 200 iterations, 2 and 4 subsets, 500 to 3,000 quantiles and more centres,
# these came back closest in reasonable time.
FIT = {
    "n_partitions": 4,
    "min_partition_size": 1.0,
    "max_partition_size": 2.0,
    "n_iterations": 200,
    # Maps lie between their smallest and largest weight, so close bounds keep what is simulated
    # near the samples. The default of 10 spans lets single scores come back at many times the
    # richest sample.
    "weight_tol": 0.2,
    "center_tol": 0.2,
    # Not the spherical one: it ends, and a score that no centre reaches comes back as NaN.
    "kernel_backward": "exponential",
}
# How far beyond the samples the maps go, in spans; half of the default. The end stands beside the
# outermost quantile, and the nearer it is the smoother is the way there.
BEYOND = 0.05
# What is added to grades before logarithms are taken, in medians: a tenth lets zeros in and keeps
# detection limits from being spread out as far as the whole ore.
SHIFT = 0.1

HELP = """\
the transform:
  A step standardises the variables, rotates them and brings each axis to a normal distribution by a
  smooth map. One step makes the axes normal and uncorrelated; some more remove what dependence a
  rotation cannot see. Every step adds to the error of the way back, so few are better than many.
  Time grows with --steps and --bins, hardly with samples. The first score is of no one metal, nor
  are the others; rows of the printed tables show them in the places of copper, nickel and sulphur.

scale:
  Maps are fitted by squares, and of skewed grades the few rich samples would take them all.
  Logarithms of a grade plus a tenth of its median bring the samples back more closely, and of
  simulated ones the correlations and the tails: compare with --scale grades, which may also make
  grades below zero. Of logarithms what would be below zero comes back as zero.

what is printed:
  Normality by variable: skewness, excess of kurtosis, and the largest difference of the cumulative
  distribution from that of a normal one with the mean and standard deviation of the fitted samples
  (of scores, 0 and 1). Independence by pair: correlation, rank correlation (Spearman's), and the
  rank correlation of the distances from the medians, which sees spreads that depend on each other.
  Correlations of n samples without any are about 1 / sqrt(n) by chance, and more where samples of
  a hole resemble each other: holes kept apart differ from the fitted ones by that.
  Errors of the round trip are in standard deviations of the fitted samples.

limits of the method:
  Maps are smooth. Many samples of one grade, such as a detection limit, come back as a narrow cloud
  around it. Simulated grades are independent of each other: give the normal scores a variogram,
  as simulate_deposit.py does, one field for each score, to simulate a deposit.
"""


@dataclass
class Samples:
    """Copper, nickel and sulphur `grades` (n, 3), and the `holes` (n,) that they are from."""

    grades: np.ndarray
    holes: np.ndarray
    skipped: int = 0


class Transform:
    """Grades to independent normal scores and back."""

    def __init__(self, grades, settings, n_threads):
        positive = [column[column > 0] for column in grades.T]
        self.shift = None
        if settings["scale"] == "logarithms":
            self.shift = np.array([SHIFT * np.median(column) for column in positive])
        self.ppmt = talvorix.PPMT(
            self.scaled(grades),
            settings["steps"],
            iso_params=talvorix.IsomorphismParameters(n_threads=n_threads, **FIT),
            n_threads=n_threads,
            seed=settings["seed"],
            extrapolation_tol=BEYOND,
            n_bins=settings["bins"],
        )

    def scaled(self, grades):
        """Return what the maps are fitted to."""
        return grades if self.shift is None else np.log(grades + self.shift)

    def forward(self, grades):
        """Return the scores of grades (n, 3)."""
        return self.ppmt.forward(self.scaled(grades))

    def backward(self, scores):
        """Return the grades of scores (n, 3)."""
        scaled = self.ppmt.backward(scores)
        return scaled if self.shift is None else np.maximum(np.exp(scaled) - self.shift, 0.0)


# Data --------------------------------------------------------------------------------------------


def read_samples(path, columns):
    """Read the table of grades; rows are numbered as lines of the file.

    Parameters
    ----------
    path : pathlib.Path
        A CSV file with a header.
    columns : dict
        The names of the columns copper, nickel, sulphur and hole.

    Returns
    -------
    Samples
        The rows that have all grades; `skipped` counts the others.
    """
    grades, holes, skipped = [], [], 0
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
                line, cells = reader.line_num, {name: row[columns[name]] for name in columns}
                if None in cells.values():
                    raise InputError(f"{path}, row {line}: fewer cells than the header has")
                if not all(cells[name].strip() for name in METALS):
                    skipped += 1
                    continue
                grades.append([read_cell(path, line, columns[k], cells[k]) for k in METALS])
                for name, grade in zip(METALS, grades[-1], strict=True):
                    if grade < 0:
                        raise InputError(
                            f"{path}, row {line}, column '{columns[name]}': "
                            f"expected a grade of at least 0, got {cells[name]}"
                        )
                if not cells["hole"].strip():
                    name = columns["hole"]
                    raise InputError(f"{path}, row {line}, column '{name}': the hole has no name")
                holes.append(cells["hole"].strip())
    except (OSError, UnicodeDecodeError, csv.Error) as problem:
        raise InputError(f"{path}: cannot be read: {problem}") from None
    return Samples(np.reshape(grades, (-1, 3)), np.array(holes), skipped)


def drill_sulphides(seed=3):
    """Drill the ore body of estimate_drillholes.py for the three metals.

    Nickel follows copper, and the more evenly the richer; sulphur is that of the ore and of barren
    sulphides, which come and go on their own.
    """
    campaign, rng = drill_campaign(), np.random.default_rng(seed)
    waves = 200
    frequencies = rng.standard_normal((waves, 3)) / [90, 120, 25]
    phases = rng.uniform(0, 2 * np.pi, waves)
    barren = np.cos(campaign.locations @ frequencies.T + phases).sum(1) * math.sqrt(2 / waves)
    noise = rng.standard_normal((3, len(barren)))
    copper = 0.3 * campaign.values * np.exp(0.1 * noise[0])
    nickel = 0.03 + 0.17 * copper**0.9 * np.exp(0.3 * noise[1] / (1 + copper))
    sulphur = 1.1 * copper + 0.25 * np.exp(1.1 * barren + 0.2 * noise[2])
    holes = np.array([f"DH-{hole:02d}" for hole in campaign.holes])
    return Samples(np.round(np.column_stack([copper, nickel, sulphur]), 4), holes)


def split(samples, share, seed):
    """Return which samples the transform is fitted to: those of a share of the holes.

    Neighbours in a hole are alike, so that samples kept apart one by one would prove little.
    """
    names, numbers = np.unique(samples.holes, return_inverse=True)
    fitted = np.random.default_rng(seed).permutation(len(names)) < round(share * len(names))
    chosen = fitted[numbers]
    for count, what in ((chosen.sum(), "to fit"), ((~chosen).sum(), "to keep apart")):
        if count < LEAST_SAMPLES:
            raise InputError(
                f"share: {share:g} of {len(names)} holes leaves {count} samples {what}; "
                f"expected at least {LEAST_SAMPLES}"
            )
    return chosen


# Results -----------------------------------------------------------------------------------------


def normality(values):
    """Return skewness, excess of kurtosis and distance from the standard normal, by column."""
    distances = [stats.kstest(column, "norm").statistic for column in values.T]
    return np.column_stack([stats.skew(values), stats.kurtosis(values), distances])


def dependence(values):
    """Return correlation, rank correlation and that of distances from the medians, by pair."""
    distances = np.abs(values - np.median(values, axis=0))
    matrices = (
        np.corrcoef(values.T),
        stats.spearmanr(values).statistic,
        stats.spearmanr(distances).statistic,
    )
    return np.array([[matrix[pair] for matrix in matrices] for pair in PAIRS])


def print_comparison(title, headings, names, blocks):
    """Print three measures a row, for each of the blocks beside each other."""
    width = 10 * len(headings)
    print(f"\n{'':<17}" + "".join(f"{name:^{width}}" for name in blocks).rstrip())
    print(f"{title:<17}" + "".join(f"{name:>10}" for name in headings) * len(blocks))
    for name, *rows in zip(names, *blocks.values(), strict=True):
        print(f"{name:<17}" + "".join(f"{value:>10.2f}" for row in rows for value in row))


def print_summary(fitted, apart, scores, scores_fitted, errors):
    """Print normality and independence before and after, and errors of the round trip."""
    titles = "grades apart", "scores apart", "scores fitted"
    standardised = (apart - fitted.mean(axis=0)) / fitted.std(axis=0)
    tables = (normality(values) for values in (standardised, scores, scores_fitted))
    blocks = dict(zip(titles, tables, strict=True))
    print_comparison("normality", ("skewness", "kurtosis", "distance"), METALS, blocks)
    tables = (dependence(values) for values in (apart, scores, scores_fitted))
    blocks = dict(zip(titles, tables, strict=True))
    names = [f"{METALS[i]}-{METALS[j]}" for i, j in PAIRS]
    print_comparison("independence", ("linear", "ranks", "spreads"), names, blocks)
    print(f"\n{'round trip':<17}{'median':>10}{'95 %':>10}")
    for name, of_metal in zip(METALS, np.quantile(errors, [0.5, 0.95], axis=0).T, strict=True):
        print(f"{name:<17}" + "".join(f"{error:>10.4f}" for error in of_metal))


def print_simulated(grades, simulated):
    """Print quantiles and rank correlations of samples and of simulated triples."""
    levels = (0.05, 0.25, 0.5, 0.75, 0.95, 0.99)
    print(f"\n{'quantiles':<28}" + "".join(f"{level:>9.0%}" for level in levels))
    for k, name in enumerate(METALS):
        for what, values in (("samples", grades), ("simulated", simulated)):
            found = np.quantile(values[:, k], levels)
            print(f"{name:<14}{what:<14}" + "".join(f"{value:>9.4g}" for value in found))
    names = (f"{METALS[i]}-{METALS[j]}" for i, j in PAIRS)
    print(f"\n{'rank correlations':<28}" + "".join(f"{name:>18}" for name in names))
    for what, values in (("samples", grades), ("simulated", simulated)):
        print(f"{what:<28}" + "".join(f"{row[1]:>18.2f}" for row in dependence(values)))


def write_table(path, columns):
    """Write columns of text or numbers under their names."""
    with path.open("w", newline="", encoding="utf-8") as stream:
        writer = csv.writer(stream)
        writer.writerow(columns)
        for row in zip(*columns.values(), strict=True):
            writer.writerow([cell if isinstance(cell, str) else f"{cell:.7g}" for cell in row])


def named(values, names, prefix=""):
    """Return the columns of an array (n, 3) by their names."""
    return {f"{prefix}{name}": values[:, k] for k, name in enumerate(names)}


def draw(path, apart, scores, simulated):
    """Draw the pairs of grades kept apart, of their scores and of simulated grades.

    Grades below the axes are drawn at their edges.
    """
    limits = []
    for column in apart.T:
        low, high = np.quantile(column[column > 0], [0.002, 0.998])
        limits.append((low / 1.3, high * 1.3))
    figure, panels = plt.subplots(3, 3, figsize=(10, 9.6), layout="constrained")
    rows = (
        ("grades kept apart", apart, "#3b6fb6"),
        ("their scores", scores, "#2a8c5a"),
        ("simulated and carried back", simulated, "#d1541f"),
    )
    turn = np.linspace(0, 2 * np.pi, 181)
    for panel_row, (title, values, colour) in zip(panels, rows, strict=True):
        for panel, (i, j) in zip(panel_row, PAIRS, strict=True):
            # As many in every row, so that densities compare.
            x, y = values[: min(len(apart), len(simulated)), [i, j]].T
            if values is scores:
                for radius in (1, 2, 3):
                    panel.plot(radius * np.cos(turn), radius * np.sin(turn), c="0.6", lw=0.8)
                panel.set(xlim=(-4.2, 4.2), ylim=(-4.2, 4.2), aspect="equal")
            else:
                x, y = np.clip(x, *limits[i]), np.clip(y, *limits[j])
                panel.set(xscale="log", yscale="log", xlim=limits[i], ylim=limits[j])
            names = [f"score {k}" for k in (1, 2, 3)] if values is scores else METALS
            panel.scatter(x, y, s=3, c=colour, alpha=0.35, lw=0)
            panel.set(xlabel=names[i], ylabel=names[j])
        panel_row[1].set_title(title, fontsize=11)
    figure.savefig(path, dpi=90)
    plt.close(figure)


# Command line ------------------------------------------------------------------------------------


def parse_arguments(argv):
    """Parse the command line."""
    parser = argparse.ArgumentParser(
        description="Turn three metals' grades into independent normal scores, and come back.",
        epilog=HELP,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    table_help = "default: drill a small sulphide body"
    parser.add_argument("table", nargs="?", metavar="COMPOSITES.csv", help=table_help)
    parser.add_argument("--out", default="out", metavar="FOLDER")
    parser.add_argument("--threads", type=int, default=0, metavar="N", help="default: all")
    groups = {
        "columns of the table": [(role, str, "NAME", None) for role in (*METALS, "hole")],
        "transform": [
            ("scale", str, "SCALE", " or ".join(SCALES)),
            ("share", float, "SHARE", "of the holes that it is fitted to"),
            ("steps", int, "N", None),
            ("bins", int, "N", "quantiles that maps are fitted to"),
            ("seed", int, "N", "of the holes kept apart, the fit and the simulation"),
        ],
        "simulation": [("simulated", int, "N", "triples of grades")],
    }
    for title, settings in groups.items():
        group = parser.add_argument_group(title)
        for name, kind, metavar, text in settings:
            text = f"{text}; default: %(default)s" if text else "default: %(default)s"
            default = DEFAULTS[name]
            group.add_argument(f"--{name}", type=kind, metavar=metavar, default=default, help=text)
    return vars(parser.parse_args(argv))


def check_settings(options):
    """Check the settings of the transform and of the simulation."""
    if options["scale"] not in SCALES:
        raise InputError(f"scale: expected {' or '.join(SCALES)}, got '{options['scale']}'")
    if not 0 < options["share"] < 1:
        raise InputError(f"share: expected a number between 0 and 1, got {options['share']:g}")
    for name, minimum in (("steps", 1), ("bins", 50), ("seed", 0), ("simulated", 1)):
        check_number(options, name, whole=True, minimum=minimum)
    check_number(options, "threads", whole=True)


def run(options):
    """Fit, carry forward and back, simulate, print, write and draw."""
    check_settings(options)
    columns = {role: options[role] for role in (*METALS, "hole")}
    table, folder = options["table"], Path(options["out"])
    samples = read_samples(Path(table), columns) if table else drill_sulphides()
    chosen = split(samples, options["share"], options["seed"])
    fitted, apart = samples.grades[chosen], samples.grades[~chosen]
    for name, *both in zip(METALS, fitted.T, apart.T, strict=True):
        for values, what in zip(both, ("fitted", "kept apart"), strict=True):
            if np.ptp(values) == 0:
                raise InputError(
                    f"column '{columns[name]}': expected grades that differ among the samples "
                    f"{what}, got {values[0]:g} only"
                )
    make_folder(folder)
    if not table:
        grades = named(samples.grades, [columns[name] for name in METALS])
        write_table(folder / "composites.csv", {columns["hole"]: samples.holes, **grades})
    print(
        f"{len(samples.grades):,} samples, {samples.skipped:,} rows that miss a grade left out; "
        f"{len(fitted):,} to fit, {len(apart):,} in other holes kept apart",
        flush=True,
    )
    start = time.perf_counter()
    with status(f"fit of {options['steps']} steps to {len(fitted):,} samples"):
        transform = Transform(fitted, options, options["threads"])
    seconds = time.perf_counter() - start
    print(f"{options['steps']} steps fitted to {options['scale']} in {seconds:.1f} s")

    scores = transform.forward(apart)
    returned = transform.backward(scores)
    errors = np.abs(returned - apart) / fitted.std(axis=0)
    print_summary(fitted, apart, scores, transform.forward(fitted), errors)
    normals = np.random.default_rng(options["seed"]).standard_normal((options["simulated"], 3))
    simulated = transform.backward(normals)
    print_simulated(samples.grades, simulated)
    write_table(
        folder / "scores.csv",
        {
            "hole": samples.holes[~chosen],
            **named(apart, METALS),
            **named(scores, (1, 2, 3), "score_"),
            **named(returned, METALS, "returned_"),
        },
    )
    write_table(folder / "simulated.csv", named(simulated, METALS))
    draw(folder / "multivariate.png", apart, scores, simulated)
    print(f"\nwritten: {folder / 'scores.csv'}, simulated.csv, multivariate.png")


def main(argv=None):
    """Run the script and return its exit code."""
    return carry_out(run, parse_arguments(argv), "multivariate.py")


if __name__ == "__main__":
    sys.exit(main())
