"""Estimation and simulation over a grid, chunk by chunk, in the processes of a Dask cluster."""

from __future__ import annotations

import contextlib
import itertools
import math
import os
import socket
import time
import uuid
from collections.abc import Callable, Iterator, Sequence
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, NamedTuple

import numpy as np
import talvorix
from numpy.typing import ArrayLike, NDArray

from talvorix_dask import noise
from talvorix_dask import store as stores
from talvorix_dask.extras import require
from talvorix_dask.frames import SHOWN, tell_coincident
from talvorix_dask.grid import AXES, Grid, Triple, active_cells

Values = NDArray[np.float64]
# Targets of one call: the interpreter stands still meanwhile, and with it what a worker answers.
TARGETS = 1 << 15
# Chunks handed to the scheduler at a time.
WINDOW = 1000
TOGETHER = 10


@dataclass(frozen=True)
class Summary:
    """What a run did.

    Attributes
    ----------
    store : str
        The store, as it was named.
    blocks : int
        Blocks that got values in this run, those of each realisation counted.
    chunks : int
        Chunks done in this run.
    found_done : int
        Chunks that the store held already.
    seconds : float
        Time from the first chunk to the last, without the start of workers.
    memory : dict of str to int
        Peak resident memory in bytes of each process that worked on chunks, by host and number.
    """

    store: str
    blocks: int
    chunks: int
    found_done: int
    seconds: float
    memory: dict[str, int] = field(default_factory=dict)


# What is done with targets ------------------------------------------------------------------------


class Samples:
    """Data and the search structure over them."""

    def __init__(self, neighborhood: Any, data_locs: Values, data: Values) -> None:
        self.neighborhood, self.data_locs, self.data = neighborhood, data_locs, data

    def __getstate__(self) -> dict[str, Any]:
        """Leave out the structure where the locations and its ellipsoid make the same again."""
        state = dict(self.__dict__)
        if isinstance(self.neighborhood, talvorix.Neighborhood):
            parts = self.neighborhood.__getstate__()
            metric = tuple(part for part in parts if isinstance(part, talvorix.Ellipsoid))
            if talvorix.Neighborhood(self.data_locs, *metric) == self.neighborhood:
                state["neighborhood"] = metric
        return state

    def __setstate__(self, state: dict[str, Any]) -> None:
        self.__dict__ |= state
        if isinstance(self.neighborhood, tuple):
            self.neighborhood = talvorix.Neighborhood(self.data_locs, *self.neighborhood)


class Estimation:
    """Estimates at targets."""

    def __init__(
        self,
        estimator: Callable[..., Any],
        samples: Samples,
        outputs: Sequence[str],
    ) -> None:
        self.estimator, self.samples, self.outputs = estimator, samples, tuple(outputs)

    def probe(self, targets: Values, n_threads: int) -> Values:
        return np.concatenate(self._call(targets, n_threads))

    def count(self, batch: int, n_targets: int) -> int:
        return n_targets

    def values(
        self, batch: int, targets: Values, n_threads: int
    ) -> Iterator[tuple[str, tuple[int, ...], Values]]:
        lists = [
            self._call(targets[start : start + TARGETS], n_threads)
            for start in range(0, len(targets), TARGETS)
        ]
        for k, name in enumerate(self.outputs):
            yield name, (), np.concatenate([np.empty(0), *(one[k] for one in lists)])

    def _call(self, targets: Values, n_threads: int) -> list[Values]:
        given = self.samples
        made = self.estimator(
            targets, given.neighborhood, given.data_locs, given.data, n_threads=n_threads
        )
        lists = [made] if len(self.outputs) == 1 else made
        try:
            arrays = [np.asarray(one, dtype=float) for one in lists]
        except (TypeError, ValueError):
            arrays = []
        if [array.shape for array in arrays] != [(len(targets),)] * len(self.outputs):
            wanted = (
                "one list" if len(self.outputs) == 1 else f"a tuple of {len(self.outputs)} lists"
            )
            raise ValueError(
                f"estimator: expected {wanted} of {len(targets)} numbers for the outputs "
                f"{', '.join(self.outputs)}, got {_shape(made)}"
            )
        return arrays


