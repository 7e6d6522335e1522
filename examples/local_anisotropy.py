#!/usr/bin/env python3
"""Fit local ellipsoids to a folded deposit, and compare their ensemble with one global model.

    local_anisotropy.py --out out

The script makes a layered deposit with a known fold and drills it. Layers bend from dipping one way
to dipping the other, so that no single ellipsoid follows them. Ellipsoids fitted to small areas
do, and `talvorix.ensemble_estimation` krigs every target with those nearest to it.

Whole holes are left out in turn and estimated from the others, for which all models are fitted
anew. The folder given by --out receives local_anisotropy.png.
"""

from __future__ import annotations

import argparse
import sys
import time
from dataclasses import dataclass
from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
import talvorix
from estimate_drillholes import (
    InputError,
    carry_out,
    check_number,
    make_folder,
    status,
    tracked,
)
from find_anisotropy import find_ellipsoid, read_search, resized

BOX = np.array([[0, 0, 0], [800, 200, 200]])
AMPLITUDE, WAVELENGTH = 50.0, 400.0
RANGES, NUGGET, SPACING = (250, 250, 40), 0.05, 10.0
# Of the fold; it reaches beyond the box, since inclined holes may.
ARC_X = np.linspace(BOX[0, 0] - 50, BOX[1, 0] + 50, 18_001)
SECTION_CELL = 5.0

# An area reaches so far, and holds so many samples. It has to be short beside the fold, but wide
# enough to hold several holes: with half as many samples poles are 3 degrees further off.
AREA_REACH, AREA_SIZE = 140.0, 240
PARTS, PART_SIZE = 3, 120
# Subsets as small as the number of holes in an area. In large ones a sample of the same hole is
# always at hand, and every ellipsoid predicts equally well from it.
SUBSET_SIZES, SUBSETS = (8, 16), 7
MAX_RANGE, ITERATIONS = 250.0, 20

NEIGHBORS, PER_HOLE = 96, 4
MODELS_NEAR, MODEL_POWER, AT_CENTRE = 6, 1.0, 0.5
IDW_POWER = 2.0
# Kriging estimates contain the Lagrange multiplier, which goes with the sill; the weights do not
# depend on it. With a tiny sill it is out of the estimates.
TINY = 1e-6
SECTION_BAND, SAMPLE_BAND, DRAWN = 60.0, 20.0, 0.16
# Of the global search. With fewer folds it ends in directions that predict left-out holes worse.
GLOBAL_SEARCH = {"kernel": "spherical", "folds": 40, "neighbors": 150, "penalty": 0.0}
# The best global model that was found by hand, by someone who knows the direction of the fold.
ALONG_FOLD = (250, 100, 60, 0, 0, 0)
DEFAULTS = {"holes": 100, "centres": 60, "folds": 5, "seed": 1}
QUICK_CENTRES = 40

HELP = """\
fits:
  least-squares is talvorix.optimize_local_ellipsoids_using_lbfgs, search the random search of
  talvorix.optimize_local_ellipsoids. Both let inverse distances in the metric of an ellipsoid
  predict the samples of an area from small subsets of them. The random search tries some hundreds
  of ellipsoids, whose directions are as far apart as their number makes them; least squares follow
  the derivatives from one start to the bottom of a valley. The global ellipsoid is that of
  find_anisotropy.py, for which all samples are one area.

validation:
  All methods take the same samples: of the 96 nearest, by plain distance, up to 4 of a hole. None
  of the models has a nugget. Two rows know what nobody would: "along the fold" is one ellipsoid
  that lies along the axis of the fold, its ranges chosen by hand for the least error; "true dips"
  is the ensemble of ellipsoids which lie in the layers and have the true ranges, at the same
  centres, and tells what a perfect fit would give.

picture:
  Ellipses are the sections of local ellipsoids whose centres lie within 60 m of the section, all
  drawn at a sixth of their size; the one in the global estimate is drawn at half its size.
"""


@dataclass
class Deposit:
    """Samples along drillholes, and the true values on a section through the middle."""

    locations: np.ndarray
    values: np.ndarray
    holes: np.ndarray
    section: np.ndarray
    truth: np.ndarray


# Fold --------------------------------------------------------------------------------------------


def fold(x):
    """Return the height of the fold."""
    return AMPLITUDE * np.sin(2 * np.pi * x / WAVELENGTH)


