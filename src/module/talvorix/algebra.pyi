# Written by tools/make_stubs.py from the built module: correct the bindings, not this file.
# Lines of docstrings may be too long: they were laid out for help(), further to the left.
# ruff: noqa: E501

"""Numbers, vectors and matrices, plain or with derivatives, that formulas give."""

from collections.abc import Iterator, Sequence
from typing import Any, ClassVar, Protocol, TypeAlias, overload, type_check_only

import numpy as np
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

_Jet: TypeAlias = Jet | _Real

_RealVector: TypeAlias = RealVector | _Values

_JetVector: TypeAlias = JetVector | Sequence[_Jet] | _RealArray

_RealMatrix: TypeAlias = RealMatrix | Sequence[_Values]

_JetMatrix: TypeAlias = JetMatrix | Sequence[Sequence[_Jet] | _RealArray]

class Real:
    """A number. Its arithmetic takes and gives floats."""

    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __add__(self, arg0: _Real) -> float: ...
    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __float__(self) -> float: ...
    def __getstate__(self) -> Any: ...
    def __init__(self, value: _Real) -> None:
        """Keep a number.

        Parameters
        ----------
        value : float
        """

    def __mul__(self, arg0: _Real) -> float: ...
    def __radd__(self, arg0: _Real) -> float: ...  # type: ignore[misc]
    def __repr__(self) -> str: ...
    def __rmul__(self, arg0: _Real) -> float: ...  # type: ignore[misc]
    def __rsub__(self, arg0: _Real) -> float: ...  # type: ignore[misc]
    def __rtruediv__(self, arg0: _Real) -> float: ...  # type: ignore[misc]
    def __setstate__(self, arg0: Any) -> None: ...
    def __str__(self) -> str: ...
    def __sub__(self, arg0: _Real) -> float: ...
    def __truediv__(self, arg0: _Real) -> float: ...

class RealVector:
    """A list of numbers with element-wise arithmetic.

    Operators walk the left operand. They raise `IndexError` where the right one is shorter and do not
    read what it has beyond. Reflected operators do not swap: `a - b` is self - other either way.
    """

    __array_ufunc__ = None
    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __add__(self, arg0: _RealVector) -> RealVector: ...
    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getitem__(self, arg0: _Integer) -> float: ...
    def __getstate__(self) -> Any: ...
    @overload
    def __init__(self, vector: _Values) -> None:
        """Keep a list of numbers.

        Parameters
        ----------
        vector : list
            Numbers, or another vector to copy.
        """

    @overload
    def __init__(self, vector: _RealVector) -> None: ...
    def __iter__(self) -> Iterator: ...
    def __len__(self) -> int: ...
    @overload
    def __mul__(self, arg0: _RealVector) -> float: ...
    @overload
    def __mul__(self, arg0: _Real) -> RealVector: ...
    def __radd__(self, arg0: _RealVector) -> RealVector: ...  # type: ignore[misc]
    def __repr__(self) -> str: ...
    @overload
    def __rmul__(self, arg0: _RealVector) -> float: ...  # type: ignore[misc]
    @overload
    def __rmul__(self, arg0: _Real) -> RealVector: ...  # type: ignore[misc]
    def __rsub__(self, arg0: _RealVector) -> RealVector: ...  # type: ignore[misc]
    def __setstate__(self, arg0: Any) -> None: ...
    def __str__(self) -> str: ...
    def __sub__(self, arg0: _RealVector) -> RealVector: ...
    def __truediv__(self, arg0: _Real) -> RealVector: ...
    def dot(self, vector: _RealVector) -> float:
        """The sum of the squares of this vector.

        Parameters
        ----------
        vector : vector
            Not read: use `*` for the dot product.

        Returns
        -------
        float or Jet
        """

    def norm(self) -> float:
        """The Euclidean norm.

        Returns
        -------
        float or Jet
            0 for an empty vector.
        """

