"""Write the type stubs of the built module.

    python tools/make_stubs.py            # writes src/module/talvorix.pyi
    python tools/make_stubs.py --check    # only tells whether it is what would be written

pybind11-stubgen reads signatures and docstrings. What it writes is then made to say what callers
may pass, which is more than the signatures tell: a list of locations, say, is also an array of
shape (n, 3).
"""

from __future__ import annotations

import argparse
import ast
import copy
import difflib
import importlib
import inspect
import itertools
import keyword
import re
import subprocess
import sys
import tempfile
from collections.abc import Iterable, Iterator
from pathlib import Path
from types import ModuleType

import pybind11_stubgen

ROOT = Path(__file__).resolve().parents[1]

HEADER = """\
# Written by tools/make_stubs.py from the built module: correct the bindings, not this file.
# Lines of docstrings may be too long: they were laid out for help(), further to the left.
# ruff: noqa: E501
"""

# Ruff removes those that a file does not use.
IMPORTS = """\
from collections.abc import Callable, Iterable, Iterator, Mapping, Sequence
from typing import Any, ClassVar, Protocol, TypeAlias, overload, type_check_only

import numpy as np
from numpy.typing import ArrayLike, NDArray
from typing_extensions import Never
"""

# What arguments may be. Private, since the module has no such names. The protocols ask for a length
# because scalars of numpy have `__array__` as well.
ALIASES = {
    "_Integer": "_Integer: TypeAlias = int | np.integer[Any]",
    "_Real": "_Real: TypeAlias = float | np.floating[Any] | np.integer[Any] | np.bool_",
    "_IntegerArray": '''
@type_check_only
class _IntegerArray(Protocol):
    """An array of integers or what offers itself as one, such as a column of a table."""

    def __len__(self) -> int: ...
    def __array__(self) -> NDArray[np.integer[Any] | np.bool_]: ...
''',
    "_RealArray": '''
@type_check_only
class _RealArray(Protocol):
    """An array of real numbers or what offers itself as one, such as columns of a table."""

    def __len__(self) -> int: ...
    def __array__(self) -> NDArray[np.floating[Any] | np.integer[Any] | np.bool_]: ...
''',
}
# Those that are either sequences or arrays: the two, and what they hold.
HALVES = {
    "_Integers": ("Sequence[_Integer]", "_IntegerArray"),
    "_Flags": ("Sequence[_Integer | np.bool_]", "_IntegerArray"),
    "_Values": ("Sequence[_Real]", "_RealArray"),
    "_Location": ("Sequence[_Real]", "_RealArray"),
    "_Locations": ("Sequence[_Location]", "_RealArray"),
    "_Matrix": ("Sequence[Sequence[_Real] | _RealArray]", "_RealArray"),
    "_Table": ("Sequence[_Values]", "_RealArray"),
}
CONTENTS = {
    "_Integers": "A sequence of integers, or an array of shape (n,).",
    "_Flags": "A sequence of truth values, or an array of shape (n,).",
    "_Values": "A sequence of numbers, or an array of shape (n,).",
    "_Location": "A sequence of three numbers, or an array of shape (3,), (3, 1) or (1, 3).",
    "_Locations": "A sequence of locations, or an array of shape (n, 3), (n, 3, 1) or (n, 1, 3).",
    "_Matrix": "Three rows of three numbers, or an array of shape (3, 3).",
    "_Table": "A sequence of equally long rows of numbers, or an array of shape (m, n).",
}
ALIASES |= {
    name: f'{name}: TypeAlias = {sequence} | {array}\n"""{CONTENTS[name]}"""\n'
    for name, (sequence, array) in HALVES.items()
}