def dip_of(x):
    """Return the dip of the layers toward +x, in degrees, positive upward."""
    slope = AMPLITUDE * 2 * np.pi / WAVELENGTH * np.cos(2 * np.pi * x / WAVELENGTH)
    return np.degrees(np.arctan(slope))


def unfold(locations):
    """Return coordinates along and across the layers: arc length, y and distance from the fold.

    The distance is that from the fold's tangent below or above, which is good where it is short
    beside the radius of curvature.
    """
    x, y, z = np.transpose(locations)
    steps = np.hypot(np.diff(ARC_X), np.diff(fold(ARC_X)))
    lengths = np.concatenate([[0], np.cumsum(steps)])
    across = (z - fold(x)) * np.cos(np.radians(dip_of(x)))
    return np.column_stack([np.interp(x, ARC_X, lengths), y, across])


def make_deposit(n_holes, seed):
    """Simulate the layers in unfolded coordinates, fold them and drill them."""
    locations, holes = talvorix.create_random_drillholes(
        talvorix.BoundingBox(BOX),
        n_holes=n_holes,
        spacing=SPACING,
        azimuth=0,
        dip=-90,
        delta_angle=4,
        seed=5,
    )
    locations = np.reshape(locations, (-1, 3))
    axes = [np.arange(BOX[0, k] + SECTION_CELL / 2, BOX[1, k], SECTION_CELL) for k in (0, 2)]
    x, z = (grid.ravel() for grid in np.meshgrid(*axes, indexing="ij"))
    section = np.column_stack([x, np.full(len(x), BOX[:, 1].mean()), z])
    unfolded = unfold(np.concatenate([locations, section]))
    layers = [talvorix.Covariance.spherical(1 - NUGGET, talvorix.Ellipsoid(*RANGES, 90, 0, 0))]
    field = talvorix.SimulatorFactory.TBSIM(unfolded, 1500)(layers, seed)
    values, truth = np.split(np.array(field.simulate(unfolded)), [len(locations)])
    values += np.sqrt(NUGGET) * np.random.default_rng(seed).standard_normal(len(values))
    return Deposit(locations, values, np.asarray(holes, dtype=np.int32), section, truth)


# Models ------------------------------------------------------------------------------------------


@status("fit of local ellipsoids")
def fit_local(locations, values, fit, settings, n_threads):
    """Fit an ellipsoid to each of some areas of the samples; return them as local models."""
    centres, seed = settings["centres"], settings["seed"]
    diagonal = float(np.linalg.norm(np.ptp(locations, axis=0)))
    # The reach of an area is given in shares of the diagonal, for one centre.
    reach = AREA_REACH * centres / diagonal
    smallest, largest = SUBSET_SIZES
    if fit == "search":
        found = talvorix.optimize_local_ellipsoids(
            locations,
            values,
            talvorix.Kernel.spherical,
            min_range=0.1,
            max_range=1.0,
            n_centers=centres,
            center_max_size=reach,
            center_size=AREA_SIZE,
            ellipsoid_opt_params=talvorix.EllipsoidOptimizationParameters(
                max_nei_size=PART_SIZE,
                min_partition_size=smallest,
                max_partitions_size=largest,
                n_partitions=PARTS,
                n_centers=6,
                n_rays=60,
                tol=0.01,
                # A logarithm of metres would make ellipsoids collapse.
                regularization_const=0.0,
                seed=seed,
                n_threads=n_threads,
            ),
        )
    else:
        found = talvorix.optimize_local_ellipsoids_using_lbfgs(
            locations,
            values,
            "spherical",
            n_centers=centres,
            n_local_centers=PARTS,
            center_max_size=reach,
            center_size=AREA_SIZE,
            local_center_size=PART_SIZE,
            max_local_range=MAX_RANGE,
            ellipsoid_opt_params=talvorix.EllipsoidLBFGSParameters(
                regularization_const=0.0,
                min_partition_size=smallest,
                max_partition_size=largest,
                n_partitions=SUBSETS,
                n_iterations=ITERATIONS,
                seed=seed,
                # An area is so little work that threads would mostly wait for each other.
                n_threads=1,
            ),
        )
    return local_models(found.centers, [part[0].ellipsoid for part in found.covariances], found)


