#!/usr/bin/env python3
"""Simulate a deposit from drillhole composites: realisations that honour the samples.

    simulate_deposit.py composites.csv --value cu_pct --model job.toml --realisations 20 \\
        --cutoff 0.5 --out out

Columns, model, search and grid are given as to estimate_drillholes.py, and --model takes the same
TOML file; what is given on the command line wins. Without a table the script drills the small ore
body of that script, with the settings of examples/campaign.toml.

The folder given by --out receives realisations.npz, summary.csv (x, y, z of the simulated cells
with the mean, the standard deviation and the probability above the cut-off of their realisations)
and simulation.png. In realisations.npz the array `realisations` is of float32 and has the shape
(realisations, nx, ny, nz); `mean`, `std` and `probability` have (nx, ny, nz), and all are NaN in
cells that were not simulated.
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
    ELLIPSOID,
    Composites,
    InputError,
    axes_of,
    carry_out,
    check_number,
    check_numbers,
    drill_campaign,
    make_folder,
    make_parser,
    number_list,
    plan_search,
    read_composites,
    read_job,
    read_settings,
    status,
    tracked,
    write_composites,
)
from scipy.fft import next_fast_len
from scipy.spatial import cKDTree

METHODS = "fourier", "turning-bands"
SIMULATION_DEFAULTS = {"realisations": 20, "seed": 1}
# The lattice of the Fourier integral method: its length beside that of the field, as talvorix
# makes it, how finely it should resolve a range and how many nodes are made for that.
LATTICE_LENGTH = 1.5
STEPS_PER_RANGE = 10
MOST_NODES = 8_000_000
COARSE_STEP = 0.25
# Fields are conditioned together, as many as keep memory to about 400 MB.
BATCH, BATCH_NUMBERS = 10, 50_000_000
TIE_NEIGHBORS = 9
# Of the table behind the normal scores, for each sample.
TABLE_ENTRIES = 40
DRAWN, VARIOGRAM_LAGS = 3, 16
FLAT = 0.25
COLOURS = {"east (x)": "#3b6fb6", "north (y)": "#3a8f5c", "vertical (z)": "#d1541f"}

HELP = """\
from samples to realisations:
  The samples are turned into normal scores: the sample of rank k of n takes the normal quantile
  of the probability (k - 1/2) / n. Equal values are ranked by the mean of the samples around
  them, so that the scores are normal also where many assays stand at the detection limit.
  Realisations of a Gaussian field are conditioned to the scores by simple kriging with mean 0,
  and turned back linearly between the scores of the samples. Scores beyond those of the least and
  the greatest sample take these values: no realisation leaves the range of the samples.
  Samples in one place count as one, with their mean. Samples that no cell's search could reach
  are left out altogether. No declustering weights are used: when holes crowd in rich parts, the
  realisations are as rich.

  Each cell stands for a sample in its centre, not for the mean of its volume.

covariance model:
  Its sills are scaled to add up to 1, the variance of the scores. A model that was fitted to the
  raw values is taken as that of the scores; one fitted to scores is better.

nugget:
  It is simulated as a field of its own, whose range is a thousandth of a cell: noise between any
  two places, but the same at every evaluation in one place. So it is part of what kriging with the
  nugget in its model corrects at the samples, and these are honoured exactly. Their noise is not
  repeated in the cells around them.

methods:
  fourier draws a field on a lattice. Its values change in steps, and the lattice, of at most
  8 million nodes, is to resolve the shortest range: the script says how well it does. With ten
  steps to a range the variogram is some hundredths of the sill too high at the shortest lags. A
  part of the variance is missing, about a third of a range over the length of the lattice along
  the third axis.
  turning-bands knows its field everywhere, at any range, and takes no memory. It is true to
  spherical and gaussian structures, but its exponential one differs from the model: its variogram
  lies above it by up to 0.09 of the sill, most at 0.6 of the range. So the default is fourier for
  a model with an exponential structure, and turning-bands for others.

search:
  Cells with at least --min-samples inside the search ellipsoid are simulated, the same ones that
  estimate_drillholes.py estimates. A cell is conditioned by the --neighbors nearest samples,
  however far they are; the limits per hole and octant then thin this list.