class Simulation:
    """Realisations at targets, conditioned to data or not."""

    def __init__(
        self,
        generator: Callable[[int], Any],
        seeds: Sequence[int],
        batch: int,
        conditioning: tuple[Any, Samples] | None,
        nugget: float,
    ) -> None:
        self.generator, self.seeds, self.batch = generator, tuple(seeds), batch
        self.deviation = math.sqrt(nugget)
        self.conditioning = conditioning
        self._made: tuple[int, list[Any]] = -1, []

    def probe(self, targets: Values, n_threads: int) -> Values:
        first = self._fields(0)[0]
        if not isinstance(first, talvorix.SpatialFunction):
            raise ValueError(
                "generator: expected what makes a talvorix.SpatialFunction of a seed, got a "
                f"{type(first).__name__} from it"
            )
        values = np.asarray(first.simulate(targets, n_threads), dtype=float)
        if not np.array_equal(values, first.simulate(targets, n_threads), equal_nan=True):
            raise ValueError(
                "generator: its fields have another value each time they are evaluated, so that "
                "realisations would depend on the chunks; leave the nugget out of the model and "
                "give its sill as nugget; likewise structures with ranges that are tiny beside "
                "the grid, which turning bands replace by white noise"
            )
        if self.conditioning:
            values = self._conditioned(0, [first], targets, n_threads)[0]
        return values

    def count(self, batch: int, n_targets: int) -> int:
        return n_targets * len(self.seeds[batch * self.batch : (batch + 1) * self.batch])

    def values(
        self, batch: int, targets: Values, n_threads: int
    ) -> Iterator[tuple[str, tuple[int, ...], Values]]:
        fields, start = self._fields(batch), batch * self.batch
        if self.conditioning:
            # Each call evaluates the fields at the data as well.
            step = max(TARGETS, 4 * len(self.conditioning[1].data))
            pieces = [
                self._conditioned(start, fields, targets[first : first + step], n_threads)
                for first in range(0, len(targets), step)
            ]
            for k in range(len(fields)):
                yield (
                    "simulated",
                    (start + k,),
                    np.concatenate([np.empty(0), *(piece[k] for piece in pieces)]),
                )
            return
        for k, one in enumerate(fields):
            parts = [
                np.asarray(one.simulate(targets[first : first + TARGETS], n_threads), dtype=float)
                for first in range(0, len(targets), TARGETS)
            ]
            yield "simulated", (start + k,), np.concatenate([np.empty(0), *parts])

    def noise(self, realisation: int, grid: Grid, lower: Triple, upper: Triple) -> Values | float:
        """Return the nugget's part of a realisation in a box of blocks."""
        if self.deviation == 0:
            return 0.0
        seed = self.seeds[realisation]
        return self.deviation * noise.of_box(seed, grid.number_of_cells, lower, upper)

    def _conditioned(
        self, start: int, fields: list[Any], targets: Values, n_threads: int
    ) -> list[Values]:
        """Condition the fields of consecutive realisations, without the nugget at the targets."""
        assert self.conditioning
        estimator, samples = self.conditioning
        neighborhood, data_locs, data = samples.neighborhood, samples.data_locs, samples.data
        if self.deviation == 0:
            made = talvorix.simulate(
                estimator, targets, neighborhood, data_locs, data, fields, n_threads
            )
            return [np.asarray(values, dtype=float) for values in made]
        # The data differ from the field and its noise by what differs from one field to the next.
        made = []
        for seed, one in zip(self.seeds[start:], fields, strict=False):
            rest = data - self.deviation * noise.draw(seed, noise.DATA, 0, len(data))
            made.append(
                talvorix.simulate(estimator, targets, neighborhood, data_locs, rest, one, n_threads)
            )
        return [np.asarray(values, dtype=float) for values in made]

    def _fields(self, batch: int) -> list[Any]:
        """Return the fields of a batch; only those of the last one asked for are kept."""
        held, fields = self._made
        if held != batch:
            # Let go of the old ones before there are new ones; other threads may come by here.
            self._made, fields = (-1, []), []
            fields += map(self.generator, self.seeds[batch * self.batch : (batch + 1) * self.batch])
            self._made = batch, fields
        return fields