def local_models(centres, ellipsoids, found=None):
    """Put local models of tiny sills together, with the errors of a fit or equal ones."""
    errors = found.errors if found else [1.0] * len(centres)
    models = [[talvorix.Covariance.spherical(TINY, ellipsoid)] for ellipsoid in ellipsoids]
    return talvorix.LocalCovariances(centres, models, errors)


def true_models(local):
    """Return the models that lie in the layers at the centres of fitted ones."""
    middle = np.reshape(local.centers, (-1, 3))
    dips = dip_of(middle[:, 0])
    return local_models(middle, [talvorix.Ellipsoid(*RANGES, 90, dip, 0) for dip in dips])


def fit_global(locations, values, seed, n_threads):
    """Search the one ellipsoid that predicts all samples best."""
    diagonal = float(np.linalg.norm(np.ptp(locations, axis=0)))
    middle = (locations - locations.mean(axis=0)) / diagonal
    search = read_search(GLOBAL_SEARCH | {"seed": seed}, n_threads)
    return resized(find_ellipsoid(middle, values, search)[0], diagonal)


def fit_all(deposit, rows, fit, settings, n_threads):
    """Fit all models to some of the samples; return them by name, and the seconds of both fits."""
    data = deposit.locations[rows], deposit.values[rows]
    start = time.perf_counter()
    local = fit_local(*data, fit, settings, n_threads)
    between = time.perf_counter()
    one = fit_global(*data, settings["seed"], n_threads)
    seconds = between - start, time.perf_counter() - between
    models = {
        "ensemble": local,
        "global": one,
        "distance": None,
        "along the fold": talvorix.Ellipsoid(*ALONG_FOLD),
        "true dips": true_models(local),
    }
    return models, np.array(seconds)


def estimate(model, targets, deposit, rows, n_threads):
    """Estimate targets from some samples: by an ensemble, by one ellipsoid or by distance."""
    locations, values = deposit.locations[rows], deposit.values[rows]
    holes = deposit.holes[rows]
    limits = {"dhids": holes, "max_neis_by_dhid": PER_HOLE, "n_threads": n_threads}
    if isinstance(model, talvorix.LocalCovariances):
        estimates = talvorix.ensemble_estimation(
            targets,
            locations,
            values,
            model,
            search_ellipsoid=talvorix.Ellipsoid(1, 1, 1, 0, 0, 0),
            max_size=NEIGHBORS,
            max_distance=0.0,
            max_cov_neis=MODELS_NEAR,
            max_neis_octant=0,
            power_a=MODEL_POWER,
            max_weight=AT_CENTRE,
            **limits,
        )
        return np.array(estimates)
    neighborhood = talvorix.Neighborhood(locations)
    if model is None:
        del limits["n_threads"]
        estimator = talvorix.IDW(IDW_POWER, max_neighbors=NEIGHBORS, **limits)
        return np.array(estimator(targets, neighborhood, locations, values, n_threads=n_threads))
    one = [talvorix.Covariance.spherical(TINY, model)]
    estimates, _ = talvorix.compute_ordinary_kriging(
        targets, locations, values, one, neighborhood, NEIGHBORS, **limits
    )
    return np.array(estimates)


# Validation --------------------------------------------------------------------------------------


def section_axes(ellipsoid):
    """Return the half-axes of an ellipsoid's section by the plane of x and z, as columns.

    The longest comes first.
    """
    # A point p of the plane lies on the ellipsoid where the matrix of its columns maps it to
    # length 1; the right singular vectors are the axes, the singular values their inverses.
    _, inverses, axes = np.linalg.svd(np.asarray(ellipsoid.matrix())[:, [0, 2]])
    return (axes.T / inverses)[:, ::-1]


def section_dip(ellipsoid):
    """Return the dip toward +x of the longest axis of the section, from -90 to 90 degrees."""
    right, up = section_axes(ellipsoid)[:, 0]
    return float(np.degrees(np.arctan(up / right))) if right else 90.0


def dip_errors(local):
    """Return by how many degrees the poles of local ellipsoids are off those of the layers."""
    middle = np.reshape(local.centers, (-1, 3))
    dips = np.radians(dip_of(middle[:, 0]))
    true = np.column_stack([-np.sin(dips), np.zeros(len(dips)), np.cos(dips)])
    poles = np.array([np.ravel(part[0].ellipsoid.minor_axis()) for part in local.covariances])
    poles /= np.linalg.norm(poles, axis=1)[:, None]
    return np.degrees(np.arccos(np.clip(np.abs(np.sum(poles * true, axis=1)), 0, 1)))


