"""Formulas evaluated literally: by recursion, every node whenever it is asked, cell by cell.

Numbers are arrays of a value and seven derivatives; lists are lists of them.
"""

import numpy as np

LIST, SCALAR = 0, 1


def number(x, derivatives=(0.0,) * 7):
    return np.array([x, *derivatives])


def multiply(a, b):
    return np.append(a[0] * b[0], a[0] * b[1:] + b[0] * a[1:])


def divide(a, b):
    return np.append(a[0] / b[0], (a[1:] - a[0] / b[0] * b[1:]) / b[0])


def each(operation, left, right):
    return [operation(x, right[i]) for i, x in enumerate(left)]


def dot(left, right):
    return sum(each(multiply, left, right), number(0.0))


def norm(values):
    square = dot(values, values)
    return np.append(np.sqrt(square[0]), square[1:] / (2 * np.sqrt(square[0])))


class Node:
    def __init__(self, shape):
        self.shape, self.cells = shape, [[], number(0.0)]

    def keep(self, result):
        self.shape = LIST if isinstance(result, list) else SCALAR
        self.cells[self.shape] = result
        return result


class Variable(Node):
    def __init__(self, content):
        super().__init__(SCALAR)
        self.keep(content)

    def get(self, wanted, x=None):
        if x is not None:
            return self.keep(x)
        self.shape = SCALAR if wanted == SCALAR else self.shape
        return self.cells[wanted]

    def assign(self, content):
        is_list = isinstance(content, list)
        # There has to be an element to take, or one to replace.
        if is_list != (self.shape == LIST) and not (content if is_list else self.cells[LIST]):
            raise RuntimeError("Invalid argument!!!")
        if is_list:
            self.cells[self.shape] = content[0] if self.shape == SCALAR else content
        elif self.shape == SCALAR:
            self.cells[SCALAR] = content
        else:
            self.cells[LIST] = [content, *self.cells[LIST][1:]]


class Value(Variable):
    def get(self, wanted, x=None):
        if self.shape != wanted:
            raise RuntimeError("invalid eval call!!!")
        return self.cells[wanted]


class Transformation(Node):
    def __init__(self, shape, compute):
        super().__init__(shape)
        self.compute = compute

    def get(self, wanted, x=None):
        return self.keep(self.compute(wanted))


class Function(Node):
    def __init__(self, args, expr):
        super().__init__(expr.shape)
        self.args, self.expr = args, expr

    def get(self, wanted, x=None):
        return self.keep(self.expr.get(wanted, x))

    def adapt(self, x, as_list=False):
        """The scalar function of numbers, the kernel function or the transformation of rows."""
        if len(x) > len(self.args):
            raise IndexError
        for variable, content in zip(self.args, x, strict=False):
            variable.assign(content)
        if as_list:
            result = self.expr.get(self.shape)
            return [result] if self.shape == SCALAR else result
        result = self.expr.get(self.expr.shape)
        return norm(result) if isinstance(result, list) else result

    def __call__(self, operands):
        if len(operands) > len(self.args):
            raise ValueError

        def compute(wanted):
            for variable, operand in zip(self.args, operands, strict=False):
                variable.keep(operand.get(operand.shape))
            shape = self.expr.shape
            result = self.expr.get(shape)
            return result if shape == wanted else norm(result) if shape == LIST else [result]

        return Transformation(self.shape, compute)


# By operator, shape on the left (s, v) and what is on the right: a node (s, v), a number (c) or a
# list (k). What the result yields and how; some fail only when evaluated.
FAILS = {"-vc": "Invalid rhs!!!", "+sk": "Invalid lhs!!!", "-sk": "Invalid rhs!!!"}
RULES = {
    **dict.fromkeys(FAILS, (LIST, None)),
    "*vv": (SCALAR, dot),
    "/vv": (SCALAR, lambda a, b: divide(number(1.0), dot(a, a))),
    "*sk": (LIST, lambda a, b: [multiply(x, a) for x in b]),
    "*vk": (SCALAR, lambda a, b: dot(a, a)),
}
for symbol, f in {"+": np.add, "-": np.subtract, "*": multiply, "/": divide}.items():
    RULES[symbol + "ss"] = RULES[symbol + "sc"] = SCALAR, f
    if symbol in "+-":
        RULES[symbol + "vv"] = RULES[symbol + "vk"] = LIST, lambda a, b, f=f: each(f, a, b)
    else:
        RULES[symbol + "vc"] = LIST, lambda a, b, f=f: [f(x, b) for x in a]


def apply(symbol, left, right):
    is_node, left_shape = isinstance(right, Node), left.shape
    right_shape = right.shape if is_node else None
    on_right = "vs"[right_shape] if is_node else "k" if isinstance(right, list) else "c"
    rule = symbol + "vs"[left_shape] + on_right
    if rule not in RULES:
        raise RuntimeError("Invalid rhs!!!" if rule == "+vc" else "Invalid variable types")
    shape, operation = RULES[rule]

    def compute(wanted):
        if wanted != shape or rule in FAILS:
            raise RuntimeError("invalid call!!!\n" if wanted != shape else FAILS[rule])
        a = left.get(left_shape)
        return operation(a, right.get(right_shape) if is_node else right)

    return Transformation(shape, compute)
