"""The Zarr store of a run: one array for each result, and a marker for each chunk that is done.

A chunk's marker is written after its results, so a chunk whose worker died while writing counts as
undone and is done again. Markers are an array of their own, of one byte each, because a chunk of
results says little by being there: an estimate has several arrays, and Zarr does not write chunks
in which all is NaN.
"""

from __future__ import annotations

import contextlib
import hashlib
import math
import os
import shutil
import uuid
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any

import numpy as np
from numpy.typing import NDArray

from talvorix_dask.extras import require
from talvorix_dask.grid import AXES, Grid

ATTRIBUTE = "talvorix_dask"
MARKERS = "progress"
FORMAT = 1
MOST_BLOCKS = 1 << 18
FEWEST_BLOCKS = 1 << 12
RESERVED = {*AXES, "i", "j", "k", "realisation", "seed", MARKERS}


def open_group(path: str, mode: str) -> Any:
    """Open the store's group, in the format that zarr 2 and zarr 3 both write."""
    zarr = require("zarr", "a store")
    formats = {"zarr_format": 2} if int(zarr.__version__.split(".")[0]) >= 3 else {}
    return zarr.open_group(path, mode=mode, **formats)


def fingerprint(value: Any) -> str:
    """Return a digest of the numbers of an array, or else of what pickle makes of an object."""
    if isinstance(value, np.ndarray):
        content = str((value.dtype.str, value.shape)).encode() + np.ascontiguousarray(value).data
    else:
        content = require("cloudpickle", "a run").dumps(value, protocol=4)
    return hashlib.sha256(content).hexdigest()[:16]


def chunk_shape(grid: Grid) -> tuple[int, int, int]:
    """Choose chunks of about a quarter of a million blocks, fewer where the grid is small."""
    most = min(MOST_BLOCKS, max(FEWEST_BLOCKS, len(grid) // 16))
    shape = list(grid.number_of_cells)
    while math.prod(shape) > most:
        longest = shape.index(max(shape))
        shape[longest] = -(-shape[longest] // 2)
    return shape[0], shape[1], shape[2]


def check_chunks(chunks: Sequence[int], grid: Grid) -> tuple[int, int, int]:
    """Return the shape of chunks as given, cut to the grid's."""
    try:
        numbers = [int(n) for n in chunks]
        fits = len(numbers) == 3 and numbers == list(chunks) and min(numbers) > 0
    except (TypeError, ValueError, OverflowError):
        fits = False
    if not fits:
        raise ValueError(f"chunks: expected three whole numbers of at least 1, got {chunks!r}")
    x, y, z = (min(n, count) for n, count in zip(numbers, grid.number_of_cells, strict=True))
    return x, y, z


def is_local(path: str) -> bool:
    """Tell whether a store is a folder rather than named by a URL."""
    return "://" not in path


def read_description(path: str) -> dict[str, Any] | None:
    """Return what a store says of the run that it belongs to; None when there is nothing yet.

    Raises
    ------
    ValueError
        When there is something else.
    """
    if is_local(path):
        place = Path(path)
        if not place.exists() or (place.is_dir() and not any(place.iterdir())):
            return None
        if not place.is_dir():
            raise ValueError(f"store: {path} is a file; expected a folder or nothing there")
    try:
        found = open_group(path, "r").attrs.asdict().get(ATTRIBUTE)
    except (ValueError, OSError, KeyError):
        if not is_local(path):
            return None
        found = None
    if found is None:
        raise ValueError(
            f"store: {path} exists and is not a store that talvorix_dask wrote; choose another "
            "place, or take it away yourself"
        )
    description: dict[str, Any] = found
    return description


def compare(path: str, found: dict[str, Any], wanted: dict[str, Any]) -> None:
    """Refuse to go on with a store that belongs to another run.

    Raises
    ------
    ValueError
        Naming the first thing that differs, and both of it.
    """
    for name in {**wanted, **found}:
        if found.get(name) != wanted.get(name):
            digest = name in ("estimator", "generator", "where")
            hint = "; give functions of a script a label to be known by" if digest else ""
            raise ValueError(
                f"store: {path} belongs to another run: its {name} is {found.get(name)}, here it "
                f"is {wanted.get(name)}{hint}; choose another store, or overwrite this one to "
                "begin anew"
            )


@contextlib.contextmanager
def _appearing_whole(path: str) -> Iterator[str]:
    """Give the place to make a store in, so that what interrupts it leaves no half of one."""
    local = is_local(path)
    making = f"{path.rstrip('/')}.{uuid.uuid4().hex}.new" if local else path
    try:
        yield making
        if local and Path(path).exists():
            shutil.rmtree(path)
        if local:
            os.rename(making, path)
    except BaseException as problem:
        if local:
            shutil.rmtree(making, ignore_errors=True)
        # What zarr 2 makes of a folder that cannot be made is a key that is missing.
        if isinstance(problem, KeyError) and isinstance(problem.__cause__, OSError):
            raise problem.__cause__ from None
        raise


def create(
    path: str,
    grid: Grid,
    names: Sequence[str],
    chunks: tuple[int, int, int],
    seeds: Sequence[int],
    batch: int,
    description: dict[str, Any],
) -> None:
    """Make a store with empty arrays; one that is there must be known to be one of ours."""
    with _appearing_whole(path) as making:
        group = open_group(making, "w")
        add = group.create_array if hasattr(group, "create_array") else group.create_dataset
        coordinates = grid.coordinates()
        for axis, (dims, values) in coordinates.items():
            large = values.ndim == 3
            array = add(
                axis, shape=values.shape, chunks=chunks if large else values.shape, dtype="f8",
                fill_value=np.nan,
            )  # fmt: skip
            array.attrs["_ARRAY_DIMENSIONS"] = list(dims)
            if not large:
                array[...] = values
        leading: tuple[int, ...] = (len(seeds),) if seeds else ()
        dims = (*(["realisation"] if seeds else []), *grid.dimensions)
        known = " ".join([*coordinates, *(["seed"] if seeds else [])])
        for name in names:
            array = add(
                name, shape=(*leading, *grid.number_of_cells),
                chunks=((1,) * len(leading) + chunks), dtype="f8", fill_value=np.nan,
            )  # fmt: skip
            array.attrs.update({"_ARRAY_DIMENSIONS": list(dims), "coordinates": known})
        if seeds:
            array = add("seed", shape=leading, chunks=leading, dtype="i8", fill_value=None)
            array.attrs["_ARRAY_DIMENSIONS"] = ["realisation"]
            array[...] = np.asarray(seeds, dtype=np.int64)
        markers = group.require_group(MARKERS)
        add = markers.create_array if hasattr(markers, "create_array") else markers.create_dataset
        boxes = [-(-n // size) for n, size in zip(grid.number_of_cells, chunks, strict=True)]
        batches = -(-len(seeds) // batch) if seeds else 1
        done = add("done", shape=(batches, *boxes), chunks=(1, 1, 1, 1), dtype="u1", fill_value=0)
        done.attrs["_ARRAY_DIMENSIONS"] = ["batch", *(f"chunk_{dim}" for dim in grid.dimensions)]
        group.attrs[ATTRIBUTE] = description
        require("zarr", "a store").consolidate_metadata(group.store)


def done_chunks(path: str) -> NDArray[np.bool_]:
    """Return which chunks are done, by batch and by their numbers along the three axes."""
    return np.asarray(open_group(path, "r")[f"{MARKERS}/done"][...], dtype=bool)