chance:
  The same --seed gives the same realisations with any number of threads; the first ones are the
  same when more are asked for.

what is printed:
  Every realisation is evaluated at the samples, too. The largest differences there, of scores
  and of values, show whether the samples are honoured. "Cells with samples" compares what these
  cells hold with the mean of the samples in them, which lie off the centres. The variograms are
  those of scores along the axes of the grid: by how much their mean differs from the model, at
  the lag where that is most, in parts of the variance. Those of fields before conditioning tell
  how true the method is to the model. Realisations follow the samples where these and the model
  disagree.
"""


@dataclass
class Cells:
    """A grid of which some cells are `active`, (n,) of bool; `centres` are those of these."""

    grid: talvorix.CartesianGrid
    active: np.ndarray
    centres: np.ndarray


@dataclass
class Simulation:
    """What is to be simulated; `model` has sills that add up to 1."""

    model: list
    method: str
    realisations: int
    cutoff: float
    seed: int
    neighbors: int


@dataclass
class NormalScores:
    """The scores of the samples, and the table that turns scores back into values."""

    scores: np.ndarray
    table: tuple

    def values(self, scores):
        """Turn scores back; NaN stays NaN."""
        return np.interp(scores, *self.table)


@dataclass
class Result:
    """Realisations in the active cells, and what was measured while they were made.

    `values` is (realisations, cells) of float32; `variograms` holds for each axis of the grid an
    array (realisations, lags), and `before` those of some fields without conditioning;
    `score_error` and `value_error` are the largest at the samples.
    """

    values: np.ndarray
    variograms: list
    before: list
    score_error: float
    value_error: float
    seconds: float


# Settings ----------------------------------------------------------------------------------------


def scale_model(model):
    """Return the structures with sills that add up to 1, the variance of normal scores."""
    if all(part.type == "nugget" for part in model):
        raise InputError("structure: expected at least one, beside the nugget; got none")
    total = sum(part.sill for part in model)
    return [
        talvorix.Covariance.nugget(part.sill / total)
        if part.type == "nugget"
        else getattr(talvorix.Covariance, part.type)(part.sill / total, part.ellipsoid)
        for part in model
    ]


def read_simulation(own, job, values):
    """Check the settings of the simulation and choose what was not given."""
    own = {"cutoff": float(np.quantile(values, 0.75))} | SIMULATION_DEFAULTS | own
    exponential = any(part.type == "exponential" for part in job.model)
    # At most so many of a hole or an octant are kept, so a longer list is searched.
    thinned = job.limits["max_per_hole"] > 0 or job.limits["max_octant"] > 0
    own.setdefault("neighbors", job.limits["max_samples"] * (2 if thinned else 1))
    return Simulation(
        model=scale_model(job.model),
        method=own.get("method", METHODS[0] if exponential else METHODS[1]),
        realisations=check_number(own, "realisations", whole=True, minimum=1),
        cutoff=check_numbers("cutoff", [own["cutoff"]], (1,))[0],
        seed=check_number(own, "seed", whole=True),
        neighbors=check_number(own, "neighbors", whole=True, minimum=1),
    )


# Data --------------------------------------------------------------------------------------------


def samples_in_reach(composites, job):
    """Keep the samples that a cell's search may reach, those in one place as their mean."""
    cells = np.asarray(job.grid)
    # Half the sides of the box around the search ellipsoid.
    reach = np.linalg.norm(np.asarray(job.search.inv_matrix()), axis=1)
    low, high = cells.min(axis=0) - reach, cells.max(axis=0) + reach
    near = np.all((composites.locations >= low) & (composites.locations <= high), axis=1)
    if not near.any():
        raise InputError("no sample lies within reach of the grid: check --origin and --search")
    places, first, group = np.unique(
        composites.locations[near], axis=0, return_index=True, return_inverse=True
    )
    group = group.ravel()
    means = np.bincount(group, composites.values[near]) / np.bincount(group)
    if np.ptp(means) == 0:
        raise InputError(f"expected samples near the grid that differ, got {means[0]:g} only")
    return Composites(places, means, composites.holes[near][first], composites.skipped)


