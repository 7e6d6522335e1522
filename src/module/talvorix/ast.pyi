# Written by tools/make_stubs.py from the built module: correct the bindings, not this file.
# Lines of docstrings may be too long: they were laid out for help(), further to the left.
# ruff: noqa: E501

"""Formulas that scripts put together from variables."""

from collections.abc import Sequence
from typing import Any, Protocol, TypeAlias, overload, type_check_only

import numpy as np
import talvorix.algebra
from numpy.typing import NDArray
from typing_extensions import Never

_Real: TypeAlias = float | np.floating[Any] | np.integer[Any] | np.bool_

@type_check_only
class _RealArray(Protocol):
    """An array of real numbers or what offers itself as one, such as columns of a table."""

    def __len__(self) -> int: ...
    def __array__(self) -> NDArray[np.floating[Any] | np.integer[Any] | np.bool_]: ...

_Values: TypeAlias = Sequence[_Real] | _RealArray
"""A sequence of numbers, or an array of shape (n,)."""

_RealVector: TypeAlias = talvorix.algebra.RealVector | _Values

_RealMatrix: TypeAlias = talvorix.algebra.RealMatrix | Sequence[_Values]

class ScalarFunction:
    """A function of scalars that gives a scalar."""

    def __init__(self, no_constructor: Never, /) -> None: ...
    def __call__(self, args: _RealVector) -> float:
        """Bind a scalar to each argument and evaluate the function.

        Parameters
        ----------
        args : vector
            One for each argument, from the first on. Of an argument that is a vector, it becomes the first
            element and the others stay.

        Returns
        -------
        float or Jet
            The norm when the formula yields a vector.

        Raises
        ------
        IndexError
            When there are more of them than arguments.
        """

    def __getstate__(self) -> Any: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...

class TransFunction:
    """A function of rows that gives a vector."""

    def __init__(self, no_constructor: Never, /) -> None: ...
    def __call__(self, args: _RealMatrix) -> talvorix.algebra.RealVector:
        """Bind a row to each argument and evaluate the function.

        Parameters
        ----------
        args : matrix
            A scalar argument takes the first element of its row.

        Returns
        -------
        vector
            Of one element when the function gives a scalar.

        Raises
        ------
        IndexError
            When there are more rows than arguments.
        """

    def __getstate__(self) -> Any: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...

class KernelFunction:
    """A function of rows that gives a scalar."""

    def __init__(self, no_constructor: Never, /) -> None: ...
    def __call__(self, args: _RealMatrix) -> float:
        """Bind a row to each argument and evaluate the function.

        Parameters
        ----------
        args : matrix
            A scalar argument takes the first element of its row.

        Returns
        -------
        float or Jet
            The norm when the formula yields a vector.

        Raises
        ------
        IndexError
            When there are more rows than arguments.
        """

    def __getstate__(self) -> Any: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...

class ExpressionPtr:
    """The name of a shared handle of a node; nothing makes one."""

    def __init__(self, no_constructor: Never, /) -> None: ...

