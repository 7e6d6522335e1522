"""Speed of ensemble estimation for each target and local model, beside ordinary kriging.

Usage: python ensembles.py [COMPOSITES.csv] [--repeats R] [--systems N] [--out FILE.md]

Everything is measured in this one run; README.md says what the table shows.
"""

import sys

import numpy as np
import talvorix
from common import best_of, finish, load_composites, machine, parse_arguments, table

SEARCH = (400, 300, 100, 330, 0, 0)
SIZES = (12, 24, 40, 80)
LOCAL_MODELS = ((200, 1), (200, 4), (200, 20), (3000, 10))  # how many there are, and of a target
TOLERANCE = 1e-8  # of the data's standard deviation


def model(r1, r2, r3, azimuth):
    """Return a nugget and two structures."""
    near = talvorix.Ellipsoid(r1, r2, r3, azimuth, 0, 0)
    far = talvorix.Ellipsoid(2 * r1, 2 * r2, 2 * r3, azimuth, 0, 0)
    structures = talvorix.Covariance.spherical(0.5, near), talvorix.Covariance.exponential(0.4, far)
    return [talvorix.Covariance.nugget(0.1), *structures]


def local_models(data, count, rng):
    """Return models with centres all over the data."""
    low, high = data.locations.min(axis=0), data.locations.max(axis=0)
    shapes = rng.uniform((400, 300, 80, 300), (800, 500, 200, 360), (count, 4))
    centers, errors = rng.uniform(low, high, (count, 3)), rng.uniform(0.5, 1.0, count)
    return talvorix.LocalCovariances(centers, [model(*shape) for shape in shapes], errors)


def measure(data, targets, n_systems, repeats, failures):
    """Return a row for each number of neighbours, on one thread."""
    rng = np.random.default_rng(4)
    search = talvorix.Ellipsoid(*SEARCH)
    around = talvorix.Neighborhood(data.locations, search)
    locals_ = {count: local_models(data, count, rng) for count, _ in LOCAL_MODELS}
    one = talvorix.LocalCovariances([targets[0]], [model(600, 400, 150, 330)], [1.0])
    rows = []

    def ensemble(count, local, n, size):
        return talvorix.ensemble_estimation(
            targets[:count], data.locations, data.values, local, search, size, -1, n, -1, 1, 0.9,
            1, False, around,
        )  # fmt: skip

    def kriging(count, size):
        given = data.locations, data.values, model(600, 400, 150, 330), around, size
        return talvorix.compute_ordinary_kriging(targets[:count], *given, n_threads=1)[0]

    for size in SIZES:
        # Larger systems take longer; so many multiply-adds are about the same work.
        count = max(100, min(len(targets), round(n_systems * 24 / size)))
        off = np.abs(np.subtract(ensemble(count, one, 1, size), kriging(count, size))[1:]).max()
        if not off < TOLERANCE * data.values.std():
            failures.append(f"{size} neighbours: one model is off kriging by {off:.1e}")
        works = {"kriging": lambda count=count, size=size: kriging(count, size)}
        for many, n in LOCAL_MODELS:
            works[many, n] = lambda many=many, n=n, count=count, size=size: ensemble(
                max(count // n, 1), locals_[many], n, size
            )
        best, _ = best_of(repeats, works)
        alone = best.pop("kriging") / count
        ratios = [best[many, n] / (max(count // n, 1) * n) / alone for many, n in LOCAL_MODELS]
        rows.append((size, f"{1e6 * alone:.2f}", *(f"**{ratio:.2f}**" for ratio in ratios)))
        print(*rows[-1], sep="  ", file=sys.stderr)
    header = (
        "neighbours",
        "kriging, μs a target",
        *(f"{n} of {m:,} models" for m, n in LOCAL_MODELS),
    )
    return table(header, rows)


def main():
    """Measure everything and print the report; fail when a result is wrong."""
    sizes = {"repeats": (5, "the best one counts"), "systems": (40_000, "at 24 neighbours")}
    arguments = parse_arguments("ensembles.py", __doc__.splitlines()[0], sizes, peers=False)
    data, failures = load_composites(arguments.composites), []
    rng = np.random.default_rng(2)
    low, high = data.locations.min(axis=0), data.locations.max(axis=0)
    scattered = rng.uniform(low, high, (4 * arguments.systems, 3))
    # A dense grid around a datum: one target's data are often the next one's.
    corner = data.locations[len(data.locations) // 2] - (1000, 1000, 400)
    grid = np.asarray(talvorix.CartesianGrid((2000, 2000, 800), (80, 80, 50), corner))
    report = [f"Ensembles over {data.name}, best of {arguments.repeats}.", machine()]
    for name, targets in (("Scattered targets", scattered), ("Targets of a dense grid", grid)):
        rows = measure(data, targets, arguments.systems, arguments.repeats, failures)
        report += [f"### {name}, one thread: time a target and model / kriging's time", rows]
    finish(report, arguments, failures)


if __name__ == "__main__":
    main()
