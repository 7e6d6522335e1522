# Written by tools/make_stubs.py from the built module: correct the bindings, not this file.
# Lines of docstrings may be too long: they were laid out for help(), further to the left.
# ruff: noqa: E501

"""Simulation of classes along a random path by transiograms."""

from collections.abc import Sequence
from typing import Any, Protocol, TypeAlias, type_check_only

import numpy as np
import talvorix
import talvorix.transiogram
from numpy.typing import NDArray
from typing_extensions import Never

from . import jet as jet

_Integer: TypeAlias = int | np.integer[Any]
_Real: TypeAlias = float | np.floating[Any] | np.integer[Any] | np.bool_

@type_check_only
class _IntegerArray(Protocol):
    """An array of integers or what offers itself as one, such as a column of a table."""

    def __len__(self) -> int: ...
    def __array__(self) -> NDArray[np.integer[Any] | np.bool_]: ...

@type_check_only
class _RealArray(Protocol):
    """An array of real numbers or what offers itself as one, such as columns of a table."""

    def __len__(self) -> int: ...
    def __array__(self) -> NDArray[np.floating[Any] | np.integer[Any] | np.bool_]: ...

_Integers: TypeAlias = Sequence[_Integer] | _IntegerArray
"""A sequence of integers, or an array of shape (n,)."""

_Location: TypeAlias = Sequence[_Real] | _RealArray
"""A sequence of three numbers, or an array of shape (3,), (3, 1) or (1, 3)."""

_Locations: TypeAlias = Sequence[_Location] | _RealArray
"""A sequence of locations, or an array of shape (n, 3), (n, 3, 1) or (n, 1, 3)."""

class UnconditionalSamplerPtr:
    """A shared handle of a `UnconditionalSampler` in native code. No function takes or returns one."""

    def __init__(self, no_constructor: Never, /) -> None: ...

class ConditionalSamplerPtr:
    """A shared handle of a `ConditionalSampler` in native code. No function takes or returns one."""

    def __init__(self, no_constructor: Never, /) -> None: ...

class UnconditionalSampler:
    """Draws the class of a target that has no neighbours."""

    def __init__(self, no_constructor: Never, /) -> None: ...
    @staticmethod
    def Default(transiogram: talvorix.transiogram.Transiogram) -> UnconditionalSampler:
        """Make the sampler that `simulation` uses: every class is equally likely, whatever the transiogram says.

        Parameters
        ----------
        transiogram : Transiogram
            Tells how many classes there are.

        Returns
        -------
        UnconditionalSampler

        Raises
        ------
        ValueError
            When the table of the transiogram is empty or not square.
        """

    def __getstate__(self) -> Any: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...

class ConditionalSampler:
    """Draws the class of a target from its neighbours."""

    def __init__(self, no_constructor: Never, /) -> None: ...
    @staticmethod
    def Default(transiogram: talvorix.transiogram.Transiogram) -> ConditionalSampler:
        """Make the sampler that `simulation` uses: neighbours vote with their rows, by inverse squared distance.

        Parameters
        ----------
        transiogram : Transiogram

        Returns
        -------
        ConditionalSampler

        Raises
        ------
        ValueError
            When the table of the transiogram is empty or not square.
        """

    def __getstate__(self) -> Any: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...

def simulation(
    target_locs: _Locations,
    data_locs: _Locations,
    data_values: _Integers,
    transiogram: talvorix.transiogram.Transiogram,
    search_ani: talvorix.Ellipsoid,
    r: _Real = -1,
    knn: _Integer = 32,
    n_previous: _Integer = 32,
    seed: _Integer = 141412,
) -> list[int]:
    """Simulate a class at each target along a random path.

    Each target looks for its neighbours among the data and, apart from them, among the targets simulated
    before. Each neighbour's row of the transiogram, from there to the target, counts by the weight
    1 / (d^2 + 1e-6), d being the Euclidean distance. The weighted mean of the rows, made to sum to one,
    is what the class is drawn from. Without neighbours every class is equally likely.

    Parameters
    ----------
    target_locs : list of numpy.ndarray, or array of shape (n, 3)
    data_locs : list of numpy.ndarray, or array of shape (m, 3)
        May be empty.
    data_values : list of int, or array of shape (m,)
        The classes of the data: rows of the transiogram, counted from 0.
    transiogram : Transiogram
        Evaluated at (neighbour, target). Its functions run on the calling thread.
    search_ani : Ellipsoid
        In whose metric neighbours are searched; weights do not depend on it.
    r : float, default -1
        All data and targets nearer than `r` in the metric of `search_ani` are neighbours. At or below 0
        the `knn` nearest are.
    knn : int, default 32
        Largest number of neighbours among the data, and among the targets.
    n_previous : int, default 32
        Accepted and not read: `knn` bounds the targets as well.
    seed : int, default 141412
        Taken modulo 2^32.

    Returns
    -------
    list of int
        A class for each target. -1 where none could be drawn, since the weighted mean is NaN; such a
        target is no neighbour of others.

    Raises
    ------
    ValueError
        When `data_locs` and `data_values` are not equally many, the table of the transiogram is empty or
        not square, `knn` is negative and read, or a location is not finite.
    IndexError
        When a class of the data is not in the transiogram.
    TypeError
        When a function of the transiogram returns no number. What a function raises passes through.

    References
    ----------
    Allard, D., Comunian, A. and Renard, P. (2012). Probability aggregation methods in geoscience.
    Mathematical Geosciences 44(5), 545-581: the weighted mean is their linear pooling.
    Li, W. (2007). Markov chain random fields for estimation of categorical variables. Mathematical
    Geology 39(3), 321-335.
    """