def to_normal_scores(samples, search):
    """Turn values into normal scores, equal ones ranked by the mean of those around them."""
    values, n = samples.values, len(samples.values)
    places = samples.locations @ np.asarray(search.matrix()).T
    around = cKDTree(places).query(places, k=np.arange(1, min(TIE_NEIGHBORS, n) + 1))[1]
    order = np.lexsort((values[around].mean(axis=1), values))
    ranks = np.empty(n)
    ranks[order] = np.arange(n)
    # Of ranks rather than of values: equal values would share a score, and the least one, of
    # probability 0, would take the least normal number that was drawn.
    transform = talvorix.NScore(
        talvorix.uniform_distribution(-0.5, n - 0.5),
        talvorix.gaussian_distribution(),
        n=max(800_000, TABLE_ENTRIES * n),
    )
    scores = np.array(transform.forward(ranks))
    return NormalScores(scores, (scores[order], values[order]))


# Simulation --------------------------------------------------------------------------------------


def cover(locations, structures):
    """Return the corners of the box of some locations, and what makes it hold all structures."""
    low, high = locations.min(axis=0), locations.max(axis=0)
    corners = [np.where(np.array(corner), high, low) for corner in np.ndindex(2, 2, 2)]
    # The field of a lattice repeats itself: it has to be long beside the ranges.
    for part in structures:
        axes = np.asarray(part.ellipsoid.inv_matrix()).T
        corners.extend([*((low + high) / 2 + axes), *((low + high) / 2 - axes)])
    return np.array(corners)


def lattice_nodes(corners, structures):
    """Choose the nodes of the lattice along each axis, and return its step in ranges, too."""
    extents = np.max(
        [np.ptp(corners @ np.asarray(s.ellipsoid.matrix()).T, axis=0) for s in structures], axis=0
    )
    lengths = LATTICE_LENGTH * extents
    per_range = min(STEPS_PER_RANGE, (MOST_NODES / np.prod(lengths)) ** (1 / 3))
    nodes = [next_fast_len(math.ceil(length * per_range)) for length in lengths]
    return nodes, float((lengths / nodes).max())


def nugget_structure(sill, grid):
    """Return the structure that stands for a nugget: far shorter than the cells.

    A nugget's own field gives a new value whenever it is evaluated, at a sample as well, and could
    not be corrected there.
    """
    length = 1e-3 * float(np.min(np.abs(np.ravel(grid.cell_size()))))
    return talvorix.Covariance.gaussian(sill, talvorix.Ellipsoid(length, length, length, 0, 0, 0))


def condition(estimator, targets, neighborhood, samples, scores, fields, n_threads):
    """Condition each field to the scores; return one row for each."""
    data = targets, neighborhood, samples.locations, scores
    return np.array(talvorix.simulate(estimator, *data, fields, n_threads))