# The numbers, vectors and matrices of the algebra are asked for where what makes them may stand.
# The module that defines them calls them by their names alone.
ALGEBRA = "talvorix.algebra."
MADE_OF = {
    "Real": "_Real",
    "Jet": "_Real",
    "RealVector": "_Values",
    "JetVector": "Sequence[_Jet] | _RealArray",
    "RealMatrix": "Sequence[_Values]",
    "JetMatrix": "Sequence[Sequence[_Jet] | _RealArray]",
}
ALIASES |= {
    f"_{name}": f"_{name}: TypeAlias = {ALGEBRA}{name} | {made_of}\n"
    for name, made_of in MADE_OF.items()
    if name != "Real"
}

# How signatures name the types of arguments, and what they are to callers.
ARGUMENTS = {
    "float": "_Real",
    "int": "_Integer",
    "list[int]": "_Integers",
    "tuple[int, int, int]": "_Integers",
    "list[bool]": "_Flags",
    "list[float]": "_Values",
    "numpy.ndarray[numpy.float64[3, 1]]": "_Location",
    "list[numpy.ndarray[numpy.float64[3, 1]]]": "_Locations",
    "numpy.ndarray[numpy.float64[3, 3]]": "_Matrix",
    "numpy.ndarray[numpy.float64[m, n]]": "_Table",
}
for _name in MADE_OF.keys() - {"Real"}:
    ARGUMENTS |= {_name: f"_{_name}", ALGEBRA + _name: f"_{_name}"}


def expression(text: str) -> ast.expr:
    return ast.parse(text, mode="eval").body


class TypeWriter(ast.NodeTransformer):
    """Turns the type of a signature into that of an argument, or into that of a result."""

    def __init__(self, for_argument: bool) -> None:
        self.for_argument = for_argument

    def visit(self, node: ast.AST) -> ast.AST:
        alias = ARGUMENTS.get(ast.unparse(node)) if self.for_argument else None
        return expression(alias) if alias else super().visit(node)

    def visit_Subscript(self, node: ast.Subscript) -> ast.AST:
        name = ast.unparse(node.value)
        inner = node.slice
        if name == "numpy.ndarray":
            if self.for_argument:
                return expression("ArrayLike")
            scalar = ast.unparse(inner.value if isinstance(inner, ast.Subscript) else inner)
            kind = "np.bool_" if "bool" in scalar else scalar.replace("numpy.", "np.")
            return expression(f"NDArray[{kind}]")
        if name == "typing.Annotated":
            return self.visit(inner.elts[0])
        if name.endswith("Callable") and isinstance(inner.elts[0], ast.List):
            # What the module passes to a function it is given are results of the module, and what
            # that function returns is an argument.
            given = TypeWriter(not self.for_argument)
            inner.elts[0].elts = [given.visit(taken) for taken in inner.elts[0].elts]
            inner.elts[1] = self.visit(inner.elts[1])
            return ast.Subscript(ast.Name("Callable"), inner, node.ctx)
        node = self.generic_visit(node)
        if name == "list" and self.for_argument:
            node.value = ast.Name("Sequence")
        return node

    def visit_Attribute(self, node: ast.Attribute) -> ast.AST:
        name = ast.unparse(node)
        if name == "numpy.ndarray":
            return expression("ArrayLike" if self.for_argument else "NDArray[Any]")
        for module in ("typing.", "collections.abc."):
            if name.startswith(module):
                return ast.Name(name.removeprefix(module))
        return node


class HiddenNames(ast.NodeTransformer):
    """Gives another name to classes that a class refers to where its own methods hide them."""

    def __init__(self, owner: ast.ClassDef) -> None:
        self.methods = {part.name for part in owner.body if isinstance(part, ast.FunctionDef)}
        self.used: set[str] = set()

    def visit_FunctionDef(self, node: ast.FunctionDef) -> ast.FunctionDef:
        self.visit(node.args)
        if node.returns is not None:
            node.returns = self.visit(node.returns)
        return node

    def visit_Name(self, node: ast.Name) -> ast.Name:
        if node.id not in self.methods:
            return node
        self.used.add(node.id)
        return ast.Name(f"_{node.id}Class", node.ctx)