def validate(deposit, tested, fit, settings, n_threads):
    """Estimate the samples of left-out holes, for which nothing was fitted.

    Returns
    -------
    estimates : dict of str to numpy.ndarray
        By model, one for each sample; NaN in folds that are not tested.
    seconds : numpy.ndarray, shape (2,)
        Taken by all local and by all global fits.
    angles : numpy.ndarray
        Errors of all local poles, in degrees.
    """
    estimates, seconds, angles = {}, np.zeros(2), []
    for number in tracked(tested, "fold"):
        left_out = deposit.holes % settings["folds"] == number
        models, taken = fit_all(deposit, ~left_out, fit, settings, n_threads)
        seconds += taken
        angles.extend(dip_errors(models["ensemble"]))
        for name, model in models.items():
            column = estimates.setdefault(name, np.full(len(left_out), np.nan))
            targets = deposit.locations[left_out]
            column[left_out] = estimate(model, targets, deposit, ~left_out, n_threads)
    return estimates, seconds, np.array(angles)


# Results -----------------------------------------------------------------------------------------


def print_errors(title, measured, estimates):
    """Print one line a model."""
    print(f"\n{title:<26}{'abs. error':>11}{'RMSE':>9}{'correlation':>13}")
    for name, column in estimates.items():
        off = column - measured
        rmse = np.sqrt(np.mean(off**2))
        together = np.corrcoef(column, measured)[0, 1]
        print(f"{name:<26}{np.abs(off).mean():>11.4f}{rmse:>9.4f}{together:>13.3f}")


def draw_section(panel, deposit, column, title, colours):
    """Draw values on the section."""
    shape = np.round((BOX[1] - BOX[0])[[0, 2]] / SECTION_CELL).astype(int)
    extent = [*BOX[:, 0], *BOX[:, 2]]
    image = panel.imshow(
        column.reshape(shape).T, origin="lower", extent=extent, aspect="equal", **colours
    )
    panel.set(xlim=extent[:2], ylim=extent[2:])
    panel.set_title(title, fontsize=10)
    return image


def draw_ellipse(panel, ellipsoid, middle, scale):
    """Draw the section of an ellipsoid about a point of the section."""
    turn = np.linspace(0, 2 * np.pi, 91)
    line = scale * section_axes(ellipsoid) @ [np.cos(turn), np.sin(turn)]
    x, z = line + np.asarray(middle)[:, None]
    panel.plot(x, z, color="black", lw=2.6, solid_joinstyle="round")
    panel.plot(x, z, color="white", lw=1.1)


def draw(path, deposit, models, fields):
    """Draw the layers and the samples, both estimates with their ellipsoids, and the dips."""
    low, high = np.percentile(deposit.truth, [2, 98])
    colours = {"cmap": "viridis", "vmin": low, "vmax": high}
    figure, panels = plt.subplots(2, 2, figsize=(13, 5), layout="constrained")
    near = np.abs(deposit.locations[:, 1] - BOX[:, 1].mean()) < SAMPLE_BAND
    x, _, z = deposit.locations[near].T
    title = f"true layers, and samples within {SAMPLE_BAND:g} m"
    draw_section(panels[0, 0], deposit, deposit.truth, title, colours)
    panels[0, 0].scatter(x, z, s=8, c=deposit.values[near], ec="black", lw=0.3, **colours)

    draw_section(panels[1, 0], deposit, fields["global"], "one global ellipsoid", colours)
    middle = BOX[:, [0, 2]].mean(axis=0)
    draw_ellipse(panels[1, 0], models["global"], middle, 0.5)
    image = draw_section(
        panels[1, 1], deposit, fields["ensemble"], "ensemble of local ellipsoids", colours
    )
    dips = panels[0, 1]
    for centre, model in zip(
        models["ensemble"].centers, models["ensemble"].covariances, strict=True
    ):
        x, y, z = np.ravel(centre)
        at_section = abs(y - BOX[:, 1].mean()) < SECTION_BAND
        if at_section:
            draw_ellipse(panels[1, 1], model[0].ellipsoid, (x, z), DRAWN)
        style = {"color": "#d1541f"} if at_section else {"color": "#d1541f", "mfc": "none"}
        dips.plot(x, section_dip(model[0].ellipsoid), "o", ms=5, **style)
    along = np.linspace(*BOX[:, 0], 200)
    dips.plot(along, dip_of(along), color="black", label="layers")
    dips.axhline(
        section_dip(models["global"]), color="#3b6fb6", ls="--", lw=1.2, label="global ellipsoid"
    )
    dips.plot([], [], "o", color="#d1541f", label=f"local, within {SECTION_BAND:g} m (hollow: off)")
    dips.set(xlim=BOX[:, 0], ylim=(-90, 90), yticks=range(-90, 91, 45), ylabel="degrees")
    dips.set_title("dip toward +x, on sections", fontsize=10)
    dips.legend(fontsize=8, loc="lower right", ncols=3)
    figure.colorbar(image, ax=panels[1], label="grade", shrink=0.8, extend="both")
    figure.savefig(path, dpi=85)
    plt.close(figure)