def simulate(simulation, cells, samples, normal, job, n_threads):
    """Simulate the active cells of a grid.

    Parameters
    ----------
    simulation : Simulation
    cells : Cells
    samples : Composites
    normal : NormalScores
        Of the samples.
    job : Job
        The search and its limits.
    n_threads : int
        0 for all hardware threads.

    Returns
    -------
    Result
    """
    # The realisations are wanted at the samples as well, to see that they are honoured.
    targets = np.concatenate([cells.centres, samples.locations])
    nugget = sum(part.sill for part in simulation.model if part.type == "nugget")
    structures = [part for part in simulation.model if part.type != "nugget"]
    corners = cover(targets, structures)
    if simulation.method == "fourier":
        nodes, step = lattice_nodes(corners, structures)
        print("lattice of {} x {} x {} nodes,".format(*nodes), f"a step is {step:.2g} of a range")
        if step > COARSE_STEP:
            print("  too coarse for the model: choose a smaller grid or --method turning-bands")
        # Its phases depend on the number of threads.
        factory = talvorix.SimulatorFactory.FIM(corners, *nodes, n_threads=1)
    else:
        nodes, factory = (), talvorix.SimulatorFactory.TBSIM(corners)
    noise_factory = talvorix.SimulatorFactory.TBSIM(corners)
    noise = [nugget_structure(nugget, job.grid)]
    estimator = talvorix.SimpleKriging(
        simulation.model,
        0.0,
        simulation.neighbors,
        max_neighbors_octant=job.limits["max_octant"],
        dhids=samples.holes,
        max_neis_by_dhid=job.limits["max_per_hole"],
    )
    neighborhood = talvorix.Neighborhood(samples.locations, job.search)

    # Drawn in rows, so that more realisations begin with the same ones.
    shape = simulation.realisations, 2
    seeds = np.random.default_rng(simulation.seed).integers(2**32, size=shape).tolist()
    # A list of n numbers takes as much as an array of 4 n.
    together = BATCH_NUMBERS // max(8 * len(targets), math.prod(nodes))
    together = min(max(together, 1), BATCH)
    values = np.empty((shape[0], len(cells.centres)), np.float32)
    result = Result(values, [[], [], []], [[], [], []], 0.0, 0.0, 0.0)
    for first in tracked(range(0, shape[0], together), f"{shape[0]} realisations, batch"):
        start = time.perf_counter()
        batch = seeds[first : first + together]
        fields = [factory(structures, seed) for seed, _ in batch]
        if nugget > 0:
            fields += [noise_factory(noise, seed) for _, seed in batch]
        # Conditioning is linear. Two fields that are each conditioned to half of the scores add up
        # to their sum conditioned to the scores, and one kriging serves all.
        parts = 2 if nugget > 0 else 1
        halves = condition(
            estimator, targets, neighborhood, samples, normal.scores / parts, fields, n_threads
        )
        result.seconds += time.perf_counter() - start
        for number, scores in enumerate(halves.reshape(parts, len(batch), -1).sum(axis=0), first):
            of_cells, of_samples = np.split(normal.values(scores), [len(cells.centres)])
            result.values[number] = of_cells
            error = np.abs(of_samples - samples.values).max()
            result.value_error = max(result.value_error, float(error))
            of_cells, of_samples = np.split(scores, [len(cells.centres)])
            error = np.abs(of_samples - normal.scores).max()
            result.score_error = max(result.score_error, float(error))
            add_variograms(result.variograms, cells, of_cells)
        # Those of the first batch are enough to see how true fields are to the model.
        for k in range(len(batch) if first == 0 else 0):
            both = fields[k :: len(batch)]
            field = sum(np.array(f.simulate(cells.centres, n_threads)) for f in both)
            add_variograms(result.before, cells, field)
    return result


# Results -----------------------------------------------------------------------------------------


def fill(cells, of_active):
    """Return cubes of shape (..., nx, ny, nz) of what is known of the active cells, else NaN."""
    shape = of_active.shape[:-1]
    cubes = np.full((*shape, len(cells.active)), np.nan, np.float32)
    cubes[..., cells.active] = of_active
    return cubes.reshape(*shape, *cells.grid.number_of_cells())


