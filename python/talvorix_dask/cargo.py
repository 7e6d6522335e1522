"""What the workers of a cluster hold and call; it needs the extra to be imported."""

from __future__ import annotations

import pickle
import threading
from typing import TYPE_CHECKING, Any

from distributed import WorkerPlugin, get_worker

if TYPE_CHECKING:
    from talvorix_dask.runs import Work


class Cargo(WorkerPlugin):
    """The work of a run, which the scheduler gives to each worker once, late ones included."""

    def __init__(self, packed: bytes) -> None:
        self.packed = packed
        self._lock: Any = None
        self._work: Work | None = None

    def setup(self, worker: Any) -> None:
        """Unpack nothing yet, which would hold up what the worker answers."""
        self._lock = threading.Lock()

    def teardown(self, worker: Any) -> None:
        """Let go of data and fields when the run has ended."""
        self._work = None

    def work(self) -> Work:
        """Return the work, made by the first task that asks for it."""
        with self._lock:
            if self._work is None:
                self._work = pickle.loads(self.packed)
            return self._work


def _work_of(run: str) -> Work:
    cargo: Any = get_worker().plugins[run]
    work: Work = cargo.work()
    return work


def probe(run: str) -> list[float] | ValueError | TypeError:
    """Probe the work of a run; what is wrong with its arguments is returned, not logged."""
    try:
        return _work_of(run).probe()
    except (ValueError, TypeError) as problem:
        return problem


def run_chunk(number: int, run: str) -> None:
    """Work on a chunk of a run, and tell the client of it.

    It is told by an event, which the scheduler holds: a result would die with the worker, and be
    waited for until a time-out.
    """
    get_worker().log_event(run, (number, *_work_of(run).run(number)))