class Expression:
    """A node of a formula.

    Nodes are combined by operators to new ones, which read what they are made of when they are
    evaluated: change a variable, and what was made with it changes too. A node yields a scalar or a
    vector, and keeps what it last yielded.

    A formula serves one thread at a time. Combining nodes whose shapes do not fit, and evaluating a node
    as what it does not yield, raise `RuntimeError`.
    """

    def __init__(self, no_constructor: Never, /) -> None: ...
    __array_ufunc__ = None

    @overload
    def __add__(self, other: Expression) -> Transformation: ...
    @overload
    def __add__(self, other: _Real) -> Transformation: ...
    @overload
    def __add__(self, other: _RealVector) -> Transformation: ...
    @overload
    def __mul__(self, other: Expression) -> Transformation: ...
    @overload
    def __mul__(self, other: _Real) -> Transformation: ...
    @overload
    def __mul__(self, other: _RealVector) -> Transformation: ...
    @overload
    def __radd__(self, other: Expression) -> Transformation: ...  # type: ignore[misc]
    @overload
    def __radd__(self, other: _Real) -> Transformation: ...  # type: ignore[misc]
    @overload
    def __radd__(self, other: _RealVector) -> Transformation: ...  # type: ignore[misc]
    def __repr__(self) -> str: ...
    @overload
    def __rmul__(self, other: Expression) -> Transformation: ...  # type: ignore[misc]
    @overload
    def __rmul__(self, other: _Real) -> Transformation: ...  # type: ignore[misc]
    @overload
    def __rmul__(self, other: _RealVector) -> Transformation: ...  # type: ignore[misc]
    @overload
    def __sub__(self, other: Expression) -> Transformation: ...
    @overload
    def __sub__(self, other: _Real) -> Transformation: ...
    @overload
    def __sub__(self, other: _RealVector) -> Transformation: ...
    @overload
    def __truediv__(self, other: Expression) -> Transformation: ...
    @overload
    def __truediv__(self, other: _Real) -> Transformation: ...
    @overload
    def eval(self) -> float:
        """Evaluate the node.

        Parameters
        ----------
        scalar : float or Jet
            In the second form. A variable takes it as its value, a function hands it on to its formula, and
            every other node ignores it.
        vector : vector
            In the third form, the same with a vector.

        Returns
        -------
        float or Jet
            In the third form the vector that the node yields.

        Raises
        ------
        RuntimeError
            When the node does not yield that.
        """

    @overload
    def eval(self, scalar: _Real) -> float: ...
    @overload
    def eval(self, vector: _RealVector) -> talvorix.algebra.RealVector: ...
    def eval_vector(self) -> talvorix.algebra.RealVector:
        """Evaluate the node as a vector.

        Returns
        -------
        vector

        Raises
        ------
        RuntimeError
            When the node does not yield one.
        """

    def object_type_name(self) -> str:
        """The name of the kind of the node.

        Returns
        -------
        str
        """

    def print(self) -> None:
        """Print kind, shape and kept value on a line."""

    def scalar(self) -> float:
        """The scalar that the node keeps, without evaluating it.

        Returns
        -------
        float or Jet
        """

    def type(self) -> int:
        """The kind of the node.

        Returns
        -------
        int
            0 for a value, 1 for a variable, 2 for a transformation, 4 for a kernel, 5 for a function.
        """

    def variable_type_name(self) -> str:
        """What the node yields at the moment.

        Returns
        -------
        str
            "scalar" or "vector".
        """

    def vec(self) -> talvorix.algebra.RealVector:
        """The vector that the node keeps, without evaluating it.

        Returns
        -------
        vector
        """

class VariablePtr:
    """The name of a shared handle of a node; nothing makes one."""

    def __init__(self, no_constructor: Never, /) -> None: ...

class Variable(Expression):
    """A named node whose value can be changed."""

    def __getstate__(self) -> Any: ...
    @overload
    def __init__(self, name: str, scalar: _Real) -> None:
        """Make a variable.

        Parameters
        ----------
        name : str
        scalar : float
            Its value, or in the second form
        vector : vector
            the values of one that is a list.
        """

    @overload
    def __init__(self, name: str, vector: _RealVector) -> None: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    def type(self) -> int:
        """What the variable yields at the moment.

        Returns
        -------
        int
            1 for a scalar, 0 for a vector.
        """

    def type_name(self) -> str:
        """What the variable yields at the moment.

        Returns
        -------
        str
            "scalar" or "vector".
        """

class ValuePtr:
    """The name of a shared handle of a node; nothing makes one."""

    def __init__(self, no_constructor: Never, /) -> None: ...

class Value(Expression):
    """A constant."""

    def __getstate__(self) -> Any: ...
    @overload
    def __init__(self, scalar: _Real) -> None:
        """Make a constant.

        Parameters
        ----------
        scalar : float
            Its value, or in the second form
        vector : vector
            the values of one that is a list.
        """

    @overload
    def __init__(self, vector: _RealVector) -> None: ...
    def __setstate__(self, arg0: Any) -> None: ...