def _shape(made: Any) -> str:
    try:
        return f"{type(made).__name__} of shape {np.shape(made)}"
    except ValueError:
        return f"{type(made).__name__} of uneven lengths"


# On a worker -------------------------------------------------------------------------------------


class Mask:
    """Which blocks are worked on: all of them, those of an array, or those a function chooses."""

    def __init__(self, where: Any, grid: Grid) -> None:
        self.function = where if callable(where) else None
        self.bits = None
        if where is None or self.function:
            return
        flags = np.asarray(where)
        if flags.shape not in ((len(grid),), grid.number_of_cells):
            raise ValueError(
                f"where: its shape is {flags.shape}; expected {grid.number_of_cells}, or "
                f"({len(grid)},) in the order of the grid's index"
            )
        if flags.dtype != bool:
            raise TypeError(f"where: expected booleans, got {flags.dtype}")
        self.bits = np.packbits(flags.reshape(grid.number_of_cells), axis=2)

    def fingerprint(self, label: str) -> str:
        """Return what tells it from other masks; a label stands in for a function."""
        if self.bits is not None:
            return stores.fingerprint(self.bits)
        if self.function is None:
            return "all blocks"
        return "a function" if label else stores.fingerprint(self.function)

    def inside(self, lower: Triple, upper: Triple, centres: Values) -> Any:
        """Return the chosen blocks of a box as a selection of its centres."""
        if self.bits is not None:
            rows = np.unpackbits(self.bits[lower[0] : upper[0], lower[1] : upper[1]], axis=2)
            return rows[..., lower[2] : upper[2]].ravel() != 0
        if self.function is None:
            return slice(None)
        flags = np.asarray(self.function(centres))
        if flags.shape != (len(centres),) or flags.dtype != bool:
            raise ValueError(
                f"where: expected {len(centres)} booleans, one for each centre, got "
                f"{flags.dtype} of shape {flags.shape}"
            )
        return flags


class Report(NamedTuple):
    """Blocks of a chunk that have values, the process that did it and its peak memory in bytes."""

    blocks: int
    process: str
    memory: int


