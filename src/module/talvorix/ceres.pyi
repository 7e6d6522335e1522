# Written by tools/make_stubs.py from the built module: correct the bindings, not this file.
# Lines of docstrings may be too long: they were laid out for help(), further to the left.
# ruff: noqa: E501

"""Minimisation of costs that are formulas."""

from collections.abc import Sequence
from typing import Any, Protocol, TypeAlias, overload, type_check_only

import numpy as np
import talvorix.jet.ast
from numpy.typing import NDArray

_Integer: TypeAlias = int | np.integer[Any]
_Real: TypeAlias = float | np.floating[Any] | np.integer[Any] | np.bool_

@type_check_only
class _RealArray(Protocol):
    """An array of real numbers or what offers itself as one, such as columns of a table."""

    def __len__(self) -> int: ...
    def __array__(self) -> NDArray[np.floating[Any] | np.integer[Any] | np.bool_]: ...

_Values: TypeAlias = Sequence[_Real] | _RealArray
"""A sequence of numbers, or an array of shape (n,)."""

@overload
def solve(
    costs: Sequence[talvorix.jet.ast.Function],
    variables: Sequence[talvorix.jet.ast.Variable],
    boundary: dict[str, tuple[_Real, _Real]] = {},
    n_iterations: _Integer = 1000,
    cauchy_loss: _Real = 0.0,
    n_threads: _Integer = 0,
    debug: bool = False,
    validation_cb: Any = None,
) -> tuple[dict[str, float], float]:
    """Find the values of variables that minimise the sum of the squares of functions.

    Derivatives are exact: formulas are evaluated with numbers that carry them along. The method is
    Levenberg and Marquardt's.

    Parameters
    ----------
    costs : list of jet.ast.Function
        Each gives a residual; of a formula that yields a vector it is the norm. A function takes the
        variables by position, whatever its own arguments are.
    variables : list of jet.ast.Variable
        What is varied, from the values that they have.
    boundary : dict of str to tuple, default {}
        Lower and upper bounds by the name of a variable: floats in the first form, in which variables
        are scalars, and lists in the second, in which they may be vectors. An empty dict means the
        first form.
    n_iterations : int, default 1000
        Largest number of iterations.
    cauchy_loss : float, default 0
        When it is 1e-10 or more, a residual r counts as c² log(1 + (r / c)²), with this for c.
    n_threads : int, default 0
        Number of threads; 0 stands for all.
    debug : bool, default False
        Print the progress and a full report.
    validation_cb : callable, optional
        Called with the list of the present values after every iteration, in the second form a list of
        lists; what is not true stops the search.

    Returns
    -------
    tuple of (dict, float)
        The best values by the names of the variables, and the cost there: half the sum of what the
        residuals count. Where a residual or a derivative is not finite at the start, the values are
        those of the start and the cost is -1.

    Raises
    ------
    ValueError
        When there are no variables, bounds are fewer than the values of their variable, or a lower
        bound is not less than the upper one.
    IndexError
        When a function has fewer arguments than there are variables.
    RuntimeError
        When a formula cannot be evaluated.

    References
    ----------
    Agarwal, S., Mierle, K. and others. Ceres Solver.
    """

@overload
def solve(
    costs: Sequence[talvorix.jet.ast.Function],
    variables: Sequence[talvorix.jet.ast.Variable],
    boundary: dict[str, tuple[_Values, _Values]] = {},
    n_iterations: _Integer = 1000,
    cauchy_loss: _Real = 0.0,
    n_threads: _Integer = 0,
    debug: bool = False,
    validation_cb: Any = None,
) -> tuple[dict[str, list[float]], float]: ...