class RealMatrix:
    """Rows of numbers with the arithmetic of matrices.

    The first row tells the number of columns. Operations raise `ValueError` for rows that are shorter
    and for shapes that do not fit, and `IndexError` when there are no rows. Reflected operators do not
    swap: a product keeps self on the left.
    """

    __array_ufunc__ = None
    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __add__(self, arg0: _RealMatrix) -> RealMatrix: ...
    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getitem__(self, arg0: _Integer) -> RealVector: ...
    def __getstate__(self) -> Any: ...
    def __init__(self, matrix: Sequence[_Values]) -> None:
        """Keep rows of numbers.

        Parameters
        ----------
        matrix : list of list
        """

    def __iter__(self) -> Iterator: ...
    def __len__(self) -> int: ...
    @overload
    def __mul__(self, arg0: _RealMatrix) -> RealMatrix: ...
    @overload
    def __mul__(self, arg0: _Real) -> RealMatrix: ...
    @overload
    def __mul__(self, arg0: _RealVector) -> RealVector:
        """The product with a matrix, a number or a vector.

        With a vector it has three elements, the last ones 0 for a matrix of fewer rows; `ValueError` for
        one of more.
        """

    def __radd__(self, arg0: _RealMatrix) -> RealMatrix: ...  # type: ignore[misc]
    def __repr__(self) -> str: ...
    @overload
    def __rmul__(self, arg0: _RealMatrix) -> RealMatrix: ...  # type: ignore[misc]
    @overload
    def __rmul__(self, arg0: _Real) -> RealMatrix: ...  # type: ignore[misc]
    @overload
    def __rmul__(self, arg0: _RealVector) -> RealVector: ...  # type: ignore[misc]
    def __rsub__(self, arg0: _RealMatrix) -> RealMatrix: ...  # type: ignore[misc]
    def __setstate__(self, arg0: Any) -> None: ...
    def __str__(self) -> str: ...
    def __sub__(self, arg0: _RealMatrix) -> RealMatrix: ...
    @overload
    def __truediv__(self, arg0: _Real) -> RealMatrix: ...
    @overload
    def __truediv__(self, arg0: _RealMatrix) -> RealMatrix: ...
    @overload
    def __truediv__(self, arg0: _RealVector) -> RealMatrix:
        """The quotient by a number; by a matrix, self times its inverse; by a vector, the inverse of self
        times the vector, as a matrix of one column.
        """

    def inverse(self) -> RealMatrix:
        """The inverse.

        Returns
        -------
        matrix
            Infinities or NaN for a singular one.
        """

    def norm(self) -> float:
        """The root of the sum of the squares of all elements.

        Returns
        -------
        float or Jet
        """

class Jet:
    """A number with its derivatives by seven parameters.

    Its arithmetic takes `Jet` and float and gives `Jet`; the derivatives follow the rules of calculus.
    """

    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __add__(self, arg0: _Jet) -> Jet: ...
    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __float__(self) -> float: ...
    def __getstate__(self) -> Any: ...
    def __init__(self, value: _Real) -> None:
        """Keep a number whose derivatives are 0.

        Parameters
        ----------
        value : float
        """

    def __mul__(self, arg0: _Jet) -> Jet: ...
    def __radd__(self, arg0: _Jet) -> Jet: ...  # type: ignore[misc]
    def __repr__(self) -> str: ...
    def __rmul__(self, arg0: _Jet) -> Jet: ...  # type: ignore[misc]
    def __rsub__(self, arg0: _Jet) -> Jet: ...  # type: ignore[misc]
    def __rtruediv__(self, arg0: _Jet) -> Jet: ...  # type: ignore[misc]
    def __setstate__(self, arg0: Any) -> None: ...
    def __str__(self) -> str: ...
    def __sub__(self, arg0: _Jet) -> Jet: ...
    def __truediv__(self, arg0: _Jet) -> Jet: ...
    @property
    def derivatives(self) -> list[float]:
        """The seven derivatives."""

    @property
    def value(self) -> float:
        """The number."""

