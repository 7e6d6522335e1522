"""White noise that is a function of seed and place, whatever is asked for and in which order."""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np
from numpy.typing import NDArray

from talvorix_dask.grid import Triple

BLOCKS, DATA = 0, 1


def draw(seed: int, kind: int, first: int, count: int) -> NDArray[np.float64]:
    """Return the standard normal values of places with consecutive numbers.

    Salmon, J. K., Moraes, M. A., Dror, R. O. and Shaw, D. E. (2011). Parallel random numbers: as
    easy as 1, 2, 3. SC '11, article 16. Box, G. E. P. and Muller, M. E. (1958). A note on the
    generation of random normal deviates. Annals of Mathematical Statistics 29(2), 610-611.
    """
    key = np.array([seed % 2**64, kind], dtype=np.uint64)
    # The number of a place is the generator's counter, each value of which gives four words.
    words = np.random.Philox(key=key, counter=first).random_raw(4 * count).reshape(count, 4)
    uniform = ((words[:, :2] >> np.uint64(11)) + 0.5) * 2.0**-53
    return np.sqrt(-2 * np.log(uniform[:, 0])) * np.cos(2 * np.pi * uniform[:, 1])


def of_box(seed: int, counts: Sequence[int], lower: Triple, upper: Triple) -> NDArray[np.float64]:
    """Return the values of a box of a grid with such counts, in the order of its index."""
    _, ny, nz = (int(n) for n in counts)
    (i0, j0, k0), (i1, j1, k1) = (map(int, corner) for corner in (lower, upper))
    # A whole row of blocks goes on in the next one.
    step, run = (j1 - j0, (j1 - j0) * nz) if (k0, k1) == (0, nz) else (1, k1 - k0)
    rows = [
        draw(seed, BLOCKS, (i * ny + j) * nz + k0, run)
        for i in range(i0, i1)
        for j in range(j0, j1, step)
    ]
    return np.concatenate(rows)