class StubWriter(ast.NodeTransformer):
    """Makes the stubs of one module out of those that pybind11-stubgen wrote."""

    def __init__(self, module: ModuleType) -> None:
        self.owner: ModuleType | type = module

    def visit_Module(self, node: ast.Module) -> ast.Module:
        node.body = self.settle(statement for statement in node.body if not is_replaced(statement))
        return node

    def visit_ClassDef(self, node: ast.ClassDef) -> list[ast.stmt]:
        outer, self.owner = self.owner, getattr(self.owner, node.name)
        node.body = self.settle(node.body)
        # Python's type of bound classes; others, such as exceptions, inherit a constructor.
        is_bound = type(self.owner).__name__ == "pybind11_type"
        if is_bound and not any(getattr(part, "name", "") == "__init__" for part in node.body):
            # A required argument that nothing can be is refused whatever the call.
            constructor = "def __init__(self, no_constructor: Never, /) -> None: ..."
            node.body[has_docstring(node) : 0] = ast.parse(constructor).body
        self.owner = outer
        hidden = HiddenNames(node)
        hidden.visit(node)
        aliases = [f"_{name}Class: TypeAlias = {name}" for name in sorted(hidden.used)]
        return [*ast.parse("\n".join(aliases)).body, node]

    def visit_FunctionDef(self, node: ast.FunctionDef) -> ast.FunctionDef:
        node.decorator_list = [TypeWriter(False).visit(name) for name in node.decorator_list]
        for argument in ast.walk(node.args):
            if isinstance(argument, ast.arg) and argument.annotation is not None:
                argument.annotation = TypeWriter(True).visit(argument.annotation)
        if node.name == "__eq__":
            # What it cannot be compared with is another answer, not an error.
            first_argument(node).annotation = ast.Name("object")
        if node.returns is not None:
            node.returns = TypeWriter(False).visit(node.returns)
        clean_docstring(node)
        return node

    def visit_AnnAssign(self, node: ast.AnnAssign) -> ast.AST | list[ast.AST]:
        node.annotation = TypeWriter(False).visit(node.annotation)
        attribute = inspect.getattr_static(self.owner, node.target.id, None)
        if not isinstance(attribute, property):
            return node
        # A property of a class is a subclass of property, which hides the docstring behind its own.
        text = property.__dict__["__doc__"].__get__(attribute)
        return [node, docstring(text)] if text else node

    def visit_Expr(self, node: ast.Expr) -> ast.Expr:
        # Whether the docstring of such a property is written already depends on the interpreter.
        is_text = isinstance(node.value, ast.Constant) and isinstance(node.value.value, str)
        return docstring(node.value.value) if is_text else node

    def settle(self, statements: Iterable[ast.stmt]) -> list[ast.stmt]:
        """Visit the statements of a module or a class, and look at overloads side by side."""
        # The body of a class can have a docstring and be visited as a module's can.
        body = ast.Module(list(statements), [])
        clean_docstring(body)
        visited = self.generic_visit(body).body
        visited = [
            node
            for before, node in zip([None, *visited], visited, strict=False)
            if not (isinstance(node, ast.Expr) and before and ast.dump(before) == ast.dump(node))
        ]
        groups = itertools.groupby(visited, key=lambda node: getattr(node, "name", None))
        return list(itertools.chain.from_iterable(part_arrays(list(group)) for _, group in groups))


def is_replaced(statement: ast.stmt) -> bool:
    """Tell whether the file says this elsewhere, or has no need to say it."""
    if isinstance(statement, ast.ImportFrom):
        return statement.module == "__future__"
    if isinstance(statement, ast.Import):
        written = ("numpy", "typing", "collections.abc", "pybind11_stubgen.typing_ext")
        return statement.names[0].name in written
    return isinstance(statement, ast.AnnAssign) and ast.unparse(statement.target) == "__all__"


