# Written by tools/make_stubs.py from the built module: correct the bindings, not this file.
# Lines of docstrings may be too long: they were laid out for help(), further to the left.
# ruff: noqa: E501

"""Spectra of series along a line, and what carries scattered samples to such a line."""

from collections.abc import Sequence
from typing import Any, Protocol, TypeAlias, type_check_only

import numpy as np
from numpy.typing import NDArray

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

_Values: TypeAlias = Sequence[_Real] | _RealArray
"""A sequence of numbers, or an array of shape (n,)."""

class SpectralData1D:
    """The spectrum of a series of n values: an entry for each of the n frequencies.

    Entry f belongs to f cycles over the series. Those above n / 2 mirror those below, as for every real
    series; `backward` does not read them.
    """

    @staticmethod
    def forward(data: _Values) -> SpectralData1D:
        """Take the spectrum of a series: its discrete Fourier transform, not normalised.

        Parameters
        ----------
        data : list of float, or array of shape (n,)

        Returns
        -------
        SpectralData1D
        """

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __init__(self, magnitude: _Values, phase: _Values) -> None:
        """Put a spectrum together from its polar form.

        Parameters
        ----------
        magnitude : list of float, or array of shape (n,)
        phase : list of float, or array of shape (n,)
            Radians.

        Raises
        ------
        ValueError
            When the two are not equally long.
        """

    def __len__(self) -> int: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    def backward(self) -> list[float]:
        """Take the series that has this spectrum.

        Returns
        -------
        list of float
            The n values. Frequencies above n / 2 have no effect on them.
        """

    def cartesian(self, shift: bool = False) -> tuple[list[float], list[float]]:
        """The spectrum in Cartesian form.

        Parameters
        ----------
        shift : bool, default False
            Whether to turn the lists so that frequency 0 stands in the middle, at n // 2.

        Returns
        -------
        tuple of (list of float, list of float)
            Real and imaginary parts.
        """

    def filter_frequencies(self, frequencies: _Integers) -> SpectralData1D:
        """Keep some frequencies alone.

        Parameters
        ----------
        frequencies : list of int
            From 0 to n - 1. Each is kept together with its mirror, n - f; frequency 0, which carries the
            mean, only when it is listed.

        Returns
        -------
        SpectralData1D
            The others are 0 in it.

        Raises
        ------
        IndexError
            When a frequency is not from 0 to n - 1.
        """

    def polar(self, shift: bool = False) -> tuple[list[float], list[float]]:
        """The spectrum in polar form.

        Parameters
        ----------
        shift : bool, default False
            Whether to turn the lists so that frequency 0 stands in the middle, at n // 2.

        Returns
        -------
        tuple of (list of float, list of float)
            Magnitude and phase, in radians.
        """

    def smooth_frequencies(self, window_size: _Integer) -> SpectralData1D:
        """Smooth the magnitudes by a moving average, which leaves their total as it is.

        Parameters
        ----------
        window_size : int
            Number of frequencies to either side that are averaged; fewer at the ends. The sum is divided by
            the terms less one, so that with a window of 0 nothing but NaN is left.

        Returns
        -------
        SpectralData1D
            With the smooth magnitudes and the same phases.

        Raises
        ------
        ValueError
            When `window_size` is negative.
        """

    @property
    def imag(self) -> list[float]:
        """Imaginary parts, as a list."""

    @property
    def magnitude(self) -> list[float]:
        """Magnitudes, as a list."""

    @property
    def phase(self) -> list[float]:
        """Phases in radians, as a list."""

    @property
    def real(self) -> list[float]:
        """Real parts, as a list."""

def project_back_to_source(
    target_x: _Values, source_x: _Values, source_data: _Values, dr: _Real, b: _Real, power_a: _Real
) -> list[float]:
    """Carry values along a line, as `project_to_line` makes them, to other positions.

    Parameters
    ----------
    target_x : list of float, or array of shape (m,)
        Positions where values are wanted, in any order.
    source_x : list of float, or array of shape (n,)
        Positions of the values.
    source_data : list of float, or array of shape (n,)
    dr : float
        Sources at most this far from a target count in its mean.
    b, power_a : float
        Of the weights, as for `project_to_line`.

    Returns
    -------
    list of float
        One value for each target; NaN where no source is within `dr`.

    Raises
    ------
    ValueError
        When `source_x` and `source_data` are not equally long or a position is not finite.
    """

def project_to_line(
    x: _Values, data: _Values, b: _Real, power_a: _Real, n_points: _Integer, window_size: _Integer
) -> list[float]:
    """Carry scattered samples to regular positions, from the least `x` to the largest.

    At each position stands the mean of the samples nearest to it, with the weight 1 / (d^power_a + b)
    at the distance d (Shepard 1968).

    Parameters
    ----------
    x : list of float, or array of shape (n,)
        Positions of the samples, in any order.
    data : list of float, or array of shape (n,)
    b : float
        Keeps the weight of a sample at the very position finite: with 0 such a position gives NaN, and
        the first and the last are such. The larger, the smoother.
    power_a : float
        The common powers 1, 2 and 3 are taken when this is within a millionth of them.
    n_points : int
        Number of positions. A single one is the least `x`.
    window_size : int
        Number of samples in a mean; all of them when there are fewer.

    Returns
    -------
    list of float
        The `n_points` values.

    Raises
    ------
    ValueError
        When `x` and `data` are not equally long, `x` is empty or not finite, or a count is below 1.

    References
    ----------
    Shepard, D. (1968). A two-dimensional interpolation function for irregularly-spaced data.
    Proceedings of the 23rd ACM national conference, 517-524.
    """