@dataclass
class Work:
    """All that a process needs for its chunks; made there once."""

    grid: Grid
    method: Estimation | Simulation
    mask: Mask
    path: str
    n_threads: int

    def __post_init__(self) -> None:
        # Opened once: looking an array up in a store reads files.
        self._arrays: dict[str, Any] = {}
        self._done: Any = None
        self._chunks: tuple[int, ...] = ()

    def probe(self) -> list[float]:
        """Return values of a few blocks, by which processes and runs are held to agree."""
        n = len(self.grid)
        cells = np.unravel_index((0, n // 2, n - 1), self.grid.number_of_cells)
        centres = [self.grid.centres(cell, cell + 1) for cell in np.transpose(cells)]
        values = self.method.probe(np.concatenate(centres), self.n_threads)
        return [float(value) for value in values]

    def open(self) -> None:
        """Open the store, once it is known that this process gives what the first one gave."""
        group = stores.open_group(self.path, "r+")
        description = group.attrs[stores.ATTRIBUTE]
        expected = np.array([math.nan if v is None else v for v in description["probe"]])
        own = np.array(self.probe())
        # Processors of another kind may round elementary functions otherwise; phases, seeds or
        # data that differ show in the first digits.
        if own.shape != expected.shape or not np.allclose(
            own, expected, rtol=1e-9, atol=1e-9 * np.nanmax(np.abs(expected), initial=0.0),
            equal_nan=True,
        ):  # fmt: skip
            raise RuntimeError(
                f"{_process()} gives {own.tolist()} for the first, the middle and the last block, "
                f"where the run's first process gave {expected.tolist()}; a Fourier integral field "
                "depends on n_threads: give a number that every worker has processors for, not 0"
            )
        self._chunks = tuple(description["chunks"])
        large = [axis for axis in AXES if group[axis].ndim == 3]
        self._arrays = {name: group[name] for name in (*description["outputs"], *large)}
        # Last, since another thread takes it for a sign that all is there.
        self._done = group[f"{stores.MARKERS}/done"]

    def run(self, number: int) -> Report:
        """Work on a chunk and write it."""
        if self._done is None:
            self.open()
        place = np.unravel_index(number, self._done.shape)
        batch, chunk = int(place[0]), np.array(place[1:])
        lower = chunk * self._chunks
        upper = np.minimum(lower + self._chunks, self.grid.number_of_cells)
        box = tuple(slice(int(a), int(b)) for a, b in zip(lower, upper, strict=True))
        centres = self.grid.centres(lower, upper)
        inside = self.mask.inside(lower, upper, centres)
        targets = centres[inside]
        count = self.method.count(batch, len(targets))
        # Its last worker may have died after it had written all.
        if self._done[place]:
            return Report(count, _process(), _peak_memory())
        for name, leading, values in self.method.values(batch, targets, self.n_threads):
            cube = np.full(len(centres), np.nan)
            cube[inside] = values
            if isinstance(self.method, Simulation):
                cube += self.method.noise(leading[0], self.grid, lower, upper)
            selection = *leading, *box
            self._arrays[name][selection] = cube.reshape(upper - lower)
        for axis, name in enumerate(AXES):
            if batch == 0 and name in self._arrays:
                self._arrays[name][box] = centres[:, axis].reshape(upper - lower)
        self._done[place] = 1
        return Report(count, _process(), _peak_memory())


def _process() -> str:
    return f"{socket.gethostname()}:{os.getpid()}"


def _peak_memory() -> int:
    """Return the peak resident memory of this process in bytes."""
    # Not getrusage, whose figure begins with that of the process that started this one.
    for line in Path("/proc/self/status").read_text().splitlines():
        if line.startswith("VmHWM:"):
            return int(line.split()[1]) * 1024
    return 0


# Runs --------------------------------------------------------------------------------------------


def _give_up_unless_passing(
    number: int, problem: Exception, tries: int, retries: int, *passing: type[Exception]
) -> None:
    """Raise unless a chunk may be tried again: a store that could not be written may be later."""
    if not isinstance(problem, (OSError, *passing)) or tries > retries:
        raise RuntimeError(f"chunk {number} failed: {problem}") from problem


class _Here:
    """Runs chunks in this process."""

    def __init__(self, work: Work, retries: int) -> None:
        self.work, self.retries = work, retries

    def probe(self) -> list[float]:
        return self.work.probe()

    def run(self, numbers: Sequence[int]) -> Iterator[Report]:
        for number in numbers:
            yield self._run_chunk(number)

    def _run_chunk(self, number: int) -> Report:
        tries = 0
        while True:
            try:
                return self.work.run(number)
            except Exception as problem:
                tries += 1
                _give_up_unless_passing(number, problem, tries, self.retries)


class _Cluster:
    """Runs chunks on the workers of a client."""

    def __init__(self, work: Work, client: Any, retries: int) -> None:
        self.client, self.retries = client, retries
        self.told: dict[int, Report] = {}
        self.name = f"talvorix-{uuid.uuid4().hex}"
        self.cargo = require("talvorix_dask.cargo", "a run on workers")
        packed = require("cloudpickle", "a run on workers").dumps(work)
        client.register_plugin(self.cargo.Cargo(packed), name=self.name)
        client.subscribe_topic(self.name, self._hear)

    def _hear(self, event: tuple[float, tuple[int, int, str, int]]) -> None:
        number, blocks, process, memory = event[1]
        self.told[number] = Report(blocks, process, memory)

    def close(self) -> None:
        with contextlib.suppress(OSError, TimeoutError):
            self.client.unsubscribe_topic(self.name)
            self.client.unregister_worker_plugin(self.name)

    def probe(self) -> list[float]:
        answer: Any = self.client.submit(self.cargo.probe, self.name, pure=False).result()
        if isinstance(answer, Exception):
            raise answer
        return list(answer)

    def run(self, numbers: Sequence[int]) -> Iterator[Report]:
        distributed = require("distributed", "a run on workers")
        waiting, tries = iter(numbers), dict.fromkeys(numbers, 0)
        of_key: dict[str, int] = {}

        def submit(count: int) -> list[Any]:
            return submit_all([*itertools.islice(waiting, count)])

        def submit_all(chosen: list[int]) -> list[Any]:
            # The scheduler takes tasks in the order of their keys.
            keys = [f"{self.name}-{number:09d}-{tries[number]}" for number in chosen]
            of_key.update(zip(keys, chosen, strict=True))
            if not chosen:
                return []
            return self.client.map(
                self.cargo.run_chunk, chosen, key=keys, run=self.name, pure=False, retries=0
            )

        completed = distributed.as_completed(submit(WINDOW))
        try:
            for future in completed:
                number = of_key.pop(future.key)
                if future.status == "error":
                    tries[number] += 1
                    killed = distributed.scheduler.KilledWorker
                    _give_up_unless_passing(
                        number, future.exception(), tries[number], self.retries, killed
                    )
                    more = submit_all([number])
                elif future.status == "cancelled":
                    raise RuntimeError(f"chunk {number} was cancelled, not by this run")
                else:
                    # Finished; pending again when its worker has died since, which is no matter.
                    yield self.told.get(number, Report(0, "", 0))
                    # Many at a time: handing them over one by one would take longer than some.
                    more = submit(WINDOW // 2) if len(of_key) <= WINDOW // 2 else []
                for one in more:
                    completed.add(one)
        finally:
            with contextlib.suppress(OSError, TimeoutError):
                self.client.cancel([*completed.futures], force=True)


@contextlib.contextmanager
def _runner(
    work: Work, client: Any, n_workers: int | None, retries: int
) -> Iterator[_Here | _Cluster]:
    """Give what runs chunks: this process, the client's workers, or a cluster made for the run."""
    if client is None and n_workers == 0:
        yield _Here(work, retries)
        return
    with contextlib.ExitStack() as stack:
        if client is None:
            distributed = require("distributed", "a run on workers")
            cluster = stack.enter_context(
                distributed.LocalCluster(
                    n_workers=n_workers or talvorix.check_n_threads(0),
                    threads_per_worker=1,
                    dashboard_address=":0",
                )
            )
            client = stack.enter_context(distributed.Client(cluster))
        elif getattr(client, "asynchronous", False):
            raise ValueError("client: expected one that is not asynchronous")
        runner = _Cluster(work, client, retries)
        stack.callback(runner.close)
        yield runner


def _run(
    kind: str,
    grid: Any,
    store: str | os.PathLike[str],
    method: Estimation | Simulation,
    names: Sequence[str],
    compared: dict[str, Any],
    *,
    where: Any,
    chunks: Sequence[int] | None,
    n_threads: int | None,
    client: Any,
    n_workers: int | None,
    overwrite: bool,
    progress: bool | None,
    retries: int,
) -> Summary:
    for package in ("zarr", "cloudpickle", "tqdm"):
        require(package, "a run")
    for name, number in (("n_workers", n_workers), ("retries", retries)):
        if number is not None and (not isinstance(number, int | np.integer) or number < 0):
            raise ValueError(f"{name}: expected a whole number, 0 or more, got {number!r}")
    described, path = Grid.of(grid), os.fspath(store)
    if isinstance(grid, talvorix.BlockModel):
        if where is not None:
            raise ValueError("where: the block model has a mask already; give its base_grid()")
        where = active_cells(grid)
    mask = Mask(where, described)
    found = stores.read_description(path)
    old = {} if overwrite or found is None else found
    if chunks is None:
        chunks = old.get("chunks", stores.chunk_shape(described))
    shape = stores.check_chunks(chunks, described)
    seeds: Sequence[int] = ()
    batch = 1
    if isinstance(method, Simulation):
        seeds, batch = method.seeds, method.batch
    wanted = {
        "format": stores.FORMAT,
        "kind": kind,
        **described.description(),
        "outputs": list(names),
        "chunks": list(shape),
        **compared,
        "where": mask.fingerprint(label=compared["label"]),
    }
    if old:
        stores.compare(path, {k: v for k, v in old.items() if k != "probe"}, wanted)
    if old and stores.done_chunks(path).all():
        return Summary(path, 0, 0, stores.done_chunks(path).size, 0.0)
    here = client is None and n_workers == 0
    work = Work(described, method, mask, path, int(not here) if n_threads is None else n_threads)
    with _runner(work, client, n_workers, retries) as runner:
        if not old:
            probe = [None if math.isnan(v) else v for v in runner.probe()]
            stores.create(path, described, names, shape, seeds, batch, {**wanted, "probe": probe})
        done = stores.done_chunks(path)
        todo = np.flatnonzero(~done.ravel()).tolist()
        blocks, begun = 0, time.perf_counter()
        memory: dict[str, int] = {}
        with _bar(progress, done.size, done.size - len(todo)) as bar:
            for count, process, peak in runner.run(todo):
                blocks += count
                if process:
                    memory[process] = max(peak, memory.get(process, 0))
                bar.set_postfix_str(
                    f"{blocks / (time.perf_counter() - begun):,.0f} blocks/s", False
                )
                bar.update()
        seconds = time.perf_counter() - begun
    return Summary(path, blocks, len(todo), done.size - len(todo), seconds, memory)


def _bar(progress: bool | None, total: int, initial: int) -> Any:
    tqdm = require("tqdm.auto" if progress else "tqdm", "a progress bar").tqdm
    # None leaves it to whether there is a terminal.
    disable = None if progress is None else not progress
    return tqdm(total=total, initial=initial, unit="chunk", disable=disable)


def estimate(
    grid: Any,
    estimator: Callable[..., Any],
    neighborhood: Any,
    data_locs: ArrayLike,
    data: ArrayLike,
    store: str | os.PathLike[str],
    *,
    outputs: Sequence[str] = ("estimate",),
    where: Any = None,
    chunks: Sequence[int] | None = None,
    label: str = "",
    n_threads: int | None = None,
    client: Any = None,
    n_workers: int | None = None,
    overwrite: bool = False,
    progress: bool | None = None,
    retries: int = 3,
) -> Summary:
    """Estimate a block model in chunks and write it to a Zarr store.

    The results are those of one call of the estimator with all blocks, whatever the chunks and the
    workers. A store of the same run that is not complete is completed; a complete one is left as it
    is. ``xarray.open_zarr(store)`` opens it, with coordinates.

    Parameters
    ----------
    grid : Grid, talvorix.CartesianGrid, talvorix.BlockModel or mapping
        The block model, as for `Grid.of`. A `Grid` takes no memory for its centres. Of a
        talvorix.BlockModel the active cells are estimated.
    estimator : talvorix.Estimator or callable
        What is called with targets, neighborhood, data_locs, data and ``n_threads=``. A function of
        your own must give each target a value that does not depend on the other targets.
    neighborhood : talvorix.Neighborhood
        The search structure over `data_locs`.
    data_locs : array of shape (m, 3)
    data : array of shape (m,)
    store : str or path
        A folder that every worker reaches by this name, or a URL that Zarr opens.
    outputs : sequence of str, default ("estimate",)
        Names of the arrays. An estimator that returns a tuple of lists needs a name for each:
        ("estimate", "variance").
    where : array of bool or callable, optional
        Which blocks to estimate: flags of the grid's shape or of shape (n,), or a function of
        centres of shape (n, 3) that returns n flags. The others are NaN.
    chunks : sequence of 3 ints, optional
        Blocks of a chunk along the three axes; by default about 260,000 in all, or those of the
        store that is completed.
    label : str, optional
        A name for the job that a store is held to in place of what the estimator and the function
        `where` pickle to, which for a function of a script may differ from run to run.
    n_threads : int, optional
        Threads of each call; by default 1 on workers and all of them in this process.
    client : distributed.Client, optional
        Where to work; by default a cluster on this machine that is closed at the end. Scripts then
        need ``if __name__ == "__main__":``, since workers import them.
    n_workers : int, optional
        Processes of that cluster, by default one for each processor; 0 works in this process.
    overwrite : bool, default False
        Begin anew when there is a store of talvorix_dask, of whatever run.
    progress : bool, optional
        Whether to show a bar; by default only on a terminal.
    retries : int, default 3
        How often a chunk is tried again after its workers died or the store could not be written.

    Returns
    -------
    Summary

    Warns
    -----
    UserWarning
        When data stand at one position, with their number and the first rows. They are kept.

    Raises
    ------
    ValueError
        Before any work: when the store is something else or of another run, naming what differs;
        when an argument does not fit, or the estimator does not give what `outputs` names.
    OSError
        When the store cannot be made.
    RuntimeError
        When a chunk fails. The chunks done stay, and the same call goes on with the others.
    """
    names = _check_names(outputs)
    locations, values = _arrays(data_locs, data)
    compared = {
        "label": label,
        "estimator": "" if label else stores.fingerprint(estimator),
        "neighborhood": stores.fingerprint(neighborhood),
        "data_locs": stores.fingerprint(locations),
        "data": stores.fingerprint(values),
    }
    method = Estimation(estimator, Samples(neighborhood, locations, values), names)
    return _run(
        "estimate", grid, store, method, names, compared, where=where, chunks=chunks,
        n_threads=n_threads, client=client, n_workers=n_workers, overwrite=overwrite,
        progress=progress, retries=retries,
    )  # fmt: skip


def simulate(
    grid: Any,
    generator: Callable[[int], Any],
    seeds: Sequence[int],
    store: str | os.PathLike[str],
    *,
    estimator: Any = None,
    neighborhood: Any = None,
    data_locs: ArrayLike | None = None,
    data: ArrayLike | None = None,
    nugget: float = 0.0,
    batch: int | None = None,
    where: Any = None,
    chunks: Sequence[int] | None = None,
    label: str = "",
    n_threads: int | None = None,
    client: Any = None,
    n_workers: int | None = None,
    overwrite: bool = False,
    progress: bool | None = None,
    retries: int = 3,
) -> Summary:
    """Simulate a block model in chunks and write its realisations to a Zarr store.

    Every worker makes the field of a seed for the whole grid and evaluates it chunk by chunk, so
    that a realisation is what one call gives, whatever the chunks and the workers. Fields of the
    Fourier integral method share their lattice and phases in this way; each worker holds one of its
    own, and `n_threads` of their factory must be a number, not 0.

    Parameters
    ----------
    grid, where, chunks, label, n_threads, client, n_workers, overwrite, progress, retries
        As for `estimate`.
    generator : talvorix.SimulatorGenerator or callable
        What makes the field of a seed: a talvorix.SpatialFunction. Its corners must be those of the
        whole grid. A function of your own may return talvorix.TBSIM or talvorix.FIM.
    seeds : sequence of ints
        One for each realisation.
    store : str or path
        As for `estimate`. Its array "simulated" has the realisations first, with the coordinate
        "seed".
    estimator, neighborhood, data_locs, data : optional
        As for `talvorix.simulate`: all of them to condition the realisations to data, or none.
    nugget : float, default 0
        Sill of a nugget that is added to the fields, at least 0; the model of `generator` has none.
        It is white noise that depends on the seed and the number of the block alone. A block whose
        centre is at a datum departs from it by the noise. Conditioning then weighs the data for
        each realisation anew.
    batch : int, optional
        Realisations that are worked on together, whose fields a worker holds at a time; by default
        1 without data and 10 with, since data are then weighed once for all of them.

    Returns
    -------
    Summary

    Raises
    ------
    ValueError
        As for `estimate`; also when fields have another value each time they are evaluated, as with
        a nugget in their model, because realisations would depend on the chunks.
    RuntimeError
        When a chunk fails, or a worker's field differs from that of the first one.
    """
    try:
        given_seeds = list(seeds)
        numbers = [int(seed) for seed in given_seeds]
        fit = numbers == given_seeds and all(-(2**63) <= number < 2**63 for number in numbers)
    except (TypeError, ValueError, OverflowError):
        fit = False
    if not fit or not numbers:
        raise ValueError(f"seeds: expected at least one whole number of 64 bits, got {seeds!r}")
    given = {
        "estimator": estimator, "neighborhood": neighborhood, "data_locs": data_locs, "data": data
    }  # fmt: skip
    missing = [name for name, value in given.items() if value is None]
    if 0 < len(missing) < len(given):
        raise ValueError(f"{missing[0]}: conditioning needs it along with the others of {[*given]}")
    together = (1 if missing else TOGETHER) if batch is None else batch
    if together < 1:
        raise ValueError(f"batch: expected at least 1, got {batch}")
    together = min(together, len(numbers))
    sill = float(nugget)
    if not 0 <= sill < math.inf:
        raise ValueError(f"nugget: expected a number of at least 0, got {nugget!r}")
    compared = {
        "label": label,
        "generator": "" if label else stores.fingerprint(generator),
        "seeds": numbers,
        "batch": together,
        "nugget": sill,
    }
    conditioning = None
    if not missing:
        locations, values = _arrays(data_locs, data)
        conditioning = estimator, Samples(neighborhood, locations, values)
        given |= {"data_locs": locations, "data": values}
        compared |= {
            name: "" if label and name == "estimator" else stores.fingerprint(part)
            for name, part in given.items()
        }
    method = Simulation(generator, numbers, together, conditioning, sill)
    return _run(
        "simulate", grid, store, method, ["simulated"], compared, where=where, chunks=chunks,
        n_threads=n_threads, client=client, n_workers=n_workers, overwrite=overwrite,
        progress=progress, retries=retries,
    )  # fmt: skip


def _check_names(outputs: Sequence[str]) -> list[str]:
    names = [outputs] if isinstance(outputs, str) else list(outputs)
    for name in names:
        if not isinstance(name, str) or not name.replace("_", "a").isalnum():
            raise ValueError(f"outputs: expected letters, digits and underscores, got {name!r}")
        if name in stores.RESERVED or names.count(name) > 1:
            raise ValueError(f"outputs: the name {name!r} is taken; choose another")
    if not names:
        raise ValueError("outputs: expected at least one name")
    return names


def _arrays(data_locs: Any, data: Any) -> tuple[Values, Values]:
    """Return locations of shape (m, 3) and as many values, once they are known to be finite."""
    locations = np.ascontiguousarray(np.asarray(data_locs, dtype=float))
    values = np.ascontiguousarray(np.asarray(data, dtype=float))
    if not locations.size:
        raise ValueError("data_locs: expected the locations of some data, got none")
    if locations.ndim == 3 and locations.shape[1:] in ((3, 1), (1, 3)):
        locations = locations.reshape(-1, 3)
    if locations.ndim != 2 or locations.shape[1] != 3:
        raise ValueError(f"data_locs: expected the shape (m, 3), got {locations.shape}")
    if values.shape != (len(locations),):
        raise ValueError(
            f"data: expected {len(locations)} values, one for each of data_locs, got the shape "
            f"{values.shape}"
        )
    for name, array in (("data_locs", locations), ("data", values)):
        bad = ~np.isfinite(array.reshape(len(array), -1)).all(axis=1)
        if bad.any():
            row = int(bad.argmax())
            raise ValueError(
                f"{name}: row {row}, counted from 0, is {array[row].tolist()}; expected finite "
                f"numbers ({bad.sum():,} rows have none)"
            )

    def rows(chosen: Any) -> str:
        first = ", ".join(map(str, np.flatnonzero(chosen)[:SHOWN]))
        return f"{first} of data_locs, counted from 0"

    tell_coincident(locations, rows, 3)
    return locations, values