def parse_arguments(argv):
    """Parse the command line."""
    parser = argparse.ArgumentParser(
        description="Compare an ensemble of local ellipsoids with one model of a folded deposit.",
        epilog=HELP,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        argument_default=argparse.SUPPRESS,
    )
    parser.add_argument("--out", default="out", metavar="FOLDER", help="default: %(default)s")
    parser.add_argument("--threads", type=int, default=0, metavar="N", help="default: all")
    parser.add_argument(
        "--fit",
        choices=("least-squares", "search"),
        default="least-squares",
        help="of the local ellipsoids; default: %(default)s",
    )
    for name, text in (
        ("holes", "to drill"),
        ("centres", "of local areas"),
        ("folds", "of holes left out in turn"),
        ("seed", "of the deposit and the fits"),
    ):
        note = f"{text}; default: {DEFAULTS[name]}"
        parser.add_argument(f"--{name}", type=int, metavar="N", help=note)
    quick = f"leave out the first fold only; {QUICK_CENTRES} centres unless given"
    parser.add_argument("--quick", action="store_true", help=quick)
    return vars(parser.parse_args(argv))


def run(options):
    """Make the deposit, fit, validate, print and draw."""
    folder, fit, n_threads = Path(options.pop("out")), options.pop("fit"), options.pop("threads")
    if n_threads < 0:
        raise InputError(f"--threads: expected 0 or more, got {n_threads}")
    quick = options.pop("quick", False)
    settings = DEFAULTS | ({"centres": QUICK_CENTRES} if quick else {}) | options
    for name, minimum in (("folds", 2), ("holes", settings["folds"]), ("centres", 1), ("seed", 0)):
        settings[name] = check_number(settings, name, whole=True, minimum=minimum)
    tested = range(1 if quick else settings["folds"])
    deposit = make_deposit(settings["holes"], settings["seed"])
    print(
        f"{len(deposit.values):,} samples on {settings['holes']} holes, "
        f"variance {deposit.values.var():.3f}; layers dip by up to {dip_of(0.0):.0f}°"
    )
    estimates, seconds, angles = validate(deposit, tested, fit, settings, n_threads)
    print(
        f"{settings['centres']} local ellipsoids fitted by {fit} {len(tested)} x: "
        f"{seconds[0]:.1f} s; one global ellipsoid: {seconds[1]:.1f} s"
    )
    print(f"poles of local ellipsoids are off by {np.median(angles):.0f}° (median)")
    known = np.isin(deposit.holes % settings["folds"], tested)
    estimates = {name: column[known] for name, column in estimates.items()}
    print_errors("samples of left-out holes", deposit.values[known], estimates)

    everything = np.full(len(deposit.values), True)
    with status("section"):
        models, _ = fit_all(deposit, everything, fit, settings, n_threads)
        fields = {
            name: estimate(model, deposit.section, deposit, everything, n_threads)
            for name, model in models.items()
        }
    print_errors("section, from all holes", deposit.truth, fields)
    make_folder(folder)
    draw(folder / "local_anisotropy.png", deposit, models, fields)
    print(f"\nwritten: {folder / 'local_anisotropy.png'}")


def main(argv=None):
    """Run the script and return its exit code."""
    return carry_out(run, parse_arguments(argv), "local_anisotropy.py")


if __name__ == "__main__":
    sys.exit(main())