class JetVector:
    """A list of numbers with element-wise arithmetic.

    Operators walk the left operand. They raise `IndexError` where the right one is shorter and do not
    read what it has beyond. Reflected operators do not swap: `a - b` is self - other either way.
    """

    __array_ufunc__ = None
    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __add__(self, arg0: _JetVector) -> JetVector: ...
    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getitem__(self, arg0: _Integer) -> Jet: ...
    def __getstate__(self) -> Any: ...
    @overload
    def __init__(self, vector: Sequence[_Jet]) -> None:
        """Keep a list of numbers.

        Parameters
        ----------
        vector : list
            Numbers, or another vector to copy.
        """

    @overload
    def __init__(self, vector: _JetVector) -> None: ...
    def __iter__(self) -> Iterator: ...
    def __len__(self) -> int: ...
    @overload
    def __mul__(self, arg0: _JetVector) -> Jet: ...
    @overload
    def __mul__(self, arg0: _Jet) -> JetVector: ...
    def __radd__(self, arg0: _JetVector) -> JetVector: ...  # type: ignore[misc]
    def __repr__(self) -> str: ...
    @overload
    def __rmul__(self, arg0: _JetVector) -> Jet: ...  # type: ignore[misc]
    @overload
    def __rmul__(self, arg0: _Jet) -> JetVector: ...  # type: ignore[misc]
    def __rsub__(self, arg0: _JetVector) -> JetVector: ...  # type: ignore[misc]
    def __setstate__(self, arg0: Any) -> None: ...
    def __str__(self) -> str: ...
    def __sub__(self, arg0: _JetVector) -> JetVector: ...
    def __truediv__(self, arg0: _Jet) -> JetVector: ...
    def dot(self, vector: _JetVector) -> Jet:
        """The sum of the squares of this vector.

        Parameters
        ----------
        vector : vector
            Not read: use `*` for the dot product.

        Returns
        -------
        float or Jet
        """

    def norm(self) -> Jet:
        """The Euclidean norm.

        Returns
        -------
        float or Jet
            0 for an empty vector.
        """

class JetMatrix:
    """Rows of numbers with the arithmetic of matrices.

    The first row tells the number of columns. Operations raise `ValueError` for rows that are shorter
    and for shapes that do not fit, and `IndexError` when there are no rows. Reflected operators do not
    swap: a product keeps self on the left.
    """

    __array_ufunc__ = None
    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __add__(self, arg0: _JetMatrix) -> JetMatrix: ...
    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getitem__(self, arg0: _Integer) -> JetVector: ...
    def __getstate__(self) -> Any: ...
    def __init__(self, matrix: Sequence[Sequence[_Jet]]) -> None:
        """Keep rows of numbers.

        Parameters
        ----------
        matrix : list of list
        """

    def __iter__(self) -> Iterator: ...
    def __len__(self) -> int: ...
    @overload
    def __mul__(self, arg0: _JetMatrix) -> JetMatrix: ...
    @overload
    def __mul__(self, arg0: _Jet) -> JetMatrix: ...
    @overload
    def __mul__(self, arg0: _JetVector) -> JetVector:
        """The product with a matrix, a number or a vector.

        With a vector it has three elements, the last ones 0 for a matrix of fewer rows; `ValueError` for
        one of more.
        """

    def __radd__(self, arg0: _JetMatrix) -> JetMatrix: ...  # type: ignore[misc]
    def __repr__(self) -> str: ...
    @overload
    def __rmul__(self, arg0: _JetMatrix) -> JetMatrix: ...  # type: ignore[misc]
    @overload
    def __rmul__(self, arg0: _Jet) -> JetMatrix: ...  # type: ignore[misc]
    @overload
    def __rmul__(self, arg0: _JetVector) -> JetVector: ...  # type: ignore[misc]
    def __rsub__(self, arg0: _JetMatrix) -> JetMatrix: ...  # type: ignore[misc]
    def __setstate__(self, arg0: Any) -> None: ...
    def __str__(self) -> str: ...
    def __sub__(self, arg0: _JetMatrix) -> JetMatrix: ...
    @overload
    def __truediv__(self, arg0: _Jet) -> JetMatrix: ...
    @overload
    def __truediv__(self, arg0: _JetMatrix) -> JetMatrix: ...
    @overload
    def __truediv__(self, arg0: _JetVector) -> JetMatrix:
        """The quotient by a number; by a matrix, self times its inverse; by a vector, the inverse of self
        times the vector, as a matrix of one column.
        """

    def inverse(self) -> JetMatrix:
        """The inverse.

        Returns
        -------
        matrix
            Infinities or NaN for a singular one.
        """

    def norm(self) -> Jet:
        """The root of the sum of the squares of all elements.

        Returns
        -------
        float or Jet
        """