def lags_in_cells(count):
    """Choose the lags of a variogram along an axis of so many cells."""
    return np.unique(np.linspace(1, max(count // 2, 1), VARIOGRAM_LAGS).astype(int))


def grid_variogram(cube, axis):
    """Compute the semivariances at these lags along one axis of a grid; NaN without pairs."""
    n = cube.shape[axis]
    along = np.moveaxis(cube, axis, 0)
    means = []
    for lag in lags_in_cells(n):
        squares = (along[lag:] - along[: n - lag]) ** 2
        some = squares[np.isfinite(squares)]
        means.append(some.mean(dtype=float) / 2 if len(some) else math.nan)
    return np.array(means)


def add_variograms(variograms, cells, scores):
    """Add the variograms of scores of the active cells to the lists of the three axes."""
    cube = fill(cells, scores)
    for axis, rows in enumerate(variograms):
        rows.append(grid_variogram(cube, axis))


def summarise(values, cutoff):
    """Return mean, standard deviation and probability above a cut-off of every cell."""
    return {
        "mean": values.mean(axis=0, dtype=float),
        "std": values.std(axis=0, dtype=float),
        "probability": (values > np.float32(cutoff)).mean(axis=0),
    }


def write_results(folder, cells, values, summary):
    """Write summary.csv with the simulated cells and realisations.npz with all of them."""
    table = np.column_stack([cells.centres, *summary.values()])
    header = ",".join(["x", "y", "z", *summary])
    formats = ["%.10g"] * 3 + ["%.7g"] * len(summary)
    np.savetxt(folder / "summary.csv", table, formats, ",", header=header, comments="")
    centres = zip("xyz", axes_of(cells.grid), strict=True)
    axes = {f"{axis}_centres": along for axis, along in centres}
    cubes = {name: fill(cells, column) for name, column in summary.items()}
    path = folder / "realisations.npz"
    np.savez_compressed(path, realisations=fill(cells, values), **cubes, **axes)


def model_variogram(model, grid, axis, lags):
    """Return the semivariances of a scaled model at lags in cells along an axis of the grid."""
    vectors = np.zeros((len(lags), 3))
    vectors[:, axis] = lags * np.ravel(grid.cell_size())[axis]
    return np.array(talvorix.variogram_computer(model, 1.0).simulate(vectors))


def draw_section(panel, cube, colours, job, samples, through, cut):
    """Draw one level or row of cells, with the samples near it when there are any."""
    right, up = (axis for axis in range(3) if axis != through)
    size, counts = np.ravel(job.grid.cell_size()), job.grid.number_of_cells()
    low = np.ravel(job.grid(0)) - size / 2
    high = low + counts * size
    extent = [low[right], high[right], low[up], high[up]]
    image = panel.imshow(
        cube.take(cut, through).T, origin="lower", extent=extent, interpolation="nearest", **colours
    )
    if samples is not None:
        places, values = samples
        near = np.abs(places[:, through] - low[through] - (cut + 0.5) * size[through])
        near = near <= size[through]
        x, y = places[near, right], places[near, up]
        panel.scatter(x, y, s=7, c=values[near], ec="0.8", lw=0.2, **colours)
    panel.set(xlim=extent[:2], ylim=extent[2:])
    panel.ticklabel_format(useOffset=False, style="plain")
    panel.locator_params("both", nbins=6)
    panel.tick_params(labelsize=8)
    panel.set_facecolor("0.88")
    return image


def draw_variograms(panel, variograms, simulation, grid):
    """Draw the variograms of all realisations along the axes of the grid, and the model."""
    longest = 0.0
    for axis, (name, colour) in enumerate(COLOURS.items()):
        size, lags = np.ravel(grid.cell_size())[axis], lags_in_cells(grid.number_of_cells()[axis])
        panel.plot(lags * size, np.transpose(variograms[axis]), color=colour, lw=0.5, alpha=0.35)
        # From just above 0, where the nugget counts.
        fine = np.linspace(1e-3, 1, 200) * lags[-1]
        curve = fine * size, model_variogram(simulation.model, grid, axis, fine)
        panel.plot(*curve, color="white", lw=3.4)
        panel.plot(*curve, color=colour, lw=2, label=name)
        longest = max(longest, lags[-1] * size)
    panel.axhline(1, color="0.55", lw=1, ls="--")
    panel.set_title("variograms of the scores: model and realisations", fontsize=10)
    reach = max(part.ellipsoid.info().r1() for part in simulation.model if part.type != "nugget")
    panel.set(xlim=(0, min(longest, 2 * reach)), ylim=(0, None))
    panel.set_xlabel("lag", fontsize=9)
    panel.tick_params(labelsize=8)
    panel.legend(fontsize=8, loc="lower right")


def draw(path, job, simulation, samples, cells, result, summary):
    """Draw sections of realisations, the mean and the probability, and the variograms."""
    size = np.ravel(job.grid.cell_size())
    length = size * job.grid.number_of_cells()
    # A plan where a section would be a strip.
    through = 2 if length[2] < FLAT * length[0] else 1
    values = samples.values
    edges = np.ravel(job.grid(0))[through] - size[through] / 2
    edges = edges + np.arange(job.grid.number_of_cells()[through] + 1) * size[through]
    metal = np.histogram(samples.locations[:, through], edges, weights=values - values.min())[0]
    cut = int(metal.argmax())
    at = axes_of(job.grid)[through][cut]

    low, high = np.percentile(values, [2, 98])
    colours = {"cmap": "viridis", "vmin": low, "vmax": high}
    shares = {"cmap": "magma", "vmin": 0, "vmax": 1}
    places = samples.locations
    above = (values > simulation.cutoff).astype(float)
    panels_of = [
        (f"realisation {k + 1}", result.values[k], colours, None)
        for k in range(min(DRAWN, len(result.values)))
    ]
    mean_title = f"mean of {len(result.values)} realisations"
    panels_of.append((mean_title, summary["mean"], colours, (places, values)))
    probability_title = f"probability above {simulation.cutoff:.4g}"
    panels_of.append((probability_title, summary["probability"], shares, (places, above)))
    height = length[1 if through == 2 else 2] / length[0]
    figure, panels = plt.subplots(
        3, 2, figsize=(9.6, float(np.clip(13.2 * height + 1.6, 6.5, 14))), layout="constrained"
    )
    images = {}
    for panel, (title, column, scale, shown) in zip(panels.flat, panels_of, strict=False):
        cube = fill(cells, column)
        images[scale["cmap"]] = draw_section(panel, cube, scale, job, shown, through, cut)
        panel.set_title(title, fontsize=10)
    for panel in panels.flat[len(panels_of) : -1]:
        panel.set_axis_off()
    draw_variograms(panels.flat[-1], result.variograms, simulation, job.grid)
    column = job.columns["value"]
    figure.colorbar(images["viridis"], ax=panels[:2], label=column, extend="both", shrink=0.7)
    figure.colorbar(images["magma"], ax=panels[2], label="probability", shrink=0.9)
    cut_name = "plan at z" if through == 2 else "section looking north at y"
    figure.suptitle(f"{column}: {cut_name} = {at:,.7g}", fontsize=11)
    figure.savefig(path, dpi=90)
    plt.close(figure)


def means_by_cell(samples, grid):
    """Return the cells that hold samples, and the mean of these in each."""
    size, counts = np.ravel(grid.cell_size()), np.array(grid.number_of_cells())
    ijk = np.floor((samples.locations - np.ravel(grid(0))) / size + 0.5).astype(int)
    inside = np.all((ijk >= 0) & (ijk < counts), axis=1)
    cells, group = np.unique(np.ravel_multi_index(ijk[inside].T, counts), return_inverse=True)
    return cells, np.bincount(group, samples.values[inside]) / np.bincount(group)


def departures(variograms, model, grid):
    """Tell by how much at most the mean of variograms differs from a model along each axis."""
    for axis, name in enumerate("xyz"):
        lags = lags_in_cells(grid.number_of_cells()[axis])
        off = np.mean(variograms[axis], axis=0) - model_variogram(model, grid, axis, lags)
        off = off[np.isfinite(off)]
        most = f"{off[np.abs(off).argmax()]:+.3f}" if len(off) else "-"
        yield f"{most} along {name}"


def print_summary(samples, simulation, cells, result):
    """Print how the realisations compare with the samples and the model."""
    values, simulated, cutoff = samples.values, result.values, simulation.cutoff
    n, seconds = len(simulated), result.seconds / len(simulated)
    held, per_cell = means_by_cell(samples, cells.grid)
    of_cell = np.full(len(cells.active), -1)
    of_cell[cells.active] = np.arange(simulated.shape[1])
    active = of_cell[held] >= 0
    there, per_cell = simulated[:, of_cell[held[active]]], per_cell[active]

    print(f"\n{'':<34}{'mean':>10}{'variance':>10}{'above ' + format(cutoff, '.4g'):>14}")
    for name, rows in (
        ("samples", values[None]),
        (f"{n} realisation" + "s" * (n > 1), simulated),
        ("cells with samples: samples", per_cell[None]),
        ("cells with samples: realisations", there),
    ):
        if not rows.size:
            continue
        mean, variance = rows.mean(dtype=float), rows.var(axis=1, dtype=float).mean()
        share = (rows > cutoff).mean()
        print(f"{name:<34}{mean:>10.4f}{variance:>10.4f}{share:>14.1%}")
    means = simulated.mean(axis=1, dtype=float)
    print(f"means of single realisations: {means.min():.4f} to {means.max():.4f}")
    if len(per_cell) > 2 and np.ptp(per_cell) > 0:
        together = np.corrcoef(per_cell, there.mean(axis=0, dtype=float))[0, 1]
        print(f"cells with samples: correlation of both means {together:.3f}")
    print(
        f"largest difference at the samples: {result.score_error:.1e} of scores, "
        f"{result.value_error:.1e} of values"
    )
    print("variograms of scores less that of the model, where it is most:")
    named = ("fields before conditioning", result.before), ("realisations", result.variograms)
    for name, variograms in named:
        print(f"  {name:<28}" + ", ".join(departures(variograms, simulation.model, cells.grid)))
    print(f"{simulation.method}: {seconds:.2f} seconds a realisation")


def parse_arguments(argv):
    """Parse the command line; settings that are not given are absent from the result."""
    groups = DATA_OPTIONS | {
        "search": [
            ("search", number_list, f"'{ELLIPSOID}'", "the search ellipsoid"),
            ("min_samples", int, "N", None),
            ("max_samples", int, "N", None),
            ("max_per_hole", int, "N", "0 for no limit"),
            ("max_octant", int, "N", "0 for no limit"),
        ],
        "grid": [
            ("origin", number_list, "'X Y Z'", "low corner of the first cell, not its centre"),
            ("cells", number_list, "'NX NY NZ'", "numbers of cells"),
            ("size", number_list, "'DX DY DZ'", "size of a cell"),
        ],
        "simulation": [
            ("realisations", int, "N", "default: 20"),
            ("cutoff", float, "VALUE", "default: the upper quartile of the samples"),
            ("seed", int, "N", "default: 1"),
            ("neighbors", int, "N", "default: --max-samples, twice as many with a limit"),
        ],
    }
    description = "Simulate a deposit from drillhole composites, conditionally, and draw it."
    parser = make_parser(description, HELP, groups)
    parser.add_argument("--method", choices=METHODS, help="default: see below")
    return vars(parser.parse_args(argv))


def run(options):
    """Simulate, print, write and draw what the options describe."""
    table, folder = options.pop("table"), Path(options.pop("out"))
    n_threads = options.pop("threads")
    if n_threads < 0:
        raise InputError(f"--threads: expected 0 or more, got {n_threads}")
    path = options.pop("model", None if table else CAMPAIGN)
    names = (*SIMULATION_DEFAULTS, "cutoff", "neighbors", "method")
    own = {name: options.pop(name) for name in names if name in options}
    job = read_job((read_settings(Path(path)) if path else {}) | options)
    if table:
        by_hole = job.limits["max_per_hole"] > 0
        composites = read_composites(Path(table), job.columns, by_hole)
    else:
        composites = drill_campaign()
    samples = samples_in_reach(composites, job)
    simulation = read_simulation(own, job, samples.values)
    centres = np.asarray(job.grid)
    reach, _ = plan_search(centres, samples, job.search, job.limits, n_threads)
    cells = Cells(job.grid, reach > 0, centres[reach > 0])
    if not len(cells.centres):
        raise InputError(
            f"search: no cell has the {job.limits['min_samples']} samples that min_samples asks for"
        )
    make_folder(folder)
    if not table:
        write_composites(folder / "composites.csv", composites, job.columns)

    print(
        f"{len(samples.values):,} samples in reach of {len(composites.values):,}, "
        f"{composites.skipped:,} rows without a value skipped; "
        f"{len(cells.centres):,} of {len(job.grid):,} cells simulated"
    )
    total = sum(part.sill for part in job.model)
    print(f"covariance model: sills of {total:.4g} in all scaled to 1")
    normal = to_normal_scores(samples, job.search)
    result = simulate(simulation, cells, samples, normal, job, n_threads)
    summary = summarise(result.values, simulation.cutoff)
    print_summary(samples, simulation, cells, result)
    with status("writing the results"):
        write_results(folder, cells, result.values, summary)
        draw(folder / "simulation.png", job, simulation, samples, cells, result, summary)
    print(f"\nwritten: {folder / 'realisations.npz'}, summary.csv, simulation.png")


def main(argv=None):
    """Run the script and return its exit code."""
    return carry_out(run, parse_arguments(argv), "simulate_deposit.py")


if __name__ == "__main__":
    sys.exit(main())