def has_docstring(node: ast.AST) -> bool:
    return bool(node.body) and ast.get_docstring(node, clean=False) is not None


def docstring(text: str) -> ast.Expr:
    text = inspect.cleandoc(text)
    return ast.Expr(ast.Constant(f"{text}\n" if "\n" in text else text))


def clean_docstring(node: ast.AST) -> None:
    if has_docstring(node):
        node.body[0] = docstring(ast.get_docstring(node))


def first_argument(function: ast.FunctionDef) -> ast.arg | None:
    """Find the first argument after the object itself, which alone has no type."""
    arguments = [*function.args.posonlyargs, *function.args.args]
    return next((argument for argument in arguments if argument.annotation), None)


def first_type(function: ast.FunctionDef) -> str:
    argument = first_argument(function)
    return ast.unparse(argument.annotation) if argument else ""


def part_arrays(group: list[ast.stmt]) -> Iterator[ast.stmt]:
    """Part an overload for arrays when their shape, which types do not tell, decides the result."""
    for i, function in enumerate(group):
        yield function
        later = group[i + 1 :]
        if not all(isinstance(one, ast.FunctionDef) for one in [function, *later]):
            continue
        kind = first_type(function)
        rivals = {first_type(one) for one in later if not same_result(one, function)}
        if kind not in HALVES or rivals.isdisjoint(HALVES.keys() - {kind}):
            continue
        for_arrays = copy.deepcopy(function)
        for part, half in zip((function, for_arrays), HALVES[kind], strict=True):
            first_argument(part).annotation = expression(half)
        for_arrays.returns = ast.Name("Any")
        for_arrays.body = [ast.Expr(ast.Constant(...))]
        yield for_arrays


def same_result(one: ast.FunctionDef, other: ast.FunctionDef) -> bool:
    return ast.dump(one.returns) == ast.dump(other.returns)


def used_aliases(text: str) -> list[str]:
    used: set[str] = set()
    for name in reversed(ALIASES):
        if re.search(rf"\b{name}\b", text):
            used.add(name)
            text += ALIASES[name]
    return [ALIASES[name] for name in ALIASES if name in used]


