# Written by tools/make_stubs.py from the built module: correct the bindings, not this file.
# Lines of docstrings may be too long: they were laid out for help(), further to the left.
# ruff: noqa: E501

"""The same for numbers with derivatives."""

from collections.abc import Sequence
from typing import Any, Protocol, TypeAlias, overload, type_check_only

import numpy as np
import talvorix.algebra
import talvorix.jet.ast
from numpy.typing import NDArray
from typing_extensions import Never

_Integer: TypeAlias = int | np.integer[Any]
_Real: TypeAlias = float | np.floating[Any] | np.integer[Any] | np.bool_

@type_check_only
class _RealArray(Protocol):
    """An array of real numbers or what offers itself as one, such as columns of a table."""

    def __len__(self) -> int: ...
    def __array__(self) -> NDArray[np.floating[Any] | np.integer[Any] | np.bool_]: ...

_Jet: TypeAlias = talvorix.algebra.Jet | _Real

_JetVector: TypeAlias = talvorix.algebra.JetVector | Sequence[_Jet] | _RealArray

class TransiogramPtr:
    """A shared handle of a `Transiogram` in native code. No function takes or returns one."""

    def __init__(self, no_constructor: Never, /) -> None: ...

class Transiogram:
    """Probabilities of transition between classes, by location.

    A table with a row and a column for each class. The entry of row i and column j tells how likely
    class j is at v when class i is at u. It may depend on how far apart the two are, on the direction
    and, where transitions change over the field, on where they are. Nothing makes rows sum to one.

    References
    ----------
    Li, W. (2006). Transiogram: a spatial relationship measure for categorical data. International
    Journal of Geographical Information Science 20(6), 693-699.
    """

    @overload
    def __call__(
        self, class_u: _Integer, class_v: _Integer, u: _JetVector, v: _JetVector
    ) -> talvorix.algebra.Jet:
        """Evaluate an entry, a row or the whole table.

        Parameters
        ----------
        class_u : int
            The row: the class at u. Without it, the whole table.
        class_v : int
            The column: the class at v. Without it, the whole row.
        u, v : vector
            The two locations.

        Returns
        -------
        number, vector or matrix
            What the functions returned; nothing is normalised.

        Raises
        ------
        IndexError
            When the table has no such row or column.
        TypeError
            When a function returns no number. What a function raises passes through.
        RuntimeError
            When a formula yields a vector.
        """

    @overload
    def __call__(
        self, class_u: _Integer, u: _JetVector, v: _JetVector
    ) -> talvorix.algebra.JetVector: ...
    @overload
    def __call__(self, u: _JetVector, v: _JetVector) -> talvorix.algebra.JetMatrix: ...
    def __getstate__(self) -> Any: ...
    @overload
    def __init__(self, kernel_matrix: Sequence[Sequence[Any]]) -> None:
        """Make a table of Python functions.

        Parameters
        ----------
        kernel_matrix : list of list of callable
            A row for each class. Each function is given u and v as vectors of the submodule `algebra` and
            returns a number. Only one function runs at a time in the whole process.
        u, v : Variable
            In the second form, the variables of the formulas below that stand for the two locations. Each
            evaluation of the table sets them to vectors.
        kernels : list of list of Expression
            In the second form, a row of formulas for each class; each yields a scalar. Such a table serves
            one thread at a time, and a simulation reads other variables once, when it begins.
        """

    @overload
    def __init__(
        self,
        u: talvorix.jet.ast.Variable,
        v: talvorix.jet.ast.Variable,
        kernels: Sequence[Sequence[talvorix.jet.ast.Expression]],
    ) -> None: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
