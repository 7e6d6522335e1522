"""Speed of kriging in chunks on worker processes beside one plain call, and what a chunk costs.

Usage: python chunks.py [COMPOSITES.csv] [--repeats R] [--blocks N] [--out FILE.md]

Everything is measured in this one run; README.md says what the tables show.
"""

import contextlib
import logging
import shutil
import tempfile
from pathlib import Path

import cloudpickle
import numpy as np
import talvorix
import talvorix_dask
from common import best_of, elapsed, finish, load_composites, machine, parse_arguments, table
from distributed import Client, LocalCluster
from talvorix_dask import runs, store

NEIGHBOURS = (16, 32)
COUNTS = np.array([10, 10, 3])
SMALL_CHUNKS = (8, 8, 4)
WORKERS = (1, 2)


def krige_nothing(targets, neighborhood, data_locs, data, n_threads):
    """Return at once: what is left is the cost of chunks."""
    return targets[:, 0]


def make_grid(data, blocks):
    """Return a dense grid amid the data."""
    counts = np.maximum(np.round(COUNTS * (blocks / COUNTS.prod()) ** (1 / 3)), 1).astype(int)
    middle = np.median(data.locations, axis=0)
    extent = np.array([3000.0, 3000.0, 900.0])
    return counts, extent / counts, middle - extent / 2


def measure(data, grid, folder, clients, repeats, failures):
    """Return a row for each number of neighbours."""
    plain = talvorix.CartesianGrid(number_of_cells=grid[0], cell_size=grid[1], origin=grid[2])
    near = talvorix.Ellipsoid(400, 300, 100, 330, 0, 0)
    model = [talvorix.Covariance.nugget(0.1), talvorix.Covariance.exponential(0.9, near)]
    around = talvorix.Neighborhood(data.locations, near)
    given = around, data.locations, data.values
    rows = []
    for size in NEIGHBOURS:
        kriging = talvorix.OrdinaryKriging(model, size)

        def chunked(client, kriging=kriging):
            return talvorix_dask.estimate(
                talvorix_dask.Grid(*grid), kriging, *given, folder / "s.zarr", client=client,
                overwrite=True, progress=False,
            )  # fmt: skip

        works = {f"plain {n}": lambda n=n, k=kriging: k(plain, *given, n) for n in WORKERS}
        works |= {f"chunks {n}": lambda n=n: chunked(clients[n]) for n in WORKERS}
        best, results = best_of(repeats, works)
        stored = store.open_group(str(folder / "s.zarr"), "r")["estimate"][...]
        if not np.array_equal(stored.ravel(), results["plain 2"], equal_nan=True):
            failures.append(f"{size} neighbours: the store differs from a plain call")
        ratios = (
            best["chunks 1"] / best["chunks 2"],
            *(best[f"chunks {n}"] / best[f"plain {n}"] for n in WORKERS),
        )
        seconds = (f"{best[f'plain {n}']:.2f}" for n in WORKERS)
        rows.append((size, *seconds, *(f"**{ratio:.2f}**" for ratio in ratios)))
    header = (
        "neighbours", "plain call, 1 thread, s", "2 threads, s", "one worker / two",
        "one worker / plain, 1 thread", "two workers / plain, 2 threads",
    )  # fmt: skip
    return table(header, rows)


def measure_chunks(data, folder, clients, repeats):
    """Return a row for each way to run chunks, of next to no work each."""
    grid = talvorix_dask.Grid((64, 64, 32), (1, 1, 1))
    around = talvorix.Neighborhood(data.locations)
    arguments = around, data.locations, data.values, folder / "s.zarr"
    rows = []
    ways = {"this process": {"n_workers": 0}}
    ways |= {f"workers: {n}": {"client": clients[n]} for n in WORKERS}
    for name, way in ways.items():
        best = np.inf
        for _ in range(repeats):
            done = talvorix_dask.estimate(
                grid, krige_nothing, *arguments, chunks=SMALL_CHUNKS, overwrite=True,
                progress=False, **way,
            )  # fmt: skip
            best = min(best, done.seconds / done.chunks)
        rows.append((name, done.chunks, f"{1e3 * best:.2f}"))
    return table(("run by", "chunks", "ms a chunk"), rows)


def main():
    """Measure everything and print the report; fail when a result is wrong."""
    sizes = {"repeats": (3, "the best one counts"), "blocks": (2_400_000, "of the grid, about")}
    arguments = parse_arguments("chunks.py", __doc__.splitlines()[0], sizes, peers=False)
    logging.getLogger("distributed").setLevel(logging.ERROR)
    data, failures = load_composites(arguments.composites), []
    folder = Path(tempfile.mkdtemp())
    grid = make_grid(data, arguments.blocks)
    with contextlib.ExitStack() as stack:
        stack.callback(shutil.rmtree, folder)
        clients, started = {}, 0.0
        for n in WORKERS:
            settings = {"n_workers": n, "threads_per_worker": 1, "dashboard_address": ":0"}
            started, cluster = elapsed(lambda settings=settings: LocalCluster(**settings))
            clients[n] = stack.enter_context(Client(stack.enter_context(cluster)))
        speed = measure(data, grid, folder, clients, arguments.repeats, failures)
        chunks = measure_chunks(data, folder, clients, arguments.repeats)
    around = talvorix.Neighborhood(data.locations)
    samples = runs.Samples(around, data.locations, data.values)
    sent = len(cloudpickle.dumps(runs.Estimation(talvorix.IDW(), samples, ["estimate"])))
    raw = data.locations.nbytes + data.values.nbytes
    report = [
        f"{np.prod(grid[0]):,} blocks by ordinary kriging of {data.name}, best of "
        f"{arguments.repeats}.",
        machine(),
        "### Chunks on workers beside one plain call",
        speed,
        "### A chunk with next to no work",
        chunks,
        f"A worker is sent {sent / 2**20:.2f} MB once, {sent / raw:.2f} times the bytes of the "
        "data; the search structure is built there. "
        f"Starting {WORKERS[-1]} workers took {started:.1f} s.",
    ]
    finish(report, arguments, failures)


if __name__ == "__main__":
    main()