def ruff(text: str, path: Path, *arguments: str) -> str:
    command = [sys.executable, "-m", "ruff", *arguments, "--quiet", f"--stdin-filename={path}"]
    command += [f"--config={ROOT / 'pyproject.toml'}", "-"]
    done = subprocess.run(command, input=text, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise SystemExit(f"{path.name} would not pass ruff:\n{done.stderr}")
    return done.stdout


def without_keywords(generated: str) -> str:
    """Rename arguments that are called like a keyword of Python, such as lambda.

    No call can name them, so they get the two underscores of one that goes by position alone.
    """
    names = "|".join(keyword.kwlist)
    return re.sub(rf"^( *def \w+\(.*?)\b({names})(?=: )", r"\1__\2", generated, flags=re.MULTILINE)


def stub_text(generated: str, module: ModuleType, path: Path) -> str:
    """Make the text of a stub file out of what pybind11-stubgen wrote for the module."""
    tree = StubWriter(module).visit(ast.parse(without_keywords(generated)))
    start = has_docstring(tree)
    head = ast.unparse(ast.Module(tree.body[:start], []))
    imports = [node for node in tree.body if isinstance(node, ast.Import | ast.ImportFrom)]
    for node in imports:
        if isinstance(node, ast.ImportFrom) and node.level:
            # A stub hands on only what is imported by a name of its own.
            for name in node.names:
                name.asname = name.asname or name.name
    rest = [node for node in tree.body[start:] if node not in imports]
    body = ast.unparse(ast.fix_missing_locations(ast.Module(rest, [])))
    own_imports = ast.unparse(ast.Module(imports, []))
    text = "\n".join([HEADER, head, IMPORTS, own_imports, *used_aliases(body), body])
    if f"{module.__name__}." == ALGEBRA:
        text = text.replace(ALGEBRA, "")
    # Ruff also refuses a type that only the generator knows, since its name is imported nowhere.
    text = ruff(text, path, "check", "--fix", "--output-format=concise")
    text = ruff(text, path, "format")
    # What cannot be a key is none of its base class's in the eyes of type checkers, and is this way
    # in Python.
    unhashable = "__hash__: ClassVar[None]"
    text = text.replace(f"{unhashable} = None", f"{unhashable}  # type: ignore[assignment]")
    # Type checkers want to compare a reflected operator with the forward one of what it takes, and
    # cannot where that may be several things.
    return re.sub(
        r"^( *def __r(add|sub|mul|truediv)__\(.*: \.\.\.)$",
        r"\1  # type: ignore[misc]",
        text,
        flags=re.MULTILINE,
    )


def make_stubs(module: ModuleType, folder: Path) -> dict[Path, str]:
    """Make the stubs of a module, for it and for every submodule a file of its own.

    Parameters
    ----------
    module : module
        A built extension module.
    folder : pathlib.Path
        Where they are to stand.

    Returns
    -------
    dict of pathlib.Path to str
        The text of each file: `folder/name.pyi` for the module `name`, and below `folder/name/`
        what a stub package needs besides for its submodules.
    """
    name = module.__name__
    with tempfile.TemporaryDirectory() as made:
        # A default value that no expression makes is written as three dots; all else is an error.
        placeholders = "--ignore-invalid-expressions=<.* object at 0x[0-9a-f]+>"
        # The lengths of arrays that may have any.
        lengths = "--ignore-unresolved-names=[mn]"
        pybind11_stubgen.main([name, f"--output-dir={made}", "--exit-code", placeholders, lengths])
        texts = {}
        for source in sorted(Path(made).rglob("*.pyi")):
            parts = source.relative_to(made).with_suffix("").parts
            part = importlib.import_module(".".join(parts).removesuffix(".__init__"))
            place = folder / name if part is module else folder.joinpath(*parts)
            path = place.with_suffix(".pyi")
            texts[path] = stub_text(source.read_text(), part, path)
    return texts


def write(module: ModuleType, folder: Path) -> None:
    """Write the stubs of a module into a folder, and remove those of submodules gone."""
    texts = make_stubs(module, folder)
    for path in present(module, folder) - texts.keys():
        path.unlink()
    for path, text in texts.items():
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)


def present(module: ModuleType, folder: Path) -> set[Path]:
    name = module.__name__
    paths = {folder / f"{name}.pyi", *(folder / name).rglob("*.pyi")}
    return {path for path in paths if path.exists()}


def differences(module: ModuleType, folder: Path) -> str:
    """Compare the stubs in a folder with those of the module, as a unified diff."""
    texts = make_stubs(module, folder)
    diff = [f"{path} is of no submodule\n" for path in present(module, folder) - texts.keys()]
    for path, text in texts.items():
        old = path.read_text() if path.exists() else ""
        lines = [part.splitlines(keepends=True) for part in (old, text)]
        diff += difflib.unified_diff(*lines, str(path), "what the module says")
    return "".join(diff)


def main() -> int:
    parser = argparse.ArgumentParser(description="Write the type stubs of the built module.")
    parser.add_argument("--check", action="store_true", help="write nothing; fail when they differ")
    parser.add_argument("--module", default="talvorix", help="the module (default: talvorix)")
    parser.add_argument(
        "--folder", type=Path, default=ROOT / "src" / "module", help="where the stubs are kept"
    )
    options = parser.parse_args()
    module = importlib.import_module(options.module)
    if not options.check:
        write(module, options.folder)
        return 0
    diff = differences(module, options.folder)
    if diff:
        print(f"{diff}\nThe stubs differ from the module. Write them anew: make stubs")
    return 1 if diff else 0


if __name__ == "__main__":
    sys.exit(main())