class TransformationPtr:
    """The name of a shared handle of a node; nothing makes one."""

    def __init__(self, no_constructor: Never, /) -> None: ...

class Transformation(Expression):
    """What an operator or the call of a function makes."""

    def __init__(self, no_constructor: Never, /) -> None: ...
    def __getstate__(self) -> Any: ...
    def __setstate__(self, arg0: Any) -> None: ...

class KernelPtr:
    """The name of a shared handle of a node; nothing makes one."""

    def __init__(self, no_constructor: Never, /) -> None: ...

class Kernel(Expression):
    """A kind of node that nothing makes at present."""

    def __init__(self, no_constructor: Never, /) -> None: ...

class FunctionPtr:
    """The name of a shared handle of a node; nothing makes one."""

    def __init__(self, no_constructor: Never, /) -> None: ...

_ScalarFunctionClass: TypeAlias = ScalarFunction
_TransformationClass: TypeAlias = Transformation

class Function(Expression):
    """A formula with an ordered list of arguments, made by `Scalar` or `Vector`."""

    def __init__(self, no_constructor: Never, /) -> None: ...
    def Kernel(self) -> KernelFunction:
        """The function as one of rows, one for each argument, that gives a scalar.

        Returns
        -------
        KernelFunction
        """

    def ScalarFunction(self) -> _ScalarFunctionClass:
        """The function as one of a vector with a scalar for each argument.

        Returns
        -------
        ScalarFunction
        """

    def Transformation(self) -> TransFunction:
        """The function as one of rows, one for each argument, that gives a vector.

        Returns
        -------
        TransFunction
        """

    @overload
    def __call__(self, args: Sequence[Expression]) -> _TransformationClass:
        """Use the function in another formula.

        Parameters
        ----------
        args : list of Expression
            What the arguments are bound to, whenever the result is evaluated: the variables then have these
            values. Instead of nodes, a vector of numbers, one for each argument, or a matrix with a row for
            each.

        Returns
        -------
        Transformation
            A node that yields the value of the function; where a scalar is asked for and the formula yields
            a vector, its norm.

        Raises
        ------
        ValueError
            When there are more of them than arguments.
        """

    @overload
    def __call__(self, args: _RealVector) -> _TransformationClass: ...
    @overload
    def __call__(self, args: _RealMatrix) -> _TransformationClass: ...
    def __getstate__(self) -> Any: ...
    def __setstate__(self, arg0: Any) -> None: ...

class ScalarCost:
    """A function as a residual of scalars."""

    def __call__(self, args: _RealVector) -> float:
        """Bind a scalar to each argument and evaluate the function.

        Parameters
        ----------
        args : vector
            One for each argument, from the first on. Of an argument that is a vector, it becomes the first
            element and the others stay.

        Returns
        -------
        float or Jet
            The norm when the formula yields a vector.

        Raises
        ------
        IndexError
            When there are more of them than arguments.
        """

    def __getstate__(self) -> Any: ...
    def __init__(self, cost: Function) -> None:
        """Take a function for a residual.

        Parameters
        ----------
        cost : Function
        """

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...

def Scalar(args: Sequence[Variable], l: Expression) -> Function:
    """Make a function of a formula.

    Parameters
    ----------
    args : list of Variable
        The variables of the formula that are bound when it is called, in order.
    l : Expression
        The formula. Whether the function gives a scalar or a vector is what it yields at the moment.

    Returns
    -------
    Function
    """

def Vector(args: Sequence[Variable], l: Expression) -> Function:
    """Make a function of a formula.

    Parameters
    ----------
    args : list of Variable
        The variables of the formula that are bound when it is called, in order.
    l : Expression
        The formula. Whether the function gives a scalar or a vector is what it yields at the moment.

    Returns
    -------
    Function
    """
